// CLog: the object, its properties, defaults, copy, merge and end of life.
#include "config/CLog.h"

#include <fmt/format.h>

#include "audio/AudioTypes.h"
#include "audio/CAudioACM.h"
#include "config/VbConvert.h"
#include "support/AppGlobal.h"
#include "support/CNVErr.h"
#include "support/DebugMsg.h"

namespace {
template <class T>
T ClampTo(T v, T lo, T hi) {
  return v < lo ? lo : (v > hi ? hi : v);
}

// A WAV format of the given rate, channels and format tag.
std::shared_ptr<IAudioFormat> MakeWavFormat(int32_t lRate, int32_t iChannels, int32_t iTag) {
  auto o = std::make_shared<CAudioACM>();
  o->SetFileFormat(lRate, iChannels, iTag);
  return o;
}

std::string AutoName(int32_t n) { return "Logger Number " + std::to_string(n); }
}  // namespace

CLog::CLog() {
  DebugMsg("Start CLog::Initialise", 5, 1);
  m_lOutputFormatCount = 1;
  m_aHWLines.resize(kLineSlots);
  m_aComments.resize(kCommentSlots);
  m_aFormats.resize(2);
  m_aSerial.resize(1);
  FirstLog = std::make_shared<LogInfo>();
  LastLog = std::make_shared<LogInfo>();
  m_sGUID = AppGlobal::NewGUID();
  m_lSDMode = 0;
  DebugMsg("End CLog::Initialise", 5, 2);
}

CLog::~CLog() {
  DebugMsg("Start CLog::Terminate", 5, 1);
  // A line shared with another logger may still point here: never leave it dangling.
  for (auto& line : m_aHWLines)
    if (line && line->callback == this) line->callback = nullptr;
  FirstLog.reset();
  LastLog.reset();
  DebugMsg("End CLog::Terminate", 5, 2);
}

// ---- Properties.

void CLog::OutputFormatCount(int32_t newVal) {
  if (newVal < 1)
    throw RaisedError(kErrOutputCount, "CLog.OutputFormatCount (Let)", fmt::format("Invalid OutputCount ({})", newVal));
  if (newVal > kMaxOutputFormats) VbConvert::Raise(VbConvert::kErrInvalidCall, "CLog.OutputFormatCount (Let)");
  m_lOutputFormatCount = newVal;
  m_aFormats.resize(static_cast<size_t>(newVal));
  for (int32_t i = 0; i < newVal; ++i) {
    auto& f = m_aFormats[static_cast<size_t>(i)];
    if (!f) {
      f = std::make_shared<ClogPeriods>();
      f->FormatName("Format " + ClogPeriods::UpperLetter(i));
    }
  }
}

std::string CLog::OutputFormatName(int32_t OutputNum) const {
  auto f = AudioFormat(OutputNum - 1);
  if (!f) VbConvert::Raise(VbConvert::kErrObjectNotSet, "CLog.OutputFormatName");
  return f->FormatName();
}

void CLog::DABEnabled(bool b) {
  m_bDABEnabled = b;
  if (DABLoggingChange) DABLoggingChange();
}

void CLog::Name(const std::string& s) {
  m_sName = s;
  if (NameChange) NameChange(s);
}

void CLog::logNum(int16_t num) {
  if (m_sName == AutoName(m_iLogNum)) {
    Name(AutoName(num));
    DABServiceName = m_sName;
  }
  m_iLogNum = num;
  if (LogNumChange) LogNumChange(num);
}

std::shared_ptr<HardwareLine> CLog::HardwareLines(int32_t LineNo) {
  if (LineNo < 0 || LineNo >= kLineSlots || m_aHWLines.size() != static_cast<size_t>(kLineSlots)) return nullptr;
  auto& slot = m_aHWLines[static_cast<size_t>(LineNo)];
  if (!slot) {
    slot = std::make_shared<HardwareLine>();
    slot->callback = this;
    if (LoadDefaultHardware) LoadDefaultHardware(static_cast<int16_t>(LineNo), slot);
  }
  return slot;
}

void CLog::HardwareLines(int32_t LineNo, const std::shared_ptr<HardwareLine>& newObj) {
  if (LineNo < 0 || LineNo >= kLineSlots || m_aHWLines.size() != static_cast<size_t>(kLineSlots)) return;
  auto& slot = m_aHWLines[static_cast<size_t>(LineNo)];
  if (!newObj) {
    if (slot) m_iHWLinesChecked = static_cast<int16_t>(std::max(m_iHWLinesChecked - 1, 0));
    slot.reset();
  } else {
    if (!slot) {
      ++m_iHWLinesChecked;
    } else if (slot->IsLogged() != newObj->IsLogged()) {
      int32_t d = newObj->IsLogged() ? 1 : -1;
      m_iHWLinesChecked = static_cast<int16_t>(std::max(0, m_iHWLinesChecked + d));
    }
    slot = newObj;
    slot->callback = this;
  }
  RaiseHardwareLoggingChange();
}

void CLog::RaiseHardwareLoggingChange() {
  if (HardwareLoggingChange) HardwareLoggingChange();
}

void CLog::SilenceAlarm(bool b) {
  m_bSilenceAlarm = b;
  if (SilenceLoggingChange) SilenceLoggingChange();
}

void CLog::SAHWLine(bool b) {
  m_bSAHWLine = b;
  if (SilenceLoggingChange) SilenceLoggingChange();
}

void CLog::SDThreshold(int32_t i) {
  m_iSDThreshold = static_cast<int16_t>(ClampTo<int32_t>(i, 0, 100));
  if (SilenceLoggingChange) SilenceLoggingChange();
}

void CLog::SDPeriod(float f) {
  // A NaN compares false both ways: take the lower bound for it.
  m_fSDPeriod = (f >= 0.1f) ? (f > 60.0f ? 60.0f : f) : 0.1f;
  if (SilenceLoggingChange) SilenceLoggingChange();
}

void CLog::SAEmailType(int32_t l) {
  if (l >= 0) m_iSAEmailType = VbConvert::ToInt(l, "CLog.SAEmailType (Let)");
  if (SilenceLoggingChange) SilenceLoggingChange();
}

int16_t CLog::LogSegmentLength() const {
  if (m_iNumLogSegmentsPerHour == 0) m_iNumLogSegmentsPerHour = 60;
  return static_cast<int16_t>(VbConvert::RoundEven(3600.0 / m_iNumLogSegmentsPerHour));
}

void CLog::NumLogSegmentsPerHour(int32_t i) {
  m_iNumLogSegmentsPerHour = static_cast<int16_t>(ClampTo<int32_t>(i, 1, 120));
}

std::shared_ptr<ClogPeriods> CLog::AudioFormat(int32_t FormatNum) const {
  if (FormatNum < 0 || static_cast<size_t>(FormatNum) >= m_aFormats.size())
    VbConvert::Raise(VbConvert::kErrSubscript, "CLog.AudioFormat");
  return m_aFormats[static_cast<size_t>(FormatNum)];
}

void CLog::AudioFormat(int32_t FormatNum, const std::shared_ptr<ClogPeriods>& o) {
  if (FormatNum < 0 || static_cast<size_t>(FormatNum) >= m_aFormats.size())
    VbConvert::Raise(VbConvert::kErrSubscript, "CLog.AudioFormat");
  m_aFormats[static_cast<size_t>(FormatNum)] = o;
  if (AudioQualityChange) AudioQualityChange();
}

void CLog::DeleteHours(int32_t l) {
  m_lDeleteHours = std::max(l, 0);
  if (PeriodChange) PeriodChange();
}

void CLog::ArchiveHours(int32_t l) {
  m_lArchiveHours = std::max(l, 0);
  if (PeriodChange) PeriodChange();
}

void CLog::StandardHours(int32_t l) {
  m_lStandardHours = std::max(l, 0);
  if (PeriodChange) PeriodChange();
}

std::shared_ptr<CommentSettings> CLog::Comments(int32_t index) const {
  if (m_aComments.empty()) return nullptr;
  return m_aComments[static_cast<size_t>(ClampTo<int32_t>(index, 0, kCommentSlots - 1))];
}

void CLog::HWLinesChecked(int32_t i) { m_iHWLinesChecked = static_cast<int16_t>(ClampTo<int32_t>(i, 0, kLineSlots)); }

void CLog::SAHWLinePeriod(int32_t i) { m_iSAHWLinePeriod = static_cast<int16_t>(ClampTo<int32_t>(i, 1, 3600)); }

void CLog::DABServicePassword(const std::string& s) {
  m_sDABServicePassword = s;
  if (DABPasswordChange) DABPasswordChange();
}

void CLog::SilenceDetect(bool b) {
  m_bSilenceDetect = b;
  if (SilenceLoggingChange) SilenceLoggingChange();
}

void CLog::SerialCount(int32_t l) {
  if (l < 0) VbConvert::Raise(VbConvert::kErrSubscript, "CLog.SerialCount (Let)");
  if (l > kMaxSerialCount) VbConvert::Raise(VbConvert::kErrOutOfMemory, "CLog.SerialCount (Let)");
  m_lSerialCount = l;
  m_aSerial.resize(static_cast<size_t>(l) + 1);
  for (int32_t i = 1; i <= l; ++i)
    if (!m_aSerial[static_cast<size_t>(i)]) m_aSerial[static_cast<size_t>(i)] = std::make_shared<SerialLine>();
  if (SerialChange) SerialChange();
}

std::shared_ptr<SerialLine> CLog::Serial(int32_t n) const {
  if (n < 0 || static_cast<size_t>(n) >= m_aSerial.size()) VbConvert::Raise(VbConvert::kErrSubscript, "CLog.Serial");
  return m_aSerial[static_cast<size_t>(n)];
}

void CLog::Serial(int32_t n, const std::shared_ptr<SerialLine>& o) {
  if (n < 0 || static_cast<size_t>(n) >= m_aSerial.size()) VbConvert::Raise(VbConvert::kErrSubscript, "CLog.Serial");
  m_aSerial[static_cast<size_t>(n)] = o;
  if (SerialChange) SerialChange();
}

void CLog::SDMode(int32_t l) {
  m_lSDMode = l;
  if (SilenceLoggingChange) SilenceLoggingChange();
}

// ---- Operations.

void CLog::Clear() { Name(""); }

void CLog::LoadDefaults(int32_t LoadType) {
  if (LoadType & ldName) Name(AutoName(m_iLogNum));
  if (LoadType & ldDescription) {
    description.clear();
    AltCommentLoc("");
    SchedulerLogFileName = "YYMMDD.LOG";
  }
  if (LoadType & ldHours) {
    StandardHours(48);
    ArchiveHours(336);
    DeleteHours(1008);
    NumLogSegmentsPerHour(60);
  }
  if (LoadType & ldFormats) {
    for (int32_t i = 0; i < m_lOutputFormatCount; ++i) {
      auto f = std::make_shared<ClogPeriods>();
      f->FormatName("Format " + ClogPeriods::UpperLetter(i));
      AudioFormat(i, f);
    }
    auto f0 = AudioFormat(0);
    f0->Period(0, MakeWavFormat(44100, 2, WAVE_FORMAT_PCM));
    f0->Period(1, MakeWavFormat(22050, 2, WAVE_FORMAT_IMA_ADPCM));
    f0->Period(2, MakeWavFormat(22050, 1, WAVE_FORMAT_IMA_ADPCM));
    if (AudioQualityChange) AudioQualityChange();
    for (auto& c : m_aComments) c = std::make_shared<CommentSettings>();
  }
  if (LoadType & ldSilence) {
    SilenceDetect(true);
    SDThreshold(5);
    SDPeriod(2.0f);
    SDMode(0);
    SilenceAlarm(false);
    SAHWLine(false);
    SAHWLinePeriod(120);
    SAEmailAddress.clear();
    SAEmailType(0);
  }
  if (LoadType & ldDAB) {
    DABEnabled(false);
    DABServiceName = m_sName;
  }
  if (LoadType != 0 && m_aHWLines.size() == static_cast<size_t>(kLineSlots)) {
    for (int32_t i = 0; i < kLineSlots; ++i) {
      auto line = std::make_shared<HardwareLine>();
      line->IsLogged(false);
      line->callback = this;
      auto& slot = m_aHWLines[static_cast<size_t>(i)];
      if (slot && slot->callback == this) slot->callback = nullptr;
      slot = line;
      if (LoadDefaultHardware) LoadDefaultHardware(static_cast<int16_t>(i), line);
    }
  }
  if (LoadDefaultSerial) LoadDefaultSerial();
}

std::shared_ptr<CLog> CLog::Copy(int32_t eCopyType) {
  auto o = std::make_shared<CLog>();
  if (eCopyType & ctGUID) o->SetGUID(m_sGUID);
  o->Name(m_sName);
  for (int32_t i = 0; i < kLineSlots; ++i) o->HardwareLines(i, HardwareLines(i));
  o->DABEnabled(m_bDABEnabled);
  o->DABServiceName = DABServiceName;
  o->DABServicePassword(m_sDABServicePassword);
  o->DABPassThru = DABPassThru;
  o->DABPassIPAddr(m_sDABPassIPAddr);
  o->DABPassServiceName = DABPassServiceName;
  o->DABPassServicePassword = DABPassServicePassword;
  o->SilenceDetect(m_bSilenceDetect);
  o->SDThreshold(m_iSDThreshold);
  o->SDPeriod(m_fSDPeriod);
  o->SilenceAlarm(m_bSilenceAlarm);
  o->SAHWLine(m_bSAHWLine);
  o->SAHWLinePeriod(m_iSAHWLinePeriod);
  o->SAEmailAddress = SAEmailAddress;
  o->SAEmailType(m_iSAEmailType);
  o->DeleteHours(m_lDeleteHours);
  o->ArchiveHours(m_lArchiveHours);
  o->StandardHours(m_lStandardHours);
  o->OutputFormatCount(m_lOutputFormatCount);
  for (int32_t i = 0; i < m_lOutputFormatCount; ++i) {
    auto f = AudioFormat(i);
    o->AudioFormat(i, f ? f->Copy() : nullptr);
  }
  o->SerialCount(m_lSerialCount);
  for (int32_t i = 1; i <= m_lSerialCount; ++i) o->Serial(i, Serial(i));
  o->description = description;
  o->NumLogSegmentsPerHour(m_iNumLogSegmentsPerHour);
  o->SchedulerLogFileName = SchedulerLogFileName;
  return o;
}

void CLog::Merge(int32_t eCopyType, CLog& oFromLog) {
  if (eCopyType & ctGUID) SetGUID(oFromLog.m_sGUID);
  if (eCopyType & ctSettings) {
    CLog& f = oFromLog;
    Name(f.m_sName);
    for (int32_t i = 0; i < kLineSlots; ++i) HardwareLines(i, f.HardwareLines(i));
    DABEnabled(f.m_bDABEnabled);
    DABServiceName = f.DABServiceName;
    DABServicePassword(f.m_sDABServicePassword);
    DABPassThru = f.DABPassThru;
    DABPassIPAddr(f.m_sDABPassIPAddr);
    DABPassServiceName = f.DABPassServiceName;
    DABPassServicePassword = f.DABPassServicePassword;
    SilenceDetect(f.m_bSilenceDetect);
    SDThreshold(f.m_iSDThreshold);
    SDPeriod(f.m_fSDPeriod);
    SilenceAlarm(f.m_bSilenceAlarm);
    SAHWLine(f.m_bSAHWLine);
    SAHWLinePeriod(f.m_iSAHWLinePeriod);
    SAEmailAddress = f.SAEmailAddress;
    SAEmailType(f.m_iSAEmailType);
    DeleteHours(f.m_lDeleteHours);
    ArchiveHours(f.m_lArchiveHours);
    StandardHours(f.m_lStandardHours);
    for (int32_t i = 0; i < m_lOutputFormatCount; ++i) {
      auto src = f.AudioFormat(i);
      AudioFormat(i, src ? src->Copy() : nullptr);
    }
    description = f.description;
    NumLogSegmentsPerHour(f.m_iNumLogSegmentsPerHour);
    SchedulerLogFileName = f.SchedulerLogFileName;
    SerialCount(f.m_lSerialCount);
    for (int32_t i = 1; i <= f.m_lSerialCount; ++i) {
      auto s = f.Serial(i);
      Serial(i, s ? s->Copy() : nullptr);
    }
  }
  if (eCopyType & ctStatus)
    throw RaisedError(kErrMergeStatus, "CLog.Merge",
                      "The status merge is not available in this version of the CLog class");
}

void CLog::Terminate() {
  for (auto& line : m_aHWLines)
    if (line) line->callback = nullptr;
  m_aHWLines.clear();
  for (auto& f : m_aFormats) f.reset();
  m_aFormats.clear();
  m_aSerial.clear();
  m_aComments.clear();
}

void CLog::SettingsChange(const std::string& SettingType, const std::string& Setting, const SettingValue& vOld,
                          const SettingValue& vNew) {
  if (SettingType != "HardwareLine") return;
  if (Setting == "IsLogged") {
    if (SettingIsTrue(vOld)) --m_iHWLinesChecked;
    else ++m_iHWLinesChecked;
  }
  if (!m_bSuppressHWEvent) RaiseHardwareLoggingChange();
}
