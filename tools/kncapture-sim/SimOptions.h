#pragma once
// The command line of kncapture-sim: what recorder to make. Parsing only; SimTree makes it.
#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace sim {

// The audio format of one period of an output.
struct PeriodSpec {
  int32_t iType = -1;  // format type: -1 none, 2 WAV, 4 MP3, 8 Ogg, 16 WMA, 32 MP2
  int32_t iSampleRate = 0;
  int32_t iChannels = 0;
  int32_t iBitRate = 0;    // kbit/s for MP2, MP3, Ogg
  int32_t iFormatTag = 0;  // WAV: 1 PCM, 2 MS ADPCM, 17 IMA ADPCM
  int32_t iProfile = 0;    // WMA profile number
};

// One output of a logger: its three periods (as recorded, standard, archive).
struct OutputSpec {
  std::array<PeriodSpec, 3> aPeriod;
};

struct LoggerSpec {
  std::string sName;     // empty: "Logger <n>"
  std::string sLogPath;  // as stored in the registry; empty: the default path
  int32_t iStandardHours = 48;
  int32_t iArchiveHours = 336;
  int32_t iDeleteHours = 1008;
  std::vector<OutputSpec> aOutputs;  // empty: the factory format
  bool bEnabled = true;
};

enum class AudioKind { Tones, Noise, Speech };

struct SimOptions {
  std::string sCommand = "make";  // make, listen, help
  std::string sRoot;              // machine root; empty: KESTRANE_ROOT or its default
  int32_t iLoggers = 1;
  int32_t iDays = 2;
  int32_t iSegmentsPerHour = 60;
  double dSecondsPerSegment = -1;     // audio in each file; -1: the whole segment
  std::optional<int32_t> lStartDate;  // day serial of the first day
  std::optional<double> dUntil;       // last moment recorded; default: now
  AudioKind eAudio = AudioKind::Tones;
  uint64_t lSeed = 1;
  std::vector<LoggerSpec> aLoggers;  // one per logger, after Resolve()
  // The processor's own registry values.
  int32_t iPrepareInterval = 100;
  int32_t iProcessInterval = 500;
  int32_t iHoursPerPing = 6;
  int32_t iLogProcStart = 5;
  std::string sCopier;   // empty: SoundShuttle beside this program
  std::string sPrxFile;  // empty: looked for beside this program
  bool bReplace = false;
  bool bQuiet = false;
  // listen
  std::string sHandler = "KNCaptureMsgHandler";
  int32_t iCount = -1;
  double dTimeout = -1;
};

// Parses "wav:44100:2", "ima:22050:1", "mp2:44100:2:192", "wma:23", "none". nullopt and
// sError set when the text is no period.
std::optional<PeriodSpec> ParsePeriod(const std::string& sText, std::string& sError);
// Parses one output "P0/P1/P2" (missing periods are none) or several joined by "+".
std::optional<std::vector<OutputSpec>> ParseOutputs(const std::string& sText, std::string& sError);
// Parses the whole command line (argv[1] on). False with sError on a bad line.
bool ParseCommandLine(int argc, char** argv, SimOptions& o, std::string& sError);

std::string Usage();

}  // namespace sim
