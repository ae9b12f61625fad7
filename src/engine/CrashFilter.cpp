#include "engine/CrashFilter.h"

#include <setjmp.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include <fmt/format.h>

#include "support/CNVErr.h"
#include "support/DebugMsg.h"

namespace {

constexpr int kFaultSignals[] = {SIGSEGV, SIGBUS, SIGILL, SIGTRAP, SIGFPE};
constexpr int kSignalCount = sizeof kFaultSignals / sizeof kFaultSignals[0];

struct sigaction g_previous[kSignalCount];
bool g_bInstalled = false;

// An alternate stack for the handler, so that a stack overflow can still be named.
constexpr size_t kAltStackSize = 64 * 1024;
void* g_pAltStack = nullptr;

// The innermost active RunWithFaultHandler call of each thread, and the name of the
// fault that jumps to it. A fault on a thread with no such call (a conversion's worker)
// ends the process: it never jumps into another thread's frames.
struct Scope {
  sigjmp_buf Env;
  Scope* pOuter = nullptr;
};
thread_local Scope* volatile g_pInnermost = nullptr;
char g_szFaultName[64];
void (*volatile g_pfnLastWords)() = nullptr;

void WriteAll(int fd, const char* p, size_t n) {
  while (n > 0) {
    ssize_t w = write(fd, p, n);
    if (w <= 0) return;
    p += w;
    n -= static_cast<size_t>(w);
  }
}

void FaultHandler(int iSignal, siginfo_t* pInfo, void*) {
  ExceptionRecord oRecord;
  oRecord.ExceptionCode = ExceptionCodeForSignal(iSignal, pInfo ? pInfo->si_code : 0);
  std::string sName = MyExceptionFilter(oRecord);
  std::strncpy(g_szFaultName, sName.c_str(), sizeof g_szFaultName - 1);
  g_szFaultName[sizeof g_szFaultName - 1] = '\0';

  if (Scope* pScope = g_pInnermost) siglongjmp(pScope->Env, 1);

  // No handler: the raised error ends the process, after its last words (once: a fault
  // inside them goes straight on).
  if (void (*pfn)() = g_pfnLastWords) {
    g_pfnLastWords = nullptr;
    pfn();
  }
  const char szHead[] = "knlogproc: Run-time error '10000': ";
  WriteAll(STDERR_FILENO, szHead, sizeof szHead - 1);
  WriteAll(STDERR_FILENO, g_szFaultName, std::strlen(g_szFaultName));
  WriteAll(STDERR_FILENO, "\n", 1);
  signal(iSignal, SIG_DFL);
  // A fault of an instruction repeats as soon as we return and then takes the default
  // action; a signal that was sent is sent again (it stays blocked until we return).
  if (!pInfo || pInfo->si_code <= 0) raise(iSignal);
}

}  // namespace

std::string ExceptionName(uint32_t lCode) {
  switch (lCode) {
    case 0xC0000005: return "Access Violation";
    case 0x80000002: return "Data Type Misalignment";
    case 0x80000003: return "Breakpoint";
    case 0x80000004: return "Single Step";
    case 0xC000008C: return "Array Bounds Exceeded";
    case 0xC000008D: return "Float Denormal Operand";
    case 0xC000008E: return "Divide By Zero";
    case 0xC000008F: return "Floating Point Inexact Result";
    case 0xC0000090: return "Invalid Operation";
    case 0xC0000091: return "Float Overflow";
    case 0xC0000092: return "Float Stack Check";
    case 0xC0000093: return "Float Underflow";
    case 0xC0000094: return "Integer Divide By Zero";
    case 0xC0000095: return "Integer Overflow";
    case 0xC0000096: return "Privileged Instruction";
    case 0xC0000006: return "In Page Error";
    case 0xC000001D: return "Illegal Instruction";
    case 0xC0000025: return "Non Continuable Exception";
    case 0xC00000FD: return "Stack Overflow";
    case 0xC0000026: return "Invalid Disposition";
    case 0x80000001: return "Guard Page Violation";
    case 0xC0000008: return "Invalid Handle";
    case 0xC000013A: return "Control-C Exit";
    default: return fmt::format("Unknown (&H{:08X})", lCode);
  }
}

uint32_t ExceptionCodeForSignal(int iSignal, int iCode) {
  switch (iSignal) {
    case SIGSEGV: return 0xC0000005;
    case SIGBUS: return 0x80000002;
    case SIGILL: return 0xC000001D;
    case SIGTRAP: return 0x80000003;
    case SIGFPE:
      switch (iCode) {
        case FPE_INTDIV: return 0xC0000094;
        case FPE_INTOVF: return 0xC0000095;
        case FPE_FLTDIV: return 0xC000008E;
        case FPE_FLTOVF: return 0xC0000091;
        case FPE_FLTUND: return 0xC0000093;
        case FPE_FLTRES: return 0xC000008F;
        case FPE_FLTINV: return 0xC0000090;
        case FPE_FLTSUB: return 0xC000008C;
        default: break;
      }
      break;
    default: break;
  }
  // No Windows code fits: a code of our own that names signal and si_code, so that the
  // "Unknown (&H...)" text still tells what happened.
  return 0xE0000000u | (static_cast<uint32_t>(iSignal & 0xFF) << 8) | static_cast<uint32_t>(iCode & 0xFF);
}

std::string MyExceptionFilter(const ExceptionRecord& oRecord) {
  const ExceptionRecord* p = &oRecord;
  while (p->pExceptionRecord) p = p->pExceptionRecord;
  std::string sName = ExceptionName(p->ExceptionCode);
  DebugMsg("CRITICAL ERROR: " + sName, -1, 0);
  return sName;
}

void InstallExceptionFilter() {
  if (g_bInstalled) return;
  stack_t oCurrent{};
  if (sigaltstack(nullptr, &oCurrent) == 0 && (oCurrent.ss_flags & SS_DISABLE)) {
    if (!g_pAltStack) g_pAltStack = std::malloc(kAltStackSize);
    if (g_pAltStack) {
      stack_t oStack{};
      oStack.ss_sp = g_pAltStack;
      oStack.ss_size = kAltStackSize;
      sigaltstack(&oStack, nullptr);
    }
  }
  struct sigaction sa {};
  sa.sa_sigaction = FaultHandler;
  sa.sa_flags = SA_SIGINFO | SA_ONSTACK;
  sigemptyset(&sa.sa_mask);
  for (int i = 0; i < kSignalCount; ++i) sigaction(kFaultSignals[i], &sa, &g_previous[i]);
  g_bInstalled = true;
}

void RemoveExceptionFilter() {
  if (!g_bInstalled) return;
  for (int i = 0; i < kSignalCount; ++i) sigaction(kFaultSignals[i], &g_previous[i], nullptr);
  g_bInstalled = false;
}

bool ExceptionFilterInstalled() { return g_bInstalled; }

void SetLastWordsHandler(void (*pfnLastWords)()) { g_pfnLastWords = pfnLastWords; }

void RunWithFaultHandler(const std::function<void()>& fn) {
  Scope oScope;
  oScope.pOuter = g_pInnermost;
  if (sigsetjmp(oScope.Env, 1) != 0) {
    // Back from a fault: this scope is done; the error goes on from an ordinary frame.
    g_pInnermost = oScope.pOuter;
    throw RaisedError(10000, "MyExceptionFilter", g_szFaultName);
  }
  g_pInnermost = &oScope;
  try {
    fn();
  } catch (...) {
    g_pInnermost = oScope.pOuter;
    throw;
  }
  g_pInnermost = oScope.pOuter;
}
