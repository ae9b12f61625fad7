#include "audio/codec/AvAudioReader.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>

#include "audio/codec/AudioLengthProbe.h"
#include "audio/codec/AvHandles.h"
#include "audio/codec/CodecError.h"

namespace {

// The codecs that the system reads, with the wave format tag each is known by.
struct KnownCodec {
  AVCodecID id;
  int32_t lTag;
};
constexpr KnownCodec kKnownCodecs[] = {
    {AV_CODEC_ID_PCM_S16LE, 1},      {AV_CODEC_ID_PCM_U8, 1},      {AV_CODEC_ID_PCM_S24LE, 1},
    {AV_CODEC_ID_PCM_S32LE, 1},      {AV_CODEC_ID_PCM_F32LE, 3},   {AV_CODEC_ID_ADPCM_MS, 2},
    {AV_CODEC_ID_ADPCM_IMA_WAV, 17}, {AV_CODEC_ID_MP1, 80},        {AV_CODEC_ID_MP2, 80},
    {AV_CODEC_ID_MP3, 85},           {AV_CODEC_ID_VORBIS, 0x674f}, {AV_CODEC_ID_WMAV1, 0x160},
    {AV_CODEC_ID_WMAV2, 0x161},      {AV_CODEC_ID_WMAPRO, 0x162},  {AV_CODEC_ID_PCM_ALAW, 6},
    {AV_CODEC_ID_PCM_MULAW, 7},
};
constexpr int kMaxChannels = 8;
constexpr int kMaxRate = 384000;
// Consecutive packets the decoder may refuse before the rest of the file is given up.
constexpr int kMaxBadPackets = 2000;

const KnownCodec* FindKnown(AVCodecID id) {
  for (const auto& k : kKnownCodecs)
    if (k.id == id) return &k;
  return nullptr;
}

// Samples a WMA v1/v2 frame holds: the frame length of the codec at this rate.
int64_t WmaFrameLength(AVCodecID id, int lRate) {
  int iBits = 11;
  if (lRate <= 16000) iBits = 9;
  else if (lRate <= 22050 || (lRate <= 32000 && id == AV_CODEC_ID_WMAV1)) iBits = 10;
  return int64_t{1} << iBits;
}

// Whether WMA v1/v2 frames may run across packets (the bit reservoir of the codec's
// flags); then a packet does not hold exactly one frame.
bool WmaUsesBitReservoir(const AVCodecParameters* par) {
  int iAt = par->codec_id == AV_CODEC_ID_WMAV1 ? 2 : 4;
  if (!par->extradata || par->extradata_size < iAt + 2) return true;
  int iFlags = par->extradata[iAt] | (par->extradata[iAt + 1] << 8);
  return (iFlags & 2) != 0;
}

// A WMA file's length from its packets. Without the bit reservoir each whole packet is
// one frame, and FFmpeg's decoder gives nothing for the first. Otherwise the packets are
// decoded and their samples counted. -1 when the file can't be read.
int64_t MeasureAsfFrames(const std::string& sPath) {
  AVFormatContext* pFormat = nullptr;
  AVDictionary* pOpts = nullptr;
  av_dict_set(&pOpts, "format_whitelist", "asf", 0);
  av_dict_set(&pOpts, "protocol_whitelist", "file", 0);
  int rc = avformat_open_input(&pFormat, sPath.c_str(), nullptr, &pOpts);
  av_dict_free(&pOpts);
  if (rc < 0) return -1;
  AvInputPtr pOwnFormat(pFormat);
  const AVCodec* pCodec = nullptr;
  int iStream = av_find_best_stream(pFormat, AVMEDIA_TYPE_AUDIO, -1, -1, &pCodec, 0);
  if (iStream < 0 || !pCodec) return -1;
  const AVCodecParameters* par = pFormat->streams[iStream]->codecpar;
  for (unsigned i = 0; i < pFormat->nb_streams; ++i)
    if (static_cast<int>(i) != iStream) pFormat->streams[i]->discard = AVDISCARD_ALL;
  bool bCount = (par->codec_id == AV_CODEC_ID_WMAV1 || par->codec_id == AV_CODEC_ID_WMAV2) && par->block_align > 0 &&
                !WmaUsesBitReservoir(par);
  AvCodecPtr pDecoder;
  AvFramePtr pFrame;
  if (!bCount) {
    pDecoder.reset(avcodec_alloc_context3(pCodec));
    pFrame.reset(av_frame_alloc());
    if (!pDecoder || !pFrame || avcodec_parameters_to_context(pDecoder.get(), par) < 0 ||
        avcodec_open2(pDecoder.get(), pCodec, nullptr) < 0)
      return -1;
  }
  AvPacketPtr pPacket(av_packet_alloc());
  if (!pPacket) return -1;
  int64_t lPackets = 0, lSamples = 0;
  auto drain = [&] {
    while (avcodec_receive_frame(pDecoder.get(), pFrame.get()) == 0) {
      lSamples += pFrame->nb_samples;
      av_frame_unref(pFrame.get());
    }
  };
  while (av_read_frame(pFormat, pPacket.get()) >= 0) {
    if (pPacket->stream_index == iStream && !(pPacket->flags & AV_PKT_FLAG_CORRUPT)) {
      if (bCount) {
        if (pPacket->size == par->block_align) ++lPackets;
      } else {
        // A packet the decoder refuses adds nothing; the next ones still count.
        avcodec_send_packet(pDecoder.get(), pPacket.get());
        drain();
      }
    }
    av_packet_unref(pPacket.get());
  }
  if (bCount) return std::max<int64_t>(0, lPackets - 1) * WmaFrameLength(par->codec_id, par->sample_rate);
  avcodec_send_packet(pDecoder.get(), nullptr);
  drain();
  return lSamples;
}

}  // namespace

int64_t AvAudioReader::MeasureFrames(const AVStream* pStream) const {
  const AVCodecParameters* par = pStream->codecpar;
  const char* pszFormat = m_pFormat->iformat->name;
  if (std::strcmp(pszFormat, "mp3") == 0) {
    MpegAudioMeasure m = MeasureMpegAudio(m_sPath);
    if (m.lFrames >= 0 && (m.lFrames == 0 || m.lSampleRate == m_lFileRate)) return m.lFrames;
    return -1;
  }
  if (std::strcmp(pszFormat, "ogg") == 0) {
    int64_t lStart = 0;
    if (pStream->start_time != AV_NOPTS_VALUE)
      lStart = av_rescale_q(pStream->start_time, pStream->time_base, AVRational{1, m_lFileRate});
    return MeasureOggGranule(m_sPath, lStart);
  }
  if (std::strstr(pszFormat, "asf") != nullptr &&
      (par->codec_id == AV_CODEC_ID_WMAV1 || par->codec_id == AV_CODEC_ID_WMAV2 || par->codec_id == AV_CODEC_ID_WMAPRO))
    return MeasureAsfFrames(m_sPath);
  return -1;
}

AvAudioReader::AvAudioReader() { SilenceCodecLoggingByDefault(); }
AvAudioReader::~AvAudioReader() { Close(); }

void AvAudioReader::Reset() {
  // The resampler and decoder go before the demuxer whose stream they were made for.
  m_pSwr.reset();
  m_pDecoder.reset();
  m_pFormat.reset();
  m_pPacket.reset();
  m_pFrame.reset();
  m_iStream = -1;
  m_iSwrInRate = 0;
  m_iSwrInFormat = -1;
  m_iSwrInChannels = 0;
  m_uSwrInMask = 0;
  m_aPending.clear();
  m_lPendingPos = 0;
  m_bDemuxEnd = m_bDecoderEnd = m_bAtEnd = false;
  m_lPosition = 0;
}

void AvAudioReader::Close() {
  Reset();
  m_sPath.clear();
  m_lFileRate = m_lFileChannels = m_lBitRate = m_lFormatTag = 0;
  m_dSeconds = 0.0;
  m_bEstimated = false;
}

namespace {
[[noreturn]] void OpenFailed(const std::string& sPath, const std::string& sWhy) {
  throw CodecError(CodecErr::kOpenFailed, "Cannot open " + sPath + ": " + sWhy);
}
}  // namespace

void AvAudioReader::Open(const std::string& sPath) {
  const int64_t lKnownFrames = m_lKnownFrames;
  m_lKnownFrames = -1;
  Close();
  try {
    const AVCodec* pCodec = OpenInput(sPath);
    AVStream* pStream = m_pFormat->streams[m_iStream];
    const KnownCodec* pKnown = FindKnown(pStream->codecpar->codec_id);
    if (!pKnown) OpenFailed(sPath, "unsupported codec");
    for (unsigned i = 0; i < m_pFormat->nb_streams; ++i)
      if (static_cast<int>(i) != m_iStream) m_pFormat->streams[i]->discard = AVDISCARD_ALL;
    OpenDecoder(sPath, pCodec, pStream);
    m_pPacket.reset(av_packet_alloc());
    m_pFrame.reset(av_frame_alloc());
    if (!m_pPacket || !m_pFrame) OpenFailed(sPath, "out of memory");
    m_sPath = sPath;
    ReadStreamFacts(pStream, pKnown->lTag);
    ReadLength(pStream, lKnownFrames);
  } catch (...) {
    Close();
    throw;
  }
}

const AVCodec* AvAudioReader::OpenInput(const std::string& sPath) {
  AVDictionary* pOpts = nullptr;
  av_dict_set(&pOpts, "format_whitelist", "mp3,ogg,wav,asf", 0);
  av_dict_set(&pOpts, "protocol_whitelist", "file", 0);
  AVFormatContext* pFormat = nullptr;
  int rc = avformat_open_input(&pFormat, sPath.c_str(), nullptr, &pOpts);
  av_dict_free(&pOpts);
  if (rc < 0) OpenFailed(sPath, "not a known audio file");
  m_pFormat.reset(pFormat);
  m_pFormat->flags |= AVFMT_FLAG_DISCARD_CORRUPT;
  if (avformat_find_stream_info(m_pFormat.get(), nullptr) < 0) OpenFailed(sPath, "no stream information");
  const AVCodec* pCodec = nullptr;
  m_iStream = av_find_best_stream(m_pFormat.get(), AVMEDIA_TYPE_AUDIO, -1, -1, &pCodec, 0);
  if (m_iStream < 0 || !pCodec) OpenFailed(sPath, "no audio stream");
  return pCodec;
}

void AvAudioReader::OpenDecoder(const std::string& sPath, const AVCodec* pCodec, const AVStream* pStream) {
  m_pDecoder.reset(avcodec_alloc_context3(pCodec));
  if (!m_pDecoder) OpenFailed(sPath, "out of memory");
  if (avcodec_parameters_to_context(m_pDecoder.get(), pStream->codecpar) < 0) OpenFailed(sPath, "bad parameters");
  m_pDecoder->pkt_timebase = pStream->time_base;
  AVDictionary* pCodecOpts = nullptr;
  av_dict_set(&pCodecOpts, "codec_whitelist", pCodec->name, 0);
  int rc = avcodec_open2(m_pDecoder.get(), pCodec, &pCodecOpts);
  av_dict_free(&pCodecOpts);
  if (rc < 0) OpenFailed(sPath, "decoder refused the stream");
  m_lFileRate = m_pDecoder->sample_rate;
  m_lFileChannels = m_pDecoder->ch_layout.nb_channels;
  if (m_lFileRate <= 0 || m_lFileRate > kMaxRate || m_lFileChannels <= 0 || m_lFileChannels > kMaxChannels)
    OpenFailed(sPath, "unusable sample rate or channel count");
}

void AvAudioReader::ReadStreamFacts(const AVStream* pStream, int32_t lKnownTag) {
  // Bit rate: the stream's, else the container's, else worked out for PCM.
  int64_t lBits = pStream->codecpar->bit_rate;
  if (lBits <= 0) lBits = m_pFormat->bit_rate;
  if (lBits <= 0 && pStream->codecpar->bits_per_coded_sample > 0)
    lBits = static_cast<int64_t>(m_lFileRate) * m_lFileChannels * pStream->codecpar->bits_per_coded_sample;
  m_lBitRate = static_cast<int32_t>(std::clamp<int64_t>(lBits, 0, INT32_MAX));
  m_lFormatTag = lKnownTag;
  if (std::strcmp(m_pFormat->iformat->name, "wav") == 0 && pStream->codecpar->codec_tag)
    m_lFormatTag = static_cast<int32_t>(pStream->codecpar->codec_tag);
}

void AvAudioReader::ReadLength(const AVStream* pStream, int64_t lKnownFrames) {
  // The stream's, else the container's; both may be estimates from the bit rate.
  m_dSeconds = 0.0;
  if (pStream->duration != AV_NOPTS_VALUE && pStream->duration > 0)
    m_dSeconds = static_cast<double>(pStream->duration) * av_q2d(pStream->time_base);
  else if (m_pFormat->duration != AV_NOPTS_VALUE && m_pFormat->duration > 0)
    m_dSeconds = static_cast<double>(m_pFormat->duration) / AV_TIME_BASE;
  m_bEstimated = m_pFormat->duration_estimation_method == AVFMT_DURATION_FROM_BITRATE;
  if (m_dSeconds <= 0.0 && m_lBitRate > 0) {
    int64_t lSize = avio_size(m_pFormat->pb);
    if (lSize > 0) {
      m_dSeconds = static_cast<double>(lSize) * 8.0 / m_lBitRate;
      m_bEstimated = true;
    }
  }
  // Where the form of the file allows, the length is that of the audio present.
  int64_t lMeasured = lKnownFrames >= 0 ? lKnownFrames : MeasureFrames(pStream);
  if (lMeasured >= 0) {
    m_dSeconds = static_cast<double>(lMeasured) / m_lFileRate;
    m_bEstimated = false;
  }
  if (!std::isfinite(m_dSeconds) || m_dSeconds < 0.0 || m_dSeconds > 48.0 * 3600.0) m_dSeconds = 0.0;
}

int64_t AvAudioReader::TotalFrames() const {
  if (!IsOpen()) return 0;
  return std::llround(m_dSeconds * m_lOutRate);
}

int64_t AvAudioReader::LengthMs() const {
  if (!IsOpen()) return 0;
  return std::llround(m_dSeconds * 1000.0);
}

void AvAudioReader::ConfigureResampler(const AVFrame* pFrame) {
  if (m_pSwr) {
    FlushResampler();
    m_pSwr.reset();
  }
  AVChannelLayout outLayout;
  av_channel_layout_default(&outLayout, m_lOutChannels);
  AVChannelLayout inLayout;
  if (pFrame->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC || av_channel_layout_check(&pFrame->ch_layout) == 0)
    av_channel_layout_default(&inLayout, pFrame->ch_layout.nb_channels);
  else av_channel_layout_copy(&inLayout, &pFrame->ch_layout);
  SwrContext* pSwr = nullptr;
  int rc = swr_alloc_set_opts2(&pSwr, &outLayout, AV_SAMPLE_FMT_S16, m_lOutRate, &inLayout,
                               static_cast<AVSampleFormat>(pFrame->format), pFrame->sample_rate, 0, nullptr);
  SwrPtr pOwnSwr(pSwr);
  av_channel_layout_uninit(&inLayout);
  av_channel_layout_uninit(&outLayout);
  if (rc < 0 || swr_init(pSwr) < 0) {
    throw CodecError(CodecErr::kReadFailed, "Cannot convert the audio of " + m_sPath);
  }
  m_pSwr = std::move(pOwnSwr);
  m_iSwrInRate = pFrame->sample_rate;
  m_iSwrInFormat = pFrame->format;
  m_iSwrInChannels = pFrame->ch_layout.nb_channels;
  m_uSwrInMask = pFrame->ch_layout.order == AV_CHANNEL_ORDER_NATIVE ? pFrame->ch_layout.u.mask : 0;
}

void AvAudioReader::FlushResampler() {
  if (!m_pSwr) return;
  for (;;) {
    int lOut = swr_get_out_samples(m_pSwr.get(), 0);
    if (lOut <= 0) break;
    size_t lOld = m_aPending.size();
    m_aPending.resize(lOld + static_cast<size_t>(lOut) * m_lOutChannels);
    uint8_t* pOut = reinterpret_cast<uint8_t*>(m_aPending.data() + lOld);
    int n = swr_convert(m_pSwr.get(), &pOut, lOut, nullptr, 0);
    m_aPending.resize(lOld + static_cast<size_t>(std::max(n, 0)) * m_lOutChannels);
    if (n <= 0) break;
  }
}

void AvAudioReader::Convert(const AVFrame* pFrame) {
  if (pFrame->nb_samples <= 0 || pFrame->sample_rate <= 0 || pFrame->sample_rate > kMaxRate ||
      pFrame->ch_layout.nb_channels <= 0 || pFrame->ch_layout.nb_channels > kMaxChannels)
    return;
  uint64_t uMask = pFrame->ch_layout.order == AV_CHANNEL_ORDER_NATIVE ? pFrame->ch_layout.u.mask : 0;
  if (!m_pSwr || pFrame->sample_rate != m_iSwrInRate || pFrame->format != m_iSwrInFormat ||
      pFrame->ch_layout.nb_channels != m_iSwrInChannels || uMask != m_uSwrInMask)
    ConfigureResampler(pFrame);
  int lOut = swr_get_out_samples(m_pSwr.get(), pFrame->nb_samples);
  if (lOut <= 0) return;
  size_t lOld = m_aPending.size();
  m_aPending.resize(lOld + static_cast<size_t>(lOut) * m_lOutChannels);
  uint8_t* pOut = reinterpret_cast<uint8_t*>(m_aPending.data() + lOld);
  int n =
      swr_convert(m_pSwr.get(), &pOut, lOut, const_cast<const uint8_t**>(pFrame->extended_data), pFrame->nb_samples);
  m_aPending.resize(lOld + static_cast<size_t>(std::max(n, 0)) * m_lOutChannels);
}

bool AvAudioReader::DecodeMore() {
  int iBad = 0;
  for (;;) {
    if (m_bDecoderEnd) return false;
    int rc = avcodec_receive_frame(m_pDecoder.get(), m_pFrame.get());
    if (rc == 0) {
      Convert(m_pFrame.get());
      av_frame_unref(m_pFrame.get());
      return true;
    }
    if (rc == AVERROR_EOF) {
      m_bDecoderEnd = true;
      FlushResampler();
      return !m_aPending.empty();
    }
    if (rc != AVERROR(EAGAIN)) {
      // A broken frame: the decoder goes on with the next packet.
      if (++iBad > kMaxBadPackets) {
        m_bDecoderEnd = true;
        return false;
      }
    }
    if (m_bDemuxEnd) {
      // Drain: a second null packet is harmless (it gives AVERROR_EOF).
      avcodec_send_packet(m_pDecoder.get(), nullptr);
      continue;
    }
    rc = av_read_frame(m_pFormat.get(), m_pPacket.get());
    if (rc < 0) {
      m_bDemuxEnd = true;
      avcodec_send_packet(m_pDecoder.get(), nullptr);
      continue;
    }
    if (m_pPacket->stream_index == m_iStream) {
      rc = avcodec_send_packet(m_pDecoder.get(), m_pPacket.get());
      if (rc < 0 && rc != AVERROR(EAGAIN)) {
        if (++iBad > kMaxBadPackets) {
          av_packet_unref(m_pPacket.get());
          m_bDecoderEnd = true;
          return false;
        }
      } else {
        iBad = 0;
      }
    }
    av_packet_unref(m_pPacket.get());
  }
}

std::vector<int16_t> AvAudioReader::Read(int64_t lFrames) {
  std::vector<int16_t> aOut;
  if (!IsOpen() || m_bAtEnd || lFrames <= 0) return aOut;
  lFrames = std::min<int64_t>(lFrames, 1 << 22);
  size_t lWant = static_cast<size_t>(lFrames) * m_lOutChannels;
  while (m_aPending.size() - m_lPendingPos < lWant && DecodeMore()) {
    // Keep the pending buffer from growing without bound at its front.
    if (m_lPendingPos > (1u << 20)) {
      m_aPending.erase(m_aPending.begin(), m_aPending.begin() + static_cast<long>(m_lPendingPos));
      m_lPendingPos = 0;
    }
  }
  size_t lHave = std::min(lWant, m_aPending.size() - m_lPendingPos);
  lHave -= lHave % m_lOutChannels;
  aOut.assign(m_aPending.begin() + static_cast<long>(m_lPendingPos),
              m_aPending.begin() + static_cast<long>(m_lPendingPos + lHave));
  m_lPendingPos += lHave;
  if (m_lPendingPos == m_aPending.size()) {
    m_aPending.clear();
    m_lPendingPos = 0;
  }
  m_lPosition += static_cast<int64_t>(lHave / m_lOutChannels);
  return aOut;
}

void AvAudioReader::Reopen() {
  // The same file again: its length is known already.
  std::string sPath = m_sPath;
  m_lKnownFrames = m_bEstimated ? -1 : std::llround(m_dSeconds * m_lFileRate);
  Open(sPath);
}

void AvAudioReader::Rewind() {
  int32_t lRate = m_lOutRate, lChannels = m_lOutChannels;
  Reopen();
  m_lOutRate = lRate;
  m_lOutChannels = lChannels;
}

int64_t AvAudioReader::Seek(int64_t lFrame) {
  if (!IsOpen()) throw CodecError(CodecErr::kNotOpen, "No file is open");
  lFrame = std::clamp<int64_t>(lFrame, 0, TotalFrames());
  if (lFrame < m_lPosition || m_bAtEnd) Rewind();
  // Decode forward to the position: exact for every codec, whatever its seek support.
  while (m_lPosition < lFrame) {
    auto a = Read(std::min<int64_t>(lFrame - m_lPosition, 65536));
    if (a.empty()) break;
  }
  return m_lPosition;
}

int64_t AvAudioReader::SeekEnd() {
  if (!IsOpen()) throw CodecError(CodecErr::kNotOpen, "No file is open");
  m_bAtEnd = true;
  m_aPending.clear();
  m_lPendingPos = 0;
  m_lPosition = TotalFrames();
  return m_lPosition;
}

void AvAudioReader::SetOutputFormat(int32_t lRate, int32_t lChannels) {
  if (lRate <= 0 || lRate > kMaxRate || lChannels <= 0 || lChannels > kMaxChannels)
    throw CodecError(CodecErr::kBadArgument, "Unusable array format");
  if (lRate == m_lOutRate && lChannels == m_lOutChannels) return;
  if (!IsOpen()) {
    m_lOutRate = lRate;
    m_lOutChannels = lChannels;
    return;
  }
  // Keep the position in time: start again in the new format and move there.
  double dSecs = static_cast<double>(m_lPosition) / m_lOutRate;
  bool bAtEnd = m_bAtEnd;
  Reopen();
  m_lOutRate = lRate;
  m_lOutChannels = lChannels;
  if (bAtEnd) SeekEnd();
  else Seek(std::llround(dSecs * lRate));
}
