#pragma once
// One logger's settings: name and identity, segment geometry, output formats and the
// hours after which audio moves from one format to the next, and the capture-side
// settings (silence detection, logic lines, DAB, serial inputs) that pass through whole.
// CLog.cpp holds the object, CLogFile.cpp the settings file Kestrane.ini, CLogNaming.cpp
// the names of the logger's folders and files.
#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "config/ClogPeriods.h"
#include "config/CommentSettings.h"
#include "config/HardwareLine.h"
#include "config/IKNSettingsCallback.h"
#include "config/LogInfo.h"
#include "config/SDTime.h"
#include "config/SerialLine.h"

class CLog : public IKNSettingsCallback {
 public:
  static constexpr int32_t kLineSlots = 300;
  static constexpr int32_t kCommentSlots = 4;
  // Guards against counts that no name can tell apart and no memory can hold.
  static constexpr int32_t kMaxOutputFormats = 159;
  static constexpr int32_t kMaxSerialCount = 999;

  static constexpr int32_t kErrOutputCount = static_cast<int32_t>(0x80042328u);
  static constexpr int32_t kErrMergeStatus = static_cast<int32_t>(0x80042710u);
  static constexpr int32_t kErrNotAudioFile = static_cast<int32_t>(0x80040002u);

  // LoadDefaults groups.
  enum LoadType : int32_t {
    ldName = 1,
    ldDescription = 2,
    ldHours = 4,
    ldFormats = 8,
    ldSilence = 32,
    ldDAB = 64,
    ldAll = -1,
  };
  // LoadLog sections.
  enum LoadFlags : int32_t {
    lfGeneral = 2,
    lfLogSettings = 4,
    lfFormats = 8,
    lfLogicLines = 16,
    lfSilence = 32,
    lfDAB = 64,
    lfFirstLog = 256,
    lfLastLog = 512,
    lfSerial = 1024,
    lfDefaults = 2048,
  };
  // SaveLog sections.
  enum eSaveFlags : int32_t {
    svName = 1,
    svGeneral = 2,
    svLogSettings = 4,
    svFormats = 8,
    svLogicLines = 16,
    svSilence = 32,
    svDAB = 64,
    svFirstLog = 256,
    svLastLog = 512,
    svSerial = 1024,
  };
  // Copy and Merge.
  enum eCopyType : int32_t { ctStatus = 1, ctSettings = 2, ctGUID = 4 };

  CLog();
  ~CLog() override;
  CLog(const CLog&) = delete;
  CLog& operator=(const CLog&) = delete;

  // ---- Public fields.
  std::string description;
  std::string SchedulerLogFileName;
  std::string SAEmailAddress;
  bool DABPassThru = false;
  std::string DABPassServiceName;
  std::string DABPassServicePassword;  // in clear while in memory
  std::string DABServiceName;
  std::shared_ptr<LogInfo> FirstLog;
  std::shared_ptr<LogInfo> LastLog;

  // ---- Events.
  std::function<void(const std::string& sName)> NameChange;
  std::function<void(int16_t iNum)> LogNumChange;
  std::function<void(bool bEnabled)> LogEnabled;  // declared only
  std::function<void()> HardwareLoggingChange;
  std::function<void()> DABLoggingChange;
  std::function<void()> DABPasswordChange;
  std::function<void()> SilenceLoggingChange;
  std::function<void()> AudioQualityChange;
  std::function<void()> PeriodChange;
  std::function<void(int16_t iLineNo, const std::shared_ptr<HardwareLine>& oLine)> LoadDefaultHardware;
  std::function<void()> LoadDefaultSerial;
  std::function<void()> SerialChange;

  // ---- Properties.
  int32_t OutputFormatCount() const { return m_lOutputFormatCount; }
  void OutputFormatCount(int32_t newVal);
  std::string OutputFormatName(int32_t OutputNum) const;  // from 1
  bool DABEnabled() const { return m_bDABEnabled; }
  void DABEnabled(bool b);
  const std::string& Name() const { return m_sName; }
  void Name(const std::string& s);
  const std::string& GUID() const { return m_sGUID; }
  void SetGUID(const std::string& s) { m_sGUID = s; }  // for the configuration classes
  const std::string& AltCommentLoc() const { return m_sAltCommentLoc; }
  void AltCommentLoc(const std::string& s) { m_sAltCommentLoc = s; }
  int16_t logNum() const { return m_iLogNum; }
  void logNum(int16_t num);
  // LineNo 0 to 299; outside: null (getter), nothing (setter).
  std::shared_ptr<HardwareLine> HardwareLines(int32_t LineNo);
  void HardwareLines(int32_t LineNo, const std::shared_ptr<HardwareLine>& newObj);
  bool SilenceAlarm() const { return m_bSilenceAlarm; }
  void SilenceAlarm(bool b);
  bool SAHWLine() const { return m_bSAHWLine; }
  void SAHWLine(bool b);
  int16_t SDThreshold() const { return m_iSDThreshold; }
  void SDThreshold(int32_t i);
  float SDPeriod() const { return m_fSDPeriod; }
  void SDPeriod(float f);
  int32_t SAEmailType() const { return m_iSAEmailType; }
  void SAEmailType(int32_t l);
  int16_t LogSegmentLength() const;
  int16_t NumLogSegmentsPerHour() const { return m_iNumLogSegmentsPerHour; }
  void NumLogSegmentsPerHour(int32_t i);
  // FormatNum from 0; outside the array: error 9.
  std::shared_ptr<ClogPeriods> AudioFormat(int32_t FormatNum) const;
  void AudioFormat(int32_t FormatNum, const std::shared_ptr<ClogPeriods>& o);
  int32_t DeleteHours() const { return m_lDeleteHours; }
  void DeleteHours(int32_t l);
  int32_t ArchiveHours() const { return m_lArchiveHours; }
  void ArchiveHours(int32_t l);
  int32_t StandardHours() const { return m_lStandardHours; }
  void StandardHours(int32_t l);
  std::shared_ptr<CommentSettings> Comments(int32_t index) const;  // index clamped to 0 to 3
  int16_t HWLinesChecked() const { return m_iHWLinesChecked; }
  void HWLinesChecked(int32_t i);
  int16_t SAHWLinePeriod() const { return m_iSAHWLinePeriod; }
  void SAHWLinePeriod(int32_t i);
  const std::string& DABServicePassword() const { return m_sDABServicePassword; }
  void DABServicePassword(const std::string& s);
  const std::string& DABPassIPAddr() const { return m_sDABPassIPAddr; }
  void DABPassIPAddr(const std::string& s) { m_sDABPassIPAddr = s; }
  bool SilenceDetect() const { return m_bSilenceDetect; }
  void SilenceDetect(bool b);
  bool InvertSilences() const { return m_bInvertSilences; }
  void InvertSilences(bool b) { m_bInvertSilences = b; }
  int32_t SerialCount() const { return m_lSerialCount; }
  void SerialCount(int32_t l);
  // 1 to SerialCount; outside the array: error 9.
  std::shared_ptr<SerialLine> Serial(int32_t n) const;
  void Serial(int32_t n, const std::shared_ptr<SerialLine>& o);
  int32_t SDMode() const { return m_lSDMode; }
  void SDMode(int32_t l);

  // ---- Model operations.
  void Clear();
  std::shared_ptr<CLog> Copy(int32_t eCopyType);
  void LoadDefaults(int32_t LoadType);
  void Merge(int32_t eCopyType, CLog& oFromLog);
  void Terminate();
  void SettingsChange(const std::string& SettingType, const std::string& Setting, const SettingValue& vOld,
                      const SettingValue& vNew) override;

  // ---- Settings file. LogPath is the logger's folder as stored ("D:\Kestrane\Logger3"
  // or a path of this machine).
  bool LoadLog(const std::string& LogPath, int32_t LoadFlags);
  void LoadFirstLastLog(const std::string& LogPath);
  void SaveLog(const std::string& LogPath, int32_t eSaveFlags);
  void SaveLogDefaults(const std::string& LogPath, const CLog& oLog, int32_t eSaveFlags);
  // The settings file of a folder, as a path of this machine: "Kestrane.ini", or a file
  // of that name in another case if the folder holds one; "" for an empty LogPath.
  static std::string SettingsFile(const std::string& LogPath);

  // Section decoders. Each takes the section as the profile read gives it: entries ended
  // by NUL, one more NUL after the last. Run-time errors are raised to the caller, apart
  // from DecodeSilence, which traces them and goes on with the next entry.
  void DecodeGeneral(const std::string& sSection);
  void DecodeLogSettings(const std::string& sSection);
  void DecodeLogTypes(const std::string& sINIFile);
  void DecodeSilence(const std::string& sSection);
  void DecodeDAB(const std::string& sSection);
  void DecodeLogicLines(const std::string& sSection);
  void DecodeSerial(int32_t lCount, const std::string& sSection);
  void DecodeComments(const std::string& sSection);
  // "yyyymmdd hhmmss" into a position.
  void DecodeAvailableLog(const std::string& sValue, LogInfo& oLogInfo) const;

  // ---- Naming. Folders relative to the logger's folder, "/" between parts; file names
  // without folder and extension.
  std::string GetDateFolder(int32_t iDate) const;
  std::string GetDateFolderLI(const LogInfo& loginf) const;
  std::string GetHourFolder(int32_t iDate, int16_t iHour) const;
  std::string GetHourFolderLI(const LogInfo& loginf) const;
  std::string GetHourFolderSD(const SDTime& sdFile) const;
  std::string GetBaseFileName(int16_t iHour, int32_t iSegment) const;
  std::string GetBaseFileNameLI(const LogInfo& loginf) const;
  std::string GetBaseFileNameSD(const SDTime& sdFile) const;
  std::string GetHourFileName(int16_t iHour) const;
  std::string GetHourFileNameLI(const LogInfo& loginf) const;
  std::string GetHourFileNameSD(const SDTime& sdFile) const;
  std::shared_ptr<LogInfo> GetLIFromFileName(const std::string& sFileName) const;
  int32_t GetDayFromSerial(const std::string& sSerial) const;
  int16_t GetAudioFileOutputNum(const std::string& FileName) const;
  double GetPeriodSize(int32_t Period, int32_t iPeriodLength) const;
  void SetStandardPoint(const std::string& FileName, const LogInfo* oLogInf, const LogInfo* oStandardPoint);
  void SetArchivePoint(const std::string& FileName, const LogInfo* oLogInf, const LogInfo* oArchivePoint);
  void SetDeletePoint(const std::string& FileName, const LogInfo* oLogInf, const LogInfo* oDeletePoint);
  void AddToServerLog(const std::string& Path, const std::string& chEvent, const std::string& FileQualifier) const;
  // An SDTime back to a position: hour from the seconds, segment by LogSegmentLength.
  void FromSDTime(const SDTime& t, LogInfo& oLogInfo) const;

 private:
  void RaiseHardwareLoggingChange();
  void SetPoint(const std::string& sKey, const std::string& FileName, const LogInfo* oPoint);
  void LoadOneAvailableLog(const std::string& sFile, const std::string& sKey, LogInfo& oLogInfo);

  std::string m_sName;
  std::string m_sAltCommentLoc;
  std::vector<std::shared_ptr<HardwareLine>> m_aHWLines;
  int16_t m_iHWLinesChecked = 0;
  mutable int16_t m_iNumLogSegmentsPerHour = 0;
  std::vector<std::shared_ptr<ClogPeriods>> m_aFormats;
  bool m_bSilenceDetect = false;
  bool m_bInvertSilences = false;
  int16_t m_iSDThreshold = 0;
  float m_fSDPeriod = 0.0f;
  int32_t m_lSDMode = 0;
  bool m_bSilenceAlarm = false;
  bool m_bSAHWLine = false;
  int16_t m_iSAHWLinePeriod = 0;
  int16_t m_iSAEmailType = 0;
  int32_t m_lStandardHours = 0;
  int32_t m_lDeleteHours = 0;
  int32_t m_lArchiveHours = 0;
  std::vector<std::shared_ptr<CommentSettings>> m_aComments;
  bool m_bDABEnabled = false;
  std::string m_sDABPassIPAddr;
  std::string m_sDABServicePassword;
  int32_t m_lOutputFormatCount = 1;
  std::string m_sGUID;
  std::vector<std::shared_ptr<SerialLine>> m_aSerial;
  int32_t m_lSerialCount = 0;
  int16_t m_iLogNum = 0;
  bool m_bSuppressHWEvent = false;
  // Number of the entry being decoded, for the trace of a failed section.
  int32_t m_lDecodeLine = 0;
};
