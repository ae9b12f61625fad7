// Conversion streams: the open, the block rule of Convert with its waiting tail, the
// refusal of a piece that does not fit, the close, and the error texts.
#include <gtest/gtest.h>

#include <cstring>

#include "AudioTestUtil.h"
#include "audio/AudioTypes.h"
#include "audio/ConversionStream.h"
#include "support/MsgBox.h"

namespace {

Wfx Ima22050Mono() {
  Wfx w;
  w.wFormatTag = WAVE_FORMAT_IMA_ADPCM;
  w.nChannels = 1;
  w.nSamplesPerSec = 22050;
  w.nBlockAlign = 512;
  w.nAvgBytesPerSec = 11100;
  w.wBitsPerSample = 4;
  w.cbSize = 2;
  w.Extra = {0xF9, 0x03};  // 1017 samples a block
  return w;
}

class ConversionStreamTest : public ::testing::Test {
 protected:
  void SetUp() override {
    m_oOldBox = SetMsgBoxHandler([this](const std::string& sText, int32_t lStyle, const std::string& sTitle) {
      m_aBoxes.push_back(sTitle + ": " + sText);
      return vbOK;
    });
  }
  void TearDown() override {
    CloseConversionStream(m_t);
    SetMsgBoxHandler(m_oOldBox);
  }
  // PCM 22050 Hz mono to IMA ADPCM with a nominal piece of lPiece bytes.
  void OpenEncoder(uint32_t lPiece) {
    m_t.SourceBufferSize = lPiece;
    const Wfx pcm = Wfx::PCM(22050, 1), ima = Ima22050Mono();
    ASSERT_EQ(OpenConversionStream(m_t, &pcm, &ima), 0);
  }
  ConversionStream m_t;
  std::vector<std::string> m_aBoxes;
  MsgBoxHandler m_oOldBox;
  static constexpr int kBlockBytes = 1017 * 2;  // PCM bytes of one codec block
};

// The open doubles the source buffer and sizes the destination; the close frees the
// buffers and keeps the doubled size, which a new open does not double again.
TEST_F(ConversionStreamTest, OpenDoublesTheSourceBufferAndCloseFreesIt) {
  ConversionStream tNever;
  EXPECT_EQ(CloseConversionStream(tNever), 0);
  OpenEncoder(4096);
  EXPECT_TRUE(m_t.streamHandle);
  EXPECT_EQ(m_t.SourceBufferSize, 8192u);
  EXPECT_EQ(m_t.estDestBufferSize, 2u * 3 * 512);  // 4096 bytes need 3 blocks
  ASSERT_TRUE(m_t.lpDstFormat);
  EXPECT_EQ(m_t.lpDstFormat->Extra, Ima22050Mono().Extra);
  std::vector<uint8_t> aBuf(8192, 0);
  int32_t n = 3000;
  ASSERT_EQ(Convert(m_t, aBuf.data(), n, aBuf.size()), 0);
  EXPECT_EQ(CloseConversionStream(m_t), 0);
  EXPECT_FALSE(m_t.streamHandle);
  EXPECT_EQ(m_t.lpSourceBuffer, nullptr);
  EXPECT_EQ(m_t.BufferUsed, 0u);
  EXPECT_FALSE(m_t.lpSrcFormat);
  EXPECT_EQ(m_t.SourceBufferSize, 8192u);
  OpenEncoder(4096);
  EXPECT_EQ(m_t.SourceBufferSize, 8192u);
  EXPECT_TRUE(m_aBoxes.empty());
}

TEST_F(ConversionStreamTest, MissingFormatsAndImpossibleStreams) {
  const Wfx pcm = Wfx::PCM(22050, 1);
  EXPECT_EQ(OpenConversionStream(m_t, nullptr, &pcm), 11);
  EXPECT_EQ(OpenConversionStream(m_t, &pcm, nullptr), 11);
  EXPECT_TRUE(m_aBoxes.empty());
  const Wfx pcm44 = Wfx::PCM(44100, 1);
  m_t.SourceBufferSize = 1000;
  EXPECT_EQ(OpenConversionStream(m_t, &pcm44, &pcm), 512);
  EXPECT_FALSE(m_t.streamHandle);
  ASSERT_EQ(m_aBoxes.size(), 1u);
  EXPECT_NE(m_aBoxes[0].find(" - Brimcode Open: "), std::string::npos);
  EXPECT_NE(m_aBoxes[0].find("unknown error, the code was: 512"), std::string::npos);
}

TEST_F(ConversionStreamTest, AShortPieceWaitsAndTheNextCompletesTheBlock) {
  OpenEncoder(8192);
  auto aPcm = audiotest::Sine(400, 22050, 1, 0.2);
  std::vector<uint8_t> aBuf(16384);
  std::memcpy(aBuf.data(), aPcm.data(), 1500);
  int32_t n = 1500;
  EXPECT_EQ(Convert(m_t, aBuf.data(), n, aBuf.size()), 0);
  EXPECT_EQ(n, 0);
  EXPECT_EQ(m_t.BufferUsed, 1500u);
  std::memcpy(aBuf.data(), reinterpret_cast<uint8_t*>(aPcm.data()) + 1500, 1000);
  n = 1000;
  EXPECT_EQ(Convert(m_t, aBuf.data(), n, aBuf.size()), 0);
  EXPECT_EQ(n, 512);
  EXPECT_EQ(m_t.BufferUsed, 2500u - kBlockBytes);
  // The waiting bytes are the start of the next block, in order.
  EXPECT_EQ(std::memcmp(m_t.lpSourceBuffer, reinterpret_cast<uint8_t*>(aPcm.data()) + kBlockBytes, m_t.BufferUsed), 0);
}

TEST_F(ConversionStreamTest, NothingToConvertChangesNothing) {
  OpenEncoder(4096);
  std::vector<uint8_t> aBuf(100, 7);
  int32_t n = 0;
  EXPECT_EQ(Convert(m_t, aBuf.data(), n, aBuf.size()), 0);
  EXPECT_EQ(n, 0);
  n = 10;
  EXPECT_EQ(Convert(m_t, nullptr, n, 0), 0);
  EXPECT_EQ(n, 10);
  EXPECT_EQ(m_t.BufferUsed, 0u);
  ConversionStream tClosed;
  EXPECT_EQ(Convert(tClosed, aBuf.data(), n, aBuf.size()), 0);
  EXPECT_EQ(n, 10);
  EXPECT_TRUE(m_aBoxes.empty());
  // Output never goes beyond the caller's buffer: with room for one block, the rest
  // waits in the stream.
  std::vector<uint8_t> aFull(8192, 0);
  n = 8192;
  EXPECT_EQ(Convert(m_t, aFull.data(), n, 600), 0);
  EXPECT_EQ(n, 512);
  EXPECT_EQ(m_t.BufferUsed, 8192u - kBlockBytes);
}

TEST_F(ConversionStreamTest, APieceThatWouldOverrunTheSourceBufferIsRefused) {
  OpenEncoder(4096);
  std::vector<uint8_t> aBuf(20000, 0);
  int32_t n = 1000;
  ASSERT_EQ(Convert(m_t, aBuf.data(), n, aBuf.size()), 0);
  ASSERT_EQ(m_t.BufferUsed, 1000u);
  // 1000 waiting + 7193 = 8193 > 8192.
  n = 7193;
  EXPECT_EQ(Convert(m_t, aBuf.data(), n, aBuf.size()), kConvertPieceTooLarge);
  EXPECT_EQ(n, 7193);
  EXPECT_EQ(m_t.BufferUsed, 1000u);
  n = 7192;  // exactly fills it
  EXPECT_EQ(Convert(m_t, aBuf.data(), n, aBuf.size()), 0);
  EXPECT_EQ(n, 4 * 512);
  EXPECT_EQ(m_t.BufferUsed, 8192u - 4 * kBlockBytes);
}

TEST(MMErrorText, KnownUnknownAndNone) {
  std::string s;
  EXPECT_FALSE(GetMMErrorText(0, s));
  ASSERT_TRUE(GetMMErrorText(11, s));
  EXPECT_EQ(s, "An invalid parameter was passed to a system function.");
  ASSERT_TRUE(GetMMErrorText(514, s));
  EXPECT_EQ(s, "The Windows(TM) Multimedia Sub-System has returned with an unknown error, the code was: 514");
  // No box for a code of 0 or without the show flag.
  int iBoxes = 0;
  auto old = SetMsgBoxHandler([&](const std::string&, int32_t lStyle, const std::string&) {
    ++iBoxes;
    EXPECT_EQ(lStyle, vbInformation);
    return vbOK;
  });
  EXPECT_EQ(ShowMMError(0, true, "x"), 0);
  EXPECT_EQ(ShowMMError(7, false, "x"), 7);
  EXPECT_EQ(iBoxes, 0);
  EXPECT_EQ(ShowMMError(7, true, "x"), 7);
  EXPECT_EQ(iBoxes, 1);
  SetMsgBoxHandler(old);
}

TEST(FormatDump, FieldsInOrderThenCodecData) {
  Wfx pcm = Wfx::PCM(44100, 2);
  EXPECT_EQ(FormatDumpText(&pcm),
            "cbSize=0; nAvgBytesPerSec=176400; nBlockAlign=4; nChannels=2; nSamplesPerSec=44100; "
            "wBitsPerSample=16; wFormatTag=1");
  Wfx ima = Ima22050Mono();
  const std::string s = FormatDumpText(&ima);
  EXPECT_EQ(s.rfind("cbSize=2; ", 0), 0u);
  const size_t i = s.find("; CodecData=");
  ASSERT_NE(i, std::string::npos);
  EXPECT_NE(s.find("F9", i), std::string::npos);
}

}  // namespace
