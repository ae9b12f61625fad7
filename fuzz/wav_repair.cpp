// The reading of WAV files whose header sizes a crash left unpatched. The input builds a
// file: a RIFF WAVE header with a RIFF size and a "data" size of a chosen kind (0,
// 0xFFFFFFFF, true, beyond the end of the file, or arbitrary), a "fmt " chunk of PCM,
// float, EXTENSIBLE, IMA or MS ADPCM (or arbitrary bytes), an optional LIST chunk, then
// the rest of the input as audio. The file is opened, read to the end, sought and read
// again. Besides crashes, hangs and unbounded allocations, these are findings: a file
// changed on disk by reading it, audio that runs beyond the end of the file or not in
// whole blocks, and a read that delivers more audio than the length it reported.
//
// Input: byte 0 RIFF size kind (bits 0-2) and "data" size kind (bits 3-5), bit 6 a LIST
// chunk before "data", bit 7 an odd byte cut off the end; byte 1 the format; bytes 2-5
// the arbitrary size; bytes 6-7 channels and a rate selector; then the audio.
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "audio/AudioTypes.h"
#include "audio/CAudioACM.h"
#include "support/MsgBox.h"

namespace {

const std::string& FuzzFile() {
  static const std::string s = [] {
    const char* t = getenv("TMPDIR");
    std::string sPath = std::string(t && *t ? t : "/tmp") + "/fuzz_wav_repair." + std::to_string(getpid()) + ".wav";
    SetMsgBoxHandler([](const std::string&, int32_t, const std::string&) { return vbOK; });
    return sPath;
  }();
  return s;
}

void Put16(std::string& s, uint32_t v) {
  s += static_cast<char>(v & 0xFF);
  s += static_cast<char>((v >> 8) & 0xFF);
}
void Put32(std::string& s, uint32_t v) {
  Put16(s, v & 0xFFFF);
  Put16(s, v >> 16);
}
void Patch32(std::string& s, size_t i, uint32_t v) {
  for (int k = 0; k < 4; ++k) s[i + k] = static_cast<char>((v >> (8 * k)) & 0xFF);
}

uint32_t SizeOfKind(int iKind, uint32_t lTrue, uint32_t lArbitrary) {
  switch (iKind) {
    case 0: return 0;
    case 1: return 0xFFFFFFFFu;
    case 2: return lTrue;
    case 3: return lTrue + 1 + (lArbitrary & 0xFFFF);                 // beyond the end
    case 4: return lTrue > 0 ? lTrue - 1 - (lArbitrary % lTrue) : 0;  // short
    case 5: return 36;                                                // the size of a header alone
    default: return lArbitrary;
  }
}

// A "fmt " chunk body for the selector.
std::string FormatChunk(uint8_t iFormat, uint16_t iCh, uint32_t lRate, const uint8_t* p, size_t n) {
  std::string s;
  auto Base = [&](uint16_t iTag, uint16_t iAlign, uint16_t iBits, uint32_t lAvg) {
    Put16(s, iTag);
    Put16(s, iCh);
    Put32(s, lRate);
    Put32(s, lAvg);
    Put16(s, iAlign);
    Put16(s, iBits);
  };
  switch (iFormat % 7) {
    case 0: Base(1, static_cast<uint16_t>(2 * iCh), 16, lRate * 2 * iCh); break;
    case 1:
      Base(3, static_cast<uint16_t>(4 * iCh), 32, lRate * 4 * iCh);
      Put16(s, 0);
      break;
    case 2:  // EXTENSIBLE 24-bit PCM or float
    case 3: {
      const bool bFloat = iFormat % 7 == 3;
      const uint16_t iBytes = bFloat ? 4 : 3;
      Base(0xFFFE, static_cast<uint16_t>(iBytes * iCh), static_cast<uint16_t>(8 * iBytes), lRate * iBytes * iCh);
      Put16(s, 22);
      Put16(s, static_cast<uint16_t>(8 * iBytes));
      Put32(s, iCh == 1 ? 4 : 3);
      Put16(s, bFloat ? 3 : 1);
      s += std::string("\0\0\0\0\x10\0\x80\0\0\xAA\0\x38\x9B\x71", 14);
      break;
    }
    case 4: {  // IMA ADPCM, 256 bytes a channel
      const uint16_t iAlign = static_cast<uint16_t>(256 * iCh);
      const uint16_t iSpb = static_cast<uint16_t>((iAlign - 4 * iCh) * 8 / (4 * iCh) + 1);
      Base(17, iAlign, 4, lRate * iAlign / iSpb);
      Put16(s, 2);
      Put16(s, iSpb);
      break;
    }
    case 5: {  // MS ADPCM with the seven standard pairs
      const uint16_t iAlign = static_cast<uint16_t>(256 * iCh);
      const uint16_t iSpb = static_cast<uint16_t>((iAlign - 7 * iCh) * 8 / (4 * iCh) + 2);
      Base(2, iAlign, 4, lRate * iAlign / iSpb);
      Put16(s, 32);
      Put16(s, iSpb);
      Put16(s, 7);
      const int16_t aCoef[14] = {256, 0, 512, -256, 0, 0, 192, 64, 240, 0, 460, -208, 392, -232};
      for (int16_t c : aCoef) Put16(s, static_cast<uint16_t>(c));
      break;
    }
    default:  // arbitrary bytes from the input
      s.assign(reinterpret_cast<const char*>(p), std::min<size_t>(n, 40));
  }
  return s;
}

// Reads up to iMax pieces; the bytes delivered.
int64_t Drain(CAudioACM& o, std::vector<uint8_t>& aBuf, float fSecs, int iMax) {
  int64_t ll = 0;
  for (int i = 0; i < iMax; ++i) {
    const int32_t n = o.ReadAudioData(aBuf.data(), fSecs);
    if (n <= 0) break;
    ll += n;
  }
  return ll;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t lSize) {
  if (lSize < 8) return 0;
  const std::string& sFile = FuzzFile();
  const uint8_t iKinds = pData[0], iFormat = pData[1];
  const uint32_t lArbitrary = pData[2] | (pData[3] << 8) | (pData[4] << 16) | (static_cast<uint32_t>(pData[5]) << 24);
  const uint16_t iCh = static_cast<uint16_t>(1 + pData[6] % 3);
  static const uint32_t aRates[] = {8000, 11025, 22050, 44100, 48000, 1, 96000, 7};
  const uint32_t lRate = aRates[pData[7] % 8];
  const uint8_t* pAudio = pData + 8;
  const size_t lAudio = lSize - 8;

  std::string s = "RIFF";
  Put32(s, 0);
  s += "WAVE";
  const std::string sFmt = FormatChunk(iFormat, iCh, lRate, pAudio, lAudio);
  s += "fmt ";
  Put32(s, static_cast<uint32_t>(sFmt.size()));
  s += sFmt;
  if (sFmt.size() & 1) s += '\0';
  if (iKinds & 0x40) {
    s += "LIST";
    Put32(s, 12);
    s += "INFOISFT";
    Put32(s, 0);
  }
  s += "data";
  const size_t lDataSize = s.size();
  Put32(s, 0);
  s.append(reinterpret_cast<const char*>(pAudio), lAudio);
  if ((iKinds & 0x80) && s.size() > lDataSize + 4) s.pop_back();
  const uint32_t lDataTrue = static_cast<uint32_t>(s.size() - lDataSize - 4);
  Patch32(s, 4, SizeOfKind(iKinds & 7, static_cast<uint32_t>(s.size() - 8), lArbitrary));
  Patch32(s, lDataSize, SizeOfKind((iKinds >> 3) & 7, lDataTrue, lArbitrary >> 8));

  {
    std::ofstream f(sFile, std::ios::binary | std::ios::trunc);
    f.write(s.data(), static_cast<std::streamsize>(s.size()));
  }
  {
    CAudioACM o;
    o.SetBufLenSecs(0.25);
    if (o.OpenAudioFile(sFile, AudioFileRead) == 0) {
      const Wfx w = o.FileFormat();
      const double dLength = o.AudioLength();
      const int64_t llData = std::llround(dLength * w.nAvgBytesPerSec);
      // The audio lies inside the file; a size that had to be repaired becomes whole blocks.
      if (llData > static_cast<int64_t>(s.size())) abort();
      const int iDataKind = (iKinds >> 3) & 7;
      if ((iDataKind == 1 || iDataKind == 3) && w.nBlockAlign > 0 && llData % w.nBlockAlign != 0) abort();
      std::vector<uint8_t> aBuf(static_cast<size_t>(0.25 * 176400) + 64);
      // Never more audio than the length, give or take the resampler's delay (some
      // dozens of the file's samples).
      const double dRate = std::max<uint32_t>(1, w.nSamplesPerSec);
      const double dLimit = (dLength * dRate + 64) * (44100.0 / dRate) * 4 + 4096;
      if (static_cast<double>(Drain(o, aBuf, 0.25f, 4000)) > dLimit) abort();
      o.SeekFraction(0.5f);
      Drain(o, aBuf, 0.1f, 64);
      o.SeekFraction(0.0f);
      if (static_cast<double>(Drain(o, aBuf, 0.25f, 4000)) > dLimit) abort();
      o.CloseAudioFile();
    }
  }
  // Reading never changes the file.
  std::ifstream f(sFile, std::ios::binary);
  const std::string sAfter((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
  if (sAfter != s) abort();
  unlink(sFile.c_str());
  return 0;
}
