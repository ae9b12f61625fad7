#include "support/ProfileFile.h"

#include <utility>

#include "support/TextRules.h"

namespace {
constexpr std::string_view kTrimSet = " \t\x1A";
constexpr std::string_view kBom = "\xEF\xBB\xBF";
}  // namespace

std::string_view ProfileFile::TrimText(std::string_view s) { return TextRules::Trim(s, kTrimSet); }

int32_t ProfileFile::IntValue(const std::optional<std::string>& sValue, int32_t lDefault) {
  if (!sValue || sValue->empty()) return lDefault;
  return TextRules::LeadingInt32(*sValue);
}

ProfileFile::Line ProfileFile::MakeLine(std::string sText, std::string sEnd) {
  Line L;
  L.sText = std::move(sText);
  L.sEnd = std::move(sEnd);
  const std::string_view t = TrimText(L.sText);
  if (t.empty()) {
    L.eKind = Kind::Blank;
    return L;
  }
  if (t[0] == ';') {
    L.eKind = Kind::Comment;
    return L;
  }
  if (t[0] == '[') {
    const size_t iClose = t.rfind(']');
    if (iClose != std::string_view::npos) {
      L.eKind = Kind::Section;
      L.sName = TrimText(t.substr(1, iClose - 1));
      return L;
    }
    // Without a closing bracket the line is an ordinary line.
  }
  const size_t iEq = t.find('=');
  if (iEq == std::string_view::npos) {
    L.eKind = Kind::Text;
    L.sName = t;
  } else {
    L.eKind = Kind::Key;
    L.sName = TrimText(t.substr(0, iEq));
    L.sValue = TrimText(t.substr(iEq + 1));
  }
  return L;
}

bool ProfileFile::DecodeText(std::string_view sBytes, std::string& sText, Encoding& eEncoding) {
  eEncoding = Encoding::Bytes;
  const bool bLe = sBytes.size() >= 2 && sBytes[0] == '\xFF' && sBytes[1] == '\xFE';
  const bool bBe = sBytes.size() >= 2 && sBytes[0] == '\xFE' && sBytes[1] == '\xFF';
  if (!bLe && !bBe) {
    sText.assign(sBytes);
    return true;
  }
  const std::string_view sUnits = sBytes.substr(2);
  bool bOk = sUnits.size() % 2 == 0;
  // Every unit must be a character or one half of a surrogate pair.
  for (size_t i = 0; bOk && i + 1 < sUnits.size(); i += 2) {
    auto unit = [&](size_t k) {
      const auto hi = static_cast<unsigned char>(sUnits[bLe ? k + 1 : k]);
      const auto lo = static_cast<unsigned char>(sUnits[bLe ? k : k + 1]);
      return static_cast<unsigned>(hi << 8 | lo);
    };
    const unsigned u = unit(i);
    if (u >= 0xD800 && u <= 0xDBFF) {
      bOk = i + 3 < sUnits.size() && unit(i + 2) >= 0xDC00 && unit(i + 2) <= 0xDFFF;
      i += 2;
    } else if (u >= 0xDC00 && u <= 0xDFFF) {
      // 0xDC80 to 0xDCFF alone stand for a byte that was no UTF-8 (as this class writes
      // such a byte back); other lone halves are broken text.
      bOk = u >= 0xDC80 && u <= 0xDCFF;
    }
  }
  if (!bOk) {
    sText.assign(sBytes);
    return false;
  }
  std::string sDecoded = TextRules::Utf16ToUtf8(sUnits, bBe);
  // Lone units that stand for bytes must not form a character when put together: the text
  // must write back to the very same units, or a rewrite would change the file's text.
  std::string sAgain = TextRules::Utf8ToUtf16Le(sDecoded);
  if (bBe)
    for (size_t i = 0; i + 1 < sAgain.size(); i += 2) std::swap(sAgain[i], sAgain[i + 1]);
  if (sAgain != sUnits) {
    sText.assign(sBytes);
    return false;
  }
  eEncoding = bLe ? Encoding::Utf16Le : Encoding::Utf16Be;
  sText = std::move(sDecoded);
  return true;
}

ProfileFile ProfileFile::Parse(std::string_view sFileBytes) {
  ProfileFile f;
  std::string sText;
  f.m_bUndecodable = !DecodeText(sFileBytes, sText, f.m_eEncoding);
  std::string_view sBytes = sText;
  if (sBytes.substr(0, kBom.size()) == kBom) {
    f.m_bBom = true;
    sBytes.remove_prefix(kBom.size());
  }
  size_t i = 0;
  bool bEndSeen = false;
  while (i < sBytes.size()) {
    size_t j = sBytes.find_first_of("\r\n", i);
    if (j == std::string_view::npos) {
      f.m_aLines.push_back(MakeLine(std::string(sBytes.substr(i)), ""));
      break;
    }
    const size_t n = (sBytes[j] == '\r' && j + 1 < sBytes.size() && sBytes[j + 1] == '\n') ? 2 : 1;
    std::string sEnd(sBytes.substr(j, n));
    if (!bEndSeen) {
      f.m_sDefaultEnd = sEnd;
      bEndSeen = true;
    }
    f.m_aLines.push_back(MakeLine(std::string(sBytes.substr(i, j - i)), std::move(sEnd)));
    i = j + n;
  }
  return f;
}

size_t ProfileFile::FindSection(std::string_view sSection) const {
  const std::string_view sName = TrimText(sSection);
  for (size_t i = 0; i < m_aLines.size(); ++i)
    if (m_aLines[i].eKind == Kind::Section && TextRules::IEquals(m_aLines[i].sName, sName)) return i;
  return std::string::npos;
}

size_t ProfileFile::SectionEnd(size_t iHeader) const {
  size_t j = iHeader + 1;
  while (j < m_aLines.size() && m_aLines[j].eKind != Kind::Section) ++j;
  return j;
}

const std::string& ProfileFile::DefaultEnd() const { return m_sDefaultEnd; }

std::optional<std::string> ProfileFile::GetString(std::string_view sSection, std::string_view sKey) const {
  const size_t iSec = FindSection(sSection);
  if (iSec == std::string::npos) return std::nullopt;
  const std::string_view sName = TrimText(sKey);
  const size_t iEnd = SectionEnd(iSec);
  for (size_t i = iSec + 1; i < iEnd; ++i) {
    const Line& L = m_aLines[i];
    if ((L.eKind == Kind::Key || L.eKind == Kind::Text) && TextRules::IEquals(L.sName, sName)) {
      // A key without "=" has no value: the caller's default applies.
      if (L.eKind == Kind::Text) return std::nullopt;
      const std::string& v = L.sValue;
      if (v.size() >= 2 && (v[0] == '"' || v[0] == '\'') && v.back() == v[0]) return v.substr(1, v.size() - 2);
      return v;
    }
  }
  return std::nullopt;
}

bool ProfileFile::HasSection(std::string_view sSection) const { return FindSection(sSection) != std::string::npos; }

std::string ProfileFile::GetSection(std::string_view sSection) const {
  const size_t iSec = FindSection(sSection);
  if (iSec == std::string::npos) return {};
  std::string s;
  const size_t iEnd = SectionEnd(iSec);
  for (size_t i = iSec + 1; i < iEnd; ++i) {
    const Line& L = m_aLines[i];
    if (L.eKind == Kind::Key) {
      s += L.sName;
      s += '=';
      s += L.sValue;
      s += '\0';
    } else if (L.eKind == Kind::Text) {
      s += L.sName;
      s += '\0';
    }
  }
  if (!s.empty()) s += '\0';
  return s;
}

void ProfileFile::InsertLines(size_t iPos, std::vector<Line> aNew) {
  // The line before gets an end if it was the file's last line without one.
  if (iPos > 0 && m_aLines[iPos - 1].sEnd.empty()) m_aLines[iPos - 1].sEnd = DefaultEnd();
  m_aLines.insert(m_aLines.begin() + static_cast<long>(iPos), std::make_move_iterator(aNew.begin()),
                  std::make_move_iterator(aNew.end()));
}

bool ProfileFile::SetString(std::string_view sSection, std::string_view sKey, std::string_view sValue) {
  if (!Editable()) return false;
  const std::string sSec(TrimText(sSection));
  const std::string sName(TrimText(sKey));
  const std::string sVal(TrimText(sValue));
  const size_t iSec = FindSection(sSec);
  if (iSec == std::string::npos) {
    InsertLines(m_aLines.size(),
                {MakeLine("[" + sSec + "]", DefaultEnd()), MakeLine(sName + "=" + sVal, DefaultEnd())});
    return true;
  }
  const size_t iEnd = SectionEnd(iSec);
  size_t iLastEntry = iSec;
  for (size_t i = iSec + 1; i < iEnd; ++i) {
    Line& L = m_aLines[i];
    if (L.eKind != Kind::Key && L.eKind != Kind::Text) continue;
    iLastEntry = i;
    if (!TextRules::IEquals(L.sName, sName)) continue;
    if (L.eKind == Kind::Key && L.sValue == sVal) return false;
    // Keep the key as the file spells it.
    L = MakeLine(L.sName + "=" + sVal, L.sEnd);
    return true;
  }
  InsertLines(iLastEntry + 1, {MakeLine(sName + "=" + sVal, DefaultEnd())});
  return true;
}

bool ProfileFile::SetSection(std::string_view sSection, std::string_view sEntries) {
  if (!Editable()) return false;
  const std::string sBefore = Serialise();
  const std::string sSec(TrimText(sSection));
  std::vector<Line> aNew;
  size_t i = 0;
  while (i < sEntries.size()) {
    size_t j = sEntries.find('\0', i);
    if (j == std::string_view::npos) j = sEntries.size();
    if (j == i) break;
    aNew.push_back(MakeLine(std::string(sEntries.substr(i, j - i)), DefaultEnd()));
    i = j + 1;
  }
  size_t iSec = FindSection(sSec);
  if (iSec == std::string::npos) {
    aNew.insert(aNew.begin(), MakeLine("[" + sSec + "]", DefaultEnd()));
    InsertLines(m_aLines.size(), std::move(aNew));
  } else {
    // The old lines go; blank lines that end the section stay as its separation from
    // the next one.
    size_t iEnd = SectionEnd(iSec);
    size_t iKeep = iEnd;
    while (iKeep > iSec + 1 && m_aLines[iKeep - 1].eKind == Kind::Blank) --iKeep;
    m_aLines.erase(m_aLines.begin() + static_cast<long>(iSec + 1), m_aLines.begin() + static_cast<long>(iKeep));
    InsertLines(iSec + 1, std::move(aNew));
  }
  return Serialise() != sBefore;
}

std::string ProfileFile::Serialise() const {
  std::string s;
  if (m_bBom) s += kBom;
  for (const Line& L : m_aLines) {
    s += L.sText;
    s += L.sEnd;
  }
  if (m_eEncoding == Encoding::Bytes) return s;
  std::string sUnits = TextRules::Utf8ToUtf16Le(s);
  if (m_eEncoding == Encoding::Utf16Be)
    for (size_t i = 0; i + 1 < sUnits.size(); i += 2) std::swap(sUnits[i], sUnits[i + 1]);
  return (m_eEncoding == Encoding::Utf16Le ? std::string("\xFF\xFE") : std::string("\xFE\xFF")) + sUnits;
}
