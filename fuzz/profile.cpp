// Profile file parser and editor: any bytes parse and serialise back unchanged; a key
// written reads back; a section written reads back.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "support/ProfileFile.h"

namespace {
// Stops the run with the line of the broken rule.
#define Check(b) CheckAt((b), __LINE__)
void CheckAt(bool b, int iLine) {
  if (b) return;
  std::fprintf(stderr, "rule broken at line %d\n", iLine);
  std::abort();
}

std::string Part(const std::string& s, size_t iPos, size_t n) {
  return iPos < s.size() ? s.substr(iPos, n) : std::string();
}

// Names the file format can hold: letters and digits.
std::string Name(const std::string& s) {
  std::string r;
  for (char c : s)
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) r += c;
  return r.empty() ? "N" : r;
}

// A value the format can hold: no line break, no NUL.
std::string Value(const std::string& s) {
  std::string r;
  for (char c : s)
    if (c != '\r' && c != '\n' && c != '\0') r += c;
  return r;
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
  const std::string sIn(reinterpret_cast<const char*>(pData), nSize);
  ProfileFile f = ProfileFile::Parse(sIn);
  Check(f.Serialise() == sIn);
  (void)f.GetSection("General");
  (void)ProfileFile::IntValue(f.GetString("General", "Rate"), -1);

  if (!f.Editable()) {
    // Broken UTF-16 is never changed.
    Check(!f.SetString("General", "Rate", "1") && !f.SetSection("General", std::string("A=1\0\0", 5)));
    Check(f.Serialise() == sIn);
    return 0;
  }

  const std::string sSec = Name(Part(sIn, 0, 3));
  const std::string sKey = Name(Part(sIn, 3, 3));
  const std::string sVal = Value(Part(sIn, 6, 20));
  f.SetString(sSec, sKey, sVal);
  const ProfileFile g = ProfileFile::Parse(f.Serialise());
  std::string sExpect(ProfileFile::TrimText(sVal));
  if (sExpect.size() >= 2 && (sExpect[0] == '"' || sExpect[0] == '\'') && sExpect.back() == sExpect[0])
    sExpect = sExpect.substr(1, sExpect.size() - 2);
  Check(g.GetString(sSec, sKey) == sExpect);
  Check(f.SetString(sSec, sKey, sVal) == false);

  const std::string sEntries = std::string("A=1\0", 4) + sKey + std::string("=2\0\0", 4);
  f.SetSection(sSec, sEntries);
  Check(f.GetSection(sSec) == sEntries);
  Check(ProfileFile::Parse(f.Serialise()).GetString(sSec, "a") == "1");
  return 0;
}
