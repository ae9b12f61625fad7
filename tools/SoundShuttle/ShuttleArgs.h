#pragma once
// The command line of the copier.
#include <string>
#include <vector>

struct ShuttleArgs {
  std::string sSrcFile;
  std::string sDstFile;
  std::string sDstFormat;
  std::string sPrxFile;
  int iDebug = 0;  // 0 none, 5 /DEBUG, 10 /DEBUGFULL
  bool bHelp = false;
  bool bServe = false;  // /SERVE: file after file, the requests on standard input
};

// Reads the switches (any order, any case, "/" or "-" in front, values with or without
// a pair of double quotes). A word that is no switch continues the value before it, with
// one blank, so that an unquoted path with blanks still arrives whole. False with sError
// set when the line can't be used.
bool ParseShuttleArgs(const std::vector<std::string>& aArgs, ShuttleArgs& args, std::string& sError);

// The text of --help.
std::string ShuttleUsage();
