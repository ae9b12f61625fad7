#pragma once
// A fresh machine root for each test: KESTRANE_ROOT points at a new temporary folder,
// removed again at the end of the test (unless KN_KEEP_TEST_ROOT is set).
#include <gtest/gtest.h>

#include <string>

class TempRootTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
  // The machine root of this test.
  const std::string& Root() const { return m_sRoot; }
  // <root>/<rel>, parents created for WriteFile.
  std::string PathIn(const std::string& sRel) const;
  void WriteFile(const std::string& sRel, const std::string& sContent) const;
  std::string ReadFile(const std::string& sRel) const;

 private:
  std::string m_sRoot;
  std::string m_sOldRoot;
  bool m_bHadOldRoot = false;
};

// Runs a program, waits for it, returns its exit status; output captured when asked.
int RunProgram(const std::string& sCommandLine, std::string* psOutput = nullptr);
// Path of a built program (bin folder of this build).
std::string BinPath(const std::string& sName);
// s in single quotes for the shell, with any single quote in it escaped.
std::string Quote(const std::string& s);
