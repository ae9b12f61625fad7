#include "ui/frmProcessLogsWindow.h"

#include <QApplication>
#include <QCloseEvent>
#include <QFrame>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QLabel>
#include <QListWidget>
#include <QProgressBar>
#include <QPushButton>
#include <QScreen>
#include <QScrollBar>
#include <QStyle>
#include <QToolButton>
#include <QTreeView>

#include <algorithm>

#include <fmt/format.h>

#include "engine/frmProcessLogs.h"
#include "hours/CProcessEntryList.h"
#include "support/DebugMsg.h"
#include "ui/TabFrame.h"
#include "ui/WindowPlacement.h"
#include "ui/WorkListModel.h"
#include "ui/frmManualList.h"

namespace {

// Design size of the client area.
constexpr int kDesignWidth = 7710;
constexpr int kDesignHeight = 5490;
// The size limits set at load.
constexpr int kLoadMinHeight = 3030;
constexpr int kLoadMinWidth = 7815;
// The list view's columns: 1,440 twips each, the last (the sort key) none.
constexpr int kColumnWidth = 1440;
constexpr int kEfficiencyColumn = 4;

QLabel* MakeLabel(Control<QLabel>& oLabel, QWidget* pParent, int iLeft, int iTop, int iWidth, int iHeight,
                  const char* sText) {
  oLabel.Create(pParent, iLeft, iTop, iWidth, iHeight);
  oLabel->setTextFormat(Qt::PlainText);
  oLabel->setText(QString::fromUtf8(sText));
  return oLabel.Get();
}

}  // namespace

frmProcessLogsWindow::frmProcessLogsWindow(frmProcessLogs& oForm, QWidget* pParent)
    : QWidget(pParent), uHWndGrab1(this), m_oForm(oForm) {
  setWindowTitle("Log Processor");
  setFont(FormFont(font()));
  resize(TwipsToPixels(kDesignWidth), TwipsToPixels(kDesignHeight));
  CreateControls();

  // The size limits of the form at load; the closed layout replaces them.
  uHWndGrab1.SetMinHeight(kLoadMinHeight);
  uHWndGrab1.SetMinWidth(kLoadMinWidth);
  uHWndGrab1.SetLimitSize(true);
}

frmProcessLogsWindow::~frmProcessLogsWindow() {
  if (m_bBusyPointer) QApplication::restoreOverrideCursor();
}

void frmProcessLogsWindow::CreateControls() {
  QStyle* pStyle = style();

  // The "Actions" tab with the manual list buttons. Hidden, and nothing shows it.
  SSTab2.Create(this, 6360, 60, 1290, 5355, QStringLiteral("Actions"));
  picActions.Create(SSTab2.Get(), 180, 420, 915, 4755);
  cmdInsertList.Create(picActions.Get(), 60, 60, 735, 735);
  cmdInsertList->setToolTip("Create a manual list");
  cmdInsertList->setIcon(pStyle->standardIcon(QStyle::SP_FileDialogDetailedView));
  cmdInsertList->setIconSize(QSize(32, 32));
  cmdInsertListNow.Create(picActions.Get(), 60, 855, 735, 735);
  cmdInsertListNow->setToolTip("Create a manual list for immediate execution");
  cmdInsertListNow->setIcon(pStyle->standardIcon(QStyle::SP_MediaSeekForward));
  cmdInsertListNow->setIconSize(QSize(32, 32));
  connect(cmdInsertList.Get(), &QToolButton::clicked, this, [this] { cmdInsertList_Click(); });
  connect(cmdInsertListNow.Get(), &QToolButton::clicked, this, [this] { cmdInsertListNow_Click(); });
  SSTab2.SetVisible(false);

  // The "Current Task" tab carries both layouts.
  SSTab1.Create(this, 60, 60, 6195, 5355, QStringLiteral("Current Task"));

  picDone.Create(SSTab1.Get(), 180, 420, 5835, 1515);
  cmdRestart.Create(picDone.Get(), 5040, 720, 675, 675);
  cmdRestart->setIcon(pStyle->standardIcon(QStyle::SP_BrowserReload));
  cmdRestart->setIconSize(QSize(32, 32));
  cmdRestart->setAutoDefault(false);
  connect(cmdRestart.Get(), &QPushButton::clicked, this, [this] { m_oForm.cmdRestart_Click(); });
  MakeLabel(lblAllDone, picDone.Get(), 180, 240, 5415, 495, "Log Processing Complete");
  lblAllDone->setFont(QFont(QStringLiteral("Verdana"), 14));

  fraActive.Create(SSTab1.Get(), 165, 420, 5850, 4815);
  fraActive->setFrameShape(QFrame::NoFrame);
  // A file list of "*.INf" files that the form carries and no code uses; it is kept out
  // of sight, where it would only cover the current file's caption.
  fileInfLister.Create(fraActive.Get(), 4680, 3540, 1215, 480);
  fileInfLister->setObjectName("*.INf");
  fileInfLister.SetVisible(false);

  lvwItems.Create(fraActive.Get(), 0, 0, 5850, 3375);
  m_pModel = std::make_unique<WorkListModel>(m_oForm.Rows());
  lvwItems->setModel(m_pModel.get());
  lvwItems->setRootIsDecorated(false);
  lvwItems->setItemsExpandable(false);
  lvwItems->setUniformRowHeights(true);
  lvwItems->setSortingEnabled(false);  // the engine keeps the rows in order
  lvwItems->setSelectionBehavior(QAbstractItemView::SelectRows);
  lvwItems->setSelectionMode(QAbstractItemView::SingleSelection);
  lvwItems->setEditTriggers(QAbstractItemView::NoEditTriggers);
  lvwItems->setAllColumnsShowFocus(true);
  lvwItems->header()->setStretchLastSection(false);
  lvwItems->header()->setSectionsMovable(false);
  for (int i = 0; i < kEfficiencyColumn; ++i) lvwItems->setColumnWidth(i, TwipsToPixels(kColumnWidth));
  lvwItems->setColumnHidden(kEfficiencyColumn, true);
  connect(lvwItems->selectionModel(), &QItemSelectionModel::selectionChanged, this,
          [this] { lvwItems_SelectionChanged(); });

  MakeLabel(lblCurrentFile, fraActive.Get(), 2340, 3540, 3495, 255, "");
  MakeLabel(Label5, fraActive.Get(), 120, 3570, 2115, 195, "File currently being processed");
  MakeLabel(Label2, fraActive.Get(), 120, 3840, 1935, 195, "Progress of the current file");
  prgFile.Create(fraActive.Get(), 60, 4080, 5835, 255);
  MakeLabel(Label3, fraActive.Get(), 120, 4320, 2055, 195, "Progress of the current hour");
  prgLog.Create(fraActive.Get(), 60, 4560, 5835, 255);
  for (QProgressBar* pBar : {prgFile.Get(), prgLog.Get()}) {
    pBar->setRange(0, 100);
    pBar->setValue(0);
    pBar->setTextVisible(false);
  }
}

// ---- The form's size and place.

int frmProcessLogsWindow::FormLeft() const { return PixelsToTwips(frameGeometry().left()); }
int frmProcessLogsWindow::FormTop() const { return PixelsToTwips(frameGeometry().top()); }
int frmProcessLogsWindow::FormWidth() const { return PixelsToTwips(frameGeometry().width()); }
int frmProcessLogsWindow::FormHeight() const { return PixelsToTwips(frameGeometry().height()); }
int frmProcessLogsWindow::ScaleWidth() const { return PixelsToTwips(width()); }
int frmProcessLogsWindow::ScaleHeight() const { return PixelsToTwips(height()); }

void frmProcessLogsWindow::MoveForm(int iLeft, int iTop, int iWidth, int iHeight) {
  const QSize oFrame = frameGeometry().size() - size();
  uHWndGrab1.Release();
  resize(std::max(1, TwipsToPixels(iWidth) - oFrame.width()), std::max(1, TwipsToPixels(iHeight) - oFrame.height()));
  move(TwipsToPixels(iLeft), TwipsToPixels(iTop));
  uHWndGrab1.Apply();
}

void frmProcessLogsWindow::SetWindowStateNormal() {
  if (!isMinimized() && !isMaximized() && !isFullScreen()) return;
  if (isVisible()) showNormal();
  else setWindowState(windowState() & ~(Qt::WindowMinimized | Qt::WindowMaximized | Qt::WindowFullScreen));
}

// ---- The layouts.

void frmProcessLogsWindow::SetProcessorActive(bool bActive) {
  // Leaving the open layout keeps its place for the next time it opens.
  if (m_bProcessorActive && !bActive) WindowPlacement::Save(kPlacementKey, *this);
  m_bProcessorActive = bActive;

  QRect oScreen(0, 0, 800, 600);
  if (const QScreen* pScreen = screen() ? screen() : QGuiApplication::primaryScreen()) oScreen = pScreen->geometry();
  const int iScreenWidth = PixelsToTwips(oScreen.width());
  const int iScreenHeight = PixelsToTwips(oScreen.height());

  if (bActive) {
    SetWindowStateNormal();
    picDone.SetVisible(false);
    fraActive.SetVisible(true);
    uHWndGrab1.SetLimitSize(false);
    if (!WindowPlacement::Restore(kPlacementKey, *this)) {
      // Never saved: the form's design size in the middle of the screen.
      const QSize oFrame = frameGeometry().size() - size();
      const int iWidth = kDesignWidth + PixelsToTwips(oFrame.width());
      const int iHeight = kDesignHeight + PixelsToTwips(oFrame.height());
      MoveForm(PixelsToTwips(oScreen.left()) + (iScreenWidth - iWidth) / 2,
               PixelsToTwips(oScreen.top()) + (iScreenHeight - iHeight) / 2, iWidth, iHeight);
    }
  } else {
    PlaceClosedBox();
    picDone.SetVisible(true);
    fraActive.SetVisible(false);
  }
}

void frmProcessLogsWindow::PlaceClosedBox() {
  QRect oScreen(0, 0, 800, 600);
  if (const QScreen* pScreen = screen() ? screen() : QGuiApplication::primaryScreen()) oScreen = pScreen->geometry();
  m_oPlacedFrame = frameGeometry().size() - size();
  MoveForm(PixelsToTwips(oScreen.left()) + (PixelsToTwips(oScreen.width()) - kClosedWidth) / 2,
           PixelsToTwips(oScreen.top()) + (PixelsToTwips(oScreen.height()) - kClosedHeight) / 2, kClosedWidth,
           kClosedHeight);
  // The closed box can't be sized.
  uHWndGrab1.SetMinHeight(FormHeight());
  uHWndGrab1.SetMaxHeight(FormHeight());
  uHWndGrab1.SetMinWidth(FormWidth());
  uHWndGrab1.SetMaxWidth(FormWidth());
  uHWndGrab1.SetLimitSize(true);
}

void frmProcessLogsWindow::CheckClosedBoxFrame() {
  // The window's frame is only known once the window is shown (with a window manager,
  // a moment later): the closed box's size is that of the whole window, so it is placed
  // again when the frame turns out other than it was taken to be.
  if (m_bProcessorActive || !isVisible() || isMinimized()) return;
  if (frameGeometry().size() - size() != m_oPlacedFrame) PlaceClosedBox();
}

void frmProcessLogsWindow::Form_Resize() {
  if (isMinimized()) return;
  DebugMsg("Start Resize Event", 5, 1);
  const int SW = ScaleWidth();
  const int SH = ScaleHeight();

  if (SW >= 3000) {
    SSTab2.SetLeft(SW - SSTab1.Left() - SSTab2.Width());
    SSTab1.SetWidth(SW - 2 * SSTab1.Left());
    fraActive.SetWidth(SSTab1.Width() - 2 * fraActive.Left());
    for (TwipControl* p :
         {static_cast<TwipControl*>(&prgLog), static_cast<TwipControl*>(&Label3), static_cast<TwipControl*>(&prgFile),
          static_cast<TwipControl*>(&Label2), static_cast<TwipControl*>(&Label5), static_cast<TwipControl*>(&lvwItems)})
      p->SetLeft(0);
    prgLog.SetWidth(fraActive.Width());
    prgFile.SetWidth(fraActive.Width());
    lvwItems.SetWidth(fraActive.Width());
    lblCurrentFile.SetLeft(Label5.Left() + Label5.Width() + 60);
    lblCurrentFile.SetWidth(fraActive.Width() - lblCurrentFile.Left());
    picDone.SetWidth(SSTab1.Width() - 2 * picDone.Left());
    cmdRestart.SetLeft(picDone.Width() - cmdRestart.Width() - 60);
  }

  if (SH >= 2000) {
    SSTab2.SetHeight(SH - 2 * SSTab2.Top());
    picActions.SetHeight(SSTab2.Height() - picActions.Top() - picActions.Left());
    SSTab1.SetHeight(SH - 2 * SSTab1.Top());
    fraActive.SetHeight(SSTab1.Height() - fraActive.Top() - fraActive.Left());
    // The bottom is stacked upward; the list takes what is left.
    prgLog.SetTop(fraActive.Height() - prgLog.Height());
    Label3.SetTop(prgLog.Top() - Label3.Height() - 15);
    prgFile.SetTop(Label3.Top() - prgFile.Height());
    Label2.SetTop(prgFile.Top() - Label2.Height() - 15);
    Label5.SetTop(Label2.Top() - Label5.Height() - 60);
    lblCurrentFile.SetTop(Label5.Top() + (Label5.Height() - lblCurrentFile.Height()) / 2);
    lvwItems.SetTop(0);
    lvwItems.SetHeight(lblCurrentFile.Top() - 60);
    picDone.SetHeight(SSTab1.Height() - fraActive.Top() - picDone.Left());
    cmdRestart.SetTop(picDone.Height() - cmdRestart.Height() - 60);
  }
  DebugMsg("End Resize Event", 5, 2);
}

// ---- What the engine shows.

void frmProcessLogsWindow::ShowForm() { show(); }

void frmProcessLogsWindow::SetBusyPointer(bool bBusy) {
  if (bBusy == m_bBusyPointer) return;
  m_bBusyPointer = bBusy;
  if (bBusy) QApplication::setOverrideCursor(Qt::WaitCursor);
  else QApplication::restoreOverrideCursor();
}

void frmProcessLogsWindow::SetAllDoneCaption(const std::string& sText) {
  lblAllDone->setText(QString::fromStdString(sText));
}

void frmProcessLogsWindow::SetCurrentFileCaption(const std::string& sText) {
  lblCurrentFile->setText(QString::fromStdString(sText));
}

void frmProcessLogsWindow::SetRestartEnabled(bool bEnabled) { cmdRestart->setEnabled(bEnabled); }

void frmProcessLogsWindow::SetFileProgress(int iPercent) { prgFile->setValue(std::clamp(iPercent, 0, 100)); }

void frmProcessLogsWindow::SetLogProgress(int iPercent) { prgLog->setValue(std::clamp(iPercent, 0, 100)); }

void frmProcessLogsWindow::RowsChanged() {
  // Reading the rows again keeps the place the operator scrolled to, as far as it goes.
  QScrollBar* pScroll = lvwItems->verticalScrollBar();
  const int iScroll = pScroll->value();
  m_bSyncingSelection = true;
  m_pModel->Refresh();
  m_bSyncingSelection = false;
  pScroll->setValue(std::min(iScroll, pScroll->maximum()));
  SelectEngineRow();
}

void frmProcessLogsWindow::SelectEngineRow() {
  m_bSyncingSelection = true;
  const int iRow = m_pModel->SelectedRow();
  if (iRow >= 1 && iRow <= m_pModel->rowCount()) {
    lvwItems->selectionModel()->setCurrentIndex(m_pModel->index(iRow - 1, 0),
                                                QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
  } else {
    lvwItems->selectionModel()->clearSelection();
  }
  m_bSyncingSelection = false;
}

void frmProcessLogsWindow::lvwItems_SelectionChanged() {
  if (m_bSyncingSelection) return;
  // The operator picked a row: the list's selection is the control's own state.
  const QModelIndexList aRows = lvwItems->selectionModel()->selectedRows();
  const int iRow = aRows.isEmpty() ? 0 : aRows.front().row() + 1;
  if (iRow <= m_pModel->rowCount()) m_oForm.SelectRow(iRow);
}

void frmProcessLogsWindow::Minimise() {
  if (isVisible()) showMinimized();
  else setWindowState((windowState() & ~Qt::WindowMaximized) | Qt::WindowMinimized);
}

void frmProcessLogsWindow::SaveWindowPosition() {
  // A minimised or maximised window leaves the stored position alone.
  if (isMinimized() || isMaximized() || isFullScreen()) return;
  WindowPlacement::Save(kPlacementKey, *this);
}

void frmProcessLogsWindow::CloseForm() {
  m_bFormUnloaded = true;
  if (!m_bInCloseEvent) close();
}

// ---- Window events.

void frmProcessLogsWindow::resizeEvent(QResizeEvent* pEvent) {
  QWidget::resizeEvent(pEvent);
  Form_Resize();
}

void frmProcessLogsWindow::showEvent(QShowEvent* pEvent) {
  QWidget::showEvent(pEvent);
  // The frame is known once the window is shown; the limits are of the whole window.
  uHWndGrab1.Apply();
  CheckClosedBoxFrame();
}

void frmProcessLogsWindow::moveEvent(QMoveEvent* pEvent) {
  QWidget::moveEvent(pEvent);
  CheckClosedBoxFrame();
}

void frmProcessLogsWindow::closeEvent(QCloseEvent* pEvent) {
  if (m_bFormUnloaded) {
    pEvent->accept();
    return;
  }
  // The operator closes the window: the form decides (and may ask).
  m_bInCloseEvent = true;
  const bool bClosed = m_oForm.RequestClose();
  m_bInCloseEvent = false;
  // While the question was open, the running cycle may have ended and unloaded the form.
  if (bClosed || m_bFormUnloaded) pEvent->accept();
  else pEvent->ignore();
}

// ---- Manual lists.

void frmProcessLogsWindow::cmdInsertList_Click() {
  if (auto oList = GetManualList()) InsertManualList(oList, -1);
}

void frmProcessLogsWindow::cmdInsertListNow_Click() {
  if (auto oList = GetManualList()) InsertManualList(oList, 2);
}

std::shared_ptr<CProcessEntryList> frmProcessLogsWindow::GetManualList() {
  auto pDialog = std::make_unique<frmManualList>(this);
  pDialog->exec();
  std::shared_ptr<CProcessEntryList> oList = pDialog->EntryList();
  pDialog.reset();
  return oList;
}

void frmProcessLogsWindow::InsertManualList(const std::shared_ptr<CProcessEntryList>& oList, int32_t lPosition) {
  DebugMsg("Start InsertManualList", 5, 1);
  // How the entries are to join the running work list (as rows, each owning its entry)
  // is not settled; the list is taken and left as it is.
  DebugMsg(fmt::format("Manual list of {} entries for position {}", oList ? oList->Count() : 0, lPosition), 10, 0);
  DebugMsg("End InsertManualList", 5, 2);
}
