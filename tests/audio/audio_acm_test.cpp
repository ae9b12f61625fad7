// The WAV file class: what it writes (checked by sox and ffmpeg and by a plain RIFF
// walker), what it reads (files of sox and ffmpeg, odd layouts, damaged files), and the
// open, close and failure paths.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>

#include "AudioTestUtil.h"
#include "audio/AudioFormatHelpers.h"
#include "audio/CAudioACM.h"
#include "audio/ChooseAudioClass.h"
#include "common/TempRoot.h"
#include "support/AppGlobal.h"
#include "support/DebugMsg.h"
#include "support/Faults.h"

namespace fs = std::filesystem;
using audiotest::Le16;
using audiotest::Le32;

namespace {

class AudioAcmTest : public TempRootTest {
 protected:
  void TearDown() override {
    Faults::DisarmAll();
    AppGlobal::SetDebugMode(0);
    TempRootTest::TearDown();
  }

  // Writes memory-format audio (44100 Hz stereo) into a new file in pieces of
  // dPieceSecs. Result: the open's code, or the first failing write's or the close's.
  int32_t Write(const std::string& sPath, int iRate, int iCh, int iTag, const std::vector<int16_t>& aMem,
                double dPieceSecs = 1.0) {
    CAudioACM o;
    o.SetFileFormat(iRate, iCh, iTag);
    o.SetBufLenSecs(dPieceSecs);
    if (int32_t rc = o.OpenAudioFile(sPath, AudioFileWrite)) return rc;
    const size_t lPiece = static_cast<size_t>(dPieceSecs * 44100) * 2;
    for (size_t i = 0; i < aMem.size(); i += lPiece) {
      const size_t n = std::min(lPiece, aMem.size() - i);
      if (int32_t rc = o.WriteAudioData(aMem.data() + i, static_cast<int32_t>(n * 2))) return rc;
    }
    return o.CloseAudioFile();
  }

  // Reads a whole file in the memory format. Result: the open's code or 0.
  int32_t Read(const std::string& sPath, std::vector<int16_t>& aOut, double* pLength = nullptr) {
    CAudioACM o;
    if (int32_t rc = o.OpenAudioFile(sPath, AudioFileRead)) return rc;
    if (pLength) *pLength = o.AudioLength();
    aOut = audiotest::ReadToEnd(o);
    return 0;
  }

  std::string P(const std::string& sName) { return PathIn(sName); }
};

// ------------------------------------------------------------------ written files

struct FormatCase {
  int iTag;
  int iRate;
  int iCh;
};
std::string CaseName(const ::testing::TestParamInfo<FormatCase>& i) {
  const char* t = i.param.iTag == 1 ? "PCM" : i.param.iTag == 17 ? "IMA" : "MS";
  return std::string(t) + "_" + std::to_string(i.param.iRate) + (i.param.iCh == 1 ? "_mono" : "_stereo");
}

class AudioAcmRoundTrip : public AudioAcmTest, public ::testing::WithParamInterface<FormatCase> {};

TEST_P(AudioAcmRoundTrip, WrittenFileDecodesInSoxAndFfmpegAndReadsBack) {
  const auto c = GetParam();
  const double dSecs = 2.0;
  const auto aMem = audiotest::Sine(440, 44100, 2, dSecs);
  const std::string sWav = P("out.wav");
  ASSERT_EQ(Write(sWav, c.iRate, c.iCh, c.iTag, aMem), 0);
  ASSERT_TRUE(fs::exists(sWav));

  // Header fields and layout: "fmt ", "fact", "data", nothing else, sizes consistent;
  // the block of the platform's codec (PCM: cbSize 0 and two zero bytes behind it).
  const std::string s = ReadBytes(sWav);
  ASSERT_GE(s.size(), 44u);
  EXPECT_EQ(s.substr(0, 4) + s.substr(8, 4), "RIFFWAVE");
  EXPECT_EQ(Le32(s, 4), s.size() - 8);
  auto aChunks = audiotest::Chunks(s);
  ASSERT_EQ(aChunks.size(), 3u);
  EXPECT_EQ(aChunks[0].sId + aChunks[1].sId + aChunks[2].sId, "fmt factdata");
  const size_t f = aChunks[0].lOffset;
  EXPECT_EQ(aChunks[0].lSize, c.iTag == 2 ? 50u : 20u);
  EXPECT_EQ(Le16(s, f), c.iTag);
  EXPECT_EQ(Le16(s, f + 2), c.iCh);
  EXPECT_EQ(Le32(s, f + 4), static_cast<uint32_t>(c.iRate));
  const uint16_t iAlign = Le16(s, f + 12);
  const uint32_t lAvg = Le32(s, f + 8);
  const int iSpb = c.iTag == 1 ? 1 : Le16(s, f + 18);
  const int iHeader = c.iTag == 17 ? 4 : 7;  // bytes a channel in front of each ADPCM block
  const int iExpAlign = c.iTag == 1 ? c.iCh * 2 : 256 * c.iCh * std::max(1, c.iRate / 11025);
  EXPECT_EQ(iAlign, iExpAlign);
  EXPECT_EQ(Le16(s, f + 14), c.iTag == 1 ? 16 : 4);
  EXPECT_EQ(Le16(s, f + 16), c.iTag == 1 ? 0 : c.iTag == 17 ? 2 : 32);
  EXPECT_EQ(iSpb, c.iTag == 1 ? 1 : (iExpAlign - iHeader * c.iCh) * 8 / (4 * c.iCh) + (c.iTag == 17 ? 1 : 2));
  EXPECT_EQ(lAvg, static_cast<uint32_t>(static_cast<int64_t>(c.iRate) * iExpAlign / iSpb));
  if (c.iTag == 1) {
    EXPECT_EQ(Le16(s, f + 18), 0);
  }
  const uint32_t lData = aChunks[2].lSize;
  EXPECT_EQ(lData % iAlign, 0u) << "a file ends on a whole block";
  // "fact" counts the samples of audio: every one of the source's, not the padding of the
  // last block.
  const int64_t llWant = std::llround(dSecs * c.iRate);
  EXPECT_EQ(Le32(s, aChunks[1].lOffset), llWant);

  // Expected length: the whole audio, and at most the rest of its last block.
  const double dBlockSecs = static_cast<double>(iSpb) / c.iRate;
  const auto aRef = audiotest::Sine(440, c.iRate, 1, dSecs);
  for (const char* sTool : {"sox", "ffmpeg"}) {
    SCOPED_TRACE(sTool);
    std::vector<int16_t> aDec;
    ASSERT_TRUE(audiotest::DecodeWith(sTool, sWav, P("dec.raw"), aDec));
    const int64_t llGot = static_cast<int64_t>(aDec.size()) / c.iCh;
    EXPECT_GE(llGot, llWant);
    EXPECT_LT(llGot, llWant + iSpb);
    for (int ch = 0; ch < c.iCh; ++ch) {
      auto a = audiotest::Channel(aDec, c.iCh, ch);
      EXPECT_NEAR(audiotest::Pitch(a, c.iRate), 440.0, 2.0);
      EXPECT_GT(audiotest::BestCorrelation(audiotest::Channel(aRef, 1, 0), a), c.iTag == 1 ? 0.99 : 0.9);
    }
  }

  // Back through the class into the memory format.
  std::vector<int16_t> aBack;
  double dLength = 0;
  ASSERT_EQ(Read(sWav, aBack, &dLength), 0);
  EXPECT_NEAR(dLength, static_cast<double>(lData) / lAvg, 1e-9);
  EXPECT_NEAR(dLength, dSecs, dBlockSecs + 0.01);
  const double dBack = static_cast<double>(aBack.size()) / 2 / 44100;
  EXPECT_NEAR(dBack, dSecs, dBlockSecs + 0.02);
  for (int ch = 0; ch < 2; ++ch) {
    auto a = audiotest::Channel(aBack, 2, ch);
    EXPECT_NEAR(audiotest::Pitch(a, 44100), 440.0, 2.0);
    EXPECT_GT(audiotest::BestCorrelation(audiotest::Channel(aMem, 2, ch), a), c.iTag == 1 ? 0.99 : 0.9);
  }
}

std::vector<FormatCase> AllFormats() {
  std::vector<FormatCase> a;
  for (int iTag : {1, 17, 2})
    for (int iRate : {8000, 11025, 22050, 44100})
      for (int iCh : {1, 2}) a.push_back({iTag, iRate, iCh});
  return a;
}
INSTANTIATE_TEST_SUITE_P(Formats, AudioAcmRoundTrip, ::testing::ValuesIn(AllFormats()), CaseName);

TEST_F(AudioAcmTest, SameFormatsNeverChangeTheSamples) {
  // Memory format and file format both 44100 Hz stereo PCM: the bytes go through as they are.
  auto aMem = audiotest::Sine(1000, 44100, 2, 1.5);
  aMem[11] = 32767;
  aMem[12] = -32768;
  ASSERT_EQ(Write(P("same.wav"), 44100, 2, 1, aMem, 0.5), 0);
  std::vector<int16_t> aBack;
  ASSERT_EQ(Read(P("same.wav"), aBack), 0);
  EXPECT_EQ(aBack, aMem);
}

TEST_F(AudioAcmTest, SmallPiecesAndLargePiecesGiveTheSameFile) {
  const auto aMem = audiotest::Sine(440, 44100, 2, 1.3);
  ASSERT_EQ(Write(P("a.wav"), 22050, 1, 17, aMem, 1.0), 0);
  ASSERT_EQ(Write(P("b.wav"), 22050, 1, 17, aMem, 0.1), 0);
  const std::string a = ReadBytes(P("a.wav")), b = ReadBytes(P("b.wav"));
  // The resampler keeps its state across pieces, the codec keeps its tail: same audio.
  EXPECT_TRUE(a == b);
}

// ------------------------------------------------------------------ foreign files

struct ForeignCase {
  std::string sName;
  std::string sCommand;  // writes $OUT
  int iRate, iCh, iTag;
};

class AudioAcmForeign : public AudioAcmTest, public ::testing::WithParamInterface<ForeignCase> {};

TEST_P(AudioAcmForeign, FilesOfTheReferenceToolsReadToTheRightLength) {
  const auto& c = GetParam();
  const std::string sOut = P(c.sName + ".wav");
  std::string sCmd = c.sCommand;
  sCmd.replace(sCmd.find("$OUT"), 4, "'" + sOut + "'");
  ASSERT_EQ(RunProgram(sCmd), 0) << sCmd;
  std::string s = ReadBytes(sOut);
  // ffmpeg writes a LIST chunk before "data"; add one behind it as well, as some
  // editors leave one there.
  const std::string sList = "LIST" + audiotest::U32(13) + "INFOISFT" + audiotest::U32(5) + "abcde";
  s += sList + '\0';
  s.replace(4, 4, audiotest::U32(static_cast<uint32_t>(s.size() - 8)));
  WriteBytes(sOut, s);

  CAudioACM o;
  ASSERT_EQ(o.OpenAudioFile(sOut, AudioFileRead), 0);
  EXPECT_EQ(o.SampleRate(), c.iRate);
  EXPECT_EQ(o.Channels(), c.iCh);
  EXPECT_EQ(o.FormatTag(), c.iTag);
  EXPECT_EQ(o.RecordedFileName(), "");
  const double dLen = o.AudioLength();
  // One second, and the writer may pad the last block.
  const double dBlock = static_cast<double>(o.FileFormat().nBlockAlign) / o.FileFormat().nAvgBytesPerSec;
  EXPECT_GE(dLen, 1.0 - 0.001);
  EXPECT_LE(dLen, 1.0 + dBlock + 0.001);
  const auto aBack = audiotest::ReadToEnd(o);
  EXPECT_NEAR(o.CurrentPosition(), dLen, 1e-6);
  // Exactly the audio of "data", within the resampler's delay.
  EXPECT_NEAR(aBack.size() * 2 / 176400.0, dLen, 0.002);
  EXPECT_NEAR(audiotest::Pitch(audiotest::Channel(aBack, 2, 0), 44100), 440.0, 2.0);
}

const std::string kFfmpeg = "ffmpeg -nostdin -v error -f lavfi -i sine=frequency=440:duration=1:sample_rate=";
INSTANTIATE_TEST_SUITE_P(
    Tools, AudioAcmForeign,
    ::testing::Values(ForeignCase{"sox_pcm", "sox -n -r 22050 -c 1 -b 16 -e signed $OUT synth 1 sine 440", 22050, 1, 1},
                      ForeignCase{"sox_ima", "sox -n -r 22050 -c 2 -e ima-adpcm $OUT synth 1 sine 440", 22050, 2, 17},
                      ForeignCase{"sox_ms", "sox -n -r 11025 -c 1 -e ms-adpcm $OUT synth 1 sine 440", 11025, 1, 2},
                      ForeignCase{"sox_pcm8", "sox -n -r 8000 -c 1 -b 8 -e unsigned $OUT synth 1 sine 440", 8000, 1, 1},
                      ForeignCase{"ffmpeg_pcm", kFfmpeg + "44100 -ac 2 -c:a pcm_s16le $OUT", 44100, 2, 1},
                      ForeignCase{"ffmpeg_ima", kFfmpeg + "22050 -c:a adpcm_ima_wav $OUT", 22050, 1, 17},
                      ForeignCase{"ffmpeg_ms", kFfmpeg + "44100 -ac 2 -c:a adpcm_ms $OUT", 44100, 2, 2}),
    [](const auto& i) { return i.param.sName; });

// ------------------------------------------------------------------ damaged files

class AudioAcmDamaged : public AudioAcmTest {
 protected:
  void SetUp() override {
    AudioAcmTest::SetUp();
    ASSERT_EQ(Write(P("good.wav"), 22050, 1, 17, audiotest::Sine(440, 44100, 2, 1.0)), 0);
    m_sGood = ReadBytes(P("good.wav"));
    m_aChunks = audiotest::Chunks(m_sGood);
  }
  // Opens the bytes as a file; reads to the end. Result: the open's code.
  int32_t OpenAndDrain(const std::string& sBytes, int64_t* pBytes = nullptr) {
    WriteBytes(P("bad.wav"), sBytes);
    CAudioACM o;
    int32_t rc = o.OpenAudioFile(P("bad.wav"), AudioFileRead);
    if (rc != 0) {
      EXPECT_FALSE(o.AudioOpen());
      EXPECT_EQ(o.AudioFileName(), "");
      return rc;
    }
    const int64_t llTotal = static_cast<int64_t>(audiotest::ReadToEnd(o).size() * 2);
    EXPECT_LT(llTotal, 1000LL * 176400) << "no end of audio";
    if (pBytes) *pBytes = llTotal;
    return 0;
  }
  std::string m_sGood;
  std::vector<audiotest::Chunk> m_aChunks;
};

TEST_F(AudioAcmDamaged, BrokenLayoutsGiveTheirResultOrReadCleanly) {
  CAudioACM o;
  EXPECT_EQ(o.OpenAudioFile(P("none.wav"), AudioFileRead), -1);
  const auto &fmt = m_aChunks[0], &data = m_aChunks[2];
  const size_t f = fmt.lOffset;
  auto Riff = [](const std::string& sBody) { return "RIFF" + audiotest::U32(sBody.size() + 4) + "WAVE" + sBody; };
  auto Patch = [&](size_t i, const std::string& sBytes) {
    return std::string(m_sGood).replace(i, sBytes.size(), sBytes);
  };
  const std::string sOdd = "odd " + audiotest::U32(3) + "abc";
  struct Case {
    const char* name;
    std::string sBytes;
    int32_t rc;
  } cases[] = {
      {"empty", "", -4},
      {"mp3", "ID3\x03 this is an mp3 file, honestly, with some more bytes", -4},
      {"avi", std::string("RIFF\x04\0\0\0AVI ", 12), -4},
      {"no fmt", Riff("data" + audiotest::U32(0)), -5},
      {"no data", Riff(m_sGood.substr(12, f + fmt.lSize - 12)), -9},
      {"data before fmt", Riff(m_sGood.substr(data.lOffset - 8) + m_sGood.substr(f - 8, fmt.lSize + 8)), -9},
      // A "fmt " chunk that claims the whole address space: no allocation beyond the file,
      // and no "data" behind it.
      {"huge fmt", Patch(f - 4, audiotest::U32(0xFFFFFF00)), -9},
      {"no channels", Patch(f + 2, std::string(2, '\0')), -10},  // no PCM format for it
      {"odd chunk without its pad byte", Riff(sOdd + m_sGood.substr(12)), -5},
      // These read: the codec data is what the chunk holds; the pad byte is skipped.
      {"cbSize beyond the chunk", Patch(f + 16, "\xFF\xFF"), 0},
      {"odd chunk", Riff(sOdd + '\0' + m_sGood.substr(12)), 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    int64_t llBytes = 0;
    EXPECT_EQ(OpenAndDrain(c.sBytes, &llBytes), c.rc);
    if (c.rc == 0) {
      EXPECT_NEAR(llBytes / 176400.0, 1.0, 0.05);
    }
  }
  // A block align that fits no block: no codec decodes it, and the open says so.
  WriteBytes(P("align.wav"), Patch(f + 12, std::string("\x03\0", 2)));
  EXPECT_EQ(o.OpenAudioFile(P("align.wav"), AudioFileRead), -10);
  EXPECT_FALSE(o.AudioOpen());
}

TEST_F(AudioAcmDamaged, TruncatedFilesEndTheAudioCleanly) {
  const size_t lDataStart = m_aChunks[2].lOffset;
  for (size_t lCut :
       {size_t{10}, size_t{30}, lDataStart - 4, lDataStart, lDataStart + 100, lDataStart + 5000, m_sGood.size() - 1}) {
    SCOPED_TRACE(lCut);
    int64_t llBytes = -1;
    int32_t rc = OpenAndDrain(m_sGood.substr(0, lCut), &llBytes);
    if (lCut < lDataStart) {
      EXPECT_LT(rc, 0);
    } else {
      ASSERT_EQ(rc, 0);
      // Whole blocks of what is there, never more.
      const int64_t llBlocks = static_cast<int64_t>(lCut - lDataStart) / 512;
      EXPECT_NEAR(llBytes / 176400.0, llBlocks * 1017 / 22050.0, 0.01);
    }
  }
}

TEST_F(AudioAcmDamaged, DataSizeBeyondTheEndOfTheFileIsCutToTheFile) {
  std::string s = m_sGood;
  s.replace(m_aChunks[2].lOffset - 4, 4, audiotest::U32(0x7FFFFFF0));
  s.replace(4, 4, audiotest::U32(0xFFFFFFF0));
  WriteBytes(P("long.wav"), s);
  CAudioACM o;
  ASSERT_EQ(o.OpenAudioFile(P("long.wav"), AudioFileRead), 0);
  EXPECT_NEAR(o.AudioLength(), m_aChunks[2].lSize / static_cast<double>(o.FileFormat().nAvgBytesPerSec), 1e-9);
  int64_t llBytes = 0;
  EXPECT_EQ(OpenAndDrain(s, &llBytes), 0);
  EXPECT_NEAR(llBytes / 176400.0, 1.0, 0.05);
}

// ------------------------------------------------------------------ open, write, close

TEST_F(AudioAcmTest, WriteGoesToATemporaryNameAndTakesItsNameAtClose) {
  const std::string sFinal = P("hour/130000A.wav");
  fs::create_directories(P("hour"));
  WriteBytes(sFinal, "old contents");
  CAudioACM o;
  o.SetFileFormat(22050, 1, 17);
  ASSERT_EQ(o.OpenAudioFile(sFinal, AudioFileWrite), 0);
  EXPECT_FALSE(fs::exists(sFinal)) << "an existing file is deleted at the open";
  const std::string sTemp = o.RecordedFileName();
  EXPECT_EQ(fs::path(sTemp).parent_path(), fs::path(sFinal).parent_path());
  EXPECT_EQ(fs::path(sTemp).extension(), ".wav");
  EXPECT_TRUE(fs::exists(sTemp));
  EXPECT_EQ(o.AudioFileName(), sFinal);
  EXPECT_TRUE(o.AudioOpen());
  auto aMem = audiotest::Sine(440, 44100, 2, 1.0);
  EXPECT_EQ(o.WriteAudioData(aMem.data(), static_cast<int32_t>(aMem.size() * 2)), 0);
  EXPECT_EQ(o.CloseAudioFile(), 0);
  EXPECT_FALSE(o.AudioOpen());
  EXPECT_FALSE(fs::exists(sTemp));
  EXPECT_TRUE(fs::exists(sFinal));
  EXPECT_EQ(o.CloseAudioFile(), -1);
}

TEST_F(AudioAcmTest, AFileWithNoAudioIsDeletedAtClose) {
  const std::string sFinal = P("empty.wav");
  WriteBytes(sFinal, "old");
  CAudioACM o;
  ASSERT_EQ(o.OpenAudioFile(sFinal, AudioFileWrite), 0);
  const std::string sTemp = o.RecordedFileName();
  o.SetFileFormat(22050, 1, 17);
  EXPECT_EQ(o.CloseAudioFile(), 0);
  EXPECT_FALSE(fs::exists(sTemp));
  EXPECT_FALSE(fs::exists(sFinal));
  // Less than one codec block of audio is still audio: one block, padded with silence,
  // whose "fact" counts the audio alone.
  ASSERT_EQ(Write(sFinal, 22050, 1, 17, audiotest::Sine(440, 44100, 2, 0.02)), 0);
  const std::string s = ReadBytes(sFinal);
  const auto aChunks = audiotest::Chunks(s);
  ASSERT_EQ(aChunks.size(), 3u);
  EXPECT_EQ(Le32(s, aChunks[1].lOffset), 441u);
  EXPECT_EQ(aChunks[2].lSize, 512u);
}

// A failed open leaves the name alone, nothing open, and the trace's nesting where it was.
TEST_F(AudioAcmTest, OpenFailuresLeaveTheNameAlone) {
  AppGlobal::SetDebugMode(5);
  DebugLog::ResetForTesting();
  DebugMsg("Start Caller", 5, 1);
  CAudioACM o;
  o.SetAudioFileName("before.wav");
  EXPECT_EQ(o.OpenAudioFile(P("no/such/folder/x.wav"), AudioFileWrite), -10);  // no temporary name there
  EXPECT_EQ(DebugLog::Indent(), 1);
  EXPECT_EQ(o.AudioFileName(), "before.wav");
  EXPECT_EQ(o.CloseAudioFile(), -1) << "a failed open leaves nothing open";
  EXPECT_EQ(o.OpenAudioFile(P("x.wav"), 7), 0);
  EXPECT_FALSE(o.AudioOpen());
  EXPECT_FALSE(fs::exists(P("x.wav")));
  Faults::Arm("audio.open", ENOSPC, 0, 1);
  EXPECT_EQ(o.OpenAudioFile(P("x.wav"), AudioFileWrite), -3);
}

TEST_F(AudioAcmTest, AFullDiskFailsTheWriteOrTheCloseAndKeepsNoFinalFile) {
  const auto aMem = audiotest::Sine(440, 44100, 2, 3.0);
  {
    CAudioACM o;
    o.SetFileFormat(44100, 2, 1);
    ASSERT_EQ(o.OpenAudioFile(P("full.wav"), AudioFileWrite), 0);
    Faults::Arm("audio.write", ENOSPC);
    int32_t rc = 0;
    for (size_t i = 0; i < aMem.size() && rc == 0; i += 88200) rc = o.WriteAudioData(aMem.data() + i, 176400);
    EXPECT_EQ(rc, -4);
    EXPECT_EQ(o.CloseAudioFile(), -3);
    EXPECT_TRUE(o.AudioOpen());
  }
  EXPECT_FALSE(fs::exists(P("full.wav")));
  Faults::DisarmAll();
  {
    // One flush in the middle fails: that second is lost, and "fact" does not count it.
    CAudioACM o;
    o.SetFileFormat(44100, 2, 1);
    ASSERT_EQ(o.OpenAudioFile(P("gap.wav"), AudioFileWrite), 0);
    ASSERT_EQ(o.WriteAudioData(aMem.data(), 176400), 0);
    Faults::Arm("audio.write", ENOSPC, 0, 1);
    EXPECT_EQ(o.WriteAudioData(aMem.data() + 88200, 176400), -4);
    EXPECT_EQ(o.WriteAudioData(aMem.data() + 176400, 176400), 0);
    EXPECT_EQ(o.CloseAudioFile(), 0);
    const std::string s = ReadBytes(P("gap.wav"));
    const auto aChunks = audiotest::Chunks(s);
    ASSERT_EQ(aChunks.size(), 3u);
    EXPECT_EQ(aChunks[2].lSize, 2u * 176400);
    EXPECT_EQ(Le32(s, aChunks[1].lOffset), 2u * 44100);
  }
  // The disk fills at the close: the last piece can't be written.
  CAudioACM o;
  o.SetFileFormat(22050, 1, 17);
  ASSERT_EQ(o.OpenAudioFile(P("full2.wav"), AudioFileWrite), 0);
  ASSERT_EQ(o.WriteAudioData(aMem.data(), 176400), 0);
  Faults::Arm("audio.write", ENOSPC);
  EXPECT_EQ(o.CloseAudioFile(), -3);
  EXPECT_FALSE(fs::exists(P("full2.wav")));
}

TEST_F(AudioAcmTest, CallsOutOfTurnOrBeyondTheLimitFail) {
  CAudioACM o;
  std::vector<uint8_t> a(2 * 176400 + 4, 0);
  EXPECT_EQ(o.WriteAudioData(a.data(), 4), -1);
  EXPECT_EQ(o.ReadAudioData(a.data(), 1.0f), -1);
  EXPECT_DOUBLE_EQ(o.CurrentPosition(), -1.0);
  EXPECT_DOUBLE_EQ(o.AudioLength(), 0.0);
  o.SetFileFormat(44100, 2, 1);
  ASSERT_EQ(o.OpenAudioFile(P("lim.wav"), AudioFileWrite), 0);
  // One second of buffer: up to twice that is accepted, one byte more is not.
  EXPECT_EQ(o.WriteAudioData(a.data(), 2 * 176400), 0);
  EXPECT_EQ(o.WriteAudioData(a.data(), 2 * 176400 + 1), -2);
  EXPECT_EQ(o.CloseAudioFile(), 0);
  std::vector<int16_t> aBack;
  double dLen = 0;
  ASSERT_EQ(Read(P("lim.wav"), aBack, &dLen), 0);
  EXPECT_DOUBLE_EQ(dLen, 2.0);
  // A format with no codec writes nothing.
  o.SetFileFormat(44100, 2, 85);
  ASSERT_EQ(o.OpenAudioFile(P("mp3.wav"), AudioFileWrite), 0);
  EXPECT_EQ(o.WriteAudioData(a.data(), 1000), -8);
}

// ------------------------------------------------------------------ reading positions

class AudioAcmReading : public AudioAcmTest {
 protected:
  void SetUp() override {
    AudioAcmTest::SetUp();
    // 22050 Hz mono IMA: 512-byte blocks of 1017 samples.
    ASSERT_EQ(Write(P("r.wav"), 22050, 1, 17, audiotest::Sine(440, 44100, 2, 2.0)), 0);
    ASSERT_EQ(o.OpenAudioFile(P("r.wav"), AudioFileRead), 0);
    m_lData = static_cast<uint32_t>(std::lround(o.AudioLength() * o.FileFormat().nAvgBytesPerSec));
  }
  CAudioACM o;
  uint32_t m_lData = 0;
  std::vector<uint8_t> aBuf = std::vector<uint8_t>(2 * 176400);
};

TEST_F(AudioAcmReading, PositionRunsFromZeroToTheLengthAndSeeksLandOnBlocks) {
  EXPECT_DOUBLE_EQ(o.CurrentPosition(), 0.0);
  EXPECT_EQ(m_lData % 512, 0u);
  while (o.ReadAudioData(aBuf.data(), 0.5f) > 0) {
  }
  EXPECT_DOUBLE_EQ(o.CurrentPosition(), o.AudioLength());
  EXPECT_EQ(o.ReadAudioData(aBuf.data(), 0.5f), 0);
  o.SeekFraction(0.5f);
  const double dBlocks = o.CurrentPosition() / o.AudioLength() * m_lData / 512;
  EXPECT_NEAR(dBlocks, std::round(dBlocks), 1e-6);
  EXPECT_NEAR(o.CurrentPosition(), o.AudioLength() / 2, 512.0 / o.FileFormat().nAvgBytesPerSec);
  o.SeekFraction(0.0f);
  EXPECT_DOUBLE_EQ(o.CurrentPosition(), 0.0);
  o.SeekFraction(1.0f);
  EXPECT_DOUBLE_EQ(o.CurrentPosition(), o.AudioLength());
  EXPECT_EQ(o.ReadAudioData(aBuf.data(), 1.0f), 0);
  // A short rest (a little less than half a second) reads in whole blocks, then ends.
  o.SeekFraction(static_cast<float>(1.0 - 0.3 / o.AudioLength()));
  int32_t n = o.ReadAudioData(aBuf.data(), 0.5f);
  EXPECT_GT(n, 0);
  EXPECT_EQ(n % 4, 0);
  EXPECT_EQ(o.ReadAudioData(aBuf.data(), 0.5f), 0);
}

TEST_F(AudioAcmReading, LeftOverBytesAreHandedOutAndBackAsTheyAre) {
  std::vector<uint8_t> aLeft;
  int32_t lSize = -1;
  o.GetLeftOverBuffer(aLeft, lSize);
  EXPECT_EQ(lSize, 0);
  EXPECT_TRUE(aLeft.empty());
  const uint8_t aTail[5] = {1, 2, 3, 4, 5};
  o.SetLeftOverBuffer(aTail, 5);
  o.GetLeftOverBuffer(aLeft, lSize);
  ASSERT_EQ(lSize, 5);
  ASSERT_EQ(aLeft.size(), 10u);
  EXPECT_EQ(std::vector<uint8_t>(aLeft.begin(), aLeft.begin() + 5), std::vector<uint8_t>(aTail, aTail + 5));
  // More than the source buffer holds is refused.
  std::vector<uint8_t> aHuge(1 << 20, 1);
  o.SetLeftOverBuffer(aHuge.data(), static_cast<int32_t>(aHuge.size()));
  o.GetLeftOverBuffer(aLeft, lSize);
  EXPECT_EQ(lSize, 5);
}

TEST_F(AudioAcmReading, ASecondOpenOfTheSameObjectWorks) {
  ASSERT_EQ(o.OpenAudioFile(P("r.wav"), AudioFileRead), 0);
  EXPECT_GT(o.ReadAudioData(aBuf.data(), 1.0f), 0);
  ASSERT_EQ(o.CloseAudioFile(), 0);
  EXPECT_EQ(o.FormatTag(), 17) << "a read file's format stays in the object";
  ASSERT_EQ(o.OpenAudioFile(P("r2.wav"), AudioFileWrite), 0);
  auto aMem = audiotest::Sine(440, 44100, 2, 0.5);
  EXPECT_EQ(o.WriteAudioData(aMem.data(), static_cast<int32_t>(aMem.size() * 2)), 0);
  EXPECT_EQ(o.CloseAudioFile(), 0);
  CAudioACM r;
  ASSERT_EQ(r.OpenAudioFile(P("r2.wav"), AudioFileRead), 0);
  EXPECT_EQ(r.SampleRate(), 22050);
  EXPECT_EQ(r.FormatTag(), 17);
}

TEST_F(AudioAcmTest, TheFactoryGivesAWavObjectThatWritesAndReleasingItCloses) {
  auto oFormat = ChooseAudioClass(FormatWAV);
  auto oFile = std::dynamic_pointer_cast<IAudioFile>(oFormat);
  ASSERT_TRUE(oFile);
  oFile->SetBufLenSecs(1.0);
  ASSERT_EQ(oFile->OpenAudioFile(P("f.wav"), AudioFileWrite), 0);
  auto aMem = audiotest::Sine(440, 44100, 2, 1.0);
  EXPECT_EQ(oFile->WriteAudioData(aMem.data(), static_cast<int32_t>(aMem.size() * 2)), 0);
  oFile.reset();
  oFormat.reset();
  std::vector<int16_t> aBack;
  double dLen = 0;
  ASSERT_EQ(Read(P("f.wav"), aBack, &dLen), 0);
  EXPECT_NEAR(dLen, 1.0, 1e-9);
}

TEST_F(AudioAcmTest, CreateAudioFileCarriesTheCodecFormatAndNoAudio) {
  ASSERT_TRUE(CreateAudioFile(P("fmt.wav"), 44100, 2, 17));
  const std::string s = ReadBytes(P("fmt.wav"));
  auto a = audiotest::Chunks(s);
  ASSERT_EQ(a.size(), 2u);
  EXPECT_EQ(a[0].sId, "fmt ");
  EXPECT_EQ(a[0].lSize, 20u);
  EXPECT_EQ(Le16(s, a[0].lOffset), 17);
  EXPECT_EQ(Le16(s, a[0].lOffset + 12), 2048);
  EXPECT_EQ(Le16(s, a[0].lOffset + 18), 2041);
  EXPECT_EQ(a[1].sId, "data");
  EXPECT_EQ(a[1].lSize, 0u);
  EXPECT_EQ(Le32(s, 4), s.size() - 8);
  EXPECT_FALSE(CreateAudioFile("", 44100, 2, 17));
  EXPECT_FALSE(CreateAudioFile(P("x.wav"), 0, 2, 17));
  EXPECT_FALSE(CreateAudioFile(P("x.wav"), 44100, 0, 17));
  EXPECT_FALSE(CreateAudioFile(P("x.wav"), 44100, 2, 85));
  EXPECT_FALSE(fs::exists(P("x.wav")));
}

}  // namespace
