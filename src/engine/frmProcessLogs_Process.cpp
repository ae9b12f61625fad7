// The hour processing: tmrProcess_Timer works down the work list, one Delete or a share
// of a conversion a tick, and ends the run after the last row.
//
// Not written yet: the entry loop and the file step. What is here is the end of the run
// for an exhausted list, so that the chain of timers is whole: notify the capture
// process, close the window up, then wait for the next hour or unload.
#include "config/CLogList.h"
#include "engine/Globals.h"
#include "engine/ProcessState.h"
#include "engine/frmProcessLogs.h"
#include "support/DebugMsg.h"

void frmProcessLogs::tmrProcess_Timer() {
  DebugMsg("Start tmrProcess_Timer", 5, 1);
  ProcessState& st = *m_pProcess;
  if (!st.bListInitialised) {
    DebugMsg("Initialise Processing List", -1, 0);
    st.iRowCount = 0;
    st.iEntry = 1;
    st.iRow = 1;
    st.bListInitialised = true;
  }
  // The entry loop goes here. With no rows the list is exhausted at once.
  if (st.iEntry > st.iRowCount) {
    DebugMsg("No more files (end of list)", -1, 0);
    st.bNoMoreFiles = true;
  }
  if (st.bNoMoreFiles || m_bShutdown) {
    // End the run.
    DebugMsg("No More Files", -1, 0);
    tmrProcess.stop();
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
    DebugMsg("Notify Server", -1, 0);
    SendToCapture("IDLE");
    if (m_bExitWhenDone || m_bShutdown) {
      DebugMsg("Shutting down", -1, 0);
      Unload();
    } else {
      DebugMsg("Start waiting", -1, 0);
      EnableTimer(tmrWait);
    }
    st.bListInitialised = false;
    st.bNoMoreFiles = false;
    DebugMsg("End tmrProcess_Timer", 5, 2);
    return;
  }
  DebugMsg("End tmrProcess_Timer", 5, 2);
}
