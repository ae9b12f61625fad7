#include <gtest/gtest.h>

#include <sys/mman.h>
#include <cfenv>
#include <csignal>

#include <regex>
#include <string>

#include "engine/CrashFilter.h"
#include "engine/EngineFixture.h"
#include "support/CNVErr.h"

namespace {

// A real access violation: a write to a page that may not be touched.
void TouchForbiddenPage() {
  void* p = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(p, MAP_FAILED);
  *static_cast<volatile int*>(p) = 1;
}

// A real floating-point division by zero with the trap on.
void DivideByZero() {
  feenableexcept(FE_DIVBYZERO);
  volatile double dTen = 10.0, dZero = 0.0;
  volatile double dResult = dTen / dZero;
  (void)dResult;
}

}  // namespace

// The signal codes that have a Windows counterpart get its name; the rest get the
// "Unknown" form with all eight digits.
TEST(ExceptionNames, SignalsGetThePlatformNamesOrTheUnknownForm) {
  EXPECT_EQ(ExceptionName(ExceptionCodeForSignal(SIGSEGV, SEGV_MAPERR)), "Access Violation");
  EXPECT_EQ(ExceptionName(ExceptionCodeForSignal(SIGBUS, BUS_ADRALN)), "Data Type Misalignment");
  EXPECT_EQ(ExceptionName(ExceptionCodeForSignal(SIGILL, ILL_ILLOPC)), "Illegal Instruction");
  EXPECT_EQ(ExceptionName(ExceptionCodeForSignal(SIGTRAP, TRAP_BRKPT)), "Breakpoint");
  EXPECT_EQ(ExceptionName(ExceptionCodeForSignal(SIGFPE, FPE_INTDIV)), "Integer Divide By Zero");
  EXPECT_EQ(ExceptionName(ExceptionCodeForSignal(SIGFPE, FPE_FLTDIV)), "Divide By Zero");
  EXPECT_EQ(ExceptionName(ExceptionCodeForSignal(SIGFPE, FPE_FLTRES)), "Floating Point Inexact Result");
  EXPECT_EQ(ExceptionName(ExceptionCodeForSignal(SIGFPE, FPE_FLTINV)), "Invalid Operation");
  EXPECT_EQ(ExceptionName(0x00000ABC), "Unknown (&H00000ABC)");
  EXPECT_EQ(ExceptionName(0xE06D7363), "Unknown (&HE06D7363)");
  const std::string sOther = ExceptionName(ExceptionCodeForSignal(SIGFPE, 99));
  EXPECT_TRUE(std::regex_match(sOther, std::regex(R"(Unknown \(&H[0-9A-F]{8}\))"))) << sOther;
}

class CrashFilterTest : public EngineFixture {
 protected:
  void SetUp() override {
    EngineFixture::SetUp();
    InstallExceptionFilter();
  }
  void TearDown() override {
    RemoveExceptionFilter();
    fedisableexcept(FE_ALL_EXCEPT);
    EngineFixture::TearDown();
  }
};

TEST_F(CrashFilterTest, NestedRecordIsNamedByTheLastOfTheChain) {
  ExceptionRecord oFirst{0xC0000005, nullptr};
  ExceptionRecord oMiddle{0xC0000094, &oFirst};
  ExceptionRecord oOuter{0x80000003, &oMiddle};
  EXPECT_EQ(MyExceptionFilter(oOuter), "Access Violation");
  EXPECT_NE(Trace().find(" CRITICAL ERROR: Access Violation\r\n"), std::string::npos) << Trace();
}

// A real fault inside a handler's scope comes back as error 10000, traced and named.
TEST_F(CrashFilterTest, FaultsBecomeRaisedError10000) {
  for (auto [pFault, sName] :
       {std::pair{&TouchForbiddenPage, "Access Violation"}, std::pair{&DivideByZero, "Divide By Zero"}}) {
    try {
      RunWithFaultHandler(pFault);
      ADD_FAILURE() << sName << " did not come back as an error";
    } catch (const RaisedError& e) {
      EXPECT_EQ(e.Number, 10000);
      EXPECT_EQ(e.Source, "MyExceptionFilter");
      EXPECT_EQ(e.Description, sName);
    }
    EXPECT_NE(Trace().find(std::string("CRITICAL ERROR: ") + sName), std::string::npos);
  }
}

TEST_F(CrashFilterTest, InnermostHandlerGetsTheFaultAndOuterOnesLater) {
  int iInner = 0, iOuter = 0;
  try {
    RunWithFaultHandler([&] {
      try {
        RunWithFaultHandler(TouchForbiddenPage);
      } catch (const RaisedError&) {
        ++iInner;
      }
      // The inner scope is over: the next fault goes to this one.
      TouchForbiddenPage();
    });
  } catch (const RaisedError& e) {
    ++iOuter;
    EXPECT_EQ(e.Number, 10000);
  }
  EXPECT_EQ(iInner, 1);
  EXPECT_EQ(iOuter, 1);
  // Ordinary exceptions pass through the scope untouched.
  EXPECT_THROW(RunWithFaultHandler([] { throw std::runtime_error("plain"); }), std::runtime_error);
  // And after all of it a fault still has a handler to go to.
  EXPECT_THROW(RunWithFaultHandler(TouchForbiddenPage), RaisedError);
}

TEST_F(CrashFilterTest, RemovingTheFilterRestoresThePreviousHandler) {
  struct sigaction oMine {};
  sigaction(SIGSEGV, nullptr, &oMine);
  EXPECT_TRUE(ExceptionFilterInstalled());
  RemoveExceptionFilter();
  EXPECT_FALSE(ExceptionFilterInstalled());
  struct sigaction oAfter {};
  sigaction(SIGSEGV, nullptr, &oAfter);
  EXPECT_NE(reinterpret_cast<void*>(oAfter.sa_sigaction), reinterpret_cast<void*>(oMine.sa_sigaction));
}

using CrashFilterDeathTest = CrashFilterTest;

TEST_F(CrashFilterDeathTest, FaultWithoutAHandlerEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(TouchForbiddenPage(), testing::KilledBySignal(SIGSEGV), "Run-time error '10000': Access Violation");
  EXPECT_EXIT(DivideByZero(), testing::KilledBySignal(SIGFPE), "Run-time error '10000': Divide By Zero");
}
