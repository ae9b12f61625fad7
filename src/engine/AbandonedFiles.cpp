#include "engine/AbandonedFiles.h"

#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "support/DebugMsg.h"
#include "support/FileHelper.h"
#include "support/OsInfo.h"

bool IsSegmentName(const std::string& sName) {
  if (sName.size() < 8) return false;
  for (int i = 0; i < 6; ++i)
    if (sName[i] < '0' || sName[i] > '9') return false;
  return sName[7] == '.';
}

namespace {

bool IsUpperHex(char c) { return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F'); }
bool IsAlnum(char c) { return (c >= '0' && c <= '9') || ((c | 0x20) >= 'a' && (c | 0x20) <= 'z'); }

// "LOG" and 1 to 4 upper-case hexadecimal digits, a dot, and an extension of 1 to 4
// letters or digits: the names GetTempFile gives this program's writers.
bool IsWriterTemporary(const std::string& sName) {
  const size_t iDot = sName.find('.');
  if (sName.compare(0, 3, "LOG") != 0 || iDot == std::string::npos || iDot < 4 || iDot > 7) return false;
  for (size_t i = 3; i < iDot; ++i)
    if (!IsUpperHex(sName[i])) return false;
  const size_t iExt = sName.size() - iDot - 1;
  if (iExt < 1 || iExt > 4) return false;
  for (size_t i = iDot + 1; i < sName.size(); ++i)
    if (!IsAlnum(sName[i])) return false;
  return true;
}

// "." + "std" or "arc" + a segment name + ".shuttle-" + six characters: the copier's
// file while it writes a converted segment.
bool IsCopierTemporary(const std::string& sName) {
  static const std::string kMark = ".shuttle-";
  if (sName.size() < 1 + 3 + 8 + kMark.size() + 6 || sName[0] != '.') return false;
  if (sName.compare(1, 3, "std") != 0 && sName.compare(1, 3, "arc") != 0) return false;
  const size_t iMark = sName.rfind(kMark);
  if (iMark == std::string::npos || sName.size() - iMark - kMark.size() != 6) return false;
  for (size_t i = iMark + kMark.size(); i < sName.size(); ++i)
    if (!IsAlnum(sName[i])) return false;
  return IsSegmentName(sName.substr(4, iMark - 4));
}

}  // namespace

int RemoveAbandonedTemporaries(const std::string& sFolder) {
  namespace fs = std::filesystem;
  std::error_code ec;
  std::vector<std::string> aNames;
  for (fs::directory_iterator it(sFolder, ec), end; !ec && it != end; it.increment(ec)) {
    const std::string sName = it->path().filename().string();
    if (!IsWriterTemporary(sName) && !IsCopierTemporary(sName)) continue;
    // Only plain files; a link is never followed, and anything else is not ours.
    std::error_code ecType;
    if (it->symlink_status(ecType).type() == fs::file_type::regular) aNames.push_back(sName);
  }
  int iRemoved = 0;
  for (const std::string& sName : aNames) {
    const std::string sPath = sFolder + "/" + sName;
    if (int32_t lErr = FileHelper::DeleteFile(sPath)) {
      DebugMsg("Cannot remove abandoned temporary file " + sPath + ": " + Win32Helper::ErrorText(lErr), -1, 0);
      continue;
    }
    DebugMsg("Removed abandoned temporary file " + sPath, -1, 0);
    ++iRemoved;
  }
  return iRemoved;
}
