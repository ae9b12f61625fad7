#pragma once
// MP2, MP3 and Ogg Vorbis files (and plain WAV writing) through the codec component.
// Reads any of them in the memory format; writes either directly through the component
// or, in indirect mode, into a temporary WAV file that the external copier then turns
// into the final file.
#include <memory>
#include <string>
#include <vector>

#include "audio/CopierBackedAudioFile.h"
#include "audio/codec/CodecFile.h"

class CAudioNCT : public CopierBackedAudioFile<CodecFile> {
 public:
  CAudioNCT();
  ~CAudioNCT() override;

  // ---- Own members
  std::shared_ptr<CAudioNCT> Copy();
  int16_t BitRate() const { return m_iBitRate; }
  int32_t FormatTag() const { return m_iFormatTag; }
  void SetFileFormat(int32_t FormatType, int32_t SampleRate, int32_t BitRate, int32_t Channels, int32_t FormatTag);

  // ---- IAudioFormat
  void SaveFormat(const std::string& File, const std::string& Section) override;
  void LoadFormat(const std::string& File, const std::string& Section) override;
  int32_t FormatType() override { return m_iFormatType; }
  double DataSize(float fSeconds) override;
  std::shared_ptr<IAudioFormat> IAudioFormat_Copy() override { return Copy(); }
  std::string Description() override;
  int32_t SampleRate() override { return m_iSampleRate; }
  int16_t Channels() override { return m_iChannels; }
  bool IsSameFormat(IAudioFormat* oFormat) override;
  std::shared_ptr<CommonAudioFormat> CommonFormat() override;
  void SetCommonFormat(const std::shared_ptr<CommonAudioFormat>& oFormat) override;

  // ---- IAudioFile
  Wfx MemFormat() override;
  void SetMemFormat(const Wfx& wfx) override;
  std::shared_ptr<IAudioFile> IAudioFile_Copy() override { return Copy(); }
  void InitialiseCompression() override;
  void TerminateCompression() override { m_bInitialised = false; }
  int32_t ReadAudioData(void* lpBuffer, float fBufLen) override;
  void SeekFraction(float Fraction) override;

  // For tests.
  bool Initialised() const { return m_bInitialised; }

 protected:
  void OpenComponent(const std::string& sFile) override;
  void AfterReadOpen(bool bOpen) override;
  int32_t OpenWriteFile(const std::string& sFile) override;
  bool WroteAudio() override { return m_iSamples != 0; }

 private:
  static int32_t CodecFileType(int32_t iFormatType);
  void SetComponentFormat();
  void SetAdpcmLikeSample();
  void SetArrayFormatQuietly();

  int32_t m_iFormatType = 2;
  int32_t m_iSampleRate = 44100;
  int16_t m_iChannels = 2;
  int16_t m_iBitRate = 0;
  int32_t m_iFormatTag = 17;
  bool m_bInitialised = false;
};
