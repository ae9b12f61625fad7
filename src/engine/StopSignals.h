#pragma once
// SIGTERM, SIGINT and SIGHUP as a request to stop: the signal handler writes the signal's
// number into a pipe, and the event loop reads it and emits StopRequested, which the
// program treats as the message "SHUTDOWN".
//
// Every signal asks for an orderly stop at the next safe point of the cycle; a second
// one changes nothing, as a second "SHUTDOWN" doesn't (it never kills the process in
// the middle of a conversion). SIGKILL remains for a process that doesn't stop.
#include <QObject>
#include <QSocketNotifier>

#include <memory>

class StopSignals : public QObject {
  Q_OBJECT

 public:
  explicit StopSignals(QObject* pParent = nullptr);
  ~StopSignals() override;

  // Installs the handlers. False when the pipe can't be made (the signals then keep
  // their default actions).
  bool Install();

 signals:
  void StopRequested(int iSignal);

 private:
  void ReadPipe();
  std::unique_ptr<QSocketNotifier> m_pNotifier;
};
