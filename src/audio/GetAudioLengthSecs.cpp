#include "audio/GetAudioLengthSecs.h"

#include <algorithm>
#include <cctype>

#include "audio/codec/CodecError.h"
#include "audio/codec/CodecFile.h"
#include "support/DebugMsg.h"
#include "support/FileHelper.h"

double GetAudioLengthSecs(const std::string& sFile) {
  if (FileHelper::FileSize(sFile) <= 0) return -1.0;
  try {
    CodecFile oFile;
    std::string sExt = FileHelper::GetExtension(sFile);
    std::transform(sExt.begin(), sExt.end(), sExt.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    if (sExt == "WMA") oFile.SetUseWindowsMedia(true);
    oFile.Open(sFile, 0, 1);
    double dSecs = oFile.LengthMs() / 1000.0;
    oFile.Close();
    return dSecs;
  } catch (const CodecError& e) {
    DebugMsg("GetAudioLengthSecs: " + e.Description, 10, 0);
    return -1.0;
  }
}
