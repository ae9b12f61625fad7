#include <gtest/gtest.h>

#include <filesystem>

#include "audio/AudioFormatHelpers.h"
#include "audio/CodecTestUtil.h"
#include "audio/GetAudioLengthSecs.h"
#include "audio/codec/CodecError.h"
#include "audio/codec/WmaFile.h"

using namespace codectest;

const std::string kShippedPrx = std::string(KN_SOURCE_DIR) + "/data/nvkn4.prx";

TEST(WmaProfiles, ParsesTheLineGrammar) {
  auto a = WmaFile::ParseProfiles(
      "\xEF\xBB\xBF; comment\n"
      "[Profiles]\n"
      "  7 = 22050 , 1, 32 , Medium, mono  \r\n"
      "# another comment\n"
      "8=44100,2,64\n"
      "7 = 8000, 1, 24\n"     // a second 7: the first counts
      "9 = 44100, 3, 64\n"    // three channels
      "10 = 44100, 2, 16\n"   // below the encoder's range
      "11 = 96000, 2, 64\n"   // rate out of range
      "12 = 44100, 2\n"       // too few items
      "13 = 44100, 2, 64k\n"  // not a number
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

// The shipped profile file has the default profile 23, and every profile in it can be
// encoded and reads back as that profile (what ffprobe sees in such files is checked in
// the copier's test). An unknown number, or no profiles, has no values.
TEST_F(WmaFileTest, EveryShippedProfileEncodes) {
  WmaFile f;
  f.LoadProfiles(kShippedPrx);
  EXPECT_GE(f.Profiles().size(), 20u);
  f.SetProfileNum(23);
  EXPECT_EQ(f.SampleRate(), 44100);
  EXPECT_EQ(f.Channels(), 2);
  EXPECT_EQ(f.BitRate(), 64000);
  auto src = MemTone(0.25);
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
  f.SetProfileNum(999);
  EXPECT_EQ(f.BitRate(), 0);
  f.LoadProfiles("");
  f.SetProfileNum(23);
  EXPECT_EQ(f.SampleRate(), 0);
  EXPECT_THROW(f.LoadProfiles(P("missing.prx")), CodecError);
}

// Written from 44100 Hz stereo arrays into 22050 Hz mono (profile 8), read back at the
// array format: the frames, the length, and exact positions.
TEST_F(WmaFileTest, WritesAndReadsBack) {
  WmaFile w;
  w.LoadProfiles(kShippedPrx);
  w.SetProfileNum(8);
  w.Create(P("a.wma"));
  EXPECT_EQ(w.State(), 2);
  w.WriteSamples(MemTone(2.0));
  EXPECT_EQ(w.TotalSamples(), 88200);
  w.Close();
  EXPECT_EQ(w.State(), 0);
  WmaFile r;
  r.Open(P("a.wma"));
  EXPECT_EQ(r.State(), 1);
  EXPECT_NEAR(r.LengthMs(), 2000, 100);
  long n = 0;
  for (auto a = r.ReadSamples(4410); !a.empty(); a = r.ReadSamples(4410)) n += static_cast<long>(a.size() / 2);
  EXPECT_NEAR(n, 88200, 4410);
  int32_t lPos = 0;
  r.Seek(1000, WmaFile::kSeekAbsolute, lPos);
  r.Seek(0, WmaFile::kSeekCurrent, lPos);
  EXPECT_EQ(lPos, 1000);
}

TEST_F(WmaFileTest, RefusesWithoutProfileOrFile) {
  WmaFile f;
  f.SetProfileNum(23);
  EXPECT_THROW(f.Create(P("x.wma")), CodecError);  // no profiles loaded
  f.LoadProfiles(kShippedPrx);
  EXPECT_THROW(f.Create(P("no/such/folder/x.wma")), CodecError);
  EXPECT_THROW(f.WriteSamples(MemTone(0.001)), CodecError);
  EXPECT_THROW(f.Open(P("missing.wma")), CodecError);
  EXPECT_EQ(f.State(), 0);
}

// ------------------------------------------------------------------ the WMA class

namespace {
namespace fs = std::filesystem;

using AudioWmaTest = CopierRootTest;

TEST_F(AudioWmaTest, WithoutProfileFileStillReads) {
  MakeSource("a.wma", "-c:a wmav2 -b:a 64k");
  CAudioWMA o;
  EXPECT_EQ(o.FormatType(), FormatWMA);
  EXPECT_EQ(o.SampleRate(), 0);
  o.SetMemFormat(GetMemFormat());
  ASSERT_EQ(o.OpenAudioFile(P("a.wma"), AudioFileRead), 0);
  EXPECT_EQ(o.SampleRate(), 44100);
  EXPECT_EQ(o.Channels(), 2);
  EXPECT_EQ(o.ProfileNum(), 0);  // no profile file: no profile names the file
  EXPECT_NEAR(o.AudioLength(), 2.0, 0.1);
  EXPECT_TRUE(o.SameFormat());
  EXPECT_FALSE(o.ConverterReady());
  EXPECT_NEAR(ReadAllBytes(o) / 176400.0, o.AudioLength(), 0.1);
}

TEST_F(AudioWmaTest, ProfilesSettingsAndComparison) {
  InstallPrx();
  std::string sIni = P("Kestrane.ini");
  CAudioWMA o;
  o.LoadFormat(sIni, "Missing");
  EXPECT_EQ(o.ProfileNum(), 23);
  EXPECT_EQ(o.DataSize(1.0f), 8000.0);
  EXPECT_EQ(o.Description(), "44,100Hz; Stereo; 64 kbps");
  o.SetProfileNum(8);
  o.SaveFormat(sIni, "Fmt");
  EXPECT_NE(ReadFile("Kestrane.ini").find("ProfileNum=8"), std::string::npos);
  CAudioWMA r;
  r.LoadFormat(sIni, "Fmt");
  EXPECT_EQ(r.ProfileNum(), 8);
  EXPECT_EQ(r.Description(), "22,050Hz; Mono; 32 kbps");
  EXPECT_TRUE(r.IsSameFormat(&o));

  auto c = o.CommonFormat();
  EXPECT_EQ(c->FormatType(), FormatWMA);
  EXPECT_EQ(c->ProfileNum(), 8);
  EXPECT_EQ(c->ProfileFile(), CAudioWMA::SystemPrxFile());
  EXPECT_EQ(c->BitRate(), 32);

  // Equal values under another number are the same format; another class is not.
  r.Component().AddProfile(WmaProfile{77, 22050, 1, 32, ""});
  r.SetProfileNum(77);
  EXPECT_TRUE(r.IsSameFormat(&o));
  r.SetProfileNum(23);
  EXPECT_FALSE(r.IsSameFormat(&o));
  CAudioNCT n;
  n.SetFileFormat(FormatMP3, 22050, 32, 1, 17);
  EXPECT_FALSE(o.IsSameFormat(&n));

  // The value object sets the number only when it is a WMA format.
  auto c2 = std::make_shared<CommonAudioFormat>();
  c2->SetProfileNum(5);
  for (auto [iType, iWant] : {std::pair{FormatMP3, 23}, {FormatWMA, 5}}) {
    c2->SetFormatType(iType);
    r.SetCommonFormat(c2);
    EXPECT_EQ(r.ProfileNum(), iWant);
  }

  o.SetWriteIndirect(true);
  o.SetAudioFileName("/a/b.wma");
  auto k = o.Copy();
  EXPECT_EQ(k->ProfileNum(), 8);
  EXPECT_EQ(k->SampleRate(), 22050);  // usable at once
  EXPECT_TRUE(k->WriteIndirect());
  EXPECT_EQ(k->AudioFileName(), "/a/b.wma");
}

TEST_F(AudioWmaTest, MemFormatChangeKeepsTheReadPositionAndSeeksStopBeforeTheEnd) {
  InstallPrx();
  MakeSource("a.wma", "-c:a wmav2 -b:a 64k");
  CAudioWMA o;
  o.SetMemFormat(GetMemFormat());
  ASSERT_EQ(o.OpenAudioFile(P("a.wma"), AudioFileRead), 0);
  EXPECT_EQ(o.ProfileNum(), 23);
  std::vector<uint8_t> buf(176400 * 2);
  ASSERT_EQ(o.ReadAudioData(buf.data(), 0.5f), 88200);
  o.SetMemFormat(Wfx::PCM(22050, 1));
  EXPECT_NEAR(o.CurrentPosition(), 0.5, 0.01);
  // The rest, 1.5 s, in the new format: 22050 Hz mono, 2 bytes a frame.
  long lBytes = ReadAllBytes(o);
  EXPECT_NEAR(lBytes / 44100.0, o.AudioLength() - 0.5, 0.1);
  o.SetMemFormat(GetMemFormat());
  o.SeekFraction(0.5f);
  EXPECT_NEAR(o.CurrentPosition(), o.AudioLength() / 2, 0.01);
  o.SeekFraction(1.0f);
  EXPECT_LT(o.CurrentPosition(), o.AudioLength());
  // One frame before the end as the header counts it; the decoder may stop a little
  // earlier. What is left (at most one frame) comes out, then the end.
  EXPECT_NEAR(o.CurrentPosition(), o.AudioLength(), 0.1);
  int32_t n = o.ReadAudioData(buf.data(), 1.0f);
  EXPECT_LE(n, 4);
  EXPECT_EQ(o.ReadAudioData(buf.data(), 1.0f), 0);
}

// A component that delivers the file's own format: the converter makes the memory format.
TEST_F(AudioWmaTest, ConverterWhenTheComponentDeliversAnotherFormat) {
  MakeSource("m.wma", "-c:a wmav2 -b:a 32k -ar 22050 -ac 1");
  CAudioWMA o;
  o.Component().SetResampling(false);
  o.SetMemFormat(GetMemFormat());
  ASSERT_EQ(o.OpenAudioFile(P("m.wma"), AudioFileRead), 0);
  EXPECT_FALSE(o.SameFormat());
  EXPECT_TRUE(o.ConverterReady());
  std::vector<uint8_t> buf(176400 * 2);
  int32_t n = o.ReadAudioData(buf.data(), 0.25f);
  EXPECT_GT(n, 0);
  EXPECT_LE(n, 44100);
  // Stereo from mono: both channels equal.
  auto* p = reinterpret_cast<int16_t*>(buf.data());
  for (int i = 0; i + 1 < n / 2; i += 2) ASSERT_EQ(p[i], p[i + 1]) << i;
  long lBytes = n + ReadAllBytes(o, 0.25f);
  EXPECT_NEAR(lBytes / 176400.0, o.AudioLength(), 0.1);
  o.CloseAudioFile();
  EXPECT_FALSE(o.ConverterReady());
}

}  // namespace
