#include "support/TextRules.h"

namespace TextRules {

namespace {
char UpperChar(char c) { return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c; }

void AppendUtf8(std::string& sOut, uint32_t lCode) {
  if (lCode < 0x80) {
    sOut += static_cast<char>(lCode);
  } else if (lCode < 0x800) {
    sOut += static_cast<char>(0xC0 | (lCode >> 6));
    sOut += static_cast<char>(0x80 | (lCode & 0x3F));
  } else if (lCode < 0x10000) {
    sOut += static_cast<char>(0xE0 | (lCode >> 12));
    sOut += static_cast<char>(0x80 | ((lCode >> 6) & 0x3F));
    sOut += static_cast<char>(0x80 | (lCode & 0x3F));
  } else {
    sOut += static_cast<char>(0xF0 | (lCode >> 18));
    sOut += static_cast<char>(0x80 | ((lCode >> 12) & 0x3F));
    sOut += static_cast<char>(0x80 | ((lCode >> 6) & 0x3F));
    sOut += static_cast<char>(0x80 | (lCode & 0x3F));
  }
}

void AppendUnit(std::string& sOut, uint32_t lUnit) {
  sOut += static_cast<char>(lUnit & 0xFF);
  sOut += static_cast<char>((lUnit >> 8) & 0xFF);
}

// Decodes one UTF-8 sequence at s[i]; returns its length, 0 when it is not valid.
size_t DecodeUtf8(std::string_view s, size_t i, uint32_t& lCode) {
  const auto b0 = static_cast<unsigned char>(s[i]);
  size_t n;
  uint32_t lMin;
  if (b0 < 0x80) {
    lCode = b0;
    return 1;
  } else if ((b0 & 0xE0) == 0xC0) {
    n = 2, lCode = b0 & 0x1F, lMin = 0x80;
  } else if ((b0 & 0xF0) == 0xE0) {
    n = 3, lCode = b0 & 0x0F, lMin = 0x800;
  } else if ((b0 & 0xF8) == 0xF0) {
    n = 4, lCode = b0 & 0x07, lMin = 0x10000;
  } else {
    return 0;
  }
  if (i + n > s.size()) return 0;
  for (size_t k = 1; k < n; ++k) {
    const auto b = static_cast<unsigned char>(s[i + k]);
    if ((b & 0xC0) != 0x80) return 0;
    lCode = (lCode << 6) | (b & 0x3F);
  }
  if (lCode < lMin || lCode > 0x10FFFF || (lCode >= 0xD800 && lCode <= 0xDFFF)) return 0;
  return n;
}
}  // namespace

std::string Upper(std::string_view s) {
  std::string r(s);
  for (char& c : r) c = UpperChar(c);
  return r;
}

bool IEquals(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (UpperChar(a[i]) != UpperChar(b[i])) return false;
  return true;
}

std::string_view Trim(std::string_view s, std::string_view sSet) {
  const size_t b = s.find_first_not_of(sSet);
  if (b == std::string_view::npos) return {};
  const size_t e = s.find_last_not_of(sSet);
  return s.substr(b, e - b + 1);
}

int32_t LeadingInt32(std::string_view s) {
  size_t i = 0;
  while (i < s.size() && static_cast<unsigned char>(s[i]) <= ' ' && s[i] != '\0') ++i;
  bool bNegative = false;
  if (i < s.size() && (s[i] == '+' || s[i] == '-')) bNegative = s[i++] == '-';
  uint32_t lValue = 0;
  while (i < s.size() && s[i] >= '0' && s[i] <= '9') lValue = lValue * 10u + static_cast<uint32_t>(s[i++] - '0');
  if (bNegative) lValue = 0u - lValue;
  return static_cast<int32_t>(lValue);
}

std::string Utf16ToUtf8(std::string_view sBytes, bool bBigEndian, bool bStopAtNul) {
  std::string sOut;
  sOut.reserve(sBytes.size() / 2 + sBytes.size() / 8);
  const size_t nUnits = sBytes.size() / 2;
  auto unit = [&](size_t k) -> uint32_t {
    const auto a = static_cast<unsigned char>(sBytes[2 * k]);
    const auto b = static_cast<unsigned char>(sBytes[2 * k + 1]);
    return bBigEndian ? (uint32_t(a) << 8 | b) : (uint32_t(b) << 8 | a);
  };
  for (size_t k = 0; k < nUnits; ++k) {
    uint32_t u = unit(k);
    if (u == 0 && bStopAtNul) break;
    if (u >= 0xD800 && u <= 0xDBFF && k + 1 < nUnits) {
      const uint32_t v = unit(k + 1);
      if (v >= 0xDC00 && v <= 0xDFFF) {
        AppendUtf8(sOut, 0x10000 + ((u - 0xD800) << 10) + (v - 0xDC00));
        ++k;
        continue;
      }
    }
    if (u >= 0xDC80 && u <= 0xDCFF) {
      sOut += static_cast<char>(u & 0xFF);
      continue;
    }
    if (u >= 0xD800 && u <= 0xDFFF) u = 0xFFFD;
    AppendUtf8(sOut, u);
  }
  return sOut;
}

std::string Utf8ToUtf16Le(std::string_view s) {
  std::string sOut;
  sOut.reserve(s.size() * 2);
  for (size_t i = 0; i < s.size();) {
    uint32_t lCode = 0;
    size_t n = DecodeUtf8(s, i, lCode);
    if (n == 0) {
      lCode = 0xDC00u | static_cast<unsigned char>(s[i]);
      n = 1;
    }
    i += n;
    if (lCode >= 0x10000) {
      lCode -= 0x10000;
      AppendUnit(sOut, 0xD800 + (lCode >> 10));
      AppendUnit(sOut, 0xDC00 + (lCode & 0x3FF));
    } else {
      AppendUnit(sOut, lCode);
    }
  }
  return sOut;
}

}  // namespace TextRules
