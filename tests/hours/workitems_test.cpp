#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "common/TestUtil.h"
#include "config/CLog.h"
#include "config/ConfigTestUtil.h"
#include "hours/CLogProcessEntry.h"
#include "hours/CProcessEntryList.h"
#include "support/CNVErr.h"

namespace {
constexpr int32_t k14March2010 = 40251;

std::shared_ptr<CLog> NamedLog(const std::string& sName) {
  auto o = std::make_shared<CLog>();
  o->Name(sName);
  return o;
}

// An entry with only the parts given.
std::shared_ptr<CLogProcessEntry> Entry(const std::shared_ptr<CLog>& oLog, int16_t iHour,
                                        const std::string& sInf = "") {
  auto o = std::make_shared<CLogProcessEntry>();
  auto oInf = std::make_shared<CHourlyInf>();
  if (!sInf.empty()) oInf->FileName(sInf);
  o->Fill(oLog, sInf.empty() ? nullptr : oInf, std::make_shared<LogInfo>(k14March2010, iHour, 0), actDelete);
  return o;
}

std::vector<int16_t> Hours(const CProcessEntryList& l) {
  std::vector<int16_t> v;
  for (const auto& e : l) v.push_back(e->loginf()->Hour);
  return v;
}
}  // namespace

class WorkItemTest : public ConfigTest {};

TEST_F(WorkItemTest, ReferenceJoinsTheSetPartsWithoutSeparators) {
  CLogProcessEntry oEmpty;
  EXPECT_EQ(oEmpty.Reference(), "");
  auto oLog = NamedLog("Studio 1");
  CLogProcessEntry oOnlyLog;
  oOnlyLog.Fill(oLog, nullptr, nullptr, actDelete);
  EXPECT_EQ(oOnlyLog.Reference(), "Studio 1");
  EXPECT_EQ(Entry(oLog, 7)->Reference(), "Studio 14025170");
}

TEST_F(WorkItemTest, OpenInfTakesTheHourFromThePathAndLoadsTheFile) {
  WriteFile("L/20100314/1300/130000.inf",
            "[ActionDates]\nStandardAudioAt=20100316 1300\nArchiveAudioAt=-1\n"
            "DeleteAudioAt=20100414 0500\n");
  auto oLog = NamedLog("L1");
  CLogProcessEntry o;
  o.OpenInf(oLog, PathIn("L/20100314/1300/130000.inf"));
  ASSERT_TRUE(o.loginf());
  EXPECT_EQ(*o.loginf(), LogInfo(k14March2010, 13, 0));
  EXPECT_EQ(o.Action(), actDelete);
  EXPECT_EQ(o.ActionDateString(), "2010-04-14 05:00");
  o.Action(actStandardise);  // the second of the three points in the file, not the second of the list
  EXPECT_EQ(o.ActionDateString(), "2010-03-16 13:00");
  o.Action(actArchive);
  EXPECT_EQ(o.ActionDateString(), "-1");
  EXPECT_EQ(o.Reference(), "L1" + std::to_string(k14March2010) + "130" + PathIn("L/20100314/1300/130000.inf"));
}

TEST_F(WorkItemTest, OpenHourFindsTheFileBelowTheLoggerFolder) {
  WriteFile("L/20100314/0900/090000.inf", "[ActionDates]\nDeleteAudioAt=20100414 0900\n");
  CLogProcessEntry o;
  o.OpenHour(NamedLog("L1"), LogInfo(k14March2010, 9, 0), PathIn("L"));
  EXPECT_EQ(o.HourInf()->FileName(), PathIn("L/20100314/0900/090000.inf"));
  EXPECT_EQ(o.ActionDateString(), "2010-04-14 09:00");
}

TEST_F(WorkItemTest, OpenInfOfAPathOutsideAnHourFolderFails) {
  WriteFile("L/x/130000.inf", "[ActionDates]\nDeleteAudioAt=-1\n");
  CLogProcessEntry o;
  for (const char* s : {"L/x/130000.inf", "L/20100314/2400/240000.inf", "130000.inf"})
    EXPECT_EQ(ErrorOf([&] { o.OpenInf(NamedLog("L1"), PathIn(s)); }), 91) << s;
  EXPECT_FALSE(o.HourInf());
}

class EntryListTest : public ConfigTest {
 protected:
  std::shared_ptr<CLog> m_oLog = NamedLog("L1");
};

TEST_F(EntryListTest, InsertPlacesByPosition) {
  CProcessEntryList l;
  l.Insert(Entry(m_oLog, 1), -1);
  l.Insert(Entry(m_oLog, 2), -1);
  l.Insert(Entry(m_oLog, 3), -1);
  EXPECT_EQ(Hours(l), (std::vector<int16_t>{1, 2, 3}));
  l.Insert(Entry(m_oLog, 4), 1);
  EXPECT_EQ(Hours(l), (std::vector<int16_t>{4, 1, 2, 3}));
  l.Insert(Entry(m_oLog, 5), 2);  // directly behind the entry in front
  EXPECT_EQ(Hours(l), (std::vector<int16_t>{4, 5, 1, 2, 3}));
  l.Insert(Entry(m_oLog, 6), l.Count() + 1);
  EXPECT_EQ(Hours(l), (std::vector<int16_t>{4, 5, 1, 2, 3, 6}));
  EXPECT_EQ(l.Item(1)->loginf()->Hour, 4);
  EXPECT_EQ(l.Item(Entry(m_oLog, 2)->Reference())->loginf()->Hour, 2);
}

TEST_F(EntryListTest, BadPositionsAndDuplicateKeysFailAndChangeNothing) {
  CProcessEntryList l;
  l.Insert(Entry(m_oLog, 1));
  for (int32_t lPos : {0, -2, 3})
    EXPECT_EQ(ErrorOf([&] { l.Insert(Entry(m_oLog, 9), lPos); }), CProcessEntryList::kErrSubscript) << lPos;
  EXPECT_EQ(ErrorOf([&] { l.Insert(Entry(m_oLog, 1)); }), CProcessEntryList::kErrDuplicateKey);
  EXPECT_EQ(Hours(l), (std::vector<int16_t>{1}));
  EXPECT_THROW(l.Item(0), RaisedError);
  EXPECT_THROW(l.Item(2), RaisedError);
  EXPECT_THROW(l.Item("nothing"), RaisedError);
}

TEST_F(EntryListTest, RemoveIgnoresWhatIsNotThereAndFreesTheKey) {
  CProcessEntryList l;
  for (int16_t h : {1, 2, 3}) l.Insert(Entry(m_oLog, h));
  l.Remove(4);
  l.Remove(0);
  l.Remove("nothing");
  EXPECT_EQ(Hours(l), (std::vector<int16_t>{1, 2, 3}));
  l.Remove(2);
  EXPECT_EQ(Hours(l), (std::vector<int16_t>{1, 3}));
  l.Remove(Entry(m_oLog, 3)->Reference());
  EXPECT_EQ(Hours(l), (std::vector<int16_t>{1}));
  EXPECT_NO_THROW(l.Insert(Entry(m_oLog, 3)));  // its key is free again
  EXPECT_EQ(Hours(l), (std::vector<int16_t>{1, 3}));
}

TEST_F(EntryListTest, AddCopiesTheHourButSharesTheLogger) {
  WriteFile("L/20100314/1300/130000.inf", "[ActionDates]\nArchiveAudioAt=20100328 1300\n");
  CHourlyInf oInf;
  oInf.FileName(PathIn("L/20100314/1300/130000.inf"));
  LogInfo oHour(k14March2010, 13, 0);
  CProcessEntryList l;
  auto oEntry = l.Add(actArchive, m_oLog, oInf, oHour, -1);
  oInf.ArchivePoint()->Date = -1;
  oHour.Hour = 5;
  ASSERT_EQ(l.Count(), 1);
  EXPECT_EQ(l.Item(1), oEntry);
  EXPECT_EQ(oEntry->Log(), m_oLog);
  EXPECT_EQ(oEntry->Action(), actArchive);
  EXPECT_EQ(oEntry->loginf()->Hour, 13);
  EXPECT_EQ(oEntry->ActionDateString(), "2010-03-28 13:00");
}
