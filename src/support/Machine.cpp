#include "support/Machine.h"

#include <cctype>
#include <cstdlib>

namespace Machine {

static std::string StripTrailingSlash(std::string s) {
  while (s.size() > 1 && s.back() == '/') s.pop_back();
  return s;
}

std::string Root() {
  if (const char* r = std::getenv("KESTRANE_ROOT"); r && *r) return StripTrailingSlash(r);
  if (const char* x = std::getenv("XDG_DATA_HOME"); x && *x) return StripTrailingSlash(x) + "/kestrane";
  const char* h = std::getenv("HOME");
  return StripTrailingSlash(h && *h ? h : "/tmp") + "/.local/share/kestrane";
}

std::string DriveFolder(const std::string& sLetter) {
  char c = sLetter.empty() ? 'c' : static_cast<char>(std::tolower(static_cast<unsigned char>(sLetter[0])));
  return Root() + "/drive_" + std::string(1, c);
}

std::string TranslatePath(const std::string& sPath) {
  if (sPath.empty() || sPath[0] == '/') return sPath;
  std::string s = sPath;
  for (char& c : s)
    if (c == '\\') c = '/';
  if (s.size() >= 2 && s[1] == ':' && std::isalpha(static_cast<unsigned char>(s[0]))) {
    std::string rest = s.substr(2);
    while (!rest.empty() && rest[0] == '/') rest.erase(0, 1);
    std::string drive = DriveFolder(s.substr(0, 1));
    return rest.empty() ? drive : drive + "/" + rest;
  }
  return s;
}

std::string RegistryFile() { return Root() + "/registry.reg"; }

std::string MessageFolder() { return Root() + "/run/msg"; }

std::string TempFolder() {
  if (const char* t = std::getenv("TMPDIR"); t && *t) return StripTrailingSlash(t);
  return "/tmp";
}

}  // namespace Machine
