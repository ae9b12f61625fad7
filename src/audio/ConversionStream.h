#pragma once
// A conversion stream: one stream of the compression manager with its two buffers and
// its prepared header, turning a buffer in one format into a buffer in another. Whole
// codec blocks only: a tail shorter than a block waits at the start of the source
// buffer (BufferUsed) and is joined to the next piece. Also the multimedia error texts
// that the audio classes share.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "audio/Wfx.h"
#include "audio/codec/Acm.h"

struct ConversionStream {
  Acm::HACMSTREAM streamHandle;   // empty when closed
  uint32_t SourceBufferSize = 0;  // bytes of one nominal piece; doubled by the open
  uint32_t BufferUsed = 0;        // left-over bytes at the start of the source buffer
  std::vector<uint8_t> SourceBlock;
  uint8_t* lpSourceBuffer = nullptr;
  uint32_t estDestBufferSize = 0;  // output estimate for SourceBufferSize, then doubled
  std::vector<uint8_t> DestBlock;
  uint8_t* lpDestBuffer = nullptr;
  Acm::ACMSTREAMHEADER ConversionHeader;
  std::unique_ptr<Wfx> lpSrcFormat;  // private copies of the two formats, codec data included
  std::unique_ptr<Wfx> lpDstFormat;
};

// Error code of a refused piece and of a format copy that could not be made.
constexpr int32_t kConvertPieceTooLarge = Acm::MMSYSERR_INVALPARAM;
constexpr int32_t kConversionNoMemory = 664;

// Set SourceBufferSize first. 0, 11 (a format missing), 664 (no memory for a format
// copy) or the code of the failed call. A failure leaves what was done so far.
int32_t OpenConversionStream(ConversionStream& tyStream, const Wfx* ptrwfmtxSource, const Wfx* ptrwfmtxDest);
// 0 or the code of the failed call (the stream then stays open).
int32_t CloseConversionStream(ConversionStream& tyStream);
// Converts BufferSize bytes at lpBuffer and puts the output back there; BufferSize
// becomes the output's size. lBufferCapacity is the size of the buffer at lpBuffer: the
// output never goes beyond it (what does not fit stays in the stream for the next
// call). A piece that together with the waiting bytes would overrun the source buffer
// is refused with kConvertPieceTooLarge, and nothing changes.
int32_t Convert(ConversionStream& tyStream, uint8_t* lpBuffer, int32_t& BufferSize, size_t lBufferCapacity);

// With rc and bShow not 0, shows rc's text in a box titled with the application's title
// and sTitle. Returns rc.
int32_t ShowMMError(int32_t rc, bool bShow, const std::string& sTitle);
// The same text without a box; false when rc is 0.
bool GetMMErrorText(int32_t rc, std::string& sText);
// One line for the trace: the fields by name, then the codec data in hexadecimal.
std::string FormatDumpText(const Wfx* pFormat);
