// The processor run over loggers' trees while the machine itself fails: a drive that fills
// up, folders on a read-only mount, files and folders it has no right to, a registry on a
// full disk. After each fault every segment is there exactly once, whole; no settings,
// registry or hour info file is damaged; the operator is told what failed and why; and a
// later run with the fault gone finishes the job.
//
// The faults are real: a small tmpfs, read-only bind mounts, a run as "nobody". The tests
// need root and the right to mount; where the machine refuses they are skipped, and every
// mount is undone at the end of its test (and lives in a mount namespace of this process
// alone, where the machine allows one).
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "common/AudioCount.h"
#include "e2e/ProcessRun.h"

using namespace e2eproc;
using audiocount::CountFrames;
using proctest::IniValue;

namespace {
constexpr long kPage = 4096;

// Mounts made here stay in a mount namespace of this test process where possible, so
// that not even a crash of the test can leave one behind on the machine.
bool PrivateMounts() {
  static const bool s_bPrivate =
      unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
  return s_bPrivate;
}

std::string Why(int iErr) { return std::strerror(iErr); }

}  // namespace

class RealFaultTest : public ProcessRunTest {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "real-fault tests need root (mounts, a run as another user)";
    ProcessRunTest::SetUp();
    m_sAside = Root() + ".aside";
    fs::create_directories(m_sAside);
    PrivateMounts();
  }
  void TearDown() override {
    if (geteuid() != 0) return;
    m_oCapture.Close();
    for (auto it = m_aMounts.rbegin(); it != m_aMounts.rend(); ++it) {
      if (umount2(it->c_str(), 0) != 0 && umount2(it->c_str(), MNT_DETACH) != 0)
        ADD_FAILURE() << "cannot unmount " << *it << ": " << Why(errno);
    }
    m_aMounts.clear();
    ProcessRunTest::TearDown();
    std::error_code ec;
    fs::remove_all(m_sAside, ec);
  }

  // Mount helpers: false (and the test skips) where the machine doesn't allow them.
  bool MountTmpfs(const std::string& sPath, long lPages) {
    fs::create_directories(sPath);
    const std::string sOptions = "size=" + std::to_string(lPages * kPage) + ",mode=0755";
    if (mount("tmpfs", sPath.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, sOptions.c_str()) != 0) return false;
    m_aMounts.push_back(sPath);
    return true;
  }
  bool BindReadOnly(const std::string& sPath) {
    if (mount(sPath.c_str(), sPath.c_str(), nullptr, MS_BIND, nullptr) != 0) return false;
    m_aMounts.push_back(sPath);
    return mount(nullptr, sPath.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr) == 0;
  }
  void Unmount(const std::string& sPath) {
    ASSERT_EQ(umount2(sPath.c_str(), 0), 0) << sPath << ": " << Why(errno);
    m_aMounts.erase(std::remove(m_aMounts.begin(), m_aMounts.end(), sPath), m_aMounts.end());
  }
  // Fills the file system of sFolder with a filler file until iFreePages pages are left.
  void FillUp(const std::string& sFolder, long iFreePages) {
    m_sFiller = sFolder + "/filler";
    const int fd = open(m_sFiller.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ASSERT_GE(fd, 0) << Why(errno);
    const std::string sBlock(kPage, 'x');
    off_t lSize = 0;
    for (ssize_t n; (n = write(fd, sBlock.data(), sBlock.size())) > 0;) lSize += n;
    const int iErr = errno;
    ASSERT_EQ(iErr, ENOSPC) << "filling " << sFolder << ": " << Why(iErr);
    ASSERT_EQ(ftruncate(fd, std::max<off_t>(0, lSize / kPage * kPage - iFreePages * kPage)), 0);
    close(fd);
  }
  void FreeUp() { fs::remove(m_sFiller); }

  // Runs the processor to its end, as root or as "nobody"; its standard error is kept in
  // m_sJournal.
  ::testing::AssertionResult Run(const std::vector<std::string>& aEnv = {}, bool bAsNobody = false) {
    const std::string sOut = m_sAside + "/out" + std::to_string(++m_iRuns) + ".txt";
    std::vector<std::string> aFullEnv = {"KESTRANE_CLOCK_START=2026-11-23 10:05:00"};
    aFullEnv.insert(aFullEnv.end(), aEnv.begin(), aEnv.end());
    RunningProgram oProc;
    bool bStarted =
        bAsNobody
            ? oProc.Start("/usr/bin/setpriv",
                          {"--reuid=nobody", "--regid=nogroup", "--clear-groups", m_sProgram, "/DEBUG"}, sOut, aFullEnv)
            : oProc.Start(m_sProgram, {"/DEBUG"}, sOut, aFullEnv);
    const bool bEnded = bStarted && oProc.WaitEnd(120000);
    const std::string sText = ReadBytes(sOut);
    m_sJournal += sText;
    if (bEnded && oProc.ExitCode() == 0) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "run " << m_iRuns << (bEnded ? " exited with status " : " did not end ")
                                         << oProc.Status() << ":\n"
                                         << sText;
  }

  // Whether a line of the hour log, the debug file or the journal names sWhat and gives
  // sWhy, the reason of the failure.
  bool Told(const std::string& sWhat, const std::string& sWhy) const {
    std::istringstream ss(ReadBytes(In(1, "20261123/1000/100000.LOG")) + "\n" + Trace() + "\n" + m_sJournal);
    for (std::string sLine; std::getline(ss, sLine);)
      if (sLine.find(sWhat) != std::string::npos && sLine.find(sWhy) != std::string::npos) return true;
    return false;
  }
  std::string Said() const {
    return "hour log:\n" + ReadBytes(In(1, "20261123/1000/100000.LOG")) + "\njournal:\n" + m_sJournal;
  }

  // Each segment (title and seconds) of sFolder is there exactly once, under one name:
  // its own with any extension, or a converted file's temporary name, and it decodes as
  // sCodec to its whole length.
  void ExpectOnce(const std::string& sFolder, const std::map<std::string, double>& aSegments,
                  const std::string& sCodec) {
    for (const auto& [sTitle, dSeconds] : aSegments) {
      std::vector<std::string> aFound;
      for (auto& e : fs::directory_iterator(sFolder)) {
        const std::string sStem = e.path().stem().string();
        if (sStem == sTitle || sStem == "std" + sTitle || sStem == "arc" + sTitle)
          aFound.push_back(e.path().filename().string());
      }
      ASSERT_EQ(aFound.size(), 1u) << sFolder << sTitle << ": " << ::testing::PrintToString(aFound);
      EXPECT_EQ(aFound[0].substr(0, sTitle.size()), sTitle) << sFolder << aFound[0];
      const auto c = CountFrames(sFolder + aFound[0]);
      EXPECT_EQ(c.sCodec, sCodec) << sFolder << aFound[0];
      EXPECT_NEAR(c.Seconds(), dSeconds, 0.05) << sFolder << aFound[0];
    }
  }

  // The bytes of files that must come through unchanged.
  void Keep(const std::vector<std::string>& aPaths) {
    for (const auto& s : aPaths) m_aKept[s] = ReadBytes(s);
  }
  void ExpectKept() const {
    for (const auto& [sPath, sBytes] : m_aKept) EXPECT_EQ(ReadBytes(sPath), sBytes) << sPath << " was changed";
  }

  std::string m_sAside;  // beside the machine root: the runs' output, what must not be on a faulty mount
  std::string m_sFiller;
  std::string m_sJournal;
  std::vector<std::string> m_aMounts;
  std::map<std::string, std::string> m_aKept;
  int m_iRuns = 0;
};

// A logger whose standard format is four times the size of its recordings (22.05 kHz mono
// PCM to 44.1 kHz stereo PCM), so that a nearly full drive takes the first conversion and
// not the next ones; archived to IMA ADPCM.
TEST_F(RealFaultTest, ADriveThatFillsUpDuringConversionsKeepsEveryRecordingAndTheNextRunFinishes) {
  if (!MountTmpfs(PathIn("drive_d"), 2048)) GTEST_SKIP() << "cannot mount a tmpfs here: " << Why(errno);
  AddLogger(1, true, {Periods(Wav(22050, 1, 1), Wav(44100, 2, 1), Wav(22050, 1, 17))});
  WriteRegistry();
  const std::string sHour = In(1, "20261122/1300/");
  proctest::WriteInf(sHour + "130000.inf", kPast, kLater, kLater);
  for (const char* s : {"130000A", "130100A", "130200A"}) proctest::WriteToneWav(sHour + s + ".wav", 1.0, 22050, 1);
  Keep({sHour + "130000.inf", In(1, "Kestrane.ini"), PathIn("registry.reg")});
  // A source takes 11 pages, a converted file 44: room for the first conversion (its
  // source is then deleted) and the hour log, not for the second.
  FillUp(PathIn("drive_d"), 50);

  ASSERT_TRUE(Run());
  ExpectKept();
  const auto oFirst = CountFrames(sHour + "130000A.wav");
  EXPECT_EQ(oFirst.iRate, 44100) << "the first conversion had room";
  ExpectOnce(sHour, {{"130000A", 1.0}, {"130100A", 1.0}, {"130200A", 1.0}}, "pcm_s16le");
  EXPECT_TRUE(Told("130100A", Why(ENOSPC))) << Said();

  FreeUp();
  ASSERT_TRUE(Run());
  ExpectOnce(sHour, {{"130000A", 1.0}, {"130100A", 1.0}, {"130200A", 1.0}}, "pcm_s16le");
  for (const char* s : {"130000A", "130100A", "130200A"}) EXPECT_EQ(CountFrames(sHour + s + ".wav").iRate, 44100) << s;
  EXPECT_EQ(IniValue(sHour + "130000.inf", "StandardAudioAt"), "-1");
}

// Nothing to convert (the hour is in its standard format already), so the one write of
// the run is that of the hour info file, on a drive without a free page.
TEST_F(RealFaultTest, AFullDriveDuringAnHourInfoRewriteKeepsTheFileWholeAndTheHourDue) {
  if (!MountTmpfs(PathIn("drive_d"), 256)) GTEST_SKIP() << "cannot mount a tmpfs here: " << Why(errno);
  AddLogger(1, true, {Periods(Wav(44100, 2, 1), Wav(44100, 2, 1), Wav(22050, 1, 17))});
  WriteRegistry();
  AddHour(1, "20261122", "13", kPast, kLater, kLater, 2, 1.0);
  const std::string sHour = In(1, "20261122/1300/");
  const std::string sInf = sHour + "130000.inf";
  Keep({sInf, In(1, "Kestrane.ini"), sHour + "130000A.wav", sHour + "130100A.wav"});
  FillUp(PathIn("drive_d"), 0);

  ASSERT_TRUE(Run());
  ExpectKept();
  EXPECT_TRUE(Told("130000.inf", Why(ENOSPC))) << Said();
  EXPECT_EQ(std::distance(fs::directory_iterator(sHour), fs::directory_iterator()), 3) << "a temporary file was left";

  FreeUp();
  ASSERT_TRUE(Run());
  EXPECT_EQ(IniValue(sInf, "StandardAudioAt"), "-1");
  EXPECT_EQ(IniValue(sInf, "ArchiveAudioAt"), kLater);
  ExpectOnce(sHour, {{"130000A", 1.0}, {"130100A", 1.0}}, "pcm_s16le");
}

// The window saves its place in the registry when the run ends: with the machine root on
// a full disk that rewrite fails, and the registry must stay as it was. The loggers' drive
// and the debug files are elsewhere, so the hour itself is done.
TEST_F(RealFaultTest, AFullDiskDuringARegistryRewriteKeepsTheRegistryWhole) {
  AddLogger(1, true, {Periods(Wav(44100, 2, 1), Wav(22050, 2, 17), Wav(22050, 1, 17))});
  WriteRegistry();
  AddHour(1, "20261122", "13", kPast, kLater, kLater, 1, 1.0);
  // The root moves aside, a tmpfs takes its place, and all but the registry and the
  // message folder are reached through links to the tree aside.
  m_oCapture.Close();
  const std::string sTree = m_sAside + "/tree";
  fs::rename(Root(), sTree);
  fs::create_directory(Root());
  if (!MountTmpfs(Root(), 64)) GTEST_SKIP() << "cannot mount a tmpfs here: " << Why(errno);
  for (const char* s : {"bin", "drive_c", "drive_d"}) fs::create_directory_symlink(sTree + "/" + s, PathIn(s));
  fs::copy_file(sTree + "/registry.reg", PathIn("registry.reg"));
  ASSERT_TRUE(m_oCapture.Bind("KNCaptureMsgHandler"));
  const std::string sRegistry = ReadBytes(PathIn("registry.reg"));
  FillUp(Root(), 0);

  ASSERT_TRUE(Run({"QT_QPA_PLATFORM=offscreen"}));
  EXPECT_EQ(ReadBytes(PathIn("registry.reg")), sRegistry);
  EXPECT_TRUE(Told("registry.reg", Why(ENOSPC))) << Said();
  for (auto& e : fs::directory_iterator(Root())) {
    const std::string sName = e.path().filename().string();
    EXPECT_TRUE(sName == "registry.reg" || sName == "registry.reg.lock" || sName == "filler" || e.is_symlink() ||
                e.is_directory())
        << "left behind: " << sName;
  }
  const std::string sHour = In(1, "20261122/1300/");
  EXPECT_EQ(IniValue(sHour + "130000.inf", "StandardAudioAt"), "-1");
  ExpectOnce(sHour, {{"130000A", 1.0}}, "adpcm_ima_wav");

  // With room again the window's place is saved, beside every value that was there.
  FreeUp();
  ASSERT_TRUE(Run({"QT_QPA_PLATFORM=offscreen"}));
  const std::string sAfter = ReadBytes(PathIn("registry.reg"));
  EXPECT_NE(sAfter.find("\"Placement\"="), std::string::npos) << sAfter;
  std::istringstream ss(sRegistry);
  for (std::string sLine; std::getline(ss, sLine);) {
    if (!sLine.empty() && sLine.back() == '\r') sLine.pop_back();
    if (!sLine.empty()) {
      EXPECT_NE(sAfter.find(sLine), std::string::npos) << "lost: " << sLine;
    }
  }
}

// An hour folder, or the whole drive, on a read-only mount: no converted file can be made.
struct ReadOnlyCase {
  const char* sName;
  const char* sMounted;  // below the machine root
  bool bHourLogWritable;
};
void PrintTo(const ReadOnlyCase& c, std::ostream* os) { *os << c.sName; }

class ReadOnlyMountTest : public RealFaultTest, public ::testing::WithParamInterface<ReadOnlyCase> {};

TEST_P(ReadOnlyMountTest, NothingIsLostTheOperatorIsToldAndTheRunAfterTheRemountFinishes) {
  AddLogger(1, true, {Periods(Wav(44100, 2, 1), Wav(22050, 2, 17), Wav(22050, 1, 17))});
  WriteRegistry();
  AddHour(1, "20261122", "13", kPast, kLater, kLater, 2, 1.0);
  const std::string sHour = In(1, "20261122/1300/");
  Keep({sHour + "130000.inf", sHour + "130000A.wav", sHour + "130100A.wav", In(1, "Kestrane.ini")});
  const std::string sMounted = PathIn(GetParam().sMounted);
  if (!BindReadOnly(sMounted)) GTEST_SKIP() << "cannot make a read-only bind mount here: " << Why(errno);

  ASSERT_TRUE(Run());
  ExpectKept();
  EXPECT_TRUE(Told("130000A", Why(EROFS))) << Said();
  if (GetParam().bHourLogWritable) {
    EXPECT_NE(HourLog(1).find("130000A"), std::string::npos) << "the hour log can be written:\n" << HourLog(1);
  }

  Unmount(sMounted);
  ASSERT_TRUE(Run());
  ExpectOnce(sHour, {{"130000A", 1.0}, {"130100A", 1.0}}, "adpcm_ima_wav");
  EXPECT_EQ(IniValue(sHour + "130000.inf", "StandardAudioAt"), "-1");
}

INSTANTIATE_TEST_SUITE_P(Mounts, ReadOnlyMountTest,
                         ::testing::Values(ReadOnlyCase{"HourFolder", "drive_d/Logger1/20261122/1300", true},
                                           ReadOnlyCase{"WholeDrive", "drive_d", false}),
                         [](const auto& i) { return std::string(i.param.sName); });

// The processor run as an unprivileged user over a tree in which some things are out of
// its reach: a segment it may not read, an hour folder it may not write, one it may not
// list, a logger whose settings file it may not read.
TEST_F(RealFaultTest, AnUnprivilegedRunOverForbiddenFilesAndFoldersLosesNothingAndSaysWhy) {
  if (access("/usr/bin/setpriv", X_OK) != 0) GTEST_SKIP() << "setpriv is not installed (util-linux)";
  if (RunProgram("getent passwd nobody >/dev/null && getent group nogroup >/dev/null") != 0)
    GTEST_SKIP() << "no user nobody or group nogroup here";
  const auto oFormats = Periods(Wav(44100, 2, 1), Wav(22050, 2, 17), Wav(22050, 1, 17));
  AddLogger(1, true, {oFormats});
  AddLogger(2, true, {oFormats});
  WriteRegistry();
  for (const char* sHH : {"13", "14", "15"}) AddHour(1, "20261122", sHH, kPast, kLater, kLater, 2, 1.0);
  AddHour(2, "20261122", "13", kPast, kLater, kLater, 2, 1.0);
  const std::string s13 = In(1, "20261122/1300/"), s14 = In(1, "20261122/1400/"), s15 = In(1, "20261122/1500/");
  const std::string sOther = In(2, "20261122/1300/");
  Keep({s13 + "130000A.wav", s14 + "140000A.wav", s14 + "140100A.wav", s14 + "140000.inf", s15 + "150000A.wav",
        s15 + "150000.inf", sOther + "130000A.wav", sOther + "130100A.wav", sOther + "130000.inf",
        In(2, "Kestrane.ini"), PathIn("registry.reg")});

  // Everything belongs to nobody, but for the forbidden things.
  ASSERT_EQ(RunProgram("chown -hR nobody:nogroup " + Quote(Root())), 0);
  const std::vector<std::pair<std::string, fs::perms>> aForbidden = {
      {s13 + "130000A.wav", fs::perms::none},  // cannot be read
      {s14, fs::perms(0555)},                  // cannot be written
      {s15, fs::perms::none},                  // cannot be listed
      {In(2, "Kestrane.ini"), fs::perms::none}};
  for (const auto& [sPath, ePerms] : aForbidden) fs::permissions(sPath, ePerms);

  ASSERT_TRUE(Run({}, true));
  for (const auto& [sPath, ePerms] : aForbidden) fs::permissions(sPath, fs::perms(0755));
  ExpectKept();
  // The readable segment of the first hour is converted, the other waits, and so does
  // the hour; the other hours are untouched.
  ExpectOnce(s13, {{"130100A", 1.0}}, "adpcm_ima_wav");
  for (const auto& [sInf, sSeen] : {std::pair{s13 + "130000.inf", "130000A"}, std::pair{s14 + "140000.inf", "140000A"},
                                    std::pair{s15 + "150000.inf", "20261122/1500"}}) {
    EXPECT_EQ(IniValue(sInf, "StandardAudioAt"), kPast) << sInf;
    EXPECT_TRUE(Told(sSeen, Why(EACCES))) << sSeen << "\n" << Said();
  }
  EXPECT_TRUE(Told("Kestrane.ini", Why(EACCES))) << Said();

  // As root, with the rights given back, every hour is done.
  ASSERT_TRUE(Run());
  for (const std::string& s : {s13, s14, s15}) {
    const std::string sHH = s.substr(s.size() - 5, 2);
    ExpectOnce(s, {{sHH + "0000A", 1.0}, {sHH + "0100A", 1.0}}, "adpcm_ima_wav");
    EXPECT_EQ(IniValue(s + sHH + "0000.inf", "StandardAudioAt"), "-1") << s;
  }
  ExpectOnce(sOther, {{"130000A", 1.0}, {"130100A", 1.0}}, "adpcm_ima_wav");
}
