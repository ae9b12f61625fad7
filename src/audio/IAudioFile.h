#pragma once
// An audio file as the rest of the system sees it. Members in the order of the shared
// type library. Audio crosses this interface in the memory format (PCM); releasing the
// last reference closes the file.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "audio/AudioTypes.h"
#include "audio/IAudioFileEventSink.h"
#include "audio/Wfx.h"

class IAudioFile {
 public:
  virtual ~IAudioFile() = default;

  // Receives non-fatal warnings; may stay empty.
  virtual std::shared_ptr<IAudioFileEventSink> Parent() = 0;
  virtual void SetParent(const std::shared_ptr<IAudioFileEventSink>& oParent) = 0;
  // The file's final name; set by a successful open.
  virtual std::string AudioFileName() = 0;
  virtual void SetAudioFileName(const std::string& sName) = 0;
  // Seconds of audio that one read or write may carry; sizes the buffers, so it is set
  // before the open.
  virtual double BufLenSecs() = 0;
  virtual void SetBufLenSecs(double dSecs) = 0;
  virtual bool AudioOpen() = 0;
  // Name under which the file is being written at present; empty when reading.
  virtual std::string RecordedFileName() = 0;
  // The PCM format of the audio that crosses this interface. Set before the open.
  // Setting a format whose wFormatTag is not 1 raises kErrMemFormatNotPCM.
  virtual Wfx MemFormat() = 0;
  virtual void SetMemFormat(const Wfx& wfx) = 0;
  virtual std::shared_ptr<IAudioFile> IAudioFile_Copy() = 0;
  // Appends lBufferLen bytes in the memory format. Negative: failure.
  virtual int32_t WriteAudioData(const void* pAudioBuffer, int32_t lBufferLen) = 0;
  // eMode AudioFileRead or AudioFileWrite. 0: success; anything else: failure and
  // AudioFileName unchanged. Another mode opens nothing and returns 0.
  virtual int32_t OpenAudioFile(const std::string& sFile, int32_t eMode) = 0;
  // Finishes and closes the file: a written file appears under its final name, or is
  // removed if nothing was written.
  virtual int32_t CloseAudioFile() = 0;
  virtual void InitialiseCompression() = 0;
  virtual void TerminateCompression() = 0;
  // Reads up to fBufLen seconds into lpBuffer in the memory format (the buffer holds at
  // least that much). Bytes delivered; 0 at the end of the audio; negative: failure.
  virtual int32_t ReadAudioData(void* lpBuffer, float fBufLen) = 0;
  // Moves the read position to that fraction (0 to 1) of the audio.
  virtual void SeekFraction(float Fraction) = 0;
  // Seconds of audio in the open file.
  virtual double AudioLength() = 0;
  // Seconds read so far.
  virtual double CurrentPosition() = 0;
  // True: files of this format are made by the external copier, not by this object.
  virtual bool HandleOutOfProcess() = 0;
  // A copy of the source bytes that the decoder has not consumed yet (the block may be
  // larger than BufferSize). Empty and zero when there are none.
  virtual void GetLeftOverBuffer(std::vector<uint8_t>& lpBuffer, int32_t& BufferSize) = 0;
  // Puts such bytes back in front of the next data read.
  virtual void SetLeftOverBuffer(const uint8_t* lpBuffer, int32_t BufferSize) = 0;
};

using IAudioFilePtr = std::shared_ptr<IAudioFile>;
