#pragma once
// Encodes interleaved 16-bit samples through FFmpeg into one file: the container and
// encoder by name, the file's rate, channels and bit rate. The samples come in an input
// format of the caller's choice and are resampled to the file's where they differ.
#include <cstdint>
#include <string>

#include "audio/codec/AvHandles.h"

struct AVCodec;

struct AvEncodeSettings {
  std::string sMuxer;    // "wav", "mp3", "ogg", "mp2", "asf"
  std::string sEncoder;  // "pcm_s16le", "adpcm_ima_wav", "libmp3lame", ...
  int32_t lSampleRate = 0;
  int32_t lChannels = 0;
  int32_t lBitRate = 0;     // bits a second; 0 for PCM and ADPCM
  int32_t lBlockAlign = 0;  // ADPCM: bytes a block; 0 for the encoder's default
};

class AvAudioWriter {
 public:
  AvAudioWriter();
  ~AvAudioWriter();  // an unfinished file is closed as far as it goes, without raising
  AvAudioWriter(const AvAudioWriter&) = delete;
  AvAudioWriter& operator=(const AvAudioWriter&) = delete;

  // Creates the file. Raises CodecError (kCreateFailed) when the encoder refuses the
  // settings or the file cannot be made.
  void Create(const std::string& sPath, const AvEncodeSettings& settings);
  bool IsOpen() const { return m_pFormat != nullptr; }
  void SetInputFormat(int32_t lRate, int32_t lChannels);
  // Appends lCount samples (all channels counted). Raises CodecError on failure.
  void Write(const int16_t* pSamples, size_t lCount);
  // Flushes the encoder and finishes the file. Raises CodecError on failure.
  void Close();
  int64_t FramesWritten() const { return m_lInputFrames; }  // input frames taken
  int32_t BlockAlign() const;

 private:
  void Abandon();
  // The steps of Create; each raises CodecError (kCreateFailed) and leaves the rest to it.
  void OpenEncoder(const std::string& sPath, const AVCodec* pCodec, const AvEncodeSettings& s);
  void WriteHeader(const std::string& sPath);  // the stream, the file and its header
  void MakeBuffers(const std::string& sPath, const AVCodec* pCodec, const AvEncodeSettings& s);
  void SetUpResampler();
  void EncodeFrames(bool bFinal);
  void SendFrame(AVFrame* pFrame);
  // Appends silence in the encoder's format behind what is buffered.
  void AddSilence(int iFrames);
  // The resampler's output buffer, kept for the life of the file and grown when needed,
  // so that writing allocates nothing once it runs.
  uint8_t** ConversionBuffer(int iFrames);
  void FreeConversionBuffer();

  AvOutputPtr m_pFormat;
  AvCodecPtr m_pEncoder;
  SwrPtr m_pSwr;
  AvFifoPtr m_pFifo;
  AvPacketPtr m_pPacket;
  AvFramePtr m_pFrame;
  int m_iFrameSize = 0;
  AvSamplesPtr m_ppConv;
  int m_iConvFrames = 0;
  int64_t m_lNextPts = 0;
  int64_t m_lInputFrames = 0;
  int32_t m_lInRate = 44100;
  int32_t m_lInChannels = 2;
  bool m_bHeaderWritten = false;
  bool m_bFirstPageFlushed = true;
  int m_iTailSilence = 0;  // frames of silence behind the audio at the close
  std::string m_sPath;
};
