#include "support/RegistryText.h"

#include <fmt/format.h>

#include <algorithm>

#include "support/TextRules.h"

namespace RegistryText {

bool StartsWithNoCase(std::string_view s, std::string_view sPrefix) {
  return s.size() >= sPrefix.size() && TextRules::IEquals(s.substr(0, sPrefix.size()), sPrefix);
}

namespace {

bool IsHexDigit(char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

uint32_t HexDigitValue(char c) {
  if (c >= '0' && c <= '9') return static_cast<uint32_t>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<uint32_t>(c - 'a' + 10);
  return static_cast<uint32_t>(c - 'A' + 10);
}

}  // namespace

bool ParseHex32(std::string_view s, uint32_t& lValue) {
  if (s.empty() || s.size() > 8) return false;
  lValue = 0;
  for (char c : s) {
    if (!IsHexDigit(c)) return false;
    lValue = lValue << 4 | HexDigitValue(c);
  }
  return true;
}

bool ParseQuoted(std::string_view s, size_t& pos, std::string& sOut) {
  sOut.clear();
  size_t i = pos + 1;
  while (i < s.size()) {
    const char c = s[i];
    if (c == '\\' && i + 1 < s.size() && (s[i + 1] == '\\' || s[i + 1] == '"')) {
      sOut += s[i + 1];
      i += 2;
    } else if (c == '"') {
      pos = i + 1;
      return true;
    } else {
      sOut += c;
      ++i;
    }
  }
  return false;
}

std::string Quote(std::string_view s) {
  std::string r = "\"";
  for (char c : s) {
    if (c == '\\' || c == '"') r += '\\';
    r += c;
  }
  r += '"';
  return r;
}

bool ParseHexBytes(std::string_view s, std::vector<uint8_t>& aBytes) {
  aBytes.clear();
  s = TextRules::Trim(s, kBlanks);
  if (s.empty()) return true;
  size_t i = 0;
  while (i <= s.size()) {
    size_t j = s.find(',', i);
    if (j == std::string_view::npos) j = s.size();
    std::string_view tok = TextRules::Trim(s.substr(i, j - i), kBlanks);
    if (tok.empty()) {
      // Only the text after a final comma may be empty.
      if (j != s.size() || i == 0) return false;
    } else {
      uint32_t v;
      if (tok.size() > 2 || !ParseHex32(tok, v)) return false;
      aBytes.push_back(static_cast<uint8_t>(v));
    }
    i = j + 1;
  }
  return true;
}

bool IsHexContinuation(std::string_view s) {
  s = TextRules::Trim(s, kBlanks);
  if (s.empty()) return false;
  return std::all_of(s.begin(), s.end(),
                     [](char c) { return IsHexDigit(c) || c == ',' || c == ' ' || c == '\t' || c == '\\'; });
}

bool IsKnownHive(std::string_view sUpper) {
  return sUpper.substr(0, 5) == "HKEY_" || sUpper == "HKLM" || sUpper == "HKCU" || sUpper == "HKCR" ||
         sUpper == "HKU" || sUpper == "HKCC";
}

std::vector<std::string> SplitPath(std::string_view s) {
  std::vector<std::string> a;
  size_t i = 0;
  while (i <= s.size()) {
    size_t j = s.find('\\', i);
    if (j == std::string_view::npos) j = s.size();
    if (j > i) a.emplace_back(s.substr(i, j - i));
    i = j + 1;
  }
  return a;
}

std::string NameText(const std::string& sName) { return sName.empty() ? "@" : Quote(sName); }

std::vector<std::string> HexLines(const std::string& sStart, const std::vector<uint8_t>& aBytes) {
  std::vector<std::string> a;
  std::string sCur = sStart;
  for (size_t k = 0; k < aBytes.size(); ++k) {
    std::string sTok = fmt::format("{:02x}", aBytes[k]);
    if (k + 1 < aBytes.size()) sTok += ',';
    if (sCur.size() + sTok.size() > 77 && sCur.size() > 2) {
      sCur += '\\';
      a.push_back(sCur);
      sCur = "  ";
    }
    sCur += sTok;
  }
  a.push_back(sCur);
  return a;
}

}  // namespace RegistryText
