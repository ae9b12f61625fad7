#include "audio/ConversionStream.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "support/AppGlobal.h"
#include "support/DebugMsg.h"
#include "support/MsgBox.h"

namespace {

// The platform's texts of the multimedia and wave error codes.
const char* WaveErrorText(int32_t rc) {
  switch (rc) {
    case 1: return "Unspecified error.";
    case 2: return "The specified device identifier is out of range.";
    case 3: return "The driver failed enable.";
    case 4: return "The specified device is already allocated.";
    case 5: return "The specified device handle is invalid.";
    case 6: return "There is no driver installed on your system.";
    case 7: return "There is not enough memory available for this task.";
    case 8: return "This function is not supported.";
    case 9: return "An error number was specified that is not defined in the system.";
    case 10: return "An invalid flag was passed to a system function.";
    case 11: return "An invalid parameter was passed to a system function.";
    case 12: return "The specified device handle is being used by another thread.";
    case 13: return "The specified device cannot be opened because it is in use.";
    case 14: return "The registry key could not be opened.";
    case 15: return "The registry key could not be read.";
    case 16: return "The registry key could not be written.";
    case 17: return "The registry key could not be deleted.";
    case 18: return "The registry value could not be read.";
    case 19: return "The driver does not call DriverCallback.";
    case 20: return "The data is being played and cannot be modified.";
    case 32: return "The specified format is not supported or cannot be translated.";
    case 33: return "The device is still playing or recording.";
    case 34: return "The wave header was not prepared.";
    case 35: return "The device is synchronous.";
    default: return "";
  }
}

void FreeBuffers(ConversionStream& s) {
  std::vector<uint8_t>().swap(s.SourceBlock);
  s.lpSourceBuffer = nullptr;
  std::vector<uint8_t>().swap(s.DestBlock);
  s.lpDestBuffer = nullptr;
}

// A private copy of a format with its cbSize bytes of codec data (zero where the
// record carries fewer).
int32_t CopyFormat(const Wfx* p, std::unique_ptr<Wfx>& out) {
  try {
    auto w = std::make_unique<Wfx>(*p);
    w->Extra.resize(p->cbSize, 0);
    out = std::move(w);
    return 0;
  } catch (const std::bad_alloc&) {
    return kConversionNoMemory;
  }
}

}  // namespace

bool GetMMErrorText(int32_t rc, std::string& sText) {
  if (rc == 0) return false;
  sText = WaveErrorText(rc);
  if (sText.empty())
    sText = fmt::format(
        "The Windows(TM) Multimedia Sub-System has returned with an unknown error, the code "
        "was: {}",
        rc);
  return true;
}

int32_t ShowMMError(int32_t rc, bool bShow, const std::string& sTitle) {
  if (rc != 0 && bShow) {
    std::string sText;
    GetMMErrorText(rc, sText);
    std::string sBoxTitle = AppGlobal::AppTitle();
    if (!sTitle.empty()) sBoxTitle += " - " + sTitle;
    MsgBox(sText, vbInformation, sBoxTitle);
  }
  return rc;
}

std::string FormatDumpText(const Wfx* p) {
  if (!p) return "";
  std::string s = fmt::format(
      "cbSize={}; nAvgBytesPerSec={}; nBlockAlign={}; nChannels={}; nSamplesPerSec={}; "
      "wBitsPerSample={}; wFormatTag={}",
      p->cbSize, p->nAvgBytesPerSec, p->nBlockAlign, p->nChannels, p->nSamplesPerSec, p->wBitsPerSample, p->wFormatTag);
  if (p->cbSize > 0) {
    std::vector<uint8_t> a = p->ToBytes();
    s += "; CodecData=" + AppGlobal::ByteArrayText(a.data() + Wfx::kRecordSize, p->cbSize);
  }
  return s;
}

int32_t OpenConversionStream(ConversionStream& t, const Wfx* pSrc, const Wfx* pDst) {
  DebugMsg("Start OpenConversionStream", 5, 1);
  if (!pSrc || !pDst) {
    DebugMsg("Exit OpenConversionStream (Invalid Param)", 5, 2);
    return Acm::MMSYSERR_INVALPARAM;
  }
  DebugMsg("Source " + FormatDumpText(pSrc), 10);
  DebugMsg("Destination " + FormatDumpText(pDst), 10);
  t.lpSrcFormat.reset();
  t.lpDstFormat.reset();
  if (CopyFormat(pSrc, t.lpSrcFormat) != 0) {
    DebugMsg("Exit OpenConversionStream (Unable to alloc Src Format)", 5, 2);
    return kConversionNoMemory;
  }
  if (CopyFormat(pDst, t.lpDstFormat) != 0) {
    DebugMsg("Exit OpenConversionStream (Unable to alloc Dst Format)", 5, 2);
    return kConversionNoMemory;
  }
  int32_t rc = ShowMMError(Acm::StreamOpen(t.streamHandle, *t.lpSrcFormat, *t.lpDstFormat, 0), true, "Brimcode Open");
  if (rc != 0) {
    DebugMsg(fmt::format("Exit OpenConversionStream (acmStreamOpen failed. rc={})", rc), 5, 2);
    return rc;
  }
  rc = ShowMMError(
      Acm::StreamSize(t.streamHandle.get(), t.SourceBufferSize, t.estDestBufferSize, Acm::ACM_STREAMSIZEF_SOURCE), true,
      "Brimcode Size");
  if (rc != 0) {
    DebugMsg(fmt::format("Exit OpenConversionStream (acmStreamSize failed. rc={})", rc), 5, 2);
    return rc;
  }
  // The source buffer holds two nominal pieces: a left-over tail and the next piece.
  t.SourceBufferSize = static_cast<uint32_t>(std::min<uint64_t>(2ull * t.SourceBufferSize, 0xFFFFFFFFull));
  t.estDestBufferSize = static_cast<uint32_t>(std::min<uint64_t>(2ull * t.estDestBufferSize, 0xFFFFFFFFull));
  FreeBuffers(t);
  try {
    t.SourceBlock.resize(t.SourceBufferSize);
    t.lpSourceBuffer = t.SourceBlock.data();
    t.DestBlock.resize(t.estDestBufferSize);
    t.lpDestBuffer = t.DestBlock.data();
  } catch (const std::bad_alloc&) {
    // Shows as a failure of the prepare below.
  }
  t.BufferUsed = 0;
  Acm::ACMSTREAMHEADER& h = t.ConversionHeader;
  h = Acm::ACMSTREAMHEADER{};
  h.cbStruct = Acm::kAcmStreamHeaderSize;
  h.fdwStatus = 0;
  h.dwUser = 0;
  h.pbSrc = t.lpSourceBuffer;
  h.cbSrcLength = t.lpSourceBuffer ? t.SourceBufferSize : 0;
  h.dwSrcUser = 0;
  h.pbDst = t.lpDestBuffer;
  h.cbDstLength = t.lpDestBuffer ? t.estDestBufferSize : 0;
  h.dwDstUser = 0;
  rc = ShowMMError(Acm::StreamPrepareHeader(t.streamHandle.get(), h, 0), true, "Brimcode Prepare");
  if (rc != 0) {
    DebugMsg(fmt::format("Exit OpenConversionStream (acmStreamStream failed. rc={})", rc), 5, 2);
    return rc;
  }
  DebugMsg("End OpenConversionStream", 5, 2);
  return 0;
}

int32_t Convert(ConversionStream& t, uint8_t* lpBuffer, int32_t& BufferSize, size_t lBufferCapacity) {
  if (!t.streamHandle || BufferSize <= 0 || !lpBuffer) return 0;
  const uint64_t llIn = static_cast<uint64_t>(t.BufferUsed) + static_cast<uint32_t>(BufferSize);
  if (!t.lpSourceBuffer || !t.lpDestBuffer || llIn > t.SourceBufferSize) {
    DebugMsg(fmt::format("Convert refused a piece of {} bytes behind {} waiting ({} fit)", BufferSize, t.BufferUsed,
                         t.SourceBufferSize),
             5, 0);
    return kConvertPieceTooLarge;
  }
  std::memcpy(t.lpSourceBuffer + t.BufferUsed, lpBuffer, static_cast<size_t>(BufferSize));
  Acm::ACMSTREAMHEADER& h = t.ConversionHeader;
  h.cbSrcLength = static_cast<uint32_t>(llIn);
  // The output must fit the caller's buffer; blocks that don't wait for the next call.
  h.cbDstLength = static_cast<uint32_t>(std::min<uint64_t>(t.estDestBufferSize, lBufferCapacity));
  int32_t rc = ShowMMError(
      Acm::StreamConvert(t.streamHandle.get(), h, Acm::ACM_STREAMCONVERTF_BLOCKALIGN | Acm::ACM_STREAMCONVERTF_END),
      true, "Brimcode Convert");
  if (rc != 0) return rc;
  std::memcpy(lpBuffer, t.lpDestBuffer, h.cbDstLengthUsed);
  if (h.cbSrcLengthUsed < h.cbSrcLength) {
    t.BufferUsed = h.cbSrcLength - h.cbSrcLengthUsed;
    std::memmove(t.lpSourceBuffer, t.lpSourceBuffer + h.cbSrcLengthUsed, t.BufferUsed);
  } else {
    t.BufferUsed = 0;
  }
  BufferSize = static_cast<int32_t>(h.cbDstLengthUsed);
  return 0;
}

int32_t CloseConversionStream(ConversionStream& t) {
  DebugMsg("Start CloseConversionStream", 5, 1);
  if (!t.streamHandle) {
    DebugMsg("Exit CloseConversionStream (StreamHandle = 0)", 5, 2);
    return 0;
  }
  Acm::ACMSTREAMHEADER& h = t.ConversionHeader;
  h.pbSrc = t.lpSourceBuffer;
  h.cbSrcLength = t.SourceBufferSize;
  h.dwSrcUser = 0;
  h.pbDst = t.lpDestBuffer;
  h.cbDstLength = t.estDestBufferSize;
  int32_t rc = ShowMMError(Acm::StreamUnprepareHeader(t.streamHandle.get(), h, 0), true, "Brimcode UnPrepare");
  if (rc != 0) {
    DebugMsg("Exit CloseConversionStream (UnprepareHeader failed)", 5, 2);
    return rc;
  }
  rc = ShowMMError(Acm::StreamClose(t.streamHandle, 0), true, "Brimcode Close");
  if (rc != 0) {
    DebugMsg("Exit CloseConversionStream (Failed to close stream handle)", 5, 2);
    return rc;
  }
  FreeBuffers(t);
  t.streamHandle.reset();
  t.BufferUsed = 0;
  t.lpSrcFormat.reset();
  t.lpDstFormat.reset();
  DebugMsg("End CloseConversionStream", 5, 2);
  return 0;
}
