#pragma once
// The rows of "kndemo-report summary --tsv": a run's figures by logger and action.
#include <map>
#include <sstream>
#include <string>
#include <utility>

#include "engine/StatusReport.h"

using SummaryRows = std::map<std::pair<int, std::string>, ActionFigures>;

// Reads lines of "logger action due done converted removed bytes-before bytes-after".
// Returns the first line that is not one ("" when all are).
inline std::string ParseSummaryTsv(const std::string& sTsv, SummaryRows& m) {
  std::istringstream in(sTsv);
  for (std::string sLine; std::getline(in, sLine);) {
    std::istringstream ls(sLine);
    int iLog = 0;
    std::string sAction;
    ActionFigures f;
    ls >> iLog >> sAction >> f.iDue >> f.iDone >> f.iFilesConverted >> f.iFilesRemoved >> f.lBytesBefore >>
        f.lBytesAfter;
    if (ls.fail()) return sLine.empty() ? "(empty line)" : sLine;
    m[{iLog, sAction}] = f;
  }
  return "";
}
