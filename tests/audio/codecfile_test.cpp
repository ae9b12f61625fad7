#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

#include "audio/CodecTestUtil.h"
#include "audio/codec/CodecError.h"
#include "audio/codec/CodecFile.h"
#include "audio/codec/Mp3GaplessInfo.h"

using namespace codectest;

namespace {

std::vector<int16_t> ReadAll(CodecFile& f, int iChunk = 4410) {
  std::vector<int16_t> all;
  for (int guard = 0; guard < 100000; ++guard) {
    auto a = f.ReadSamples(iChunk);
    if (a.empty()) break;
    all.insert(all.end(), a.begin(), a.end());
  }
  return all;
}

// A mono ramp of 16-bit samples, so that positions can be told apart exactly.
std::vector<int16_t> Ramp(int n, int iChannels) {
  std::vector<int16_t> a;
  for (int i = 0; i < n; ++i)
    for (int c = 0; c < iChannels; ++c) a.push_back(static_cast<int16_t>((i * 7 + c * 1000) % 30000));
  return a;
}

}  // namespace

class CodecFileRead : public ScratchTest {
 protected:
  void SetUp() override {
    ScratchTest::SetUp();
    MakeToneWav(P("src.wav"), 44100, 2, 2.0);
  }
};

// Files written by ffmpeg in every format the system reads state their tag and bit
// rate where the platform fixes them, and come back at the array
// format with the length the container states.
TEST_F(CodecFileRead, ReadsEveryFormatAtTheArrayFormat) {
  struct Case {
    const char* name;
    const char* opts;
    int tag, bitrate;  // 0: not checked
  } cases[] = {
      {"a.mp3", "-c:a libmp3lame -b:a 128k", 85, 128000},
      {"a.ogg", "-c:a libvorbis -b:a 96k", 0, 0},
      {"a.mp2", "-c:a mp2 -b:a 192k", 0, 0},
      {"a.wma", "-c:a wmav2 -b:a 64k", 0, 0},
      {"ima.wav", "-c:a adpcm_ima_wav", 17, 0},
      {"ms.wav", "-c:a adpcm_ms", 0, 0},
      {"pcm.wav", "-c:a pcm_s16le", 1, 44100 * 2 * 16},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    FfmpegConvert(P("src.wav"), P(c.name), c.opts);
    CodecFile f;
    f.SetUseWindowsMedia(std::string(c.name).ends_with(".wma"));
    f.Open(P(c.name), 0, 1);
    EXPECT_EQ(f.State(), 1);
    EXPECT_EQ(f.SampleRate(), 44100);
    EXPECT_EQ(f.Channels(), 2);
    EXPECT_NEAR(f.LengthMs(), 2000, 60);
    if (c.tag) {
      EXPECT_EQ(f.FormatTag(), c.tag);
    }
    if (c.bitrate) {
      EXPECT_EQ(f.BitRate(), c.bitrate);
    }
    auto all = ReadAll(f);
    EXPECT_EQ(all.size() % 2, 0u);
    long lFrames = static_cast<long>(all.size() / 2);
    EXPECT_NEAR(lFrames, f.TotalSamples(), 44100 * 0.06);
    EXPECT_NEAR(lFrames, 88200, 44100 * 0.06);
    // The tone survives: the left channel is not silent.
    double dSum = 0;
    for (size_t i = 0; i < all.size(); i += 2) dSum += std::abs(all[i]);
    EXPECT_GT(dSum / lFrames, 1000.0);
  }
}

// A 22050 Hz mono file read at 44100 Hz stereo: twice the frames, both channels equal,
// and the length in array samples so that position and length agree.
TEST_F(CodecFileRead, ResamplesAndUpmixes) {
  MakeToneWav(P("m22.wav"), 22050, 1, 1.0);
  CodecFile f;
  f.SetArrayFormat(44100, 2);
  f.Open(P("m22.wav"), 0, 1);
  EXPECT_EQ(f.SampleRate(), 22050);
  EXPECT_EQ(f.Channels(), 1);
  EXPECT_EQ(f.TotalSamples(), 44100);
  EXPECT_EQ(f.LengthMs(), 1000);
  auto all = ReadAll(f);
  EXPECT_NEAR(static_cast<double>(all.size()) / 2, 44100, 64);
  for (size_t i = 0; i + 1 < all.size(); i += 2) ASSERT_EQ(all[i], all[i + 1]) << i;
}

// The length of a compressed file is that of the audio present, as a decoder delivers
// it: whole, or cut short anywhere (the MP3's Info frame still counts every frame then).
// A cut frame or packet is not counted, though a decoder may make samples of its rest;
// an Ogg file cut inside a page is refused, one cut between pages measures its pages.
TEST_F(CodecFileRead, LengthIsTheAudioPresent) {
  MakeToneWav(P("odd.wav"), 44100, 2, 2.3456);
  struct Made {
    const char* name;
    const char* opts;
    long lCutFrame;  // frames that a decoder may make of a cut frame or packet
  } made[] = {
      {"lame.mp3", "-c:a libmp3lame -b:a 128k", 1152},
      {"plain.mp3", "-c:a libmp3lame -b:a 96k -write_xing 0 -write_id3v1 1", 1152},
      {"a.mp2", "-c:a mp2 -b:a 192k", 1152},
      {"a.ogg", "-c:a libvorbis -b:a 96k", 0},
      {"a.wma", "-c:a wmav2 -b:a 64k", 2048},
  };
  for (const auto& m : made) {
    FfmpegConvert(P("odd.wav"), P(m.name), m.opts);
    auto bytes = ReadBytes(P(m.name));
    const bool bOgg = std::string(m.name).ends_with(".ogg");
    size_t lCut = bytes.size() * 11 / 20 + 37;
    if (bOgg) {
      WriteBytes(P("cutpage_a.ogg"), bytes.substr(0, lCut));
      CodecFile f;
      EXPECT_THROW(f.Open(P("cutpage_a.ogg"), 0, 1), CodecError);
      lCut = bytes.find("OggS", lCut);
      ASSERT_NE(lCut, std::string::npos);
    }
    const std::string sCut = std::string("cut_") + m.name;
    WriteBytes(P(sCut), bytes.substr(0, lCut));
    long lWhole = 0;
    for (const std::string& sFile : {std::string(m.name), sCut}) {
      SCOPED_TRACE(sFile);
      const long lRef = DecodedFrames(P(sFile), 2);
      CodecFile f;
      f.Open(P(sFile), 0, 1);
      const long lTotal = f.TotalSamples();
      if (sFile == m.name) {
        lWhole = lTotal;
        EXPECT_EQ(lTotal, lRef);
        EXPECT_EQ(f.LengthMs(), std::lround(lRef * 1000.0 / 44100));
      } else {
        EXPECT_LE(lTotal, lRef);
        EXPECT_GE(lTotal, lRef - m.lCutFrame);
        EXPECT_LT(lTotal, lWhole * 6 / 10);
        EXPECT_GT(lTotal, lWhole * 4 / 10);
      }
      const long lRead = static_cast<long>(ReadAll(f).size() / 2);
      EXPECT_GE(lRead, lTotal);
      EXPECT_LE(lRead, lTotal + m.lCutFrame);
    }
  }
  // The LAME tag itself: the count of the encoder, its delay and padding.
  Mp3GaplessInfo info;
  ASSERT_TRUE(ReadMp3GaplessInfo(P("lame.mp3"), info));
  EXPECT_TRUE(info.bHasLameTag);
  EXPECT_EQ(info.lExactSamples, DecodedFrames(P("lame.mp3"), 2));
}

TEST_F(CodecFileRead, SeeksExactlyAndToTheEnd) {
  CodecFile f;
  f.Open(P("src.wav"), 0, 1);
  auto all = ReadAll(f);
  int32_t lPos = -1;
  f.Seek(30000, CodecFile::kSeekAbsolute, lPos);
  EXPECT_EQ(lPos, 30000);
  auto a = f.ReadSamples(100);
  ASSERT_EQ(a.size(), 200u);
  EXPECT_TRUE(std::equal(a.begin(), a.end(), all.begin() + 60000));
  f.Seek(0, CodecFile::kSeekCurrent, lPos);
  EXPECT_EQ(lPos, 30100);
  f.Seek(10, CodecFile::kSeekAbsolute, lPos);  // backwards
  a = f.ReadSamples(5);
  EXPECT_TRUE(std::equal(a.begin(), a.end(), all.begin() + 20));
  f.Seek(0, CodecFile::kSeekEnd, lPos);
  EXPECT_EQ(lPos, f.TotalSamples());
  EXPECT_TRUE(f.ReadSamples(100).empty());
  f.Seek(0, CodecFile::kSeekAbsolute, lPos);  // back from the end
  EXPECT_EQ(f.ReadSamples(3).size(), 6u);
}

// A change of array format during a read goes on from the same point in time.
TEST_F(CodecFileRead, DownmixesDownsamplesAndAFormatChangeKeepsThePosition) {
  CodecFile f;
  f.SetArrayFormat(8000, 1);
  f.Open(P("src.wav"), 0, 1);
  EXPECT_EQ(f.TotalSamples(), 16000);
  EXPECT_NEAR(static_cast<double>(ReadAll(f, 1000).size()), 16000, 32);
  f.Open(P("src.wav"), 0, 1);
  f.SetArrayFormat(44100, 2);
  ASSERT_EQ(f.ReadSamples(44100).size(), 88200u);
  f.SetArrayFormat(22050, 1);
  EXPECT_EQ(f.ArraySampleRate(), 22050);
  EXPECT_EQ(f.TotalSamples(), 44100);
  EXPECT_NEAR(static_cast<double>(ReadAll(f, 1000).size()), 22050, 64);
}

TEST_F(CodecFileRead, RefusesWhatIsNotAudio) {
  WriteBytes(P("text.mp3"), std::string(5000, 'x'));
  WriteBytes(P("empty.wav"), "");
  CodecFile f;
  EXPECT_THROW(f.Open(P("missing.mp3"), 0, 1), CodecError);
  EXPECT_THROW(f.Open(P("text.mp3"), 0, 1), CodecError);
  EXPECT_THROW(f.Open(P("empty.wav"), 0, 1), CodecError);
  EXPECT_EQ(f.State(), 0);
  EXPECT_EQ(f.LengthMs(), 0);
  EXPECT_THROW(f.ReadSamples(10), CodecError);
}

// Truncated and damaged compressed files read to a clean end.
TEST_F(CodecFileRead, DamagedFilesEndCleanly) {
  std::srand(7);
  for (auto [s, sOpts] : {std::pair{std::string("a.mp3"), "-c:a libmp3lame -b:a 128k"},
                          {std::string("a.ogg"), "-c:a libvorbis -b:a 96k"},
                          {std::string("a.wma"), "-c:a wmav2 -b:a 64k"}}) {
    FfmpegConvert(P("src.wav"), P(s), sOpts);
    auto a = ReadBytes(P(s));
    WriteBytes(P("half_" + s), a.substr(0, a.size() / 2));
    for (size_t i = a.size() / 4; i < a.size(); i += 97) a[i] = static_cast<char>(std::rand());
    WriteBytes(P("noisy_" + s), a);
    for (std::string v : {"half_" + s, "noisy_" + s}) {
      SCOPED_TRACE(v);
      CodecFile f;
      try {
        f.Open(P(v), 0, 1);
      } catch (const CodecError&) {
        continue;  // refusing a damaged file is a clean result too
      }
      const size_t lFrames = ReadAll(f).size() / 2;
      EXPECT_LT(lFrames, 44100u * 3);
      EXPECT_TRUE(v.starts_with("noisy_") || lFrames > 44100u / 4);
    }
  }
}

class CodecFileWrite : public ScratchTest {};

// Every format the component writes, set up by its own setter: the bit rate it states,
// the frames it counts, and the length a reader finds (ffprobe's view of the same
// files is checked in the copier's test, which writes through this class).
TEST_F(CodecFileWrite, WritesEachFormat) {
  struct Case {
    const char* name;
    int type;
    int rate, channels, kbps;
  } cases[] = {
      {"a.mp3", CodecFile::kTypeMP3, 22050, 1, 32},
      {"b.mp2", CodecFile::kTypeMP2, 48000, 2, 192},
      {"a.ogg", CodecFile::kTypeOGG, 22050, 1, 48},
      {"a.wav", CodecFile::kTypeWAV, 16000, 1, 0},
  };
  auto src = Ramp(44100 * 3 / 2, 2);
  for (auto& s : src) s = static_cast<int16_t>(8000 * std::sin(&s - src.data()));
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    CodecFile f;
    f.SetArrayFormat(44100, 2);
    Mp3Options o;
    o.SetSampleRate(c.rate);
    o.SetChannels(c.channels);
    o.SetBitRate(c.kbps);
    if (c.type == CodecFile::kTypeMP3) f.SetFormatMP3(o);
    else if (c.type == CodecFile::kTypeMP2) f.SetFormatMP2(c.rate, c.kbps, c.channels);
    else if (c.type == CodecFile::kTypeOGG) f.SetFormatOGG(c.rate, c.channels, c.kbps, 0, 0, true);
    else f.SetFormatPCM(c.rate, c.channels, 16);
    EXPECT_EQ(f.BitRate(), c.kbps ? c.kbps * 1000 : c.rate * c.channels * 16);
    f.Create(P(c.name), c.type);
    EXPECT_EQ(f.State(), 2);
    for (size_t i = 0; i < src.size(); i += 8820)
      f.WriteSamples(src.data() + i, std::min<size_t>(8820, src.size() - i));
    EXPECT_EQ(f.TotalSamples(), 44100 * 3 / 2);
    f.Close();
    EXPECT_EQ(f.State(), 0);
    EXPECT_EQ(Probe(P(c.name))["sample_rate"], std::to_string(c.rate));
    CodecFile r;
    r.Open(P(c.name), 0, 1);
    EXPECT_NEAR(r.LengthMs(), 1500, 60);
  }
}

// PCM keeps every sample; a written file reads back bit for bit.
TEST_F(CodecFileWrite, PcmRoundTripIsExact) {
  auto src = Ramp(10000, 2);
  {
    CodecFile f;
    f.SetFormatPCM(44100, 2, 16);
    f.Create(P("r.wav"), CodecFile::kTypeWAV);
    f.WriteSamples(src);
  }  // the destructor finishes the file
  CodecFile r;
  r.Open(P("r.wav"), 0, 1);
  EXPECT_EQ(r.TotalSamples(), 10000);
  EXPECT_EQ(ReadAll(r), src);
}

// IMA ADPCM: the platform's bit rate, and the block layout of a sample file.
TEST_F(CodecFileWrite, ImaAdpcmBlockLayout) {
  CodecFile f;
  f.SetFormatADPCM(22050, 1);
  EXPECT_EQ(f.BitRate(), 22050 * 512 / 1017 * 8);
  // A sample file written by ffmpeg with another block size: the same layout is taken.
  MakeToneWav(P("t.wav"), 44100, 2, 0.2);
  FfmpegConvert(P("t.wav"), P("sample.wav"), "-c:a adpcm_ima_wav -block_size 1024");
  CodecFile g;
  g.SetFormatLikeSample(P("sample.wav"));
  g.Create(P("like.wav"), CodecFile::kTypeWAV);
  g.WriteSamples(Ramp(4410, 2));
  EXPECT_EQ(g.FormatTag(), 17);
  g.Close();
  auto m = Probe(P("like.wav"));
  EXPECT_EQ(m["codec_name"], "adpcm_ima_wav");
  EXPECT_EQ(audiotest::Le16(ReadBytes(P("like.wav")), 32), 1024);
  EXPECT_EQ(m["sample_rate"], "44100");
}

TEST_F(CodecFileWrite, RefusesWritesWithoutAFormatOrFile) {
  CodecFile f;
  EXPECT_THROW(f.Create(P("x.mp3"), CodecFile::kTypeMP3), CodecError);
  f.SetFormatMP2(44100, 128, 2);
  EXPECT_THROW(f.Create(P("x.mp3"), CodecFile::kTypeMP3), CodecError);  // type differs
  EXPECT_THROW(f.Create(P("x.wma"), CodecFile::kTypeWMA), CodecError);
  EXPECT_THROW(f.WriteSamples(Ramp(10, 2)), CodecError);
  EXPECT_THROW(f.SetFormatPCM(44100, 3, 16), CodecError);
  EXPECT_THROW(f.SetFormatLikeSample(P("none.wav")), CodecError);
  // A folder that does not exist.
  EXPECT_THROW(f.Create(P("no/such/x.mp2"), CodecFile::kTypeMP2), CodecError);
  EXPECT_EQ(f.State(), 0);
}
