#pragma once
// Helpers of the support tests: file stamps, and writers killed at random moments.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <random>
#include <string>
#include <thread>

inline void SetMtime(const std::string& sPath, time_t t) {
  struct timespec ts[2] = {{t, 0}, {t, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, sPath.c_str(), ts, 0), 0);
}

inline ino_t InodeOf(const std::string& sPath) {
  struct stat st {};
  return ::stat(sPath.c_str(), &st) == 0 ? st.st_ino : 0;
}

// Thirty rounds: a child runs fnWriteForever and is killed after a random wait below
// iMaxUs; then fnCheck(round) looks at what it left.
inline void KillWritersAtRandom(unsigned uSeed, int iMaxUs, const std::function<void()>& fnWriteForever,
                                const std::function<void(int)>& fnCheck) {
  std::mt19937 gen(uSeed);
  for (int round = 0; round < 30; ++round) {
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      fnWriteForever();
      _exit(0);
    }
    std::this_thread::sleep_for(std::chrono::microseconds(1000 + gen() % static_cast<unsigned>(iMaxUs)));
    kill(pid, SIGKILL);
    int st = 0;
    ASSERT_EQ(waitpid(pid, &st, 0), pid);
    fnCheck(round);
    if (::testing::Test::HasFatalFailure()) return;
  }
}
