#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <string>

#include "common/TestUtil.h"
#include "config/ConfigTestUtil.h"
#include "hours/CHourlyInf.h"
#include "support/CNVErr.h"
#include "support/Faults.h"
#include "support/VbDate.h"

namespace {
constexpr int32_t k14March2010 = 40251;

void ExpectPoint(const std::shared_ptr<LogInfo>& p, int32_t lDate, int16_t iHour, int16_t iSegment,
                 const std::string& sWhat) {
  ASSERT_TRUE(p) << sWhat;
  EXPECT_EQ(std::tuple(p->Date, p->Hour, p->Segment), std::tuple(lDate, iHour, iSegment)) << sWhat;
}
}  // namespace

// ---- Action point texts.

class PointTextTest : public ConfigTest {};

TEST_F(PointTextTest, AllWrittenFormsOfOneMomentReadAlike) {
  for (const char* s : {"2010-03-14 13:00", "20100314 1300", "2010/03/14 13:00:59", "2010-03-14-13", "2010 03 14 13",
                        "201003141359trailing"})
    ExpectPoint(CHourlyInf::ParsePoint(s), k14March2010, 13, 0, s);
}

// The mark reads as the date -1 and writes back as "-1"; a point is written separated,
// with a two-digit hour and zero minutes.
TEST_F(PointTextTest, MarkAndPointsWriteBackAsRead) {
  ExpectPoint(CHourlyInf::ParsePoint("-1"), -1, -1, -1, "-1");
  EXPECT_EQ(CHourlyInf::FormatPoint(CHourlyInf::ParsePoint("-1")), "-1");
  EXPECT_EQ(CHourlyInf::FormatPoint(std::shared_ptr<LogInfo>()), "-1");
  // The mark is the date alone: an hour beside it doesn't make it a date.
  LogInfo oMarked(-1, 13, 0), o(k14March2010, 7, 5);
  EXPECT_EQ(CHourlyInf::FormatPoint(&oMarked), "-1");
  EXPECT_EQ(CHourlyInf::FormatPoint(&o), "2010-03-14 07:00");
  for (const char* s : {"2026-12-31 23:00", "2012-02-29 05:00", "1900-01-01 00:00", "9999-12-31 23:00"})
    EXPECT_EQ(CHourlyInf::FormatPoint(CHourlyInf::ParsePoint(s)), s);
}

TEST_F(PointTextTest, TextThatIsNoDateAndHourIsNeverDueAndTraced) {
  for (const char* s :
       {"", "abc", "-01", "2010031", "201003141", "20100230 13", "20110229 01", "20101314 10", "20100014 10",
        "20100300 10", "20100314 24", "18991229 00", "2010-03-14 1x:00", "+2010031413", "2010\t03\t14\t13"}) {
    ExpectPoint(CHourlyInf::ParsePoint(s), 0, 0, 0, std::string("\"") + s + "\"");
  }
  EXPECT_NE(Trace().find("not a valid action point: \"20100230 13\""), std::string::npos);
}

// ---- The file.

class HourlyInfTest : public ConfigTest {
 protected:
  void TearDown() override {
    Faults::DisarmAll();
    ConfigTest::TearDown();
  }
  std::string Inf(const std::string& sContent, const std::string& sRel = "L/20100314/1300/130000.inf") {
    WriteFile(sRel, sContent);
    return PathIn(sRel);
  }
  // Loading sPath raises "unreadable" with sWhy in its description, and no point of it
  // reaches o.
  static void ExpectRefused(CHourlyInf& o, const std::string& sPath, const std::string& sWhy) {
    std::string sDescription;
    EXPECT_EQ(ErrorOf([&] { o.FileName(sPath); }, &sDescription), CHourlyInf::kErrInfUnreadable) << sWhy;
    EXPECT_NE(sDescription.find(sWhy), std::string::npos) << sDescription;
    EXPECT_FALSE(o.DeletePoint());
  }
};

TEST_F(HourlyInfTest, ReadsEveryKeyInEitherSpellingOfTheSection) {
  for (const char* sSection : {"ActionDates", "Actiondates", "ACTIONDATES"}) {
    CHourlyInf o;
    o.FileName(Inf(std::string("[General]\r\nVersion=3.7\r\n[Segments]\r\nNumSegs=120\r\n[") + sSection +
                   "]\r\nStandardAudioAt=20100316 1300\r\nArchiveAudioAt=2010-03-28 13:00\r\nDeleteAudioAt=-1\r\n"
                   "DeleteAudioAt=20300101 0000\r\n"));
    EXPECT_EQ(o.Version(), "3.7");
    EXPECT_EQ(o.SegmentsInHour(), 120);
    EXPECT_EQ(o.LogSegmentLength(), 30);
    ExpectPoint(o.StandardPoint(), k14March2010 + 2, 13, 0, sSection);
    ExpectPoint(o.ArchivePoint(), k14March2010 + 14, 13, 0, sSection);
    ExpectPoint(o.DeletePoint(), -1, -1, -1, sSection);  // the first of two equal keys
  }
}

// A missing delete point is the mark (the hour is to be deleted at once), an empty or
// garbled one is never due; no segment count means 60, a count of 0 one whole-hour segment.
TEST_F(HourlyInfTest, MissingKeysTakeTheirDefaults) {
  CHourlyInf o;
  o.FileName(Inf("[ActionDates]\nStandardAudioAt=2010-03-15 13:00\n"));
  EXPECT_EQ(o.Version(), CHourlyInf::kProgramVersion);
  EXPECT_EQ(o.SegmentsInHour(), 60);
  EXPECT_EQ(o.LogSegmentLength(), 60);
  ExpectPoint(o.StandardPoint(), k14March2010 + 1, 13, 0, "standard");
  ExpectPoint(o.ArchivePoint(), -1, -1, -1, "archive");
  ExpectPoint(o.DeletePoint(), -1, -1, -1, "delete");

  o.FileName(Inf("[ActionDates]\nDeleteAudioAt=\nArchiveAudioAt=soon\n[Segments]\nNumSegs=0\n"));
  ExpectPoint(o.DeletePoint(), 0, 0, 0, "empty delete point");
  ExpectPoint(o.ArchivePoint(), 0, 0, 0, "garbage archive point");
  EXPECT_EQ(o.SegmentsInHour(), 0);
  EXPECT_EQ(o.LogSegmentLength(), 3600);
}

TEST_F(HourlyInfTest, AbsentFileKeepsTheObjectAndSaveCreatesIt) {
  CHourlyInf o;
  const std::string sPath = PathIn("L/20100314/1300/130000.inf");
  std::filesystem::create_directories(PathIn("L/20100314/1300"));
  o.FileName(sPath);
  EXPECT_EQ(o.SegmentsInHour(), 60);
  EXPECT_FALSE(o.StandardPoint());
  EXPECT_FALSE(o.ArchivePoint());
  EXPECT_FALSE(o.DeletePoint());
  ASSERT_TRUE(o.Save());
  const std::string sText = ReadFile("L/20100314/1300/130000.inf");
  for (const char* s : {"[General]", "Version=4.0", "StandardAudioAt=-1", "ArchiveAudioAt=-1", "DeleteAudioAt=-1",
                        "[Segments]", "NumSegs=60"})
    EXPECT_NE(sText.find(s), std::string::npos) << s << " in\n" << sText;
  CHourlyInf oBack;
  oBack.FileName(sPath);
  ExpectPoint(oBack.DeletePoint(), -1, -1, -1, "saved delete point");
}

TEST_F(HourlyInfTest, SaveWritesSeparatedFormAndKeepsForeignLines) {
  const std::string sPath =
      Inf("; written by capture\r\n[General]\r\nVersion=3.2\r\nRecorder=Studio 4\r\n[ActionDates]\r\n"
          "StandardAudioAt=20100316 1300\r\nArchiveAudioAt=20100328 1300\r\nDeleteAudioAt=20100414 1300\r\n"
          "[Segments]\r\nNumSegs=60\r\n[Extra]\r\nA=1\r\n");
  CHourlyInf o;
  o.FileName(sPath);
  ASSERT_TRUE(o.Save());
  const std::string sText = ReadFile("L/20100314/1300/130000.inf");
  for (const char* s : {"; written by capture", "Recorder=Studio 4", "[Extra]\r\nA=1", "Version=3.2",
                        "StandardAudioAt=2010-03-16 13:00", "DeleteAudioAt=2010-04-14 13:00"})
    EXPECT_NE(sText.find(s), std::string::npos) << s << " in\n" << sText;
  EXPECT_EQ(sText.find("20100316 1300"), std::string::npos);
  EXPECT_EQ(sText.find("[Actiondates]"), std::string::npos) << "one section, not two";
  CHourlyInf oBack;
  oBack.FileName(sPath);
  EXPECT_EQ(*oBack.StandardPoint(), *o.StandardPoint());
  EXPECT_EQ(*oBack.ArchivePoint(), *o.ArchivePoint());
  EXPECT_EQ(*oBack.DeletePoint(), *o.DeletePoint());
}

// The hour processing marks a finished step through the point it was handed; the save
// writes what memory holds, or, when it fails, leaves the file as it was.
TEST_F(HourlyInfTest, PointsAreHandedOutByReferenceAndSavedFromMemory) {
  const std::string sBefore = "[ActionDates]\r\nStandardAudioAt=20100316 1300\r\nDeleteAudioAt=20100414 1300\r\n";
  const std::string sPath = Inf(sBefore);
  CHourlyInf o;
  o.FileName(sPath);
  o.StandardPoint()->Date = -1;
  Faults::Arm("profile.write", ENOSPC);
  EXPECT_FALSE(o.Save());
  Faults::DisarmAll();
  EXPECT_EQ(ReadFile("L/20100314/1300/130000.inf"), sBefore);
  ASSERT_TRUE(o.Save());
  CHourlyInf oBack;
  oBack.FileName(sPath);
  ExpectPoint(oBack.StandardPoint(), -1, -1, -1, "marked standard point");
  ExpectPoint(oBack.DeletePoint(), k14March2010 + 31, 13, 0, "delete point untouched");
}

TEST_F(HourlyInfTest, UnreadableFileRaisesInsteadOfReadingAsEmpty) {
  const std::string sPath = Inf("[ActionDates]\nDeleteAudioAt=20300101 0000\n");
  for (int iErr : {EIO, EACCES}) {
    CHourlyInf o;
    Faults::Arm("inf.read", iErr, 0, 1);
    ExpectRefused(o, sPath, std::strerror(iErr));
  }
  // The next read works again.
  CHourlyInf o;
  o.FileName(sPath);
  ExpectPoint(o.DeletePoint(), VbDate::DateSerial(2030, 1, 1), 0, 0, "after the fault");
}

// A folder of the name is no info file; a pipe is one that can't be read: it is refused
// at once (never opened for a read that waits for a writer), as the probe lets the read
// decide.
TEST_F(HourlyInfTest, FolderCountsAsNoFileAndPipeIsRefusedWithoutBlocking) {
  std::filesystem::create_directories(PathIn("L/20100314/1300/130000.inf"));
  CHourlyInf o;
  CHourlyInf::FileStamp oStamp;
  EXPECT_EQ(CHourlyInf::ProbeFile(PathIn("L/20100314/1300/130000.inf"), oStamp), ENOENT);
  EXPECT_NO_THROW(o.FileName(PathIn("L/20100314/1300/130000.inf")));
  EXPECT_FALSE(o.DeletePoint());
  const std::string sFifo = PathIn("L/20100314/1400/140000.inf");
  std::filesystem::create_directories(PathIn("L/20100314/1400"));
  ASSERT_EQ(::mkfifo(sFifo.c_str(), 0600), 0);
  EXPECT_EQ(CHourlyInf::ProbeFile(sFifo, oStamp), 0);
  ExpectRefused(o, sFifo, "not a regular file");
}

// Files a recorder leaves when it loses power while writing, or that some other program
// put there: read as empty, their missing delete point would delete the hour at once.
TEST_F(HourlyInfTest, FilesWithoutHourInfoAreRefusedNeverReadAsDeleteNow) {
  const std::string sDates = "[ActionDates]\r\nDeleteAudioAt=20300101 0000\r\n";
  const struct {
    std::string sBytes;
    const char* sWhy;
  } aCases[] = {
      {"", "empty"},
      {" \r\n\t\r\n", "empty"},
      {"\xEF\xBB\xBF", "empty"},
      {"\xFF\xFE", "empty"},
      {std::string(4096, '\0'), "NUL"},
      {sDates + std::string("\0\0\0", 3), "NUL"},
      {"[ActionDates]\r\nDeleteAudioAt=2030\x01"
       "0101 0000\r\n",
       "control character 0x01"},
      {"[General]\r\nVersion=4.0\r\n[Segments]\r\nNumSegs=60\r\n", "no [ActionDates] section"},
      {"ActionDates\r\nDeleteAudioAt=20300101 0000\r\n", "no [ActionDates] section"},
      {std::string("\xFF\xFE[\0A", 5), "malformed UTF-16"},           // odd length
      {std::string("\xFE\xFF\xD8\x00\x00[", 6), "malformed UTF-16"},  // high surrogate alone
  };
  for (const auto& c : aCases) {
    SCOPED_TRACE(c.sWhy);
    CHourlyInf o;
    ExpectRefused(o, Inf(c.sBytes), c.sWhy);
  }
  // Tabs, 0x1A and a real section with keys missing stay readable.
  CHourlyInf o;
  o.FileName(Inf("\t[ActionDates]\t\r\n\x1A"));
  ExpectPoint(o.DeletePoint(), -1, -1, -1, "section without keys");
}

// A file saved as "Unicode" by a Windows editor, either byte order: read as its text, and
// saved back in its own encoding.
TEST_F(HourlyInfTest, Utf16FilesReadAndSaveInTheirOwnEncoding) {
  // "~" stands for "\u00E9", which the encoding below writes as one unit.
  const std::string sText =
      "[General]\r\nVersion=3.9\r\n[ActionDates]\r\nStandardAudioAt=-1\r\nArchiveAudioAt=2010-03-28 13:00\r\n"
      "DeleteAudioAt=20300101 0000\r\n; Studio ~t~\r\n";
  std::string sLe = "\xFF\xFE";
  for (char c : sText) sLe += c == '~' ? std::string("\xE9\0", 2) : std::string{c, '\0'};
  std::string sBe = "\xFE\xFF";
  for (size_t i = 2; i + 1 < sLe.size(); i += 2) sBe += std::string{sLe[i + 1], sLe[i]};
  for (const auto& [sName, sBytes] : {std::pair{"LE", sLe}, std::pair{"BE", sBe}}) {
    SCOPED_TRACE(sName);
    const std::string sPath = Inf(sBytes);
    CHourlyInf o;
    o.FileName(sPath);
    EXPECT_EQ(o.Version(), "3.9");
    ExpectPoint(o.StandardPoint(), -1, -1, -1, "standard");
    ExpectPoint(o.ArchivePoint(), k14March2010 + 14, 13, 0, "archive");
    ExpectPoint(o.DeletePoint(), VbDate::DateSerial(2030, 1, 1), 0, 0, "delete");

    o.ArchivePoint()->SetEmpty();
    ASSERT_TRUE(o.Save());
    const std::string sSaved = ReadFile("L/20100314/1300/130000.inf");
    ASSERT_GE(sSaved.size(), 2u);
    EXPECT_EQ(sSaved.substr(0, 2), sBytes.substr(0, 2));
    // Still whole UTF-16: the foreign comment and its accents survive, the new value is in.
    const std::string sWide = sName == std::string("LE") ? "A\0r\0c\0h\0" : "\0A\0r\0c\0h";
    EXPECT_NE(sSaved.find(sWide), std::string::npos);
    EXPECT_NE(sSaved.find(sName == std::string("LE") ? std::string("\xE9\0t\0", 4) : std::string("\0\xE9\0t", 4)),
              std::string::npos);
    CHourlyInf oBack;
    oBack.FileName(sPath);
    ExpectPoint(oBack.ArchivePoint(), -1, -1, -1, "archive after save");
    ExpectPoint(oBack.DeletePoint(), VbDate::DateSerial(2030, 1, 1), 0, 0, "delete after save");
  }
}

TEST_F(HourlyInfTest, CopyCarriesMemoryValuesInItsOwnPoints) {
  const std::string sPath = Inf("[General]\nVersion=3.9\n[ActionDates]\nArchiveAudioAt=20100328 1300\n");
  CHourlyInf o;
  o.FileName(sPath);
  o.SegmentsInHour(30);
  auto oCopy = o.Copy();
  EXPECT_EQ(oCopy->FileName(), sPath);
  EXPECT_EQ(oCopy->Version(), "3.9");
  EXPECT_EQ(oCopy->SegmentsInHour(), 30);
  ASSERT_TRUE(oCopy->ArchivePoint());
  EXPECT_NE(oCopy->ArchivePoint().get(), o.ArchivePoint().get());
  EXPECT_EQ(*oCopy->ArchivePoint(), *o.ArchivePoint());
  oCopy->ArchivePoint()->Date = -1;
  EXPECT_EQ(o.ArchivePoint()->Date, k14March2010 + 14);
}

// ---- The cache of what files held.

class HourlyInfCacheTest : public HourlyInfTest {
 protected:
  void SetUp() override {
    HourlyInfTest::SetUp();
    CHourlyInf::ClearCache();
    // A file counts as settled unless it was changed in this very second.
    CHourlyInf::SetCacheSettleSecondsForTesting(0);
  }
  void TearDown() override {
    CHourlyInf::SetCacheSettleSecondsForTesting(2);
    CHourlyInf::ClearCache();
    HourlyInfTest::TearDown();
  }
  // Waits into the next second, so that what was written is settled.
  static void NextSecond() {
    const time_t l = std::time(nullptr);
    while (std::time(nullptr) == l) ::usleep(10000);
  }
  // Back-dates the file, as an hour written long ago.
  void MakeOld(const std::string& sPath) {
    struct timespec ts[2] = {{1700000000, 0}, {1700000000, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, sPath.c_str(), ts, 0), 0);
  }
  // Loads the file with reading made to fail: true when the load was served without a
  // read.
  bool ServedWithoutRead(const std::string& sPath) {
    Faults::Arm("inf.read", EIO);
    CHourlyInf o;
    const bool bServed = ErrorOf([&] { o.FileName(sPath); }) == 0;
    Faults::DisarmAll();
    return bServed;
  }
};

TEST_F(HourlyInfCacheTest, OnlyAnUnchangedSettledFileIsServedWithoutARead) {
  const std::string sPath = Inf("[ActionDates]\nDeleteAudioAt=20300101 0500\n");
  CHourlyInf::SetCacheSettleSecondsForTesting(3600);
  CHourlyInf o;
  o.FileName(sPath);
  EXPECT_FALSE(ServedWithoutRead(sPath)) << "a file changed within the settle time is not kept";
  CHourlyInf::SetCacheSettleSecondsForTesting(0);
  MakeOld(sPath);
  NextSecond();
  o.FileName(sPath);
  CHourlyInf oAgain;
  Faults::Arm("inf.read", EIO);
  EXPECT_NO_THROW(oAgain.FileName(sPath));
  Faults::DisarmAll();
  ExpectPoint(oAgain.DeletePoint(), VbDate::DateSerial(2030, 1, 1), 5, 0, "from the cache");
  EXPECT_NE(oAgain.DeletePoint().get(), o.DeletePoint().get()) << "each load hands out its own points";
  // The same size and modification time, other content: the change time tells.
  WriteFile("L/20100314/1300/130000.inf", "[ActionDates]\nDeleteAudioAt=20300101 0600\n");
  MakeOld(sPath);
  CHourlyInf oNew;
  oNew.FileName(sPath);
  ExpectPoint(oNew.DeletePoint(), VbDate::DateSerial(2030, 1, 1), 6, 0, "after the change");
  // Permissions taken away: read again, and the failure is seen.
  ASSERT_EQ(::chmod(sPath.c_str(), 0), 0);
  EXPECT_FALSE(ServedWithoutRead(sPath));
}

TEST_F(HourlyInfCacheTest, APassDropsWhatThePreviousPassDidNotLoad) {
  const std::string sKept = Inf("[ActionDates]\nDeleteAudioAt=-1\n", "L/20100314/1300/130000.inf");
  const std::string sGone = Inf("[ActionDates]\nDeleteAudioAt=-1\n", "L/20100314/1400/140000.inf");
  MakeOld(sKept);
  MakeOld(sGone);
  NextSecond();
  CHourlyInf o;
  o.FileName(sKept);
  o.FileName(sGone);
  CHourlyInf::StartCachePass();
  o.FileName(sKept);  // loaded in this pass
  CHourlyInf::StartCachePass();
  EXPECT_TRUE(ServedWithoutRead(sKept));
  EXPECT_FALSE(ServedWithoutRead(sGone));
}
