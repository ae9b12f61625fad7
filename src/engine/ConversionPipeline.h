#pragma once
// Several files of a group converted at once. Each file is begun (looked at and opened)
// and finished (its length check and replace) on the engine's thread, in the order of the
// group's files; between the two its data work runs on a worker thread of its own, up
// to a given number of them at a time.
//
// What a conversion tells its host (hour log lines, failures, captions, the capture
// process, the end of its file) is held while an earlier file is still in the pipeline,
// and passed on when it comes first: the hour log, the messages, the progress bars and
// the replaces come in the order of the files, as if they had been taken one by one.
// Only the first file's progress is shown.
//
// With more than one worker, the files that the external copier converts go to copiers
// that stay up between files (CopierServer), at most one a worker: each file at work has
// one to itself. A copier that can't serve makes every further file of the run a run of
// its own. The servers end with the run (StopAll), at Abandon and with the pipeline.
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "engine/CopierServer.h"
#include "engine/FileConversion.h"
#include "engine/IConversionHost.h"

class CLogProcessEntry;

class ConversionPipeline {
 public:
  // iWorkers: how many conversions may be at work at once (1 or more).
  ConversionPipeline(IConversionHost& oHost, int iWorkers);
  // Stops and waits for every worker; the conversions end as at a stop.
  ~ConversionPipeline();
  ConversionPipeline(const ConversionPipeline&) = delete;
  ConversionPipeline& operator=(const ConversionPipeline&) = delete;

  // A worker is free for another file.
  bool HasRoom() const { return m_iAtWork < m_iWorkers; }
  bool Empty() const { return m_aSlots.empty(); }

  // Begins the file sFile of the hour folder and, when its conversion is under way,
  // hands its data work to a worker.
  void Take(const std::shared_ptr<CLogProcessEntry>& oEntry, const std::string& sHourFolder, const std::string& sFile);
  // Finishes the files at the front whose work is done, waiting up to iWaitMs for the
  // first of them; shows the progress of the first file still at work.
  void Retire(int iWaitMs);
  // A stop: every worker ends at its next share and every file is finished without its
  // replace, so that each source stays as it was.
  void StopAll();
  // After a failed tick: every worker is stopped and waited for, the converted files in
  // the making go, and nothing more is said of the files.
  void Abandon();
  // After a fault, as the process ends: every worker is told to stop and given a moment
  // to close its files (nothing is joined), then the converted files in the making go.
  void EndAfterFault();

 private:
  // The converted files in the making go (regular files only).
  void RemoveFilesInTheMaking() const;
  // A server for a file of the copier: an idle one, or one started now; null when there
  // is none to be had.
  std::unique_ptr<CopierServer> TakeServer();
  // Every server ends (idle ones, and those of slots whose work is over).
  void EndServers();

  class OrderedHost;
  struct Slot;

  bool FrontDone();
  void RetireFront();

  IConversionHost& m_oHost;
  const int m_iWorkers;
  int m_iAtWork = 0;  // slots with a worker thread, done or not
  std::deque<std::unique_ptr<Slot>> m_aSlots;
  std::vector<std::unique_ptr<CopierServer>> m_aIdleServers;
  // The copier gave no hello: each file of the copier is a run of its own from now on.
  bool m_bNoServers = false;
  uint32_t m_lLastBeats = 0;
  // A worker that ends its work says so under m_mutex and wakes Retire.
  std::mutex m_mutex;
  std::condition_variable m_oWorkEnded;
};
