#pragma once
// One serial input of a logger.
#include <memory>
#include <string>

class SerialLine {
 public:
  std::string Description;
  bool Logging = false;
  std::string ServiceTags;

  std::shared_ptr<SerialLine> Copy() const { return std::make_shared<SerialLine>(*this); }
};
