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
#include "engine/frmProcessLogs.h"
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
