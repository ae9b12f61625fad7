#pragma once
// Decodes one audio file through FFmpeg into interleaved 16-bit samples at an output
// rate and channel count of the caller's choice, resampling where the file differs.
// Positions and lengths are counted in frames (samples per channel) of the output rate.
// Only the containers and codecs that the system reads are accepted: MPEG audio (MP1,
// MP2, MP3), Ogg Vorbis, WAV (PCM, IMA and MS ADPCM) and ASF (WMA).
#include <cstdint>
#include <string>
#include <vector>

#include "audio/codec/AvHandles.h"

struct AVCodec;
struct AVStream;

class AvAudioReader {
 public:
  AvAudioReader();
  ~AvAudioReader();
  AvAudioReader(const AvAudioReader&) = delete;
  AvAudioReader& operator=(const AvAudioReader&) = delete;

  // Opens the file; raises CodecError (kOpenFailed) when it is not readable audio.
  void Open(const std::string& sPath);
  void Close();
  bool IsOpen() const { return m_pFormat != nullptr; }

  // Output format. May change with a file open: the position (in seconds) is kept.
  void SetOutputFormat(int32_t lRate, int32_t lChannels);
  int32_t OutputRate() const { return m_lOutRate; }
  int32_t OutputChannels() const { return m_lOutChannels; }

  // Up to lFrames frames, interleaved; empty at the end of the audio.
  std::vector<int16_t> Read(int64_t lFrames);
  // Moves to an absolute frame position (clamped to 0..TotalFrames); gives it back.
  int64_t Seek(int64_t lFrame);
  // Moves to the end: nothing more is read. Gives back TotalFrames.
  int64_t SeekEnd();
  int64_t Position() const { return m_lPosition; }

  // Length in output frames and in milliseconds. MPEG audio, Ogg and WMA: measured, the
  // audio that is present to the end of the file (a file cut short reads short). Other
  // files: from the container, else estimated from the bit rate and the file size.
  int64_t TotalFrames() const;
  int64_t LengthMs() const;
  bool LengthIsEstimate() const { return m_bEstimated; }

  // Of the file.
  int32_t SampleRate() const { return m_lFileRate; }
  int32_t Channels() const { return m_lFileChannels; }
  int32_t BitRate() const { return m_lBitRate; }      // bits a second
  int32_t FormatTag() const { return m_lFormatTag; }  // wave format tag of the codec

 private:
  void Reset();
  // The steps of Open; each raises CodecError (kOpenFailed) and leaves the rest to Open.
  const AVCodec* OpenInput(const std::string& sPath);  // demuxer and audio stream
  void OpenDecoder(const std::string& sPath, const AVCodec* pCodec, const AVStream* pStream);
  void ReadStreamFacts(const AVStream* pStream, int32_t lKnownTag);  // bit rate, format tag
  void ReadLength(const AVStream* pStream, int64_t lKnownFrames);
  bool DecodeMore();  // false at the end
  void Convert(const AVFrame* pFrame);
  void FlushResampler();
  void ConfigureResampler(const AVFrame* pFrame);
  void Rewind();
  void Reopen();
  // Frames at the file's rate of the audio the file holds, measured from its frames,
  // pages or packets; -1 where its form is not measured.
  int64_t MeasureFrames(const AVStream* pStream) const;

  AvInputPtr m_pFormat;
  AvCodecPtr m_pDecoder;
  SwrPtr m_pSwr;
  AvPacketPtr m_pPacket;
  AvFramePtr m_pFrame;
  int m_iStream = -1;
  std::string m_sPath;

  // Input parameters the resampler was set up for.
  int m_iSwrInRate = 0;
  int m_iSwrInFormat = -1;
  int m_iSwrInChannels = 0;
  uint64_t m_uSwrInMask = 0;

  std::vector<int16_t> m_aPending;  // converted samples not handed out yet
  size_t m_lPendingPos = 0;         // index of the first of them
  bool m_bDemuxEnd = false;         // no more packets
  bool m_bDecoderEnd = false;       // decoder drained
  bool m_bAtEnd = false;            // SeekEnd: nothing more to read
  int64_t m_lPosition = 0;          // output frames handed out since the start

  int32_t m_lOutRate = 44100;
  int32_t m_lOutChannels = 2;
  int32_t m_lFileRate = 0;
  int32_t m_lFileChannels = 0;
  int32_t m_lBitRate = 0;
  int32_t m_lFormatTag = 0;
  double m_dSeconds = 0.0;
  bool m_bEstimated = false;
  int64_t m_lKnownFrames = -1;  // set by Reopen: the measured length, not measured again
};
