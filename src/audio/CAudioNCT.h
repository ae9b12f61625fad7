#pragma once
// MP2, MP3 and Ogg Vorbis files (and plain WAV writing) through the codec component.
// Reads any of them in the memory format; writes either directly through the component
// or, in indirect mode, into a temporary WAV file that the external copier then turns
// into the final file.
#include <memory>
#include <string>
#include <vector>

#include "audio/IAudioFile.h"
#include "audio/IAudioFormat.h"
#include "audio/codec/CodecFile.h"

class CAudioNCT : public IAudioFormat, public IAudioFile {
 public:
  CAudioNCT();
  ~CAudioNCT() override;
  CAudioNCT(const CAudioNCT&) = delete;
  CAudioNCT& operator=(const CAudioNCT&) = delete;

  // ---- Own members
  bool WriteIndirect() const { return m_bWriteIndirect; }
  void SetWriteIndirect(bool b) { m_bWriteIndirect = b; }
  std::shared_ptr<CAudioNCT> Copy();
  int16_t BitRate() const { return m_iBitRate; }
  int32_t FormatTag() const { return m_iFormatTag; }
  void SetFileFormat(int32_t FormatType, int32_t SampleRate, int32_t BitRate, int32_t Channels,
                     int32_t FormatTag);
  // Path of the external copier.
  static std::string CopierPath();

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
  int32_t GetBlockAlign() override { return m_iChannels * 2; }

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
  void TerminateCompression() override { m_bInitialised = false; }
  int32_t ReadAudioData(void* lpBuffer, float fBufLen) override;
  void SeekFraction(float Fraction) override;
  double AudioLength() override;
  double CurrentPosition() override;
  bool HandleOutOfProcess() override { return true; }
  void GetLeftOverBuffer(std::vector<uint8_t>& lpBuffer, int32_t& BufferSize) override;
  void SetLeftOverBuffer(const uint8_t*, int32_t) override {}

  // For tests: the component and the WAV object of the indirect mode.
  CodecFile& Component() { return *m_oAudioFile; }
  std::shared_ptr<IAudioFile> WavFile() const { return m_oWavFile; }
  bool Initialised() const { return m_bInitialised; }

 private:
  int32_t OpenReadFile(const std::string& sFile);
  int32_t OpenWriteFile(const std::string& sFile);
  static int32_t CodecFileType(int32_t iFormatType);
  void Warn(int32_t lNumber, const std::string& sDescription);

  int32_t m_iFormatType = 2;
  int32_t m_iSampleRate = 44100;
  int16_t m_iChannels = 2;
  int16_t m_iBitRate = 0;
  int32_t m_iFormatTag = 17;
  std::unique_ptr<CodecFile> m_oAudioFile;
  std::shared_ptr<IAudioFile> m_oWavFile;
  std::shared_ptr<IAudioFileEventSink> m_oFileParent;
  std::string m_sAudioFileName;
  std::string m_sRecordedFileName;
  bool m_bInitialised = false;
  bool m_bWriteIndirect = false;
  Wfx m_wfxMemFormat;
  int32_t m_iSamples = 0;
};
