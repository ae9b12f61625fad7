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

TEST_F(PeriodsTest, SaveThenLoad) {
  ClogPeriods p;
  p.FormatName("Air");
  p.Save(File(), 0);
  EXPECT_EQ(ConfigAccess::GetProfileString("Logtypes", "FormatNameA", "", File()), "Air");
  EXPECT_EQ(ConfigAccess::GetProfileString("Logtypes", "FormatType1a", "", File()), "-1");
  ClogPeriods q;
  q.Load(File(), 0);
  EXPECT_EQ(q.FormatName(), "Air");
  for (int i = 0; i < 3; ++i) EXPECT_EQ(q.Period(i)->FormatType(), p.Period(i)->FormatType());
}

TEST(PeriodLettersTest, UpperForNamesLowerForTheRest) {
  EXPECT_EQ(ClogPeriods::UpperLetter(0) + ClogPeriods::LowerLetter(1) + ClogPeriods::UpperLetter(25), "AbZ");
  EXPECT_THROW(ClogPeriods::LowerLetter(200), RaisedError);
}

TEST_F(PeriodsTest, RealFormatsGoThroughTheirSections) {
  ClogPeriods p;
  auto wav = ChooseAudioClass(FormatWAV);
  auto common = std::make_shared<CommonAudioFormat>();
  common->SetFormatType(FormatWAV);
  common->SetSampleRate(22050);
  common->SetChannels(1);
  common->SetFormatTag(WAVE_FORMAT_IMA_ADPCM);
  wav->SetCommonFormat(common);
  p.Period(2, wav);
  p.Save(File(), 1);
  EXPECT_EQ(ConfigAccess::GetProfileString("Logtypes", "FormatType2b", "", File()), "2");
  EXPECT_EQ(ConfigAccess::GetProfileString("Logtypes", "FormatType0b", "", File()), "-1");
  ClogPeriods q;
  q.Load(File(), 1);
  ASSERT_EQ(q.Period(2)->FormatType(), FormatWAV);
  EXPECT_TRUE(q.Period(2)->IsSameFormat(wav.get()));
  EXPECT_EQ(std::tuple(q.Period(2)->SampleRate(), q.Period(2)->Channels()), std::tuple(22050, 1));
  EXPECT_DOUBLE_EQ(q.Period(2)->DataSize(3600), wav->DataSize(3600));
  // A later save of no audio in that period removes its section.
  q.Period(2, ChooseAudioClass(-1));
  q.Save(File(), 1);
  EXPECT_EQ(ConfigAccess::GetProfileSection("OutputFormat2b", File()), "");
}
