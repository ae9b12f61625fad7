// Feeds arbitrary bytes to the section decoders of a logger's settings file, and now and
// then a whole file to the loader. Raised errors are the decoders' way to give up on a
// section and are expected; anything else (a crash, a sanitizer report, another
// exception) is a finding.
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>

#include "config/CLog.h"
#include "support/CNVErr.h"
#include "support/ConfigAccess.h"

namespace {
std::string g_sRoot;
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  const char* pTmp = std::getenv("TMPDIR");
  std::string sTemplate = std::string(pTmp && *pTmp ? pTmp : "/tmp") + "/knfuzz.XXXXXX";
  if (char* made = mkdtemp(sTemplate.data())) g_sRoot = made;
  setenv("KESTRANE_ROOT", g_sRoot.c_str(), 1);
  std::string cmd = "mkdir -p '" + g_sRoot + "/drive_d/L'";
  if (std::system(cmd.c_str()) != 0) return 0;
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const uint8_t sel = data[0];
  std::string s(reinterpret_cast<const char*>(data + 1), size - 1);
  CLog log;
  try {
    // The whole-file case writes through fsync'd renames and is slow: keep it rare.
    switch (sel % 32 == 31 ? 9 : sel % 8) {
      case 0: log.DecodeGeneral(s); break;
      case 1: log.DecodeLogSettings(s); break;
      case 2: log.DecodeSilence(s); break;
      case 3: log.DecodeDAB(s); break;
      case 4: log.DecodeLogicLines(s); break;
      case 5: log.DecodeSerial(static_cast<int32_t>(sel) - 100, s); break;
      case 6: log.DecodeComments(s); break;
      case 7: {
        LogInfo li;
        log.NumLogSegmentsPerHour(sel % 121);
        log.DecodeAvailableLog(s, li);
        break;
      }
      default: {
        {
          std::ofstream f(g_sRoot + "/drive_d/L/Kestrane.ini", std::ios::binary | std::ios::trunc);
          f << s;
        }
        ConfigAccess::ClearCache();
        log.LoadLog("D:\\L", -1);
        // Every key write is a flushed rename: the writer runs on a small share of inputs.
        if (sel == 255) log.SaveLog("D:\\L", -1);
        break;
      }
    }
  } catch (const RaisedError&) {
  }
  log.Terminate();
  return 0;
}
