#include <gtest/gtest.h>

#include <cmath>

#include "audio/CodecTestUtil.h"
#include "audio/codec/CodecError.h"
#include "audio/codec/WmaFile.h"

using namespace codectest;

namespace {
const std::string kShippedPrx = std::string(KN_SOURCE_DIR) + "/data/nvkn4.prx";

std::vector<int16_t> Tone(int iFrames, int iChannels) {
  std::vector<int16_t> a;
  for (int i = 0; i < iFrames; ++i)
    for (int c = 0; c < iChannels; ++c)
      a.push_back(static_cast<int16_t>(9000 * std::sin(i * (0.05 + 0.02 * c))));
  return a;
}
}  // namespace

TEST(WmaProfiles, ParsesTheLineGrammar) {
  auto a = WmaFile::ParseProfiles(
      "\xEF\xBB\xBF; comment\n"
      "[Profiles]\n"
      "  7 = 22050 , 1, 32 , Medium, mono  \r\n"
      "# another comment\n"
      "8=44100,2,64\n"
      "7 = 8000, 1, 24\n"         // a second 7: the first counts
      "9 = 44100, 3, 64\n"        // three channels
      "10 = 44100, 2, 16\n"       // below the encoder's range
      "11 = 96000, 2, 64\n"       // rate out of range
      "12 = 44100, 2\n"           // too few items
      "13 = 44100, 2, 64k\n"      // not a number
      "x = 44100, 2, 64\n"
      "0 = 44100, 2, 64\n"
      "no equals sign\n");
  ASSERT_EQ(a.size(), 2u);
  EXPECT_EQ(a[0].lNumber, 7);
  EXPECT_EQ(a[0].lSampleRate, 22050);
  EXPECT_EQ(a[0].lChannels, 1);
  EXPECT_EQ(a[0].lBitRateKbps, 32);
  EXPECT_EQ(a[0].sDescription, "Medium, mono");
  EXPECT_EQ(a[1].lNumber, 8);
  EXPECT_EQ(a[1].sDescription, "");
}

class WmaFileTest : public ScratchTest {};

TEST_F(WmaFileTest, ShippedProfileFileHasTheDefaultProfile) {
  WmaFile f;
  f.LoadProfiles(kShippedPrx);
  EXPECT_GE(f.Profiles().size(), 20u);
  f.SetProfileNum(23);
  EXPECT_EQ(f.SampleRate(), 44100);
  EXPECT_EQ(f.Channels(), 2);
  EXPECT_EQ(f.BitRate(), 64000);
  f.SetProfileNum(999);
  EXPECT_EQ(f.SampleRate(), 0);
  EXPECT_EQ(f.BitRate(), 0);
  f.LoadProfiles("");
  f.SetProfileNum(23);
  EXPECT_EQ(f.SampleRate(), 0);
  EXPECT_THROW(f.LoadProfiles(P("missing.prx")), CodecError);
}

// Every profile that ships can be encoded and reads back as that profile; ffprobe agrees
// for the default profile.
TEST_F(WmaFileTest, EveryShippedProfileEncodes) {
  WmaFile f;
  f.LoadProfiles(kShippedPrx);
  auto src = Tone(44100 / 4, 2);
  for (const auto& p : f.Profiles()) {
    SCOPED_TRACE(p.lNumber);
    f.SetProfileNum(p.lNumber);
    std::string s = P("p" + std::to_string(p.lNumber) + ".wma");
    f.Create(s);
    f.WriteSamples(src);
    f.Close();
    WmaFile r;
    r.LoadProfiles(kShippedPrx);
    r.Open(s);
    EXPECT_EQ(r.SampleRate(), p.lSampleRate);
    EXPECT_EQ(r.Channels(), p.lChannels);
    EXPECT_EQ(r.BitRate(), p.lBitRateKbps * 1000);
    EXPECT_EQ(r.ProfileNum(), p.lNumber);
  }
  auto m = Probe(P("p23.wma"));
  EXPECT_EQ(m["codec_name"], "wmav2");
  EXPECT_EQ(m["sample_rate"], "44100");
  EXPECT_EQ(m["channels"], "2");
  EXPECT_EQ(m["bit_rate"], "64000");
}

TEST_F(WmaFileTest, WritesAndReadsBack) {
  WmaFile w;
  w.LoadProfiles(kShippedPrx);
  w.SetProfileNum(8);  // 22050 Hz mono 32 kbps, written from 44100 Hz stereo arrays
  w.SetArrayFormat(44100, 2);
  w.Create(P("a.wma"));
  EXPECT_EQ(w.State(), 2);
  auto src = Tone(44100 * 2, 2);
  w.WriteSamples(src);
  EXPECT_EQ(w.TotalSamples(), 88200);
  w.Close();
  EXPECT_EQ(w.State(), 0);
  EXPECT_NEAR(DecodedFrames(P("a.wma"), 1) / 22050.0, 2.0, 0.1);

  WmaFile r;
  r.LoadProfiles(kShippedPrx);
  r.SetArrayFormat(44100, 2);
  r.Open(P("a.wma"));
  EXPECT_EQ(r.State(), 1);
  EXPECT_EQ(r.ProfileNum(), 8);
  EXPECT_EQ(r.SampleRate(), 22050);
  EXPECT_EQ(r.Channels(), 1);
  EXPECT_EQ(r.BitRate(), 32000);
  EXPECT_NEAR(r.LengthMs(), 2000, 100);
  long n = 0;
  for (auto a = r.ReadSamples(4410); !a.empty(); a = r.ReadSamples(4410)) n += static_cast<long>(a.size() / 2);
  EXPECT_NEAR(n, 88200, 4410);
  int32_t lPos = 0;
  r.Seek(1000, WmaFile::kSeekAbsolute, lPos);
  EXPECT_EQ(lPos, 1000);
  r.Seek(0, WmaFile::kSeekCurrent, lPos);
  EXPECT_EQ(lPos, 1000);
}

TEST_F(WmaFileTest, RefusesWithoutProfileOrFile) {
  WmaFile f;
  f.SetProfileNum(23);
  EXPECT_THROW(f.Create(P("x.wma")), CodecError);  // no profiles loaded
  f.LoadProfiles(kShippedPrx);
  EXPECT_THROW(f.Create(P("no/such/folder/x.wma")), CodecError);
  EXPECT_THROW(f.WriteSamples(Tone(10, 2)), CodecError);
  EXPECT_THROW(f.Open(P("missing.wma")), CodecError);
  EXPECT_EQ(f.State(), 0);
}
