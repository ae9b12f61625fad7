#include <algorithm>

#include "support/RegistryFile.h"
#include "support/RegistryText.h"
#include "support/TextRules.h"

using namespace RegistryText;

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
  } else if (sBytes.size() >= 4 && sBytes[0] != '\0' && sBytes[1] == '\0' && sBytes[2] != '\0' && sBytes[3] == '\0') {
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
    auto problem = [&](const std::string& sReason) {
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
        problem("no registry editor header before this line");
        bSeenContent = true;
      }
      std::string sWhy;
      if (t[0] == '[') {
        sWhy = ClassifyKey(t, L);
        bInKey = L.eKind == Kind::Key;
      } else if (t[0] == '"' || t[0] == '@') {
        sWhy = ClassifyValue(t, bInKey, aPhysical, i, L);
        if (!sWhy.empty()) L.eKind = Kind::Malformed;
      } else {
        sWhy = "unreadable line";
        L.eKind = Kind::Malformed;
      }
      if (!sWhy.empty()) problem(sWhy);
    }
    m_aLines.push_back(std::move(L));
  }
}

std::string RegistryFile::ClassifyKey(std::string_view t, Line& L) {
  L.eKind = Kind::BadKey;
  if (t.back() != ']') return "key line without closing bracket";
  std::string_view sInner = t.substr(1, t.size() - 2);
  const bool bDelete = !sInner.empty() && sInner[0] == '-';
  if (bDelete) sInner.remove_prefix(1);
  std::vector<std::string> aParts = SplitPath(sInner);
  if (aParts.empty()) return "empty key name";
  if (!IsKnownHive(TextRules::Upper(aParts[0]))) return "unknown root key";
  for (auto& s : aParts) s = TextRules::Upper(s);
  if (aParts[0] == "HKLM") aParts[0] = kLocalMachine;
  L.eKind = bDelete ? Kind::KeyDelete : Kind::Key;
  L.aPath = std::move(aParts);
  return "";
}

std::string RegistryFile::ClassifyValue(std::string_view t, bool bInKey, const std::vector<std::string_view>& aPhysical,
                                        size_t& i, Line& L) const {
  std::string sName;
  size_t pos = 0;
  if (t[0] == '@') {
    pos = 1;
  } else if (!ParseQuoted(t, pos, sName)) {
    return "value name without closing quote";
  }
  while (pos < t.size() && (t[pos] == ' ' || t[pos] == '\t')) ++pos;
  if (pos >= t.size() || t[pos] != '=') return "value without \"=\"";
  if (!bInKey) return "value outside a key";
  std::string_view sRest = TextRules::Trim(t.substr(pos + 1), kBlanks);
  L.sNameUpper = TextRules::Upper(sName);
  L.sName = sName;
  Value& v = L.oValue;
  if (sRest == "-") {
    L.eKind = Kind::ValueDelete;
    return "";
  }
  if (!sRest.empty() && sRest[0] == '"') {
    size_t q = 0;
    if (!ParseQuoted(sRest, q, v.sString)) return "string without closing quote";
    if (q != sRest.size()) return "text after the closing quote";
    v.eType = ValueType::String;
  } else if (StartsWithNoCase(sRest, "dword:")) {
    if (!ParseHex32(TextRules::Trim(sRest.substr(6), kBlanks), v.lDword)) return "dword value is not 1 to 8 hex digits";
    v.eType = ValueType::Dword;
  } else if (StartsWithNoCase(sRest, "hex")) {
    std::string sWhy = ReadHexValue(sRest.substr(3), aPhysical, i, L);
    if (!sWhy.empty()) return sWhy;
  } else {
    return "unknown value type";
  }
  L.eKind = Kind::Value;
  return "";
}

std::string RegistryFile::ReadHexValue(std::string_view sType, const std::vector<std::string_view>& aPhysical,
                                       size_t& i, Line& L) const {
  Value& v = L.oValue;
  v.lHexKind = -1;
  if (!sType.empty() && sType[0] == '(') {
    const size_t close = sType.find(')');
    uint32_t lKind = 0;
    if (close == std::string_view::npos || !ParseHex32(sType.substr(1, close - 1), lKind))
      return "unreadable hex value type";
    v.lHexKind = static_cast<int32_t>(lKind);
    sType.remove_prefix(close + 1);
  }
  if (sType.empty() || sType[0] != ':') return "unreadable hex value type";
  // Gather the continuation lines.
  std::string sData(TextRules::Trim(sType.substr(1), kBlanks));
  while (!sData.empty() && sData.back() == '\\') {
    sData.pop_back();
    if (i + 1 >= aPhysical.size() || !IsHexContinuation(aPhysical[i + 1])) break;
    ++i;
    L.aText.emplace_back(aPhysical[i]);
    sData += TextRules::Trim(aPhysical[i], kBlanks);
  }
  if (!ParseHexBytes(sData, v.aBytes)) return "unreadable hex bytes";
  v.eType = ValueType::Hex;
  v.bUnicode = m_bUnicode;
  return "";
}
