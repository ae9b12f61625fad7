// The work-list preparation on real logger trees: which hours become rows, their cells,
// their order, the failure rules, and that nothing on disk changes.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "engine/EngineFixture.h"
#include "hours/CLogProcessEntry.h"

namespace fs = std::filesystem;

namespace {

class CountingView : public proctest::NullView {
 public:
  int iRowsChanged = 0;
  std::vector<std::string> Captions;
  void SetCurrentFileCaption(const std::string& s) override { Captions.push_back(s); }
  void RowsChanged() override { ++iRowsChanged; }
};

const char* const kFuture = "2026-12-30 12:00";
const std::string kCaptureKey = "SOFTWARE\\Norvane\\Kestrane v4\\Capture";

// The hour info text; a null point leaves its key out.
std::string Inf(const char* sStandard, const char* sArchive, const char* sDelete) {
  std::string s = "[General]\r\nVersion=4.0\r\n[ActionDates]\r\n";
  if (sStandard) s += std::string("StandardAudioAt=") + sStandard + "\r\n";
  if (sArchive) s += std::string("ArchiveAudioAt=") + sArchive + "\r\n";
  if (sDelete) s += std::string("DeleteAudioAt=") + sDelete + "\r\n";
  return s + "[Segments]\r\nNumSegs=60\r\n";
}

std::string PcmFormat(int iRate, int iChannels, int iTag) {
  return "SampleRate=" + std::to_string(iRate) + "\r\nChannels=" + std::to_string(iChannels) +
         "\r\nFormatTag=" + std::to_string(iTag) + "\r\n";
}

// Settings of a logger whose output formats are WAV in every period; aFormats holds,
// for each output format, the (rate, channels, tag) of the periods 0, 1, 2.
struct Wav {
  int iRate, iChannels, iTag;
};
std::string Settings(const std::string& sName, const std::vector<std::array<Wav, 3>>& aFormats, int iType = 2) {
  std::string s = "[General]\r\nName=" + sName + "\r\nOutputCount=" + std::to_string(aFormats.size()) +
                  "\r\n[LogSettings]\r\nSegmentsPerHour=60\r\n[Logtypes]\r\n";
  for (size_t f = 0; f < aFormats.size(); ++f)
    for (int p = 0; p < 3; ++p)
      s += "FormatType" + std::to_string(p) + static_cast<char>('a' + f) + "=" + std::to_string(iType) + "\r\n";
  for (size_t f = 0; f < aFormats.size(); ++f)
    for (int p = 0; p < 3; ++p) {
      const Wav& w = aFormats[f][static_cast<size_t>(p)];
      s += "[OutputFormat" + std::to_string(p) + static_cast<char>('a' + f) + "]\r\n" +
           PcmFormat(w.iRate, w.iChannels, w.iTag);
    }
  return s;
}

// Settings of a logger with one output format: 44100 Hz stereo PCM, 22050 Hz mono PCM,
// 22050 Hz mono IMA ADPCM.
std::string Plain(const std::string& sName) {
  return Settings(sName, {{Wav{44100, 2, 1}, Wav{22050, 1, 1}, Wav{22050, 1, 17}}});
}

struct Expected {
  std::string sLog;
  std::string sHour;  // "yyyymmdd/HH00"
  std::string sActionTime;
  std::string sAction;
  std::string sEfficiency;
};

}  // namespace

class PrepareTest : public EngineFixture {
 protected:
  void SetUp() override {
    EngineFixture::SetUp();
    AppGlobal::SetDebugMode(10);
  }

  // Loggers 1..n at D:\Kestrane\Logger<n>, each with its settings file.
  void Loggers(const std::vector<std::string>& aSettings, int iPerPing = 6) {
    std::string s = "[HKEY_LOCAL_MACHINE\\" + kCaptureKey + "]\r\n\"LogCount\"=dword:0000000" +
                    std::to_string(aSettings.size()) + "\r\n\r\n";
    for (size_t i = 0; i < aSettings.size(); ++i) {
      const std::string n = std::to_string(i + 1);
      s += "[HKEY_LOCAL_MACHINE\\" + kCaptureKey + "\\Logger" + n + "]\r\n\"LogPath\"=\"D:\\\\Kestrane\\\\Logger" + n +
           "\"\r\n\"Enabled\"=dword:ffffffff\r\n\r\n";
      WriteFile(Rel(static_cast<int>(i) + 1, "Kestrane.ini"), aSettings[i]);
    }
    s += "[HKEY_LOCAL_MACHINE\\" + std::string(kLogProcessorKey) +
         "]\r\n\"PrepareHoursPerPing\"=dword:" + fmt::format("{:08x}", static_cast<uint32_t>(iPerPing)) + "\r\n";
    WriteRegistry(s);
  }
  static std::string Rel(int iLog, const std::string& sRest) {
    return "drive_d/Kestrane/Logger" + std::to_string(iLog) + "/" + sRest;
  }
  // An hour folder "yyyymmdd/HH00" with its info file.
  void Hour(int iLog, const std::string& sHour, const std::string& sContent) {
    WriteFile(Rel(iLog, sHour + "/" + sHour.substr(9, 2) + "0000.inf"), sContent);
  }
  std::string InfPath(int iLog, const std::string& sHour) const {
    return PathIn(Rel(iLog, sHour + "/" + sHour.substr(9, 2) + "0000.inf"));
  }

  // Loads the logger list and runs the preparation tick by tick to its end, as the
  // timer would. Returns the number of ticks.
  int Prepare(int iMaxTicks = 100000) {
    LogList().LoadLogs(sLogListLoc);
    if (!m_pForm) {
      m_pForm = std::make_unique<frmProcessLogs>();
      m_pForm->SetView(&m_oView);
    }
    m_pForm->tmrPrepareLists().start();
    int iTicks = 0;
    while (m_pForm->tmrPrepareLists().isActive() && iTicks < iMaxTicks) {
      m_pForm->tmrPrepareLists_Timer();
      ++iTicks;
    }
    EXPECT_FALSE(m_pForm->tmrPrepareLists().isActive()) << "the scan did not finish";
    return iTicks;
  }

  // The rows in order and in full: cells, key and item.
  void ExpectRows(const std::vector<Expected>& aRows) {
    std::string sExpected;
    for (const Expected& x : aRows)
      sExpected += x.sLog + " | " + x.sHour.substr(0, 4) + "-" + x.sHour.substr(4, 2) + "-" + x.sHour.substr(6, 2) +
                   " " + x.sHour.substr(9, 2) + ":00 | " + x.sActionTime + " | " + x.sAction + " | " + x.sEfficiency +
                   "\n";
    ASSERT_EQ(Dump(), sExpected);
    for (size_t i = 0; i < aRows.size(); ++i) {
      const Expected& x = aRows[i];
      const WorkListRow& r = m_pForm->Rows().Row(static_cast<int>(i) + 1);
      SCOPED_TRACE("row " + std::to_string(i + 1) + " " + x.sHour);
      int iLog = 1;
      while (iLog < LogList().Count() && LogList().Log(iLog)->Name() != x.sLog) ++iLog;
      const int32_t lDay = VbDate::DateSerial(std::stoi(x.sHour.substr(0, 4)), std::stoi(x.sHour.substr(4, 2)),
                                              std::stoi(x.sHour.substr(6, 2)));
      const int iHour = std::stoi(x.sHour.substr(9, 2));
      EXPECT_EQ(r.sKey, x.sLog + std::to_string(lDay) + std::to_string(iHour) + "0" + InfPath(iLog, x.sHour));
      if (x.sEfficiency.empty()) {
        EXPECT_FALSE(r.pTag) << "a half-filled row has no item";
        continue;
      }
      EXPECT_EQ(r.SubItem(WorkListRow::kLogTimeSerial), std::to_string(iHour * 3600));
      ASSERT_TRUE(r.pTag);
      EXPECT_EQ(r.pTag->Reference(), r.sKey);
      EXPECT_EQ(r.pTag->Action(), x.sAction == "Delete"    ? actDelete
                                  : x.sAction == "Archive" ? actArchive
                                                           : actStandardise);
      EXPECT_EQ(r.pTag->Log(), LogList().Log(iLog));
    }
  }
  // The rows as "log | log time | action time | action | efficiency".
  std::string Dump() const {
    std::string s;
    for (int i = 1; i <= m_pForm->Rows().Count(); ++i) {
      const WorkListRow& r = m_pForm->Rows().Row(i);
      s += r.sText + " | " + r.SubItem(1) + " | " + r.SubItem(2) + " | " + r.SubItem(3) + " | " + r.SubItem(4) + "\n";
    }
    return s;
  }
  // Every file and folder below drive_d (hour logs left out): a file with its bytes and
  // modification time, a folder by its presence (the new hour log changes its time).
  std::map<std::string, std::string> Snapshot() const {
    std::map<std::string, std::string> m;
    for (const auto& e : fs::recursive_directory_iterator(PathIn("drive_d"))) {
      const std::string p = e.path().string();
      if (p.size() > 4 && p.substr(p.size() - 4) == ".LOG") continue;
      struct stat st {};
      ::lstat(p.c_str(), &st);
      std::string sInfo = std::to_string(st.st_mode);
      if (e.is_regular_file())
        sInfo += " " + std::to_string(st.st_mtim.tv_sec) + "." + std::to_string(st.st_mtim.tv_nsec) + "\n" +
                 proctest::ReadBytes(p);
      m[p] = sInfo;
    }
    return m;
  }

  CountingView m_oView;
};

// Logger "Studio One" has two output formats, WAV in every period, per second of audio:
//   A: capture 44100 Hz stereo PCM 176400 B, standard 22050 Hz mono PCM 44100 B,
//      archive 22050 Hz mono IMA ADPCM 11025 B;
//   B: capture 32000 Hz stereo PCM 128000 B, standard 32000 Hz stereo IMA 32000 B,
//      archive 11025 Hz mono IMA 5512.5 B.
// So S0 = 304400, S1 = 76100, S2 = 16537.5 (times 3600) and
//   Standardise            (S0 - S1) / S0 = 75 %          -> P075
//   Archive, standardised  (S1 - S2) / S0 = 19.567 %      -> P020
//   Archive, from capture  (S0 - S2) / S0 = 94.567 %      -> P095
// Logger "Studio Two" has one format: 64000 B, 56000 B, 192000 B a second:
//   Standardise            8000 / 64000 = 12.5 %          -> P012 (half to even)
//   Archive, standardised  -136000 / 64000 = -212.5 %     -> N212 (half to even)
//   Archive, from capture  -128000 / 64000 = -200 %       -> N200
class PrepareTreeTest : public PrepareTest {
 protected:
  void SetUp() override {
    PrepareTest::SetUp();
    Loggers({Settings("Studio One", {{Wav{44100, 2, 1}, Wav{22050, 1, 1}, Wav{22050, 1, 17}},
                                     {Wav{32000, 2, 1}, Wav{32000, 2, 17}, Wav{11025, 1, 17}}}),
             Settings("Studio Two", {{Wav{32000, 1, 1}, Wav{28000, 1, 1}, Wav{48000, 2, 1}}})});
    // Now is Monday 2026-11-23 10:05.
    Hour(1, "20261120/0100", Inf(kFuture, kFuture, "20261122 0100"));                   // delete point passed
    Hour(1, "20261120/0200", Inf(kFuture, kFuture, "-1"));                              // delete at once
    Hour(1, "20261120/0300", Inf("-1", "2026-11-22 03:00", kFuture));                   // archive, standardised
    Hour(1, "20261120/0400", Inf("2026-11-21 04:00", "2026/11/22 04:00:30", kFuture));  // archive from capture
    Hour(1, "20261120/0500", Inf("2026-11-21 05:00", kFuture, kFuture));                // standardise
    Hour(1, "20261120/0600", Inf(kFuture, kFuture, kFuture));                           // nothing due
    WriteFile(Rel(1, "20261120/0700/070000A.wav"), "RIFF");                             // no info file
    Hour(1, "20261120/0800", Inf("-1", "-1", "soon"));                                  // unparseable: never due
    Hour(1, "20261120/0900", Inf(kFuture, kFuture, nullptr));                           // no delete point: delete
    Hour(1, "20261120/1000", Inf("-1", "-1", kFuture));                                 // all done, delete later
    Hour(1, "20261120/1100", Inf("2026-11-23 10:00", kFuture, "2026-11-23 11:00"));     // due this hour
    WriteFile(Rel(1, "20261120/notes.txt"), "stray");
    Hour(1, "20261121/1300", Inf("20261122 1300", kFuture, kFuture));  // standardise
    Hour(1, "backup/1300", Inf(kFuture, kFuture, "-1"));               // not a day folder
    WriteFile(Rel(1, "20261122"), "a file with a day's name");
    fs::create_directories(PathIn(Rel(1, "20261123/1000")));  // the present hour
    Hour(2, "20261120/0100", Inf("2026-11-22 01:00", kFuture, kFuture));
    Hour(2, "20261120/0200", Inf("-1", "2026-11-22 02:00", kFuture));
    Hour(2, "20261120/0300", Inf("2026-11-22 03:00", "2026-11-22 03:00", kFuture));
    fs::create_directories(PathIn(Rel(2, "20261123/1000")));
  }

  const std::vector<Expected> m_aExpected = {
      {"Studio One", "20261120/0100", "2026-11-22 01:00", "Delete", "P100"},
      {"Studio One", "20261120/0200", "-1", "Delete", "P100"},
      {"Studio One", "20261120/0900", "-1", "Delete", "P100"},
      {"Studio One", "20261120/0400", "2026-11-22 04:00", "Archive", "P095"},
      {"Studio One", "20261120/0500", "2026-11-21 05:00", "Standardise", "P075"},
      {"Studio One", "20261120/1100", "2026-11-23 10:00", "Standardise", "P075"},
      {"Studio One", "20261121/1300", "2026-11-22 13:00", "Standardise", "P075"},
      {"Studio One", "20261120/0300", "2026-11-22 03:00", "Archive", "P020"},
      {"Studio Two", "20261120/0100", "2026-11-22 01:00", "Standardise", "P012"},
      {"Studio Two", "20261120/0200", "2026-11-22 02:00", "Archive", "N212"},
      {"Studio Two", "20261120/0300", "2026-11-22 03:00", "Archive", "N200"},
  };
};

TEST_F(PrepareTreeTest, GivesTheDueHoursSortedByEfficiencyAndChangesNoFile) {
  const auto aBefore = Snapshot();
  Prepare();
  ExpectRows(m_aExpected);
  EXPECT_EQ(m_pForm->Rows().Selected(), 1);
  EXPECT_EQ(Snapshot(), aBefore);
  // The end of the scan is told in the hour log of the last logger only.
  const std::string sLog = ReadFile(Rel(2, "20261123/1000/100000.LOG"));
  EXPECT_EQ(sLog, "10:05:00 Finished Preparing Delete/Archive lists\r\n");
  EXPECT_FALSE(fs::exists(PathIn(Rel(1, "20261123/1000/100000.LOG"))));
  EXPECT_TRUE(Heard().empty());
  EXPECT_GE(m_oView.iRowsChanged, 2);
  ASSERT_FALSE(m_oView.Captions.empty());
  EXPECT_EQ(m_oView.Captions.front(), "Preparing Lists ...");
  EXPECT_EQ(m_pForm->CurrentFileCaption(), "Preparing Lists... Friday, 20 November 2026 03:00:00");
  EXPECT_EQ(m_pForm->LastActive(), Clock::Now());
  const std::string sTrace = Trace();
  EXPECT_NE(sTrace.find("Finished Preparing Lists.  Enabled Process Timer"), std::string::npos);
  EXPECT_EQ(sTrace.find("ERROR"), std::string::npos);
}

TEST_F(PrepareTreeTest, OneEntryATickOnlyTakesMoreTicks) {
  const int iTicksAtSix = Prepare();
  ExpectRows(m_aExpected);
  Loggers({ReadFile(Rel(1, "Kestrane.ini")), ReadFile(Rel(2, "Kestrane.ini"))}, 1);
  const int iTicksAtOne = Prepare();
  ExpectRows(m_aExpected);
  // A tick for each entry of a logger's folder that is no day, for each entry of a day
  // (dot entries included) and the end of that day's search, and one for the end of the
  // logger's folder. Logger 1: ".", "..", a file named like a day, "backup" and the
  // settings file; days of 14, 3 and 3 entries. Logger 2: ".", "..", the settings file;
  // days of 5 and 3 entries.
  EXPECT_EQ(iTicksAtOne, (5 + 15 + 4 + 4 + 1) + (3 + 6 + 4 + 1)) << "ticks at six: " << iTicksAtSix;
  EXPECT_LT(iTicksAtSix, iTicksAtOne);
}

TEST_F(PrepareTreeTest, ANewCycleStartsAfreshOnTheSortedList) {
  Prepare();
  ASSERT_EQ(m_pForm->Rows().Count(), static_cast<int>(m_aExpected.size()));
  // Meanwhile an hour was archived and another became due for deletion.
  WriteFile(Rel(1, "20261120/0400/040000.inf"), Inf("-1", "-1", kFuture));
  WriteFile(Rel(2, "20261120/0300/030000.inf"), Inf("-1", "-1", "-1"));
  Prepare();
  std::vector<Expected> a = m_aExpected;
  a.erase(a.begin() + 3);  // 0400 of Studio One is done
  a.pop_back();            // 0300 of Studio Two is now a Delete, after the other P100 rows
  a.insert(a.begin() + 3, {"Studio Two", "20261120/0300", "-1", "Delete", "P100"});
  ExpectRows(a);
}

TEST_F(PrepareTest, EmptyAndMissingTreesFinishWithNoRows) {
  Loggers({Plain("Studio One"), Plain("Studio Two")});
  fs::remove(PathIn(Rel(2, "Kestrane.ini")));
  LogList().LoadLogs(sLogListLoc);
  ASSERT_EQ(LogList().Count(), 1);
  // Logger 2 isn't loaded; logger 1 has only its settings file, then its folder goes.
  EXPECT_LE(Prepare(), 2);
  EXPECT_EQ(m_pForm->Rows().Count(), 0);
  EXPECT_EQ(m_pForm->Rows().Selected(), 0);
  fs::remove_all(PathIn(Rel(1, "")));
  m_pForm->tmrPrepareLists().start();
  m_pForm->tmrPrepareLists_Timer();
  EXPECT_FALSE(m_pForm->tmrPrepareLists().isActive());
  EXPECT_EQ(m_pForm->Rows().Count(), 0);
}

// Info files of any content: each yields what its keys say, and nothing stops the walk.
TEST_F(PrepareTest, OddInfoFilesYieldWhatTheirKeysSay) {
  Loggers({Plain("Studio One")});
  std::string sNoise;
  uint32_t x = 2024;
  for (int i = 0; i < 8192; ++i) {
    x = x * 1664525u + 1013904223u;
    sNoise += static_cast<char>(x >> 24);
  }
  std::string sBig = "[ActionDates]\r\n";
  for (int i = 0; i < 10000; ++i) sBig += "Note" + std::to_string(i) + "=2026-11-01 00:00\r\n";
  sBig += "StandardAudioAt=2026-11-22 03:00\r\nDeleteAudioAt=" + std::string(kFuture) + "\r\nArchiveAudioAt=-1\r\n";
  Hour(1, "20261120/0100", sNoise);                                        // no hour info: skipped
  Hour(1, "20261120/0200", "");                                            // empty: skipped
  Hour(1, "20261120/0300", sBig);                                          // standardise
  Hour(1, "20261120/0400", Inf("yesterday", "2026-02-30 01:00", "soon"));  // nothing parses: never due
  Hour(1, "20261120/0500", Inf("-1", "-1", "2026-11-23 10:00"));           // delete point this hour
  Prepare();
  ExpectRows({{"Studio One", "20261120/0500", "2026-11-23 10:00", "Delete", "P100"},
              {"Studio One", "20261120/0300", "2026-11-22 03:00", "Standardise", "P075"}});
  // Read as empty, those two would have been deleted: they are reported instead.
  const auto aHeard = Heard();
  ASSERT_EQ(aHeard.size(), 2u);
  EXPECT_NE(aHeard[0].find("PrepareListError:Cannot read the hour info file: it holds"), std::string::npos)
      << aHeard[0];
  EXPECT_NE(aHeard[0].find("File = 0100;"), std::string::npos) << aHeard[0];
  EXPECT_NE(aHeard[1].find("PrepareListError:Cannot read the hour info file: it is empty"), std::string::npos)
      << aHeard[1];
}

TEST_F(PrepareTest, UnreadableInfoFileIsReportedAndSkipped) {
  Loggers({Plain("Studio One")});
  Hour(1, "20261120/0100", Inf("-1", "-1", "-1"));
  Hour(1, "20261120/0200", Inf("-1", "-1", kFuture));
  Hour(1, "20261120/0300", Inf("-1", "-1", "-1"));
  Faults::Arm("inf.read", EIO, 1, 1);  // the second info file read fails
  Prepare();
  ExpectRows({{"Studio One", "20261120/0100", "-1", "Delete", "P100"},
              {"Studio One", "20261120/0300", "-1", "Delete", "P100"}});
  const std::string sError = fmt::format(
      "Cannot read the hour info file: Input/output error ({}).  Current info: File = 0200; Folder = 20261120",
      CHourlyInf::kErrInfUnreadable);
  EXPECT_EQ(Heard(), std::vector<std::string>{"PrepareListError:" + sError});
  EXPECT_NE(Trace().find("tmrPrepareLists_Timer: ERROR: " + sError), std::string::npos);
}

TEST_F(PrepareTest, AnUnlistableDayAndLinksOutOfTheTreeGiveNoRowsAndTheWalkGoesOn) {
  Loggers({Plain("Studio One")});
  Hour(1, "20261120/0100", Inf("-1", "-1", "-1"));
  Hour(1, "20261121/0100", Inf("-1", "-1", "-1"));
  // Links to folders outside the tree, named as an hour and as a day, lead to hours that
  // are no hours of this logger.
  WriteFile("outside/0200/020000.inf", Inf("-1", "-1", "-1"));
  fs::create_symlink(PathIn("outside/0200"), PathIn(Rel(1, "20261121/0200")));
  fs::create_symlink(PathIn("outside"), PathIn(Rel(1, "20261122")));
  Faults::Arm("folder.list", EIO, 1, 1);  // the logger folder is read, the first day isn't
  testing::internal::CaptureStderr();
  Prepare();
  const std::string sErr = testing::internal::GetCapturedStderr();
  ExpectRows({{"Studio One", "20261121/0100", "-1", "Delete", "P100"}});
  const std::vector<std::string> aHeard = Heard();
  ASSERT_EQ(aHeard.size(), 1u);
  EXPECT_EQ(aHeard[0].rfind("PrepareListError:Cannot list the day folder: ", 0), 0u) << aHeard[0];
  EXPECT_NE(aHeard[0].find("; Folder = 20261120"), std::string::npos) << aHeard[0];
  EXPECT_NE(sErr.find("<3>knlogproc: cannot list the day folder " + PathIn(Rel(1, "20261120"))), std::string::npos)
      << sErr;
}

TEST_F(PrepareTest, FailureInAnHourDropsTheRestOfThatLoggerOnly) {
  Loggers({Plain("Studio One"), Plain("Studio Two")});
  Hour(1, "20261120/0100", Inf("-1", "-1", "-1"));
  WriteFile(Rel(1, "20261120/abcd/abcd00.inf"), Inf("-1", "-1", "-1"));  // names no hour
  Hour(1, "20261121/0100", Inf("-1", "-1", "-1"));                       // not reached this cycle
  Hour(2, "20261120/0100", Inf("-1", "-1", "-1"));
  Prepare();
  ExpectRows({{"Studio One", "20261120/0100", "-1", "Delete", "P100"},
              {"Studio Two", "20261120/0100", "-1", "Delete", "P100"}});
  EXPECT_TRUE(Heard().empty());
  EXPECT_EQ(ReadFile(Rel(2, "20261120/0100/010000.inf")), Inf("-1", "-1", "-1"));
}

// A logger whose capture format has no size: its efficiency can't be computed. The row
// stays half-filled without its item, and the rest of the logger waits for the next cycle.
TEST_F(PrepareTest, CaptureFormatWithoutSizeLeavesAHalfRow) {
  Loggers({Settings("Studio Three", {{Wav{0, 0, 0}, Wav{0, 0, 0}, Wav{0, 0, 0}}}, -1)});
  Hour(1, "20261120/0100", Inf("-1", "-1", "-1"));
  Hour(1, "20261120/0200", Inf("2026-11-22 02:00", kFuture, kFuture));
  Hour(1, "20261120/0300", Inf("-1", "-1", "-1"));
  Prepare();
  ExpectRows({{"Studio Three", "20261120/0100", "-1", "Delete", "P100"},
              {"Studio Three", "20261120/0200", "2026-11-22 02:00", "Standardise", ""}});
}
