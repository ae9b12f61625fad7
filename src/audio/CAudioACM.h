#pragma once
// RIFF WAVE files in PCM, MS ADPCM and IMA ADPCM through the compression manager.
// Writing: memory format -> file-rate PCM (array converter) -> file format (conversion
// stream) -> an accumulator flushed to the file in large pieces. Reading takes the same
// stages the other way round. The file is written under a temporary name in its final
// folder and renamed at close; a file with no audio is deleted instead.
//
// Nothing of the audio is lost on the way: at close the resampler gives what it still
// holds, the codec's last part-block is filled with silence to a whole block, and the
// "fact" chunk counts the samples of audio (not of that silence). Reading drains the
// resampler at the end of the data too. A file whose recorder died before it patched
// its header (RIFF or "data" size 0, 0xFFFFFFFF, or beyond the end of the file) reads as
// audio that runs to the end of the file; WAVE_FORMAT_EXTENSIBLE and IEEE float files
// read through their linear sub-format.
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
  // The chunks of a file being opened for reading: RIFF form, "fmt " (read into the
  // format block) and "data", with the sizes that a crash left behind repaired. 0 or the
  // open's result code; iFileTag: the format tag that the file states.
  int32_t ReadChunks(RiffFile& f, uint16_t& iFileTag);
  // The "fmt " chunk's block, read at the file's position: 0 or the open's result code.
  int32_t ReadFormatBlock(RiffFile& f, uint32_t lChunkSize, uint16_t& iFileTag);
  // An EXTENSIBLE format block of linear audio becomes the block of its sub-format.
  void TakeSubFormat();
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
  // The close of a written file: the "fact" chunk's sample count (0 or the close's result
  // code, with the reason of its trace in sWhy where it has one), and the rename to the
  // final name (or the delete of a file without audio).
  int32_t WriteSampleCount(const char*& sWhy);
  void PutUnderFinalName(bool bNoData);
  // File-rate PCM through the compression stream into the accumulator, in pieces that fit
  // the stream. bAudio false: the bytes are the silence that fills the last block, which
  // the "fact" chunk does not count. 0 or the code of the failed flush.
  int32_t CompressPcm(const uint8_t* pPcm, size_t lPcm, bool bAudio, int32_t iErrInfoBefore, int32_t iErrWrite,
                      int32_t iErrInfoAfter);
  // The end of a written stream: drains the resampler and pads the codec's tail to a
  // whole block. 0 or the code of the failed flush.
  int32_t FinishCompression(int32_t iErrInfoBefore, int32_t iErrWrite, int32_t iErrInfoAfter);
  // Bytes of file-rate PCM in one block of the file format.
  uint32_t PcmBytesPerBlock() const;
  // Frames in one block of a format: 1 for linear audio, the codec's count for ADPCM,
  // 0 for a format this class cannot read.
  static int SamplesPerBlock(const Wfx& w);

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
  // Samples (frames) in the blocks that reached the accumulator since the open, and the
  // silence among them that filled the last block: the "fact" count is the difference.
  // A piece whose flush failed is in neither.
  int64_t m_llSamplesOut = 0;
  int64_t m_llSilenceOut = 0;
  int m_iOutSamplesPerBlock = 1;
  // The end of the stream has been dealt with: the resampler drained (and, writing, the
  // last block padded).
  bool m_bStreamEnded = false;
  std::vector<int16_t> m_aDrained;
  // Audio in the memory format that a read produced beyond what its caller asked for;
  // it goes out first at the next read.
  std::vector<uint8_t> m_aPending;
};
