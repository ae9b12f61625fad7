#include "engine/StatusReport.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <charconv>
#include <ctime>

#include <fmt/format.h>

#include "support/VbDate.h"

namespace {

constexpr const char* kFormatName = "kestrane-logproc-status";
constexpr int kFormatVersion = 1;
constexpr const char* kActionKeys[3] = {"delete", "standardise", "archive"};

QString Q(const std::string& s) { return QString::fromStdString(s); }

std::string DateText(double d) { return d > 0 ? VbDate::DefaultText(d) : std::string(); }

// A date value from its default text "yyyy-mm-dd hh:nn:ss"; 0 for "" or anything else.
double DateFromText(const std::string& s) {
  if (s.size() != 19) return 0;
  int a[6] = {};
  static const size_t kAt[6] = {0, 5, 8, 11, 14, 17};
  static const size_t kLen[6] = {4, 2, 2, 2, 2, 2};
  for (int i = 0; i < 6; ++i) {
    const char* b = s.data() + kAt[i];
    auto r = std::from_chars(b, b + kLen[i], a[i]);
    if (r.ec != std::errc() || r.ptr != b + kLen[i]) return 0;
  }
  VbDate::Parts p;
  p.Year = a[0], p.Month = a[1], p.Day = a[2], p.Hour = a[3], p.Minute = a[4], p.Second = a[5];
  return VbDate::Make(p);
}

std::string LabelValue(const std::string& s) {
  std::string r;
  for (char c : s) {
    if (c == '\\') r += "\\\\";
    else if (c == '"') r += "\\\"";
    else if (c == '\n') r += "\\n";
    else r += c;
  }
  return r;
}

ActionFigures CycleTotals(const StatusReport& r) {
  ActionFigures t;
  for (const auto& l : r.aLoggers)
    for (const auto& a : l.aAction) {
      t.iDue += a.iDue;
      t.iDone += a.iDone;
      t.iFailed += a.iFailed;
      t.iFilesConverted += a.iFilesConverted;
      t.iFilesRemoved += a.iFilesRemoved;
      t.lBytesBefore += a.lBytesBefore;
      t.lBytesAfter += a.lBytesAfter;
    }
  return t;
}

}  // namespace

std::string GroupedDigits(int64_t l) {
  const uint64_t u = l < 0 ? 0 - static_cast<uint64_t>(l) : static_cast<uint64_t>(l);
  const std::string d = std::to_string(u);
  std::string r;
  r.reserve(d.size() + d.size() / 3 + 1);
  if (l < 0) r += '-';
  for (size_t i = 0; i < d.size(); ++i) {
    if (i > 0 && (d.size() - i) % 3 == 0) r += ' ';
    r += d[i];
  }
  return r;
}

const char* StatusActionName(int32_t iAction) {
  switch (iAction) {
    case 0: return "Delete";
    case 1: return "Standardise";
    case 2: return "Archive";
    default: return "None";
  }
}

int64_t UnixSeconds(double dDate) {
  if (dDate <= 0) return 0;
  const VbDate::Parts p = VbDate::Split(dDate);
  std::tm t{};
  t.tm_year = p.Year - 1900;
  t.tm_mon = p.Month - 1;
  t.tm_mday = p.Day;
  t.tm_hour = p.Hour;
  t.tm_min = p.Minute;
  t.tm_sec = p.Second;
  t.tm_isdst = -1;
  return static_cast<int64_t>(std::mktime(&t));
}

void StatusReport::AddError(const std::string& sLine) {
  aErrors.push_back(sLine);
  while (aErrors.size() > kMaxErrors) aErrors.pop_front();
}

LoggerStatus& StatusReport::Logger(int32_t iNumber, const std::string& sName) {
  for (auto& l : aLoggers)
    if (l.iNumber == iNumber) return l;
  aLoggers.push_back({iNumber, sName, {}});
  return aLoggers.back();
}

std::string StatusReport::ToJson() const {
  QJsonObject o;
  o["format"] = kFormatName;
  o["version"] = kFormatVersion;
  o["pid"] = static_cast<qint64>(lPid);
  o["state"] = Q(sState);
  o["activity"] = Q(sActivity);
  o["written"] = Q(DateText(dWritten));
  QJsonObject c;
  c["number"] = iCycles;
  c["start"] = Q(DateText(dCycleStart));
  c["end"] = Q(DateText(dCycleEnd));
  c["stopped"] = bCycleStopped;
  c["next"] = Q(DateText(dNextCycle));
  o["cycle"] = c;
  QJsonArray aLogs;
  for (const auto& l : aLoggers) {
    QJsonObject lo;
    lo["number"] = l.iNumber;
    lo["name"] = Q(l.sName);
    QJsonObject acts;
    for (int i = 0; i < 3; ++i) {
      const ActionFigures& f = l.aAction[static_cast<size_t>(i)];
      QJsonObject a;
      a["due"] = f.iDue;
      a["done"] = f.iDone;
      a["failed"] = f.iFailed;
      a["files_converted"] = f.iFilesConverted;
      a["files_removed"] = f.iFilesRemoved;
      a["bytes_before"] = static_cast<qint64>(f.lBytesBefore);
      a["bytes_after"] = static_cast<qint64>(f.lBytesAfter);
      acts[kActionKeys[i]] = a;
    }
    lo["actions"] = acts;
    aLogs.append(lo);
  }
  o["loggers"] = aLogs;
  QJsonArray aErr;
  for (const auto& s : aErrors) aErr.append(Q(s));
  o["last_errors"] = aErr;
  QJsonObject t;
  for (int i = 0; i < 3; ++i) {
    QJsonObject a;
    a["hours_done"] = static_cast<qint64>(aHoursDoneTotal[static_cast<size_t>(i)]);
    a["hours_failed"] = static_cast<qint64>(aHoursFailedTotal[static_cast<size_t>(i)]);
    t[kActionKeys[i]] = a;
  }
  t["files_converted"] = static_cast<qint64>(lFilesConvertedTotal);
  t["bytes_won"] = static_cast<qint64>(lBytesWonTotal);
  o["since_start"] = t;
  return QJsonDocument(o).toJson(QJsonDocument::Indented).toStdString();
}

bool StatusReport::FromJson(const std::string& sText, StatusReport& r, std::string& sError) {
  QJsonParseError e{};
  const QJsonDocument d = QJsonDocument::fromJson(QByteArray::fromStdString(sText), &e);
  if (d.isNull() || !d.isObject()) {
    sError = "not JSON: " + e.errorString().toStdString();
    return false;
  }
  const QJsonObject o = d.object();
  if (o["format"].toString() != kFormatName || o["version"].toInt() != kFormatVersion) {
    sError = "not a status file of this version of knlogproc";
    return false;
  }
  r = StatusReport{};
  r.lPid = o["pid"].toInteger();
  r.sState = o["state"].toString().toStdString();
  r.sActivity = o["activity"].toString().toStdString();
  r.dWritten = DateFromText(o["written"].toString().toStdString());
  const QJsonObject c = o["cycle"].toObject();
  r.iCycles = c["number"].toInt();
  r.dCycleStart = DateFromText(c["start"].toString().toStdString());
  r.dCycleEnd = DateFromText(c["end"].toString().toStdString());
  r.bCycleStopped = c["stopped"].toBool();
  r.dNextCycle = DateFromText(c["next"].toString().toStdString());
  for (const auto& v : o["loggers"].toArray()) {
    const QJsonObject lo = v.toObject();
    LoggerStatus l;
    l.iNumber = lo["number"].toInt();
    l.sName = lo["name"].toString().toStdString();
    const QJsonObject acts = lo["actions"].toObject();
    for (int i = 0; i < 3; ++i) {
      const QJsonObject a = acts[kActionKeys[i]].toObject();
      ActionFigures& f = l.aAction[static_cast<size_t>(i)];
      f.iDue = a["due"].toInt();
      f.iDone = a["done"].toInt();
      f.iFailed = a["failed"].toInt();
      f.iFilesConverted = a["files_converted"].toInt();
      f.iFilesRemoved = a["files_removed"].toInt();
      f.lBytesBefore = a["bytes_before"].toInteger();
      f.lBytesAfter = a["bytes_after"].toInteger();
    }
    r.aLoggers.push_back(std::move(l));
  }
  for (const auto& v : o["last_errors"].toArray()) r.aErrors.push_back(v.toString().toStdString());
  const QJsonObject t = o["since_start"].toObject();
  for (int i = 0; i < 3; ++i) {
    const QJsonObject a = t[kActionKeys[i]].toObject();
    r.aHoursDoneTotal[static_cast<size_t>(i)] = a["hours_done"].toInteger();
    r.aHoursFailedTotal[static_cast<size_t>(i)] = a["hours_failed"].toInteger();
  }
  r.lFilesConvertedTotal = t["files_converted"].toInteger();
  r.lBytesWonTotal = t["bytes_won"].toInteger();
  return true;
}

std::string StatusReport::ToPrometheus() const {
  std::string s;
  auto head = [&](const char* sName, const char* sType, const char* sHelp) {
    s += fmt::format("# HELP kestrane_logproc_{} {}\n# TYPE kestrane_logproc_{} {}\n", sName, sHelp, sName, sType);
  };
  auto gauge = [&](const char* sName, const char* sHelp, int64_t lValue) {
    head(sName, "gauge", sHelp);
    s += fmt::format("kestrane_logproc_{} {}\n", sName, lValue);
  };
  head("state", "gauge", "1 for the state the processor is in, 0 for the others.");
  for (const char* st : {"starting", "loading", "preparing", "processing", "waiting", "stopped"})
    s += fmt::format("kestrane_logproc_state{{state=\"{}\"}} {}\n", st, sState == st ? 1 : 0);
  gauge("status_timestamp_seconds", "When this status was written.", UnixSeconds(dWritten));
  gauge("cycle_start_timestamp_seconds", "When the last cycle started (0: none yet).", UnixSeconds(dCycleStart));
  gauge("cycle_end_timestamp_seconds", "When the last cycle ended (0: not yet).", UnixSeconds(dCycleEnd));
  gauge("next_cycle_timestamp_seconds", "When the next cycle starts, while waiting (0: not waiting).",
        UnixSeconds(dNextCycle));
  gauge("cycle_stopped", "1 when the last cycle was cut short by a stop request.", bCycleStopped ? 1 : 0);
  head("cycles_total", "counter", "Cycles started since the program started.");
  s += fmt::format("kestrane_logproc_cycles_total {}\n", iCycles);

  struct PerAction {
    const char* sName;
    const char* sHelp;
    int64_t (*fn)(const ActionFigures&);
  };
  static const PerAction kPerAction[] = {
      {"actions_due", "Hours whose action was due in the last cycle.",
       [](const ActionFigures& f) -> int64_t { return f.iDue; }},
      {"actions_done", "Hours done in the last cycle.", [](const ActionFigures& f) -> int64_t { return f.iDone; }},
      {"actions_failed", "Hours taken up and not done in the last cycle.",
       [](const ActionFigures& f) -> int64_t { return f.iFailed; }},
      {"files_converted", "Audio files converted in the last cycle.",
       [](const ActionFigures& f) -> int64_t { return f.iFilesConverted; }},
      {"files_removed", "Audio files removed in the last cycle.",
       [](const ActionFigures& f) -> int64_t { return f.iFilesRemoved; }},
      {"audio_before_bytes", "Audio of the hours done in the last cycle, before.",
       [](const ActionFigures& f) { return f.lBytesBefore; }},
      {"audio_after_bytes", "Audio of the hours done in the last cycle, after.",
       [](const ActionFigures& f) { return f.lBytesAfter; }},
      {"space_won_bytes", "Space won by the hours done in the last cycle.",
       [](const ActionFigures& f) { return f.SpaceWon(); }},
  };
  for (const auto& m : kPerAction) {
    head(m.sName, "gauge", m.sHelp);
    for (const auto& l : aLoggers)
      for (int i = 0; i < 3; ++i)
        s += fmt::format("kestrane_logproc_{}{{logger=\"{}\",name=\"{}\",action=\"{}\"}} {}\n", m.sName, l.iNumber,
                         LabelValue(l.sName), kActionKeys[i], m.fn(l.aAction[static_cast<size_t>(i)]));
  }
  head("actions_done_total", "counter", "Hours done since the program started.");
  for (int i = 0; i < 3; ++i)
    s += fmt::format("kestrane_logproc_actions_done_total{{action=\"{}\"}} {}\n", kActionKeys[i],
                     aHoursDoneTotal[static_cast<size_t>(i)]);
  head("actions_failed_total", "counter", "Hours taken up and not done since the program started.");
  for (int i = 0; i < 3; ++i)
    s += fmt::format("kestrane_logproc_actions_failed_total{{action=\"{}\"}} {}\n", kActionKeys[i],
                     aHoursFailedTotal[static_cast<size_t>(i)]);
  head("files_converted_total", "counter", "Audio files converted since the program started.");
  s += fmt::format("kestrane_logproc_files_converted_total {}\n", lFilesConvertedTotal);
  head("space_won_bytes_total", "counter", "Space won since the program started.");
  s += fmt::format("kestrane_logproc_space_won_bytes_total {}\n", lBytesWonTotal);
  return s;
}

std::string StatusReport::Summary() const {
  std::string s = sActivity.empty() ? sState : sActivity;
  if (dCycleStart <= 0) return s + "; no cycle yet";
  const ActionFigures t = CycleTotals(*this);
  s += fmt::format("; cycle {} started {}", iCycles, DateText(dCycleStart));
  if (dCycleEnd > 0) s += fmt::format(", ended {}{}", DateText(dCycleEnd), bCycleStopped ? " (stopped)" : "");
  s += fmt::format(": {} hours due, {} done, {} failed, {} bytes won", t.iDue, t.iDone, t.iFailed,
                   GroupedDigits(t.SpaceWon()));
  return s;
}

std::string StatusReport::InWords() const {
  std::string s = fmt::format("knlogproc (pid {}) is {}", lPid, sState);
  if (!sActivity.empty()) s += ": " + sActivity;
  s += fmt::format("\nStatus written {}\n", DateText(dWritten));
  if (dCycleStart <= 0) return s + "No cycle has run yet.\n";
  s += fmt::format("Cycle {} started {}", iCycles, DateText(dCycleStart));
  if (dCycleEnd > 0) s += fmt::format(" and {} {}", bCycleStopped ? "was stopped" : "ended", DateText(dCycleEnd));
  else s += " and is running";
  s += "\n";
  if (dNextCycle > 0) s += fmt::format("Next cycle at {}\n", DateText(dNextCycle));
  for (const auto& l : aLoggers) {
    s += fmt::format("\nLogger {} \"{}\"\n", l.iNumber, l.sName);
    s += fmt::format("  {:<12}{:>5}{:>6}{:>8}{:>11}{:>9}{:>15}{:>15}{:>15}\n", "Action", "due", "done", "failed",
                     "converted", "removed", "bytes before", "bytes after", "space won");
    for (int i : {1, 2, 0}) {
      const ActionFigures& f = l.aAction[static_cast<size_t>(i)];
      s += fmt::format("  {:<12}{:>5}{:>6}{:>8}{:>11}{:>9}{:>15}{:>15}{:>15}\n", StatusActionName(i), f.iDue, f.iDone,
                       f.iFailed, f.iFilesConverted, f.iFilesRemoved, GroupedDigits(f.lBytesBefore),
                       GroupedDigits(f.lBytesAfter), GroupedDigits(f.SpaceWon()));
    }
  }
  const ActionFigures t = CycleTotals(*this);
  s += fmt::format("\nSpace won in the cycle: {} bytes of {}\n", GroupedDigits(t.SpaceWon()),
                   GroupedDigits(t.lBytesBefore));
  if (!aErrors.empty()) {
    s += "Last errors:\n";
    for (const auto& e : aErrors) s += "  " + e + "\n";
  }
  return s;
}
