// The hour info reader on arbitrary file contents. Whatever the bytes, loading never
// crashes and never raises (the file is there and readable), every point comes back as
// one of the three kinds the preparation knows (the mark, a never-due day 0, or a real
// day and hour), a real point reads back from its own text, and now and then a save
// and a new load give the same points again.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "hours/CHourlyInf.h"

namespace {
std::string g_sRoot;
std::string g_sInf;

#define Check(b) CheckAt((b), __LINE__)
void CheckAt(bool b, int iLine) {
  if (b) return;
  std::fprintf(stderr, "rule broken at line %d\n", iLine);
  std::abort();
}

void CheckPoint(const std::shared_ptr<LogInfo>& p) {
  Check(p != nullptr);
  if (p->Date == -1) {
    Check(p->Hour == -1 && p->Segment == -1);
    Check(CHourlyInf::FormatPoint(p) == "-1");
    return;
  }
  Check(p->Segment == 0);
  if (p->Date == 0) {
    Check(p->Hour == 0);
    return;
  }
  Check(p->Date > 0 && p->Hour >= 0 && p->Hour <= 23);
  auto q = CHourlyInf::ParsePoint(CHourlyInf::FormatPoint(p));
  Check(*q == *p);
}
}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  char tmpl[] = "/tmp/knfuzz-inf.XXXXXX";
  if (char* made = mkdtemp(tmpl)) g_sRoot = made;
  setenv("KESTRANE_ROOT", g_sRoot.c_str(), 1);
  const std::string sCmd = "mkdir -p '" + g_sRoot + "/L/20100314/1300'";
  if (std::system(sCmd.c_str()) != 0) return 0;
  g_sInf = g_sRoot + "/L/20100314/1300/130000.inf";
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
  const std::string sIn(reinterpret_cast<const char*>(pData), nSize);
  // The text alone as a point, as a key's value would give it.
  CheckPoint(CHourlyInf::ParsePoint(sIn));
  {
    std::ofstream f(g_sInf, std::ios::binary | std::ios::trunc);
    f << sIn;
  }
  CHourlyInf o;
  o.FileName(g_sInf);
  CheckPoint(o.StandardPoint());
  CheckPoint(o.ArchivePoint());
  CheckPoint(o.DeletePoint());
  (void)o.LogSegmentLength();
  // Each save is five flushed renames: only a small share of inputs.
  if (nSize > 0 && pData[0] == 'S' && nSize % 16 == 0) {
    o.Save();
    CHourlyInf oBack;
    oBack.FileName(g_sInf);
    Check(*oBack.StandardPoint() == *o.StandardPoint());
    Check(*oBack.ArchivePoint() == *o.ArchivePoint());
    Check(*oBack.DeletePoint() == *o.DeletePoint());
  }
  return 0;
}
