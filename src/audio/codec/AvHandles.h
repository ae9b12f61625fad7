#pragma once
// Owners of FFmpeg's handles: each one is freed by the call FFmpeg asks for when its
// owner goes, on every path out of the routine that made it. A demuxer's context and a
// muxer's are freed differently, so they are two kinds. The headers of the classes that
// hold them need not include FFmpeg's.
#include <cstdint>
#include <memory>

struct AVFormatContext;
struct AVCodecContext;
struct AVPacket;
struct AVFrame;
struct SwrContext;
struct AVAudioFifo;

struct AvInputCloser {
  void operator()(AVFormatContext* p) const;
};
// A muxer's context: its file (when opened) is closed, then the context is freed. The
// trailer is the writer's business, written or not before the owner lets go.
struct AvOutputCloser {
  void operator()(AVFormatContext* p) const;
};
struct AvCodecCloser {
  void operator()(AVCodecContext* p) const;
};
struct AvPacketCloser {
  void operator()(AVPacket* p) const;
};
struct AvFrameCloser {
  void operator()(AVFrame* p) const;
};
struct SwrCloser {
  void operator()(SwrContext* p) const;
};
struct AvFifoCloser {
  void operator()(AVAudioFifo* p) const;
};
// The channel pointers of av_samples_alloc_array_and_samples: one block of samples that
// the first pointer addresses, and the array of pointers itself.
struct AvSamplesCloser {
  void operator()(uint8_t** pp) const;
};

using AvInputPtr = std::unique_ptr<AVFormatContext, AvInputCloser>;
using AvOutputPtr = std::unique_ptr<AVFormatContext, AvOutputCloser>;
using AvCodecPtr = std::unique_ptr<AVCodecContext, AvCodecCloser>;
using AvPacketPtr = std::unique_ptr<AVPacket, AvPacketCloser>;
using AvFramePtr = std::unique_ptr<AVFrame, AvFrameCloser>;
using SwrPtr = std::unique_ptr<SwrContext, SwrCloser>;
using AvFifoPtr = std::unique_ptr<AVAudioFifo, AvFifoCloser>;
using AvSamplesPtr = std::unique_ptr<uint8_t*, AvSamplesCloser>;
