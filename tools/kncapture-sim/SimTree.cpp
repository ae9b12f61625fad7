#include "SimTree.h"

#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "SimAudio.h"
#include "audio/AudioFormatHelpers.h"
#include "audio/AudioTypes.h"
#include "audio/ChooseAudioClass.h"
#include "audio/IAudioFile.h"
#include "audio/IAudioFormat.h"
#include "config/CLog.h"
#include "config/CStream.h"
#include "config/ClogPeriods.h"
#include "config/LogInfo.h"
#include "hours/CHourlyInf.h"
#include "support/Clock.h"
#include "support/ConfigAccess.h"
#include "support/FileHelper.h"
#include "support/FileUtils.h"
#include "support/Machine.h"
#include "support/VbDate.h"

namespace sim {

namespace {

constexpr const char* kProcessorKey = "SOFTWARE\\Norvane\\Kestrane v4\\Log Processor";
constexpr const char* kProductKey = "SOFTWARE\\Norvane\\Kestrane v4";

// The factory format of an output: PCM as recorded, IMA ADPCM stereo, then mono.
OutputSpec FactoryOutput() {
  OutputSpec o;
  o.aPeriod[0] = {FormatWAV, 44100, 2, 0, WAVE_FORMAT_PCM, 0};
  o.aPeriod[1] = {FormatWAV, 22050, 2, 0, WAVE_FORMAT_IMA_ADPCM, 0};
  o.aPeriod[2] = {FormatWAV, 22050, 1, 0, WAVE_FORMAT_IMA_ADPCM, 0};
  return o;
}

std::shared_ptr<IAudioFormat> MakeFormat(const PeriodSpec& p) {
  auto f = ChooseAudioClass(p.iType);
  if (!f || p.iType == -1) return f;
  auto c = std::make_shared<CommonAudioFormat>();
  c->SetFormatType(p.iType);
  c->SetSampleRate(p.iSampleRate);
  c->SetChannels(p.iChannels);
  c->SetBitRate(p.iBitRate);
  c->SetBitsPerSample(16);
  c->SetFormatTag(p.iFormatTag);
  c->SetProfileNum(p.iProfile);
  f->SetCommonFormat(c);
  return f;
}

bool CopyFileAtomically(const std::string& sFrom, const std::string& sTo, mode_t iMode, std::string& sError) {
  std::string sContent;
  if (int rc = ReadWholeFile(sFrom, sContent); rc != 0) {
    sError = fmt::format("cannot read {}: {}", sFrom, std::strerror(rc));
    return false;
  }
  if (!FileHelper::EnsureFolder(FileHelper::GetFolder(sTo))) {
    sError = fmt::format("cannot make the folder of {}", sTo);
    return false;
  }
  if (int rc = WriteFileAtomically(sTo, sContent); rc != 0) {
    sError = fmt::format("cannot write {}: {}", sTo, std::strerror(rc));
    return false;
  }
  chmod(sTo.c_str(), iMode);
  return true;
}

// A folder that holds anything at all.
bool FolderHasEntries(const std::string& sFolder) {
  FileHelper::FindHandle h = 0;
  std::string s = FileHelper::FindFirst(sFolder + "/*.*", FileHelper::kAttrDirectory, h);
  bool bAny = false;
  while (!s.empty()) {
    if (s != "." && s != "..") {
      bAny = true;
      break;
    }
    s = FileHelper::FindNext(h);
  }
  FileHelper::FindClose(h);
  return bAny;
}

}  // namespace

std::string ProgramFolder() {
  char sz[4096];
  ssize_t n = readlink("/proc/self/exe", sz, sizeof sz - 1);
  if (n <= 0) return ".";
  sz[n] = 0;
  return FileHelper::GetFolder(sz);
}

bool RecorderMaker::Make(std::string& sError) {
  m_aResults.clear();
  m_dUntil = m_o.dUntil ? *m_o.dUntil : Clock::Now();
  int32_t lLastDay = VbDate::DayOf(m_dUntil);
  m_lFirstDay = m_o.lStartDate ? *m_o.lStartDate : lLastDay - (m_o.iDays - 1);

  // Refuse to write into a logger folder that holds something, unless told to replace.
  for (size_t i = 0; i < m_o.aLoggers.size(); ++i) {
    const LoggerSpec& l = m_o.aLoggers[i];
    std::string sPath = l.sLogPath.empty() ? CStream::DefaultLogPath(static_cast<int32_t>(i + 1)) : l.sLogPath;
    std::string sFolder = Machine::TranslatePath(sPath);
    if (FileHelper::FolderExists(sFolder) && FolderHasEntries(sFolder)) {
      if (!m_o.bReplace) {
        sError = fmt::format("{} holds files already; remove it or give --replace", sFolder);
        return false;
      }
      if (int rc = FileHelper::DeleteFolder(sFolder); rc != 0) {
        sError = fmt::format("cannot remove {}: {}", sFolder, std::strerror(rc));
        return false;
      }
    }
  }
  if (!InstallSupportFiles(sError)) return false;
  WriteRegistry();
  for (size_t i = 0; i < m_o.aLoggers.size(); ++i)
    if (!MakeLogger(static_cast<int32_t>(i + 1), m_o.aLoggers[i], sError)) return false;
  return true;
}

bool RecorderMaker::InstallSupportFiles(std::string& sError) {
  const std::string sCommon = FileHelper::SpecialFolder(FileHelper::kCommonProgramFiles);
  const std::string sHere = ProgramFolder();

  std::string sCopier = m_o.sCopier.empty() ? sHere + "/SoundShuttle" : m_o.sCopier;
  if (!FileHelper::FileExists(sCopier)) {
    sError = fmt::format("no copier at {}; build SoundShuttle or give --copier", sCopier);
    return false;
  }
  if (!CopyFileAtomically(sCopier, sCommon + "/Norvane Shared/Sound Shuttle/SoundShuttle", 0755, sError)) return false;

  std::string sPrx = m_o.sPrxFile;
  if (sPrx.empty()) {
    for (const std::string& s : {sHere + "/nvkn4.prx", sHere + "/../../data/nvkn4.prx", sHere + "/../data/nvkn4.prx",
                                 sHere + "/../share/kestrane/nvkn4.prx"}) {
      if (FileHelper::FileExists(s)) {
        sPrx = s;
        break;
      }
    }
  }
  if (sPrx.empty() || !FileHelper::FileExists(sPrx)) {
    sError = "no WMA profile file nvkn4.prx found; give --prx";
    return false;
  }
  return CopyFileAtomically(sPrx, sCommon + "/Norvane Shared/Kestrane v4/nvkn4.prx", 0644, sError);
}

void RecorderMaker::WriteRegistry() {
  const std::string sCapture = CStream::kDefaultRoot;
  ConfigAccess::SetRegLong(sCapture, "LogCount", m_o.iLoggers);
  ConfigAccess::SetRegLong(sCapture, "LogProcStart", m_o.iLogProcStart);
  ConfigAccess::SetRegLong(kProcessorKey, "PrepareTimerInterval", m_o.iPrepareInterval);
  ConfigAccess::SetRegLong(kProcessorKey, "ProcessTimerInterval", m_o.iProcessInterval);
  ConfigAccess::SetRegLong(kProcessorKey, "PrepareHoursPerPing", m_o.iHoursPerPing);
  ConfigAccess::SetRegLong(kProcessorKey, "UseExceptionHandler", 1);
  for (const char* sExt : {"WAV", "MP3", "OGG", "WMA", "MP2"})
    ConfigAccess::SetRegString(kProductKey, std::string("LogProcAccuracy") + sExt, "1");

  for (size_t i = 0; i < m_o.aLoggers.size(); ++i) {
    const LoggerSpec& l = m_o.aLoggers[i];
    CStream s;
    s.logNum(static_cast<int16_t>(i + 1));  // gives the default paths of that number
    if (!l.sLogPath.empty()) s.LogPath(l.sLogPath);
    s.Enabled(l.bEnabled);
    s.AutoStart(true);
    s.InputLevel(50);
    s.ChannelMode(2);
    s.SaveToDisk(CStream::sfLogPath | CStream::sfLevels | CStream::sfEnabled | CStream::sfAutostart | CStream::sfPaths |
                 CStream::sfChannels);
  }
}

bool RecorderMaker::MakeLogger(int32_t n, const LoggerSpec& l, std::string& sError) {
  LoggerResult r;
  r.iLogNum = n;
  r.sLogPath = l.sLogPath.empty() ? CStream::DefaultLogPath(n) : l.sLogPath;
  r.sFolder = Machine::TranslatePath(r.sLogPath);
  if (!FileHelper::EnsureFolder(r.sFolder)) {
    sError = fmt::format("cannot make the logger folder {}", r.sFolder);
    return false;
  }

  // The settings file, written by the logger's own class.
  CLog oLog;
  if (!ConfigureLog(oLog, n, l, sError)) return false;
  r.sName = oLog.Name();

  // The recorded hours: whole days from the first day, as far as the present moment.
  const std::vector<Segment> aSegs = RecordedSegments(oLog.LogSegmentLength());
  oLog.FirstLog = std::make_shared<LogInfo>();
  oLog.LastLog = std::make_shared<LogInfo>();
  if (aSegs.empty()) {
    oLog.FirstLog->SetEmpty();
    oLog.LastLog->SetEmpty();
  } else {
    *oLog.FirstLog = LogInfo(aSegs.front().lDate, static_cast<int16_t>(aSegs.front().iHour),
                             static_cast<int16_t>(aSegs.front().iSeg));
    *oLog.LastLog =
        LogInfo(aSegs.back().lDate, static_cast<int16_t>(aSegs.back().iHour), static_cast<int16_t>(aSegs.back().iSeg));
  }
  oLog.SaveLog(r.sLogPath, CLog::svName | CLog::svGeneral | CLog::svLogSettings | CLog::svFormats | CLog::svSilence |
                               CLog::svFirstLog | CLog::svLastLog);

  // Read it back as the processor will, and write the audio in the formats it finds.
  CLog oRead;
  if (!oRead.LoadLog(r.sLogPath, CLog::lfGeneral | CLog::lfLogSettings | CLog::lfFormats)) {
    sError = fmt::format("logger {}: the settings file just written does not load", n);
    return false;
  }
  if (!WriteSegments(n, l, oRead, aSegs, r, sError)) return false;
  m_aResults.push_back(r);
  return true;
}

bool RecorderMaker::ConfigureLog(CLog& oLog, int32_t n, const LoggerSpec& l, std::string& sError) const {
  std::vector<OutputSpec> aOutputs = l.aOutputs.empty() ? std::vector<OutputSpec>{FactoryOutput()} : l.aOutputs;
  oLog.LoadDefaults(CLog::ldAll);
  oLog.logNum(static_cast<int16_t>(n));
  if (!l.sName.empty()) oLog.Name(l.sName);
  oLog.description = "Made by kncapture-sim";
  oLog.NumLogSegmentsPerHour(m_o.iSegmentsPerHour);
  oLog.StandardHours(l.iStandardHours);
  oLog.ArchiveHours(l.iArchiveHours);
  oLog.DeleteHours(l.iDeleteHours);
  oLog.OutputFormatCount(static_cast<int32_t>(aOutputs.size()));
  for (size_t i = 0; i < aOutputs.size(); ++i) {
    auto oPeriods = oLog.AudioFormat(static_cast<int32_t>(i));
    for (int32_t p = 0; p < 3; ++p) {
      auto f = MakeFormat(aOutputs[i].aPeriod[static_cast<size_t>(p)]);
      if (!f) {
        sError = fmt::format("logger {}: no audio class for output {} period {}", n, i, p);
        return false;
      }
      oPeriods->Period(p, f);
    }
  }
  return true;
}

std::vector<RecorderMaker::Segment> RecorderMaker::RecordedSegments(int32_t iSegLen) const {
  std::vector<Segment> aSegs;
  for (int32_t d = m_lFirstDay; d < m_lFirstDay + m_o.iDays; ++d)
    for (int32_t h = 0; h < 24; ++h)
      for (int32_t s = 0; s < m_o.iSegmentsPerHour; ++s) {
        double dBegin = d + (h * 3600.0 + static_cast<double>(s) * iSegLen) / 86400.0;
        if (dBegin <= m_dUntil + 1e-9) aSegs.push_back({d, h, s});
      }
  return aSegs;
}

bool RecorderMaker::WriteSegments(int32_t n, const LoggerSpec& l, const CLog& oRead, const std::vector<Segment>& aSegs,
                                  LoggerResult& r, std::string& sError) {
  int32_t lLastHourDate = -1, iLastHour = -1;
  for (const Segment& s : aSegs) {
    std::string sHourFolder = r.sFolder + "/" + oRead.GetHourFolder(s.lDate, static_cast<int16_t>(s.iHour));
    if (s.lDate != lLastHourDate || s.iHour != iLastHour) {
      lLastHourDate = s.lDate;
      iLastHour = s.iHour;
      if (!FileHelper::EnsureFolder(sHourFolder)) {
        sError = fmt::format("cannot make {}", sHourFolder);
        return false;
      }
      const std::string sInf = sHourFolder + "/" + oRead.GetHourFileName(static_cast<int16_t>(s.iHour)) + ".inf";
      if (!WriteHourInfo(sInf, l, s.lDate, s.iHour)) {
        sError = fmt::format("cannot write {}", sInf);
        return false;
      }
      ++r.iHours;
    }
    for (int32_t i = 0; i < oRead.OutputFormatCount(); ++i) {
      int32_t iType = oRead.AudioFormat(i)->Period(0)->FormatType();
      std::string sFile = sHourFolder + "/" + oRead.GetBaseFileName(static_cast<int16_t>(s.iHour), s.iSeg) +
                          ClogPeriods::UpperLetter(i) + "." + FormatTypeExtension(iType);
      uint64_t lKey = (static_cast<uint64_t>(n) << 48) ^ (static_cast<uint64_t>(i) << 40) ^
                      (static_cast<uint64_t>(s.lDate) << 16) ^ (static_cast<uint64_t>(s.iHour) << 8) ^
                      static_cast<uint64_t>(s.iSeg);
      if (!WriteSegment(oRead, i, sFile, lKey, sError)) return false;
      ++r.iFiles;
      r.lBytes += FileHelper::FileSize(sFile);
    }
  }
  return true;
}

bool RecorderMaker::WriteSegment(const CLog& oLog, int32_t iOutput, const std::string& sFile, uint64_t lKey,
                                 std::string& sError) {
  auto oFormat = oLog.AudioFormat(iOutput)->Period(0)->IAudioFormat_Copy();
  auto oFile = std::dynamic_pointer_cast<IAudioFile>(oFormat);
  if (!oFile) {
    sError = fmt::format("{}: the recorded format has no audio class", sFile);
    return false;
  }
  oFile->SetBufLenSecs(1.0);
  oFile->SetMemFormat(GetMemFormat());
  if (int32_t rc = oFile->OpenAudioFile(sFile, AudioFileWrite); rc != 0) {
    sError = fmt::format("{}: cannot open for writing ({})", sFile, rc);
    return false;
  }
  const int32_t iSegLen = oLog.LogSegmentLength();
  const double dSeconds = m_o.dSecondsPerSegment > 0 ? m_o.dSecondsPerSegment : iSegLen;
  int64_t lFrames = std::llround(dSeconds * SegmentAudio::kRate);
  SegmentAudio oAudio(m_o.eAudio, m_o.lSeed, lKey);
  std::vector<int16_t> aBuf;
  while (lFrames > 0) {
    int32_t iNow = static_cast<int32_t>(std::min<int64_t>(lFrames, SegmentAudio::kRate));
    aBuf.clear();
    oAudio.Next(iNow, aBuf);
    int32_t lBytes = static_cast<int32_t>(aBuf.size() * sizeof(int16_t));
    if (oFile->WriteAudioData(aBuf.data(), lBytes) < 0) {
      sError = fmt::format("{}: write failed", sFile);
      return false;
    }
    lFrames -= iNow;
  }
  if (int32_t rc = oFile->CloseAudioFile(); rc != 0 || !FileHelper::FileExists(sFile)) {
    sError = fmt::format("{}: close failed ({})", sFile, rc);
    return false;
  }
  return true;
}

bool RecorderMaker::WriteHourInfo(const std::string& sFile, const LoggerSpec& l, int32_t lDate, int32_t iHour) {
  // Points as the capture process writes them: the hour plus the logger's hours. A
  // step of 0 hours is not wanted ("-1"); a delete after 0 hours means never, which a
  // point on day 0 says (never due). An absent or "-1" delete point would order the
  // hour deleted at once.
  auto point = [&](int32_t lHours, bool bDelete) {
    auto o = std::make_shared<LogInfo>(lDate, static_cast<int16_t>(iHour), 0);
    if (lHours > 0) return o->AddHours(lHours);
    if (bDelete) *o = LogInfo(0, 0, 0);
    else o->SetEmpty();
    return o;
  };
  CHourlyInf oInf;
  oInf.FileName(sFile);
  oInf.SegmentsInHour(static_cast<int16_t>(m_o.iSegmentsPerHour));
  oInf.StandardPoint(point(l.iStandardHours, false));
  oInf.ArchivePoint(point(l.iArchiveHours, false));
  oInf.DeletePoint(point(l.iDeleteHours, true));
  return oInf.Save();
}

}  // namespace sim
