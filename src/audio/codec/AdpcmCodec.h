#pragma once
// Block codecs of the two ADPCM formats of WAV files, as the platform's codecs lay them
// out. A block holds nSamplesPerBlock frames of nChannels interleaved 16-bit samples.
//
// IMA ADPCM (tag 17): per channel a 4-byte header (first sample, step index, 0), then
// groups of 4 bytes (8 samples, low nibble first) taking turns between the channels.
// MS ADPCM (tag 2): per channel a predictor index, then per channel the delta, then the
// second sample, then the first sample (16 bits each); then nibbles, high nibble first,
// taking turns between the channels.
#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Adpcm {

// Frames in one block of a given block align, as the platform's codecs work them out.
int ImaSamplesPerBlock(int iBlockAlign, int iChannels);
int MsSamplesPerBlock(int iBlockAlign, int iChannels);
// Block align that the platform's codecs suggest: 256 x channels x max(1, rate / 11025).
int SuggestedBlockAlign(uint32_t lSampleRate, int iChannels);

struct MsCoef {
  int16_t c1;
  int16_t c2;
};
// The seven standard predictor pairs.
const std::array<MsCoef, 7>& MsStandardCoefs();

// Encoders keep the step index (IMA) from one block to the next, as the platform's
// encoder does; everything else is carried in each block's header.
class ImaEncoder {
 public:
  ImaEncoder(int iChannels, int iBlockAlign, int iSamplesPerBlock);
  // pcm holds iSamplesPerBlock frames; writes iBlockAlign bytes.
  void EncodeBlock(const int16_t* pcm, uint8_t* out);

 private:
  int m_iChannels, m_iBlockAlign, m_iSamplesPerBlock;
  std::vector<int> m_aStepIndex;
};

// Decodes one block; writes iSamplesPerBlock frames. Never reads beyond iBlockAlign bytes.
void ImaDecodeBlock(const uint8_t* in, int iChannels, int iBlockAlign, int iSamplesPerBlock, int16_t* pcm);

class MsEncoder {
 public:
  MsEncoder(int iChannels, int iBlockAlign, int iSamplesPerBlock, std::vector<MsCoef> aCoefs);
  void EncodeBlock(const int16_t* pcm, uint8_t* out);

 private:
  int m_iChannels, m_iBlockAlign, m_iSamplesPerBlock;
  std::vector<MsCoef> m_aCoefs;
  std::vector<uint8_t> m_aNibbles;  // work space: one channel's nibbles of one trial
  std::vector<uint8_t> m_aBest;
};

// A predictor index beyond the table reads as the last pair of the table.
void MsDecodeBlock(const uint8_t* in, int iChannels, int iBlockAlign, int iSamplesPerBlock,
                   const std::vector<MsCoef>& aCoefs, int16_t* pcm);

}  // namespace Adpcm
