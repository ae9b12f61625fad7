#pragma once
// Windows Media Audio files through the WMA component. A WMA format is a profile number
// in the system's profile file; rate, channels and bit rate are read back from the
// component. Reads in the memory format (through an array converter when the component
// delivers another); writes directly or, in indirect mode, through a temporary WAV file
// and the external copier.
#include <memory>
#include <string>
#include <vector>

#include "audio/CopierBackedAudioFile.h"
#include "audio/codec/ArrayConverter.h"
#include "audio/codec/WmaFile.h"

class CAudioWMA : public CopierBackedAudioFile<WmaFile> {
 public:
  CAudioWMA();
  ~CAudioWMA() override;

  // The system's profile file: nvkn4.prx in "Norvane Shared/Kestrane v4" of the common
  // program files folder.
  static std::string SystemPrxFile();

  // ---- Own members
  std::shared_ptr<CAudioWMA> Copy();
  int32_t ProfileNum() const { return m_iProfileNum; }
  void SetProfileNum(int32_t lNumber);

  // ---- IAudioFormat
  void SaveFormat(const std::string& File, const std::string& Section) override;
  void LoadFormat(const std::string& File, const std::string& Section) override;
  int32_t FormatType() override { return FormatWMA; }
  double DataSize(float fSeconds) override;
  std::shared_ptr<IAudioFormat> IAudioFormat_Copy() override { return Copy(); }
  std::string Description() override;
  int32_t SampleRate() override { return m_oAudioFile->SampleRate(); }
  int16_t Channels() override { return m_oAudioFile->Channels(); }
  bool IsSameFormat(IAudioFormat* oFormat) override;
  std::shared_ptr<CommonAudioFormat> CommonFormat() override;
  void SetCommonFormat(const std::shared_ptr<CommonAudioFormat>& oFormat) override;

  // ---- IAudioFile
  Wfx MemFormat() override;
  void SetMemFormat(const Wfx& wfx) override;
  std::shared_ptr<IAudioFile> IAudioFile_Copy() override { return Copy(); }
  void InitialiseCompression() override;
  void TerminateCompression() override { TerminateArrayConversion(); }
  int32_t ReadAudioData(void* lpBuffer, float fBufLen) override;
  void SeekFraction(float Fraction) override;

  // For tests.
  bool ConverterReady() const { return m_bConverterReady; }
  bool SameFormat() const { return m_bSameFormat; }

 protected:
  void OpenComponent(const std::string& sFile) override;
  void AfterReadOpen(bool bOpen) override;
  int32_t OpenWriteFile(const std::string& sFile) override;
  bool WroteAudio() override { return m_oAudioFile->TotalSamples() != 0; }
  void AfterComponentClose() override;
  std::string WriteFailure(const CodecError& e) override;
  std::string CopierArguments() override;

 private:
  void InitialiseArrayConversion();
  void TerminateArrayConversion();
  std::vector<uint8_t> ConvertArray(const std::vector<int16_t>& aSamples);

  int32_t m_iProfileNum = 0;
  std::unique_ptr<ArrayConverter> m_oConverter;
  bool m_bConverterReady = false;
  Wfx m_wfxArrayFormat;
  Wfx m_wfxConvertFormat;
  bool m_bSameFormat = false;
  // Converted audio beyond what a read's caller asked for; it goes out first next time.
  std::vector<uint8_t> m_aPending;
};
