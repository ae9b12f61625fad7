// The codec's owned handles and shared pieces: a RIFF format chunk found by the one chunk
// walker, a codec error that is a raised error, and a reader whose failed open leaves it
// closed and usable again.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "CodecTestUtil.h"
#include "audio/RiffFile.h"
#include "audio/codec/AvAudioReader.h"
#include "audio/codec/CodecError.h"
#include "common/TempRoot.h"
#include "common/TestUtil.h"

using audiotest::U32;

class CodecOwnersTest : public TempRootTest {};

TEST_F(CodecOwnersTest, WaveFormatIsFoundBehindOtherChunksAndCutToTheFile) {
  const std::string sFmt = std::string("\x11\x00\x02\x00\x44\xAC\x00\x00", 8) + std::string(10, 'f');
  auto riff = [](const std::string& sBody) {
    return "RIFF" + U32(static_cast<uint32_t>(sBody.size() + 4)) + "WAVE" + sBody;
  };
  const struct {
    const char* sName;
    std::string sBytes;
    int64_t llWant;  // bytes read, or a negative errno
  } aCases[] = {
      {"plain", riff("fmt " + U32(18) + sFmt), 18},
      // An odd-sized chunk first: its pad byte is skipped.
      {"after odd chunk", riff("LIST" + U32(3) + "abc" + std::string(1, '\0') + "fmt " + U32(18) + sFmt), 18},
      {"cut short", riff("fmt " + U32(18) + sFmt.substr(0, 12)), 12},
      {"no format", riff("data" + U32(4) + "abcd"), 0},
      {"not RIFF", "this is no RIFF file", 0},
  };
  for (const auto& c : aCases) {
    WriteFile("f.wav", c.sBytes);
    uint8_t a[18] = {};
    EXPECT_EQ(RiffFile::ReadWaveFormat(PathIn("f.wav"), a, sizeof a), c.llWant) << c.sName;
    if (c.llWant >= 8) {
      EXPECT_EQ(std::string(reinterpret_cast<char*>(a), 8), sFmt.substr(0, 8)) << c.sName;
    }
  }
  uint8_t a[18];
  EXPECT_EQ(RiffFile::ReadWaveFormat(PathIn("none.wav"), a, sizeof a), -ENOENT);
}

TEST_F(CodecOwnersTest, CodecErrorIsARaisedErrorOfItsOwnSource) {
  std::string sWhy;
  EXPECT_EQ(ErrorOf([] { throw CodecError(CodecErr::kReadFailed, "broken"); }, &sWhy), CodecErr::kReadFailed);
  EXPECT_EQ(sWhy, "broken");
  try {
    throw CodecError(CodecErr::kNotOpen, "No file is open");
  } catch (const RaisedError& e) {
    EXPECT_EQ(e.Source, CodecError::kSource);
    EXPECT_STREQ(e.what(), "No file is open");
  }
}

TEST_F(CodecOwnersTest, FailedOpenLeavesTheReaderClosedAndReusable) {
  codectest::MakeToneWav(PathIn("t.wav"), 44100, 2, 0.5);
  WriteFile("bad.wav", "RIFF....WAVEnot audio at all");
  AvAudioReader r;
  r.SetOutputFormat(44100, 2);
  r.Open(PathIn("t.wav"));
  ASSERT_FALSE(r.Read(1000).empty());
  EXPECT_EQ(ErrorOf([&] { r.Open(PathIn("bad.wav")); }), CodecErr::kOpenFailed);
  EXPECT_FALSE(r.IsOpen());
  EXPECT_EQ(std::pair(r.TotalFrames(), r.SampleRate()), std::pair(int64_t{0}, int32_t{0}));
  EXPECT_TRUE(r.Read(1000).empty());
  r.Open(PathIn("t.wav"));
  EXPECT_EQ(r.TotalFrames(), 22050);
  // The whole file reads after the failure: a decoder or resampler left over from the
  // first open would show here (and leaks under the sanitizer).
  int64_t lFrames = 0;
  for (auto a = r.Read(4096); !a.empty(); a = r.Read(4096)) lFrames += static_cast<int64_t>(a.size() / 2);
  EXPECT_EQ(lFrames, 22050);
}
