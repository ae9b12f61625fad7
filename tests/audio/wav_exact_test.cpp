// Conversions through the WAV class keep every sample: the quick part of the conversion
// matrix (the whole matrix is in wav_exact_slow_test.cpp), recordings whose header a
// crash left unpatched, and EXTENSIBLE and float sources.
#include <gtest/gtest.h>

#include <filesystem>

#include "WavMatrix.h"
#include "audio/AudioFormatHelpers.h"
#include "support/AppGlobal.h"
#include "support/DebugMsg.h"
#include "support/MsgBox.h"

namespace {

using audiotest::Le16;
using audiotest::Le32;
using audiotest::U32;
using wavmatrix::Target;

// ------------------------------------------------------------------ conversion matrix

using wavmatrix::SourceCase;

class WavExactMatrix : public codectest::ScratchTest, public ::testing::WithParamInterface<SourceCase> {};

TEST_P(WavExactMatrix, EverySourceSampleIsKeptAndTheFactCountIsExact) {
  wavmatrix::CheckSource(
      GetParam(),
      {Target{1, 48000, 2}, Target{17, 22050, 1}, Target{17, 44100, 2}, Target{2, 8000, 1}, Target{2, 22050, 2}},
      Root());
}

INSTANTIATE_TEST_SUITE_P(Quick, WavExactMatrix,
                         ::testing::Values(SourceCase{1.0, 44100, 2}, SourceCase{59.99, 44100, 2},
                                           SourceCase{1.0, 8000, 1}, SourceCase{59.99, 22050, 1}),
                         [](const auto& i) { return wavmatrix::SourceName(i.param); });

// ------------------------------------------------------------------ unusual sources

class WavExactSources : public codectest::ScratchTest {
 protected:
  void SetUp() override {
    ScratchTest::SetUp();
    m_oOldBox = SetMsgBoxHandler([this](const std::string& sText, int32_t, const std::string& sTitle) {
      m_aBoxes.push_back(sTitle + ": " + sText);
      return vbOK;
    });
    AppGlobal::SetDebugMode(10);
  }
  void TearDown() override {
    AppGlobal::SetDebugMode(0);
    SetMsgBoxHandler(m_oOldBox);
    ScratchTest::TearDown();
  }
  std::string Trace() { return ReadBytes(DebugLog::CurrentFile()); }

  std::vector<std::string> m_aBoxes;
  MsgBoxHandler m_oOldBox;
};

TEST_F(WavExactSources, CrashCutHeadersReadToTheEndOfTheFileInWholeBlocks) {
  // 3 s of PCM and of IMA ADPCM, each with its header sizes as a crash leaves them.
  codectest::MakeToneWav(P("pcm.wav"), 22050, 2, 3.0);
  ASSERT_EQ(wavmatrix::ConvertThroughClass(P("pcm.wav"), P("ima.wav"), Target{17, 22050, 2}), 0);
  struct Case {
    const char* sName;
    const char* sBase;
    uint32_t lRiff, lData;  // 1: keep the size as it is; 2: the real size plus 100000
    size_t lCut;            // bytes cut off the end (a part-block of audio)
  } cases[] = {
      {"RIFF and data 0", "pcm.wav", 0, 0, 0},
      {"header alone", "pcm.wav", 36, 0, 3},
      {"data 0xFFFFFFFF", "pcm.wav", 0, 0xFFFFFFFF, 0},
      {"data beyond the end", "pcm.wav", 1, 2, 1},
      {"IMA, RIFF and data 0, cut in a block", "ima.wav", 0, 0, 300},
      // (Without its last block, which ends in the writer's padding.)
      {"IMA, data beyond the end", "ima.wav", 1, 2, 1024},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.sName);
    std::string s = ReadBytes(P(c.sBase));
    const auto aChunks = audiotest::Chunks(s);
    const auto& data = aChunks.back();
    ASSERT_EQ(data.sId, "data");
    const uint16_t iAlign = Le16(s, aChunks[0].lOffset + 12);
    const bool bIma = Le16(s, aChunks[0].lOffset) == 17;
    if (c.lRiff != 1) s.replace(4, 4, U32(c.lRiff));
    s.replace(data.lOffset - 4, 4, U32(c.lData == 2 ? data.lSize + 100000 : c.lData));
    s.resize(s.size() - c.lCut);
    const std::string sBad = P("cut.wav");
    WriteBytes(sBad, s);
    const int64_t llBytes = static_cast<int64_t>(s.size() - data.lOffset) / iAlign * iAlign;
    const int64_t llFrames = bIma ? llBytes / iAlign * Le16(s, aChunks[0].lOffset + 18) : llBytes / iAlign;

    const size_t lTraceFrom = Trace().size();
    CAudioACM o;
    ASSERT_EQ(o.OpenAudioFile(sBad, AudioFileRead), 0);
    EXPECT_NEAR(o.AudioLength(), static_cast<double>(llBytes) / o.FileFormat().nAvgBytesPerSec, 1e-9);
    o.CloseAudioFile();
    EXPECT_NE(Trace().find("header repaired", lTraceFrom), std::string::npos);
    // The whole audio converts, and the source stays as it was.
    wavmatrix::CheckConversion(sBad, llFrames, 22050, Target{17, 22050, 1}, Root());
    EXPECT_TRUE(ReadBytes(sBad) == s) << "the source was changed";
  }
  EXPECT_TRUE(m_aBoxes.empty());
}

TEST_F(WavExactSources, AnEmptyDataChunkOfAWellClosedFileStaysEmpty) {
  // A closed file states its sizes truly: "data" 0 with a LIST chunk behind it is no
  // audio, and the LIST chunk is not read as audio.
  codectest::MakeToneWav(P("pcm.wav"), 22050, 1, 0.5);
  std::string s = ReadBytes(P("pcm.wav"));
  const auto data = audiotest::Chunks(s).back();
  s.resize(data.lOffset);
  s.replace(data.lOffset - 4, 4, U32(0));
  s += "LIST" + U32(12) + "INFOISFT" + U32(0);
  s.replace(4, 4, U32(static_cast<uint32_t>(s.size() - 8)));
  WriteBytes(P("empty.wav"), s);
  CAudioACM o;
  ASSERT_EQ(o.OpenAudioFile(P("empty.wav"), AudioFileRead), 0);
  EXPECT_EQ(o.AudioLength(), 0.0);
  std::vector<uint8_t> aBuf(2 * 176400);
  EXPECT_EQ(o.ReadAudioData(aBuf.data(), 1.0f), 0);
  EXPECT_EQ(Trace().find("header repaired"), std::string::npos);
}

// A 16-bit PCM file's "fmt " chunk rewritten as WAVE_FORMAT_EXTENSIBLE of sub-format iSub.
std::string AsExtensible(const std::string& sPcm, uint16_t iSub) {
  const auto aChunks = audiotest::Chunks(sPcm);
  const size_t f = aChunks[0].lOffset;
  std::string sFmt = sPcm.substr(f, 16);
  sFmt[0] = '\xFE';
  sFmt[1] = '\xFF';
  sFmt += std::string("\x16\0\x10\0\x03\0\0\0", 8) + char(iSub & 0xFF) + char(iSub >> 8) +
          std::string("\0\0\0\0\x10\0\x80\0\0\xAA\0\x38\x9B\x71", 14);
  std::string s = "RIFF" + U32(0) + "WAVEfmt " + U32(40) + sFmt;
  for (size_t i = 1; i < aChunks.size(); ++i)
    s += sPcm.substr(aChunks[i].lOffset - 8, aChunks[i].lSize + 8 + (aChunks[i].lSize & 1));
  s.replace(4, 4, U32(static_cast<uint32_t>(s.size() - 8)));
  return s;
}

TEST_F(WavExactSources, ExtensibleAndFloatSourcesReadThroughTheirSubFormat) {
  const std::string sLavfi =
      "ffmpeg -nostdin -v error -y -f lavfi -i "
      "sine=frequency=440:duration=2:sample_rate=44100 -ac 2 ";
  ASSERT_EQ(RunProgram(sLavfi + "-c:a pcm_s24le " + Quote(P("s24.wav"))), 0);
  ASSERT_EQ(RunProgram(sLavfi + "-c:a pcm_s32le " + Quote(P("s32.wav"))), 0);
  ASSERT_EQ(RunProgram(sLavfi + "-c:a pcm_f32le " + Quote(P("f32.wav"))), 0);
  ASSERT_EQ(
      RunProgram("sox -n -r 44100 -c 2 -e floating-point -b 32 " + Quote(P("soxf.wav")) + " synth 2 sine 440 vol 0.5"),
      0);
  codectest::MakeToneWav(P("s16.wav"), 44100, 2, 2.0);
  WriteBytes(P("x16.wav"), AsExtensible(ReadBytes(P("s16.wav")), 1));
  struct Case {
    const char* sFile;
    uint16_t iTag;  // as the file states it
  } cases[] = {{"s24.wav", 0xFFFE}, {"s32.wav", 0xFFFE}, {"f32.wav", 0}, {"soxf.wav", 3}, {"x16.wav", 0xFFFE}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.sFile);
    const std::string sSrc = P(c.sFile);
    const std::string s = ReadBytes(sSrc);
    const uint16_t iTag = Le16(s, audiotest::Chunks(s)[0].lOffset);
    if (c.iTag) {
      EXPECT_EQ(iTag, c.iTag);
    }
    // The samples are ffmpeg's own decoding of the file, within one step of rounding.
    std::vector<int16_t> aRef, aOurs;
    ASSERT_TRUE(audiotest::DecodeWith("ffmpeg", sSrc, P("ref.raw"), aRef));
    CAudioACM o;
    ASSERT_EQ(o.OpenAudioFile(sSrc, AudioFileRead), 0);
    EXPECT_EQ(o.FormatTag(), iTag);
    CAudioACM oPcm;
    oPcm.SetFileFormat(44100, 2, 1);
    EXPECT_FALSE(o.IsSameFormat(&oPcm)) << "a file that is not 16-bit PCM is converted";
    aOurs = audiotest::ReadToEnd(o);
    ASSERT_EQ(aOurs.size(), aRef.size());
    int iWorst = 0;
    for (size_t i = 0; i < aRef.size(); ++i) iWorst = std::max(iWorst, std::abs(aOurs[i] - aRef[i]));
    EXPECT_LE(iWorst, 1);
    EXPECT_GT(*std::max_element(aOurs.begin(), aOurs.end()), 2000);
    wavmatrix::CheckConversion(sSrc, static_cast<int64_t>(aRef.size() / 2), 44100, Target{17, 22050, 1}, Root());
  }
  // A sub-format that no codec reads is refused at the open, without a message box.
  WriteBytes(P("x85.wav"), AsExtensible(ReadBytes(P("s16.wav")), 0x55));
  CAudioACM o;
  EXPECT_EQ(o.OpenAudioFile(P("x85.wav"), AudioFileRead), -10);
  EXPECT_FALSE(o.AudioOpen());
  EXPECT_TRUE(m_aBoxes.empty()) << m_aBoxes.front();
}

}  // namespace
