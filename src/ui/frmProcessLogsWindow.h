#pragma once
// The window of the log processor: "Log Processor", a view of the engine
// (frmProcessLogs). It has two layouts: the closed one, a fixed-size box in the middle of
// the screen that says that processing is finished (picDone), and the open one with the
// work list, the current file and two progress bars (fraActive). The engine switches
// between them and feeds the captions, the bars and the rows; the window hands the
// operator's restart and close back to the engine.
//
// All geometry is in twips (15 to a pixel), as the form was designed; Form_Resize keeps
// the list growing with the window and the bars at the bottom.
#include <QWidget>

#include <cstdint>
#include <memory>
#include <string>

#include "engine/IProcessorView.h"
#include "ui/TwipControl.h"
#include "ui/uHWndGrab.h"

class CProcessEntryList;
class QFrame;
class QLabel;
class QListWidget;
class QProgressBar;
class QPushButton;
class QToolButton;
class QTreeView;
class TabFrame;
class WorkListModel;
class frmProcessLogs;

class frmProcessLogsWindow : public QWidget, public IProcessorView {
  Q_OBJECT

 public:
  // The registry key of the saved window position.
  static constexpr const char* kPlacementKey = "SOFTWARE\\Norvane\\Kestrane v4\\LogProcessor";
  // The closed layout: a box of this size (twips, frame included) in the middle of the screen.
  static constexpr int kClosedWidth = 7980;
  static constexpr int kClosedHeight = 3000;

  explicit frmProcessLogsWindow(frmProcessLogs& oForm, QWidget* pParent = nullptr);
  ~frmProcessLogsWindow() override;

  // IProcessorView.
  void ShowForm() override;
  void SetBusyPointer(bool bBusy) override;
  void SetProcessorActive(bool bActive) override;
  void SetAllDoneCaption(const std::string& sText) override;
  void SetCurrentFileCaption(const std::string& sText) override;
  void SetRestartEnabled(bool bEnabled) override;
  void SetFileProgress(int iPercent) override;
  void SetLogProgress(int iPercent) override;
  void RowsChanged() override;
  void Minimise() override;
  void SaveWindowPosition() override;
  void CloseForm() override;

  bool ProcessorActive() const { return m_bProcessorActive; }

  // The form's own size and place, in twips of the whole window (frame included), and
  // its inner size (ScaleWidth, ScaleHeight).
  int FormLeft() const;
  int FormTop() const;
  int FormWidth() const;
  int FormHeight() const;
  int ScaleWidth() const;
  int ScaleHeight() const;
  // Moves and sizes the whole window, in twips, whatever the size limits say.
  void MoveForm(int iLeft, int iTop, int iWidth, int iHeight);

  // Keeps the controls in place when the window is sized; nothing while minimised.
  void Form_Resize();

  // The controls, nested as on the form.
  uHWndGrab uHWndGrab1;
  Control<TabFrame> SSTab2;               // "Actions", hidden
  Control<QWidget> picActions;            // in SSTab2
  Control<QToolButton> cmdInsertList;     // in picActions
  Control<QToolButton> cmdInsertListNow;  // in picActions
  Control<TabFrame> SSTab1;               // "Current Task"
  Control<QWidget> picDone;               // in SSTab1: the closed layout's panel
  Control<QPushButton> cmdRestart;        // in picDone
  Control<QLabel> lblAllDone;             // in picDone
  Control<QFrame> fraActive;              // in SSTab1: the open layout's panel
  Control<QListWidget> fileInfLister;     // in fraActive, used by nothing
  Control<QTreeView> lvwItems;            // in fraActive: the work list
  Control<QLabel> lblCurrentFile;         // in fraActive
  Control<QLabel> Label5;
  Control<QLabel> Label2;
  Control<QProgressBar> prgFile;
  Control<QLabel> Label3;
  Control<QProgressBar> prgLog;

  WorkListModel& lvwItemsModel() const { return *m_pModel; }

  // The two buttons of the "Actions" panel: a manual list, added at the end of the work
  // list or directly behind the entry being worked on.
  void cmdInsertList_Click();
  void cmdInsertListNow_Click();

 protected:
  void resizeEvent(QResizeEvent* pEvent) override;
  void showEvent(QShowEvent* pEvent) override;
  void moveEvent(QMoveEvent* pEvent) override;
  void closeEvent(QCloseEvent* pEvent) override;

 private:
  void CreateControls();
  void SetWindowStateNormal();
  void PlaceClosedBox();
  void CheckClosedBoxFrame();
  void SelectEngineRow();
  void lvwItems_SelectionChanged();
  // Shows the manual list dialog modally and returns the list it built.
  std::shared_ptr<CProcessEntryList> GetManualList();
  // Puts a manual list into the work list at a position of CProcessEntryList::Insert.
  void InsertManualList(const std::shared_ptr<CProcessEntryList>& oList, int32_t lPosition);

  frmProcessLogs& m_oForm;
  std::unique_ptr<WorkListModel> m_pModel;
  bool m_bProcessorActive = false;
  QSize m_oPlacedFrame;  // the frame the closed box was placed with
  bool m_bBusyPointer = false;
  bool m_bSyncingSelection = false;
  bool m_bInCloseEvent = false;
  bool m_bFormUnloaded = false;
};
