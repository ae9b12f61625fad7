#pragma once
// RIFF WAVE files in PCM, MS ADPCM and IMA ADPCM through the compression manager.
// Writing: memory format -> file-rate PCM (array converter) -> file format (conversion
// stream) -> an accumulator flushed to the file in large pieces. Reading takes the same
// stages the other way round. The file is written under a temporary name in its final
// folder and renamed at close; a file with no audio is deleted instead.
#include <memory>
#include <string>
#include <vector>

#include "audio/ConversionStream.h"
#include "audio/IAudioFile.h"
#include "audio/IAudioFormat.h"
#include "audio/RiffFile.h"
#include "audio/codec/ArrayConverter.h"

class CAudioACM : public IAudioFormat, public IAudioFile {
 public:
  CAudioACM();
  ~CAudioACM() override;
  CAudioACM(const CAudioACM&) = delete;
  CAudioACM& operator=(const CAudioACM&) = delete;

  // ---- Own members
  void SetFileFormat(int32_t SampleRate, int32_t Channels, int32_t FormatTag);
  std::shared_ptr<CAudioACM> Copy();
  int32_t FormatTag() const { return m_iFormatTag; }

  // ---- IAudioFormat
  void SaveFormat(const std::string& File, const std::string& Section) override;
  void LoadFormat(const std::string& File, const std::string& Section) override;
  int32_t FormatType() override { return FormatWAV; }
  double DataSize(float fSeconds) override;
  std::shared_ptr<IAudioFormat> IAudioFormat_Copy() override { return Copy(); }
  std::string Description() override;
  int32_t SampleRate() override { return m_iSampleRate; }
  int16_t Channels() override { return static_cast<int16_t>(m_iChannels); }
  bool IsSameFormat(IAudioFormat* oFormat) override;
  std::shared_ptr<CommonAudioFormat> CommonFormat() override;
  void SetCommonFormat(const std::shared_ptr<CommonAudioFormat>& oFormat) override;
  int32_t GetBlockAlign() override;

  // ---- IAudioFile
  std::shared_ptr<IAudioFileEventSink> Parent() override { return m_oFileParent; }
  void SetParent(const std::shared_ptr<IAudioFileEventSink>& o) override { m_oFileParent = o; }
  std::string AudioFileName() override { return m_sAudioFileName; }
  void SetAudioFileName(const std::string& s) override { m_sAudioFileName = s; }
  double BufLenSecs() override { return m_dBufLenSecs; }
  void SetBufLenSecs(double d) override { m_dBufLenSecs = d; }
  bool AudioOpen() override { return m_hAudioFile != nullptr; }
  std::string RecordedFileName() override { return m_sRecordedFileName; }
  Wfx MemFormat() override { return m_wfxMemFormat; }
  void SetMemFormat(const Wfx& wfx) override;
  std::shared_ptr<IAudioFile> IAudioFile_Copy() override { return Copy(); }
  int32_t WriteAudioData(const void* pAudioBuffer, int32_t lBufferLen) override;
  int32_t OpenAudioFile(const std::string& sFile, int32_t eMode) override;
  int32_t CloseAudioFile() override;
  void InitialiseCompression() override;
  void TerminateCompression() override;
  int32_t ReadAudioData(void* lpBuffer, float fBufLen) override;
  void SeekFraction(float Fraction) override;
  double AudioLength() override;
  double CurrentPosition() override;
  bool HandleOutOfProcess() override { return false; }
  void GetLeftOverBuffer(std::vector<uint8_t>& lpBuffer, int32_t& BufferSize) override;
  void SetLeftOverBuffer(const uint8_t* lpBuffer, int32_t BufferSize) override;

  // For tests and traces: the file's format as read or built (cbSize 0), and its whole
  // format block.
  const Wfx& FileFormat() const { return m_wfxFileFormat; }
  const std::vector<uint8_t>& FileFormatBlock() const { return m_pFileFormat; }

 private:
  bool BuildFileFormat();
  int32_t OpenReadFile(const std::string& sFile);
  int32_t OpenReadFileSteps(const std::string& sFile);
  void NormaliseByteRate();
  int32_t OpenWriteFile(const std::string& sFile);
  void AllocateBuffers();
  void FreeBuffers();
  // The format block as a record whose codec data is no longer than the block holds.
  Wfx FileFormatRecord() const;
  // Writes the accumulator; 0 or the code for the failed step (status before, write,
  // status after).
  int32_t FlushAccumulator(int32_t iErrInfoBefore, int32_t iErrWrite, int32_t iErrInfoAfter);
  void ReleaseConverters();

  int32_t m_iSampleRate = 44100;
  int32_t m_iChannels = 2;
  int32_t m_iFormatTag = 1;
  std::shared_ptr<IAudioFileEventSink> m_oFileParent;
  std::string m_sAudioFileName;
  std::string m_sRecordedFileName;
  double m_dBufLenSecs = 1.0;
  Wfx m_wfxMemFormat;
  std::unique_ptr<RiffFile> m_hAudioFile;
  MMCKINFO m_ckRiff;
  MMCKINFO m_ckData;
  bool m_bWriting = false;
  ConversionStream m_tyCompress;
  ConversionStream m_tyDecompress;
  std::unique_ptr<ArrayConverter> m_oConvertFileToMem;
  std::unique_ptr<ArrayConverter> m_oConvertMemToFile;
  std::vector<uint8_t> m_pFileFormat;
  int32_t m_iFormatSize = 0;
  Wfx m_wfxFileFormat;
  Wfx m_wfxFileFormatPCM;
  std::vector<uint8_t> m_pBuffer;
  std::vector<uint8_t> m_pConvBuffer;
  int32_t m_iBufferLen = 0;
  int32_t m_iBufferUsed = 0;

  // Work storage of the array converter, kept from call to call.
  std::vector<uint8_t> m_aEncoded;
  std::vector<int16_t> m_aDecoded;
  // Audio in the memory format that a read produced beyond what its caller asked for;
  // it goes out first at the next read.
  std::vector<uint8_t> m_aPending;
};
