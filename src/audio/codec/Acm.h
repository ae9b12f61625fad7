#pragma once
// Stand-in of the platform's audio compression manager: format-tag details, format
// suggestion and conversion streams for PCM (tag 1), MS ADPCM (tag 2) and IMA ADPCM
// (tag 17), with the platform's calling order, result codes and header rules.
//
// Streams convert whole blocks only: PCM to ADPCM consumes whole blocks of
// nSamplesPerBlock frames, ADPCM to PCM whole nBlockAlign blocks, PCM to PCM whole
// frames. Bytes short of a block are left unused (cbSrcLengthUsed tells how many were
// used). The codecs hold no samples between calls, so the end of a stream has nothing
// more to flush. PCM sources of 8, 16, 24 and 32 bits, and IEEE float sources (tag 3)
// of 32 and 64 bits, decode to 16-bit PCM.
#include <cstdint>
#include <memory>

#include "audio/Wfx.h"

namespace Acm {

// Result codes of the platform.
constexpr int32_t MMSYSERR_NOERROR = 0;
constexpr int32_t MMSYSERR_ERROR = 1;
constexpr int32_t MMSYSERR_INVALHANDLE = 5;
constexpr int32_t MMSYSERR_NOMEM = 7;
constexpr int32_t MMSYSERR_INVALFLAG = 10;
constexpr int32_t MMSYSERR_INVALPARAM = 11;
constexpr int32_t ACMERR_NOTPOSSIBLE = 512;
constexpr int32_t ACMERR_BUSY = 513;
constexpr int32_t ACMERR_UNPREPARED = 514;

// acmFormatSuggest: which fields of the destination are pinned.
constexpr uint32_t ACM_FORMATSUGGESTF_WFORMATTAG = 0x10000;
constexpr uint32_t ACM_FORMATSUGGESTF_NCHANNELS = 0x20000;
constexpr uint32_t ACM_FORMATSUGGESTF_NSAMPLESPERSEC = 0x40000;
// Tag, channels and rate all pinned: only the rest is suggested.
constexpr uint32_t ACM_FORMATSUGGESTF_PINNED =
    ACM_FORMATSUGGESTF_WFORMATTAG | ACM_FORMATSUGGESTF_NCHANNELS | ACM_FORMATSUGGESTF_NSAMPLESPERSEC;
constexpr uint32_t ACM_FORMATSUGGESTF_WBITSPERSAMPLE = 0x80000;

constexpr uint32_t ACM_STREAMSIZEF_SOURCE = 0;
constexpr uint32_t ACM_STREAMSIZEF_DESTINATION = 1;

constexpr uint32_t ACM_STREAMCONVERTF_BLOCKALIGN = 0x4;
constexpr uint32_t ACM_STREAMCONVERTF_START = 0x10;
constexpr uint32_t ACM_STREAMCONVERTF_END = 0x20;

constexpr uint32_t ACMSTREAMHEADER_STATUSF_DONE = 0x10000;
constexpr uint32_t ACMSTREAMHEADER_STATUSF_PREPARED = 0x20000;

constexpr uint32_t kAcmStreamHeaderSize = 84;

struct ACMSTREAMHEADER {
  uint32_t cbStruct = 0;
  uint32_t fdwStatus = 0;
  uintptr_t dwUser = 0;
  uint8_t* pbSrc = nullptr;
  uint32_t cbSrcLength = 0;
  uint32_t cbSrcLengthUsed = 0;
  uintptr_t dwSrcUser = 0;
  uint8_t* pbDst = nullptr;
  uint32_t cbDstLength = 0;
  uint32_t cbDstLengthUsed = 0;
  uintptr_t dwDstUser = 0;
};

class Stream;
struct StreamDeleter {
  void operator()(Stream* p) const;
};
// A stream handle; empty when closed.
using HACMSTREAM = std::unique_ptr<Stream, StreamDeleter>;

// Size of a format of the tag (16 for PCM, 20 for IMA ADPCM, 50 for MS ADPCM);
// ACMERR_NOTPOSSIBLE for another tag.
int32_t FormatTagDetails(uint32_t dwFormatTag, uint32_t& cbFormatSize);

// Completes wfxDst (of at most cbDst bytes) as a format that a stream from wfxSrc can
// produce. Pinned fields are taken from wfxDst, the others from wfxSrc.
int32_t FormatSuggest(const Wfx& wfxSrc, Wfx& wfxDst, uint32_t cbDst, uint32_t fdwSuggest);

int32_t StreamOpen(HACMSTREAM& has, const Wfx& wfxSrc, const Wfx& wfxDst, uint32_t fdwOpen = 0);
// Bytes of output for cbInput bytes of input (flags SOURCE), or the input needed for
// cbInput bytes of output (flags DESTINATION).
int32_t StreamSize(const Stream* has, uint32_t cbInput, uint32_t& cbOutput, uint32_t fdwSize);
int32_t StreamPrepareHeader(Stream* has, ACMSTREAMHEADER& hdr, uint32_t fdwPrepare = 0);
int32_t StreamConvert(Stream* has, ACMSTREAMHEADER& hdr, uint32_t fdwConvert);
// The header must carry the buffers and lengths that it was prepared with.
int32_t StreamUnprepareHeader(Stream* has, ACMSTREAMHEADER& hdr, uint32_t fdwUnprepare = 0);
// Closes and empties the handle.
int32_t StreamClose(HACMSTREAM& has, uint32_t fdwClose = 0);

}  // namespace Acm
