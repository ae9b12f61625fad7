#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <future>
#include <thread>

#include "audio/AudioFormatHelpers.h"
#include "audio/ChooseAudioClass.h"
#include "audio/CodecTestUtil.h"
#include "audio/GetAudioLengthSecs.h"
#include "support/AppGlobal.h"
#include "tools/ShuttleMatrix.h"

using namespace codectest;
namespace fs = std::filesystem;

extern char** environ;

namespace {

const std::string kShuttle = std::string(KN_BIN_DIR) + "/SoundShuttle";
const std::string kPrx = std::string(KN_SOURCE_DIR) + "/data/nvkn4.prx";

std::string FormatText(int iType, int iRate, int iChannels, int iKbps, int iTag = 17, int iProfile = 0) {
  return "FormatType=" + std::to_string(iType) + ";SampleRate=" + std::to_string(iRate) +
         ";Channels=" + std::to_string(iChannels) + ";BitRate=" + std::to_string(iKbps) +
         ";BitsPerSample=16;FormatTag=" + std::to_string(iTag) + ";ProfileNum=" + std::to_string(iProfile) +
         ";ProfileFile=";
}

// Runs the copier with separate arguments (no shell), behind sPrefix if given; exit
// status and standard error.
int RunShuttle(const std::vector<std::string>& aArgs, std::string* psErr = nullptr, const std::string& sPrefix = "") {
  std::string sCmd = sPrefix + Quote(kShuttle);
  for (const auto& a : aArgs) sCmd += " " + Quote(a);
  static std::atomic<int> s_iRun{0};
  std::string sErrFile =
      fs::temp_directory_path() / ("shuttle_err_" + std::to_string(getpid()) + "_" + std::to_string(s_iRun++));
  const int rc = RunProgram("(" + sCmd + " 2>" + Quote(sErrFile) + " >/dev/null)");
  if (psErr) *psErr = ReadBytes(sErrFile);
  fs::remove(sErrFile);
  return rc;
}

std::vector<std::string> FilesIn(const std::string& sDir) {
  std::vector<std::string> a;
  for (auto& e : fs::directory_iterator(sDir)) a.push_back(e.path().filename().string());
  return a;
}

}  // namespace

class SoundShuttleTest : public ScratchTest {
 protected:
  void SetUp() override {
    ScratchTest::SetUp();
    MakeToneWav(P("src.wav"), 44100, 2, 1.5);
  }
};

// Each format at two rates and bit rates, mono and stereo (WMA by profile number from
// the profile file, and by the values of the format text without one): ffprobe sees
// the codec, rate, channels and bit rate asked for and the length of the source; the
// system's classes read it back to that length and GetAudioLengthSecs agrees.
TEST_F(SoundShuttleTest, ConvertsToEveryFormat) {
  struct Case {
    int type;
    const char* ext;
    const char* codec;
    int rate, ch, kbps, tag, profile;
  };
  std::vector<Case> cases;
  for (int ch : {1, 2})
    cases.insert(cases.end(), {{32, "mp2", "mp2", 22050, ch, 64, 17, 0},
                               {32, "mp2", "mp2", 48000, ch, 192, 17, 0},
                               {4, "mp3", "mp3", 22050, ch, 32, 17, 0},
                               {4, "mp3", "mp3", 44100, ch, 128, 17, 0},
                               {8, "ogg", "vorbis", 22050, ch, 48, 17, 0},
                               {8, "ogg", "vorbis", 44100, ch, 128, 17, 0}});
  cases.insert(cases.end(), {{16, "wma", "wmav2", 44100, 2, 64, 0, 23},
                             {16, "wma", "wmav2", 22050, 2, 32, 0, 9},
                             {16, "wma", "wmav2", 44100, 1, 64, 0, 17},
                             {16, "wma", "wmav2", 22050, 1, 24, 0, 7},
                             {16, "wma", "wmav2", 32000, 1, 40, 0, 0},
                             {2, "wav", "pcm_s16le", 16000, 1, 0, 1, 0},
                             {2, "wav", "adpcm_ima_wav", 22050, 2, 0, 17, 0}});
  // The runs are independent: start them all, then look at the results.
  struct Result {
    std::string sErr;
    int rc = -1;
    std::map<std::string, std::string> probe;
  };
  std::vector<std::future<Result>> runs;
  for (size_t i = 0; i < cases.size(); ++i) {
    const Case c = cases[i];
    const std::string sDst = P("out" + std::to_string(i) + "." + c.ext);
    std::vector<std::string> a = {"/SRCFILE=" + P("src.wav"), "/DSTFILE=" + sDst};
    if (c.profile) {
      a.push_back("/DSTFORMAT=" + FormatText(c.type, 0, 0, 0, c.tag, c.profile));
      a.push_back("/PRXFILE=" + kPrx);
    } else {
      a.push_back("/DSTFORMAT=" + FormatText(c.type, c.rate, c.ch, c.kbps, c.tag));
    }
    runs.push_back(std::async(std::launch::async, [a, sDst] {
      Result r;
      r.rc = RunShuttle(a, &r.sErr);
      if (r.rc == 0) r.probe = Probe(sDst);
      return r;
    }));
  }
  for (size_t i = 0; i < cases.size(); ++i) {
    const Case& c = cases[i];
    const std::string sDst = P("out" + std::to_string(i) + "." + c.ext);
    Result r = runs[i].get();
    SCOPED_TRACE(sDst + " " + std::to_string(c.rate) + "/" + std::to_string(c.ch) + "/" + std::to_string(c.kbps));
    ASSERT_EQ(r.rc, 0) << r.sErr;
    auto& m = r.probe;
    EXPECT_EQ(m["codec_name"], c.codec);
    EXPECT_EQ(m["sample_rate"], std::to_string(c.rate));
    EXPECT_EQ(m["channels"], std::to_string(c.ch));
    if (c.type == 16) {
      EXPECT_EQ(m["bit_rate"], std::to_string(c.kbps * 1000));
    } else if (c.kbps) {
      EXPECT_NEAR(std::atof(m["bit_rate"].c_str()) / 1000, c.kbps, c.kbps * 0.1);
    }
    // The container's own figure: WMA's counts the frame of silence in front as well.
    EXPECT_NEAR(std::atof(m["format_duration"].c_str()), 1.5, c.type == 2 ? 0.05 : c.type == 16 ? 0.15 : 0.1);
    if (c.tag == 17 && c.type == 2) {
      EXPECT_EQ(audiotest::Le16(ReadBytes(sDst), 32), 1024);  // the platform's layout
    }
    const double dSecs = GetAudioLengthSecs(sDst);
    EXPECT_NEAR(dSecs, 1.5, 0.1);
    auto o = std::dynamic_pointer_cast<IAudioFile>(ChooseAudioClass(c.type));
    ASSERT_TRUE(o);
    o->SetMemFormat(GetMemFormat());
    ASSERT_EQ(o->OpenAudioFile(sDst, AudioFileRead), 0);
    EXPECT_NEAR(ReadAllBytes(*o) / 176400.0, dSecs, 0.1);
  }
}

// The processor starts the copier through RunAndWait with a line in which the values
// are quoted; paths with blanks arrive whole. Switch names in any case and order.
TEST_F(SoundShuttleTest, TakesTheProcessorsCommandLine) {
  fs::create_directories(P("a folder"));
  fs::copy_file(P("src.wav"), P("a folder/my source.wav"));
  std::string sLine = "/dstformat=\"" + FormatText(4, 44100, 2, 128) + "\" /SrcFile=\"" + P("a folder/my source.wav") +
                      "\" /DSTFILE=\"" + P("a folder/std out.mp3") + "\" /PRXFILE=\"" + kPrx + "\"";
  EXPECT_EQ(AppGlobal::RunAndWait(kShuttle, sLine, 64, -1, 0), 0);
  EXPECT_EQ(Probe(P("a folder/std out.mp3"))["codec_name"], "mp3");
  // Values that kept their quotes, and an unquoted path with a blank.
  EXPECT_EQ(RunShuttle({"/SRCFILE=\"" + P("a folder/my source.wav") + "\"", "/DSTFILE=" + P("a"), "folder/second.mp2",
                        "/DSTFORMAT=" + FormatText(32, 44100, 2, 128)}),
            0);
  EXPECT_EQ(Probe(P("a folder/second.mp2"))["codec_name"], "mp2");
}

TEST_F(SoundShuttleTest, FailuresGiveOneClearLineAndNoFile) {
  WriteBytes(P("text.wav"), std::string(3000, 'a'));
  const std::string sSrc = "/SRCFILE=" + P("src.wav"), sMp3 = "/DSTFILE=" + P("x.mp3");
  const std::string sFormat = "/DSTFORMAT=" + FormatText(4, 44100, 2, 128);
  struct Case {
    const char* name;
    std::vector<std::string> aArgs;
    int rc;
    const char* text;
  } cases[] = {
      {"missing source", {"/SRCFILE=" + P("none.wav"), sMp3, sFormat}, 1, "source"},
      {"no audio", {"/SRCFILE=" + P("text.wav"), sMp3, sFormat}, 1, "not readable audio"},
      {"no folder", {sSrc, "/DSTFILE=" + P("no/such/x.mp3"), sFormat}, 3, "cannot write in folder"},
      {"no destination", {sSrc, sFormat}, 2, "/DSTFILE"},
      {"bad format text", {sSrc, sMp3, "/DSTFORMAT=rate=5"}, 2, "no FormatType"},
      {"unknown switch", {sSrc, sMp3, "/BOGUS=1", sFormat}, 2, "/BOGUS"},
      {"seven channels", {sSrc, sMp3, "/DSTFORMAT=" + FormatText(4, 44100, 7, 128)}, 2, ""},
      {"unknown type", {sSrc, "/DSTFILE=" + P("x.ogg"), "/DSTFORMAT=" + FormatText(64, 44100, 2, 128)}, 2, ""},
      {"MS ADPCM", {sSrc, "/DSTFILE=" + P("m.wav"), "/DSTFORMAT=" + FormatText(2, 22050, 2, 0, 2)}, 2, "format tag 2"},
      // Not in the profile file, and the text has no values.
      {"no profile",
       {sSrc, "/DSTFILE=" + P("w.wma"), "/DSTFORMAT=" + FormatText(16, 0, 0, 0, 0, 500), "/PRXFILE=" + kPrx},
       2,
       "profile 500"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::string sErr;
    EXPECT_EQ(RunShuttle(c.aArgs, &sErr), c.rc) << sErr;
    EXPECT_NE(sErr.find(c.text), std::string::npos) << sErr;
    EXPECT_EQ(std::count(sErr.begin(), sErr.end(), '\n'), 1) << sErr;
  }
  // Nothing left behind but the two inputs.
  EXPECT_EQ(FilesIn(Root()).size(), 2u);
}

// Root writes into any folder, so as root the copier runs as "nobody" through setpriv.
TEST_F(SoundShuttleTest, FolderWithoutWritePermission) {
  std::string sPrefix;
  if (geteuid() == 0) {
    if (!fs::exists("/usr/bin/setpriv")) GTEST_SKIP() << "root, and no setpriv to drop it";
    sPrefix = "/usr/bin/setpriv --reuid=65534 --regid=65534 --clear-groups ";
    fs::permissions(Root(), fs::perms::others_read | fs::perms::others_exec, fs::perm_options::add);
    fs::permissions(P("src.wav"), fs::perms::others_read, fs::perm_options::add);
  }
  fs::create_directories(P("ro"));
  fs::permissions(P("ro"),
                  fs::perms::owner_read | fs::perms::owner_exec | fs::perms::others_read | fs::perms::others_exec);
  std::string sErr;
  EXPECT_EQ(RunShuttle(
                {"/SRCFILE=" + P("src.wav"), "/DSTFILE=" + P("ro/x.mp3"), "/DSTFORMAT=" + FormatText(4, 44100, 2, 128)},
                &sErr, sPrefix),
            3)
      << sErr;
  EXPECT_NE(sErr.find("cannot write in folder " + P("ro") + ": Permission denied"), std::string::npos) << sErr;
  EXPECT_TRUE(fs::is_empty(P("ro")));
}

namespace {

// Starts the copier on sSrc to an MP3 sDst behind sPrefix (a shell line), and waits
// until its temporary file has grown. Its process id, 0 when it did not get so far.
pid_t StartLongRun(const std::string& sRoot, const std::string& sSrc, const std::string& sDst,
                   const std::string& sPrefix = "") {
  std::string sLine = sPrefix + "exec " + Quote(kShuttle) + " " + Quote("/SRCFILE=" + sSrc) + " " +
                      Quote("/DSTFILE=" + sDst) + " " + Quote("/DSTFORMAT=" + FormatText(4, 44100, 2, 128));
  std::vector<std::string> a = {"/bin/sh", "-c", sLine};
  std::vector<char*> argv;
  for (auto& s : a) argv.push_back(s.data());
  argv.push_back(nullptr);
  pid_t pid = 0;
  if (posix_spawn(&pid, "/bin/sh", nullptr, nullptr, argv.data(), environ) != 0) return 0;
  const std::string sTempStart = "." + fs::path(sDst).filename().string() + ".shuttle-";
  for (int i = 0; i < 2000; ++i) {
    for (const auto& s : FilesIn(sRoot)) {
      std::error_code ec;
      if (s.starts_with(sTempStart) && fs::file_size(sRoot + "/" + s, ec) > 0) return pid;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
  return 0;
}

bool HasTempFile(const std::string& sRoot) {
  for (const auto& s : FilesIn(sRoot))
    if (s.find(".shuttle-") != std::string::npos) return true;
  return false;
}

}  // namespace

// A run killed half way leaves nothing under the destination name. A run stopped by a
// signal it can catch (a stop from outside, the file size limit reached) leaves nothing
// at all.
TEST_F(SoundShuttleTest, InterruptedRunLeavesNoDestination) {
  MakeToneWav(P("long.wav"), 44100, 2, 120.0);
  for (int iSignal : {SIGKILL, SIGTERM}) {
    SCOPED_TRACE(iSignal);
    pid_t pid = StartLongRun(Root(), P("long.wav"), P("stopped.mp3"));
    ASSERT_NE(pid, 0);
    kill(pid, iSignal);
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_FALSE(fs::exists(P("stopped.mp3")));
    // SIGKILL cannot be caught: its temporary file is the processor's to clean.
    EXPECT_EQ(HasTempFile(Root()), iSignal == SIGKILL);
    for (const auto& s : FilesIn(Root()))
      if (s.starts_with(".stopped.mp3.shuttle-")) fs::remove(P(s));
  }
  // A real limit: the kernel stops the write past 400 KB with SIGXFSZ.
  EXPECT_NE(RunShuttle(
                {"/SRCFILE=" + P("long.wav"), "/DSTFILE=" + P("big.mp3"), "/DSTFORMAT=" + FormatText(4, 44100, 2, 128)},
                nullptr, "ulimit -f 400; "),
            0);
  EXPECT_FALSE(fs::exists(P("big.mp3")));
  EXPECT_FALSE(HasTempFile(Root()));
}

// The destination is never replaced: not when it exists at the start (the run fails at
// once), nor when it appears while the run is at work. It stays byte for byte, the
// run's output goes, and the line says what to do.
TEST_F(SoundShuttleTest, NeverReplacesADestination) {
  WriteBytes(P("keep.mp3"), std::string(100, 'k'));
  std::string sErr;
  EXPECT_EQ(RunShuttle(
                {"/SRCFILE=" + P("src.wav"), "/DSTFILE=" + P("keep.mp3"), "/DSTFORMAT=" + FormatText(4, 44100, 2, 128)},
                &sErr),
            3);
  EXPECT_NE(sErr.find("destination " + P("keep.mp3") + " exists and is not replaced: remove it"), std::string::npos)
      << sErr;
  EXPECT_EQ(ReadBytes(P("keep.mp3")), std::string(100, 'k'));

  MakeToneWav(P("long.wav"), 44100, 2, 60.0);
  const std::string sErrFile = P("race.err");
  pid_t pid = StartLongRun(Root(), P("long.wav"), P("late.mp3"), "exec 2>" + Quote(sErrFile) + "; ");
  ASSERT_NE(pid, 0);
  WriteBytes(P("late.mp3"), std::string(50, 'l'));
  int status = 0;
  waitpid(pid, &status, 0);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 3);
  EXPECT_NE(ReadBytes(sErrFile).find("exists and is not replaced"), std::string::npos);
  EXPECT_EQ(ReadBytes(P("late.mp3")), std::string(50, 'l'));
  EXPECT_FALSE(HasTempFile(Root()));
}

// Sample counts through the copier, a quick part of the full matrix: a short source at a
// rate MP2 must convert (8000 Hz to 16000 Hz) and one at 44100 Hz stereo, every target.
TEST_F(SoundShuttleTest, KeepsEverySample) {
  using namespace shuttlematrix;
  for (auto [iRate, iChannels] : {std::pair{8000, 1}, std::pair{44100, 2}}) {
    MakeToneWav(P("m.wav"), iRate, iChannels, 1.0);
    for (const auto& t : kTargets) {
      SCOPED_TRACE(std::to_string(iRate) + " Hz " + std::to_string(iChannels) + " ch to " + t.ext);
      ExpectEverySample(Convert(Root(), P("m.wav"), iRate, iChannels, t, "m"), t);
    }
  }
}

// The first and the last samples of the source arrive, in place: a click 100 samples
// from each end of silence is found where it was (MP2: the filter banks' delay later),
// with the source's length just under a whole number of MP2 and MP3 frames, where a
// dropped tail or a lost first frame shows.
TEST_F(SoundShuttleTest, FirstAndLastSamplesArriveInPlace) {
  using namespace shuttlematrix;
  const int n = 1152 * 20 - 60;
  std::string sRaw(static_cast<size_t>(n) * 2, '\0');
  for (int i : {100, n - 100}) sRaw[2 * i + 1] = 0x50;  // 0x5000: a loud single sample
  WriteBytes(P("clicks.raw"), sRaw);
  ASSERT_EQ(
      RunProgram("sox -t raw -r 44100 -e signed -b 16 -c 1 " + Quote(P("clicks.raw")) + " " + Quote(P("clicks.wav"))),
      0);
  for (const auto& t : kTargets) {
    SCOPED_TRACE(t.ext);
    const std::string sDst = P(std::string("clicks.") + t.ext);
    ASSERT_EQ(RunShuttle({"/SRCFILE=" + P("clicks.wav"), "/DSTFILE=" + sDst,
                          "/DSTFORMAT=" + FormatText(t.iType, 44100, 1, 128)}),
              0);
    std::vector<int16_t> a;
    ASSERT_TRUE(audiotest::DecodeWith("ffmpeg", sDst, P("clicks.out.raw"), a));
    const long lLag = FormatPadding(t);
    for (long lAt : {100L, n - 100L}) {
      SCOPED_TRACE(lAt);
      ASSERT_LT(lAt + lLag + 8, static_cast<long>(a.size())) << "the end of the audio is missing";
      int iPeak = 0;
      long lPeakAt = -1;
      for (long i = lAt + lLag - 40; i <= lAt + lLag + 40; ++i)
        if (std::abs(a[static_cast<size_t>(i)]) > iPeak) {
          iPeak = std::abs(a[static_cast<size_t>(i)]);
          lPeakAt = i;
        }
      EXPECT_GT(iPeak, 0x5000 / 8);
      EXPECT_NEAR(lPeakAt, lAt + lLag, 8);
    }
  }
}

TEST_F(SoundShuttleTest, HelpDescribesTheFormatText) {
  std::string s;
  EXPECT_EQ(RunProgram(Quote(kShuttle) + " --help", &s), 0);
  for (const char* k : {"/SRCFILE=", "/DSTFORMAT=", "FormatType=", "ProfileNum", "ProfileFile", "FormatTag"})
    EXPECT_NE(s.find(k), std::string::npos) << k;
}
