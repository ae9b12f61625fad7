#pragma once
// One output format of a logger: its name and the audio formats of the three periods of a
// file's life (0 as recorded, 1 standard, 2 archive). The action number picks the period.
#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "audio/IAudioFormat.h"

class ClogPeriods {
 public:
  ClogPeriods();
  ~ClogPeriods();
  ClogPeriods(const ClogPeriods&) = delete;
  ClogPeriods& operator=(const ClogPeriods&) = delete;

  const std::string& FormatName() const { return m_sFormatName; }
  void FormatName(const std::string& s) { m_sFormatName = s; }

  // index 0 to 2; anything else raises error 9 "Subscript out of range". Null when the
  // settings file has no "FormatType" key for the period (see MissingKey).
  std::shared_ptr<IAudioFormat> Period(int32_t index) const;
  void Period(int32_t index, std::shared_ptr<IAudioFormat> oFormat);

  // A deep copy: nothing is shared with this object.
  std::shared_ptr<ClogPeriods> Copy() const;

  // The "FormatType<p><x>" key that the settings file lacked (or left empty) at the last
  // Load, for period index; "" when the key was there. Only an explicit -1 means "no
  // audio in this period" (the files are removed); an absent key means the format is
  // unknown: the period has no format object, its files are kept and the hour is flagged.
  const std::string& MissingKey(int32_t index) const;

  // sINIFile is a path of this machine; Format the output format's number.
  void Load(const std::string& sINIFile, int32_t Format);
  void Save(const std::string& sINIFile, int32_t Format);

  // Letters of output format n: "A"/"a" for 0, "B"/"b" for 1 ...
  static std::string UpperLetter(int32_t Format);
  static std::string LowerLetter(int32_t Format);

 private:
  std::string m_sFormatName;
  std::array<std::shared_ptr<IAudioFormat>, 3> m_aPeriod;
  std::array<std::string, 3> m_aMissingKey;
};
