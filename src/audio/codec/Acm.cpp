#include "audio/codec/Acm.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "audio/AudioTypes.h"
#include "audio/codec/AdpcmCodec.h"

namespace Acm {
namespace {

constexpr uint32_t kMaxRate = 384000;
constexpr int kMaxChannels = 8;

uint16_t ExtraWord(const Wfx& w, size_t i) {
  if (w.Extra.size() < i + 2) return 0;
  return static_cast<uint16_t>(w.Extra[i] | (w.Extra[i + 1] << 8));
}

bool SaneRateChannels(const Wfx& w) {
  return w.nSamplesPerSec >= 1 && w.nSamplesPerSec <= kMaxRate && w.nChannels >= 1 && w.nChannels <= kMaxChannels;
}

bool IsFloatSource(const Wfx& w) {
  int iBits = w.wBitsPerSample;
  return w.wFormatTag == WAVE_FORMAT_IEEE_FLOAT && SaneRateChannels(w) && (iBits == 32 || iBits == 64) &&
         w.nBlockAlign == w.nChannels * iBits / 8;
}

// Linear audio that decodes to 16-bit PCM frame by frame.
bool IsPcmSource(const Wfx& w) {
  int iBits = w.wBitsPerSample;
  if (IsFloatSource(w)) return true;
  return w.wFormatTag == WAVE_FORMAT_PCM && SaneRateChannels(w) &&
         (iBits == 8 || iBits == 16 || iBits == 24 || iBits == 32) && w.nBlockAlign == w.nChannels * iBits / 8;
}

bool IsPcm16(const Wfx& w) { return w.wFormatTag == WAVE_FORMAT_PCM && IsPcmSource(w) && w.wBitsPerSample == 16; }

// A float sample to 16 bits: full scale is 1.0, beyond it clips.
inline void PutFloat16(uint8_t* pOut, double d) {
  const double v = std::nearbyint(d * 32768.0);
  const int i = v >= 32767.0 ? 32767 : (v <= -32768.0 ? -32768 : static_cast<int>(v));
  pOut[0] = static_cast<uint8_t>(i);
  pOut[1] = static_cast<uint8_t>(static_cast<unsigned>(i) >> 8);
}

// Samples per block of an ADPCM format: the count in its codec data when that is
// present and possible, else the count that its block align gives.
int ImaBlockSamples(const Wfx& w) {
  int iMax = Adpcm::ImaSamplesPerBlock(w.nBlockAlign, w.nChannels);
  int iGiven = w.cbSize >= 2 ? ExtraWord(w, 0) : 0;
  return (iGiven >= 1 && iGiven <= iMax) ? iGiven : iMax;
}
int MsBlockSamples(const Wfx& w) {
  int iMax = Adpcm::MsSamplesPerBlock(w.nBlockAlign, w.nChannels);
  int iGiven = w.cbSize >= 2 ? ExtraWord(w, 0) : 0;
  return (iGiven >= 2 && iGiven <= iMax) ? iGiven : iMax;
}
std::vector<Adpcm::MsCoef> MsCoefs(const Wfx& w) {
  const auto& std7 = Adpcm::MsStandardCoefs();
  std::vector<Adpcm::MsCoef> a;
  size_t lHave = std::min<size_t>(w.cbSize, w.Extra.size());
  if (lHave >= 4) {
    size_t n = ExtraWord(w, 2);
    if (n >= 1 && n <= 256 && lHave >= 4 + 4 * n) {
      for (size_t i = 0; i < n; ++i)
        a.push_back({static_cast<int16_t>(ExtraWord(w, 4 + 4 * i)), static_cast<int16_t>(ExtraWord(w, 6 + 4 * i))});
      return a;
    }
  }
  return {std7.begin(), std7.end()};
}

bool ValidIma(const Wfx& w) {
  return w.wFormatTag == WAVE_FORMAT_IMA_ADPCM && SaneRateChannels(w) && w.wBitsPerSample == 4 &&
         Adpcm::ImaSamplesPerBlock(w.nBlockAlign, w.nChannels) >= 9;
}
bool ValidMs(const Wfx& w) {
  return w.wFormatTag == WAVE_FORMAT_ADPCM && SaneRateChannels(w) && w.wBitsPerSample == 4 &&
         Adpcm::MsSamplesPerBlock(w.nBlockAlign, w.nChannels) >= 3;
}

enum class Kind { PcmToPcm, PcmToIma, ImaToPcm, PcmToMs, MsToPcm };

}  // namespace

class Stream {
 public:
  Kind m_eKind{};
  int m_iChannels = 0;
  int m_iSrcBits = 16;
  bool m_bSrcFloat = false;
  uint32_t m_lSrcBlock = 0;  // bytes of one unit of input
  uint32_t m_lDstBlock = 0;  // bytes of one unit of output
  int m_iSamplesPerBlock = 1;
  int m_iAdpcmAlign = 0;
  std::vector<Adpcm::MsCoef> m_aCoefs;
  std::unique_ptr<Adpcm::ImaEncoder> m_pIma;
  std::unique_ptr<Adpcm::MsEncoder> m_pMs;
  std::vector<int16_t> m_aWork;  // one block of samples, aligned for the codecs
  int m_iPrepared = 0;           // headers prepared and not yet unprepared
  // Buffers of the last prepared header: a convert may use less of them, never more,
  // and the unprepare must hand back exactly these.
  const uint8_t* m_pPrepSrc = nullptr;
  uint32_t m_lPrepSrc = 0;
  const uint8_t* m_pPrepDst = nullptr;
  uint32_t m_lPrepDst = 0;

  void ConvertUnit(const uint8_t* pIn, uint8_t* pOut) {
    switch (m_eKind) {
      case Kind::PcmToPcm: ConvertPcm(pIn, pOut, 1); break;
      case Kind::PcmToIma:
        std::memcpy(m_aWork.data(), pIn, m_lSrcBlock);
        m_pIma->EncodeBlock(m_aWork.data(), pOut);
        break;
      case Kind::PcmToMs:
        std::memcpy(m_aWork.data(), pIn, m_lSrcBlock);
        m_pMs->EncodeBlock(m_aWork.data(), pOut);
        break;
      case Kind::ImaToPcm:
        Adpcm::ImaDecodeBlock(pIn, m_iChannels, m_iAdpcmAlign, m_iSamplesPerBlock, m_aWork.data());
        std::memcpy(pOut, m_aWork.data(), m_lDstBlock);
        break;
      case Kind::MsToPcm:
        Adpcm::MsDecodeBlock(pIn, m_iChannels, m_iAdpcmAlign, m_iSamplesPerBlock, m_aCoefs, m_aWork.data());
        std::memcpy(pOut, m_aWork.data(), m_lDstBlock);
        break;
    }
  }

  // Frames of PCM of any accepted width to 16 bits.
  void ConvertPcm(const uint8_t* pIn, uint8_t* pOut, uint32_t lFrames) {
    const size_t n = static_cast<size_t>(lFrames) * m_iChannels;
    if (m_bSrcFloat) {
      for (size_t i = 0; i < n; ++i) {
        double d;
        if (m_iSrcBits == 32) {
          float f;
          std::memcpy(&f, pIn + 4 * i, 4);
          d = f;
        } else {
          std::memcpy(&d, pIn + 8 * i, 8);
        }
        // NaN reads as silence.
        PutFloat16(pOut + 2 * i, std::isnan(d) ? 0.0 : d);
      }
      return;
    }
    switch (m_iSrcBits) {
      case 16: std::memcpy(pOut, pIn, n * 2); break;
      case 8:
        for (size_t i = 0; i < n; ++i) {
          int v = (static_cast<int>(pIn[i]) - 128) << 8;
          pOut[2 * i] = static_cast<uint8_t>(v);
          pOut[2 * i + 1] = static_cast<uint8_t>(v >> 8);
        }
        break;
      default: {  // 24 and 32 bits: the two most significant bytes
        const size_t w = static_cast<size_t>(m_iSrcBits / 8);
        for (size_t i = 0; i < n; ++i) {
          pOut[2 * i] = pIn[i * w + w - 2];
          pOut[2 * i + 1] = pIn[i * w + w - 1];
        }
      }
    }
  }
};

void StreamDeleter::operator()(Stream* p) const { delete p; }

int32_t FormatTagDetails(uint32_t dwFormatTag, uint32_t& cbFormatSize) {
  switch (dwFormatTag) {
    case WAVE_FORMAT_PCM: cbFormatSize = 16; return MMSYSERR_NOERROR;
    case WAVE_FORMAT_IMA_ADPCM: cbFormatSize = 20; return MMSYSERR_NOERROR;
    case WAVE_FORMAT_ADPCM: cbFormatSize = 50; return MMSYSERR_NOERROR;
    default: return ACMERR_NOTPOSSIBLE;
  }
}

int32_t FormatSuggest(const Wfx& wfxSrc, Wfx& wfxDst, uint32_t cbDst, uint32_t fdwSuggest) {
  constexpr uint32_t kKnown = ACM_FORMATSUGGESTF_WFORMATTAG | ACM_FORMATSUGGESTF_NCHANNELS |
                              ACM_FORMATSUGGESTF_NSAMPLESPERSEC | ACM_FORMATSUGGESTF_WBITSPERSAMPLE;
  if (fdwSuggest & ~kKnown) return MMSYSERR_INVALFLAG;
  const bool bSrcPcm = IsPcmSource(wfxSrc);
  if (!bSrcPcm && !ValidIma(wfxSrc) && !ValidMs(wfxSrc)) return ACMERR_NOTPOSSIBLE;

  uint16_t iTag = (fdwSuggest & ACM_FORMATSUGGESTF_WFORMATTAG) ? wfxDst.wFormatTag
                  : bSrcPcm && wfxSrc.wBitsPerSample == 16     ? WAVE_FORMAT_IMA_ADPCM
                                                               : WAVE_FORMAT_PCM;
  uint16_t iCh = (fdwSuggest & ACM_FORMATSUGGESTF_NCHANNELS) ? wfxDst.nChannels : wfxSrc.nChannels;
  uint32_t lRate = (fdwSuggest & ACM_FORMATSUGGESTF_NSAMPLESPERSEC) ? wfxDst.nSamplesPerSec : wfxSrc.nSamplesPerSec;
  // The codecs neither resample nor remix.
  if (iCh != wfxSrc.nChannels || lRate != wfxSrc.nSamplesPerSec) return ACMERR_NOTPOSSIBLE;

  uint32_t cbNeed = 0;
  if (FormatTagDetails(iTag, cbNeed) != MMSYSERR_NOERROR) return ACMERR_NOTPOSSIBLE;
  if (cbDst < cbNeed) return MMSYSERR_INVALPARAM;

  Wfx w;
  if (iTag == WAVE_FORMAT_PCM) {
    if ((fdwSuggest & ACM_FORMATSUGGESTF_WBITSPERSAMPLE) && wfxDst.wBitsPerSample != 16) return ACMERR_NOTPOSSIBLE;
    w = Wfx::PCM(lRate, iCh);
  } else {
    // ADPCM is made from 16-bit PCM only, one or two channels.
    if (!IsPcm16(wfxSrc) || iCh > 2) return ACMERR_NOTPOSSIBLE;
    if ((fdwSuggest & ACM_FORMATSUGGESTF_WBITSPERSAMPLE) && wfxDst.wBitsPerSample != 4) return ACMERR_NOTPOSSIBLE;
    int iAlign = Adpcm::SuggestedBlockAlign(lRate, iCh);
    int iSpb =
        iTag == WAVE_FORMAT_IMA_ADPCM ? Adpcm::ImaSamplesPerBlock(iAlign, iCh) : Adpcm::MsSamplesPerBlock(iAlign, iCh);
    w.wFormatTag = iTag;
    w.nChannels = iCh;
    w.nSamplesPerSec = lRate;
    w.nBlockAlign = static_cast<uint16_t>(iAlign);
    w.nAvgBytesPerSec = static_cast<uint32_t>(static_cast<uint64_t>(lRate) * iAlign / iSpb);
    w.wBitsPerSample = 4;
    auto put = [&w](int v) {
      w.Extra.push_back(static_cast<uint8_t>(v));
      w.Extra.push_back(static_cast<uint8_t>(static_cast<unsigned>(v) >> 8));
    };
    put(iSpb);
    if (iTag == WAVE_FORMAT_ADPCM) {
      const auto& a = Adpcm::MsStandardCoefs();
      put(static_cast<int>(a.size()));
      for (const auto& c : a) {
        put(c.c1);
        put(c.c2);
      }
    }
    w.cbSize = static_cast<uint16_t>(w.Extra.size());
  }
  wfxDst = std::move(w);
  return MMSYSERR_NOERROR;
}

int32_t StreamOpen(HACMSTREAM& has, const Wfx& s, const Wfx& d, uint32_t fdwOpen) {
  if (fdwOpen != 0) return MMSYSERR_INVALFLAG;
  if (s.nSamplesPerSec != d.nSamplesPerSec || s.nChannels != d.nChannels) return ACMERR_NOTPOSSIBLE;
  auto p = HACMSTREAM(new Stream);
  const int ch = s.nChannels;
  p->m_iChannels = ch;
  if (IsPcmSource(s) && IsPcm16(d)) {
    p->m_eKind = Kind::PcmToPcm;
    p->m_iSrcBits = s.wBitsPerSample;
    p->m_bSrcFloat = s.wFormatTag == WAVE_FORMAT_IEEE_FLOAT;
    p->m_lSrcBlock = s.nBlockAlign;
    p->m_lDstBlock = d.nBlockAlign;
  } else if (IsPcm16(s) && ValidIma(d)) {
    p->m_eKind = Kind::PcmToIma;
    p->m_iAdpcmAlign = d.nBlockAlign;
    p->m_iSamplesPerBlock = ImaBlockSamples(d);
    p->m_pIma = std::make_unique<Adpcm::ImaEncoder>(ch, d.nBlockAlign, p->m_iSamplesPerBlock);
  } else if (ValidIma(s) && IsPcm16(d)) {
    p->m_eKind = Kind::ImaToPcm;
    p->m_iAdpcmAlign = s.nBlockAlign;
    p->m_iSamplesPerBlock = ImaBlockSamples(s);
  } else if (IsPcm16(s) && ValidMs(d)) {
    p->m_eKind = Kind::PcmToMs;
    p->m_iAdpcmAlign = d.nBlockAlign;
    p->m_iSamplesPerBlock = MsBlockSamples(d);
    p->m_pMs = std::make_unique<Adpcm::MsEncoder>(ch, d.nBlockAlign, p->m_iSamplesPerBlock, MsCoefs(d));
  } else if (ValidMs(s) && IsPcm16(d)) {
    p->m_eKind = Kind::MsToPcm;
    p->m_iAdpcmAlign = s.nBlockAlign;
    p->m_iSamplesPerBlock = MsBlockSamples(s);
    p->m_aCoefs = MsCoefs(s);
  } else {
    return ACMERR_NOTPOSSIBLE;
  }
  if (p->m_eKind != Kind::PcmToPcm) {
    const uint32_t lPcm = static_cast<uint32_t>(p->m_iSamplesPerBlock) * ch * 2;
    const bool bEncode = p->m_eKind == Kind::PcmToIma || p->m_eKind == Kind::PcmToMs;
    p->m_lSrcBlock = bEncode ? lPcm : static_cast<uint32_t>(p->m_iAdpcmAlign);
    p->m_lDstBlock = bEncode ? static_cast<uint32_t>(p->m_iAdpcmAlign) : lPcm;
    p->m_aWork.assign(static_cast<size_t>(p->m_iSamplesPerBlock) * ch, 0);
  }
  has = std::move(p);
  return MMSYSERR_NOERROR;
}

int32_t StreamSize(const Stream* has, uint32_t cbInput, uint32_t& cbOutput, uint32_t fdwSize) {
  if (!has) return MMSYSERR_INVALHANDLE;
  uint64_t llOut;
  if (fdwSize == ACM_STREAMSIZEF_SOURCE) {
    llOut = (static_cast<uint64_t>(cbInput) + has->m_lSrcBlock - 1) / has->m_lSrcBlock * has->m_lDstBlock;
  } else if (fdwSize == ACM_STREAMSIZEF_DESTINATION) {
    llOut = static_cast<uint64_t>(cbInput) / has->m_lDstBlock * has->m_lSrcBlock;
  } else {
    return MMSYSERR_INVALFLAG;
  }
  if (llOut > 0xFFFFFFFFull) return ACMERR_NOTPOSSIBLE;
  cbOutput = static_cast<uint32_t>(llOut);
  return MMSYSERR_NOERROR;
}

int32_t StreamPrepareHeader(Stream* has, ACMSTREAMHEADER& hdr, uint32_t fdwPrepare) {
  if (!has) return MMSYSERR_INVALHANDLE;
  if (fdwPrepare != 0) return MMSYSERR_INVALFLAG;
  if (hdr.cbStruct < kAcmStreamHeaderSize || !hdr.pbSrc || !hdr.pbDst || hdr.cbSrcLength == 0 || hdr.cbDstLength == 0)
    return MMSYSERR_INVALPARAM;
  if (hdr.fdwStatus & ACMSTREAMHEADER_STATUSF_PREPARED) return MMSYSERR_NOERROR;
  hdr.fdwStatus |= ACMSTREAMHEADER_STATUSF_PREPARED;
  has->m_pPrepSrc = hdr.pbSrc;
  has->m_lPrepSrc = hdr.cbSrcLength;
  has->m_pPrepDst = hdr.pbDst;
  has->m_lPrepDst = hdr.cbDstLength;
  has->m_iPrepared++;
  return MMSYSERR_NOERROR;
}

int32_t StreamConvert(Stream* has, ACMSTREAMHEADER& hdr, uint32_t fdwConvert) {
  if (!has) return MMSYSERR_INVALHANDLE;
  constexpr uint32_t kKnown = ACM_STREAMCONVERTF_BLOCKALIGN | ACM_STREAMCONVERTF_START | ACM_STREAMCONVERTF_END;
  if (fdwConvert & ~kKnown) return MMSYSERR_INVALFLAG;
  if (!(hdr.fdwStatus & ACMSTREAMHEADER_STATUSF_PREPARED)) return ACMERR_UNPREPARED;
  if (hdr.pbSrc != has->m_pPrepSrc || hdr.pbDst != has->m_pPrepDst || hdr.cbSrcLength > has->m_lPrepSrc ||
      hdr.cbDstLength > has->m_lPrepDst)
    return MMSYSERR_INVALPARAM;
  hdr.fdwStatus &= ~ACMSTREAMHEADER_STATUSF_DONE;
  // Whole blocks only, as many as both buffers take.
  uint32_t lBlocks = std::min(hdr.cbSrcLength / has->m_lSrcBlock, hdr.cbDstLength / has->m_lDstBlock);
  const uint8_t* pIn = hdr.pbSrc;
  uint8_t* pOut = hdr.pbDst;
  if (has->m_eKind == Kind::PcmToPcm) {
    has->ConvertPcm(pIn, pOut, lBlocks);
  } else {
    for (uint32_t i = 0; i < lBlocks; ++i) {
      has->ConvertUnit(pIn, pOut);
      pIn += has->m_lSrcBlock;
      pOut += has->m_lDstBlock;
    }
  }
  hdr.cbSrcLengthUsed = lBlocks * has->m_lSrcBlock;
  hdr.cbDstLengthUsed = lBlocks * has->m_lDstBlock;
  hdr.fdwStatus |= ACMSTREAMHEADER_STATUSF_DONE;
  return MMSYSERR_NOERROR;
}

int32_t StreamUnprepareHeader(Stream* has, ACMSTREAMHEADER& hdr, uint32_t fdwUnprepare) {
  if (!has) return MMSYSERR_INVALHANDLE;
  if (fdwUnprepare != 0) return MMSYSERR_INVALFLAG;
  if (!(hdr.fdwStatus & ACMSTREAMHEADER_STATUSF_PREPARED)) return ACMERR_UNPREPARED;
  if (hdr.pbSrc != has->m_pPrepSrc || hdr.cbSrcLength != has->m_lPrepSrc || hdr.pbDst != has->m_pPrepDst ||
      hdr.cbDstLength != has->m_lPrepDst)
    return MMSYSERR_INVALPARAM;
  hdr.fdwStatus &= ~ACMSTREAMHEADER_STATUSF_PREPARED;
  has->m_iPrepared--;
  return MMSYSERR_NOERROR;
}

int32_t StreamClose(HACMSTREAM& has, uint32_t fdwClose) {
  if (!has) return MMSYSERR_INVALHANDLE;
  if (fdwClose != 0) return MMSYSERR_INVALFLAG;
  // A stream with a prepared header still in use can't be closed.
  if (has->m_iPrepared > 0) return ACMERR_BUSY;
  has.reset();
  return MMSYSERR_NOERROR;
}

}  // namespace Acm
