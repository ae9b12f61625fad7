#pragma once
// Small text rules shared by the registry and profile file code: ASCII case folding,
// trimming, the Windows integer rule, and UTF-16 conversions.
#include <cstdint>
#include <string>
#include <string_view>

namespace TextRules {

// ASCII upper case; other bytes stay as they are.
std::string Upper(std::string_view s);
// Equal without regard to ASCII case.
bool IEquals(std::string_view a, std::string_view b);

// Removes the bytes of sSet from both ends.
std::string_view Trim(std::string_view s, std::string_view sSet);

// Leading decimal number: white space skipped, an optional sign, then digits; wraps at
// 32 bits. Text without leading digits reads 0.
int32_t LeadingInt32(std::string_view s);

// UTF-16 (little or big endian) to UTF-8. An unpaired unit 0xDC80 to 0xDCFF gives back
// the byte it stands for (see below); other unpaired surrogates become U+FFFD; an odd
// last byte is dropped. Stops at a NUL unit when bStopAtNul.
std::string Utf16ToUtf8(std::string_view sBytes, bool bBigEndian, bool bStopAtNul = false);
// UTF-8 to UTF-16LE. A byte that is not part of a valid UTF-8 sequence becomes the
// unpaired unit 0xDC00 + byte, so that any bytes come back unchanged.
std::string Utf8ToUtf16Le(std::string_view s);

}  // namespace TextRules
