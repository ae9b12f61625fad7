#include <gtest/gtest.h>

#include "audio/AudioTypes.h"
#include "audio/ChooseAudioClass.h"
#include "config/ClogPeriods.h"
#include "config/ConfigTestUtil.h"
#include "support/CNVErr.h"

class PeriodsTest : public ConfigTest {
 protected:
  std::string File() const { return PathIn("Kestrane.ini"); }
};

TEST_F(PeriodsTest, NewObjectHasNoAudioAndItsCopySharesNothing) {
  ClogPeriods p;
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(p.Period(i)) << i;
    EXPECT_EQ(p.Period(i)->FormatType(), FormatNone);
  }
  EXPECT_THROW(p.Period(3), RaisedError);
  EXPECT_THROW(p.Period(-1), RaisedError);
  EXPECT_EQ(p.FormatName(), "");
  // A copy shares nothing.
  p.FormatName("A");
  auto c = p.Copy();
  EXPECT_EQ(c->FormatName(), "A");
  for (int i = 0; i < 3; ++i) EXPECT_NE(c->Period(i), p.Period(i));
  auto before = p.Period(1);
  c->Period(1, nullptr);
  EXPECT_EQ(p.Period(1), before);
}

TEST_F(PeriodsTest, LoadUsesTheLettersOfTheFormatNumber) {
  WriteFile("Kestrane.ini", "[Logtypes]\r\nFormatNameA=Wrong\r\nFormatNameB=Second\r\nFormatType2b=99\r\n");
  ClogPeriods p;
  p.Load(File(), 1);
  EXPECT_EQ(p.FormatName(), "Second");
  EXPECT_EQ(p.Period(2)->FormatType(), FormatNone);  // no class for 99
  ClogPeriods c;
  c.Load(File(), 2);
  EXPECT_EQ(c.FormatName(), "Format C");
  EXPECT_NE(Trace().find("Load Period 2"), std::string::npos);
}

TEST(PeriodLettersTest, UpperForNamesLowerForTheRest) {
  EXPECT_EQ(ClogPeriods::UpperLetter(0) + ClogPeriods::LowerLetter(1) + ClogPeriods::UpperLetter(25), "AbZ");
  EXPECT_THROW(ClogPeriods::LowerLetter(200), RaisedError);
}

TEST_F(PeriodsTest, SaveThenLoadGoesThroughTheFormatSections) {
  ClogPeriods p;
  auto wav = ChooseAudioClass(FormatWAV);
  auto common = std::make_shared<CommonAudioFormat>();
  common->SetFormatType(FormatWAV);
  common->SetSampleRate(22050);
  common->SetChannels(1);
  common->SetFormatTag(WAVE_FORMAT_IMA_ADPCM);
  wav->SetCommonFormat(common);
  p.Period(2, wav);
  p.FormatName("Air");
  p.Save(File(), 1);
  EXPECT_EQ(ConfigAccess::GetProfileString("Logtypes", "FormatType2b", "", File()), "2");
  EXPECT_EQ(ConfigAccess::GetProfileString("Logtypes", "FormatType0b", "", File()), "-1");
  EXPECT_EQ(ConfigAccess::GetProfileString("Logtypes", "FormatNameB", "", File()), "Air");
  ClogPeriods q;
  q.Load(File(), 1);
  EXPECT_EQ(q.FormatName(), "Air");
  EXPECT_EQ(q.Period(0)->FormatType(), FormatNone);
  ASSERT_EQ(q.Period(2)->FormatType(), FormatWAV);
  EXPECT_TRUE(q.Period(2)->IsSameFormat(wav.get()));
  EXPECT_EQ(std::tuple(q.Period(2)->SampleRate(), q.Period(2)->Channels()), std::tuple(22050, 1));
  EXPECT_DOUBLE_EQ(q.Period(2)->DataSize(3600), wav->DataSize(3600));
  // A later save of no audio in that period removes its section.
  q.Period(2, ChooseAudioClass(-1));
  q.Save(File(), 1);
  EXPECT_EQ(ConfigAccess::GetProfileSection("OutputFormat2b", File()), "");
}

// Only an explicit -1 means "no audio in this period" (its files are removed); an absent
// or empty key is an unknown format: no format object, the key named, and a save leaves
// it absent rather than write the -1 that would remove the files.
TEST_F(PeriodsTest, AbsentFormatTypeIsUnknownNeverNone) {
  WriteFile("Kestrane.ini", "[Logtypes]\r\nFormatType0a=2\r\nFormatType1a=-1\r\nFormatType2a=\r\nFormatType1b=-1\r\n");
  ClogPeriods p;
  p.Load(File(), 0);
  ASSERT_TRUE(p.Period(0));
  ASSERT_TRUE(p.Period(1));
  EXPECT_EQ(p.Period(1)->FormatType(), FormatNone);
  EXPECT_FALSE(p.Period(2));
  EXPECT_EQ(p.MissingKey(0) + "|" + p.MissingKey(1) + "|" + p.MissingKey(2), "||FormatType2a");
  EXPECT_NE(Trace().find("FormatType2a is missing"), std::string::npos);
  EXPECT_EQ(p.Copy()->MissingKey(2), "FormatType2a");

  ClogPeriods b;
  b.Load(File(), 1);
  EXPECT_EQ(b.MissingKey(0) + "|" + b.MissingKey(1) + "|" + b.MissingKey(2), "FormatType0b||FormatType2b");
  b.Save(File(), 1);
  EXPECT_EQ(ConfigAccess::GetProfileString("Logtypes", "FormatType2b", "<absent>", File()), "<absent>");
  EXPECT_EQ(ConfigAccess::GetProfileString("Logtypes", "FormatType1b", "<absent>", File()), "-1");
  // A format set in its place is known again.
  b.Period(2, ChooseAudioClass(-1));
  EXPECT_EQ(b.MissingKey(2), "");
}
