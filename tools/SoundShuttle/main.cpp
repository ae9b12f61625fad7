// SoundShuttle: the external copier. Converts one audio file into the format named on
// its command line; see ShuttleUsage() for the command line and the format text.
#include <malloc.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "ShuttleArgs.h"
#include "audio/AudioFormatHelpers.h"
#include "audio/AudioTypes.h"
#include "audio/CommonAudioFormat.h"
#include "audio/codec/CodecError.h"
#include "audio/codec/CodecFile.h"
#include "audio/codec/WmaFile.h"
#include "support/FileUtils.h"
#include "support/UniqueFd.h"

namespace {

constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;
constexpr int kExitDestination = 3;
// Frames a read and write carries.
constexpr int32_t kChunkFrames = 32768;

// The temporary file, for the signal handler to remove.
char g_szTempFile[4096] = {};

void OnSignal(int iSignal) {
  if (g_szTempFile[0]) unlink(g_szTempFile);
  signal(iSignal, SIG_DFL);
  raise(iSignal);
}

void InstallSignalHandlers() {
  struct sigaction sa {};
  sa.sa_handler = OnSignal;
  sigemptyset(&sa.sa_mask);
  // Every signal that ends the run by default and can be caught: a stop from outside, a
  // file grown past the size limit, a crash. (SIGKILL cannot be caught; the processor
  // removes what such a run leaves at the next run of the hour.)
  for (int s : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGQUIT, SIGXFSZ, SIGXCPU, SIGALRM, SIGUSR1, SIGUSR2, SIGABRT,
                SIGSEGV, SIGBUS, SIGFPE, SIGILL})
    sigaction(s, &sa, nullptr);
}

struct Failure {
  int iExit;
  std::string sText;
};

int g_iDebug = 0;
void Trace(const std::string& s) {
  if (g_iDebug) std::fprintf(stderr, "SoundShuttle: %s\n", s.c_str());
}

// The writer of the destination: a codec file or a WMA file.
class Destination {
 public:
  Destination(const CommonAudioFormat& fmt, const std::string& sPrxFile) : m_iType(fmt.FormatType()) {
    switch (m_iType) {
      case FormatWAV:
        if (fmt.FormatTag() == 1) m_codec.SetFormatPCM(fmt.SampleRate(), fmt.Channels(), 16);
        else if (fmt.FormatTag() == 17) m_codec.SetFormatADPCM(fmt.SampleRate(), fmt.Channels());
        else
          throw Failure{kExitUsage,
                        "WAV format tag " + std::to_string(fmt.FormatTag()) + " is not written (1 PCM, 17 IMA ADPCM)"};
        m_iFileType = CodecFile::kTypeWAV;
        break;
      case FormatMP3: {
        Mp3Options o;
        o.SetSampleRate(fmt.SampleRate());
        o.SetChannels(fmt.Channels());
        o.SetBitRate(fmt.BitRate());
        m_codec.SetFormatMP3(o);
        m_iFileType = CodecFile::kTypeMP3;
        break;
      }
      case FormatOGG:
        m_codec.SetFormatOGG(fmt.SampleRate(), fmt.Channels(), fmt.BitRate(), 0, 0, true);
        m_iFileType = CodecFile::kTypeOGG;
        break;
      case FormatMP2:
        m_codec.SetFormatMP2(fmt.SampleRate(), fmt.BitRate(), fmt.Channels());
        m_iFileType = CodecFile::kTypeMP2;
        break;
      case FormatWMA: SetUpWma(fmt, sPrxFile); break;
      default:
        throw Failure{kExitUsage, "format type " + std::to_string(m_iType) +
                                      " is not written (2 WAV, 4 MP3, 8 OGG, 16 WMA, 32 MP2)"};
    }
    if (m_iType != FormatWMA && (fmt.BitRate() <= 0 && m_iType != FormatWAV))
      throw Failure{kExitUsage, "no bit rate in the format text"};
  }

  int32_t SampleRate() const { return m_iType == FormatWMA ? m_wma.SampleRate() : m_codec.SampleRate(); }
  int32_t Channels() const { return m_iType == FormatWMA ? m_wma.Channels() : m_codec.Channels(); }
  int32_t BitRate() const { return m_iType == FormatWMA ? m_wma.BitRate() : m_codec.BitRate(); }

  void Create(const std::string& sPath) {
    if (m_iType == FormatWMA) {
      m_wma.SetArrayFormat(SampleRate(), Channels());
      m_wma.Create(sPath);
    } else {
      m_codec.SetArrayFormat(SampleRate(), Channels());
      m_codec.Create(sPath, m_iFileType);
    }
  }
  void Write(const std::vector<int16_t>& a) {
    if (m_iType == FormatWMA) m_wma.WriteSamples(a);
    else m_codec.WriteSamples(a);
  }
  void Close() {
    if (m_iType == FormatWMA) m_wma.Close();
    else m_codec.Close();
  }

 private:
  void SetUpWma(const CommonAudioFormat& fmt, const std::string& sPrxFile) {
    std::string sPrx = sPrxFile.empty() ? fmt.ProfileFile() : sPrxFile;
    if (!sPrx.empty()) {
      try {
        m_wma.LoadProfiles(sPrx);
        Trace("profile file " + sPrx + ": " + std::to_string(m_wma.Profiles().size()) + " profiles");
      } catch (const CodecError& e) {
        Trace(e.Description);
      }
    }
    m_wma.SetProfileNum(fmt.ProfileNum());
    if (!m_wma.FindProfile(fmt.ProfileNum())) {
      // No such profile: the values of the format text, if it has them.
      WmaProfile p;
      p.lNumber = fmt.ProfileNum() > 0 ? fmt.ProfileNum() : 9999;
      p.lSampleRate = fmt.SampleRate();
      p.lChannels = fmt.Channels();
      p.lBitRateKbps = fmt.BitRate();
      if (p.lSampleRate <= 0 || p.lChannels <= 0 || p.lBitRateKbps <= 0)
        throw Failure{kExitUsage, "WMA profile " + std::to_string(fmt.ProfileNum()) + " not found" +
                                      (sPrx.empty() ? std::string(" (no profile file)") : " in " + sPrx)};
      m_wma.AddProfile(p);
      m_wma.SetProfileNum(p.lNumber);
    }
  }

  int32_t m_iType;
  int32_t m_iFileType = 0;
  CodecFile m_codec;
  WmaFile m_wma;
};

Failure DestinationExists(const std::string& sDst) {
  return Failure{kExitDestination,
                 "destination " + sDst + " exists and is not replaced: remove it or name another destination"};
}

// The destination's writer for the format text, or the failure that says why there is none.
std::unique_ptr<Destination> MakeDestination(const ShuttleArgs& args) {
  struct stat st {};
  if (lstat(args.sDstFile.c_str(), &st) == 0) throw DestinationExists(args.sDstFile);
  CommonAudioFormat fmt;
  if (!fmt.ParseFormatText(args.sDstFormat))
    throw Failure{kExitUsage, "no FormatType in the format text: " + args.sDstFormat};
  std::unique_ptr<Destination> pDst;
  try {
    pDst = std::make_unique<Destination>(fmt, args.sPrxFile);
  } catch (const CodecError& e) {
    throw Failure{kExitUsage, "unusable destination format (" + e.Description + "): " + args.sDstFormat};
  }
  Trace("destination " + std::to_string(pDst->SampleRate()) + " Hz, " + std::to_string(pDst->Channels()) +
        " channels, " + std::to_string(pDst->BitRate()) + " bit/s");
  return pDst;
}

// Opens the source, delivering samples at the destination's rate and channels.
void OpenSource(CodecFile& src, const ShuttleArgs& args, const Destination& dst) {
  src.SetUseWindowsMedia(FormatTypeFromFile(args.sSrcFile) == FormatWMA);
  src.SetArrayFormat(dst.SampleRate(), dst.Channels());
  try {
    src.Open(args.sSrcFile, 0, 1);
  } catch (const CodecError&) {
    struct stat st {};
    if (stat(args.sSrcFile.c_str(), &st) != 0)
      throw Failure{kExitFailed, "cannot read source " + args.sSrcFile + ": " + std::strerror(errno)};
    throw Failure{kExitFailed, "source is not readable audio: " + args.sSrcFile};
  }
  Trace("source " + std::to_string(src.SampleRate()) + " Hz, " + std::to_string(src.Channels()) + " channels, " +
        std::to_string(src.LengthMs()) + " ms");
}

// The temporary file beside the destination: made empty, its name known to the signal
// handler, and removed when the guard goes unless it was kept.
struct TempGuard {
  std::string sPath;
  bool bKeep = false;
  ~TempGuard() {
    if (!bKeep) unlink(sPath.c_str());
    g_szTempFile[0] = '\0';
  }
};

std::string MakeTempFile(const std::string& sDstFile) {
  const std::string sFolder = FolderOf(sDstFile);
  const std::string sTemplate = sFolder + "/." + NameOf(sDstFile) + ".shuttle-XXXXXX";
  if (sTemplate.size() >= sizeof g_szTempFile)
    throw Failure{kExitDestination, "destination path too long: " + sDstFile};
  std::vector<char> aName(sTemplate.begin(), sTemplate.end());
  aName.push_back('\0');
  UniqueFd fd(mkstemp(aName.data()));
  if (!fd) throw Failure{kExitDestination, "cannot write in folder " + sFolder + ": " + std::strerror(errno)};
  std::memcpy(g_szTempFile, aName.data(), aName.size());
  return aName.data();
}

// Every sample of the source through the destination's encoder into sTemp.
void CopySamples(CodecFile& src, Destination& dst, const std::string& sTemp) {
  try {
    dst.Create(sTemp);
    int64_t lFrames = 0;
    for (;;) {
      std::vector<int16_t> a;
      try {
        a = src.ReadSamples(kChunkFrames);
      } catch (const CodecError& e) {
        Trace("read ended: " + e.Description);
        break;
      }
      if (a.empty()) break;
      dst.Write(a);
      lFrames += static_cast<int64_t>(a.size()) / dst.Channels();
    }
    dst.Close();
    Trace("wrote " + std::to_string(lFrames) + " frames");
  } catch (const CodecError& e) {
    throw Failure{kExitFailed, "conversion failed: " + e.Description};
  }
}

// The finished temporary file, flushed, under the destination's name; never over another
// file: one that appeared under the name while this run worked stays as it is, and this
// run's output goes.
void PutInPlace(TempGuard& guard, const std::string& sDstFile) {
  if (int rc = SyncFile(guard.sPath))
    throw Failure{kExitDestination, "cannot flush " + guard.sPath + ": " + std::strerror(rc)};
  chmod(
      guard.sPath.c_str(), 0644 & ~[] {
        mode_t m = umask(0);
        umask(m);
        return m;
      }());
  if (int iErr = RenameNoReplace(guard.sPath, sDstFile)) {
    if (iErr == EEXIST) throw DestinationExists(sDstFile);
    throw Failure{kExitDestination, "cannot rename to " + sDstFile + ": " + std::strerror(iErr)};
  }
  guard.bKeep = true;
  SyncFolder(FolderOf(sDstFile));
}

void Convert(const ShuttleArgs& args) {
  std::unique_ptr<Destination> pDst = MakeDestination(args);
  CodecFile src;
  OpenSource(src, args, *pDst);
  TempGuard guard{MakeTempFile(args.sDstFile)};
  Trace("writing " + guard.sPath);
  CopySamples(src, *pDst, guard.sPath);
  PutInPlace(guard, args.sDstFile);
  Trace("done: " + args.sDstFile);
}

// One run of the copier on the arguments of one file: its exit status, and a line on
// standard error that says what failed. pHelp takes the text of --help.
int RunOne(const std::vector<std::string>& aArgs, int iServerDebug, std::FILE* pHelp) {
  ShuttleArgs args;
  std::string sError;
  if (!ParseShuttleArgs(aArgs, args, sError)) {
    std::fprintf(stderr, "SoundShuttle: %s (see SoundShuttle --help)\n", sError.c_str());
    return kExitUsage;
  }
  if (args.bHelp) {
    std::fputs(ShuttleUsage().c_str(), pHelp);
    return 0;
  }
  if (args.bServe) {
    std::fprintf(stderr, "SoundShuttle: /SERVE is not a switch of one file's run\n");
    return kExitUsage;
  }
  g_iDebug = std::max(args.iDebug, iServerDebug);
  SetCodecLogging(g_iDebug >= 10);
  try {
    Convert(args);
  } catch (const Failure& f) {
    std::fprintf(stderr, "SoundShuttle: %s\n", f.sText.c_str());
    return f.iExit;
  } catch (const CodecError& e) {
    std::fprintf(stderr, "SoundShuttle: %s\n", e.Description.c_str());
    return kExitFailed;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "SoundShuttle: %s\n", e.what());
    return kExitFailed;
  }
  return 0;
}

// Reads the requests of a server from standard input: the arguments of one file, each
// ended by a NUL, and an empty argument after the last.
class RequestReader {
 public:
  enum class Got { Request, End, Broken };
  Got Next(std::vector<std::string>& aArgs) {
    aArgs.clear();
    std::string sArg;
    bool bAny = false;
    for (;;) {
      if (m_lPos == m_lFill) {
        ssize_t n;
        do {
          n = read(STDIN_FILENO, m_aBuf, sizeof m_aBuf);
        } while (n < 0 && errno == EINTR);
        if (n <= 0) return bAny ? Got::Broken : Got::End;
        m_lPos = 0;
        m_lFill = static_cast<size_t>(n);
      }
      const char c = m_aBuf[m_lPos++];
      bAny = true;
      if (c != '\0') {
        sArg += c;
      } else if (sArg.empty()) {
        return Got::Request;
      } else {
        aArgs.push_back(std::move(sArg));
        sArg.clear();
      }
    }
  }

 private:
  char m_aBuf[4096];
  size_t m_lPos = 0, m_lFill = 0;
};

// Serves file after file (see ShuttleUsage()); each file is the one-file run, with
// nothing kept from one to the next but the process.
int Serve(int iDebug) {
  std::fputs("SoundShuttle serve 1\n", stdout);
  if (std::fflush(stdout) != 0) return kExitFailed;
  RequestReader oReader;
  std::vector<std::string> aArgs;
  for (;;) {
    switch (oReader.Next(aArgs)) {
      case RequestReader::Got::End: return 0;
      case RequestReader::Got::Broken:
        std::fprintf(stderr, "SoundShuttle: the input ended inside a request\n");
        return kExitUsage;
      case RequestReader::Got::Request: break;
    }
    // Standard output carries the answers: the help text goes to standard error.
    const int iExit = RunOne(aArgs, iDebug, stderr);
    std::printf("%d\n", iExit);
    if (std::fflush(stdout) != 0) return kExitFailed;
  }
}

}  // namespace

int main(int argc, char** argv) {
  // The copy loop hands blocks of 128 KB between reader and writer. Left to its defaults
  // the allocator maps and unmaps (or grows and trims the heap for) each of them, and the
  // page faults cost a third of the time of a cheap encoder; keep the memory instead.
  mallopt(M_MMAP_THRESHOLD, 16 << 20);
  mallopt(M_TRIM_THRESHOLD, 64 << 20);
  const std::vector<std::string> aArgs(argv + 1, argv + argc);
  ShuttleArgs args;
  std::string sError;
  if (ParseShuttleArgs(aArgs, args, sError) && args.bServe && !args.bHelp) {
    InstallSignalHandlers();
    return Serve(args.iDebug);
  }
  if (sError.empty() && !args.bHelp) InstallSignalHandlers();
  return RunOne(aArgs, 0, stdout);
}
