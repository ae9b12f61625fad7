// The compression manager stand-in: format details and suggestions, and streams over
// the PCM, IMA ADPCM and MS ADPCM codecs.
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "AudioTestUtil.h"
#include "audio/AudioTypes.h"
#include "audio/codec/Acm.h"
#include "audio/codec/AdpcmCodec.h"

using namespace Acm;

namespace {

Wfx Suggest(uint32_t lRate, uint16_t iCh, uint16_t iTag) {
  Wfx dst;
  dst.wFormatTag = iTag;
  dst.nChannels = iCh;
  dst.nSamplesPerSec = lRate;
  EXPECT_EQ(
      FormatSuggest(Wfx::PCM(lRate, iCh), dst, 50,
                    ACM_FORMATSUGGESTF_WFORMATTAG | ACM_FORMATSUGGESTF_NCHANNELS | ACM_FORMATSUGGESTF_NSAMPLESPERSEC),
      MMSYSERR_NOERROR);
  return dst;
}

// Runs a whole buffer through a stream in one prepared header, whole blocks only.
std::vector<uint8_t> RunStream(const Wfx& src, const Wfx& dst, const std::vector<uint8_t>& in,
                               uint32_t* pUsed = nullptr) {
  HACMSTREAM h;
  EXPECT_EQ(StreamOpen(h, src, dst), 0);
  if (!h) return {};
  uint32_t lOut = 0;
  EXPECT_EQ(StreamSize(h.get(), static_cast<uint32_t>(in.size()), lOut, ACM_STREAMSIZEF_SOURCE), 0);
  std::vector<uint8_t> aSrc(in), aDst(lOut + 1);
  ACMSTREAMHEADER hdr;
  hdr.cbStruct = kAcmStreamHeaderSize;
  hdr.pbSrc = aSrc.data();
  hdr.cbSrcLength = static_cast<uint32_t>(aSrc.size());
  hdr.pbDst = aDst.data();
  hdr.cbDstLength = static_cast<uint32_t>(aDst.size());
  EXPECT_EQ(StreamPrepareHeader(h.get(), hdr), 0);
  EXPECT_EQ(StreamConvert(h.get(), hdr, ACM_STREAMCONVERTF_BLOCKALIGN | ACM_STREAMCONVERTF_END), 0);
  if (pUsed) *pUsed = hdr.cbSrcLengthUsed;
  aDst.resize(hdr.cbDstLengthUsed);
  EXPECT_EQ(StreamUnprepareHeader(h.get(), hdr), 0);
  EXPECT_EQ(StreamClose(h), 0);
  return aDst;
}

}  // namespace

TEST(AcmFormats, TagDetailsGiveThePlatformSizes) {
  uint32_t n = 0;
  for (auto [iTag, lSize] : {std::pair{1, 16u}, {17, 20u}, {2, 50u}}) {
    EXPECT_EQ(FormatTagDetails(iTag, n), 0);
    EXPECT_EQ(n, lSize) << iTag;
  }
  EXPECT_EQ(FormatTagDetails(85, n), ACMERR_NOTPOSSIBLE);
}

struct SuggestCase {
  uint32_t lRate;
  uint16_t iCh;
  uint16_t iTag;
  uint16_t iAlign;
  uint16_t iSpb;
  uint32_t lAvg;
};
class AcmSuggest : public ::testing::TestWithParam<SuggestCase> {};

TEST_P(AcmSuggest, AdpcmFormatsAsTheWindowsCodecsSuggestThem) {
  const auto& c = GetParam();
  Wfx w = Suggest(c.lRate, c.iCh, c.iTag);
  EXPECT_EQ(w.wFormatTag, c.iTag);
  EXPECT_EQ(w.nBlockAlign, c.iAlign);
  EXPECT_EQ(w.nAvgBytesPerSec, c.lAvg);
  EXPECT_EQ(w.wBitsPerSample, 4);
  EXPECT_EQ(w.cbSize, c.iTag == 17 ? 2 : 32);
  ASSERT_GE(w.Extra.size(), 2u);
  EXPECT_EQ(w.Extra[0] | (w.Extra[1] << 8), c.iSpb);
  std::vector<uint8_t> a = w.ToBytes();
  EXPECT_EQ(a.size(), c.iTag == 17 ? 20u : 50u);
  if (c.iTag == 2) {
    // wNumCoef 7, then the standard pairs: (256,0) (512,-256) (0,0) (192,64) (240,0) (460,-208) (392,-232)
    const int16_t aCoef[14] = {256, 0, 512, -256, 0, 0, 192, 64, 240, 0, 460, -208, 392, -232};
    EXPECT_EQ(a[20] | (a[21] << 8), 7);
    for (int i = 0; i < 14; ++i) EXPECT_EQ(static_cast<int16_t>(a[22 + 2 * i] | (a[23 + 2 * i] << 8)), aCoef[i]) << i;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Table, AcmSuggest,
    ::testing::Values(SuggestCase{22050, 1, 17, 512, 1017, 11100}, SuggestCase{44100, 2, 17, 2048, 2041, 44251},
                      SuggestCase{8000, 1, 17, 256, 505, 4055}, SuggestCase{11025, 2, 17, 512, 505, 11177},
                      SuggestCase{22050, 1, 2, 512, 1012, 11155}, SuggestCase{44100, 2, 2, 2048, 2036, 44359}));

TEST(AcmFormats, SuggestRefusesWhatNoCodecMakes) {
  constexpr uint32_t kPin =
      ACM_FORMATSUGGESTF_WFORMATTAG | ACM_FORMATSUGGESTF_NCHANNELS | ACM_FORMATSUGGESTF_NSAMPLESPERSEC;
  Wfx dst = Wfx::PCM(44100, 2);
  dst.wFormatTag = 85;
  EXPECT_EQ(FormatSuggest(Wfx::PCM(44100, 2), dst, 50, kPin), ACMERR_NOTPOSSIBLE);
  // No codec resamples.
  dst.wFormatTag = 17;
  dst.nSamplesPerSec = 22050;
  EXPECT_EQ(FormatSuggest(Wfx::PCM(44100, 2), dst, 50, kPin), ACMERR_NOTPOSSIBLE);
  // The destination block must be large enough for the format.
  dst.nSamplesPerSec = 44100;
  EXPECT_EQ(FormatSuggest(Wfx::PCM(44100, 2), dst, 18, kPin), MMSYSERR_INVALPARAM);
  // A source with no rate is no format at all.
  dst.wFormatTag = 1;
  EXPECT_NE(FormatSuggest(Wfx::PCM(0, 2), dst, 18, kPin), 0);
}

struct CodecCase {
  uint16_t iTag;
  uint32_t lRate;
  uint16_t iCh;
};
class AcmCodecRoundTrip : public ::testing::TestWithParam<CodecCase> {};

TEST_P(AcmCodecRoundTrip, SineSurvivesEncodeAndDecode) {
  const auto& c = GetParam();
  Wfx pcm = Wfx::PCM(c.lRate, c.iCh);
  Wfx adpcm = Suggest(c.lRate, c.iCh, c.iTag);
  const int iSpb = adpcm.Extra[0] | (adpcm.Extra[1] << 8);
  auto aIn = audiotest::Sine(500, static_cast<int>(c.lRate), c.iCh, 0.5);
  uint32_t lUsed = 0;
  auto aCoded = RunStream(pcm, adpcm, audiotest::SamplesToBytes(aIn), &lUsed);
  // Whole blocks only: the tail short of a block is left unused.
  const size_t lPcmBlock = static_cast<size_t>(iSpb) * c.iCh * 2;
  const size_t lBlocks = aIn.size() * 2 / lPcmBlock;
  EXPECT_EQ(lUsed, lBlocks * lPcmBlock);
  ASSERT_EQ(aCoded.size(), lBlocks * adpcm.nBlockAlign);
  auto aOut = audiotest::BytesToSamples(RunStream(adpcm, pcm, aCoded));
  ASSERT_EQ(aOut.size(), lBlocks * iSpb * c.iCh);
  for (int ch = 0; ch < c.iCh; ++ch) {
    auto a = audiotest::Channel(aIn, c.iCh, ch);
    auto b = audiotest::Channel(aOut, c.iCh, ch);
    a.resize(b.size());
    EXPECT_GT(audiotest::BestCorrelation(a, b, 2), 0.98) << "channel " << ch;
    // The first sample of every block is carried exactly in its header.
    for (size_t k = 0; k < lBlocks; ++k) EXPECT_EQ(b[k * iSpb], a[k * iSpb]);
  }
}

INSTANTIATE_TEST_SUITE_P(Codecs, AcmCodecRoundTrip,
                         ::testing::Values(CodecCase{17, 22050, 1}, CodecCase{17, 44100, 2}, CodecCase{17, 8000, 2},
                                           CodecCase{2, 22050, 1}, CodecCase{2, 44100, 2}, CodecCase{2, 11025, 2}));

TEST(AcmStreams, PcmPassesThroughAndWiderPcmNarrowsTo16Bits) {
  auto aIn = audiotest::Sine(300, 8000, 2, 0.1);
  auto aOut = RunStream(Wfx::PCM(8000, 2), Wfx::PCM(8000, 2), audiotest::SamplesToBytes(aIn));
  EXPECT_EQ(audiotest::BytesToSamples(aOut), aIn);

  Wfx w8 = Wfx::PCM(8000, 1);
  w8.wBitsPerSample = 8;
  w8.nBlockAlign = 1;
  w8.nAvgBytesPerSec = 8000;
  auto a16 = audiotest::BytesToSamples(RunStream(w8, Wfx::PCM(8000, 1), {0, 128, 255}));
  EXPECT_EQ(a16, (std::vector<int16_t>{-32768, 0, 127 * 256}));

  Wfx w24 = w8;
  w24.wBitsPerSample = 24;
  w24.nBlockAlign = 3;
  a16 = audiotest::BytesToSamples(RunStream(w24, Wfx::PCM(8000, 1), {0x11, 0x34, 0x12, 0x00, 0x00, 0x80}));
  EXPECT_EQ(a16, (std::vector<int16_t>{0x1234, -32768}));
}

TEST(AcmStreams, StreamsThatNoCodecMakesDoNotOpen) {
  HACMSTREAM h;
  Wfx ima = Suggest(22050, 1, 17);
  EXPECT_EQ(StreamOpen(h, Wfx::PCM(44100, 1), ima), ACMERR_NOTPOSSIBLE);  // rate change
  EXPECT_EQ(StreamOpen(h, Wfx::PCM(22050, 2), ima), ACMERR_NOTPOSSIBLE);  // channel change
  Wfx bad = ima;
  bad.nBlockAlign = 4;  // no room for a single sample behind the header
  EXPECT_EQ(StreamOpen(h, bad, Wfx::PCM(22050, 1)), ACMERR_NOTPOSSIBLE);
  bad = ima;
  bad.wBitsPerSample = 3;
  EXPECT_EQ(StreamOpen(h, bad, Wfx::PCM(22050, 1)), ACMERR_NOTPOSSIBLE);
  EXPECT_FALSE(h);
}

class AcmHeaderRules : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(StreamOpen(h, Wfx::PCM(22050, 1), Suggest(22050, 1, 17)), 0);
    hdr.cbStruct = kAcmStreamHeaderSize;
    hdr.pbSrc = src.data();
    hdr.cbSrcLength = static_cast<uint32_t>(src.size());
    hdr.pbDst = dst.data();
    hdr.cbDstLength = static_cast<uint32_t>(dst.size());
  }
  HACMSTREAM h;
  ACMSTREAMHEADER hdr;
  std::vector<uint8_t> src = std::vector<uint8_t>(8192, 0), dst = std::vector<uint8_t>(4096, 0);
};

TEST_F(AcmHeaderRules, ConvertNeedsAPreparedHeaderAndUsesNoMoreThanWasPrepared) {
  EXPECT_EQ(StreamConvert(h.get(), hdr, ACM_STREAMCONVERTF_BLOCKALIGN), ACMERR_UNPREPARED);
  ASSERT_EQ(StreamPrepareHeader(h.get(), hdr), 0);
  hdr.cbSrcLength = 8193;
  EXPECT_EQ(StreamConvert(h.get(), hdr, ACM_STREAMCONVERTF_BLOCKALIGN), MMSYSERR_INVALPARAM);
  hdr.cbSrcLength = 1000;  // less than one block of 1017 samples
  EXPECT_EQ(StreamConvert(h.get(), hdr, ACM_STREAMCONVERTF_BLOCKALIGN), 0);
  EXPECT_EQ(hdr.cbSrcLengthUsed, 0u);
  EXPECT_EQ(hdr.cbDstLengthUsed, 0u);
  hdr.cbSrcLength = 8192;
  hdr.cbDstLength = 600;  // room for one 512-byte block only
  EXPECT_EQ(StreamConvert(h.get(), hdr, ACM_STREAMCONVERTF_BLOCKALIGN), 0);
  EXPECT_EQ(hdr.cbSrcLengthUsed, 2034u);
  EXPECT_EQ(hdr.cbDstLengthUsed, 512u);
}

TEST_F(AcmHeaderRules, UnprepareWantsThePreparedBuffersAndCloseWantsUnprepared) {
  ASSERT_EQ(StreamPrepareHeader(h.get(), hdr), 0);
  EXPECT_EQ(StreamClose(h), ACMERR_BUSY);
  ASSERT_TRUE(h);
  hdr.cbSrcLength = 100;
  EXPECT_EQ(StreamUnprepareHeader(h.get(), hdr), MMSYSERR_INVALPARAM);
  hdr.cbSrcLength = static_cast<uint32_t>(src.size());
  EXPECT_EQ(StreamUnprepareHeader(h.get(), hdr), 0);
  EXPECT_EQ(StreamClose(h), 0);
  EXPECT_FALSE(h);
  EXPECT_EQ(StreamClose(h), MMSYSERR_INVALHANDLE);
}

TEST(AcmStreams, DecodersSurviveAnyBlockContent) {
  std::mt19937 rng(7);
  for (uint16_t iTag : {uint16_t{17}, uint16_t{2}}) {
    Wfx w = Suggest(22050, 2, iTag);
    std::vector<uint8_t> aJunk(w.nBlockAlign * 8);
    for (auto& b : aJunk) b = static_cast<uint8_t>(rng());
    // Predictor indexes beyond the table, deltas of every size.
    auto aOut = RunStream(w, Wfx::PCM(22050, 2), aJunk);
    const int iSpb = w.Extra[0] | (w.Extra[1] << 8);
    EXPECT_EQ(aOut.size(), 8u * iSpb * 2 * 2) << iTag;
  }
}

TEST(AcmStreams, SizeEstimatesCoverWholeBlocks) {
  HACMSTREAM h;
  Wfx ima = Suggest(22050, 1, 17);
  ASSERT_EQ(StreamOpen(h, Wfx::PCM(22050, 1), ima), 0);
  uint32_t n = 0;
  EXPECT_EQ(StreamSize(h.get(), 2034, n, ACM_STREAMSIZEF_SOURCE), 0);
  EXPECT_EQ(n, 512u);
  EXPECT_EQ(StreamSize(h.get(), 2035, n, ACM_STREAMSIZEF_SOURCE), 0);
  EXPECT_EQ(n, 1024u);
  EXPECT_EQ(StreamSize(h.get(), 1024, n, ACM_STREAMSIZEF_DESTINATION), 0);
  EXPECT_EQ(n, 4068u);
  EXPECT_EQ(StreamClose(h), 0);
}
