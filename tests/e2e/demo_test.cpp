// The demo of `make demo`, end to end: scripts/demo.sh makes its recorder, runs the
// processor once and prints its summary. The figures of the summary must agree with
// what this test finds on the disk by itself.
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>

#include "common/TempRoot.h"
#include "support/ConfigAccess.h"

namespace fs = std::filesystem;

namespace {

std::string Slurp(const fs::path& p) {
  std::ifstream f(p, std::ios::binary);
  std::stringstream ss;
  ss << f.rdbuf();
  return ss.str();
}

bool IsSegment(const std::string& s) { return std::regex_match(s, std::regex(R"(\d{6}[A-Za-z]\..+)")); }

// One line of summary.tsv.
struct Row {
  int iDue = 0, iDone = 0, iConverted = 0, iRemoved = 0;
  long long lBefore = 0, lAfter = 0;
};

// What the disk holds of one logger after the run.
struct Disk {
  long long lAudioBytes = 0;
  int iHours = 0;           // hour folders with their info file
  int iStandardMarked = 0;  // info files whose standard point is "-1"
  int iArchiveMarked = 0;
  std::map<std::string, int> mExtensions;  // audio files by extension
  int iImaWavs = 0;                        // WAV files with format tag 17
};

Disk Walk(const fs::path& logger) {
  Disk d;
  for (auto& day : fs::directory_iterator(logger)) {
    if (!day.is_directory()) continue;
    for (auto& hour : fs::directory_iterator(day.path())) {
      const std::string sHour = hour.path().filename().string();
      const fs::path inf = hour.path() / (sHour + "00.inf");
      if (fs::exists(inf)) {
        ++d.iHours;
        const std::string sInf = inf.string();
        d.iStandardMarked += ConfigAccess::GetProfileString("ActionDates", "StandardAudioAt", "", sInf) == "-1";
        d.iArchiveMarked += ConfigAccess::GetProfileString("ActionDates", "ArchiveAudioAt", "", sInf) == "-1";
      }
      for (auto& f : fs::directory_iterator(hour.path())) {
        const std::string sName = f.path().filename().string();
        if (!IsSegment(sName)) continue;
        d.lAudioBytes += static_cast<long long>(f.file_size());
        std::string sExt = f.path().extension().string();
        d.mExtensions[sExt]++;
        if (sExt == ".wav") {
          std::string sHead = Slurp(f.path()).substr(0, 22);
          if (sHead.size() == 22 && static_cast<unsigned char>(sHead[20]) == 17) d.iImaWavs++;
        }
      }
    }
  }
  return d;
}

}  // namespace

class DemoTest : public TempRootTest {};

TEST_F(DemoTest, SummaryOfTheDemoRunAgreesWithTheDisk) {
  const std::string sRoot = Root() + "/demo";
  const std::string sBuild = fs::path(KN_BIN_DIR).parent_path().string();
  std::string sOut;
  // The clock of every program starts at 10:20 on 14 March 2010, so that the recorder
  // and what falls due are known: the 13th whole and the 14th to 10:20, 35 hours.
  int rc = RunProgram("KN_DEMO_CLOCK='2010-03-14 10:20:00' KN_DEMO_SKIP_BUILD=1 KN_DEMO_SEGMENTS=2 KN_BUILD_DIR=" + Quote(sBuild) +
                          " KN_DEMO_ROOT=" + Quote(sRoot) + " bash " +
                          Quote(std::string(KN_SOURCE_DIR) + "/scripts/demo.sh"),
                      &sOut);
  ASSERT_EQ(rc, 0) << sOut;
  ASSERT_NE(sOut.find("What the run did"), std::string::npos) << sOut;
  EXPECT_NE(sOut.find("knlogproc ended with status 0"), std::string::npos) << sOut;
  EXPECT_NE(sOut.find("Debug file: " + sRoot + "/drive_c/DebugFiles/knlogproc."), std::string::npos) << sOut;

  // The recorder as made: hours and bytes of each logger, from kncapture-sim's own count.
  std::map<int, std::pair<int, long long>> mMade;
  std::smatch m;
  std::string sRest = sOut;
  const std::regex reMade(R"(Logger (\d) "[^"]*" at [^\n]*: (\d+) hours, \d+ files, (\d+) bytes)");
  while (std::regex_search(sRest, m, reMade)) {
    mMade[std::stoi(m[1])] = {std::stoi(m[2]), std::stoll(m[3])};
    sRest = m.suffix();
  }
  ASSERT_EQ(mMade.size(), 3u) << sOut;

  // The summary's figures.
  std::map<std::pair<int, std::string>, Row> mRows;
  std::istringstream tsv(Slurp(sRoot + "/summary.tsv"));
  std::string sLine;
  while (std::getline(tsv, sLine)) {
    std::istringstream ls(sLine);
    int iLog;
    std::string sAction;
    Row r;
    ls >> iLog >> sAction >> r.iDue >> r.iDone >> r.iConverted >> r.iRemoved >> r.lBefore >> r.lAfter;
    ASSERT_FALSE(ls.fail()) << sLine;
    mRows[{iLog, sAction}] = r;
  }
  ASSERT_EQ(mRows.size(), 9u);

  // Hours due by each logger's hours (standardise, archive, delete after 2,6,20; 3,9,22;
  // 4,12,23), and the files of an hour (two segments; logger 3 has two outputs).
  const std::map<int, std::array<int, 3>> mDue = {{1, {4, 14, 15}}, {2, {6, 13, 13}}, {3, {8, 11, 12}}};
  const std::map<int, int> mFilesAnHour = {{1, 2}, {2, 2}, {3, 4}};

  ConfigAccess::ClearCache();
  for (int n = 1; n <= 3; ++n) {
    SCOPED_TRACE("logger " + std::to_string(n));
    const Row& std = mRows[{n, "Standardise"}];
    const Row& arc = mRows[{n, "Archive"}];
    const Row& del = mRows[{n, "Delete"}];
    Disk d = Walk(sRoot + "/drive_d/Kestrane/Logger" + std::to_string(n));
    EXPECT_EQ(mMade[n].first, 35);
    // Every action fell due, and the one run did all that was due.
    EXPECT_EQ(std.iDue, mDue.at(n)[0]);
    EXPECT_EQ(arc.iDue, mDue.at(n)[1]);
    EXPECT_EQ(del.iDue, mDue.at(n)[2]);
    for (const Row* r : {&std, &arc, &del}) EXPECT_EQ(r->iDone, r->iDue);
    const int iFiles = mFilesAnHour.at(n);
    EXPECT_EQ(std.iConverted, std.iDone * iFiles);
    EXPECT_EQ(std.iRemoved, 0);
    // Logger 3's output B has no archive format: its files go when the hour is archived.
    EXPECT_EQ(arc.iConverted, arc.iDone * (n == 3 ? 2 : iFiles));
    EXPECT_EQ(arc.iRemoved, n == 3 ? arc.iDone * 2 : 0);
    EXPECT_EQ(del.iRemoved, del.iDone * iFiles);
    // Each conversion made the audio smaller.
    EXPECT_LT(std.lAfter, std.lBefore);
    EXPECT_LT(arc.lAfter, arc.lBefore);
    // The processor's lines are in the log of the present hour.
    const std::string sLog =
        Slurp(sRoot + "/drive_d/Kestrane/Logger" + std::to_string(n) + "/20100314/1000/100000.LOG");
    EXPECT_NE(sLog.find("Finished Archiving Audio"), std::string::npos) << sLog;
    EXPECT_NE(sOut.find("Hour log: " + sRoot + "/drive_d/Kestrane/Logger" + std::to_string(n) +
                        "/20100314/1000/100000.LOG"),
              std::string::npos);
    // Hours: those deleted are gone, those marked are marked on disk.
    EXPECT_EQ(d.iHours, mMade[n].first - del.iDone);
    EXPECT_EQ(d.iStandardMarked, std.iDone);
    EXPECT_EQ(d.iArchiveMarked, arc.iDone);
    // Bytes: what was made, less the space won, is what the disk holds now.
    long long lWon = (std.lBefore - std.lAfter) + (arc.lBefore - arc.lAfter) + (del.lBefore - del.lAfter);
    EXPECT_EQ(d.lAudioBytes, mMade[n].second - lWon);
    EXPECT_EQ(del.lAfter, 0);
    EXPECT_EQ(del.iConverted, 0);
    // Files converted show in their format on disk.
    int iInTargetFormat = n == 1   ? d.iImaWavs
                          : n == 2 ? d.mExtensions[".mp3"]
                                   : d.mExtensions[".ogg"] + d.mExtensions[".wma"] + d.iImaWavs;
    EXPECT_EQ(iInTargetFormat, std.iConverted + arc.iConverted);
  }
}
