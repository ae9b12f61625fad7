// Registry file parser and writer: any bytes parse; a rewrite reads back the same and
// is stable; values set read back.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "support/RegistryFile.h"

namespace {
// Stops the run with the line of the broken rule.
#define Check(b) CheckAt((b), __LINE__)
void CheckAt(bool b, int iLine) {
  if (b) return;
  std::fprintf(stderr, "rule broken at line %d\n", iLine);
  std::abort();
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
  const std::string sIn(reinterpret_cast<const char*>(pData), nSize);
  RegistryFile r = RegistryFile::Parse(sIn);
  (void)r.GetValue("S\\K", "a");
  (void)r.KeyExists("S");

  const std::string s1 = r.Serialise();
  const RegistryFile r1 = RegistryFile::Parse(s1);
  Check(r1.Serialise() == s1);

  // Values named and filled from the input's first bytes.
  const std::string sName = sIn.substr(0, std::min<size_t>(nSize, 6));
  const std::string sData = nSize > 6 ? sIn.substr(6, 40) : std::string();
  const bool bNamed = r.SetString("S\\K", sName, sData);
  Check(bNamed == (sName.find_first_of("\r\n") == std::string::npos));
  Check(r.SetDword("S\\K\\Sub", "n", static_cast<uint32_t>(nSize)));
  const RegistryFile r2 = RegistryFile::Parse(r.Serialise());
  if (bNamed) {
    auto v = r2.GetValue("S\\K", sName);
    Check(v && v->AsText() == sData.substr(0, sData.find('\0')));
  }
  auto n = r2.GetValue("s\\k\\sub", "N");
  Check(n && n->AsLong() == static_cast<int32_t>(nSize));
  r.DeleteKey("S\\K");
  Check(!r.KeyExists("S\\K") && !r.KeyExists("S\\K\\Sub"));
  Check(!RegistryFile::Parse(r.Serialise()).KeyExists("S\\K"));
  return 0;
}
