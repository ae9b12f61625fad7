#include "common/TempRoot.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "support/ConfigAccess.h"

namespace fs = std::filesystem;

void TempRootTest::SetUp() {
  const char* old = std::getenv("KESTRANE_ROOT");
  m_bHadOldRoot = old != nullptr;
  if (old) m_sOldRoot = old;
  std::string tmpl = (fs::temp_directory_path() / "knroot.XXXXXX").string();
  char* made = mkdtemp(tmpl.data());
  ASSERT_NE(made, nullptr);
  m_sRoot = made;
  setenv("KESTRANE_ROOT", m_sRoot.c_str(), 1);
  ConfigAccess::ClearCache();
}

void TempRootTest::TearDown() {
  if (!std::getenv("KN_KEEP_TEST_ROOT") && !m_sRoot.empty()) {
    std::error_code ec;
    fs::permissions(m_sRoot, fs::perms::owner_all, fs::perm_options::add, ec);
    for (auto it = fs::recursive_directory_iterator(m_sRoot, ec); it != fs::recursive_directory_iterator();
         it.increment(ec)) {
      fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ec);
    }
    fs::remove_all(m_sRoot, ec);
  }
  if (m_bHadOldRoot) setenv("KESTRANE_ROOT", m_sOldRoot.c_str(), 1);
  else unsetenv("KESTRANE_ROOT");
  ConfigAccess::ClearCache();
}

std::string TempRootTest::PathIn(const std::string& sRel) const { return m_sRoot + "/" + sRel; }

void TempRootTest::WriteFile(const std::string& sRel, const std::string& sContent) const {
  fs::path p = PathIn(sRel);
  fs::create_directories(p.parent_path());
  std::ofstream f(p, std::ios::binary);
  f << sContent;
}

std::string TempRootTest::ReadFile(const std::string& sRel) const {
  std::ifstream f(PathIn(sRel), std::ios::binary);
  std::stringstream ss;
  ss << f.rdbuf();
  return ss.str();
}

int RunProgram(const std::string& sCommandLine, std::string* psOutput) {
  std::string cmd = sCommandLine + " 2>&1";
  FILE* p = popen(cmd.c_str(), "r");
  if (!p) return -1;
  std::string out;
  char buf[4096];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, p)) > 0) out.append(buf, n);
  int st = pclose(p);
  if (psOutput) *psOutput = out;
  if (WIFEXITED(st)) return WEXITSTATUS(st);
  return -1;
}

std::string BinPath(const std::string& sName) { return std::string(KN_BIN_DIR) + "/" + sName; }

std::string Quote(const std::string& s) {
  std::string r = "'";
  for (char c : s) r += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return r + "'";
}
