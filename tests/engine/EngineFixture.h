#pragma once
// The set-up shared by the engine's tests: a fresh machine root, the clock at Monday
// 23 November 2026 10:05, the trace on at level 5 in the root's debug folder, no loggers
// loaded, the default logger list location, a listener on the capture side's handler, and
// a registry that has the processor convert one file at a time (the tests follow the
// work tick by tick).
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "config/CLog.h"
#include "config/CLogList.h"
#include "config/CStream.h"
#include "engine/Globals.h"
#include "engine/ProcessTestUtil.h"
#include "engine/WorkList.h"
#include "engine/frmProcessLogs.h"
#include "hours/CLogProcessEntry.h"
#include "support/AppGlobal.h"
#include "support/Clock.h"
#include "support/ConfigAccess.h"
#include "support/DebugMsg.h"
#include "support/Faults.h"
#include "support/MessageTransport.h"
#include "support/MsgBox.h"
#include "support/VbDate.h"

class EngineFixture : public TempRootTest {
 protected:
  void SetUp() override {
    TempRootTest::SetUp();
    proctest::App();
    proctest::ResetEngineState("");
    LogList().Clear();
    WriteRegistry(kOneAtATime);
    ASSERT_TRUE(m_oCapture.Bind(kCaptureHandler));
  }
  void TearDown() override {
    m_pForm.reset();
    m_oCapture.Close();
    LogList().Clear();
    SetMsgBoxHandler(nullptr);
    Faults::DisarmAll();
    Clock::Reset();
    AppGlobal::SetDebugMode(0);
    TempRootTest::TearDown();
  }

  static constexpr const char* kOneAtATime =
      "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4\\Log Processor]\r\n"
      "\"ConcurrentConversions\"=dword:00000001\r\n";
  // A registry file of these keys and values.
  void WriteRegistry(const std::string& sBody) {
    WriteFile("registry.reg", "Windows Registry Editor Version 5.00\r\n\r\n" + sBody);
    ConfigAccess::ClearCache();
  }
  // A loaded logger numbered iNum whose folder is <root>/drive_d/<sFolder>, audio deleted
  // after lDeleteHours.
  std::shared_ptr<CLog> AddLogger(int16_t iNum, const std::string& sFolder, int32_t lDeleteHours) {
    auto oLog = std::make_shared<CLog>();
    oLog->logNum(iNum);
    oLog->Name("Logger " + std::to_string(iNum));
    oLog->DeleteHours(lDeleteHours);
    auto oStream = std::make_shared<CStream>();
    oStream->logNum(iNum);
    oStream->LogPath("D:\\" + sFolder);
    LogList().Add(oLog, oStream);
    return oLog;
  }
  std::string Trace() const { return proctest::ReadBytes(DebugLog::CurrentFile()); }
  // The hour of the info file sInf of oLog, as a row of m_pForm's work list for eAct.
  void AddWorkRow(const std::shared_ptr<CLog>& oLog, const std::string& sInf, eAction eAct) {
    auto oEntry = std::make_shared<CLogProcessEntry>();
    oEntry->OpenInf(oLog, sInf);
    oEntry->Action(eAct);
    WorkListRow oRow;
    oRow.sKey = oEntry->Reference();
    oRow.sText = oLog->Name();
    oRow.pTag = oEntry;
    m_pForm->RowsForTesting().Add(std::move(oRow));
  }
  // Ticks m_pForm's processing until the run ends: the ticks it took, -1 when it didn't
  // end within iMaxTicks.
  int RunToEnd(int iMaxTicks = 200) {
    const size_t lEnds = Count(Trace(), "No More Files");
    for (int i = 1; i <= iMaxTicks; ++i) {
      m_pForm->tmrProcess_Timer();
      if (Count(Trace(), "No More Files") > lEnds) return i;
    }
    return -1;
  }
  static size_t Count(const std::string& s, const std::string& sPart) {
    size_t n = 0;
    for (size_t i = s.find(sPart); i != std::string::npos; i = s.find(sPart, i + 1)) ++n;
    return n;
  }
  // What the capture side has heard so far, in order.
  const std::vector<std::string>& Heard() {
    while (auto m = m_oCapture.Receive()) m_aHeard.push_back(m->Text);
    return m_aHeard;
  }
  bool Heard(const std::string& s) { return std::count(Heard().begin(), Heard().end(), s) > 0; }

  MessageEndpoint m_oCapture;
  std::vector<std::string> m_aHeard;
  std::unique_ptr<frmProcessLogs> m_pForm;
};
