#pragma once
// Helpers of the support tests: the stamps of a file.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

inline void SetMtime(const std::string& sPath, time_t t) {
  struct timespec ts[2] = {{t, 0}, {t, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, sPath.c_str(), ts, 0), 0);
}

inline ino_t InodeOf(const std::string& sPath) {
  struct stat st {};
  return ::stat(sPath.c_str(), &st) == 0 ? st.st_ino : 0;
}
