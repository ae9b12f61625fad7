#include "SimOptions.h"

#include <fmt/format.h>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>

#include "audio/AudioTypes.h"
#include "support/VbDate.h"

namespace sim {

namespace {

std::vector<std::string> Split(const std::string& s, char c) {
  std::vector<std::string> a;
  size_t i = 0;
  for (;;) {
    size_t j = s.find(c, i);
    a.push_back(s.substr(i, j == std::string::npos ? std::string::npos : j - i));
    if (j == std::string::npos) break;
    i = j + 1;
  }
  return a;
}

bool ToInt(const std::string& s, int64_t lMin, int64_t lMax, int32_t& iOut) {
  if (s.empty()) return false;
  errno = 0;
  char* pEnd = nullptr;
  long long v = std::strtoll(s.c_str(), &pEnd, 10);
  if (errno || *pEnd || v < lMin || v > lMax) return false;
  iOut = static_cast<int32_t>(v);
  return true;
}

bool ToDouble(const std::string& s, double dMin, double dMax, double& dOut) {
  if (s.empty()) return false;
  // from_chars: the same reading under any locale.
  double v = 0;
  const auto [pEnd, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
  if (ec != std::errc() || pEnd != s.data() + s.size() || !(v >= dMin && v <= dMax)) return false;
  dOut = v;
  return true;
}

// "yyyy-mm-dd" to a day serial; the date must exist.
std::optional<int32_t> ParseDay(const std::string& s) {
  int32_t y, m, d;
  if (s.size() != 10 || s[4] != '-' || s[7] != '-') return std::nullopt;
  if (!ToInt(s.substr(0, 4), 1900, 9999, y) || !ToInt(s.substr(5, 2), 1, 12, m) || !ToInt(s.substr(8, 2), 1, 31, d))
    return std::nullopt;
  int32_t lSerial = VbDate::DateSerial(y, m, d);
  VbDate::Parts p = VbDate::Split(lSerial);
  if (p.Day != d || p.Month != m) return std::nullopt;
  return lSerial;
}

// "yyyy-mm-dd hh:nn" (or "yyyy-mm-dd hh:nn:ss") to a date value.
std::optional<double> ParseMoment(const std::string& s) {
  auto lDay = ParseDay(s.substr(0, 10));
  if (!lDay || (s.size() != 16 && s.size() != 19) || s[10] != ' ' || s[13] != ':') return std::nullopt;
  int32_t h, n, sec = 0;
  if (!ToInt(s.substr(11, 2), 0, 23, h) || !ToInt(s.substr(14, 2), 0, 59, n)) return std::nullopt;
  if (s.size() == 19 && (s[16] != ':' || !ToInt(s.substr(17, 2), 0, 59, sec))) return std::nullopt;
  return *lDay + VbDate::TimeSerial(h, n, sec);
}

// "N=rest" for a per-logger option; without "N=" the option is for every logger (0).
bool SplitLoggerArg(const std::string& s, int32_t& iLogger, std::string& sRest) {
  size_t i = s.find('=');
  iLogger = 0;
  sRest = s;
  if (i == std::string::npos) return true;
  int32_t n;
  if (!ToInt(s.substr(0, i), 1, 999, n)) return false;
  iLogger = n;
  sRest = s.substr(i + 1);
  return true;
}

}  // namespace

std::optional<PeriodSpec> ParsePeriod(const std::string& sText, std::string& sError) {
  std::vector<std::string> a = Split(sText, ':');
  PeriodSpec p;
  const std::string& k = a[0];
  auto bad = [&](const std::string& why) {
    sError = fmt::format("bad format \"{}\": {}", sText, why);
    return std::nullopt;
  };
  if (k == "none") {
    if (a.size() != 1) return bad("\"none\" takes no values");
    return p;
  }
  if (k == "wma") {
    if (a.size() != 2 || !ToInt(a[1], 1, 9999, p.iProfile)) return bad("expected wma:PROFILE");
    p.iType = FormatWMA;
    return p;
  }
  bool bWav = k == "wav" || k == "ima" || k == "msadpcm";
  bool bCoded = k == "mp2" || k == "mp3" || k == "ogg";
  if (!bWav && !bCoded) return bad("the kind is one of wav, ima, msadpcm, mp2, mp3, ogg, wma, none");
  if (a.size() != (bWav ? 3u : 4u))
    return bad(bWav ? "expected " + k + ":RATE:CHANNELS" : "expected " + k + ":RATE:CHANNELS:KBPS");
  if (!ToInt(a[1], 8000, 48000, p.iSampleRate)) return bad("rate 8000 to 48000");
  if (!ToInt(a[2], 1, 2, p.iChannels)) return bad("channels 1 or 2");
  if (bWav) {
    p.iType = FormatWAV;
    p.iFormatTag = k == "wav" ? WAVE_FORMAT_PCM : k == "ima" ? WAVE_FORMAT_IMA_ADPCM : WAVE_FORMAT_ADPCM;
  } else {
    if (!ToInt(a[3], 8, 320, p.iBitRate)) return bad("bit rate 8 to 320 kbit/s");
    p.iType = k == "mp2" ? FormatMP2 : k == "mp3" ? FormatMP3 : FormatOGG;
  }
  return p;
}

std::optional<std::vector<OutputSpec>> ParseOutputs(const std::string& sText, std::string& sError) {
  std::vector<OutputSpec> aOut;
  for (const std::string& sOutput : Split(sText, '+')) {
    std::vector<std::string> a = Split(sOutput, '/');
    if (a.size() > 3) {
      sError = fmt::format("bad output \"{}\": at most three periods", sOutput);
      return std::nullopt;
    }
    OutputSpec o;
    for (size_t i = 0; i < a.size(); ++i) {
      auto p = ParsePeriod(a[i], sError);
      if (!p) return std::nullopt;
      o.aPeriod[i] = *p;
    }
    if (o.aPeriod[0].iType == -1) {
      sError = fmt::format("bad output \"{}\": the recorded format can't be none", sOutput);
      return std::nullopt;
    }
    aOut.push_back(o);
  }
  if (aOut.size() > 26) {
    sError = "at most 26 outputs";
    return std::nullopt;
  }
  return aOut;
}

namespace {

// What the per-logger options gather before the number of loggers is known.
struct LoggerArgs {
  std::map<int32_t, std::vector<OutputSpec>> mFormats;
  std::map<int32_t, std::array<int32_t, 3>> mHours;
  std::map<int32_t, std::string> mNames, mPaths;
  std::vector<int32_t> aDisabled;
};

// One option with its value, while it is read.
struct OptionArg {
  const std::string& a;
  const std::string& v;
  SimOptions& o;
  LoggerArgs& la;
  std::string& sError;
  bool Bad(const std::string& why) const {
    sError = fmt::format("{} {}: {}", a, v, why);
    return false;
  }
};

struct ValueOption {
  const char* sName;
  bool bListenOnly;
  bool (*Take)(const OptionArg& c);
};

const ValueOption kValueOptions[] = {
    {"--root", false, [](const OptionArg& c) { return c.o.sRoot = c.v, true; }},
    {"--loggers", false, [](const OptionArg& c) { return ToInt(c.v, 1, 999, c.o.iLoggers) || c.Bad("1 to 999"); }},
    {"--days", false, [](const OptionArg& c) { return ToInt(c.v, 1, 3660, c.o.iDays) || c.Bad("1 to 3660"); }},
    {"--segments", false,
     [](const OptionArg& c) {
       return (ToInt(c.v, 1, 60, c.o.iSegmentsPerHour) && 3600 % c.o.iSegmentsPerHour == 0) ||
              c.Bad("a divisor of 3600 from 1 to 60, so that every segment has its own name");
     }},
    {"--seconds", false,
     [](const OptionArg& c) { return ToDouble(c.v, 0.1, 3600, c.o.dSecondsPerSegment) || c.Bad("0.1 to 3600"); }},
    {"--start", false,
     [](const OptionArg& c) { return (c.o.lStartDate = ParseDay(c.v)).has_value() || c.Bad("expected YYYY-MM-DD"); }},
    {"--until", false,
     [](const OptionArg& c) {
       return (c.o.dUntil = ParseMoment(c.v)).has_value() || c.Bad("expected \"YYYY-MM-DD HH:NN\"");
     }},
    {"--audio", false,
     [](const OptionArg& c) {
       if (c.v == "tones") c.o.eAudio = AudioKind::Tones;
       else if (c.v == "noise") c.o.eAudio = AudioKind::Noise;
       else if (c.v == "speech") c.o.eAudio = AudioKind::Speech;
       else return c.Bad("tones, noise or speech");
       return true;
     }},
    {"--seed", false,
     [](const OptionArg& c) {
       char* pEnd = nullptr;
       errno = 0;
       c.o.lSeed = std::strtoull(c.v.c_str(), &pEnd, 10);
       return !(c.v.empty() || *pEnd || errno) || c.Bad("a whole number");
     }},
    {"--format", false,
     [](const OptionArg& c) {
       int32_t iLog = 0;
       std::string sRest;
       if (!SplitLoggerArg(c.v, iLog, sRest)) return c.Bad("expected [N=]OUTPUTS");
       auto aOut = ParseOutputs(sRest, c.sError);
       if (aOut) c.la.mFormats[iLog] = *aOut;
       return aOut.has_value();
     }},
    {"--hours", false,
     [](const OptionArg& c) {
       int32_t iLog = 0;
       std::string sRest;
       if (!SplitLoggerArg(c.v, iLog, sRest)) return c.Bad("expected [N=]STD,ARC,DEL");
       std::vector<std::string> h = Split(sRest, ',');
       std::array<int32_t, 3> aH{};
       if (h.size() != 3) return c.Bad("expected [N=]STD,ARC,DEL");
       for (size_t k = 0; k < 3; ++k)
         if (!ToInt(h[k], 0, 1000000, aH[k])) return c.Bad("hours are whole numbers from 0");
       c.la.mHours[iLog] = aH;
       return true;
     }},
    {"--name", false,
     [](const OptionArg& c) {
       int32_t iLog = 0;
       std::string sRest;
       if (!SplitLoggerArg(c.v, iLog, sRest) || iLog == 0) return c.Bad("expected N=NAME");
       return c.la.mNames[iLog] = sRest, true;
     }},
    {"--log-path", false,
     [](const OptionArg& c) {
       int32_t iLog = 0;
       std::string sRest;
       if (!SplitLoggerArg(c.v, iLog, sRest) || iLog == 0 || sRest.empty()) return c.Bad("expected N=PATH");
       return c.la.mPaths[iLog] = sRest, true;
     }},
    {"--disable", false,
     [](const OptionArg& c) {
       int32_t n = 0;
       if (!ToInt(c.v, 1, 999, n)) return c.Bad("a logger number");
       return c.la.aDisabled.push_back(n), true;
     }},
    {"--prepare-interval", false,
     [](const OptionArg& c) { return ToInt(c.v, 0, 3600000, c.o.iPrepareInterval) || c.Bad("milliseconds from 0"); }},
    {"--process-interval", false,
     [](const OptionArg& c) { return ToInt(c.v, 0, 3600000, c.o.iProcessInterval) || c.Bad("milliseconds from 0"); }},
    {"--hours-per-ping", false,
     [](const OptionArg& c) { return ToInt(c.v, 1, 1000000, c.o.iHoursPerPing) || c.Bad("1 or more"); }},
    {"--log-proc-start", false,
     [](const OptionArg& c) { return ToInt(c.v, 0, 59, c.o.iLogProcStart) || c.Bad("a minute, 0 to 59"); }},
    {"--copier", false, [](const OptionArg& c) { return c.o.sCopier = c.v, true; }},
    {"--prx", false, [](const OptionArg& c) { return c.o.sPrxFile = c.v, true; }},
    {"-n", true, [](const OptionArg& c) { return ToInt(c.v, 1, 1000000000, c.o.iCount) || c.Bad("1 or more"); }},
    {"-t", true,
     [](const OptionArg& c) { return ToDouble(c.v, 0.001, 1e9, c.o.dTimeout) || c.Bad("seconds above 0"); }},
};

// Every logger's settings from the options for all loggers (0) and for it alone.
bool ResolveLoggers(SimOptions& o, LoggerArgs& la, std::string& sError) {
  std::vector<int32_t> aNamed;
  for (auto* m : {&la.mNames, &la.mPaths})
    for (auto& [k, s] : *m) aNamed.push_back(k);
  for (auto& [k, x] : la.mFormats) aNamed.push_back(k);
  for (auto& [k, x] : la.mHours) aNamed.push_back(k);
  for (int32_t k : aNamed)
    if (k > o.iLoggers) return sError = fmt::format("logger {} is beyond --loggers {}", k, o.iLoggers), false;

  o.aLoggers.assign(static_cast<size_t>(o.iLoggers), LoggerSpec{});
  for (int32_t n = 1; n <= o.iLoggers; ++n) {
    LoggerSpec& l = o.aLoggers[static_cast<size_t>(n - 1)];
    for (int32_t k : {0, n}) {
      if (la.mFormats.count(k)) l.aOutputs = la.mFormats[k];
      if (la.mHours.count(k)) {
        l.iStandardHours = la.mHours[k][0];
        l.iArchiveHours = la.mHours[k][1];
        l.iDeleteHours = la.mHours[k][2];
      }
    }
    if (la.mNames.count(n)) l.sName = la.mNames[n];
    if (la.mPaths.count(n)) l.sLogPath = la.mPaths[n];
    for (int32_t d : la.aDisabled)
      if (d == n) l.bEnabled = false;
  }
  return true;
}

}  // namespace

bool ParseCommandLine(int argc, char** argv, SimOptions& o, std::string& sError) {
  LoggerArgs la;
  int i = 1;
  if (i < argc && argv[i][0] != '-') o.sCommand = argv[i++];
  if (o.sCommand != "make" && o.sCommand != "listen" && o.sCommand != "help") {
    sError = fmt::format("unknown command \"{}\"", o.sCommand);
    return false;
  }
  for (; i < argc; ++i) {
    std::string a = argv[i];
    std::string v;
    if (a == "-h" || a == "--help") {
      o.sCommand = "help";
      return true;
    }
    if (a == "--replace") {
      o.bReplace = true;
      continue;
    }
    if (a == "--quiet" || a == "-q") {
      o.bQuiet = true;
      continue;
    }
    if (o.sCommand == "listen" && a[0] != '-') {
      o.sHandler = a;
      continue;
    }
    // Options with a value: "--x VALUE" or "--x=VALUE".
    size_t iEq = a.find('=');
    if (a.rfind("--", 0) == 0 && iEq != std::string::npos) {
      v = a.substr(iEq + 1);
      a = a.substr(0, iEq);
    } else if (i + 1 < argc) {
      v = argv[++i];
    } else {
      sError = fmt::format("{} needs a value", a);
      return false;
    }
    const ValueOption* pOption = nullptr;
    for (const ValueOption& opt : kValueOptions)
      if (a == opt.sName && (!opt.bListenOnly || o.sCommand == "listen")) pOption = &opt;
    if (!pOption) {
      sError = fmt::format("unknown option {}", a);
      return false;
    }
    if (!pOption->Take(OptionArg{a, v, o, la, sError})) return false;
  }
  return ResolveLoggers(o, la, sError);
}

std::string Usage() {
  return R"(usage: kncapture-sim [make] [OPTIONS]
       kncapture-sim listen [-n COUNT] [-t SECONDS] [HANDLER]

make: makes a machine root as a Kestrane recorder leaves it: the registry with the
logger list and the processor's values, each logger's Kestrane.ini, the day and hour
folders with the audio segments and each hour's info file, and the external copier
and WMA profile file in their places. The audio is made from a seed, so the same
options give the same tree.

  --root DIR              machine root (default: $KESTRANE_ROOT, else
                          $XDG_DATA_HOME/kestrane, else ~/.local/share/kestrane)
  --loggers N             number of loggers (1)
  --days N                days recorded, up to --until (2)
  --start YYYY-MM-DD      first day recorded (default: the day that makes the last
                          of --days the day of --until)
  --until "YYYY-MM-DD HH:NN"  the recorder's present moment: hours and segments that
                          begin later are not recorded (default: now)
  --segments N            segments an hour, a divisor of 3600 up to 60 (60)
  --seconds S             seconds of audio in each segment file (default: the whole
                          segment, 3600 / N); shorter files keep a demo small
  --audio KIND            tones, noise or speech (speech-like bursts) (tones)
  --seed N                seed of the audio (1)
  --format [N=]OUTPUTS    output formats of logger N, or of every logger without N.
                          OUTPUTS is one or more outputs joined by "+", an output is
                          its formats as recorded, standard and archive joined by
                          "/", and a format is one of
                            wav:RATE:CH  ima:RATE:CH  msadpcm:RATE:CH
                            mp2:RATE:CH:KBPS  mp3:RATE:CH:KBPS  ogg:RATE:CH:KBPS
                            wma:PROFILE  none
                          e.g. "wav:44100:2/ima:22050:2/ima:22050:1" (the factory
                          format, also the default)
  --hours [N=]STD,ARC,DEL hours after its recording at which an hour is standardised,
                          archived, deleted (48,336,1008); 0 for STD or ARC: no such
                          step; 0 for DEL: never deleted
  --name N=TEXT           name of logger N ("Logger N")
  --log-path N=PATH       folder of logger N as stored in the registry
                          (D:\Kestrane\LoggerN)
  --disable N             store logger N as disabled
  --prepare-interval MS   "PrepareTimerInterval" (100)
  --process-interval MS   "ProcessTimerInterval" (500)
  --hours-per-ping N      "PrepareHoursPerPing" (6)
  --log-proc-start MIN    "LogProcStart" (5)
  --copier FILE           the copier to install (default: SoundShuttle beside this
                          program)
  --prx FILE              the WMA profile file to install (default: nvkn4.prx of
                          the source tree or the install)
  --replace               remove logger folders that are already there (otherwise
                          an existing, non-empty logger folder is an error)
  -q, --quiet             no summary

listen: binds the handler name (KNCaptureMsgHandler) as the capture process does and
prints each message the processor sends, one a line, with its time of arrival. Stops
after COUNT messages, after SECONDS without one, or at SIGINT or SIGTERM.
)";
}

}  // namespace sim
