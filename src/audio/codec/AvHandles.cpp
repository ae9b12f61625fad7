#include "audio/codec/AvHandles.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/mem.h>
#include <libswresample/swresample.h>
}

void AvInputCloser::operator()(AVFormatContext* p) const { avformat_close_input(&p); }

void AvOutputCloser::operator()(AVFormatContext* p) const {
  if (p->pb) avio_closep(&p->pb);
  avformat_free_context(p);
}

void AvCodecCloser::operator()(AVCodecContext* p) const { avcodec_free_context(&p); }
void AvPacketCloser::operator()(AVPacket* p) const { av_packet_free(&p); }
void AvFrameCloser::operator()(AVFrame* p) const { av_frame_free(&p); }
void SwrCloser::operator()(SwrContext* p) const { swr_free(&p); }
void AvFifoCloser::operator()(AVAudioFifo* p) const { av_audio_fifo_free(p); }

void AvSamplesCloser::operator()(uint8_t** pp) const {
  av_freep(&pp[0]);
  av_freep(&pp);
}
