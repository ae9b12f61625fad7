// The work-list preparation as the form runs it: tmrPrepareLists_Timer lets PrepareState
// walk every logger's day and hour folders a few directory entries a tick and make a row
// of the work list for each hour with an action. At the end the rows are sorted by the
// efficiency text, highest first, and tmrProcess takes over. Nothing on disk is changed
// here, apart from one line in the last logger's hour log.
#include <fmt/format.h>

#include <cstdio>
#include <exception>

#include "config/CLogList.h"
#include "engine/Globals.h"
#include "engine/PrepareState.h"
#include "engine/WorkPlan.h"
#include "engine/frmProcessLogs.h"
#include "hours/CHourlyInf.h"
#include "support/CNVErr.h"
#include "support/ConfigAccess.h"
#include "support/DebugMsg.h"

void frmProcessLogs::tmrPrepareLists_Timer() {
  TraceScope oTrace("Prepare List Timer Sub", "tmrPrepareLists_Timer");
  if (m_bShutdown) {
    m_tmrPrepareLists.stop();
    Unload();
    oTrace.Close("Exit Prepare List Timer Sub (Shutdown)");
    return;
  }
  PrepareState& st = *m_pPrepare;
  if (m_pObserver) m_pObserver->Progress();
  if (!st.bListStarted) {
    DebugMsg("Clear Lists", -1, 0);
    SetCurrentFileCaption("Preparing Lists ...");
    SetFileProgress(0);
    SetLogProgress(0);
    CHourlyInf::StartCachePass();
    // The rows go, and with them the sort order of the last list: rows are added at the
    // end as the walk finds them, and the finish sorts them all at once. (Kept sorted,
    // each row would be placed among the others, which costs a move of half the list
    // for every row.)
    m_oRows = WorkList();
    RowsChanged();
    DebugMsg("Find first folder", -1, 0);
    st.StartLogger(1);
    st.bListStarted = true;
  }

  bool bLogFinished = false;
  bool bRowsAdded = false;
  const int32_t lEntries = ConfigAccess::GetRegLong(kLogProcessorKey, "PrepareHoursPerPing", 6);
  try {
    for (int32_t i = 0; i < lEntries && !bLogFinished; ++i) st.ScanStep(bLogFinished, bRowsAdded);
  } catch (const std::exception& e) {
    // The rest of this logger's folders is left for the next cycle.
    const auto* pRaised = dynamic_cast<const RaisedError*>(&e);
    DebugMsg(fmt::format("Logger {} dropped for this cycle at {}: {}", st.Logger(), st.Folder(),
                         pRaised ? pRaised->Description : std::string(e.what())),
             5, 0);
    st.Close();
    bLogFinished = true;
  } catch (...) {
    DebugMsg(fmt::format("Logger {} dropped for this cycle at {}", st.Logger(), st.Folder()), 5, 0);
    st.Close();
    bLogFinished = true;
  }
  if (bRowsAdded) RowsChanged();
  if (!bLogFinished) return;

  // Next logger. Nothing here stops the scan: failures are traced and passed over.
  try {
    if (st.Logger() >= LogList().Count()) {
      PrepareFinishScan();
    } else {
      DebugMsg("Do Next log", -1, 0);
      st.StartLogger(static_cast<int16_t>(st.Logger() + 1));
    }
  } catch (const std::exception& e) {
    DebugMsg(fmt::format("tmrPrepareLists_Timer: ignored: {}", e.what()), 5, 0);
  }
}

void frmProcessLogs::PrepareFinishScan() {
  PrepareState& st = *m_pPrepare;
  DebugMsg("Prepare Lists Done", -1, 0);
  if (m_bPlanOnly) return FinishPlan();
  try {
    const int32_t lLast = LogList().Count();
    auto oLog = LogList().Log(lLast);
    auto oStream = LogList().Stream(lLast);
    if (oLog && oStream) oLog->AddToServerLog(oStream->LogPath(), "Finished Preparing Delete/Archive lists", "");
  } catch (const std::exception& e) {
    DebugMsg(fmt::format("tmrPrepareLists_Timer: ignored: {}", e.what()), 5, 0);
  }
  m_oRows.SortByEfficiencyDescending();
  if (m_oRows.Count() >= 1) m_oRows.Select(1);
  RowsChanged();
  st.Close();
  m_tmrPrepareLists.stop();
  st.bListStarted = false;
  if (m_pObserver) m_pObserver->ListPrepared(m_oRows);
  EnableTimer(m_tmrProcess);
  DebugMsg("Finished Preparing Lists.  Enabled Process Timer", -1, 0);
}

void frmProcessLogs::RowsChanged() {
  if (m_pView) m_pView->RowsChanged();
}

// "/PLAN": the list in its processing order, on standard output; nothing is written.
void frmProcessLogs::FinishPlan() {
  PrepareState& st = *m_pPrepare;
  m_oRows.SortByEfficiencyDescending();
  st.Close();
  m_tmrPrepareLists.stop();
  st.bListStarted = false;
  const std::string sPlan = FormatPlan(MakePlan(m_oRows));
  std::fwrite(sPlan.data(), 1, sPlan.size(), stdout);
  std::fflush(stdout);
  Unload();
}
