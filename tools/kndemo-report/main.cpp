// kndemo-report: what a log processor run did to a machine root, from the disk alone.
//
//   kndemo-report snapshot FILE          records every logger's hours and files
//   kndemo-report summary BEFORE AFTER [--tsv]
//
// "summary" compares two snapshots and prints, for each logger and action, the hours due
// and done, the files converted and removed, the bytes before and after and the space
// won, then where the hour logs and the debug file are. --tsv prints the same figures as
// tab-separated lines: logger, action, due, done, converted, removed, bytes before,
// bytes after. The machine root is KESTRANE_ROOT.
#include <cstdio>
#include <string>

#include "Snapshot.h"
#include "Summary.h"
#include "support/ConfigAccess.h"
#include "support/FileHelper.h"
#include "support/FileUtils.h"
#include "support/Machine.h"

namespace {

int Usage() {
  std::fprintf(stderr,
               "usage: kndemo-report snapshot FILE\n"
               "       kndemo-report summary BEFORE AFTER [--tsv]\n");
  return 2;
}

bool Load(const std::string& sFile, demo::Snapshot& s) {
  std::string sText, sError;
  if (int rc = ReadWholeFile(sFile, sText); rc != 0) {
    std::fprintf(stderr, "kndemo-report: cannot read %s\n", sFile.c_str());
    return false;
  }
  if (!demo::Parse(sText, s, sError)) {
    std::fprintf(stderr, "kndemo-report: %s: %s\n", sFile.c_str(), sError.c_str());
    return false;
  }
  return true;
}

// The processor's debug files: the folder of "DebugPath", else drive c's DebugFiles.
std::vector<std::string> DebugFiles() {
  std::string sFolder = ConfigAccess::GetRegString("SOFTWARE\\Norvane", "DebugPath", "");
  sFolder = sFolder.empty() ? Machine::DriveFolder("C") + "/DebugFiles" : Machine::TranslatePath(sFolder);
  while (sFolder.size() > 1 && sFolder.back() == '/') sFolder.pop_back();
  std::vector<std::string> a;
  FileHelper::FindHandle h = 0;
  for (std::string s = FileHelper::FindFirst(sFolder + "/knlogproc.????????.log", 0, h); !s.empty();
       s = FileHelper::FindNext(h))
    a.push_back(sFolder + "/" + s);
  FileHelper::FindClose(h);
  return a;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return Usage();
  const std::string sCommand = argv[1];
  if (sCommand == "snapshot" && argc == 3) {
    std::string sText = demo::Serialise(demo::TakeSnapshot());
    if (int rc = WriteFileAtomically(argv[2], sText); rc != 0) {
      std::fprintf(stderr, "kndemo-report: cannot write %s\n", argv[2]);
      return 1;
    }
    return 0;
  }
  if (sCommand == "summary" && (argc == 4 || (argc == 5 && std::string(argv[4]) == "--tsv"))) {
    demo::Snapshot before, after;
    if (!Load(argv[2], before) || !Load(argv[3], after)) return 1;
    auto aFigures = demo::Compare(before, after);
    if (argc == 5) {
      for (const auto& r : aFigures)
        for (int32_t i : {1, 2, 0}) {
          const auto& f = r.aAction[static_cast<size_t>(i)];
          std::printf("%d\t%s\t%d\t%d\t%d\t%d\t%lld\t%lld\n", r.iLogNum, demo::ActionName(i), f.iHoursDue, f.iHoursDone,
                      f.iFilesConverted, f.iFilesRemoved, static_cast<long long>(f.lBytesBefore),
                      static_cast<long long>(f.lBytesAfter));
        }
      return 0;
    }
    std::fputs(demo::Report(aFigures, DebugFiles()).c_str(), stdout);
    return 0;
  }
  return Usage();
}
