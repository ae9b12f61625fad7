// The processor lowers the CPU priority and I/O class of all its threads at start, unless
// "LowerPriority" is 0; read back from the kernel while it runs.
#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <charconv>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>

#include "RunningProgram.h"

namespace {

constexpr int kIdleClass = 3;

int IoClass(int iTid) {
  const long l = ::syscall(SYS_ioprio_get, 1 /* one process or thread */, iTid);
  return l < 0 ? -1 : static_cast<int>(l >> 13);
}

// The nice value of a thread: field 19 of its stat line, the 17th after the name.
int NiceOf(const std::string& sStatFile) {
  const std::string s = proctest::ReadBytes(sStatFile);
  std::istringstream in(s.substr(s.rfind(')') + 1));
  std::string sField;
  for (int i = 0; i < 17 && in >> sField; ++i) {
  }
  int iNice = 99;
  std::from_chars(sField.data(), sField.data() + sField.size(), iNice);
  return iNice;
}

}  // namespace

using PriorityTest = ProcessorTest;

TEST_F(PriorityTest, ThreadsRunNicedAndIdleUnlessTurnedOff) {
  errno = 0;
  const int iOwnNice = ::getpriority(PRIO_PROCESS, 0);
  const int iOwnClass = IoClass(0);
  if (iOwnNice >= 10 || iOwnClass == kIdleClass || iOwnClass < 0)
    GTEST_SKIP() << "this test runs at nice " << iOwnNice << ", I/O class " << iOwnClass
                 << ": a lowered processor could not be told apart";
  struct Case {
    std::string sValue;  // the registry line, empty for none
    bool bLowered;
  };
  for (const Case& c : {Case{"", true}, Case{"\"LowerPriority\"=dword:00000001\r\n", true},
                        Case{"\"LowerPriority\"=dword:00000000\r\n", false}}) {
    SCOPED_TRACE(c.sValue.empty() ? "no value" : c.sValue);
    std::filesystem::remove_all(PathIn("drive_c/DebugFiles"));
    WriteFile("registry.reg",
              "Windows Registry Editor Version 5.00\r\n\r\n"
              "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4\\Log Processor]\r\n" +
                  c.sValue);
    RunningProgram oProc;
    ASSERT_TRUE(oProc.Start(m_sProgram, {"/DEBUG", "/KEEPALIVE"}, PathIn("out.txt")));
    ASSERT_TRUE(WaitForTrace("No Logs Found: Reset wait timer")) << Trace();

    std::map<int, std::pair<int, int>> aThreads;  // thread id -> nice, I/O class
    const std::string sTasks = "/proc/" + std::to_string(oProc.Pid()) + "/task";
    for (const auto& e : std::filesystem::directory_iterator(sTasks)) {
      const int iTid = std::stoi(e.path().filename().string());
      aThreads[iTid] = {NiceOf(e.path().string() + "/stat"), IoClass(iTid)};
    }
    ASSERT_FALSE(aThreads.empty());
    for (const auto& [iTid, p] : aThreads) {
      EXPECT_EQ(p.first, c.bLowered ? 10 : iOwnNice) << "thread " << iTid;
      if (c.bLowered) EXPECT_EQ(p.second, kIdleClass) << "thread " << iTid;
      else EXPECT_EQ(p.second, iOwnClass) << "thread " << iTid;
    }
    oProc.Signal(SIGTERM);
    ASSERT_TRUE(oProc.WaitEnd(5000));
    EXPECT_EQ(oProc.ExitCode(), 0) << ReadFile("out.txt");
    // Lowering is allowed to anyone: no complaint in a normal run.
    EXPECT_EQ(ReadFile("out.txt").find("cannot lower"), std::string::npos) << ReadFile("out.txt");
  }
}
