#include "config/ClogPeriods.h"

#include "audio/ChooseAudioClass.h"
#include "config/VbConvert.h"
#include "support/ConfigAccess.h"
#include "support/DebugMsg.h"
#include "support/ProfileFile.h"

namespace {
std::string Letter(int32_t lCode) {
  // A character code beyond one byte is an invalid argument, as Chr has it.
  if (lCode < 0 || lCode > 255) VbConvert::Raise(VbConvert::kErrInvalidCall, "Chr");
  return std::string(1, static_cast<char>(lCode));
}
}  // namespace

std::string ClogPeriods::UpperLetter(int32_t Format) { return Letter(65 + Format); }
std::string ClogPeriods::LowerLetter(int32_t Format) { return Letter(97 + Format); }

ClogPeriods::ClogPeriods() {
  DebugMsg("Start ClogPeriods::Initialise", 5, 1);
  for (auto& p : m_aPeriod) p = ChooseAudioClass(-1);
  DebugMsg("End ClogPeriods::Initialise", 5, 2);
}

ClogPeriods::~ClogPeriods() {
  DebugMsg("Start ClogPeriods::Terminate", 5, 1);
  DebugMsg("End ClogPeriods::Terminate", 5, 2);
}

std::shared_ptr<IAudioFormat> ClogPeriods::Period(int32_t index) const {
  if (index < 0 || index > 2) VbConvert::Raise(VbConvert::kErrSubscript, "ClogPeriods.Period");
  return m_aPeriod[static_cast<size_t>(index)];
}

void ClogPeriods::Period(int32_t index, std::shared_ptr<IAudioFormat> oFormat) {
  if (index < 0 || index > 2) VbConvert::Raise(VbConvert::kErrSubscript, "ClogPeriods.Period");
  m_aPeriod[static_cast<size_t>(index)] = std::move(oFormat);
  m_aMissingKey[static_cast<size_t>(index)].clear();
}

const std::string& ClogPeriods::MissingKey(int32_t index) const {
  if (index < 0 || index > 2) VbConvert::Raise(VbConvert::kErrSubscript, "ClogPeriods.MissingKey");
  return m_aMissingKey[static_cast<size_t>(index)];
}

std::shared_ptr<ClogPeriods> ClogPeriods::Copy() const {
  auto o = std::make_shared<ClogPeriods>();
  o->m_sFormatName = m_sFormatName;
  o->m_aMissingKey = m_aMissingKey;
  for (size_t p = 0; p < m_aPeriod.size(); ++p)
    o->m_aPeriod[p] = m_aPeriod[p] ? m_aPeriod[p]->IAudioFormat_Copy() : nullptr;
  return o;
}

void ClogPeriods::Load(const std::string& sINIFile, int32_t Format) {
  DebugMsg("Start CLogPeriods::Load", 5, 1);
  std::string X = UpperLetter(Format), x = LowerLetter(Format);
  m_sFormatName = ConfigAccess::GetProfileString("Logtypes", "FormatName" + X, "Format " + X, sINIFile);
  for (int32_t p = 0; p < 3; ++p) {
    DebugMsg("Load Period " + std::to_string(p), -1, 0);
    std::string sp = std::to_string(p);
    const std::string sKey = "FormatType" + sp + x;
    // An absent or empty key is no "-1": the format is unknown, never "remove the files".
    const std::string sType = ConfigAccess::GetProfileString("Logtypes", sKey, "", sINIFile);
    m_aMissingKey[static_cast<size_t>(p)].clear();
    if (sType.empty()) {
      DebugMsg("WARNING: " + sKey + " is missing: the format of Period " + sp + " is unknown", -1, 0);
      m_aMissingKey[static_cast<size_t>(p)] = sKey;
      m_aPeriod[static_cast<size_t>(p)] = nullptr;
      continue;
    }
    int32_t lType = ProfileFile::IntValue(sType, -1);
    m_aPeriod[static_cast<size_t>(p)] = ChooseAudioClass(lType);
    auto& o = m_aPeriod[static_cast<size_t>(p)];
    if (!o) {
      DebugMsg("No FormatPeriod object for Period " + sp, -1, 0);
      continue;
    }
    o->LoadFormat(sINIFile, "OutputFormat" + sp + x);
    auto common = o->CommonFormat();
    DebugMsg("Format is " + (common ? common->FormatText() : std::string()), -1, 0);
  }
  DebugMsg("End CLogPeriods::Load", 5, 2);
}

void ClogPeriods::Save(const std::string& sINIFile, int32_t Format) {
  std::string X = UpperLetter(Format), x = LowerLetter(Format);
  ConfigAccess::WriteProfileString("Logtypes", "FormatName" + X, m_sFormatName, sINIFile);
  for (int32_t p = 0; p < 3; ++p) {
    std::string sp = std::to_string(p);
    auto& o = m_aPeriod[static_cast<size_t>(p)];
    // An unknown format stays unknown: writing -1 for it would order its files removed.
    if (!o && !m_aMissingKey[static_cast<size_t>(p)].empty()) continue;
    int32_t lType = o ? o->FormatType() : -1;
    ConfigAccess::WriteProfileString("Logtypes", "FormatType" + sp + x, std::to_string(lType), sINIFile);
    if (o) o->SaveFormat(sINIFile, "OutputFormat" + sp + x);
  }
}
