#include "engine/ConversionPipeline.h"

#include <chrono>
#include <exception>
#include <functional>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "audio/CAudioNCT.h"
#include "hours/CLogProcessEntry.h"
#include "support/DebugMsg.h"

// The host of one conversion in the pipeline: what the conversion says goes to the
// engine's host at once while its file is the first, and is held until then otherwise.
// Used on the engine's thread only.
class ConversionPipeline::OrderedHost : public IConversionHost {
 public:
  OrderedHost(IConversionHost& oHost, bool bFirst) : m_oHost(oHost), m_bFirst(bFirst) {}

  // The file comes first: what it said so far is passed on, in order.
  void MakeFirst() {
    if (m_bFirst) return;
    m_bFirst = true;
    std::vector<std::function<void()>> aHeld;
    aHeld.swap(m_aHeld);
    for (auto& fn : aHeld) fn();
  }
  void DropHeld() { m_aHeld.clear(); }

  void ReportFailure(const std::string& sLine, bool bKeepsHourDue = true) override {
    Pass([this, sLine, bKeepsHourDue] { m_oHost.ReportFailure(sLine, bKeepsHourDue); });
  }
  void HourLog(const std::string& sLine) override {
    Pass([this, sLine] { m_oHost.HourLog(sLine); });
  }
  void SendToCapture(const std::string& sText) override {
    Pass([this, sText] { m_oHost.SendToCapture(sText); });
  }
  void FileStarted(const std::string& sFile) override {
    Pass([this, sFile] { m_oHost.FileStarted(sFile); });
  }
  void FileEnded() override {
    Pass([this] { m_oHost.FileEnded(); });
  }
  void FileConverted(int64_t lBytesBefore, int64_t lBytesAfter) override {
    Pass([this, lBytesBefore, lBytesAfter] { m_oHost.FileConverted(lBytesBefore, lBytesAfter); });
  }
  // Only the first file's progress is shown.
  void SetFileProgress(int iPercent) override {
    if (m_bFirst) m_oHost.SetFileProgress(iPercent);
  }
  void StillActive(bool bProgress) override { m_oHost.StillActive(bProgress); }
  void DoEvents() override { m_oHost.DoEvents(); }
  bool ShutdownRequested() const override { return m_oHost.ShutdownRequested(); }
  bool SaveArcs() const override { return m_oHost.SaveArcs(); }

 private:
  void Pass(std::function<void()> fn) {
    if (m_bFirst) fn();
    else m_aHeld.push_back(std::move(fn));
  }

  IConversionHost& m_oHost;
  bool m_bFirst;
  std::vector<std::function<void()>> m_aHeld;
};

struct ConversionPipeline::Slot {
  Slot(IConversionHost& oHost, bool bFirst) : oHost(oHost, bFirst) {}
  OrderedHost oHost;
  // Null when the file was passed over, removed or failed at its begin: nothing to finish.
  std::unique_ptr<FileConversion> oConversion;
  FileConversion::WorkSignals oSignals;
  // The copier server of the file while it is at work (oSignals.pServer).
  std::unique_ptr<CopierServer> oServer;
  std::thread oWorker;
  bool bDone = false;  // the work has ended (under the pipeline's m_mutex)
  uint32_t lBeatsSeen = 0;
};

ConversionPipeline::ConversionPipeline(IConversionHost& oHost, int iWorkers)
    : m_oHost(oHost), m_iWorkers(iWorkers < 1 ? 1 : iWorkers) {}

ConversionPipeline::~ConversionPipeline() {
  // The engine's host may be going too: nothing more is said to it.
  for (auto& oSlot : m_aSlots) oSlot->oSignals.bStop = true;
  for (auto& oSlot : m_aSlots)
    if (oSlot->oWorker.joinable()) oSlot->oWorker.join();
  EndServers();
}

std::unique_ptr<CopierServer> ConversionPipeline::TakeServer() {
  while (!m_aIdleServers.empty()) {
    std::unique_ptr<CopierServer> oServer = std::move(m_aIdleServers.back());
    m_aIdleServers.pop_back();
    if (oServer->Usable()) return oServer;
  }
  if (m_bNoServers) return nullptr;
  // Started here, on the engine's thread, which lives as long as the servers.
  std::unique_ptr<CopierServer> oServer = CopierServer::Start(CAudioNCT::CopierPath());
  if (!oServer) m_bNoServers = true;
  return oServer;
}

void ConversionPipeline::EndServers() {
  std::vector<std::unique_ptr<CopierServer>> aServers;
  aServers.swap(m_aIdleServers);
  for (auto& oSlot : m_aSlots)
    if (oSlot->oServer && !oSlot->oWorker.joinable()) aServers.push_back(std::move(oSlot->oServer));
  // All are told first, and so end side by side.
  for (auto& oServer : aServers) oServer->CloseInput();
  aServers.clear();
}

void ConversionPipeline::Take(const std::shared_ptr<CLogProcessEntry>& oEntry, const std::string& sHourFolder,
                              const std::string& sFile) {
  auto oSlot = std::make_unique<Slot>(m_oHost, m_aSlots.empty());
  oSlot->oConversion = std::make_unique<FileConversion>(oSlot->oHost, oEntry, sHourFolder, sFile);
  bool bUnderWay = false;
  try {
    bUnderWay = oSlot->oConversion->Begin();
  } catch (const std::exception& e) {
    // Nothing of the file was touched yet; it and its hour are tried again later.
    oSlot->oConversion.reset();
    oSlot->oHost.ReportFailure("Cannot process audio file " + sHourFolder + "/" + sFile + ": " + e.what());
  }
  if (!bUnderWay) {
    oSlot->oConversion.reset();
    oSlot->bDone = true;
    // The first file has said everything already; a later one waits its turn.
    if (!m_aSlots.empty()) m_aSlots.push_back(std::move(oSlot));
    return;
  }
  if (m_oHost.ShutdownRequested()) oSlot->oSignals.bStop = true;
  if (m_iWorkers > 1 && !oSlot->oSignals.bStop && oSlot->oConversion->UsesCopier()) {
    oSlot->oServer = TakeServer();
    oSlot->oSignals.pServer = oSlot->oServer.get();
  }
  Slot* pSlot = oSlot.get();
  m_aSlots.push_back(std::move(oSlot));
  const auto Work = [this, pSlot] {
    pSlot->oConversion->Work(pSlot->oSignals);
    {
      const std::lock_guard<std::mutex> oLock(m_mutex);
      pSlot->bDone = true;
    }
    m_oWorkEnded.notify_all();
  };
  try {
    pSlot->oWorker = std::thread(Work);
    ++m_iAtWork;
  } catch (const std::system_error& e) {
    // No thread to be had: the file is converted here and now.
    DebugMsg(std::string("No worker thread: ") + e.what(), -1, 0);
    Work();
  }
}

bool ConversionPipeline::FrontDone() {
  const std::lock_guard<std::mutex> oLock(m_mutex);
  return !m_aSlots.empty() && m_aSlots.front()->bDone;
}

void ConversionPipeline::RetireFront() {
  std::unique_ptr<Slot> oSlot = std::move(m_aSlots.front());
  m_aSlots.pop_front();
  if (oSlot->oWorker.joinable()) {
    oSlot->oWorker.join();
    --m_iAtWork;
  }
  if (oSlot->oServer && oSlot->oServer->Usable()) m_aIdleServers.push_back(std::move(oSlot->oServer));
  oSlot->oHost.MakeFirst();
  if (oSlot->oConversion) oSlot->oConversion->Finish(oSlot->oSignals.bStop);
  oSlot.reset();
  if (!m_aSlots.empty()) m_aSlots.front()->oHost.MakeFirst();
}

void ConversionPipeline::Retire(int iWaitMs) {
  if (!m_aSlots.empty()) {
    std::unique_lock<std::mutex> oLock(m_mutex);
    m_oWorkEnded.wait_for(oLock, std::chrono::milliseconds(iWaitMs), [this] { return m_aSlots.front()->bDone; });
  }
  while (FrontDone()) RetireFront();
  bool bProgress = false;
  for (auto& oSlot : m_aSlots) {
    const uint32_t lBeats = oSlot->oSignals.lBeats.load(std::memory_order_relaxed);
    if (lBeats != oSlot->lBeatsSeen) bProgress = true;
    oSlot->lBeatsSeen = lBeats;
  }
  if (!m_aSlots.empty()) m_oHost.SetFileProgress(m_aSlots.front()->oSignals.iPercent.load(std::memory_order_relaxed));
  if (bProgress) m_oHost.StillActive(true);
}

void ConversionPipeline::StopAll() {
  for (auto& oSlot : m_aSlots) oSlot->oSignals.bStop = true;
  while (!m_aSlots.empty()) RetireFront();
  EndServers();
  m_bNoServers = false;
}

void ConversionPipeline::Abandon() {
  for (auto& oSlot : m_aSlots) oSlot->oSignals.bStop = true;
  for (auto& oSlot : m_aSlots)
    if (oSlot->oWorker.joinable()) oSlot->oWorker.join();
  RemoveFilesInTheMaking();
  EndServers();
  m_aSlots.clear();
  m_iAtWork = 0;
}

void ConversionPipeline::EndAfterFault() {
  for (auto& oSlot : m_aSlots) oSlot->oSignals.bStop = true;
  // A worker stops within a share of audio or, on the copier path, when its copier has
  // taken the stop; one stuck (or the one that faulted) is not waited for beyond this.
  const auto tGiveUp = std::chrono::steady_clock::now() + std::chrono::seconds(3);
  for (auto& oSlot : m_aSlots) {
    while (oSlot->oConversion && oSlot->oWorker.joinable() && !oSlot->oSignals.bEnded &&
           std::chrono::steady_clock::now() < tGiveUp)
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  RemoveFilesInTheMaking();
  // The idle servers end by themselves; not waited for, as the process ends.
  for (auto& oServer : m_aIdleServers) oServer->CloseInput();
}

void ConversionPipeline::RemoveFilesInTheMaking() const {
  for (const auto& oSlot : m_aSlots)
    if (oSlot->oConversion) oSlot->oConversion->RemoveFileInTheMaking();
}
