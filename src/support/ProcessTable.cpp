#include "support/ProcessTable.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "support/UniqueFd.h"

namespace {

bool IsAllDigits(const char* s) {
  if (!*s) return false;
  for (; *s; ++s)
    if (!std::isdigit(static_cast<unsigned char>(*s))) return false;
  return true;
}

std::string StripExe(const std::string& sName) {
  if (sName.size() >= 4) {
    std::string sTail = sName.substr(sName.size() - 4);
    for (char& c : sTail) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    if (sTail == ".EXE") return sName.substr(0, sName.size() - 4);
  }
  return sName;
}

// The effective user id of a process, from the "Uid:" line of its status file.
bool ProcessUid(uint32_t lPid, unsigned long& lUid) {
  std::ifstream f("/proc/" + std::to_string(lPid) + "/status");
  if (!f) return false;
  std::string sLine;
  while (std::getline(f, sLine)) {
    if (sLine.rfind("Uid:", 0) != 0) continue;
    unsigned long lReal = 0, lEffective = 0;
    if (std::sscanf(sLine.c_str() + 4, "%lu %lu", &lReal, &lEffective) != 2) return false;
    lUid = lEffective;
    return true;
  }
  return false;
}

}  // namespace

uint32_t FindProcess(const std::string& sFolder, const std::string& sExeName, bool IncludeSelf, bool AnyUser) {
  std::string sTarget = sFolder;
  while (sTarget.size() > 1 && sTarget.back() == '/') sTarget.pop_back();
  sTarget += "/" + StripExe(sExeName);
  // "The same file": same device and inode, so links and other spellings of the path
  // count, while a copy of the program elsewhere doesn't.
  struct stat stTarget {};
  if (stat(sTarget.c_str(), &stTarget) != 0) return 0;

  const uint32_t lSelf = static_cast<uint32_t>(getpid());
  const std::string sSelfUser = AnyUser ? std::string() : GetProcessUser(lSelf);

  UniqueDir d(opendir("/proc"));
  if (!d) return 0;
  uint32_t lFound = 0;
  while (dirent* e = readdir(d.get())) {
    if (!IsAllDigits(e->d_name)) continue;
    const uint32_t lPid = static_cast<uint32_t>(std::strtoul(e->d_name, nullptr, 10));
    if (!IncludeSelf && lPid == lSelf) continue;
    // A process whose executable can't be looked at (another user's, or one that has
    // just ended) is passed over.
    struct stat stExe {};
    if (stat(("/proc/" + std::string(e->d_name) + "/exe").c_str(), &stExe) != 0) continue;
    if (stExe.st_dev != stTarget.st_dev || stExe.st_ino != stTarget.st_ino) continue;
    if (!AnyUser && GetProcessUser(lPid) != sSelfUser) continue;
    lFound = lPid;
    break;
  }
  return lFound;
}

std::string GetProcessUser(uint32_t lPid) {
  unsigned long lUid = 0;
  if (lPid == 0 || !ProcessUid(lPid, lUid)) return "";
  // The form Samba gives a Unix user as a security identifier.
  return "S-1-22-1-" + std::to_string(lUid);
}
