#pragma once
// A built program running in the background for an end-to-end test: started directly
// (no shell), output to a file, stopped and reaped at the end of the test.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "common/TempRoot.h"
#include "common/TestUtil.h"
#include "engine/ProcessTestUtil.h"

extern char** environ;

// Polls pred every 20 ms until it holds or iMs have passed.
inline bool WaitFor(const std::function<bool()>& pred, int iMs) {
  const auto tEnd = std::chrono::steady_clock::now() + std::chrono::milliseconds(iMs);
  while (!pred()) {
    if (std::chrono::steady_clock::now() > tEnd) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return true;
}

class RunningProgram {
 public:
  RunningProgram() = default;
  RunningProgram(const RunningProgram&) = delete;
  RunningProgram& operator=(const RunningProgram&) = delete;
  ~RunningProgram() {
    if (m_pid > 0 && !m_bReaped) {
      kill(m_pid, SIGKILL);
      waitpid(m_pid, nullptr, 0);
    }
  }

  // Starts sProgram with aArgs (argv[0] is added). The environment is this process's,
  // without a display (so the processor runs headless) and with aExtraEnv added.
  // Standard output and error go to sOutFile.
  bool Start(const std::string& sProgram, const std::vector<std::string>& aArgs, const std::string& sOutFile,
             const std::vector<std::string>& aExtraEnv = {}, bool bNoArgv0 = false) {
    std::vector<std::string> aArgStore;
    if (!bNoArgv0) aArgStore.push_back(sProgram);
    aArgStore.insert(aArgStore.end(), aArgs.begin(), aArgs.end());
    std::vector<char*> aArgv;
    for (auto& s : aArgStore) aArgv.push_back(s.data());
    aArgv.push_back(nullptr);

    std::vector<std::string> aEnvStore;
    for (char** e = environ; *e; ++e) {
      std::string s = *e;
      if (s.rfind("DISPLAY=", 0) == 0 || s.rfind("WAYLAND_DISPLAY=", 0) == 0 || s.rfind("QT_QPA_PLATFORM=", 0) == 0)
        continue;
      aEnvStore.push_back(s);
    }
    aEnvStore.insert(aEnvStore.end(), aExtraEnv.begin(), aExtraEnv.end());
    std::vector<char*> aEnv;
    for (auto& s : aEnvStore) aEnv.push_back(s.data());
    aEnv.push_back(nullptr);

    posix_spawn_file_actions_t oActions;
    posix_spawn_file_actions_init(&oActions);
    posix_spawn_file_actions_addopen(&oActions, 1, sOutFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_adddup2(&oActions, 1, 2);
    posix_spawn_file_actions_addopen(&oActions, 0, "/dev/null", O_RDONLY, 0);
    int rc = posix_spawn(&m_pid, sProgram.c_str(), &oActions, nullptr, aArgv.data(), aEnv.data());
    posix_spawn_file_actions_destroy(&oActions);
    m_bReaped = false;
    if (rc != 0) m_pid = -1;
    return rc == 0;
  }

  pid_t Pid() const { return m_pid; }

  bool Running() {
    if (m_pid <= 0 || m_bReaped) return false;
    int iStatus = 0;
    pid_t r = waitpid(m_pid, &iStatus, WNOHANG);
    if (r == m_pid) {
      m_bReaped = true;
      m_iStatus = iStatus;
      return false;
    }
    return true;
  }

  // Waits up to iMs for the program to end. True when it has ended.
  bool WaitEnd(int iMs) {
    return WaitFor([&] { return !Running(); }, iMs);
  }

  void Signal(int iSignal) {
    if (Running()) kill(m_pid, iSignal);
  }

  // After the end: the raw wait status, and the exit code (-1 when ended by a signal).
  int Status() const { return m_iStatus; }
  int ExitCode() const { return WIFEXITED(m_iStatus) ? WEXITSTATUS(m_iStatus) : -1; }

 private:
  pid_t m_pid = -1;
  bool m_bReaped = true;
  int m_iStatus = 0;
};

// A machine root with a copy of the processor of its own: tests running side by side
// would otherwise see each other's processor as "a copy already running".
class ProcessorTest : public TempRootTest {
 protected:
  void SetUp() override {
    TempRootTest::SetUp();
    std::filesystem::create_directories(PathIn("bin"));
    m_sProgram = PathIn("bin/knlogproc");
    std::filesystem::copy_file(BinPath("knlogproc"), m_sProgram);
  }
  // All debug files of the processor, in name order.
  std::string Trace() const {
    std::vector<std::filesystem::path> aFiles;
    std::error_code ec;
    for (auto& e : std::filesystem::directory_iterator(PathIn("drive_c/DebugFiles"), ec))
      if (e.path().filename().string().rfind("knlogproc.", 0) == 0) aFiles.push_back(e.path());
    std::sort(aFiles.begin(), aFiles.end());
    std::string sAll;
    for (auto& p : aFiles) sAll += ReadBytes(p.string());
    return sAll;
  }
  bool WaitForTrace(const std::string& sText, int iMs = 20000) const {
    return WaitFor([&] { return Trace().find(sText) != std::string::npos; }, iMs);
  }
  // Whether a handler's socket is there under the machine root.
  bool Bound(const std::string& sHandler = "KNLogProcMsgHandler") const {
    return std::filesystem::exists(std::filesystem::symlink_status(PathIn("run/msg/" + sHandler)));
  }

  std::string m_sProgram;
};
