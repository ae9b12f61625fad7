// A whole hour of one-second segments standardised, then archived, by the processor: at
// no join between two segments is audio lost. Each converted segment decodes (by ffmpeg
// and by sox) to at least every sample of its recording at the new rate, and to at most
// one block of padding more.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "ProcessRun.h"
#include "common/AudioCount.h"

using namespace e2eproc;
using proctest::IniValue;

namespace {
constexpr int kSegments = 60;

// The first few of a list of files, and how many more there are.
std::string Some(const std::vector<std::string>& a) {
  std::string s;
  for (size_t i = 0; i < a.size() && i < 4; ++i) s += a[i] + " ";
  return a.size() > 4 ? s + fmt::format("and {} more", a.size() - 4) : s;
}

uint32_t Le(const std::string& s, size_t i, int iBytes) {
  uint32_t v = 0;
  for (int b = iBytes - 1; b >= 0; --b) v = (v << 8) | static_cast<unsigned char>(s[i + b]);
  return v;
}

// What a WAV file's header says: frames in a block (1 for PCM, wSamplesPerBlock for
// ADPCM) and the "fact" chunk's frame count (-1 when there is none).
struct WavHeader {
  long lBlockFrames = 0;
  long long lFact = -1;
};

WavHeader ReadHeader(const std::string& sPath) {
  const std::string s = ReadBytes(sPath);
  WavHeader h;
  for (size_t i = 12; i + 8 <= s.size() && s.compare(i, 4, "data") != 0;
       i += 8 + Le(s, i + 4, 4) + (Le(s, i + 4, 4) & 1)) {
    if (s.compare(i, 4, "fmt ") == 0 && i + 28 <= s.size())
      h.lBlockFrames = Le(s, i + 8, 2) == 1 ? 1 : static_cast<long>(Le(s, i + 26, 2));
    else if (s.compare(i, 4, "fact") == 0 && Le(s, i + 4, 4) >= 4) h.lFact = Le(s, i + 8, 4);
  }
  return h;
}

}  // namespace

class NoLossHourTest : public ProcessRunTest {
 protected:
  // Every segment of the hour decodes as sCodec at iRate to lFrames or more (by ffmpeg and
  // by sox), and to no more than lFrames + lCarried + one block of its own; its "fact"
  // chunk says lFrames, or up to lCarried more (padding of an earlier conversion read as
  // audio). Gives the frames of a block of the last file.
  long ExpectWholeHour(const std::string& sCodec, int iRate, long long lFrames, long lCarried) {
    const std::string sHour = In(1, "20261122/1300/");
    long long lTotal = 0, lSoxTotal = 0;
    long lBlock = 0;
    std::vector<std::string> aShort, aLong, aFact;
    for (int i = 0; i < kSegments; ++i) {
      const std::string sName = fmt::format("13{:02}00A.wav", i);
      const auto c = audiocount::CountFrames(sHour + sName);
      const long long lSox = audiocount::SoxFrames(sHour + sName);
      const WavHeader h = ReadHeader(sHour + sName);
      lBlock = h.lBlockFrames;
      EXPECT_EQ(c.sCodec, sCodec) << sName;
      EXPECT_EQ(c.iRate, iRate) << sName;
      lTotal += c.lFrames;
      lSoxTotal += lSox;
      if (c.lFrames < lFrames || lSox < lFrames) aShort.push_back(fmt::format("{} ({}/{})", sName, c.lFrames, lSox));
      if (c.lFrames > lFrames + lCarried + lBlock) aLong.push_back(fmt::format("{} ({})", sName, c.lFrames));
      if (h.lFact < lFrames || h.lFact > lFrames + lCarried) aFact.push_back(fmt::format("{} ({})", sName, h.lFact));
    }
    EXPECT_TRUE(aShort.empty()) << "decoded shorter than the " << lFrames
                                << " frames recorded (ffmpeg/sox): " << Some(aShort);
    EXPECT_TRUE(aLong.empty()) << "more than a block of " << lBlock << " frames of padding (and " << lCarried
                               << " carried): " << Some(aLong);
    EXPECT_TRUE(aFact.empty()) << "\"fact\" is not the " << lFrames << " frames of audio: " << Some(aFact);
    EXPECT_GE(lTotal, kSegments * lFrames);
    EXPECT_GE(lSoxTotal, kSegments * lFrames);
    return lBlock;
  }
};

TEST_F(NoLossHourTest, AnHourStandardisedAndArchivedKeepsEverySampleAtEveryJoin) {
  AddLogger(1, true, {Periods(Wav(44100, 2, 1), Wav(22050, 2, 17), Wav(22050, 1, 17))});
  WriteRegistry();
  AddHour(1, "20261122", "13", kPast, kLater, kLater, kSegments, 1.0);
  const std::string sInf = In(1, "20261122/1300/130000.inf");

  // Standardised: 44100 frames at 44.1 kHz become 22050 at 22.05 kHz in each segment.
  ASSERT_TRUE(RunProcessor());
  ASSERT_EQ(IniValue(sInf, "StandardAudioAt"), "-1");
  const long lStandardBlock = ExpectWholeHour("adpcm_ima_wav", 22050, 22050, 0);
  ASSERT_GT(lStandardBlock, 1) << "IMA ADPCM has blocks of many frames";

  // Archived from the standard files: the recording is still all there. A reader that
  // ignores the "fact" chunk takes the standard file's padding for audio, so a block of
  // each conversion may come on top.
  proctest::WriteInf(sInf, "-1", kPast, kLater);
  ASSERT_TRUE(RunProcessor());
  ASSERT_EQ(IniValue(sInf, "ArchiveAudioAt"), "-1");
  ExpectWholeHour("adpcm_ima_wav", 22050, 22050, lStandardBlock);
}

// A recording at another rate than the processor's own is read through a resampler: the
// samples it still holds at the end of each file (beyond the seconds asked for) are
// written too. Segments of a tone written by sox, 16000 frames each.
TEST_F(NoLossHourTest, AnHourReadThroughTheResamplerKeepsItsLastSamples) {
  AddLogger(1, true, {Periods(Wav(8000, 1, 1), Wav(8000, 1, 17), Wav(8000, 1, 17))});
  WriteRegistry();
  AddHour(1, "20261122", "13", kPast, kLater, kLater, kSegments, 2.0);
  const std::string sHour = In(1, "20261122/1300/"), sTone = PathIn("tone.wav");
  ASSERT_EQ(RunProgram("sox -n -r 8000 -c 1 -b 16 " + Quote(sTone) + " synth 2 sine 440 vol 0.5"), 0);
  for (int i = 0; i < kSegments; ++i)
    fs::copy_file(sTone, sHour + fmt::format("13{:02}00A.wav", i), fs::copy_options::overwrite_existing);
  ASSERT_TRUE(RunProcessor());
  ASSERT_EQ(IniValue(sHour + "130000.inf", "StandardAudioAt"), "-1");
  ExpectWholeHour("adpcm_ima_wav", 8000, 16000, 0);
}
