#include "support/RegistryFile.h"

#include <fmt/format.h>

#include <algorithm>

#include "support/TextRules.h"

namespace {

constexpr std::string_view kHeader5 = "Windows Registry Editor Version 5.00";
constexpr std::string_view kHeader4 = "REGEDIT4";
constexpr std::string_view kBlanks = " \t";
constexpr std::string_view kLocalMachine = "HKEY_LOCAL_MACHINE";

bool StartsWithNoCase(std::string_view s, std::string_view sPrefix) {
  return s.size() >= sPrefix.size() && TextRules::IEquals(s.substr(0, sPrefix.size()), sPrefix);
}

bool IsHexDigit(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

uint32_t HexDigitValue(char c) {
  if (c >= '0' && c <= '9') return static_cast<uint32_t>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<uint32_t>(c - 'a' + 10);
  return static_cast<uint32_t>(c - 'A' + 10);
}

// 1 to 8 hex digits and nothing else.
bool ParseHex32(std::string_view s, uint32_t& lValue) {
  if (s.empty() || s.size() > 8) return false;
  lValue = 0;
  for (char c : s) {
    if (!IsHexDigit(c)) return false;
    lValue = lValue << 4 | HexDigitValue(c);
  }
  return true;
}

// A quoted text at s[pos] (which is '"'). "\\" and "\"" are escapes; any other
// backslash stands for itself. On success pos is just past the closing quote.
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

// Comma-separated bytes of one or two hex digits; a trailing comma is allowed.
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

// A continuation line of a hex value holds only bytes, commas, blanks and a final
// backslash.
bool IsHexContinuation(std::string_view s) {
  s = TextRules::Trim(s, kBlanks);
  if (s.empty()) return false;
  return std::all_of(s.begin(), s.end(), [](char c) {
    return IsHexDigit(c) || c == ',' || c == ' ' || c == '\t' || c == '\\';
  });
}

bool IsKnownHive(std::string_view sUpper) {
  return sUpper.substr(0, 5) == "HKEY_" || sUpper == "HKLM" || sUpper == "HKCU" ||
         sUpper == "HKCR" || sUpper == "HKU" || sUpper == "HKCC";
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

// Lines as written for a value: the name, "=", the value text; hex values wrapped as
// the registry editor wraps them.
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

}  // namespace

// ---- Values

std::optional<std::string> RegistryFile::Value::AsText() const {
  switch (eType) {
    case ValueType::String:
      return sString;
    case ValueType::Dword:
      return std::to_string(static_cast<int32_t>(lDword));
    case ValueType::Hex:
      if (lHexKind == 1 || lHexKind == 2) {
        std::string_view s(reinterpret_cast<const char*>(aBytes.data()), aBytes.size());
        if (bUnicode) return TextRules::Utf16ToUtf8(s, false, true);
        return std::string(s.substr(0, s.find('\0')));
      }
      if (lHexKind == 4 || lHexKind == 5) {
        if (auto l = AsLong()) return std::to_string(*l);
      }
      return std::nullopt;
  }
  return std::nullopt;
}

std::optional<int32_t> RegistryFile::Value::AsLong() const {
  switch (eType) {
    case ValueType::String:
      return TextRules::LeadingInt32(sString);
    case ValueType::Dword:
      return static_cast<int32_t>(lDword);
    case ValueType::Hex:
      if (lHexKind == 1 || lHexKind == 2) return TextRules::LeadingInt32(*AsText());
      if ((lHexKind == 4 && aBytes.size() == 4) || (lHexKind == 0xb && aBytes.size() == 8)) {
        return static_cast<int32_t>(uint32_t(aBytes[0]) | uint32_t(aBytes[1]) << 8 |
                                    uint32_t(aBytes[2]) << 16 | uint32_t(aBytes[3]) << 24);
      }
      if (lHexKind == 5 && aBytes.size() == 4) {
        return static_cast<int32_t>(uint32_t(aBytes[3]) | uint32_t(aBytes[2]) << 8 |
                                    uint32_t(aBytes[1]) << 16 | uint32_t(aBytes[0]) << 24);
      }
      return std::nullopt;
  }
  return std::nullopt;
}

// ---- Reading

RegistryFile RegistryFile::Parse(std::string_view sBytes) {
  RegistryFile r;
  std::string sText;
  if (sBytes.size() >= 2 && static_cast<unsigned char>(sBytes[0]) == 0xFF &&
      static_cast<unsigned char>(sBytes[1]) == 0xFE) {
    sText = TextRules::Utf16ToUtf8(sBytes.substr(2), false);
  } else if (sBytes.size() >= 2 && static_cast<unsigned char>(sBytes[0]) == 0xFE &&
             static_cast<unsigned char>(sBytes[1]) == 0xFF) {
    sText = TextRules::Utf16ToUtf8(sBytes.substr(2), true);
  } else if (sBytes.substr(0, 3) == "\xEF\xBB\xBF") {
    sText = sBytes.substr(3);
  } else if (sBytes.size() >= 4 && sBytes[0] != '\0' && sBytes[1] == '\0' && sBytes[2] != '\0' &&
             sBytes[3] == '\0') {
    // UTF-16LE that lost its byte-order mark: text never holds NUL bytes otherwise.
    sText = TextRules::Utf16ToUtf8(sBytes, false);
  } else {
    sText = sBytes;
  }

  std::vector<std::string_view> aPhysical;
  const std::string_view sAll(sText);
  size_t i = 0;
  while (i < sText.size()) {
    size_t j = sText.find_first_of("\r\n", i);
    if (j == std::string::npos) {
      aPhysical.push_back(sAll.substr(i));
      break;
    }
    aPhysical.push_back(sAll.substr(i, j - i));
    i = j + ((sText[j] == '\r' && j + 1 < sText.size() && sText[j + 1] == '\n') ? 2 : 1);
  }
  r.ClassifyLines(aPhysical);
  return r;
}

void RegistryFile::ClassifyLines(const std::vector<std::string_view>& aPhysical) {
  bool bSeenContent = false;
  bool bInKey = false;
  m_aLines.reserve(aPhysical.size());
  for (size_t i = 0; i < aPhysical.size(); ++i) {
    const int iLineNo = static_cast<int>(i + 1);
    Line L;
    L.aText.emplace_back(aPhysical[i]);
    std::string_view t = TextRules::Trim(aPhysical[i], kBlanks);
    auto malformed = [&](const std::string& sReason) {
      L.eKind = Kind::Malformed;
      m_aProblems.push_back({iLineNo, std::string(aPhysical[i]), sReason});
    };

    if (t.empty()) {
      L.eKind = Kind::Blank;
    } else if (t[0] == ';') {
      L.eKind = Kind::Comment;
    } else if (!bSeenContent && (t == kHeader5 || t == kHeader4)) {
      L.eKind = Kind::Header;
      m_bUnicode = t == kHeader5;
      bSeenContent = true;
    } else {
      if (!bSeenContent) {
        m_aProblems.push_back({iLineNo, std::string(aPhysical[i]), "no registry editor header before this line"});
        bSeenContent = true;
      }
      if (t[0] == '[') {
        bInKey = false;
        if (t.back() != ']') {
          malformed("key line without closing bracket");
          L.eKind = Kind::BadKey;
        } else {
          std::string_view sInner = t.substr(1, t.size() - 2);
          const bool bDelete = !sInner.empty() && sInner[0] == '-';
          if (bDelete) sInner.remove_prefix(1);
          std::vector<std::string> aParts = SplitPath(sInner);
          if (aParts.empty()) {
            malformed("empty key name");
            L.eKind = Kind::BadKey;
          } else if (!IsKnownHive(TextRules::Upper(aParts[0]))) {
            malformed("unknown root key");
            L.eKind = Kind::BadKey;
          } else {
            for (auto& s : aParts) s = TextRules::Upper(s);
            if (aParts[0] == "HKLM") aParts[0] = kLocalMachine;
            L.eKind = bDelete ? Kind::KeyDelete : Kind::Key;
            L.aPath = std::move(aParts);
            bInKey = !bDelete;
          }
        }
      } else if (t[0] == '"' || t[0] == '@') {
        std::string sName;
        size_t pos = 0;
        bool bOk = true;
        if (t[0] == '@') {
          pos = 1;
        } else if (!ParseQuoted(t, pos, sName)) {
          bOk = false;
          malformed("value name without closing quote");
        }
        if (bOk) {
          while (pos < t.size() && (t[pos] == ' ' || t[pos] == '\t')) ++pos;
          if (pos >= t.size() || t[pos] != '=') {
            bOk = false;
            malformed("value without \"=\"");
          }
        }
        if (bOk && !bInKey) {
          bOk = false;
          malformed("value outside a key");
        }
        if (bOk) {
          std::string_view sRest = TextRules::Trim(t.substr(pos + 1), kBlanks);
          L.sNameUpper = TextRules::Upper(sName);
          L.sName = sName;
          Value& v = L.oValue;
          if (sRest == "-") {
            L.eKind = Kind::ValueDelete;
          } else if (!sRest.empty() && sRest[0] == '"') {
            size_t q = 0;
            if (!ParseQuoted(sRest, q, v.sString)) {
              malformed("string without closing quote");
            } else if (q != sRest.size()) {
              malformed("text after the closing quote");
            } else {
              v.eType = ValueType::String;
              L.eKind = Kind::Value;
            }
          } else if (StartsWithNoCase(sRest, "dword:")) {
            if (ParseHex32(TextRules::Trim(sRest.substr(6), kBlanks), v.lDword)) {
              v.eType = ValueType::Dword;
              L.eKind = Kind::Value;
            } else {
              malformed("dword value is not 1 to 8 hex digits");
            }
          } else if (StartsWithNoCase(sRest, "hex")) {
            std::string_view sType = sRest.substr(3);
            bool bTypeOk = true;
            v.lHexKind = -1;
            if (!sType.empty() && sType[0] == '(') {
              const size_t close = sType.find(')');
              uint32_t lKind = 0;
              if (close == std::string_view::npos || !ParseHex32(sType.substr(1, close - 1), lKind)) {
                bTypeOk = false;
              } else {
                v.lHexKind = static_cast<int32_t>(lKind);
                sType.remove_prefix(close + 1);
              }
            }
            if (!bTypeOk || sType.empty() || sType[0] != ':') {
              malformed("unreadable hex value type");
            } else {
              // Gather the continuation lines.
              std::string sData(TextRules::Trim(sType.substr(1), kBlanks));
              while (!sData.empty() && sData.back() == '\\') {
                sData.pop_back();
                if (i + 1 < aPhysical.size() && IsHexContinuation(aPhysical[i + 1])) {
                  ++i;
                  L.aText.emplace_back(aPhysical[i]);
                  sData += TextRules::Trim(aPhysical[i], kBlanks);
                } else {
                  break;
                }
              }
              if (ParseHexBytes(sData, v.aBytes)) {
                v.eType = ValueType::Hex;
                v.bUnicode = m_bUnicode;
                L.eKind = Kind::Value;
              } else {
                malformed("unreadable hex bytes");
              }
            }
          } else {
            malformed("unknown value type");
          }
        }
      } else {
        malformed("unreadable line");
      }
    }
    m_aLines.push_back(std::move(L));
  }
}

std::vector<std::string> RegistryFile::PathOf(const std::string& sKey) {
  std::vector<std::string> aParts = SplitPath(sKey);
  for (auto& s : aParts) s = TextRules::Upper(s);
  if (!aParts.empty() && aParts[0] == "HKLM") aParts[0] = kLocalMachine;
  if (aParts.empty() || aParts[0] != kLocalMachine) aParts.insert(aParts.begin(), std::string(kLocalMachine));
  return aParts;
}

bool RegistryFile::IsPrefix(const std::vector<std::string>& aPrefix,
                            const std::vector<std::string>& aPath) {
  return aPrefix.size() <= aPath.size() && std::equal(aPrefix.begin(), aPrefix.end(), aPath.begin());
}

long RegistryFile::FindValue(const std::vector<std::string>& aPath, const std::string& sNameUpper) const {
  long lFound = -1;
  bool bInKey = false;
  for (size_t i = 0; i < m_aLines.size(); ++i) {
    const Line& L = m_aLines[i];
    switch (L.eKind) {
      case Kind::Key:
        bInKey = L.aPath == aPath;
        break;
      case Kind::KeyDelete:
        bInKey = false;
        if (IsPrefix(L.aPath, aPath)) lFound = -1;
        break;
      case Kind::BadKey:
        bInKey = false;
        break;
      case Kind::Value:
        if (bInKey && L.sNameUpper == sNameUpper) lFound = static_cast<long>(i);
        break;
      case Kind::ValueDelete:
        if (bInKey && L.sNameUpper == sNameUpper) lFound = -1;
        break;
      default:
        break;
    }
  }
  return lFound;
}

std::optional<RegistryFile::Value> RegistryFile::GetValue(const std::string& sKey,
                                                          const std::string& sName) const {
  const long i = FindValue(PathOf(sKey), TextRules::Upper(sName));
  if (i < 0) return std::nullopt;
  return m_aLines[static_cast<size_t>(i)].oValue;
}

bool RegistryFile::KeyExists(const std::string& sKey) const {
  const auto aPath = PathOf(sKey);
  bool bExists = false;
  for (const Line& L : m_aLines) {
    if (L.eKind == Kind::Key && IsPrefix(aPath, L.aPath)) bExists = true;
    if (L.eKind == Kind::KeyDelete && IsPrefix(L.aPath, aPath)) bExists = false;
  }
  return bExists;
}

// ---- Writing

bool RegistryFile::IsBlockStart(size_t i) const {
  const Kind k = m_aLines[i].eKind;
  return k == Kind::Key || k == Kind::KeyDelete || k == Kind::BadKey;
}

size_t RegistryFile::BlockEnd(size_t iHeader) const {
  size_t j = iHeader + 1;
  while (j < m_aLines.size() && !IsBlockStart(j)) ++j;
  return j;
}

std::vector<std::string> RegistryFile::ValueLines(const std::string& sName, const Value& oValue) {
  switch (oValue.eType) {
    case ValueType::String:
      return {NameText(sName) + "=" + Quote(oValue.sString)};
    case ValueType::Dword:
      return {NameText(sName) + fmt::format("=dword:{:08x}", oValue.lDword)};
    case ValueType::Hex:
      break;
  }
  const std::string sType = oValue.lHexKind < 0 ? "hex:" : fmt::format("hex({:x}):", oValue.lHexKind);
  return HexLines(NameText(sName) + "=" + sType, oValue.aBytes);
}

bool RegistryFile::PutValue(const std::string& sKey, const std::string& sName, const Value& oValue) {
  if (sKey.find_first_of("\r\n") != std::string::npos || sName.find_first_of("\r\n") != std::string::npos)
    return false;
  const auto aPath = PathOf(sKey);
  Line NL;
  NL.eKind = Kind::Value;
  NL.sName = sName;
  NL.sNameUpper = TextRules::Upper(sName);
  NL.oValue = oValue;

  // The value in force is changed where it stands, under the name as it is spelt there.
  const long lFound = FindValue(aPath, NL.sNameUpper);
  if (lFound >= 0) {
    NL.sName = m_aLines[static_cast<size_t>(lFound)].sName;
    NL.aText = ValueLines(NL.sName, oValue);
    m_aLines[static_cast<size_t>(lFound)] = std::move(NL);
    return true;
  }
  NL.aText = ValueLines(NL.sName, oValue);

  // A new value goes at the end of the key's last section still in force.
  long lBlock = -1;
  for (size_t i = 0; i < m_aLines.size(); ++i) {
    if (m_aLines[i].eKind == Kind::Key && m_aLines[i].aPath == aPath) lBlock = static_cast<long>(i);
    if (m_aLines[i].eKind == Kind::KeyDelete && IsPrefix(m_aLines[i].aPath, aPath)) lBlock = -1;
  }
  if (lBlock >= 0) {
    const size_t iEnd = BlockEnd(static_cast<size_t>(lBlock));
    size_t iPos = static_cast<size_t>(lBlock) + 1;
    for (size_t j = iPos; j < iEnd; ++j) {
      const Kind k = m_aLines[j].eKind;
      if (k == Kind::Value || k == Kind::ValueDelete || k == Kind::Malformed) iPos = j + 1;
    }
    m_aLines.insert(m_aLines.begin() + static_cast<long>(iPos), std::move(NL));
    return true;
  }

  // A new key goes after the last section of the key nearest to it in the tree, so that
  // an export's order is kept; at the end when a later "[-...]" line would remove it.
  size_t iBest = 0;
  long lAfter = -1;
  for (size_t i = 0; i < m_aLines.size(); ++i) {
    if (m_aLines[i].eKind != Kind::Key) continue;
    const auto& aOther = m_aLines[i].aPath;
    size_t c = 0;
    while (c < aOther.size() && c < aPath.size() && aOther[c] == aPath[c]) ++c;
    if (c > 0 && c >= iBest) {
      iBest = c;
      lAfter = static_cast<long>(i);
    }
  }
  size_t iPos = lAfter >= 0 ? BlockEnd(static_cast<size_t>(lAfter)) : m_aLines.size();
  for (size_t j = iPos; j < m_aLines.size(); ++j) {
    if (m_aLines[j].eKind == Kind::KeyDelete && IsPrefix(m_aLines[j].aPath, aPath)) {
      iPos = m_aLines.size();
      break;
    }
  }

  std::string sKeyText(kLocalMachine);
  auto aParts = SplitPath(sKey);
  if (!aParts.empty() && (TextRules::IEquals(aParts[0], "HKLM") || TextRules::IEquals(aParts[0], kLocalMachine)))
    aParts.erase(aParts.begin());
  for (const auto& s : aParts) sKeyText += "\\" + s;

  Line KL;
  KL.eKind = Kind::Key;
  KL.aText = {"[" + sKeyText + "]"};
  KL.aPath = aPath;
  Line BL;
  BL.eKind = Kind::Blank;
  BL.aText = {""};

  std::vector<Line> aNew;
  const bool bAtEnd = iPos == m_aLines.size();
  if (iPos > 0 && m_aLines[iPos - 1].eKind != Kind::Blank) aNew.push_back(BL);
  aNew.push_back(std::move(KL));
  aNew.push_back(std::move(NL));
  if (!bAtEnd) aNew.push_back(BL);
  m_aLines.insert(m_aLines.begin() + static_cast<long>(iPos), std::make_move_iterator(aNew.begin()),
                  std::make_move_iterator(aNew.end()));
  return true;
}

bool RegistryFile::SetString(const std::string& sKey, const std::string& sName, const std::string& sData) {
  // A registry string ends at its first NUL.
  const std::string sText = sData.substr(0, sData.find('\0'));
  Value v;
  if (sText.find_first_of("\r\n") == std::string::npos) {
    v.eType = ValueType::String;
    v.sString = sText;
    return PutValue(sKey, sName, v);
  } else {
    // A line break cannot stand in a quoted string: store it as the registry editor
    // exports such a string, UTF-16LE bytes with the ending NUL.
    v.eType = ValueType::Hex;
    v.lHexKind = 1;
    v.bUnicode = true;
    const std::string sUtf16 = TextRules::Utf8ToUtf16Le(sText) + std::string(2, '\0');
    v.aBytes.assign(sUtf16.begin(), sUtf16.end());
    return PutValue(sKey, sName, v);
  }
}

bool RegistryFile::SetDword(const std::string& sKey, const std::string& sName, uint32_t lData) {
  Value v;
  v.eType = ValueType::Dword;
  v.lDword = lData;
  return PutValue(sKey, sName, v);
}

void RegistryFile::DeleteKey(const std::string& sKey) {
  const auto aPath = PathOf(sKey);
  std::vector<Line> aKept;
  aKept.reserve(m_aLines.size());
  for (size_t i = 0; i < m_aLines.size();) {
    const Line& L = m_aLines[i];
    if ((L.eKind == Kind::Key || L.eKind == Kind::KeyDelete) && IsPrefix(aPath, L.aPath)) {
      i = BlockEnd(i);
      continue;
    }
    aKept.push_back(L);
    ++i;
  }
  m_aLines = std::move(aKept);
}

std::string RegistryFile::Serialise() const {
  std::string s(kHeader5);
  s += "\r\n";
  bool bFirst = true;
  const Line* pLast = nullptr;
  for (const Line& L : m_aLines) {
    if (L.eKind == Kind::Header) continue;
    if (bFirst && L.eKind != Kind::Blank) s += "\r\n";
    bFirst = false;
    for (const auto& t : L.aText) {
      s += t;
      s += "\r\n";
    }
    pLast = &L;
  }
  if (pLast && pLast->eKind != Kind::Blank) s += "\r\n";
  return s;
}
