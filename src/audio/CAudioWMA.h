#pragma once
// Windows Media Audio files through the WMA component. A WMA format is a profile number
// in the system's profile file; rate, channels and bit rate are read back from the
// component. Reads in the memory format (through an array converter when the component
// delivers another); writes directly or, in indirect mode, through a temporary WAV file
// and the external copier.
#include <memory>
#include <string>
#include <vector>

#include "audio/IAudioFile.h"
#include "audio/IAudioFormat.h"
#include "audio/codec/ArrayConverter.h"
#include "audio/codec/WmaFile.h"

class CAudioWMA : public IAudioFormat, public IAudioFile {
 public:
  CAudioWMA();
  ~CAudioWMA() override;
  CAudioWMA(const CAudioWMA&) = delete;
  CAudioWMA& operator=(const CAudioWMA&) = delete;

  // The system's profile file: nvkn4.prx in "Norvane Shared/Kestrane v4" of the common
  // program files folder.
  static std::string SystemPrxFile();

  // ---- Own members
  std::shared_ptr<CAudioWMA> Copy();
  int32_t ProfileNum() const { return m_iProfileNum; }
  void SetProfileNum(int32_t lNumber);
  bool WriteIndirect() const { return m_bWriteIndirect; }
  void SetWriteIndirect(bool b) { m_bWriteIndirect = b; }

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
  int32_t GetBlockAlign() override { return Channels() * 2; }

  // ---- IAudioFile
  std::shared_ptr<IAudioFileEventSink> Parent() override { return m_oFileParent; }
  void SetParent(const std::shared_ptr<IAudioFileEventSink>& o) override { m_oFileParent = o; }
  std::string AudioFileName() override { return m_sAudioFileName; }
  void SetAudioFileName(const std::string& s) override { m_sAudioFileName = s; }
  double BufLenSecs() override { return 0.0; }
  void SetBufLenSecs(double) override {}
  bool AudioOpen() override;
  std::string RecordedFileName() override { return m_sRecordedFileName; }
  Wfx MemFormat() override;
  void SetMemFormat(const Wfx& wfx) override;
  std::shared_ptr<IAudioFile> IAudioFile_Copy() override { return Copy(); }
  int32_t WriteAudioData(const void* pAudioBuffer, int32_t lBufferLen) override;
  int32_t OpenAudioFile(const std::string& sFile, int32_t eMode) override;
  int32_t CloseAudioFile() override;
  void InitialiseCompression() override;
  void TerminateCompression() override { TerminateArrayConversion(); }
  int32_t ReadAudioData(void* lpBuffer, float fBufLen) override;
  void SeekFraction(float Fraction) override;
  double AudioLength() override { return m_oAudioFile->LengthMs() / 1000.0; }
  double CurrentPosition() override;
  bool HandleOutOfProcess() override { return true; }
  void GetLeftOverBuffer(std::vector<uint8_t>& lpBuffer, int32_t& BufferSize) override;
  void SetLeftOverBuffer(const uint8_t*, int32_t) override {}

  // For tests.
  WmaFile& Component() { return *m_oAudioFile; }
  bool ConverterReady() const { return m_bConverterReady; }
  bool SameFormat() const { return m_bSameFormat; }
  std::shared_ptr<IAudioFile> WavFile() const { return m_oWavFile; }

 private:
  int32_t OpenReadFile(const std::string& sFile);
  int32_t OpenWriteFile(const std::string& sFile);
  void InitialiseArrayConversion();
  void TerminateArrayConversion();
  std::vector<uint8_t> ConvertArray(const std::vector<int16_t>& aSamples);
  void Warn(int32_t lNumber, const std::string& sDescription);

  int32_t m_iProfileNum = 0;
  std::unique_ptr<WmaFile> m_oAudioFile;
  std::shared_ptr<IAudioFile> m_oWavFile;
  std::unique_ptr<ArrayConverter> m_oConverter;
  std::shared_ptr<IAudioFileEventSink> m_oFileParent;
  std::string m_sAudioFileName;
  std::string m_sRecordedFileName;
  bool m_bWriteIndirect = false;
  Wfx m_wfxMemFormat;
  int32_t m_iSamples = 0;
  bool m_bConverterReady = false;
  Wfx m_wfxArrayFormat;
  Wfx m_wfxConvertFormat;
  bool m_bSameFormat = false;
  // Converted audio beyond what a read's caller asked for; it goes out first next time.
  std::vector<uint8_t> m_aPending;
};
