#include "config/VbConvert.h"

#include <fmt/format.h>

#include <cctype>
#include <charconv>
#include <cmath>
#include <limits>

#include "support/CNVErr.h"

namespace VbConvert {

namespace {
const char* ErrorText(int32_t lNumber) {
  switch (lNumber) {
    case kErrInvalidCall: return "Invalid procedure call or argument";
    case kErrOverflow: return "Overflow";
    case kErrOutOfMemory: return "Out of memory";
    case kErrSubscript: return "Subscript out of range";
    case kErrTypeMismatch: return "Type mismatch";
    case kErrObjectNotSet: return "Object variable or With block variable not set";
    default: return "Application-defined or object-defined error";
  }
}

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f'; }

// Length of the decimal number that starts at s[i] (0 when there is none).
size_t NumberLength(const std::string& s, size_t i) {
  size_t j = i;
  if (j < s.size() && (s[j] == '+' || s[j] == '-')) ++j;
  size_t digits = 0;
  while (j < s.size() && std::isdigit(static_cast<unsigned char>(s[j]))) ++j, ++digits;
  if (j < s.size() && s[j] == '.') {
    size_t k = j + 1;
    size_t frac = 0;
    while (k < s.size() && std::isdigit(static_cast<unsigned char>(s[k]))) ++k, ++frac;
    if (digits + frac > 0) j = k, digits += frac;
  }
  if (digits == 0) return 0;
  if (j < s.size() && (s[j] == 'e' || s[j] == 'E' || s[j] == 'd' || s[j] == 'D')) {
    size_t k = j + 1;
    if (k < s.size() && (s[k] == '+' || s[k] == '-')) ++k;
    size_t exp = 0;
    while (k < s.size() && std::isdigit(static_cast<unsigned char>(s[k]))) ++k, ++exp;
    if (exp > 0) j = k;
  }
  return j - i;
}

// The number is read with from_chars: "." is the decimal sign whatever the locale of the
// process (Qt sets it from the environment, and a comma-decimal one would read "0.5" as 0).
double ParseNumber(const std::string& s, size_t i, size_t n) {
  std::string t = s.substr(i, n);
  for (char& c : t)
    if (c == 'd' || c == 'D') c = 'e';
  bool bNegative = false;
  size_t iFrom = 0;
  if (!t.empty() && (t[0] == '+' || t[0] == '-')) {
    bNegative = t[0] == '-';
    iFrom = 1;
  }
  double d = 0.0;
  const char* pFirst = t.data() + iFrom;
  const char* pLast = t.data() + t.size();
  const auto r = std::from_chars(pFirst, pLast, d, std::chars_format::general);
  if (r.ec == std::errc::result_out_of_range) {
    // Too large is infinite, too small is zero, as the C library reads them. The
    // exponent tells which: a number of this form with a negative one is tiny.
    const size_t iExp = t.find_first_of("eE");
    const bool bTiny = iExp != std::string::npos && iExp + 1 < t.size() && t[iExp + 1] == '-';
    d = bTiny ? 0.0 : std::numeric_limits<double>::infinity();
  } else if (r.ec != std::errc()) {
    d = 0.0;
  }
  return bNegative ? -d : d;
}
}  // namespace

void Raise(int32_t lNumber, const std::string& sSource) { throw RaisedError(lNumber, sSource, ErrorText(lNumber)); }

double Val(const std::string& s) {
  size_t i = 0;
  while (i < s.size() && IsBlank(s[i])) ++i;
  size_t n = NumberLength(s, i);
  if (n == 0) return 0.0;
  return ParseNumber(s, i, n);
}

double RoundEven(double d) {
  if (!std::isfinite(d)) return d;
  double f = std::floor(d);
  double diff = d - f;
  if (diff > 0.5) return f + 1.0;
  if (diff < 0.5) return f;
  return std::fmod(f, 2.0) == 0.0 ? f : f + 1.0;
}

int32_t ToLong(double d, const std::string& sSource) {
  double r = RoundEven(d);
  if (!std::isfinite(r) || r < -2147483648.0 || r > 2147483647.0) Raise(kErrOverflow, sSource);
  return static_cast<int32_t>(r);
}

int16_t ToInt(double d, const std::string& sSource) {
  double r = RoundEven(d);
  if (!std::isfinite(r) || r < -32768.0 || r > 32767.0) Raise(kErrOverflow, sSource);
  return static_cast<int16_t>(r);
}

float ToSingle(double d, const std::string& sSource) {
  if (!std::isfinite(d) || std::fabs(d) > static_cast<double>(std::numeric_limits<float>::max()))
    Raise(kErrOverflow, sSource);
  return static_cast<float>(d);
}

int32_t StrictLong(const std::string& s, const std::string& sSource) {
  size_t i = 0;
  while (i < s.size() && IsBlank(s[i])) ++i;
  size_t n = NumberLength(s, i);
  if (n == 0) Raise(kErrTypeMismatch, sSource);
  size_t j = i + n;
  while (j < s.size() && IsBlank(s[j])) ++j;
  if (j != s.size()) Raise(kErrTypeMismatch, sSource);
  return ToLong(ParseNumber(s, i, n), sSource);
}

bool Flag(const std::string& s) { return Val(s) == 1.0; }

std::string TrimBlanks(const std::string& s) {
  size_t b = s.find_first_not_of(' ');
  if (b == std::string::npos) return "";
  size_t e = s.find_last_not_of(' ');
  return s.substr(b, e - b + 1);
}

std::string Upper(std::string s) {
  for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return s;
}

bool IsDigits(const std::string& s) {
  if (s.empty()) return false;
  for (char c : s)
    if (!std::isdigit(static_cast<unsigned char>(c))) return false;
  return true;
}

std::string SingleText(float f) { return fmt::format("{}", f); }

}  // namespace VbConvert
