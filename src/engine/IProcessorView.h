#pragma once
// What the processor engine asks of its window. The engine keeps the state itself
// (captions, progress, layout flag) and tells the view each change; a headless run has
// no view at all. The view calls back into the engine for the operator's actions:
// frmProcessLogs::cmdRestart_Click() for the restart button and
// frmProcessLogs::RequestClose() when the operator closes the window (keep the window
// open when it returns false).
//
// Every call comes on the thread of the event loop, from inside an engine handler.
#include <string>

class IProcessorView {
 public:
  virtual ~IProcessorView() = default;

  // The form has loaded: make the window visible (the closed layout is already set).
  virtual void ShowForm() = 0;
  // The hourglass pointer while the form loads (true), the default pointer after (false).
  virtual void SetBusyPointer(bool bBusy) = 0;

  // The layout switch. true: save nothing, set the window state to normal, show the
  // work-list panel (fraActive), lift the size limits and restore the saved position.
  // false: save the position if the open layout is being left, move to the centred
  // closed box (7,980 by 3,000 twips), fix its size and show the done panel (picDone).
  // The engine sets the lblAllDone caption and the cmdRestart state right after this
  // call through the two setters below.
  virtual void SetProcessorActive(bool bActive) = 0;

  virtual void SetAllDoneCaption(const std::string& sText) = 0;      // lblAllDone
  virtual void SetCurrentFileCaption(const std::string& sText) = 0;  // lblCurrentFile
  virtual void SetRestartEnabled(bool bEnabled) = 0;                 // cmdRestart
  virtual void SetFileProgress(int iPercent) = 0;                    // prgFile, 0 to 100
  virtual void SetLogProgress(int iPercent) = 0;                     // prgLog, 0 to 100

  // The rows of the work list (lvwItems) changed: added, removed, cleared or sorted.
  virtual void RowsChanged() = 0;

  // Window state 1 (minimised), at the end of a cycle.
  virtual void Minimise() = 0;

  // The form unloads: save the window position if the window state is normal
  // (a minimised or maximised window leaves the stored position alone).
  virtual void SaveWindowPosition() = 0;

  // The form has unloaded; the window goes.
  virtual void CloseForm() = 0;
};
