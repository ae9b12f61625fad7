#include "config/CLogList.h"

#include <fmt/format.h>

#include "config/VbConvert.h"
#include "support/AppGlobal.h"
#include "support/CNVErr.h"
#include "support/ConfigAccess.h"
#include "support/DebugMsg.h"

CLogList& LogList() {
  static CLogList list;
  return list;
}

CLogList::CLogList() : m_aLogs(1), m_aStreams(1) {}

void CLogList::Add(std::shared_ptr<CLog> oLog, std::shared_ptr<CStream> Stream) {
  m_aLogs.push_back(std::move(oLog));
  m_aStreams.push_back(std::move(Stream));
}

int32_t CLogList::Count() const { return static_cast<int32_t>(m_aLogs.size()) - 1; }

std::shared_ptr<CLog> CLogList::Log(int32_t iPosition) const {
  if (iPosition < 1 || iPosition > Count()) return nullptr;
  return m_aLogs[static_cast<size_t>(iPosition)];
}

std::shared_ptr<CStream> CLogList::Stream(int32_t iPosition) const {
  if (iPosition < 1 || static_cast<size_t>(iPosition) >= m_aStreams.size()) return nullptr;
  return m_aStreams[static_cast<size_t>(iPosition)];
}

void CLogList::Clear() {
  DebugMsg("Start CLogList.Clear", 5, 1);
  DebugMsg("Clearing " + std::to_string(Count()) + " items", -1, 0);
  for (auto& o : m_aLogs)
    if (o) o->Terminate();
  m_aLogs.assign(1, nullptr);
  m_aStreams.assign(1, nullptr);
  DebugMsg("End CLogList.Clear", 5, 2);
}

std::shared_ptr<CLogList> CLogList::Copy() const {
  auto o = std::make_shared<CLogList>();
  for (int32_t i = 1; i <= Count(); ++i) {
    auto& log = m_aLogs[static_cast<size_t>(i)];
    auto& stream = m_aStreams[static_cast<size_t>(i)];
    o->Add(log ? log->Copy(0) : nullptr, stream ? stream->Copy() : nullptr);
  }
  return o;
}

void CLogList::LoadLogs(const std::string& sKey) {
  DebugMsg("Start CLogList.LoadLogs", 5, 1);
  DebugMsg("Clear any existing items", -1, 0);
  Clear();
  int16_t iCount;
  try {
    iCount = VbConvert::ToInt(ConfigAccess::GetRegLong(sKey, "LogCount", 0), "CLogList.LoadLogs");
  } catch (...) {
    DebugMsg("Exit CLogList.LoadLogs (LogCount out of range)", 5, 2);
    throw;
  }
  DebugMsg("Logs to retrieve: " + std::to_string(iCount), -1, 0);
  for (int16_t i = 1; i <= iCount; ++i) {
    LoadLog(sKey, i);
    AppGlobal::DoEvents();
  }
  DebugMsg("End CLogList.LoadLogs", 5, 2);
}

void CLogList::LoadLog(const std::string& sKey, int16_t iLogNum) {
  DebugMsg("Create new stream object", -1, 0);
  auto oStream = std::make_shared<CStream>();
  DebugMsg("Load Stream", -1, 0);
  try {
    oStream->Load(iLogNum, sKey);
  } catch (const RaisedError& e) {
    // A stored value that the stream refuses (a "ChannelMode" outside 0 to 2) makes the
    // logger unusable; the run goes on with the next one.
    DebugMsg(fmt::format("Skip logger {}: {}", iLogNum, e.Description), -1, 0);
    DebugMsg("Clear stream reference", -1, 0);
    return;
  }
  if (oStream->Enabled()) {
    DebugMsg("Stream is enabled, create new log object", -1, 0);
    auto oLog = std::make_shared<CLog>();
    DebugMsg("Load Log", -1, 0);
    if (oLog->LoadLog(oStream->LogPath(), 15)) {
      DebugMsg("Set Log Number", -1, 0);
      oLog->logNum(iLogNum);
      DebugMsg("Add to collection", -1, 0);
      Add(oLog, oStream);
    } else {
      DebugMsg("Failed to load \"" + oStream->LogPath() + "\"", -1, 0);
      DebugMsg("Clear log reference", -1, 0);
      oLog->Terminate();
    }
  }
  DebugMsg("Clear stream reference", -1, 0);
}
