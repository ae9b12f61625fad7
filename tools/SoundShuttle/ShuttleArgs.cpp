#include "ShuttleArgs.h"

#include <algorithm>
#include <cctype>

namespace {

std::string Upper(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return s;
}

std::string Unquote(std::string s) {
  if (s.size() >= 2 && s.front() == '"' && s.back() == '"') return s.substr(1, s.size() - 2);
  return s;
}

}  // namespace

bool ParseShuttleArgs(const std::vector<std::string>& aArgs, ShuttleArgs& args, std::string& sError) {
  std::string* pLast = nullptr;
  for (const std::string& sRaw : aArgs) {
    std::string a = Unquote(sRaw);
    std::string sName, sValue;
    bool bSwitch = a.size() > 1 && (a[0] == '/' || a[0] == '-');
    if (bSwitch) {
      size_t e = a.find('=');
      sName = Upper(a.substr(1, e == std::string::npos ? std::string::npos : e - 1));
      while (!sName.empty() && sName[0] == '-') sName.erase(0, 1);  // --help
      sValue = e == std::string::npos ? std::string() : Unquote(a.substr(e + 1));
    }
    if (bSwitch && (sName == "SRCFILE" || sName == "DSTFILE" || sName == "DSTFORMAT" || sName == "PRXFILE")) {
      std::string& s = sName == "SRCFILE"     ? args.sSrcFile
                       : sName == "DSTFILE"   ? args.sDstFile
                       : sName == "DSTFORMAT" ? args.sDstFormat
                                              : args.sPrxFile;
      s = sValue;
      pLast = &s;
    } else if (bSwitch && sName == "DEBUG") {
      args.iDebug = std::max(args.iDebug, 5);
      pLast = nullptr;
    } else if (bSwitch && sName == "DEBUGFULL") {
      args.iDebug = 10;
      pLast = nullptr;
    } else if (bSwitch && sName == "SERVE" && a.find('=') == std::string::npos) {
      args.bServe = true;
      pLast = nullptr;
    } else if (bSwitch && (sName == "HELP" || sName == "?" || sName == "H")) {
      args.bHelp = true;
      pLast = nullptr;
    } else if (pLast && !(bSwitch && a.find('=') != std::string::npos)) {
      // A word after a value: the rest of an unquoted value with blanks.
      *pLast += " " + a;
    } else {
      sError = "unknown argument: " + sRaw;
      return false;
    }
  }
  if (args.bHelp || args.bServe) return true;
  if (args.sSrcFile.empty()) sError = "missing /SRCFILE=<file>";
  else if (args.sDstFile.empty()) sError = "missing /DSTFILE=<file>";
  else if (args.sDstFormat.empty()) sError = "missing /DSTFORMAT=<format text>";
  return sError.empty();
}

std::string ShuttleUsage() {
  return R"(Usage: SoundShuttle /SRCFILE=<file> /DSTFILE=<file> /DSTFORMAT=<format text>
                    [/PRXFILE=<file>] [/DEBUG | /DEBUGFULL]
       SoundShuttle /SERVE [/DEBUG | /DEBUGFULL]

Converts the audio of SRCFILE (MP2, MP3, Ogg Vorbis, WAV or WMA) into DSTFILE in the
format that DSTFORMAT names. The file is written under a temporary name in the folder
of DSTFILE, flushed to disk and renamed at the end, so that an interrupted run never
leaves a file under the destination name. An existing DSTFILE is never replaced: the
run fails instead (status 3), also when the file appears while the run is at work.
Exit status 0 on success; otherwise non-zero,
with one line on standard error that tells what failed (2: the command line, 3: the
destination could not be written, 1: any other failure).

Switches may come in any order and case, with "/" or "-" in front; a value may be put
in double quotes. /DEBUG reports the steps on standard error, /DEBUGFULL the codec
library's messages as well.

/SERVE converts file after file in one process. It writes the line
"SoundShuttle serve 1" on standard output, then reads requests from standard input:
the arguments of one file's run, each ended by a NUL byte, and an empty argument (one
more NUL) after the last. Each request is that run (same files, same messages) and is
answered with one line holding its exit status. The end of the input ends the server
with status 0.

Format text: one line of items "Key=Value" separated by ";", keys in any order and
case, unknown keys ignored, ProfileFile last (it runs to the end of the line):

  FormatType=<t>;SampleRate=<Hz>;Channels=<1|2>;BitRate=<n>;BitsPerSample=<16>;
  FormatTag=<tag>;ProfileNum=<n>;ProfileFile=<path>

  FormatType     2 WAV, 4 MP3, 8 Ogg Vorbis, 16 WMA, 32 MP2
  SampleRate     Hz of the destination (WAV, MP3, Ogg, MP2)
  Channels       1 or 2 (WAV, MP3, Ogg, MP2)
  BitRate        kbit/s (MP3, Ogg, MP2); ignored for WAV
  FormatTag      WAV only: 1 PCM 16-bit, 17 IMA ADPCM
  ProfileNum     WMA only: the profile number in the profile file
  ProfileFile    WMA only: the profile file, when /PRXFILE is not given

For WMA the profile gives rate, channels and bit rate; without a profile file, or when
the number is not in it, SampleRate, Channels and BitRate of the text are used.
Example:
  FormatType=4;SampleRate=44100;Channels=2;BitRate=128;BitsPerSample=16;FormatTag=17;ProfileNum=0;ProfileFile=

Profile file (WMA), one profile a line, ";" or "#" starts a comment line:
  <number> = <sample rate Hz>, <channels>, <bit rate kbit/s> [, <description>]
)";
}
