#pragma once
// Helpers shared by the configuration tests: a trace that goes to a file of the test's
// machine root, a registry written as the registry editor exports it, a settings file.
#include <string>

#include "common/TempRoot.h"
#include "support/AppGlobal.h"
#include "support/ConfigAccess.h"
#include "support/DebugMsg.h"

class ConfigTest : public TempRootTest {
 protected:
  void SetUp() override {
    TempRootTest::SetUp();
    AppGlobal::SetApplication(Root(), "knlogproc");
    AppGlobal::SetDebugPath(Root() + "/dbg/");
    AppGlobal::SetDebugMode(-1);
    DebugLog::ResetForTesting();
  }
  void TearDown() override {
    AppGlobal::SetDebugMode(0);
    AppGlobal::SetDebugPath("");
    TempRootTest::TearDown();
  }
  // Everything traced so far in this test.
  std::string Trace() const { return ReadFile(DebugLog::CurrentFile().substr(Root().size() + 1)); }
  // The registry file, from "[key]" and value lines below the header.
  void WriteRegistry(const std::string& sBody) const {
    WriteFile("registry.reg", "Windows Registry Editor Version 5.00\r\n\r\n" + sBody);
    ConfigAccess::ClearCache();
  }
  // <root>/drive_d/<rel>
  std::string DriveD(const std::string& sRel) const { return PathIn("drive_d/" + sRel); }
};
