#pragma once
// A private profile file (settings file, hour info file) with the rules of the Windows
// profile functions, kept as its lines so that an edit changes only what it must:
//  - section and key names compare without regard to case; names are trimmed;
//  - lines are trimmed of blanks, tabs and 0x1A, and so are the sides of "=";
//  - CRLF, LF and CR line ends all read; a UTF-8 byte-order mark is skipped and kept;
//  - a file with a UTF-16 byte-order mark (little or big endian, as a Windows editor
//    saves "Unicode") is read as its text and written back in the same encoding;
//  - ";" at the start of a line makes a comment; there are no inline comments;
//  - a value in one matching pair of double or single quotes reads without them;
//  - only the first section of a name is searched, and its first key of a name wins;
//  - bytes are passed through as they are.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

class ProfileFile {
 public:
  enum class Encoding { Bytes, Utf16Le, Utf16Be };

  ProfileFile() = default;
  static ProfileFile Parse(std::string_view sBytes);

  // The text of a file's bytes: UTF-16 with a byte-order mark is decoded to UTF-8 (mark
  // left out); other bytes are the text as they stand. False when UTF-16 is malformed
  // (an odd number of bytes, an unpaired surrogate): sText is then the bytes.
  static bool DecodeText(std::string_view sBytes, std::string& sText, Encoding& eEncoding);
  Encoding TextEncoding() const { return m_eEncoding; }
  // False for a file that starts with a UTF-16 byte-order mark but is no UTF-16: it is
  // read as its bytes, and never changed (lines of single bytes added to it could make
  // the whole read as other UTF-16 text). SetString and SetSection then change nothing.
  bool Editable() const { return !m_bUndecodable; }

  // The key's value (quotes removed); nothing when the section or key is absent.
  // A line without "=" is a key without a value: it ends the search with nothing.
  std::optional<std::string> GetString(std::string_view sSection, std::string_view sKey) const;
  bool HasSection(std::string_view sSection) const;
  // The section's lines in file order, "key=value" or the line as it stands when it
  // has no "=", comments and blank lines left out; each ended by a NUL, one more NUL
  // after the last. "" when the section is absent or has no such line.
  std::string GetSection(std::string_view sSection) const;

  // Sets one key, keeping every other line. A missing section is added at the end of
  // the file, a missing key at the end of its section. True when the text changed
  // (never for a file that isn't Editable).
  bool SetString(std::string_view sSection, std::string_view sKey, std::string_view sValue);
  // Replaces the lines of the section by the NUL-separated entries (an empty entry ends
  // the list). True when the text changed.
  bool SetSection(std::string_view sSection, std::string_view sEntries);

  std::string Serialise() const;

  // The integer rule of the profile functions: absent or empty gives the default, else
  // the leading decimal number with optional sign, wrapping at 32 bits ("42A" is 42,
  // "abc" is 0).
  static int32_t IntValue(const std::optional<std::string>& sValue, int32_t lDefault);
  // A name or value as the profile functions trim it (blanks, tabs, 0x1A).
  static std::string_view TrimText(std::string_view s);

 private:
  enum class Kind { Blank, Comment, Section, Key, Text };
  struct Line {
    std::string sText;  // the line without its end
    std::string sEnd;   // "\r\n", "\n", "\r" or "" (last line without an end)
    Kind eKind = Kind::Blank;
    std::string sName;   // Section: its name; Key and Text: the key (trimmed)
    std::string sValue;  // Key: the value (trimmed, quotes kept)
  };
  static Line MakeLine(std::string sText, std::string sEnd);
  // Index of the first section of the name, or npos.
  size_t FindSection(std::string_view sSection) const;
  size_t SectionEnd(size_t iHeader) const;
  const std::string& DefaultEnd() const;
  void InsertLines(size_t iPos, std::vector<Line> aNew);

  bool m_bBom = false;
  Encoding m_eEncoding = Encoding::Bytes;
  bool m_bUndecodable = false;
  std::vector<Line> m_aLines;
  std::string m_sDefaultEnd = "\r\n";
};
