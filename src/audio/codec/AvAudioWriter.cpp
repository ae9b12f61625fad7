#include "audio/codec/AvAudioWriter.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libavutil/samplefmt.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <vector>

#include "audio/codec/AvHandles.h"
#include "audio/codec/CodecError.h"

namespace {
// Frames handed to an encoder that takes any frame size (PCM).
constexpr int kVariableFrameSize = 4096;
// MPEG audio layers I and II: the decoder's output lags its input by the delay of the
// two filter banks, and nothing in the file tells a decoder to take it off. Silence of
// this length after the audio keeps its last samples inside the last frame.
constexpr int kMpegFilterBankDelay = 481;

std::string AvErrorText(int rc) {
  char a[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(rc, a, sizeof a);
  return a;
}
}  // namespace

AvAudioWriter::AvAudioWriter() { SilenceCodecLoggingByDefault(); }

AvAudioWriter::~AvAudioWriter() {
  if (IsOpen()) Abandon();
}

int32_t AvAudioWriter::BlockAlign() const { return m_pEncoder ? m_pEncoder->block_align : 0; }

void AvAudioWriter::Abandon() {
  if (m_pFormat && m_bHeaderWritten) av_write_trailer(m_pFormat.get());
  m_pFormat.reset();
  m_pEncoder.reset();
  m_pSwr.reset();
  m_pFifo.reset();
  m_pPacket.reset();
  m_pFrame.reset();
  FreeConversionBuffer();
  m_bHeaderWritten = false;
  m_lNextPts = 0;
  m_lInputFrames = 0;
}

namespace {
[[noreturn]] void CreateFailed(const std::string& sPath, const std::string& sWhy) {
  throw CodecError(CodecErr::kCreateFailed, "Cannot create " + sPath + ": " + sWhy);
}
}  // namespace

void AvAudioWriter::Create(const std::string& sPath, const AvEncodeSettings& s) {
  if (IsOpen()) Abandon();
  const AVCodec* pCodec = nullptr;
  try {
    if (s.lSampleRate <= 0 || s.lChannels < 1 || s.lChannels > 2) CreateFailed(sPath, "unusable format");
    pCodec = avcodec_find_encoder_by_name(s.sEncoder.c_str());
    if (!pCodec) CreateFailed(sPath, "no encoder " + s.sEncoder);
    AVFormatContext* pFormat = nullptr;
    if (avformat_alloc_output_context2(&pFormat, nullptr, s.sMuxer.c_str(), sPath.c_str()) < 0 || !pFormat)
      CreateFailed(sPath, "no container " + s.sMuxer);
    m_pFormat.reset(pFormat);
    // WAV: no encoder text in a LIST chunk. (MP3 needs the encoder tag: it carries the
    // delay and padding that make its length exact.)
    if (s.sMuxer == "wav") m_pFormat->flags |= AVFMT_FLAG_BITEXACT;
    OpenEncoder(sPath, pCodec, s);
    WriteHeader(sPath);
    MakeBuffers(sPath, pCodec, s);
  } catch (...) {
    Abandon();
    throw;
  }
  SetUpResampler();
  // WMA v1/v2: FFmpeg's decoder gives nothing for the first frame of a stream (it only
  // primes the overlap of its transform), and an ASF file cannot tell it to expect that.
  // One frame of silence in front keeps the first samples of the audio.
  if (pCodec->id == AV_CODEC_ID_WMAV1 || pCodec->id == AV_CODEC_ID_WMAV2) AddSilence(m_pEncoder->frame_size);
}

void AvAudioWriter::OpenEncoder(const std::string& sPath, const AVCodec* pCodec, const AvEncodeSettings& s) {
  m_pEncoder.reset(avcodec_alloc_context3(pCodec));
  if (!m_pEncoder) CreateFailed(sPath, "out of memory");
  m_pEncoder->sample_rate = s.lSampleRate;
  av_channel_layout_default(&m_pEncoder->ch_layout, s.lChannels);
  m_pEncoder->sample_fmt = pCodec->sample_fmts ? pCodec->sample_fmts[0] : AV_SAMPLE_FMT_S16;
  if (pCodec->sample_fmts)
    for (const AVSampleFormat* p = pCodec->sample_fmts; *p != AV_SAMPLE_FMT_NONE; ++p)
      if (*p == AV_SAMPLE_FMT_S16) m_pEncoder->sample_fmt = AV_SAMPLE_FMT_S16;
  if (pCodec->supported_samplerates) {
    bool bOk = false;
    for (const int* p = pCodec->supported_samplerates; *p; ++p) bOk |= *p == s.lSampleRate;
    if (!bOk) CreateFailed(sPath, "the encoder does not take " + std::to_string(s.lSampleRate) + " Hz");
  }
  if (s.lBitRate > 0) m_pEncoder->bit_rate = s.lBitRate;
  m_pEncoder->time_base = AVRational{1, s.lSampleRate};
  if (m_pFormat->oformat->flags & AVFMT_GLOBALHEADER) m_pEncoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  AVDictionary* pOpts = nullptr;
  if (s.lBlockAlign > 0) av_dict_set_int(&pOpts, "block_size", s.lBlockAlign, 0);
  int rc = avcodec_open2(m_pEncoder.get(), pCodec, &pOpts);
  av_dict_free(&pOpts);
  if (rc < 0) CreateFailed(sPath, "the encoder refused the format (" + AvErrorText(rc) + ")");
}

void AvAudioWriter::WriteHeader(const std::string& sPath) {
  AVStream* pStream = avformat_new_stream(m_pFormat.get(), nullptr);
  if (!pStream) CreateFailed(sPath, "out of memory");
  if (avcodec_parameters_from_context(pStream->codecpar, m_pEncoder.get()) < 0) CreateFailed(sPath, "bad parameters");
  pStream->time_base = m_pEncoder->time_base;
  int rc = avio_open(&m_pFormat->pb, sPath.c_str(), AVIO_FLAG_WRITE);
  if (rc < 0) CreateFailed(sPath, AvErrorText(rc));
  rc = avformat_write_header(m_pFormat.get(), nullptr);
  if (rc < 0) CreateFailed(sPath, "cannot write the header (" + AvErrorText(rc) + ")");
  m_bHeaderWritten = true;
}

void AvAudioWriter::MakeBuffers(const std::string& sPath, const AVCodec* pCodec, const AvEncodeSettings& s) {
  m_iFrameSize = m_pEncoder->frame_size;
  if (m_iFrameSize <= 0 || (pCodec->capabilities & AV_CODEC_CAP_VARIABLE_FRAME_SIZE))
    m_iFrameSize = std::max(m_iFrameSize, kVariableFrameSize);
  m_pFifo.reset(av_audio_fifo_alloc(m_pEncoder->sample_fmt, s.lChannels, m_iFrameSize * 4));
  m_pPacket.reset(av_packet_alloc());
  m_pFrame.reset(av_frame_alloc());
  if (!m_pFifo || !m_pPacket || !m_pFrame) CreateFailed(sPath, "out of memory");
  m_sPath = sPath;
  m_lNextPts = 0;
  m_lInputFrames = 0;
  m_bFirstPageFlushed = s.sMuxer != "ogg";
  m_iTailSilence = (pCodec->id == AV_CODEC_ID_MP2 || pCodec->id == AV_CODEC_ID_MP1) ? kMpegFilterBankDelay : 0;
}

void AvAudioWriter::AddSilence(int iFrames) {
  if (iFrames <= 0) return;
  uint8_t** pp = ConversionBuffer(iFrames);
  av_samples_set_silence(pp, 0, iFrames, m_pEncoder->ch_layout.nb_channels, m_pEncoder->sample_fmt);
  if (av_audio_fifo_write(m_pFifo.get(), reinterpret_cast<void**>(pp), iFrames) < iFrames)
    throw CodecError(CodecErr::kWriteFailed, "Cannot buffer audio");
}

void AvAudioWriter::SetInputFormat(int32_t lRate, int32_t lChannels) {
  if (lRate <= 0 || lChannels < 1 || lChannels > 8) throw CodecError(CodecErr::kBadArgument, "Unusable array format");
  if (lRate == m_lInRate && lChannels == m_lInChannels) return;
  m_lInRate = lRate;
  m_lInChannels = lChannels;
  if (IsOpen()) SetUpResampler();
}

void AvAudioWriter::SetUpResampler() {
  m_pSwr.reset();  // a change of input format mid-file drops its delay
  AVChannelLayout inLayout;
  av_channel_layout_default(&inLayout, m_lInChannels);
  SwrContext* pSwr = nullptr;
  int rc = swr_alloc_set_opts2(&pSwr, &m_pEncoder->ch_layout, m_pEncoder->sample_fmt, m_pEncoder->sample_rate,
                               &inLayout, AV_SAMPLE_FMT_S16, m_lInRate, 0, nullptr);
  m_pSwr.reset(pSwr);
  av_channel_layout_uninit(&inLayout);
  if (rc < 0 || swr_init(pSwr) < 0) {
    m_pSwr.reset();
    throw CodecError(CodecErr::kCreateFailed, "Cannot convert audio for " + m_sPath);
  }
}

uint8_t** AvAudioWriter::ConversionBuffer(int iFrames) {
  iFrames = std::max(iFrames, 1);
  if (m_ppConv && iFrames <= m_iConvFrames) return m_ppConv.get();
  FreeConversionBuffer();
  uint8_t** pp = nullptr;
  if (av_samples_alloc_array_and_samples(&pp, nullptr, m_pEncoder->ch_layout.nb_channels, iFrames,
                                         m_pEncoder->sample_fmt, 0) < 0)
    throw CodecError(CodecErr::kWriteFailed, "Out of memory");
  m_ppConv.reset(pp);
  m_iConvFrames = iFrames;
  return pp;
}

void AvAudioWriter::FreeConversionBuffer() {
  m_ppConv.reset();
  m_iConvFrames = 0;
}

void AvAudioWriter::Write(const int16_t* pSamples, size_t lCount) {
  if (!IsOpen()) throw CodecError(CodecErr::kNotOpen, "No file is open for writing");
  int lFrames = static_cast<int>(lCount / static_cast<size_t>(m_lInChannels));
  if (lFrames <= 0) return;
  int lOut = swr_get_out_samples(m_pSwr.get(), lFrames);
  uint8_t** ppOut = ConversionBuffer(lOut);
  const uint8_t* pIn = reinterpret_cast<const uint8_t*>(pSamples);
  int n = swr_convert(m_pSwr.get(), ppOut, lOut, &pIn, lFrames);
  int rc = n > 0 ? av_audio_fifo_write(m_pFifo.get(), reinterpret_cast<void**>(ppOut), n) : 0;
  if (n < 0 || rc < 0) throw CodecError(CodecErr::kWriteFailed, "Cannot convert audio");
  m_lInputFrames += lFrames;
  EncodeFrames(false);
}

void AvAudioWriter::SendFrame(AVFrame* pFrame) {
  int rc = avcodec_send_frame(m_pEncoder.get(), pFrame);
  if (rc < 0 && rc != AVERROR_EOF)
    throw CodecError(CodecErr::kWriteFailed, "Encoding failed (" + AvErrorText(rc) + ")");
  for (;;) {
    rc = avcodec_receive_packet(m_pEncoder.get(), m_pPacket.get());
    if (rc == AVERROR(EAGAIN) || rc == AVERROR_EOF) return;
    if (rc < 0) throw CodecError(CodecErr::kWriteFailed, "Encoding failed (" + AvErrorText(rc) + ")");
    m_pPacket->stream_index = 0;
    av_packet_rescale_ts(m_pPacket.get(), m_pEncoder->time_base, m_pFormat->streams[0]->time_base);
    rc = av_write_frame(m_pFormat.get(), m_pPacket.get());
    av_packet_unref(m_pPacket.get());
    // Ogg: the first audio page ends after the first packet. FFmpeg's demuxer works out
    // the start of the stream from the granule of the first page; where that page is
    // also the last (a short file) it cannot, and the first block's samples go missing.
    if (rc >= 0 && !m_bFirstPageFlushed) {
      m_bFirstPageFlushed = true;
      rc = av_write_frame(m_pFormat.get(), nullptr);
    }
    if (rc < 0) throw CodecError(CodecErr::kWriteFailed, "Cannot write " + m_sPath + " (" + AvErrorText(rc) + ")");
  }
}

void AvAudioWriter::EncodeFrames(bool bFinal) {
  while (av_audio_fifo_size(m_pFifo.get()) >= m_iFrameSize || (bFinal && av_audio_fifo_size(m_pFifo.get()) > 0)) {
    int n = std::min(av_audio_fifo_size(m_pFifo.get()), m_iFrameSize);
    av_frame_unref(m_pFrame.get());
    m_pFrame->nb_samples = n;
    m_pFrame->format = m_pEncoder->sample_fmt;
    m_pFrame->sample_rate = m_pEncoder->sample_rate;
    av_channel_layout_copy(&m_pFrame->ch_layout, &m_pEncoder->ch_layout);
    if (av_frame_get_buffer(m_pFrame.get(), 0) < 0) throw CodecError(CodecErr::kWriteFailed, "Out of memory");
    if (av_audio_fifo_read(m_pFifo.get(), reinterpret_cast<void**>(m_pFrame->data), n) < n)
      throw CodecError(CodecErr::kWriteFailed, "Cannot buffer audio");
    m_pFrame->pts = m_lNextPts;
    m_lNextPts += n;
    SendFrame(m_pFrame.get());
  }
}

void AvAudioWriter::Close() {
  if (!IsOpen()) return;
  try {
    // What the resampler still holds, then a last short frame, then the encoder's tail.
    for (;;) {
      int lOut = swr_get_out_samples(m_pSwr.get(), 0);
      if (lOut <= 0) break;
      uint8_t** ppOut = ConversionBuffer(lOut);
      int n = swr_convert(m_pSwr.get(), ppOut, lOut, nullptr, 0);
      if (n > 0) av_audio_fifo_write(m_pFifo.get(), reinterpret_cast<void**>(ppOut), n);
      if (n <= 0) break;
    }
    AddSilence(m_iTailSilence);
    // The last frame may be short: the encoder pads it (with silence, to its frame size)
    // where the format has no short frames. Then the encoder gives what it still holds.
    EncodeFrames(true);
    SendFrame(nullptr);
    int rc = av_write_trailer(m_pFormat.get());
    m_bHeaderWritten = false;
    if (rc < 0) throw CodecError(CodecErr::kWriteFailed, "Cannot finish " + m_sPath);
    rc = avio_closep(&m_pFormat->pb);
    if (rc < 0) throw CodecError(CodecErr::kWriteFailed, "Cannot close " + m_sPath);
  } catch (...) {
    Abandon();
    throw;
  }
  Abandon();
}
