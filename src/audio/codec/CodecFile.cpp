#include "audio/codec/CodecFile.h"

#include <algorithm>
#include <cmath>

#include "audio/RiffFile.h"
#include "audio/codec/AvAudioReader.h"
#include "audio/codec/AvAudioWriter.h"
#include "audio/codec/CodecError.h"

namespace {

// Block align of the ADPCM formats as the platform's codecs suggest them.
int32_t DefaultAdpcmBlockAlign(int32_t lRate, int32_t lChannels) {
  return 256 * lChannels * std::max(1, lRate / 11025);
}

void CheckRateAndChannels(int32_t lRate, int32_t lChannels) {
  if (lRate < 1000 || lRate > 192000 || lChannels < 1 || lChannels > 2)
    throw CodecError(CodecErr::kBadArgument, "Unusable sample rate or channel count");
}

uint16_t Le16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }
uint32_t Le32(const uint8_t* p) {
  return uint32_t{p[0]} | (uint32_t{p[1]} << 8) | (uint32_t{p[2]} << 16) | (uint32_t{p[3]} << 24);
}

}  // namespace

CodecFile::CodecFile() = default;
CodecFile::~CodecFile() {
  try {
    Close();
  } catch (const CodecError&) {
    // A write that cannot be finished in a destructor leaves what was written.
  }
}

int32_t CodecFile::FileTypeOf(Kind e) {
  switch (e) {
    case Kind::PCM:
    case Kind::ADPCM_IMA:
    case Kind::ADPCM_MS: return kTypeWAV;
    case Kind::MP2: return kTypeMP2;
    case Kind::MP3: return kTypeMP3;
    case Kind::OGG: return kTypeOGG;
    default: return 0;
  }
}

void CodecFile::Open(const std::string& sPath, int32_t, int32_t) {
  Close();
  auto pReader = std::make_unique<AvAudioReader>();
  pReader->SetOutputFormat(m_lArrayRate, m_lArrayChannels);
  pReader->Open(sPath);
  m_pReader = std::move(pReader);
}

void CodecFile::Close() {
  m_pReader.reset();
  if (m_pWriter) {
    std::unique_ptr<AvAudioWriter> pWriter = std::move(m_pWriter);
    m_writing = Format{};
    pWriter->Close();
  }
}

void CodecFile::Create(const std::string& sPath, int32_t lFileType) {
  Close();
  if (m_format.eKind == Kind::None) throw CodecError(CodecErr::kNoFormat, "No format set for " + sPath);
  if (FileTypeOf(m_format.eKind) != lFileType)
    throw CodecError(CodecErr::kNoFormat, "File type " + std::to_string(lFileType) + " does not match the format set");
  AvEncodeSettings s;
  s.lSampleRate = m_format.lRate;
  s.lChannels = m_format.lChannels;
  switch (m_format.eKind) {
    case Kind::PCM:
      s.sMuxer = "wav";
      s.sEncoder = "pcm_s16le";
      break;
    case Kind::ADPCM_IMA:
      s.sMuxer = "wav";
      s.sEncoder = "adpcm_ima_wav";
      s.lBlockAlign = m_format.lBlockAlign;
      break;
    case Kind::ADPCM_MS:
      s.sMuxer = "wav";
      s.sEncoder = "adpcm_ms";
      s.lBlockAlign = m_format.lBlockAlign;
      break;
    case Kind::MP2:
      s.sMuxer = "mp2";
      s.sEncoder = "mp2";
      break;
    case Kind::MP3:
      s.sMuxer = "mp3";
      s.sEncoder = "libmp3lame";
      break;
    case Kind::OGG:
      s.sMuxer = "ogg";
      s.sEncoder = "libvorbis";
      break;
    default: break;
  }
  if (m_format.eKind == Kind::MP2 || m_format.eKind == Kind::MP3 || m_format.eKind == Kind::OGG)
    s.lBitRate = m_format.lBitRateKbps * 1000;
  auto pWriter = std::make_unique<AvAudioWriter>();
  pWriter->SetInputFormat(m_lArrayRate, m_lArrayChannels);
  pWriter->Create(sPath, s);
  m_pWriter = std::move(pWriter);
  m_writing = m_format;
  if (m_writing.lBlockAlign == 0) m_writing.lBlockAlign = m_pWriter->BlockAlign();
  m_lWritten = 0;
}

void CodecFile::WriteSamples(const std::vector<int16_t>& aSamples) { WriteSamples(aSamples.data(), aSamples.size()); }

void CodecFile::WriteSamples(const int16_t* pSamples, size_t lCount) {
  if (!m_pWriter) throw CodecError(CodecErr::kNotOpen, "No file is open for writing");
  m_pWriter->Write(pSamples, lCount);
  m_lWritten += static_cast<int64_t>(lCount / static_cast<size_t>(m_lArrayChannels));
}

std::vector<int16_t> CodecFile::ReadSamples(int32_t lSamplesPerChannel) {
  if (!m_pReader) throw CodecError(CodecErr::kNotOpen, "No file is open for reading");
  return m_pReader->Read(lSamplesPerChannel);
}

void CodecFile::Seek(int32_t lPosition, int32_t lOrigin, int32_t& lNewPosition) {
  if (!m_pReader) throw CodecError(CodecErr::kNotOpen, "No file is open for reading");
  int64_t lTarget = 0;
  switch (lOrigin) {
    case kSeekEnd: lNewPosition = static_cast<int32_t>(m_pReader->SeekEnd()); return;
    case kSeekCurrent: lTarget = m_pReader->Position() + lPosition; break;
    case kSeekAbsolute: lTarget = lPosition; break;
    default: throw CodecError(CodecErr::kBadArgument, "Unknown seek origin");
  }
  if (lOrigin == kSeekCurrent && lPosition == 0) {
    lNewPosition = static_cast<int32_t>(m_pReader->Position());
    return;
  }
  lNewPosition = static_cast<int32_t>(m_pReader->Seek(lTarget));
}

void CodecFile::SetArrayFormat(int32_t lSampleRate, int32_t lChannels) {
  if (lSampleRate < 1000 || lSampleRate > 384000 || lChannels < 1 || lChannels > 8)
    throw CodecError(CodecErr::kBadArgument, "Unusable array format");
  if (m_pReader) m_pReader->SetOutputFormat(lSampleRate, lChannels);
  if (m_pWriter) m_pWriter->SetInputFormat(lSampleRate, lChannels);
  m_lArrayRate = lSampleRate;
  m_lArrayChannels = lChannels;
}

void CodecFile::SetFormatLikeSample(const std::string& sWavFile) {
  uint8_t fmt[18] = {};
  const int64_t n = RiffFile::ReadWaveFormat(sWavFile, fmt, sizeof fmt);
  if (n < 0) throw CodecError(CodecErr::kOpenFailed, "Cannot open sample file " + sWavFile);
  if (n < 16) throw CodecError(CodecErr::kOpenFailed, "No format in sample file " + sWavFile);
  uint16_t wTag = Le16(fmt);
  int32_t lChannels = Le16(fmt + 2);
  int32_t lRate = static_cast<int32_t>(Le32(fmt + 4));
  int32_t lBlockAlign = Le16(fmt + 12);
  int32_t lBits = Le16(fmt + 14);
  CheckRateAndChannels(lRate, lChannels);
  Format fNew;
  fNew.lRate = lRate;
  fNew.lChannels = lChannels;
  fNew.lBlockAlign = lBlockAlign;
  switch (wTag) {
    case 1:
      if (lBits != 16) throw CodecError(CodecErr::kNoFormat, "Only 16-bit PCM is written");
      fNew.eKind = Kind::PCM;
      fNew.lBlockAlign = 2 * lChannels;
      break;
    case 17: fNew.eKind = Kind::ADPCM_IMA; break;
    case 2: fNew.eKind = Kind::ADPCM_MS; break;
    default: throw CodecError(CodecErr::kNoFormat, "Format tag " + std::to_string(wTag) + " is not written");
  }
  if (fNew.eKind != Kind::PCM && (lBlockAlign < 32 * lChannels || lBlockAlign > 8192))
    throw CodecError(CodecErr::kNoFormat, "Unusable ADPCM block size");
  m_format = fNew;
}

void CodecFile::SetFormatPCM(int32_t lSampleRate, int32_t lChannels, int32_t lBits) {
  CheckRateAndChannels(lSampleRate, lChannels);
  if (lBits != 16) throw CodecError(CodecErr::kBadArgument, "Only 16-bit PCM is written");
  m_format = Format{Kind::PCM, lSampleRate, lChannels, 0, 2 * lChannels};
}

void CodecFile::SetFormatADPCM(int32_t lSampleRate, int32_t lChannels) {
  CheckRateAndChannels(lSampleRate, lChannels);
  m_format = Format{Kind::ADPCM_IMA, lSampleRate, lChannels, 0, DefaultAdpcmBlockAlign(lSampleRate, lChannels)};
}

void CodecFile::SetFormatMP2(int32_t lSampleRate, int32_t lBitRate, int32_t lChannels) {
  CheckRateAndChannels(lSampleRate, lChannels);
  m_format = Format{Kind::MP2, lSampleRate, lChannels, lBitRate, 0};
}

void CodecFile::SetFormatMP3(const Mp3Options& o) {
  CheckRateAndChannels(o.SampleRate(), o.Channels());
  m_format = Format{Kind::MP3, o.SampleRate(), o.Channels(), o.BitRate(), 0};
}

void CodecFile::SetFormatOGG(int32_t lSampleRate, int32_t lChannels, int32_t lBitRate, int32_t, int32_t, bool) {
  CheckRateAndChannels(lSampleRate, lChannels);
  m_format = Format{Kind::OGG, lSampleRate, lChannels, lBitRate, 0};
}

int32_t CodecFile::State() const {
  if (m_pReader) return 1;
  if (m_pWriter) return 2;
  return 0;
}

int32_t CodecFile::TotalSamples() const {
  if (m_pReader) return static_cast<int32_t>(std::min<int64_t>(m_pReader->TotalFrames(), INT32_MAX));
  if (m_pWriter) return static_cast<int32_t>(std::min<int64_t>(m_lWritten, INT32_MAX));
  return 0;
}

int32_t CodecFile::LengthMs() const {
  if (m_pReader) return static_cast<int32_t>(std::min<int64_t>(m_pReader->LengthMs(), INT32_MAX));
  if (m_pWriter) return static_cast<int32_t>(std::min<int64_t>(m_lWritten * 1000 / m_lArrayRate, INT32_MAX));
  return 0;
}

int32_t CodecFile::SampleRate() const {
  if (m_pReader) return m_pReader->SampleRate();
  return m_pWriter ? m_writing.lRate : m_format.lRate;
}

int16_t CodecFile::Channels() const {
  if (m_pReader) return static_cast<int16_t>(m_pReader->Channels());
  return static_cast<int16_t>(m_pWriter ? m_writing.lChannels : m_format.lChannels);
}

int32_t CodecFile::BitRate() const {
  if (m_pReader) return m_pReader->BitRate();
  const Format& f = m_pWriter ? m_writing : m_format;
  switch (f.eKind) {
    case Kind::PCM: return f.lRate * f.lChannels * 16;
    case Kind::ADPCM_IMA:
    case Kind::ADPCM_MS: {
      if (f.lBlockAlign <= 0) return f.lRate * f.lChannels * 4;
      int32_t lPerBlock = f.eKind == Kind::ADPCM_IMA ? (f.lBlockAlign - 4 * f.lChannels) * 8 / (4 * f.lChannels) + 1
                                                     : (f.lBlockAlign - 7 * f.lChannels) * 8 / (4 * f.lChannels) + 2;
      return static_cast<int32_t>(static_cast<int64_t>(f.lRate) * f.lBlockAlign / lPerBlock * 8);
    }
    case Kind::MP2:
    case Kind::MP3:
    case Kind::OGG: return f.lBitRateKbps * 1000;
    default: return 0;
  }
}

int32_t CodecFile::FormatTag() const {
  if (m_pReader) return m_pReader->FormatTag();
  const Format& f = m_pWriter ? m_writing : m_format;
  switch (f.eKind) {
    case Kind::PCM: return 1;
    case Kind::ADPCM_MS: return 2;
    case Kind::ADPCM_IMA: return 17;
    case Kind::MP2: return 80;
    case Kind::MP3: return 85;
    case Kind::OGG: return 0x674f;
    default: return 0;
  }
}
