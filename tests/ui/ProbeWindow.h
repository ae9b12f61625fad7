#pragma once
// The real window, noting what it shows each time the engine sets a caption or a bar.
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>

#include <string>
#include <vector>

#include "engine/WorkList.h"
#include "engine/frmProcessLogs.h"
#include "ui/WorkListModel.h"
#include "ui/frmProcessLogsWindow.h"

// What the window showed at one moment.
struct Snapshot {
  std::string sCurrentFile;
  std::string sAllDone;
  bool bOpenShown = false;  // fraActive
  bool bDoneShown = false;  // picDone
  bool bRestartEnabled = false;
  bool bMinimised = false;
  int iFile = -1;
  int iLog = -1;
  int iRows = 0;
  int iScaleWidth = 0;  // the client area, in twips
  int iScaleHeight = 0;
  // The rows as the list view shows them: "name|log time|action time|action|efficiency".
  std::vector<std::string> aRows;
};

class ProbeWindow : public frmProcessLogsWindow {
 public:
  using frmProcessLogsWindow::frmProcessLogsWindow;
  std::vector<Snapshot> aFileCaptions;
  std::vector<Snapshot> aAllDoneCaptions;
  std::vector<Snapshot> aFileProgress;

  void SetCurrentFileCaption(const std::string& s) override {
    frmProcessLogsWindow::SetCurrentFileCaption(s);
    aFileCaptions.push_back(Take());
  }
  void SetAllDoneCaption(const std::string& s) override {
    frmProcessLogsWindow::SetAllDoneCaption(s);
    aAllDoneCaptions.push_back(Take());
  }
  void SetFileProgress(int i) override {
    frmProcessLogsWindow::SetFileProgress(i);
    aFileProgress.push_back(Take());
  }
  Snapshot Take() const {
    Snapshot o;
    o.sCurrentFile = lblCurrentFile->text().toStdString();
    o.sAllDone = lblAllDone->text().toStdString();
    o.bOpenShown = fraActive.Visible();
    o.bDoneShown = picDone.Visible();
    o.bRestartEnabled = cmdRestart->isEnabled();
    o.bMinimised = isMinimized();
    o.iFile = prgFile->value();
    o.iLog = prgLog->value();
    o.iScaleWidth = ScaleWidth();
    o.iScaleHeight = ScaleHeight();
    const WorkListModel& oModel = lvwItemsModel();
    o.iRows = oModel.rowCount();
    for (int r = 0; r < o.iRows; ++r) {
      std::string sRow;
      for (int c = 0; c < oModel.columnCount(); ++c)
        sRow += (c ? "|" : "") + oModel.index(r, c).data().toString().toStdString();
      o.aRows.push_back(sRow);
    }
    return o;
  }
  const Snapshot* FirstWithFile(const std::string& s) const {
    for (const auto& o : aFileCaptions)
      if (o.sCurrentFile == s) return &o;
    return nullptr;
  }
};
