#pragma once
// The codec component: reads MP2, MP3, Ogg Vorbis, WAV (PCM and ADPCM) and WMA files
// and writes MP2, MP3, Ogg Vorbis and WAV (PCM, IMA ADPCM) files. Audio crosses it as
// arrays of interleaved 16-bit samples in the array format (SetArrayFormat); the
// component resamples where the file differs. Positions and TotalSamples count frames
// (samples per channel) at the array rate. Failures raise CodecError.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "audio/codec/Mp3Options.h"

class AvAudioReader;
class AvAudioWriter;

class CodecFile {
 public:
  // File types of Create.
  static constexpr int32_t kTypeWAV = 1;
  static constexpr int32_t kTypeMP3 = 2;
  static constexpr int32_t kTypeOGG = 6;
  static constexpr int32_t kTypeWMA = 11;
  static constexpr int32_t kTypeMP2 = 12;
  // Seek origins.
  static constexpr int32_t kSeekCurrent = 1;
  static constexpr int32_t kSeekEnd = 2;
  static constexpr int32_t kSeekAbsolute = 3;

  CodecFile();
  ~CodecFile();
  CodecFile(const CodecFile&) = delete;
  CodecFile& operator=(const CodecFile&) = delete;

  // Opens a file for reading. The two numbers are the component's open flags and have
  // no effect here. Raises CodecError when the file is not readable audio.
  void Open(const std::string& sPath, int32_t lFlags = 0, int32_t lShare = 1);
  // Closes the file; a file being written is finished first (errors raise after the
  // file is closed).
  void Close();
  // Creates a file in the format set by the last SetFormat call; the type must agree
  // with that format.
  void Create(const std::string& sPath, int32_t lFileType);
  void WriteSamples(const std::vector<int16_t>& aSamples);
  void WriteSamples(const int16_t* pSamples, size_t lCount);
  std::vector<int16_t> ReadSamples(int32_t lSamplesPerChannel);
  void Seek(int32_t lPosition, int32_t lOrigin, int32_t& lNewPosition);

  void SetArrayFormat(int32_t lSampleRate, int32_t lChannels);
  void SetFormatLikeSample(const std::string& sWavFile);
  void SetFormatPCM(int32_t lSampleRate, int32_t lChannels, int32_t lBits);
  void SetFormatADPCM(int32_t lSampleRate, int32_t lChannels);
  void SetFormatMP2(int32_t lSampleRate, int32_t lBitRate, int32_t lChannels);
  void SetFormatMP3(const Mp3Options& oOptions);
  void SetFormatOGG(int32_t lSampleRate, int32_t lChannels, int32_t lBitRate, int32_t lMin, int32_t lMax,
                    bool bManaged);

  int32_t TotalSamples() const;
  int32_t SampleRate() const;
  int32_t State() const;  // 0 no file, 1 reading, 2 writing
  int16_t Channels() const;
  int16_t BitsPerSample() const { return 16; }
  int32_t BitRate() const;  // bits a second
  int32_t LengthMs() const;
  int32_t ArrayChannels() const { return m_lArrayChannels; }
  int32_t ArraySampleRate() const { return m_lArrayRate; }
  int32_t FormatTag() const;
  void SetUseWindowsMedia(bool b) { m_bUseWindowsMedia = b; }
  bool UseWindowsMedia() const { return m_bUseWindowsMedia; }

 private:
  enum class Kind { None, PCM, ADPCM_IMA, ADPCM_MS, MP2, MP3, OGG };
  struct Format {
    Kind eKind = Kind::None;
    int32_t lRate = 0;
    int32_t lChannels = 0;
    int32_t lBitRateKbps = 0;
    int32_t lBlockAlign = 0;
  };
  static int32_t FileTypeOf(Kind e);

  std::unique_ptr<AvAudioReader> m_pReader;
  std::unique_ptr<AvAudioWriter> m_pWriter;
  Format m_format;   // format of the next file
  Format m_writing;  // format of the file being written
  int32_t m_lArrayRate = 44100;
  int32_t m_lArrayChannels = 2;
  int64_t m_lWritten = 0;  // array frames written
  bool m_bUseWindowsMedia = false;
};
