#pragma once
// The error value of the system, raised as a RaisedError and loaded back from one. A
// raised error is caught by the local handler of the routine that must go on.
#include <cstdint>
#include <string>

#include "support/RaisedError.h"

class CNVErr {
 public:
  CNVErr();
  ~CNVErr();
  CNVErr(const CNVErr&) = default;
  CNVErr& operator=(const CNVErr&) = default;

  int32_t Number = 0;
  std::string source;
  std::string Description;
  std::string HelpFile;
  int32_t HelpContext = 0;

  void LoadInfo(int32_t lNumber, const std::string& sSource, const std::string& sDescription,
                const std::string& sHelpFile = "", int32_t lHelpContext = 0);
  [[noreturn]] void RaiseError() const;
  void LoadFromErr(const RaisedError& e);
};
