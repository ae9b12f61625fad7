#pragma once
// The crash filter: processor faults (the signals SIGSEGV, SIGBUS, SIGILL, SIGTRAP and
// SIGFPE) are named as the platform's exception table names them, traced as
// "CRITICAL ERROR: <name>", and turned into the raised error 10000 from
// "MyExceptionFilter" with the name as description.
//
// How the raised error reaches a handler: C++ can't throw out of a signal handler, so a
// routine that wants to handle faults runs its body through RunWithFaultHandler. The
// signal handler jumps (siglongjmp) back to the innermost such call, which then throws
// RaisedError from an ordinary frame, where the routine's try/catch sees it. Frames
// between the fault and that call are abandoned without running their destructors: what
// the interrupted code left half done stays so, and what it held is leaked. With no
// active RunWithFaultHandler the error ends the process: the last words (see
// SetLastWordsHandler), a line on standard error, and the signal's default action (a
// core dump where the system makes one).
//
// The trace line is written from the signal handler. That is safe for a fault in the
// program's own code; a fault inside the C library's allocator or stdio could deadlock
// the trace instead, which then ends the process just the same.
#include <cstdint>
#include <functional>
#include <string>

// One record of an exception chain: the code, and the record of the exception that
// caused this one (null at the end of the chain).
struct ExceptionRecord {
  uint32_t ExceptionCode = 0;
  const ExceptionRecord* pExceptionRecord = nullptr;
};

// The name of an exception code: "Access Violation", ..., or "Unknown (&H0000ABCD)".
std::string ExceptionName(uint32_t lCode);

// The exception code that stands for a fault signal with its si_code.
uint32_t ExceptionCodeForSignal(int iSignal, int iCode);

// Names the last record of the chain and traces "CRITICAL ERROR: " with the name
// (level -1, mark 0). Returns the name.
std::string MyExceptionFilter(const ExceptionRecord& oRecord);

// Installs the filter on the fault signals (with an alternate signal stack, so that a
// stack overflow can be reported too) / restores the previous handlers.
void InstallExceptionFilter();
void RemoveExceptionFilter();
bool ExceptionFilterInstalled();

// A routine the filter calls, once, before a fault with no RunWithFaultHandler to go to
// ends the process: it may trace, send a message and remove files of its own. Null: none.
void SetLastWordsHandler(void (*pfnLastWords)());

// Runs fn; a fault inside it (while the filter is installed) comes out of this call as
// RaisedError(10000, "MyExceptionFilter", <name>). Calls nest; the innermost one wins.
void RunWithFaultHandler(const std::function<void()>& fn);
