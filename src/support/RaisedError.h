#pragma once
// The one error type that the system raises: a number, the source that raised it and a
// description (also its what()). Areas with numbers of their own derive from it and name
// their source; a handler of RaisedError takes them all.
#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>

class RaisedError : public std::runtime_error {
 public:
  RaisedError(int32_t lNumber, std::string sSource, std::string sDescription)
      : std::runtime_error(sDescription),
        Number(lNumber),
        Source(std::move(sSource)),
        Description(std::move(sDescription)) {}
  int32_t Number;
  std::string Source;
  std::string Description;
};
