#pragma once
// Lengths of compressed audio measured from what a file holds, not from a count that an
// encoder wrote into a header: the MPEG audio frames that are whole up to the end of the
// file, the granule position of the last whole Ogg page, the whole WMA blocks in the ASF
// packets present. A file cut short measures short. Each gives what FFmpeg's decoders
// deliver, or -1 when the file is not of that kind or cannot be read; no decoder is
// opened.
#include <cstdint>
#include <string>

struct MpegAudioMeasure {
  int64_t lFrames = -1;  // samples per channel a decoder delivers
  int32_t lSampleRate = 0;
  int32_t lAudioFrames = 0;   // whole MPEG frames present, the Info frame not counted
  int32_t lHeaderFrames = 0;  // the count of the Info frame; 0 without one
};

// MPEG-1/2/2.5 layers I to III, after any ID3v2 tags. With a LAME Info tag the encoder
// delay and the end padding are taken off as a gapless decoder does, but only where the
// frames are present: a file cut short loses its padding from the count, not its audio.
MpegAudioMeasure MeasureMpegAudio(const std::string& sPath);

// Seconds of audio in a file that begins as the copier writes MPEG audio (an ID3v2 tag or
// a frame header at its first byte), from MeasureMpegAudio and rounded to whole
// milliseconds as a length read through the decoder is; -1 for any other file, for one
// without a whole frame and for one over 48 hours, which are left to the decoder.
double MpegAudioSeconds(const std::string& sPath);

// Ogg: the granule position of the last page that is whole and passes its checksum, of
// the stream that the file's first page belongs to, less lStartGranule (the stream's
// start; a negative start counts from 0).
int64_t MeasureOggGranule(const std::string& sPath, int64_t lStartGranule);

// Seconds of audio in an Ogg Vorbis file of one stream: the granule position of its last
// whole page less the stream's start, which is read from the headers and the first audio
// page, rounded to whole milliseconds as a length read through the decoder is. -1 for
// anything else (another codec, chained or multiplexed streams, a damaged header, no
// whole audio page), which is left to the decoder.
double OggVorbisSeconds(const std::string& sPath);

// Seconds of audio in an ASF file of one WMA v1/v2 stream without bit reservoir, as the
// copier writes them: the blocks of the stream that are whole in the whole data packets
// present, each one frame of the codec, less the first, which a decoder only primes its
// transform with. Rounded to whole milliseconds; -1 for any other file and for one whose
// packets cannot be read, which are left to the decoder.
double AsfWmaSeconds(const std::string& sPath);
