// Format objects: the class choice, the no-audio class, the WAV class's format members
// and profile keys, the value object and its text, and the format helpers.
#include <gtest/gtest.h>

#include "audio/AudioFormatHelpers.h"
#include "audio/CAudioACM.h"
#include "audio/CAudioNull.h"
#include "audio/ChooseAudioClass.h"
#include "audio/CommonAudioFormat.h"
#include "common/TempRoot.h"
#include "support/CNVErr.h"
#include "support/ConfigAccess.h"

namespace {

class AudioFormatTest : public TempRootTest {
 protected:
  std::string Ini() { return PathIn("Kestrane.ini"); }
};

TEST_F(AudioFormatTest, ChooseAudioClassByNumber) {
  auto o = ChooseAudioClass(FormatWAV);
  ASSERT_TRUE(o);
  EXPECT_EQ(o->FormatType(), FormatWAV);
  EXPECT_TRUE(std::dynamic_pointer_cast<CAudioACM>(o));
  EXPECT_TRUE(std::dynamic_pointer_cast<IAudioFile>(o));
  for (int32_t i : {-1, 0, 1, 3, 64, 1000}) {
    auto n = ChooseAudioClass(i);
    ASSERT_TRUE(n) << i;
    EXPECT_EQ(n->FormatType(), FormatNone) << i;
    EXPECT_FALSE(std::dynamic_pointer_cast<IAudioFile>(n)) << "no file face for no audio";
  }
  // Each call makes a new object.
  EXPECT_NE(ChooseAudioClass(FormatWAV), ChooseAudioClass(FormatWAV));
}

TEST_F(AudioFormatTest, NoAudioClassIsTheSameOnlyAsItself) {
  CAudioNull o, other;
  CAudioACM wav;
  EXPECT_TRUE(o.IsSameFormat(&other));
  EXPECT_FALSE(o.IsSameFormat(&wav));
  EXPECT_FALSE(o.IsSameFormat(nullptr));
  EXPECT_FALSE(wav.IsSameFormat(&o));
  EXPECT_EQ(o.IAudioFormat_Copy()->FormatType(), FormatNone);
  EXPECT_EQ(o.CommonFormat()->FormatType(), FormatCommonNone);
  EXPECT_EQ(o.Description(), "No Audio");
}

TEST_F(AudioFormatTest, NoAudioSaveLeavesNoStaleKeys) {
  CAudioACM wav;
  wav.SetFileFormat(22050, 1, 17);
  wav.SaveFormat(Ini(), "Format1Std");
  ConfigAccess::WriteProfileString("Other", "Keep", "1", Ini());
  EXPECT_EQ(ConfigAccess::GetProfileInt("Format1Std", "FormatTag", 0, Ini()), 17);
  CAudioNull().SaveFormat(Ini(), "Format1Std");
  EXPECT_EQ(ConfigAccess::GetProfileInt("Format1Std", "FormatTag", -5, Ini()), -5);
  EXPECT_EQ(ConfigAccess::GetProfileInt("Format1Std", "SampleRate", -5, Ini()), -5);
  EXPECT_EQ(ConfigAccess::GetProfileInt("Other", "Keep", 0, Ini()), 1);
}

TEST_F(AudioFormatTest, WavFormatKeysRoundTripAndDefault) {
  CAudioACM a;
  a.SetFileFormat(11025, 1, 2);
  a.SaveFormat(Ini(), "Fmt");
  EXPECT_EQ(ConfigAccess::GetProfileString("Fmt", "SampleRate", "", Ini()), "11025");
  CAudioACM b;
  b.LoadFormat(Ini(), "Fmt");
  EXPECT_TRUE(b.IsSameFormat(&a));
  EXPECT_EQ(b.FormatTag(), 2);
  // Missing keys take a new object's values, not the present ones.
  ConfigAccess::WriteProfileString("Partial", "Channels", "1", Ini());
  b.LoadFormat(Ini(), "Partial");
  EXPECT_EQ(b.SampleRate(), 44100);
  EXPECT_EQ(b.Channels(), 1);
  EXPECT_EQ(b.FormatTag(), 1);
}

TEST_F(AudioFormatTest, WavDescriptionSizesAndAlignment) {
  struct Case {
    int rate, ch, tag;
    const char* text;
    double size;  // a second
    int32_t align;
  } cases[] = {{44100, 2, 1, "44,100Hz; Stereo PCM ", 176400, 4},
               {44100, 2, 17, "44,100Hz; Stereo IMA ADPCM ", 44100, 2048},
               {22050, 1, 17, "22,050Hz; Mono IMA ADPCM ", 11025, 512},
               {8000, 1, 2, "8,000Hz; Mono", 4000, 2}};
  for (const auto& c : cases) {
    CAudioACM o;
    o.SetFileFormat(c.rate, c.ch, c.tag);
    EXPECT_EQ(o.Description(), c.text);
    EXPECT_DOUBLE_EQ(o.DataSize(1), c.size) << c.text;
    EXPECT_EQ(o.GetBlockAlign(), c.align) << c.text;
  }
}

TEST(FormatHelpers, NumberRules) {
  for (auto [d, i] : {std::pair{2.5, 3}, {-2.5, -3}, {2.49, 2}, {1e12, 2147483647}, {-1e12, -2147483647 - 1}})
    EXPECT_EQ(RoundToInt(d), i) << d;
  for (auto [v, s] : {std::pair<int64_t, const char*>{0, "0"},
                      {999, "999"},
                      {1000, "1,000"},
                      {1234567, "1,234,567"},
                      {-44100, "-44,100"}})
    EXPECT_EQ(GroupThousands(v), s);
}

TEST_F(AudioFormatTest, WavSameFormatCopyAndCommonFormat) {
  CAudioACM a;
  a.SetFileFormat(22050, 1, 17);
  a.SetAudioFileName("x.wav");
  a.SetBufLenSecs(3.0);
  auto c = a.Copy();
  EXPECT_TRUE(a.IsSameFormat(c.get()));
  EXPECT_EQ(c->AudioFileName(), "x.wav");
  EXPECT_DOUBLE_EQ(c->BufLenSecs(), 1.0) << "BufLenSecs is not copied";
  EXPECT_FALSE(c->AudioOpen());
  c->SetFileFormat(22050, 2, 17);
  EXPECT_FALSE(a.IsSameFormat(c.get()));
  EXPECT_FALSE(a.IsSameFormat(nullptr));

  auto cf = a.CommonFormat();
  EXPECT_EQ(cf->FormatType(), FormatWAV);
  EXPECT_EQ(cf->BitRate(), 22050 * 4 / 8);
  CAudioACM b;
  b.SetCommonFormat(cf);
  EXPECT_TRUE(b.IsSameFormat(&a));
  b.SetCommonFormat(nullptr);
  EXPECT_TRUE(b.IsSameFormat(&a));
}

TEST_F(AudioFormatTest, MemFormatMustBePcm) {
  CAudioACM o;
  EXPECT_EQ(o.MemFormat(), GetMemFormat());
  Wfx w = Wfx::PCM(22050, 1);
  o.SetMemFormat(w);
  EXPECT_EQ(o.MemFormat(), w);
  Wfx bad = w;
  bad.wFormatTag = 17;
  try {
    o.SetMemFormat(bad);
    FAIL() << "no error raised";
  } catch (const RaisedError& e) {
    EXPECT_EQ(e.Number, static_cast<int32_t>(0x80042710u));
    EXPECT_EQ(e.Source, "MemFormat");
    EXPECT_EQ(e.Description, "The memory format must be PCM");
  }
  EXPECT_EQ(o.MemFormat(), w);
}

TEST(FormatHelpers, ExtensionsBothWays) {
  EXPECT_EQ(FormatTypeFromFile("HOUR.MP3"), FormatMP3);
  EXPECT_EQ(FormatTypeFromFile("/a/b/hour.mp3"), FormatMP3);
  EXPECT_EQ(FormatTypeFromFile("130000A.Wav"), FormatWAV);
  EXPECT_EQ(FormatTypeFromFile("hour.aac"), FormatNone);
  EXPECT_EQ(FormatTypeFromFile("hour"), FormatNone);
  EXPECT_EQ(FormatTypeFromFile("wav"), FormatNone);
  for (int32_t t : {FormatWAV, FormatMP3, FormatOGG, FormatWMA, FormatMP2})
    EXPECT_EQ(FormatTypeFromFile("a." + FormatTypeExtension(t)), t);
  EXPECT_EQ(FormatTypeExtension(-1), "");
  EXPECT_EQ(FormatTypeExtension(1), "");
}

TEST(FormatHelpers, MemFormatAndFormatsDiffer) {
  const Wfx m = GetMemFormat();
  EXPECT_EQ(m, Wfx::PCM(44100, 2));
  Wfx o = m;
  o.nAvgBytesPerSec = 1;
  o.nBlockAlign = 9;
  o.cbSize = 4;
  EXPECT_FALSE(FormatsDiffer(m, o)) << "only tag, channels, rate and bits count";
  Wfx aDiffer[4] = {m, m, m, m};
  aDiffer[0].wFormatTag = 17;
  aDiffer[1].nChannels = 1;
  aDiffer[2].nSamplesPerSec = 22050;
  aDiffer[3].wBitsPerSample = 8;
  for (int i = 0; i < 4; ++i) EXPECT_TRUE(FormatsDiffer(m, aDiffer[i])) << i;
}

TEST(WfxRecord, BlocksOfEverySize) {
  Wfx w = Wfx::PCM(8000, 1);
  auto a = w.ToBytes(20);
  ASSERT_EQ(a.size(), 20u);
  EXPECT_EQ(Wfx::FromBytes(a.data(), a.size()), w);
  // A 16-byte PCM chunk has no cbSize: it reads as 0.
  a[16] = 9;
  Wfx s = Wfx::FromBytes(a.data(), 16);
  EXPECT_EQ(s.cbSize, 0);
  EXPECT_EQ(s.nSamplesPerSec, 8000u);
  // cbSize beyond the block: the codec data is what the block holds.
  std::vector<uint8_t> b = w.ToBytes();
  b[16] = 0xFF;
  b[17] = 0xFF;
  b.push_back(0xAB);
  Wfx t = Wfx::FromBytes(b.data(), b.size());
  EXPECT_EQ(t.cbSize, 0xFFFF);
  EXPECT_EQ(t.Extra, std::vector<uint8_t>{0xAB});
  // Bytes missing from a short block read as zeros.
  Wfx u = Wfx::FromBytes(b.data(), 3);
  EXPECT_EQ(u.nChannels, 1);
  EXPECT_EQ(u.nSamplesPerSec, 0u);
}

TEST(CommonAudioFormatText, OneLineThatReadsBack) {
  CommonAudioFormat c;
  EXPECT_EQ(c.FormatType(), FormatCommonNone);
  c.SetFormatType(FormatWMA);
  c.SetSampleRate(32000);
  c.SetChannels(1);
  c.SetBitRate(48);
  c.SetProfileNum(3);
  c.SetProfileFile("/x/a \"b\";c.prx");
  const std::string s = c.FormatText();
  EXPECT_EQ(s.find('"'), std::string::npos);
  EXPECT_EQ(s.find('\n'), std::string::npos);
  CommonAudioFormat d;
  ASSERT_TRUE(d.ParseFormatText(s));
  EXPECT_EQ(d.FormatType(), FormatWMA);
  EXPECT_EQ(d.SampleRate(), 32000);
  EXPECT_EQ(d.Channels(), 1);
  EXPECT_EQ(d.BitRate(), 48);
  EXPECT_EQ(d.ProfileNum(), 3);
  EXPECT_EQ(d.ProfileFile(), "/x/a 'b';c.prx");
  EXPECT_DOUBLE_EQ(d.DataRateBits(), 48000);
  EXPECT_FALSE(CommonAudioFormat().ParseFormatText("SampleRate=1"));
}

}  // namespace
