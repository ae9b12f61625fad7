// knscreens: pictures of the log processor's window for the documentation.
//
//   xvfb-run -s "-screen 0 1280x1024x24" build/bin/knscreens docs
//
// writes window-closed.png (the closed box at the end of a run), window-open.png (the
// open layout with a work list during a conversion) and manual-list.png (the manual
// list dialog) into the folder given (default "docs"). The window is the real one; the
// rows, captions and bars are set through its view interface as the engine sets them,
// on a throw-away machine root, so the pictures don't depend on any audio on disk.
#include <QApplication>
#include <QDir>
#include <QPixmap>
#include <QTimer>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "engine/WorkList.h"
#include "engine/frmProcessLogs.h"
#include "ui/frmManualList.h"
#include "ui/frmProcessLogsWindow.h"

namespace {

void Settle() {
  for (int i = 0; i < 20; ++i) QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
}

bool Save(QWidget& oWidget, const QString& sFile) {
  Settle();
  const QPixmap oPicture = oWidget.grab();
  if (oPicture.isNull() || !oPicture.save(sFile, "PNG")) {
    std::fprintf(stderr, "knscreens: cannot write %s\n", qPrintable(sFile));
    return false;
  }
  std::printf("%s (%dx%d)\n", qPrintable(sFile), oPicture.width(), oPicture.height());
  return true;
}

void AddRow(WorkList& oRows, const char* sLogger, const char* sLogTime, const char* sActionTime,
            const char* sAction, const char* sEfficiency) {
  WorkListRow oRow;
  oRow.sKey = std::string(sLogger) + sLogTime;
  oRow.sText = sLogger;
  oRow.SubItem(WorkListRow::kLogTime) = sLogTime;
  oRow.SubItem(WorkListRow::kActionTime) = sActionTime;
  oRow.SubItem(WorkListRow::kAction) = sAction;
  oRow.SubItem(WorkListRow::kEfficiency) = sEfficiency;
  oRows.Add(oRow);
}

}  // namespace

int main(int argc, char** argv) {
  const QString sFolder = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QStringLiteral("docs");
  // The saved window place goes to a machine root of its own, not the real one.
  QDir oTemp(QDir::tempPath());
  const QString sRoot = oTemp.filePath(QStringLiteral("knscreens-%1").arg(QCoreApplication::applicationPid()));
  QDir().mkpath(sRoot);
  setenv("KESTRANE_ROOT", sRoot.toLocal8Bit().constData(), 1);

  static int s_iArgc = 1;
  static char s_szName[] = "knscreens";
  static char* s_apArgv[] = {s_szName, nullptr};
  QApplication oApp(s_iArgc, s_apArgv);
  QDir().mkpath(sFolder);
  bool bOk = true;
  {
    frmProcessLogs oForm;
    frmProcessLogsWindow oWindow(oForm);
    oWindow.show();

    // The end of a run: the closed box.
    oWindow.SetProcessorActive(false);
    oWindow.SetAllDoneCaption("Log Processing Complete");
    oWindow.SetRestartEnabled(true);
    bOk &= Save(oWindow, QDir(sFolder).filePath("window-closed.png"));

    // A conversion under way: the sorted work list, the file and both bars.
    oWindow.SetProcessorActive(true);
    oWindow.SetAllDoneCaption("Processing...");
    oWindow.SetRestartEnabled(false);
    WorkList& oRows = oForm.lvwItems;
    AddRow(oRows, "Studio One", "2026-11-20 13:00", "2026-11-21 13:00", "Standardise", "P075");
    AddRow(oRows, "Studio One", "2026-10-23 09:00", "2026-11-22 09:00", "Delete", "P100");
    AddRow(oRows, "Newsroom", "2026-11-20 14:00", "2026-11-21 14:00", "Standardise", "P075");
    AddRow(oRows, "Newsroom", "2026-11-09 22:00", "2026-11-22 22:00", "Archive", "P087");
    AddRow(oRows, "Traffic Desk", "2026-11-21 06:00", "2026-11-22 06:00", "Standardise", "P050");
    AddRow(oRows, "Traffic Desk", "2026-11-21 07:00", "2026-11-22 07:00", "Standardise", "P050");
    AddRow(oRows, "Studio Two", "2026-11-21 18:00", "2026-11-22 18:00", "Archive", "N012");
    oRows.SortByEfficiencyDescending();
    oRows.Select(1);
    oWindow.RowsChanged();
    oWindow.SetCurrentFileCaption("090000B.wav - 2026-11-09 22:00:00");
    oWindow.SetFileProgress(64);
    oWindow.SetLogProgress(33);
    bOk &= Save(oWindow, QDir(sFolder).filePath("window-open.png"));

    // The manual list dialog, as it opens.
    frmManualList oDialog(&oWindow);
    oDialog.show();
    bOk &= Save(oDialog, QDir(sFolder).filePath("manual-list.png"));
  }
  QDir(sRoot).removeRecursively();
  return bOk ? 0 : 1;
}
