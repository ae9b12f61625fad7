// Entry point of the log processor: the application object, the stop signals, the entry
// routine Main, and the event loop for as long as the main form is loaded.
#include <QApplication>
#include <QCoreApplication>

#include <clocale>
#include <cstdlib>
#include <memory>

#include "engine/CommandLine.h"
#include "engine/Main.h"
#include "engine/ServiceMonitor.h"
#include "engine/StopSignals.h"
#include "engine/frmProcessLogs.h"
#include "support/AppGlobal.h"
#include "ui/QtMsgBox.h"
#include "ui/frmProcessLogsWindow.h"

namespace {

bool HasDisplay() {
  for (const char* sName : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"}) {
    const char* s = std::getenv(sName);
    if (s && *s) return true;
  }
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  AppGlobal::SetCommandLine(CommandLine::Join(argc, argv));

  // Qt reads options of its own from the arguments (-platform, -style, ...). The
  // program's command line is its own business, so Qt sees the program name alone.
  static int s_iQtArgc = 1;
  static char s_szName[] = "knlogproc";
  static char* s_apQtArgv[] = {s_szName, nullptr};
  std::unique_ptr<QCoreApplication> pApp;
  // A display that can't be reached (a stale DISPLAY, a server gone) must not stop the
  // processor: Qt then falls back to drawing for nobody, and the run goes on as it
  // would headless.
  const char* sPlatform = std::getenv("QT_QPA_PLATFORM");
  if (HasDisplay() && !(sPlatform && *sPlatform))
    setenv("QT_QPA_PLATFORM", std::getenv("WAYLAND_DISPLAY") ? "wayland;xcb;offscreen" : "xcb;offscreen", 1);
  if (HasDisplay()) pApp = std::make_unique<QApplication>(s_iQtArgc, s_apQtArgv);
  else pApp = std::make_unique<QCoreApplication>(s_iQtArgc, s_apQtArgv);
  // The application object sets every category of the C locale from the environment.
  // Numbers in the registry, the settings and hour files and the traces are read and
  // written with "." whatever the server's language, so the numeric category goes back
  // to "C" (texts and messages keep the operator's locale).
  setlocale(LC_NUMERIC, "C");

  // With a display the form gets its window, and message boxes are real ones (unless the
  // platform draws for nobody, as offscreen does: then they answer at once).
  std::unique_ptr<frmProcessLogsWindow> pWindow;
  if (auto* pGui = qobject_cast<QApplication*>(pApp.get())) {
    // The form decides when the program ends, not the last window.
    pGui->setQuitOnLastWindowClosed(false);
    QtMsgBox::Install();
    SetViewFactory([&pWindow](frmProcessLogs& oForm) -> IProcessorView* {
      pWindow = std::make_unique<frmProcessLogsWindow>(oForm);
      return pWindow.get();
    });
  }

  StopSignals oStop;
  oStop.Install();

  int iResult = 0;
  // The status files and systemd's supervision; a plan run has neither. It outlives the
  // form, which tells it of the unload.
  std::unique_ptr<ServiceMonitor> pMonitor;
  if (Main()) {
    frmProcessLogs* pForm = MainForm();
    if (!pForm->PlanOnly()) {
      pMonitor = std::make_unique<ServiceMonitor>();
      pForm->SetObserver(pMonitor.get());
    }
    QObject::connect(&oStop, &StopSignals::StopRequested, pForm, [pForm](int) { pForm->HandleAppMessage("SHUTDOWN"); });
    QObject::connect(pForm, &frmProcessLogs::Unloaded, pApp.get(), &QCoreApplication::quit, Qt::QueuedConnection);
    if (pForm->IsLoaded()) iResult = pApp->exec();
    pForm->SetView(nullptr);
    pWindow.reset();
    ReleaseMainForm();
  }
  return iResult;
}
