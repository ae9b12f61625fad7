// knscreens: pictures of the log processor's window for the documentation.
//
//   xvfb-run -a -s "-screen 0 1280x1024x24" build/bin/knscreens docs
//
// Makes a throw-away machine root with three loggers and a few recorded hours that are
// due, runs a real cycle of the processor with its window on it, and writes into the
// folder given (default "docs"):
//   window-open.png    the open window during a conversion, with the work list
//   window-closed.png  the closed box at the end of the run
//   manual-list.png    the manual list dialog
#include <QApplication>
#include <QDir>
#include <QPixmap>
#include <QTimer>

#include <QLabel>
#include <QProgressBar>

#include <unistd.h>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include <fmt/format.h>

#include "engine/frmProcessLogs.h"
#include "support/AppGlobal.h"
#include "support/Clock.h"
#include "support/VbDate.h"
#include "ui/WorkListModel.h"
#include "ui/frmManualList.h"
#include "ui/frmProcessLogsWindow.h"

namespace {

std::string g_sRoot;

void WriteText(const std::string& sRel, const std::string& sText) {
  const std::string sPath = g_sRoot + "/" + sRel;
  QDir().mkpath(QString::fromStdString(sPath.substr(0, sPath.rfind('/'))));
  std::ofstream(sPath, std::ios::binary) << sText;
}

// A recorded segment: 44.1 kHz stereo 16-bit PCM with a tone.
void WriteSegment(const std::string& sRel, double dSeconds) {
  const uint32_t lFrames = static_cast<uint32_t>(dSeconds * 44100);
  std::string s;
  auto fnPut = [&s](uint32_t v, int iBytes) {
    for (int i = 0; i < iBytes; ++i) s += static_cast<char>((v >> (8 * i)) & 0xFF);
  };
  s += "RIFF";
  fnPut(36 + lFrames * 4, 4);
  s += "WAVEfmt ";
  for (uint32_t v : {16u, 1u | (2u << 16), 44100u, 176400u, 4u | (16u << 16)}) fnPut(v, 4);
  s += "data";
  fnPut(lFrames * 4, 4);
  for (uint32_t i = 0; i < lFrames; ++i) {
    const auto v = static_cast<uint16_t>(static_cast<int16_t>(8000 * std::sin(2 * M_PI * 440.0 * i / 44100)));
    fnPut(v | (static_cast<uint32_t>(v) << 16), 4);
  }
  WriteText(sRel, s);
}

// Output A recorded as PCM, standardised to 22.05 kHz stereo and archived to 22.05 kHz
// mono IMA ADPCM.
std::string Settings(const std::string& sName) {
  std::string s = "[General]\r\nName=" + sName +
                  "\r\nOutputCount=1\r\n[LogSettings]\r\nSegmentsPerHour=60\r\n[Logtypes]\r\n"
                  "FormatType0a=2\r\nFormatType1a=2\r\nFormatType2a=2\r\n";
  const int aiRate[3] = {44100, 22050, 22050}, aiChannels[3] = {2, 2, 1}, aiTag[3] = {1, 17, 17};
  for (int p = 0; p < 3; ++p)
    s += fmt::format("[OutputFormat{}a]\r\nSampleRate={}\r\nChannels={}\r\nFormatTag={}\r\n", p, aiRate[p],
                     aiChannels[p], aiTag[p]);
  return s;
}

// An hour of logger iLog ("yyyymmdd", "hh") with its info file and one segment.
void Hour(int iLog, const std::string& sDay, const std::string& sHour, const std::string& sStandard,
          const std::string& sArchive, const std::string& sDelete, double dSeconds) {
  const std::string sFolder = fmt::format("drive_d/Kestrane/Logger{}/{}/{}00/", iLog, sDay, sHour);
  WriteText(sFolder + sHour + "0000.inf",
            "[General]\r\nVersion=4.0\r\n[Segments]\r\nNumSegs=60\r\n[ActionDates]\r\n"
            "StandardAudioAt=" +
                sStandard + "\r\nArchiveAudioAt=" + sArchive + "\r\nDeleteAudioAt=" + sDelete + "\r\n");
  WriteSegment(sFolder + sHour + "0000A.wav", dSeconds);
}

void MakeMachine() {
  std::string s =
      "Windows Registry Editor Version 5.00\r\n\r\n"
      "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4\\Log Processor]\r\n"
      "\"PrepareTimerInterval\"=dword:0000000a\r\n\"ProcessTimerInterval\"=dword:0000012c\r\n\r\n"
      "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4\\Capture]\r\n\"LogCount\"=dword:00000003\r\n";
  const char* asNames[3] = {"Studio One", "Newsroom", "Traffic Desk"};
  for (int i = 1; i <= 3; ++i) {
    s += fmt::format(
        "\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4\\Capture\\Logger{}]\r\n"
        "\"LogPath\"=\"D:\\\\Kestrane\\\\Logger{}\"\r\n\"Enabled\"=dword:ffffffff\r\n",
        i, i);
    WriteText(fmt::format("drive_d/Kestrane/Logger{}/Kestrane.ini", i), Settings(asNames[i - 1]));
  }
  WriteText("registry.reg", s);
  const char* kLater = "2027-01-22 00:00";
  Hour(1, "20261122", "13", "2026-11-22 14:00", "2026-12-22 00:00", kLater, 40);
  Hour(1, "20261122", "14", "2026-11-22 15:00", "2026-12-22 00:00", kLater, 40);
  Hour(1, "20261023", "09", "-1", "-1", "2026-11-22 09:00", 2);
  Hour(2, "20261122", "07", "2026-11-22 08:00", "2026-11-23 00:00", kLater, 40);
  Hour(2, "20261121", "22", "-1", "2026-11-22 22:00", kLater, 40);
  Hour(3, "20261122", "06", "2026-11-22 07:00", "2026-12-22 00:00", kLater, 40);
  Hour(3, "20261024", "18", "-1", "-1", "2026-11-23 06:00", 2);
}

bool Save(QWidget& oWidget, const QString& sFile) {
  for (int i = 0; i < 10; ++i) QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
  const QPixmap oPicture = oWidget.grab();
  if (oPicture.isNull() || !oPicture.save(sFile, "PNG")) {
    std::fprintf(stderr, "knscreens: cannot write %s\n", qPrintable(sFile));
    return false;
  }
  std::printf("%s (%dx%d)\n", qPrintable(sFile), oPicture.width(), oPicture.height());
  std::fflush(stdout);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  const QString sFolder = QDir().absoluteFilePath(argc > 1 ? QString::fromLocal8Bit(argv[1]) : QStringLiteral("docs"));
  const QString sRoot = QDir(QDir::tempPath()).filePath(QStringLiteral("knscreens-%1").arg(getpid()));
  g_sRoot = sRoot.toStdString();
  setenv("KESTRANE_ROOT", g_sRoot.c_str(), 1);
  MakeMachine();
  // The hours above are due on Monday 23 November 2026, 10:05.
  Clock::SetFixed(VbDate::Make({2026, 11, 23, 10, 5, 0}));
  AppGlobal::SetCommandLine("/KEEPALIVE");

  static int s_iArgc = 1;
  static char s_szName[] = "knscreens";
  static char* s_apArgv[] = {s_szName, nullptr};
  QApplication oApp(s_iArgc, s_apArgv);
  QDir().mkpath(sFolder);
  int iResult = 1;
  {
    frmProcessLogs oForm;
    frmProcessLogsWindow oWindow(oForm);
    oForm.SetView(&oWindow);
    bool bOpenSaved = false;
    QTimer oWatch;
    oWatch.setInterval(20);
    QObject::connect(&oWatch, &QTimer::timeout, [&] {
      // A conversion half-way, with the rest of the list still waiting.
      const int iFile = oWindow.prgFile->value();
      if (!bOpenSaved && oWindow.lblCurrentFile->text().contains(".wav - ") && iFile >= 40 && iFile <= 70 &&
          oWindow.lvwItemsModel().rowCount() >= 4) {
        bOpenSaved = Save(oWindow, QDir(sFolder).filePath("window-open.png"));
        if (!bOpenSaved) oApp.exit(1);
      }
      // The end of the run: the closed box (minimised, but drawn all the same).
      if (oForm.tmrWait().isActive()) {
        oWatch.stop();
        bool bOk = bOpenSaved && Save(oWindow, QDir(sFolder).filePath("window-closed.png"));
        frmManualList oDialog(&oWindow);
        oDialog.show();
        bOk = Save(oDialog, QDir(sFolder).filePath("manual-list.png")) && bOk;
        if (!bOpenSaved) std::fprintf(stderr, "knscreens: the run ended before a conversion could be seen\n");
        oApp.exit(bOk ? 0 : 1);
      }
    });
    QTimer::singleShot(180000, [&] {
      std::fprintf(stderr, "knscreens: the run did not end in time\n");
      oApp.exit(1);
    });
    oForm.Load();
    oWatch.start();
    iResult = oApp.exec();
    oForm.SetView(nullptr);
  }
  QDir(sRoot).removeRecursively();
  return iResult;
}
