// Feeds arbitrary bytes to the WAV reader as a file: open, read to the end, seek, read
// again, hand out the left-over bytes, close. Nothing may crash, hang or allocate
// without bound.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "audio/AudioTypes.h"
#include "audio/CAudioACM.h"
#include "support/MsgBox.h"

namespace {
const std::string& FuzzFile() {
  static const std::string s = [] {
    const char* t = getenv("TMPDIR");
    std::string sPath = std::string(t && *t ? t : "/tmp") + "/fuzz_riff." + std::to_string(getpid()) + ".wav";
    SetMsgBoxHandler([](const std::string&, int32_t, const std::string&) { return vbOK; });
    return sPath;
  }();
  return s;
}

void Drain(CAudioACM& o, std::vector<uint8_t>& aBuf, float fSecs) {
  for (int i = 0; i < 64; ++i)
    if (o.ReadAudioData(aBuf.data(), fSecs) <= 0) break;
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t lSize) {
  const std::string& sFile = FuzzFile();
  FILE* f = fopen(sFile.c_str(), "wb");
  if (!f) return 0;
  if (lSize) fwrite(pData, 1, lSize, f);
  fclose(f);
  CAudioACM o;
  o.SetBufLenSecs(0.25);
  if (o.OpenAudioFile(sFile, AudioFileRead) == 0) {
    std::vector<uint8_t> aBuf(static_cast<size_t>(0.25 * 176400) + 64);
    (void)o.AudioLength();
    (void)o.CurrentPosition();
    Drain(o, aBuf, 0.25f);
    o.SeekFraction(0.5f);
    Drain(o, aBuf, 0.1f);
    std::vector<uint8_t> aLeft;
    int32_t lLeft = 0;
    o.GetLeftOverBuffer(aLeft, lLeft);
    if (lLeft > 0) o.SetLeftOverBuffer(aLeft.data(), lLeft);
    o.SeekFraction(0.0f);
    Drain(o, aBuf, 0.25f);
    o.CloseAudioFile();
  }
  unlink(sFile.c_str());
  return 0;
}
