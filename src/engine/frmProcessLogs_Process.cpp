// The hour processing: tmrProcess_Timer works down the work list from the top, one
// Delete or a share of a conversion a tick, and ends the run after the last row.
//
// A Standardise or Archive walks the hour's audio files as a group, one FileConversion
// a file. A group that ends without error marks its action point in
// the hour info file as done (an Archive marks the standard point too); a failed group
// leaves the point, and the hour comes up again in a later cycle. Before the group's
// files are taken, the temporary files of cut-off runs are removed and the converted
// files of cut-off replaces are given their names.
//
// The logger of an entry is found by its number (CLog::logNum) among the loaded loggers,
// not by taking the number as a list position: with a disabled logger in the middle the
// two differ.
#include <cmath>
#include <exception>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include <fmt/format.h>

#include "config/CLog.h"
#include "config/CLogList.h"
#include "config/CStream.h"
#include "config/SerialDateHelper.h"
#include "engine/AbandonedFiles.h"
#include "engine/FileConversion.h"
#include "engine/FolderTidyup.h"
#include "engine/FormHosts.h"
#include "engine/Globals.h"
#include "engine/ProcessState.h"
#include "engine/frmProcessLogs.h"
#include "hours/CHourlyInf.h"
#include "hours/CLogProcessEntry.h"
#include "support/CNVErr.h"
#include "support/Clock.h"
#include "support/ConfigAccess.h"
#include "support/DebugMsg.h"
#include "support/FileHelper.h"
#include "support/FileUtils.h"
#include "support/Journal.h"
#include "support/Machine.h"
#include "support/OsInfo.h"

#include <unistd.h>

void frmProcessLogs::tmrProcess_Timer() {
  TraceScope oTrace("tmrProcess_Timer");
  ProcessState& st = *m_pProcess;
  if (m_pObserver) m_pObserver->Progress();
  if (!st.bListInitialised) {
    DebugMsg("Initialise Processing List", -1, 0);
    st.iRowCount = m_oRows.Count();
    st.iEntry = 1;
    st.iRow = 1;
    st.bListInitialised = true;
    st.ReadConcurrency();
  }

  while (!st.bNoMoreFiles && !st.FileInProgress()) {
    if (m_bUnloadRequested) {
      st.EndConversions();
      st.CloseGroupSearch();
      oTrace.Exit();
      Unload();
      return;
    }
    if (st.bGroupEnding) {
      // The group's last files are done now.
      st.EndGroup();
      continue;
    }
    if (!st.bInGroup) {
      if (st.iEntry > st.iRowCount) {
        DebugMsg("No more files (end of list)", -1, 0);
        st.bNoMoreFiles = true;
        break;
      }
      st.oEntry = st.iRow >= 1 && st.iRow <= m_oRows.Count() ? m_oRows.Row(st.iRow).pTag : nullptr;
      if (!st.oEntry) {
        DebugMsg("No more files (invalid entry)", -1, 0);
        st.bNoMoreFiles = true;
        break;
      }
      m_dLastActive = Clock::Now();
      const int32_t eAct = st.oEntry->Action();
      if (eAct == actDelete) {
        st.DeleteHour();
        break;  // one Delete a tick at most
      }
      if (eAct == actStandardise || eAct == actArchive) st.StartGroup();
    } else {
      DebugMsg("Find next file in group", -1, 0);
      st.sFile = FileHelper::FindNext(st.hGroupFind);
      if (st.sFile.empty()) st.CloseGroupSearch();
    }
    if (st.bInGroup) {
      try {
        st.BeginFile();
      } catch (const std::exception& e) {
        // Nothing of the file was touched yet; it and its hour are tried again later.
        st.oConversion.reset();
        st.ReportFailure("Cannot process audio file " + st.sHourFolder + "/" + st.sFile + ": " + e.what());
      }
    } else {
      st.EndGroupWhenDone();
    }
  }

  if (st.FileInProgress()) st.RunFile();
  if (st.bNoMoreFiles || m_bShutdown) EndRun();
}

void frmProcessLogs::EndRun() {
  ProcessState& st = *m_pProcess;
  DebugMsg("No More Files", -1, 0);
  m_tmrProcess.stop();
  SetFileProgress(100);
  SetLogProgress(100);
  if (!m_bShutdown) {
    st.bGroupError = false;
    for (int32_t i = 1; i <= LogList().Count(); ++i) {
      auto oLog = LogList().Log(i);
      auto oStream = LogList().Stream(i);
      if (oLog && oStream) oLog->AddToServerLog(oStream->LogPath(), "Finished Archiving Audio", "");
    }
    SetCurrentFileCaption("Removing empty folders");
    PerformFolderTidyup();
    SetCurrentFileCaption("Processing Complete");
    SetCurrentFileCaption("");
    DebugMsg("Reduce Window size", -1, 0);
    SetProcessorActive(false);
    MinimiseWindow();
  }
  // A run stopped inside a group leaves it: the hour is neither marked nor removed.
  st.CloseGroupSearch();
  st.oConversion.reset();
  st.EndConversions();
  st.oEntry.reset();
  st.iFilesDone = 0;
  st.bGroupError = false;

  if (m_pObserver) m_pObserver->CycleEnded(m_bShutdown);
  DebugMsg("Notify Server", -1, 0);
  SendToCapture("IDLE");
  if (m_bExitWhenDone || m_bShutdown) {
    DebugMsg("Shutting down", -1, 0);
    Unload();
  } else {
    DebugMsg("Start waiting", -1, 0);
    EnableTimer(m_tmrWait);
  }
  st.bListInitialised = false;
  st.bNoMoreFiles = false;
}

void frmProcessLogs::PerformFolderTidyup() { FolderTidyup().Run(); }
