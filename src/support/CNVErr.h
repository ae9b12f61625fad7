#pragma once
// The error value of the system, and the raised error that carries one.
#include <cstdint>
#include <stdexcept>
#include <string>

// A raised error: number, source and description. Thrown where the system raises an
// error; caught by the local handler of the routine that must go on.
class RaisedError : public std::runtime_error {
 public:
  RaisedError(int32_t lNumber, std::string sSource, std::string sDescription);
  int32_t Number;
  std::string Source;
  std::string Description;
};

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
