#pragma once
// Stands for no output in a period. Has no state and no IAudioFile face.
#include "audio/IAudioFormat.h"

class CAudioNull : public IAudioFormat {
 public:
  void SaveFormat(const std::string& File, const std::string& Section) override;
  void LoadFormat(const std::string& File, const std::string& Section) override;
  int32_t FormatType() override { return FormatNone; }
  double DataSize(float fSeconds) override { return 0.0; }
  std::shared_ptr<IAudioFormat> IAudioFormat_Copy() override;
  std::string Description() override { return "No Audio"; }
  int32_t SampleRate() override { return 0; }
  int16_t Channels() override { return 0; }
  bool IsSameFormat(IAudioFormat* oFormat) override;
  std::shared_ptr<CommonAudioFormat> CommonFormat() override;
  void SetCommonFormat(const std::shared_ptr<CommonAudioFormat>& oFormat) override {}
  int32_t GetBlockAlign() override { return 0; }
};
