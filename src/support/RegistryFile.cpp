#include "support/RegistryFile.h"

#include <fmt/format.h>

#include <algorithm>

#include "support/RegistryText.h"
#include "support/TextRules.h"

using namespace RegistryText;

// ---- Values

std::optional<std::string> RegistryFile::Value::AsText() const {
  switch (eType) {
    case ValueType::String: return sString;
    case ValueType::Dword: return std::to_string(static_cast<int32_t>(lDword));
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
    case ValueType::String: return TextRules::LeadingInt32(sString);
    case ValueType::Dword: return static_cast<int32_t>(lDword);
    case ValueType::Hex:
      if (lHexKind == 1 || lHexKind == 2) return TextRules::LeadingInt32(*AsText());
      if ((lHexKind == 4 && aBytes.size() == 4) || (lHexKind == 0xb && aBytes.size() == 8)) {
        return static_cast<int32_t>(uint32_t(aBytes[0]) | uint32_t(aBytes[1]) << 8 | uint32_t(aBytes[2]) << 16 |
                                    uint32_t(aBytes[3]) << 24);
      }
      if (lHexKind == 5 && aBytes.size() == 4) {
        return static_cast<int32_t>(uint32_t(aBytes[3]) | uint32_t(aBytes[2]) << 8 | uint32_t(aBytes[1]) << 16 |
                                    uint32_t(aBytes[0]) << 24);
      }
      return std::nullopt;
  }
  return std::nullopt;
}

std::vector<std::string> RegistryFile::PathOf(const std::string& sKey) {
  std::vector<std::string> aParts = SplitPath(sKey);
  for (auto& s : aParts) s = TextRules::Upper(s);
  if (!aParts.empty() && aParts[0] == "HKLM") aParts[0] = kLocalMachine;
  if (aParts.empty() || aParts[0] != kLocalMachine) aParts.insert(aParts.begin(), std::string(kLocalMachine));
  return aParts;
}

bool RegistryFile::IsPrefix(const std::vector<std::string>& aPrefix, const std::vector<std::string>& aPath) {
  return aPrefix.size() <= aPath.size() && std::equal(aPrefix.begin(), aPrefix.end(), aPath.begin());
}

long RegistryFile::FindValue(const std::vector<std::string>& aPath, const std::string& sNameUpper) const {
  long lFound = -1;
  bool bInKey = false;
  for (size_t i = 0; i < m_aLines.size(); ++i) {
    const Line& L = m_aLines[i];
    switch (L.eKind) {
      case Kind::Key: bInKey = L.aPath == aPath; break;
      case Kind::KeyDelete:
        bInKey = false;
        if (IsPrefix(L.aPath, aPath)) lFound = -1;
        break;
      case Kind::BadKey: bInKey = false; break;
      case Kind::Value:
        if (bInKey && L.sNameUpper == sNameUpper) lFound = static_cast<long>(i);
        break;
      case Kind::ValueDelete:
        if (bInKey && L.sNameUpper == sNameUpper) lFound = -1;
        break;
      default: break;
    }
  }
  return lFound;
}

std::optional<RegistryFile::Value> RegistryFile::GetValue(const std::string& sKey, const std::string& sName) const {
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
    case ValueType::String: return {NameText(sName) + "=" + Quote(oValue.sString)};
    case ValueType::Dword: return {NameText(sName) + fmt::format("=dword:{:08x}", oValue.lDword)};
    case ValueType::Hex: break;
  }
  const std::string sType = oValue.lHexKind < 0 ? "hex:" : fmt::format("hex({:x}):", oValue.lHexKind);
  return HexLines(NameText(sName) + "=" + sType, oValue.aBytes);
}

bool RegistryFile::PutValue(const std::string& sKey, const std::string& sName, const Value& oValue) {
  if (sKey.find_first_of("\r\n") != std::string::npos || sName.find_first_of("\r\n") != std::string::npos) return false;
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
  InsertKeyWith(sKey, aPath, std::move(NL));
  return true;
}

void RegistryFile::InsertKeyWith(const std::string& sKey, const std::vector<std::string>& aPath, Line NL) {
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
