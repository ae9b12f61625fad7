#include "config/CStream.h"

#include <fmt/format.h>

#include "config/VbConvert.h"
#include "config/WaveInDevices.h"
#include "support/CNVErr.h"
#include "support/ConfigAccess.h"
#include "support/DebugMsg.h"
#include "support/FileHelper.h"
#include "support/Machine.h"
#include "support/MsgBox.h"
#include "support/OsInfo.h"

namespace {
int32_t RegBool(bool b) { return b ? -1 : 0; }
}  // namespace

CStream::CStream() {
  DebugMsg("Start CStream::Initialise", 5, 1);
  DebugMsg("End CStream::Initialise", 5, 2);
}

CStream::~CStream() {
  DebugMsg("Start CStream::Terminate", 5, 1);
  DebugMsg("End CStream::Terminate", 5, 2);
}

std::string CStream::DefaultLogPath(int32_t n) {
  return FileHelper::DataDrive() + ":\\Kestrane\\Logger" + std::to_string(n);
}

std::string CStream::DefaultDirLogPath(int32_t n) {
  return "\\\\" + OsInfo::ComputerName() + "\\Kestrane\\Logger" + std::to_string(n);
}

std::string CStream::KeyOf() const { return std::string(kDefaultRoot) + "\\Logger" + std::to_string(m_iLogNum); }

void CStream::AutoStart(bool b) {
  m_bAutoStart = b;
  if (AutostartChange) AutostartChange(b);
}

void CStream::SampleRate(int32_t l) {
  m_lSampleRate = l;
  if (AudioRateChanged) AudioRateChanged();
}

void CStream::Channels(int32_t l) {
  m_iChannels = VbConvert::ToInt(l, "StreamInfo.Channels");
  if (AudioRateChanged) AudioRateChanged();
}

void CStream::ChannelMode(int32_t newMode) {
  if (newMode < 0 || newMode > 2)
    throw RaisedError(kErrChannelMode, "StreamInfo.ChannelMode", fmt::format("Channel Mode {} is not valid!", newMode));
  m_iChannelMode = static_cast<int16_t>(newMode);
  if (ChannelModeChange) ChannelModeChange(m_iChannelMode);
}

void CStream::InputLevel(int32_t newLevel) {
  m_iInputLevel = static_cast<int16_t>(newLevel < 0 ? 0 : (newLevel > 100 ? 100 : newLevel));
}

void CStream::LogPath(const std::string& s) {
  m_sLogPath = s;
  if (LogPathChange) LogPathChange(s);
}

void CStream::SoundCardDevNum(int32_t devNum) {
  if (devNum < -1 || devNum > WaveInDevices::Count()) return;
  if (devNum == m_iSoundCardDevNum && devNum > 0) return;
  m_iSoundCardDevNum = static_cast<int16_t>(devNum);
  if (SoundCardChange) SoundCardChange(m_iSoundCardDevNum);
}

void CStream::Enabled(bool b) {
  m_bEnabled = b;
  if (StreamEnabled) StreamEnabled(b);
}

void CStream::logNum(int16_t num) {
  m_iLogNum = num;
  // A path that was never given a number still carries the placeholder of logger 0.
  bool bPlaceholder =
      m_sLogPath.empty() || (m_sLogPath.size() >= 7 && m_sLogPath.compare(m_sLogPath.size() - 7, 7, "Logger0") == 0);
  if (bPlaceholder) {
    m_sLogPath = DefaultLogPath(num);
    DirLogPath = DefaultDirLogPath(num);
    m_iSoundCardDevNum = static_cast<int16_t>(std::min<int32_t>(num, WaveInDevices::Count()));
  }
}

void CStream::LoadDefaults() {
  m_bAutoStart = true;
  m_iChannelMode = 2;
  m_iInputLevel = 50;
  m_iSoundCardDevNum = 0;
  Enabled(false);
  m_sLogPath = DefaultLogPath(m_iLogNum);
  AltCommentsPath.clear();
  DirLogPath = DefaultDirLogPath(m_iLogNum);
  m_lSampleRate = 44100;
  m_iChannels = 2;
}

bool CStream::Load(int16_t iIndex, const std::string& sKey) {
  std::string key = (sKey.empty() ? std::string(kDefaultRoot) : sKey) + "\\Logger" + std::to_string(iIndex);
  LoadDefaults();
  using namespace ConfigAccess;
  LogPath(GetRegString(key, "LogPath", m_sLogPath));
  DirLogPath = GetRegString(key, "DirLogPath", DirLogPath);
  AltCommentsPath = GetRegString(key, "AltCommentPath", AltCommentsPath);
  AutoStart(GetRegLong(key, "Autostart", -1) != 0);
  InputLevel(GetRegLong(key, "InputLevel", m_iInputLevel));
  SoundCardDevNum(GetRegLong(key, "Soundcard", m_iSoundCardDevNum));
  Enabled(GetRegLong(key, "Enabled", RegBool(m_bEnabled)) != 0);
  SampleRate(GetRegLong(key, "SampleRate", m_lSampleRate));
  Channels(GetRegLong(key, "Channels", m_iChannels));
  ChannelMode(GetRegLong(key, "ChannelMode", 0));
  return true;
}

void CStream::SaveDefaults() {
  using namespace ConfigAccess;
  std::string key = KeyOf();
  SetRegString(key, "LogPath", DefaultLogPath(m_iLogNum));
  SetRegString(key, "DirLogPath", DefaultDirLogPath(m_iLogNum));
  SetRegString(key, "AltCommentPath", "");
  SetRegLong(key, "Autostart", -1, false);
  SetRegLong(key, "InputLevel", 50, false);
  SetRegLong(key, "Soundcard", 0, false);
  SetRegLong(key, "Enabled", 0, false);
  SetRegLong(key, "ChannelMode", 2, false);
}

void CStream::SaveToDisk(int32_t eFlags) {
  using namespace ConfigAccess;
  std::string key = KeyOf();
  if (eFlags & sfAutostart) SetRegLong(key, "Autostart", RegBool(m_bAutoStart), true);
  if (eFlags & sfEnabled) SetRegLong(key, "Enabled", RegBool(m_bEnabled), false);
  if (eFlags & sfLogPath) SetRegString(key, "LogPath", m_sLogPath);
  if (eFlags & sfPaths) {
    SetRegString(key, "DirLogPath", DirLogPath);
    SetRegString(key, "AltCommentPath", AltCommentsPath);
  }
  if (eFlags & sfLevels) {
    SetRegLong(key, "InputLevel", m_iInputLevel, false);
    SetRegLong(key, "Soundcard", m_iSoundCardDevNum, false);
    SetRegLong(key, "ChannelMode", m_iChannelMode, false);
  }
  if (eFlags & sfChannels) SetRegLong(key, "Channels", m_iChannels, false);
}

void CStream::DeleteFromDisk() { ConfigAccess::DeleteRegKey(KeyOf()); }

std::shared_ptr<CStream> CStream::Copy() const {
  auto o = std::make_shared<CStream>();
  o->AutoStart(m_bAutoStart);
  o->ChannelMode(m_iChannelMode);
  o->InputLevel(m_iInputLevel);
  o->SoundCardDevNum(m_iSoundCardDevNum);
  o->Enabled(m_bEnabled);
  o->LogPath(m_sLogPath);
  o->DirLogPath = DirLogPath;
  o->AltCommentsPath = AltCommentsPath;
  o->Running = Running;
  return o;
}

void CStream::Merge(const CStream& oFrom) {
  AutoStart(oFrom.m_bAutoStart);
  ChannelMode(oFrom.m_iChannelMode);
  Channels(oFrom.m_iChannels);
  InputLevel(oFrom.m_iInputLevel);
  SoundCardDevNum(oFrom.m_iSoundCardDevNum);
  Enabled(oFrom.m_bEnabled);
  LogPath(oFrom.m_sLogPath);
  DirLogPath = oFrom.DirLogPath;
  AltCommentsPath = oFrom.AltCommentsPath;
  Running = oFrom.Running;
}

bool CStream::SetupFolders() {
  try {
    std::string sLog = Machine::TranslatePath(m_sLogPath);
    if (!FileHelper::FolderExists(sLog)) {
      int32_t err = FileHelper::CreateFolder(sLog);
      if (err != 0 || !FileHelper::FolderExists(sLog)) {
        MsgBox(fmt::format("Could not create the LOG folder in : {}\r\n Error:{}", m_sLogPath, err),
               vbCritical | vbSystemModal);
        return false;
      }
    }
    // No alternative comments folder configured: nothing to create.
    if (!AltCommentsPath.empty()) {
      std::string sAlt = Machine::TranslatePath(AltCommentsPath);
      if (!FileHelper::FolderExists(sAlt)) {
        int32_t err = FileHelper::CreateFolder(sAlt);
        if (err != 0 || !FileHelper::FolderExists(sAlt)) {
          MsgBox(fmt::format("Could not create Alternate Comments folder in: {} Error:{}", AltCommentsPath, err),
                 vbCritical);
          return false;
        }
      }
    }
  } catch (const std::exception& e) {
    DebugMsg(std::string("SetupFolders: ") + e.what(), 5, 0);
  }
  return true;
}
