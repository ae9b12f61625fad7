#pragma once
// An audio format as the rest of the system sees it. Members in the order of the shared
// type library. The working classes implement IAudioFile as well; a caller reaches that
// face with std::dynamic_pointer_cast<IAudioFile> after checking FormatType() != -1.
#include <cstdint>
#include <memory>
#include <string>

#include "audio/AudioTypes.h"
#include "audio/CommonAudioFormat.h"

class IAudioFormat {
 public:
  virtual ~IAudioFormat() = default;

  // Writes the format's keys under Section of the profile file File.
  virtual void SaveFormat(const std::string& File, const std::string& Section) = 0;
  // Reads them; a missing key takes the class's default.
  virtual void LoadFormat(const std::string& File, const std::string& Section) = 0;
  virtual int32_t FormatType() = 0;
  // Expected bytes on disk for that much audio.
  virtual double DataSize(float fSeconds) = 0;
  // A new object with the same format, not open. (Both interfaces have a Copy with its
  // own result type, so each carries the interface's name.)
  virtual std::shared_ptr<IAudioFormat> IAudioFormat_Copy() = 0;
  virtual std::string Description() = 0;
  virtual int32_t SampleRate() = 0;
  virtual int16_t Channels() = 0;
  // True when a file in oFormat needs no conversion to this format; nullptr gives false.
  virtual bool IsSameFormat(IAudioFormat* oFormat) = 0;
  // A new value object describing this format.
  virtual std::shared_ptr<CommonAudioFormat> CommonFormat() = 0;
  // Takes the format from the value object; nullptr changes nothing.
  virtual void SetCommonFormat(const std::shared_ptr<CommonAudioFormat>& oFormat) = 0;
  // Bytes by which a file of this format is aligned.
  virtual int32_t GetBlockAlign() = 0;
};

using IAudioFormatPtr = std::shared_ptr<IAudioFormat>;
