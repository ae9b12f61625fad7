#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <future>
#include <filesystem>
#include <thread>

#include "audio/CodecTestUtil.h"
#include "audio/codec/CodecFile.h"
#include "support/AppGlobal.h"

using namespace codectest;
namespace fs = std::filesystem;

extern char** environ;

namespace {

const std::string kShuttle = std::string(KN_BIN_DIR) + "/SoundShuttle";
const std::string kPrx = std::string(KN_SOURCE_DIR) + "/data/nvkn4.prx";

std::string FormatText(int iType, int iRate, int iChannels, int iKbps, int iTag = 17, int iProfile = 0,
                       const std::string& sPrx = "") {
  return "FormatType=" + std::to_string(iType) + ";SampleRate=" + std::to_string(iRate) +
         ";Channels=" + std::to_string(iChannels) + ";BitRate=" + std::to_string(iKbps) +
         ";BitsPerSample=16;FormatTag=" + std::to_string(iTag) + ";ProfileNum=" + std::to_string(iProfile) +
         ";ProfileFile=" + sPrx;
}

// Runs the copier with separate arguments (no shell); exit status and standard error.
int RunShuttle(const std::vector<std::string>& aArgs, std::string* psErr = nullptr) {
  std::string sCmd = Quote(kShuttle);
  for (const auto& a : aArgs) sCmd += " " + Quote(a);
  static std::atomic<int> s_iRun{0};
  std::string sErrFile = fs::temp_directory_path() /
                         ("shuttle_err_" + std::to_string(getpid()) + "_" + std::to_string(s_iRun++));
  int rc = 0;
  Shell("(" + sCmd + " 2>" + Quote(sErrFile) + " >/dev/null)", &rc);
  if (psErr) *psErr = [&] { auto a = ReadBytes(sErrFile); return std::string(a.begin(), a.end()); }();
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

// Each compressed format at two rates and bit rates, mono and stereo: ffprobe sees the
// codec, rate, channels and bit rate asked for, and the length of the source; the
// system's reader agrees on the length.
TEST_F(SoundShuttleTest, ConvertsToEveryCompressedFormat) {
  struct Case {
    int type;
    const char* ext;
    const char* codec;
    int rate, kbps;
  } cases[] = {
      {32, "mp2", "mp2", 22050, 64}, {32, "mp2", "mp2", 48000, 192}, {4, "mp3", "mp3", 22050, 32},
      {4, "mp3", "mp3", 44100, 128}, {8, "ogg", "vorbis", 22050, 48}, {8, "ogg", "vorbis", 44100, 128},
  };
  // The runs are independent: start them all, then look at the results.
  struct Result {
    std::string sDst, sErr;
    int rc = -1;
    std::map<std::string, std::string> probe;
  };
  std::vector<std::future<Result>> runs;
  int n = 0;
  for (const auto& c : cases) {
    for (int ch = 1; ch <= 2; ++ch) {
      std::string sDst = P("out" + std::to_string(n++) + "." + c.ext);
      runs.push_back(std::async(std::launch::async, [=, this] {
        Result r;
        r.sDst = sDst;
        r.rc = RunShuttle({"/SRCFILE=" + P("src.wav"), "/DSTFILE=" + sDst,
                           "/DSTFORMAT=" + FormatText(c.type, c.rate, ch, c.kbps)},
                          &r.sErr);
        if (r.rc == 0) r.probe = Probe(sDst);
        return r;
      }));
    }
  }
  n = 0;
  for (const auto& c : cases) {
    for (int ch = 1; ch <= 2; ++ch) {
      Result r = runs[n++].get();
      SCOPED_TRACE(r.sDst + " " + std::to_string(c.rate) + "/" + std::to_string(ch) + "/" + std::to_string(c.kbps));
      ASSERT_EQ(r.rc, 0) << r.sErr;
      auto& m = r.probe;
      EXPECT_EQ(m["codec_name"], c.codec);
      EXPECT_EQ(m["sample_rate"], std::to_string(c.rate));
      EXPECT_EQ(m["channels"], std::to_string(ch));
      EXPECT_NEAR(std::atof(m["bit_rate"].c_str()) / 1000, c.kbps, c.kbps * 0.1);
      EXPECT_NEAR(std::atof(m["format_duration"].c_str()), 1.5, 0.1);
      CodecFile f;
      f.Open(r.sDst, 0, 1);
      EXPECT_NEAR(f.LengthMs(), 1500, 100);
    }
  }
}

// WMA by profile number from the profile file, and by the values of the format text
// when the profile file lacks the number.
TEST_F(SoundShuttleTest, ConvertsToWmaByProfile) {
  struct Case {
    int profile, rate, ch, kbps;
    bool bPrx;
  } cases[] = {{23, 44100, 2, 64, true}, {7, 22050, 1, 24, true}, {0, 32000, 1, 40, false},
               {500, 22050, 2, 48, true}};
  int n = 0;
  for (const auto& c : cases) {
    std::string sDst = P("w" + std::to_string(n++) + ".wma");
    SCOPED_TRACE(sDst);
    std::vector<std::string> a = {"/SRCFILE=" + P("src.wav"), "/DSTFILE=" + sDst,
                                  "/DSTFORMAT=" + FormatText(16, c.bPrx ? 0 : c.rate, c.bPrx ? 0 : c.ch,
                                                             c.bPrx ? 0 : c.kbps, 0, c.profile)};
    if (c.bPrx) a.push_back("/PRXFILE=" + kPrx);
    std::string sErr;
    int rc = RunShuttle(a, &sErr);
    if (c.profile == 500) {  // not in the file, and the text has no values
      EXPECT_EQ(rc, 2);
      EXPECT_NE(sErr.find("profile 500"), std::string::npos) << sErr;
      EXPECT_FALSE(fs::exists(sDst));
      continue;
    }
    ASSERT_EQ(rc, 0) << sErr;
    auto m = Probe(sDst);
    EXPECT_EQ(m["codec_name"], "wmav2");
    EXPECT_EQ(m["sample_rate"], std::to_string(c.rate));
    EXPECT_EQ(m["channels"], std::to_string(c.ch));
    EXPECT_EQ(m["bit_rate"], std::to_string(c.kbps * 1000));
    EXPECT_NEAR(std::atof(m["format_duration"].c_str()), 1.5, 0.1);
  }
}

TEST_F(SoundShuttleTest, WritesWavPcmAndImaAdpcm) {
  ASSERT_EQ(RunShuttle({"/SRCFILE=" + P("src.wav"), "/DSTFILE=" + P("p.wav"),
                        "/DSTFORMAT=" + FormatText(2, 16000, 1, 0, 1)}),
            0);
  ASSERT_EQ(RunShuttle({"/SRCFILE=" + P("src.wav"), "/DSTFILE=" + P("i.wav"),
                        "/DSTFORMAT=" + FormatText(2, 22050, 2, 0, 17)}),
            0);
  EXPECT_EQ(Probe(P("p.wav"))["codec_name"], "pcm_s16le");
  EXPECT_EQ(Probe(P("p.wav"))["sample_rate"], "16000");
  EXPECT_EQ(Probe(P("i.wav"))["codec_name"], "adpcm_ima_wav");
  EXPECT_NEAR(DecodedFrames(P("i.wav"), 2) / 22050.0, 1.5, 0.05);
  std::string sErr;
  EXPECT_EQ(RunShuttle({"/SRCFILE=" + P("src.wav"), "/DSTFILE=" + P("m.wav"),
                        "/DSTFORMAT=" + FormatText(2, 22050, 2, 0, 2)},
                       &sErr),
            2);
  EXPECT_NE(sErr.find("format tag 2"), std::string::npos) << sErr;
}

// The processor starts the copier through RunAndWait with a line in which the values
// are quoted; paths with blanks arrive whole. Switch names in any case and order.
TEST_F(SoundShuttleTest, TakesTheProcessorsCommandLine) {
  fs::create_directories(P("a folder"));
  fs::copy_file(P("src.wav"), P("a folder/my source.wav"));
  std::string sLine = "/dstformat=\"" + FormatText(4, 44100, 2, 128) + "\" /SrcFile=\"" +
                      P("a folder/my source.wav") + "\" /DSTFILE=\"" + P("a folder/std out.mp3") +
                      "\" /PRXFILE=\"" + kPrx + "\"";
  EXPECT_EQ(AppGlobal::RunAndWait(kShuttle, sLine, 64, -1, 0), 0);
  EXPECT_EQ(Probe(P("a folder/std out.mp3"))["codec_name"], "mp3");
  // Values that kept their quotes, and an unquoted path with a blank.
  EXPECT_EQ(RunShuttle({"/SRCFILE=\"" + P("a folder/my source.wav") + "\"", "/DSTFILE=" + P("a"),
                        "folder/second.mp2", "/DSTFORMAT=" + FormatText(32, 44100, 2, 128)}),
            0);
  EXPECT_EQ(Probe(P("a folder/second.mp2"))["codec_name"], "mp2");
}

TEST_F(SoundShuttleTest, FailuresGiveOneClearLineAndNoFile) {
  std::string sErr;
  // Missing source.
  EXPECT_EQ(RunShuttle({"/SRCFILE=" + P("none.wav"), "/DSTFILE=" + P("x.mp3"),
                        "/DSTFORMAT=" + FormatText(4, 44100, 2, 128)},
                       &sErr),
            1);
  EXPECT_NE(sErr.find("source"), std::string::npos) << sErr;
  EXPECT_EQ(std::count(sErr.begin(), sErr.end(), '\n'), 1) << sErr;
  // A source that is no audio.
  WriteBytes(P("text.wav"), std::vector<char>(3000, 'a'));
  EXPECT_EQ(RunShuttle({"/SRCFILE=" + P("text.wav"), "/DSTFILE=" + P("x.mp3"),
                        "/DSTFORMAT=" + FormatText(4, 44100, 2, 128)},
                       &sErr),
            1);
  EXPECT_NE(sErr.find("not readable audio"), std::string::npos) << sErr;
  // Destination folder missing.
  EXPECT_EQ(RunShuttle({"/SRCFILE=" + P("src.wav"), "/DSTFILE=" + P("no/such/x.mp3"),
                        "/DSTFORMAT=" + FormatText(4, 44100, 2, 128)},
                       &sErr),
            3);
  EXPECT_NE(sErr.find("cannot write in folder"), std::string::npos) << sErr;
  // Command line faults.
  EXPECT_EQ(RunShuttle({"/SRCFILE=" + P("src.wav"), "/DSTFORMAT=" + FormatText(4, 44100, 2, 128)}, &sErr), 2);
  EXPECT_NE(sErr.find("/DSTFILE"), std::string::npos) << sErr;
  EXPECT_EQ(RunShuttle({"/SRCFILE=" + P("src.wav"), "/DSTFILE=" + P("x.mp3"), "/DSTFORMAT=rate=5"}, &sErr), 2);
  EXPECT_EQ(RunShuttle({"/SRCFILE=" + P("src.wav"), "/DSTFILE=" + P("x.mp3"), "/BOGUS=1",
                        "/DSTFORMAT=" + FormatText(4, 44100, 2, 128)},
                       &sErr),
            2);
  EXPECT_NE(sErr.find("/BOGUS"), std::string::npos) << sErr;
  EXPECT_EQ(RunShuttle({"/SRCFILE=" + P("src.wav"), "/DSTFILE=" + P("x.mp3"),
                        "/DSTFORMAT=" + FormatText(4, 44100, 7, 128)},
                       &sErr),
            2);
  EXPECT_EQ(RunShuttle({"/SRCFILE=" + P("src.wav"), "/DSTFILE=" + P("x.ogg"),
                        "/DSTFORMAT=" + FormatText(64, 44100, 2, 128)},
                       &sErr),
            2);
  EXPECT_FALSE(fs::exists(P("x.mp3")));
  EXPECT_FALSE(fs::exists(P("x.ogg")));
  // Nothing left behind but the two inputs.
  auto a = FilesIn(m_sDir);
  EXPECT_EQ(a.size(), 2u);
}

// Root writes into any folder, so as root the copier runs as "nobody" through setpriv.
TEST_F(SoundShuttleTest, FolderWithoutWritePermission) {
  std::string sPrefix;
  if (geteuid() == 0) {
    if (!fs::exists("/usr/bin/setpriv")) GTEST_SKIP() << "root, and no setpriv to drop it";
    sPrefix = "/usr/bin/setpriv --reuid=65534 --regid=65534 --clear-groups ";
    fs::permissions(m_sDir, fs::perms::others_read | fs::perms::others_exec, fs::perm_options::add);
    fs::permissions(P("src.wav"), fs::perms::others_read, fs::perm_options::add);
  }
  fs::create_directories(P("ro"));
  fs::permissions(P("ro"), fs::perms::owner_read | fs::perms::owner_exec | fs::perms::others_read |
                               fs::perms::others_exec);
  std::string sErrFile = P("err.txt");
  int rc = 0;
  Shell("(" + sPrefix + Quote(kShuttle) + " " + Quote("/SRCFILE=" + P("src.wav")) + " " +
            Quote("/DSTFILE=" + P("ro/x.mp3")) + " " + Quote("/DSTFORMAT=" + FormatText(4, 44100, 2, 128)) +
            " 2>" + Quote(sErrFile) + ")",
        &rc);
  auto a = ReadBytes(sErrFile);
  std::string sErr(a.begin(), a.end());
  EXPECT_EQ(rc, 3) << sErr;
  EXPECT_NE(sErr.find("cannot write in folder " + P("ro") + ": Permission denied"), std::string::npos) << sErr;
  EXPECT_TRUE(fs::is_empty(P("ro")));
}

// A run killed half way leaves nothing under the destination name; a terminated run
// leaves nothing at all; an existing destination stays as it was.
TEST_F(SoundShuttleTest, InterruptedRunLeavesNoDestination) {
  MakeToneWav(P("long.wav"), 44100, 2, 120.0);
  WriteBytes(P("keep.mp3"), std::vector<char>(100, 'k'));
  for (int iSignal : {SIGKILL, SIGTERM}) {
    SCOPED_TRACE(iSignal);
    std::string sDst = iSignal == SIGKILL ? P("out.mp3") : P("keep.mp3");
    std::vector<std::string> a = {kShuttle, "/SRCFILE=" + P("long.wav"), "/DSTFILE=" + sDst,
                                  "/DSTFORMAT=" + FormatText(4, 44100, 2, 128)};
    std::vector<char*> argv;
    for (auto& s : a) argv.push_back(s.data());
    argv.push_back(nullptr);
    pid_t pid = 0;
    ASSERT_EQ(posix_spawn(&pid, kShuttle.c_str(), nullptr, nullptr, argv.data(), environ), 0);
    // Wait until the temporary file has grown, then stop the run.
    bool bStarted = false;
    for (int i = 0; i < 2000 && !bStarted; ++i) {
      for (const auto& s : FilesIn(m_sDir))
        if (s.starts_with("." + fs::path(sDst).filename().string() + ".shuttle-") && fs::file_size(P(s)) > 0)
          bStarted = true;
      if (!bStarted) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    ASSERT_TRUE(bStarted);
    kill(pid, iSignal);
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status));
    if (iSignal == SIGKILL) {
      EXPECT_FALSE(fs::exists(sDst));
    } else {
      EXPECT_EQ(fs::file_size(sDst), 100u);
      for (const auto& s : FilesIn(m_sDir)) EXPECT_FALSE(s.starts_with(".keep.mp3.shuttle-")) << s;
    }
  }
}

TEST_F(SoundShuttleTest, HelpDescribesTheFormatText) {
  int rc = 0;
  std::string s = Shell(Quote(kShuttle) + " --help", &rc);
  EXPECT_EQ(rc, 0);
  for (const char* k : {"/SRCFILE=", "/DSTFORMAT=", "FormatType=", "ProfileNum", "ProfileFile", "FormatTag"})
    EXPECT_NE(s.find(k), std::string::npos) << k;
}
