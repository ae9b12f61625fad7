// The hour info reader on arbitrary file contents. Whatever the bytes, loading never
// crashes; it refuses (raises kErrInfUnreadable) exactly the files that hold no hour
// info (empty or blank, control characters, no "ActionDates" section, broken UTF-16);
// every point of a file it takes comes back as one of the three kinds the preparation
// knows (the mark, a never-due day 0, or a real day and hour), a real point reads back
// from its own text; the same text saved as UTF-16 reads the same; and now and then a
// save and a new load give the same points again, in the file's own encoding.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "hours/CHourlyInf.h"
#include "support/CNVErr.h"
#include "support/TextRules.h"

namespace {
std::string g_sRoot;
std::string g_sInf;

#define Check(b) CheckAt((b), __LINE__)
void CheckAt(bool b, int iLine) {
  if (b) return;
  std::fprintf(stderr, "rule broken at line %d\n", iLine);
  std::abort();
}

void WriteInf(const std::string& sBytes) {
  std::ofstream f(g_sInf, std::ios::binary | std::ios::trunc);
  f << sBytes;
}

// Loads the file: false when the reader refused it.
bool Load(CHourlyInf& o) {
  try {
    o.FileName(g_sInf);
    return true;
  } catch (const RaisedError& e) {
    Check(e.Number == CHourlyInf::kErrInfUnreadable);
    return false;
  }
}

// Whether a text of single bytes (not UTF-16) is one the reader must take: no control
// characters but line ends, tabs and 0x1A, something not blank, and a line that opens
// the section "ActionDates" (names trimmed, case ignored).
bool Acceptable(const std::string& s) {
  bool bBlank = true;
  for (char c : s) {
    const auto u = static_cast<unsigned char>(c);
    if (u == '\r' || u == '\n' || u == '\t' || u == 0x1A) continue;
    if (u < 0x20 || u == 0x7F) return false;
    if (u != ' ') bBlank = false;
  }
  if (bBlank || s == "\xEF\xBB\xBF") return false;
  std::string sUpper = TextRules::Upper(s);
  for (char& c : sUpper)
    if (c == '\r') c = '\n';
  size_t i = 0;
  while (i <= sUpper.size()) {
    size_t j = sUpper.find('\n', i);
    if (j == std::string::npos) j = sUpper.size();
    std::string_view sLine(sUpper.data() + i, j - i);
    if (i == 0 && sLine.substr(0, 3) == "\xEF\xBB\xBF") sLine.remove_prefix(3);
    sLine = TextRules::Trim(sLine, " \t\x1A");
    if (!sLine.empty() && sLine[0] == '[') {
      const size_t iClose = sLine.rfind(']');
      // Only the first section of a name counts, and any such line opens one.
      if (iClose != std::string_view::npos && TextRules::Trim(sLine.substr(1, iClose - 1), " \t\x1A") == "ACTIONDATES")
        return true;
    }
    i = j + 1;
  }
  return false;
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
  const char* pTmp = std::getenv("TMPDIR");
  std::string sTemplate = std::string(pTmp && *pTmp ? pTmp : "/tmp") + "/knfuzz-inf.XXXXXX";
  if (char* made = mkdtemp(sTemplate.data())) g_sRoot = made;
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
  WriteInf(sIn);
  CHourlyInf o;
  const bool bUtf16 = nSize >= 2 && ((pData[0] == 0xFF && pData[1] == 0xFE) || (pData[0] == 0xFE && pData[1] == 0xFF));
  const bool bTaken = Load(o);
  if (!bUtf16) Check(bTaken == Acceptable(sIn));
  if (!bTaken) return 0;
  CheckPoint(o.StandardPoint());
  CheckPoint(o.ArchivePoint());
  CheckPoint(o.DeletePoint());
  (void)o.LogSegmentLength();
  if (!bUtf16) {
    // The same text as a Windows editor saves it ("Unicode"): the same points.
    WriteInf("\xFF\xFE" + TextRules::Utf8ToUtf16Le(sIn));
    CHourlyInf oWide;
    Check(Load(oWide));
    Check(*oWide.StandardPoint() == *o.StandardPoint());
    Check(*oWide.ArchivePoint() == *o.ArchivePoint());
    Check(*oWide.DeletePoint() == *o.DeletePoint());
    WriteInf(sIn);
  }
  // Each save is five flushed renames: only a small share of inputs.
  if (nSize > 0 && (pData[nSize - 1] == 'S' || bUtf16) && nSize % 16 == 0) {
    o.Save();
    CHourlyInf oBack;
    Check(Load(oBack));
    Check(*oBack.StandardPoint() == *o.StandardPoint());
    Check(*oBack.ArchivePoint() == *o.ArchivePoint());
    Check(*oBack.DeletePoint() == *o.DeletePoint());
    if (bUtf16) {
      std::ifstream f(g_sInf, std::ios::binary);
      char aMark[2] = {};
      f.read(aMark, 2);
      Check(static_cast<uint8_t>(aMark[0]) == pData[0] && static_cast<uint8_t>(aMark[1]) == pData[1]);
    }
  }
  return 0;
}
