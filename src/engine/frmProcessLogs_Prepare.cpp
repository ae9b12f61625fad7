// The work-list preparation: tmrPrepareLists_Timer walks every logger's day and hour
// folders a few entries a tick and builds the work list.
//
// Not written yet: the walk itself. What is here keeps the chain of timers whole: a
// tick with m_bShutdown set unloads the form; any other tick hands an empty work list
// over to the hour processing.
#include "engine/PrepareState.h"
#include "engine/frmProcessLogs.h"
#include "support/DebugMsg.h"

void frmProcessLogs::tmrPrepareLists_Timer() {
  DebugMsg("Start Prepare List Timer Sub", 5, 1);
  if (m_bShutdown) {
    tmrPrepareLists.stop();
    Unload();
    DebugMsg("Exit Prepare List Timer Sub (Shutdown)", 5, 2);
    return;
  }
  SetCurrentFileCaption("Preparing Lists ...");
  SetFileProgress(0);
  SetLogProgress(0);
  // The walk of the loggers' folders goes here; it ends as below when all are scanned.
  tmrPrepareLists.stop();
  EnableTimer(tmrProcess);
  DebugMsg("End Prepare List Timer Sub", 5, 2);
}
