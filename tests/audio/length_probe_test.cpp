// The length of the copier's MPEG audio read from its frame headers alone must be the one
// read through the decoder, to the millisecond, whatever the file's form.
#include <gtest/gtest.h>

#include <string>

#include "CodecTestUtil.h"
#include "audio/codec/AudioLengthProbe.h"
#include "audio/codec/CodecFile.h"
#include "common/TestUtil.h"

namespace {

class LengthProbeTest : public TempRootTest {
 protected:
  std::string P(const std::string& s) const { return PathIn(s); }
  // The length through the decoder: what the length check read before frame headers.
  double DecoderSeconds(const std::string& sPath) {
    CodecFile o;
    o.Open(sPath, 0, 1);
    return o.LengthMs() / 1000.0;
  }
};

TEST_F(LengthProbeTest, HeadersGiveTheDecodersLength) {
  codectest::MakeToneWav(P("src.wav"), 44100, 2, 3.3);
  codectest::MakeToneWav(P("mono.wav"), 22050, 1, 2.1);
  struct Case {
    const char* name;
    const char* src;
    const char* opts;
  };
  const Case aCases[] = {
      {"lame.mp3", "src.wav", "-c:a libmp3lame -b:a 128k"},  // Info frame with LAME tag
      {"plain.mp3", "src.wav", "-c:a libmp3lame -b:a 128k -write_xing 0"},
      {"tagged.mp3", "src.wav", "-c:a libmp3lame -b:a 64k -id3v2_version 3 -metadata title=Hour"},
      {"half.mp3", "mono.wav", "-c:a libmp3lame -b:a 32k"},  // MPEG-2, 576 samples a frame
      {"a.mp2", "src.wav", "-c:a mp2 -b:a 128k"},
      {"m48.mp2", "mono.wav", "-c:a mp2 -ar 48000 -b:a 64k"},
  };
  for (const Case& c : aCases) {
    SCOPED_TRACE(c.name);
    codectest::FfmpegConvert(P(c.src), P(c.name), c.opts);
    const double dDecoder = DecoderSeconds(P(c.name));
    ASSERT_GT(dDecoder, 1.0);
    EXPECT_EQ(MpegAudioSeconds(P(c.name)), dDecoder);
    // Cut short, within a frame: still the decoder's length, now short of the whole.
    const std::string sBytes = ReadBytes(P(c.name));
    const std::string sCut = std::string("cut_") + c.name;
    WriteBytes(P(sCut), sBytes.substr(0, sBytes.size() * 3 / 5 + 7));
    const double dCut = DecoderSeconds(P(sCut));
    EXPECT_LT(dCut, dDecoder * 0.7);
    EXPECT_EQ(MpegAudioSeconds(P(sCut)), dCut);
  }
  // Not MPEG audio from its first byte: left to the decoder.
  WriteBytes(P("wave.mp3"), ReadBytes(P("src.wav")));
  WriteBytes(P("empty.mp3"), "");
  WriteBytes(P("header_only.mp2"), ReadBytes(P("a.mp2")).substr(0, 100));
  for (const char* s : {"wave.mp3", "empty.mp3", "header_only.mp2", "missing.mp3"}) {
    EXPECT_EQ(MpegAudioSeconds(P(s)), -1.0) << s;
  }
}

}  // namespace
