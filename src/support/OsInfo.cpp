#include "support/OsInfo.h"

#include <unistd.h>

#include <cctype>
#include <cstring>

namespace OsInfo {

int32_t PlatformId() { return 2; }

std::string ComputerName() {
  char buf[256] = {};
  if (::gethostname(buf, sizeof buf - 1) != 0) return "LOCALHOST";
  std::string s = buf;
  size_t dot = s.find('.');
  if (dot != std::string::npos) s.erase(dot);
  for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return s.empty() ? "LOCALHOST" : s;
}

}  // namespace OsInfo

namespace Win32Helper {

std::string ErrorText(int32_t lError) {
  if (lError == 0) return "The operation completed successfully.";
  char buf[256] = {};
  const char* msg = ::strerror_r(lError, buf, sizeof buf);
  return msg ? std::string(msg) : std::string("Unknown error ") + std::to_string(lError);
}

}  // namespace Win32Helper
