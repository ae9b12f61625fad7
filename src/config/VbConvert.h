#pragma once
// Number and text rules of the settings readers: the lenient leading-number read, the
// conversion to an integer width (nearest, an exact half to the even neighbour), the
// strict whole-text conversion, profile flags, and the raised errors that go with them.
#include <cstdint>
#include <string>

namespace VbConvert {

// Error numbers of the run-time errors these conversions raise.
constexpr int32_t kErrInvalidCall = 5;
constexpr int32_t kErrOverflow = 6;
constexpr int32_t kErrOutOfMemory = 7;
constexpr int32_t kErrSubscript = 9;
constexpr int32_t kErrTypeMismatch = 13;
constexpr int32_t kErrObjectNotSet = 91;

[[noreturn]] void Raise(int32_t lNumber, const std::string& sSource);

// Leading white space skipped, then the longest run that forms a decimal number (sign,
// digits, a point, digits, an exponent); 0 when there is none. Never raises.
double Val(const std::string& s);

// Nearest whole number, an exact half to the even neighbour.
double RoundEven(double d);

// Rounded as above and narrowed; a value outside the width (or not finite) raises
// error 6 "Overflow" with the given source.
int32_t ToLong(double d, const std::string& sSource = "CLng");
int16_t ToInt(double d, const std::string& sSource = "CInt");
float ToSingle(double d, const std::string& sSource = "CSng");

// The whole text (blanks at both ends allowed) must be a decimal number; anything else
// raises error 13 "Type mismatch". Then as ToLong.
int32_t StrictLong(const std::string& s, const std::string& sSource = "CLng");

// A profile flag: true only when the value, read as a number, is 1.
bool Flag(const std::string& s);
inline const char* FlagText(bool b) { return b ? "1" : "0"; }

// Blanks (not tabs) removed at both ends.
std::string TrimBlanks(const std::string& s);
std::string Upper(std::string s);

// All characters decimal digits (and at least one).
bool IsDigits(const std::string& s);

// A float as the profile writer puts it: shortest text that reads back the same.
std::string SingleText(float f);

}  // namespace VbConvert
