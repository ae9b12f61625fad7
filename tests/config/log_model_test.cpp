#include <gtest/gtest.h>

#include <map>

#include "common/TestUtil.h"
#include "config/CLog.h"
#include "support/CNVErr.h"

namespace {
// Counts the events a CLog raises, by name.
struct EventCounter {
  std::map<std::string, int> n;
  void Attach(CLog& log) {
    log.NameChange = [this](const std::string&) { ++n["NameChange"]; };
    log.LogNumChange = [this](int16_t) { ++n["LogNumChange"]; };
    log.HardwareLoggingChange = [this] { ++n["HardwareLoggingChange"]; };
    log.DABLoggingChange = [this] { ++n["DABLoggingChange"]; };
    log.DABPasswordChange = [this] { ++n["DABPasswordChange"]; };
    log.SilenceLoggingChange = [this] { ++n["SilenceLoggingChange"]; };
    log.AudioQualityChange = [this] { ++n["AudioQualityChange"]; };
    log.PeriodChange = [this] { ++n["PeriodChange"]; };
    log.LoadDefaultHardware = [this](int16_t, const std::shared_ptr<HardwareLine>&) { ++n["LoadDefaultHardware"]; };
    log.LoadDefaultSerial = [this] { ++n["LoadDefaultSerial"]; };
    log.SerialChange = [this] { ++n["SerialChange"]; };
  }
  int Total() const {
    int t = 0;
    for (auto& [k, v] : n) t += v;
    return t;
  }
};
}  // namespace

class LogModelTest : public ::testing::Test {
 protected:
  CLog log;
  EventCounter ev;
};

TEST_F(LogModelTest, FreshObject) {
  EXPECT_EQ(log.OutputFormatCount(), 1);
  EXPECT_EQ(log.AudioFormat(0), nullptr);
  EXPECT_EQ(log.AudioFormat(1), nullptr);  // room for two
  EXPECT_THROW(log.AudioFormat(2), RaisedError);
  EXPECT_NE(log.GUID(), CLog().GUID());
  EXPECT_TRUE(log.FirstLog && log.LastLog);
  EXPECT_EQ(log.Comments(0), nullptr);
  EXPECT_EQ(log.HWLinesChecked(), 0);
}

TEST_F(LogModelTest, OutputFormatCountNamesNewEntries) {
  log.OutputFormatCount(3);
  EXPECT_EQ(log.OutputFormatName(1), "Format A");
  EXPECT_EQ(log.OutputFormatName(3), "Format C");
  log.AudioFormat(1)->FormatName("Studio");
  log.OutputFormatCount(1);
  EXPECT_THROW(log.AudioFormat(1), RaisedError);
  log.OutputFormatCount(2);
  EXPECT_EQ(log.OutputFormatName(2), "Format B");
  std::string desc;
  EXPECT_EQ(ErrorOf([&] { log.OutputFormatCount(0); }, &desc), static_cast<int32_t>(0x80042328u));
  EXPECT_EQ(desc, "Invalid OutputCount (0)");
  EXPECT_EQ(log.OutputFormatCount(), 2);
  // A count past the last one-byte letter is refused before anything changes.
  EXPECT_NE(ErrorOf([&] { log.OutputFormatCount(100000); }), 0);
  EXPECT_EQ(log.OutputFormatCount(), 2);
}

TEST_F(LogModelTest, LogNumRenamesOnlyTheAutomaticName) {
  ev.Attach(log);
  log.LoadDefaults(CLog::ldName);
  EXPECT_EQ(log.Name(), "Logger Number 0");
  log.logNum(7);
  EXPECT_EQ(log.Name(), "Logger Number 7");
  EXPECT_EQ(log.DABServiceName, "Logger Number 7");
  EXPECT_EQ(ev.n["LogNumChange"], 1);
  EXPECT_EQ(ev.n["NameChange"], 2);
  log.Name("Studio 1");
  log.logNum(8);
  EXPECT_EQ(log.Name(), "Studio 1");
  EXPECT_EQ(log.logNum(), 8);
}

TEST_F(LogModelTest, SettersClamp) {
  // Above the top, then below the bottom.
  log.SDThreshold(150);
  log.SDPeriod(500);
  log.HWLinesChecked(301);
  log.SAHWLinePeriod(4000);
  EXPECT_FLOAT_EQ(log.SDPeriod(), 60);
  EXPECT_EQ(std::tuple(log.SDThreshold(), log.HWLinesChecked(), log.SAHWLinePeriod()), std::tuple(100, 300, 3600));
  log.SDThreshold(-3);
  log.SDPeriod(0);
  log.SAHWLinePeriod(0);
  log.DeleteHours(-5);
  EXPECT_FLOAT_EQ(log.SDPeriod(), 0.1f);
  EXPECT_EQ(std::tuple(log.SDThreshold(), log.SAHWLinePeriod(), log.DeleteHours()), std::tuple(0, 1, 0));
  ev.Attach(log);
  log.SAEmailType(3);
  log.SAEmailType(-1);
  EXPECT_EQ(log.SAEmailType(), 3);
  EXPECT_EQ(ev.n["SilenceLoggingChange"], 2);
  EXPECT_EQ(log.Comments(7), log.Comments(3));
}

// Every group's defaults: each of the 300 lines made and owned, one event for each, and
// the first output in its factory format.
TEST_F(LogModelTest, DefaultsOfAllGroups) {
  ev.Attach(log);
  log.LoadDefaults(-1);
  for (int i = 0; i < 300; ++i) {
    auto l = log.HardwareLines(i);
    ASSERT_TRUE(l);
    EXPECT_FALSE(l->IsLogged()) << i;
    EXPECT_EQ(l->callback, &log);
  }
  EXPECT_EQ(std::tuple(ev.n["LoadDefaultHardware"], ev.n["LoadDefaultSerial"]), std::tuple(300, 1));
  ASSERT_TRUE(log.AudioFormat(0));
  for (int p = 0; p < 3; ++p) ASSERT_TRUE(log.AudioFormat(0)->Period(p)) << p;
  for (int c = 0; c < 4; ++c) ASSERT_TRUE(log.Comments(c));
}

TEST_F(LogModelTest, DefaultsOfNoGroupOnlyRaiseTheSerialEvent) {
  log.Name("keep");
  ev.Attach(log);
  log.LoadDefaults(0);
  EXPECT_EQ(ev.Total(), 1);
  EXPECT_EQ(ev.n["LoadDefaultSerial"], 1);
  EXPECT_EQ(log.Name(), "keep");
  EXPECT_EQ(log.StandardHours(), 0);
  EXPECT_EQ(log.AudioFormat(0), nullptr);
}

TEST_F(LogModelTest, HardwareLineSlotsAndCount) {
  EXPECT_EQ(log.HardwareLines(300), nullptr);
  EXPECT_EQ(log.HardwareLines(-1), nullptr);
  ev.Attach(log);
  log.HardwareLines(300, std::make_shared<HardwareLine>());
  EXPECT_EQ(ev.n["HardwareLoggingChange"], 0);

  auto unlogged = std::make_shared<HardwareLine>();
  log.HardwareLines(4, unlogged);  // an empty slot filled counts
  EXPECT_EQ(log.HWLinesChecked(), 1);
  EXPECT_EQ(unlogged->callback, &log);
  auto logged = std::make_shared<HardwareLine>();
  logged->IsLogged(true);
  log.HardwareLines(4, logged);  // logging differs: one more
  EXPECT_EQ(log.HWLinesChecked(), 2);
  log.HardwareLines(4, nullptr);
  EXPECT_EQ(log.HWLinesChecked(), 1);
  log.HardwareLines(4, nullptr);  // empty already: no change
  EXPECT_EQ(log.HWLinesChecked(), 1);
  EXPECT_EQ(ev.n["HardwareLoggingChange"], 4);

  // A line reports its own changes to the owner.
  auto l = log.HardwareLines(9);
  int before = log.HWLinesChecked();
  l->IsLogged(true);
  EXPECT_EQ(log.HWLinesChecked(), before + 1);
  l->IsLogged(false);
  EXPECT_EQ(log.HWLinesChecked(), before);
  l->Description("fader");
  EXPECT_EQ(ev.n["HardwareLoggingChange"], 7);
  log.SettingsChange("Other", "IsLogged", true, false);
  EXPECT_EQ(log.HWLinesChecked(), before);
}

TEST_F(LogModelTest, CopySharesLinesAndDeepCopiesFormats) {
  log.LoadDefaults(-1);
  log.Name("Studio");
  log.OutputFormatCount(2);
  log.SerialCount(2);
  log.Serial(1)->Description = "Playout";
  log.description = "desc";
  log.SDMode(3);
  log.InvertSilences(true);
  auto c = log.Copy(0);
  EXPECT_NE(c->GUID(), log.GUID());
  EXPECT_EQ(std::tuple(c->Name(), c->description, c->OutputFormatCount(), c->StandardHours(), c->HWLinesChecked()),
            std::tuple("Studio", "desc", 2, 48, 300));                            // each filled line slot counted
  EXPECT_EQ(std::tuple(c->SDMode(), c->InvertSilences()), std::tuple(0, false));  // not copied
  EXPECT_NE(c->AudioFormat(0), log.AudioFormat(0));
  EXPECT_EQ(c->AudioFormat(0)->FormatName(), "Format A");
  EXPECT_NE(c->AudioFormat(0)->Period(1), log.AudioFormat(0)->Period(1));
  EXPECT_EQ(c->HardwareLines(5), log.HardwareLines(5));
  EXPECT_EQ(log.HardwareLines(5)->callback, c.get());
  EXPECT_EQ(c->Serial(1), log.Serial(1));
  // A later copy takes the lines over; the copy keeps the GUID only when asked.
  auto g = log.Copy(CLog::ctGUID);
  EXPECT_EQ(g->GUID(), log.GUID());
  EXPECT_EQ(log.HardwareLines(5)->callback, g.get());
  g->Terminate();
  c->Terminate();
}

TEST_F(LogModelTest, MergeKeepsTheCountAndCopiesSerials) {
  CLog from;
  from.LoadDefaults(-1);
  from.Name("From");
  from.OutputFormatCount(3);
  from.SerialCount(1);
  from.Serial(1)->ServiceTags = "tag";
  log.Merge(CLog::ctSettings, from);
  EXPECT_EQ(std::tuple(log.Name(), log.OutputFormatCount(), log.SerialCount()), std::tuple("From", 1, 1));
  ASSERT_TRUE(log.AudioFormat(0));
  EXPECT_NE(log.AudioFormat(0), from.AudioFormat(0));
  EXPECT_NE(log.Serial(1), from.Serial(1));
  EXPECT_EQ(log.Serial(1)->ServiceTags, "tag");
  EXPECT_NE(log.GUID(), from.GUID());

  std::string desc;
  EXPECT_EQ(ErrorOf([&] { log.Merge(CLog::ctStatus | CLog::ctGUID, from); }, &desc), static_cast<int32_t>(0x80042710u));
  EXPECT_EQ(desc, "The status merge is not available in this version of the CLog class");
  EXPECT_EQ(log.GUID(), from.GUID());  // bit 4 took effect first
  log.Terminate();
  from.Terminate();
}

TEST_F(LogModelTest, TerminateOrTheOwnersEndCutsTheLinesLoose) {
  auto l = log.HardwareLines(2);
  ASSERT_EQ(l->callback, &log);
  log.OutputFormatCount(2);
  log.Terminate();
  EXPECT_EQ(l->callback, nullptr);
  EXPECT_EQ(log.HardwareLines(2), nullptr);
  EXPECT_THROW(log.AudioFormat(0), RaisedError);
  // A line outliving its owner is not left pointing at it.
  std::shared_ptr<HardwareLine> m;
  {
    CLog owner;
    m = owner.HardwareLines(1);
  }
  EXPECT_EQ(m->callback, nullptr);
  m->IsLogged(true);  // must not reach the gone owner
}

TEST_F(LogModelTest, SerialCountKeepsEntries) {
  ev.Attach(log);
  log.SerialCount(2);
  auto first = log.Serial(1);
  log.SerialCount(3);
  EXPECT_EQ(log.Serial(1), first);
  EXPECT_TRUE(log.Serial(3));
  EXPECT_EQ(log.Serial(0), nullptr);
  EXPECT_THROW(log.Serial(4), RaisedError);
  EXPECT_EQ(ev.n["SerialChange"], 2);
  EXPECT_THROW(log.SerialCount(-1), RaisedError);
  EXPECT_THROW(log.SerialCount(2000000000), RaisedError);
  EXPECT_EQ(log.SerialCount(), 3);
}
