#pragma once
// One copier that stays up and takes file after file ("SoundShuttle /SERVE"): the cost of
// starting the copier (its loader binding the codec libraries) is paid once, not per file.
//
// The copier says "SoundShuttle serve 1" when it is ready; each request is the arguments
// of a one-file run, each ended by a NUL, and an empty argument ends the request; the
// answer is one line with the exit status the one-file run would have had. The end of
// its input ends the copier.
//
// A file through the server has the outcomes of a one-file run (CopierRun::Run), with the
// same trace and journal lines and the same stop and CopierTimeout handling; a server
// that was ended for a file, or that died, is gone: Usable() is false from then on.
//
// Used by one thread at a time: started and ended on the engine's thread, a file run on
// the worker thread that has it.
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "support/AppGlobal.h"
#include "support/UniqueFd.h"

class CopierServer {
 public:
  // How long a copier has to say it serves.
  static constexpr int kHelloMs = 2000;

  // Starts sCopier as a server; null when it can't be started or gives no hello in time
  // (a copier without /SERVE), and it is ended then. On the engine's thread only: a
  // started program is told to end (SIGTERM) when the thread that started it ends, and a
  // worker thread ends after its file, while the server must live as long as the engine.
  static std::unique_ptr<CopierServer> Start(const std::string& sCopier);
  // Ends the server: its input closed, a moment for it to end by itself, then SIGTERM to
  // its group and SIGKILL after the grace time. Always reaped.
  ~CopierServer();
  CopierServer(const CopierServer&) = delete;
  CopierServer& operator=(const CopierServer&) = delete;

  bool Usable() const { return m_pid > 0; }
  pid_t Pid() const { return m_pid; }

  // Converts one file as CopierRun::Run does. Nothing when the server was gone before it
  // took the request: the file is untouched, and the caller runs the copier for it alone.
  std::optional<AppGlobal::RunResult> Run(const std::string& sSource, const std::string& sTarget,
                                          const std::string& sFormat, const std::string& sPrxFile,
                                          const std::function<bool()>& fnStop, const std::function<void()>& fnPump);

  // Closes the server's input: an idle server ends. Several servers are ended at once by
  // closing each one's input before destroying any.
  void CloseInput();

 private:
  CopierServer(std::string sCopier, pid_t pid, UniqueFd oLine, UniqueFd oPidFd);

  // Reads what the server sent, up to a whole line within iWaitMs: the line, or nothing
  // (no line yet, or the end of the server's output: m_bOutputEnded).
  std::optional<std::string> ReadLine(int iWaitMs);
  // The whole request sent; false when the server can't take it (errno says why).
  bool Send(const std::string& sRequest);
  bool Died() const;
  // SIGTERM to the server's group, SIGKILL after lGraceMs, reaped. Its status.
  int End(int32_t lGraceMs);
  // The server ended by itself: reaped, its status.
  int Reap();

  std::string m_sCopier;
  pid_t m_pid;
  // Both ways of the conversation: the server's standard input and output.
  UniqueFd m_oLine;
  UniqueFd m_oPidFd;
  std::string m_sReceived;
  bool m_bOutputEnded = false;
};
