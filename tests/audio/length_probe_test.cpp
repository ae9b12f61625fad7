// The length of the copier's MPEG audio, Ogg Vorbis and WMA read from the file alone (frame
// headers, granule positions, ASF packets) must be the one read through the decoder, to
// the millisecond, whatever the file's form, whole or cut short.
#include <gtest/gtest.h>

#include <string>
#include <vector>

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

TEST_F(LengthProbeTest, OggAndWmaFromTheFileAlone) {
  // Noise: pages and packets of many sizes, and the headers a small part of each file.
  ASSERT_EQ(RunProgram("sox -n -r 44100 -c 2 -b 16 " + Quote(P("src.wav")) + " synth 6.3 pinknoise vol 0.5"), 0);
  ASSERT_EQ(RunProgram("sox -n -r 22050 -c 1 -b 16 " + Quote(P("mono.wav")) + " synth 5.1 pinknoise vol 0.5"), 0);
  const std::string kShuttle = std::string(KN_BIN_DIR) + "/SoundShuttle";
  auto copier = [&](const char* src, const std::string& dst, const std::string& format) {
    ASSERT_EQ(RunProgram(Quote(kShuttle) + " " + Quote("/SRCFILE=" + P(src)) + " " + Quote("/DSTFILE=" + P(dst)) + " " +
                         Quote("/DSTFORMAT=" + format + ";ProfileNum=0")),
              0)
        << dst;
  };
  copier("src.wav", "copier44.ogg", "FormatType=8;SampleRate=44100;Channels=2;BitRate=128");
  copier("mono.wav", "copier22.ogg", "FormatType=8;SampleRate=22050;Channels=1;BitRate=48");
  copier("mono.wav", "copier8.ogg", "FormatType=8;SampleRate=8000;Channels=1;BitRate=24");  // one mode only
  copier("src.wav", "copier44.wma", "FormatType=16;SampleRate=44100;Channels=2;BitRate=128");
  copier("mono.wav", "copier16.wma", "FormatType=16;SampleRate=16000;Channels=1;BitRate=24");
  codectest::FfmpegConvert(P("src.wav"), P("ffmpeg.ogg"), "-c:a libvorbis -q:a 3");
  codectest::FfmpegConvert(P("ffmpeg.ogg"), P("offset.ogg"), "-c copy -output_ts_offset 0.5");  // starts late
  // Pages of 55 KB: the last whole page of a cut file is far from its end.
  codectest::FfmpegConvert(P("src.wav"), P("bigpages.ogg"), "-c:a libvorbis -b:a 320k -page_duration 2000000");
  ASSERT_EQ(RunProgram("sox " + Quote(P("mono.wav")) + " " + Quote(P("sox.ogg"))), 0);
  codectest::FfmpegConvert(P("src.wav"), P("v1.wma"), "-c:a wmav1 -b:a 64k");
  codectest::FfmpegConvert(P("mono.wav"), P("v2.wma"), "-c:a wmav2 -b:a 32k");
  struct Case {
    const char* name;
    int rate;
    int channels;
    bool decodedAlike;  // whether ffmpeg decodes what the reader measures
  };
  // A stream that starts late is measured from its start, and ffmpeg's count differs by
  // the samples it trims there.
  const Case aCases[] = {
      {"copier44.ogg", 44100, 2, true}, {"copier22.ogg", 22050, 1, true}, {"copier8.ogg", 8000, 1, true},
      {"ffmpeg.ogg", 44100, 2, true},   {"offset.ogg", 44100, 2, false},  {"sox.ogg", 22050, 1, true},
      {"bigpages.ogg", 44100, 2, true}, {"copier44.wma", 44100, 2, true}, {"copier16.wma", 16000, 1, true},
      {"v1.wma", 44100, 2, true},       {"v2.wma", 22050, 1, true}};
  auto probe = [&](const std::string& sName) {
    return sName.ends_with(".ogg") ? OggVorbisSeconds(P(sName)) : AsfWmaSeconds(P(sName));
  };
  for (const Case& c : aCases) {
    SCOPED_TRACE(c.name);
    const double dDecoder = DecoderSeconds(P(c.name));
    ASSERT_GT(dDecoder, 5.0);
    EXPECT_EQ(probe(c.name), dDecoder);
    // The samples that ffmpeg decodes, counted apart from the reader.
    const double dDecoded = static_cast<double>(codectest::DecodedFrames(P(c.name), c.channels)) / c.rate;
    if (c.decodedAlike) {
      EXPECT_NEAR(probe(c.name), dDecoded, 0.0005);
    }
    // Cut short, within a page or packet: the decoder's length, short of the whole.
    const std::string sBytes = ReadBytes(P(c.name));
    for (const size_t lCut : {sBytes.size() * 3 / 5 + 7, sBytes.size() * 17 / 20 + 301}) {
      const std::string sCut = "cut_" + std::to_string(lCut) + "_" + c.name;
      WriteBytes(P(sCut), sBytes.substr(0, lCut));
      const double dCut = DecoderSeconds(P(sCut));
      EXPECT_LT(dCut, dDecoder * 0.95) << sCut;
      EXPECT_EQ(probe(sCut), dCut) << sCut;
    }
  }
  // What is not understood is left to the decoder.
  std::string sDamaged = ReadBytes(P("copier44.ogg"));
  sDamaged[40] = static_cast<char>(sDamaged[40] ^ 0x20);  // in the identification header
  WriteBytes(P("damaged.ogg"), sDamaged);
  sDamaged = ReadBytes(P("copier44.wma"));
  sDamaged.replace(60, 80, 80, '\0');  // the file properties
  WriteBytes(P("damaged.wma"), sDamaged);
  // A sample rate halved: twice the length, beyond what the header states.
  sDamaged = ReadBytes(P("copier16.wma"));
  const size_t iRate = sDamaged.find(std::string("\x61\x01\x01\x00\x80\x3e\x00\x00", 8));
  ASSERT_NE(iRate, std::string::npos);
  sDamaged.replace(iRate + 4, 4, std::string("\x40\x1f\x00\x00", 4));
  WriteBytes(P("rate.wma"), sDamaged);
  WriteBytes(P("chained.ogg"), ReadBytes(P("ffmpeg.ogg")) + ReadBytes(P("sox.ogg")));
  codectest::FfmpegConvert(P("src.wav"), P("two.ogg"), "-map 0 -map 0 -c:a libvorbis");
  codectest::FfmpegConvert(P("src.wav"), P("opus.ogg"), "-c:a libopus");
  WriteBytes(P("wave.wma"), ReadBytes(P("src.wav")));
  WriteBytes(P("ogg.wma"), ReadBytes(P("copier44.ogg")));
  WriteBytes(P("wma.ogg"), ReadBytes(P("copier44.wma")));
  WriteBytes(P("empty.ogg"), "");
  for (const char* s : {"damaged.ogg", "damaged.wma", "rate.wma", "chained.ogg", "two.ogg", "opus.ogg", "wave.wma",
                        "ogg.wma", "wma.ogg", "empty.ogg", "missing.wma"}) {
    EXPECT_EQ(probe(s), -1.0) << s;
  }
}

}  // namespace
