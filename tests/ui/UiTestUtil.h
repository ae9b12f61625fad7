#pragma once
// What the window tests share: the application object on the offscreen platform, an
// event loop that runs until something holds, and a machine root with loggers.
#include <QApplication>
#include <QElapsedTimer>

#include <cstdlib>
#include <functional>
#include <string>

#include <fmt/format.h>

#include "common/TempRoot.h"
#include "common/TestUtil.h"
#include "support/ConfigAccess.h"

// Qt's font set-up keeps fontconfig's caches for the life of the process.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the name LeakSanitizer looks for
extern "C" const char* __lsan_default_suppressions() { return "leak:libfontconfig.so\n"; }

inline QApplication& UiApp() {
  static QApplication* s_pApp = [] {
    // ctest sets the platform; a run by hand gets the same.
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    static int s_iArgc = 1;
    static char s_szName[] = "ui_test";
    static char* s_apArgv[] = {s_szName, nullptr};
    // The offscreen platform can't pass size limits on to a window manager, and says so
    // for every window that has them.
    static QtMessageHandler s_fnPrevious =
        qInstallMessageHandler([](QtMsgType eType, const QMessageLogContext& oContext, const QString& sText) {
          if (!sText.contains("propagateSizeHints")) s_fnPrevious(eType, oContext, sText);
        });
    auto* pApp = new QApplication(s_iArgc, s_apArgv);
    pApp->setQuitOnLastWindowClosed(false);
    return pApp;
  }();
  return *s_pApp;
}

// The registry of a machine with iLoggers loggers under D:\Kestrane\LoggerN, and the
// timer intervals of the processor, which converts one file at a time (the window's bars
// are followed share by share).
inline std::string RegistryWithLoggers(int iLoggers, int iPrepareMs, int iProcessMs) {
  std::string s = "Windows Registry Editor Version 5.00\r\n\r\n";
  s += "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4\\Log Processor]\r\n";
  s += fmt::format("\"PrepareTimerInterval\"=dword:{:08x}\r\n", iPrepareMs);
  s += fmt::format("\"ProcessTimerInterval\"=dword:{:08x}\r\n", iProcessMs);
  s += "\"ConcurrentConversions\"=dword:00000001\r\n\r\n";
  s += "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4\\Capture]\r\n";
  s += fmt::format("\"LogCount\"=dword:{:08x}\r\n", iLoggers);
  for (int i = 1; i <= iLoggers; ++i) {
    s += fmt::format("\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4\\Capture\\Logger{}]\r\n", i);
    s += fmt::format("\"LogPath\"=\"D:\\\\Kestrane\\\\Logger{}\"\r\n", i);
    s += "\"Enabled\"=dword:ffffffff\r\n";
  }
  return s;
}
