#include "audio/codec/WmaFile.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "audio/codec/AvAudioReader.h"
#include "audio/codec/AvAudioWriter.h"
#include "audio/codec/CodecError.h"

namespace {

std::string Trim(const std::string& s) {
  size_t b = 0, e = s.size();
  while (b < e && std::isspace(static_cast<unsigned char>(s[b]))) ++b;
  while (e > b && std::isspace(static_cast<unsigned char>(s[e - 1]))) --e;
  return s.substr(b, e - b);
}

// A whole decimal number, nothing else.
bool ParseInt(const std::string& s, int32_t& lOut) {
  std::string t = Trim(s);
  if (t.empty() || t.size() > 9) return false;
  for (char c : t)
    if (!std::isdigit(static_cast<unsigned char>(c))) return false;
  lOut = static_cast<int32_t>(std::atol(t.c_str()));
  return true;
}

}  // namespace

std::vector<WmaProfile> WmaFile::ParseProfiles(const std::string& sText) {
  std::vector<WmaProfile> a;
  std::istringstream in(sText);
  std::string sLine;
  while (std::getline(in, sLine)) {
    std::string t = Trim(sLine);
    if (t.size() >= 3 && static_cast<unsigned char>(t[0]) == 0xEF && static_cast<unsigned char>(t[1]) == 0xBB &&
        static_cast<unsigned char>(t[2]) == 0xBF)
      t = Trim(t.substr(3));
    if (t.empty() || t[0] == ';' || t[0] == '#' || t[0] == '[') continue;
    size_t e = t.find('=');
    if (e == std::string::npos) continue;
    WmaProfile p;
    if (!ParseInt(t.substr(0, e), p.lNumber) || p.lNumber < 1 || p.lNumber > 9999) continue;
    std::vector<std::string> items;
    std::string sRest = t.substr(e + 1);
    for (int i = 0; i < 3; ++i) {
      size_t c = sRest.find(',');
      items.push_back(sRest.substr(0, c));
      sRest = c == std::string::npos ? std::string() : sRest.substr(c + 1);
      if (c == std::string::npos && i < 2) break;
    }
    if (items.size() != 3) continue;
    if (!ParseInt(items[0], p.lSampleRate) || !ParseInt(items[1], p.lChannels) || !ParseInt(items[2], p.lBitRateKbps))
      continue;
    if (p.lSampleRate < 8000 || p.lSampleRate > 48000 || p.lChannels < 1 || p.lChannels > 2 || p.lBitRateKbps < 24 ||
        p.lBitRateKbps > 320)
      continue;
    p.sDescription = Trim(sRest);
    bool bSeen = std::any_of(a.begin(), a.end(), [&](const WmaProfile& q) { return q.lNumber == p.lNumber; });
    if (!bSeen) a.push_back(p);
  }
  return a;
}

WmaFile::WmaFile() = default;
WmaFile::~WmaFile() {
  try {
    Close();
  } catch (const CodecError&) {
    // What was written stays as far as it went.
  }
}

void WmaFile::LoadProfiles(const std::string& sPath) {
  if (sPath.empty()) {
    m_aProfiles.clear();
    return;
  }
  std::ifstream f(sPath, std::ios::binary);
  if (!f) throw CodecError(CodecErr::kOpenFailed, "Cannot read profile file " + sPath);
  std::stringstream ss;
  ss << f.rdbuf();
  m_aProfiles = ParseProfiles(ss.str());
}

void WmaFile::AddProfile(const WmaProfile& p) {
  for (auto& q : m_aProfiles)
    if (q.lNumber == p.lNumber) {
      q = p;
      return;
    }
  m_aProfiles.push_back(p);
}

const WmaProfile* WmaFile::FindProfile(int32_t lNumber) const {
  for (const auto& p : m_aProfiles)
    if (p.lNumber == lNumber) return &p;
  return nullptr;
}

void WmaFile::Open(const std::string& sPath) {
  Close();
  auto pReader = std::make_unique<AvAudioReader>();
  pReader->SetOutputFormat(m_lArrayRate, m_lArrayChannels);
  pReader->Open(sPath);
  if (!m_bResampling) pReader->SetOutputFormat(pReader->SampleRate(), pReader->Channels());
  m_pReader = std::move(pReader);
  m_lLastTotal = 0;
  // The profile that describes the file: equal rate and channels, nearest bit rate.
  int32_t lBest = 0, lBestDiff = INT32_MAX;
  for (const auto& p : m_aProfiles) {
    if (p.lSampleRate != m_pReader->SampleRate() || p.lChannels != m_pReader->Channels()) continue;
    int32_t lDiff = std::abs(p.lBitRateKbps * 1000 - m_pReader->BitRate());
    if (lDiff < lBestDiff) {
      lBest = p.lNumber;
      lBestDiff = lDiff;
    }
  }
  m_lProfileNum = lBest;
}

void WmaFile::Close() {
  if (State() != 0) m_lLastTotal = TotalSamples();
  m_pReader.reset();
  if (m_pWriter) {
    std::unique_ptr<AvAudioWriter> pWriter = std::move(m_pWriter);
    pWriter->Close();
  }
}

void WmaFile::Create(const std::string& sPath) {
  Close();
  const WmaProfile* p = FindProfile(m_lProfileNum);
  if (!p) throw CodecError(CodecErr::kNoProfile, "Profile " + std::to_string(m_lProfileNum) + " is not loaded");
  AvEncodeSettings s;
  s.sMuxer = "asf";
  s.sEncoder = "wmav2";
  s.lSampleRate = p->lSampleRate;
  s.lChannels = p->lChannels;
  s.lBitRate = p->lBitRateKbps * 1000;
  auto pWriter = std::make_unique<AvAudioWriter>();
  pWriter->SetInputFormat(m_lArrayRate, m_lArrayChannels);
  pWriter->Create(sPath, s);
  m_pWriter = std::move(pWriter);
  m_writing = *p;
  m_lWritten = 0;
  m_lLastTotal = 0;
}

void WmaFile::WriteSamples(const std::vector<int16_t>& a) { WriteSamples(a.data(), a.size()); }

void WmaFile::WriteSamples(const int16_t* pSamples, size_t lCount) {
  if (!m_pWriter) throw CodecError(CodecErr::kNotOpen, "No file is open for writing");
  m_pWriter->Write(pSamples, lCount);
  m_lWritten += static_cast<int64_t>(lCount / static_cast<size_t>(m_lArrayChannels));
}

std::vector<int16_t> WmaFile::ReadSamples(int32_t lSamplesPerChannel) {
  if (!m_pReader) throw CodecError(CodecErr::kNotOpen, "No file is open for reading");
  return m_pReader->Read(lSamplesPerChannel);
}

void WmaFile::Seek(int32_t lPosition, int32_t lOrigin, int32_t& lNewPosition) {
  if (!m_pReader) throw CodecError(CodecErr::kNotOpen, "No file is open for reading");
  int64_t lTarget;
  if (lOrigin == kSeekCurrent) {
    if (lPosition == 0) {
      lNewPosition = static_cast<int32_t>(m_pReader->Position());
      return;
    }
    lTarget = m_pReader->Position() + lPosition;
  } else if (lOrigin == kSeekAbsolute) {
    lTarget = lPosition;
  } else {
    throw CodecError(CodecErr::kBadArgument, "Unknown seek origin");
  }
  lNewPosition = static_cast<int32_t>(m_pReader->Seek(lTarget));
}

void WmaFile::SetArrayFormat(int32_t lSampleRate, int32_t lChannels) {
  if (lSampleRate < 1000 || lSampleRate > 384000 || lChannels < 1 || lChannels > 8)
    throw CodecError(CodecErr::kBadArgument, "Unusable array format");
  if (m_pReader && m_bResampling) m_pReader->SetOutputFormat(lSampleRate, lChannels);
  if (m_pWriter) m_pWriter->SetInputFormat(lSampleRate, lChannels);
  m_lArrayRate = lSampleRate;
  m_lArrayChannels = lChannels;
}

int32_t WmaFile::ArrayChannels() const { return m_pReader ? m_pReader->OutputChannels() : m_lArrayChannels; }

int32_t WmaFile::ArraySampleRate() const { return m_pReader ? m_pReader->OutputRate() : m_lArrayRate; }

int32_t WmaFile::State() const {
  if (m_pReader) return 1;
  if (m_pWriter) return 2;
  return 0;
}

int32_t WmaFile::TotalSamples() const {
  if (m_pReader) return static_cast<int32_t>(std::min<int64_t>(m_pReader->TotalFrames(), INT32_MAX));
  if (m_pWriter) return static_cast<int32_t>(std::min<int64_t>(m_lWritten, INT32_MAX));
  return m_lLastTotal;
}

int32_t WmaFile::LengthMs() const {
  if (m_pReader) return static_cast<int32_t>(std::min<int64_t>(m_pReader->LengthMs(), INT32_MAX));
  if (m_pWriter) return static_cast<int32_t>(std::min<int64_t>(m_lWritten * 1000 / m_lArrayRate, INT32_MAX));
  return 0;
}

int16_t WmaFile::Channels() const {
  if (m_pReader) return static_cast<int16_t>(m_pReader->Channels());
  if (m_pWriter) return static_cast<int16_t>(m_writing.lChannels);
  const WmaProfile* p = FindProfile(m_lProfileNum);
  return static_cast<int16_t>(p ? p->lChannels : 0);
}

int32_t WmaFile::SampleRate() const {
  if (m_pReader) return m_pReader->SampleRate();
  if (m_pWriter) return m_writing.lSampleRate;
  const WmaProfile* p = FindProfile(m_lProfileNum);
  return p ? p->lSampleRate : 0;
}

int32_t WmaFile::BitRate() const {
  if (m_pReader) return m_pReader->BitRate();
  if (m_pWriter) return m_writing.lBitRateKbps * 1000;
  const WmaProfile* p = FindProfile(m_lProfileNum);
  return p ? p->lBitRateKbps * 1000 : 0;
}
