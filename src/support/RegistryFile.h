#pragma once
// A registry file in the export format of the Windows registry editor ("REGEDIT4" or
// "Windows Registry Editor Version 5.00"), as one ordered list of lines so that a
// rewrite keeps every line it does not change: comments, other hives, values of types
// this code does not interpret, even lines it cannot read.
//
// Reading follows what an import would do: keys and value names compare without regard
// to case, the last of two equal values wins, "[-key]" removes a key and its sub-keys,
// "name"=- removes a value. Keys given to the lookups are paths below
// HKEY_LOCAL_MACHINE ("SOFTWARE\Norvane\Kestrane v4").
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

class RegistryFile {
 public:
  enum class ValueType { String, Dword, Hex };

  struct Value {
    ValueType eType = ValueType::String;
    std::string sString;          // String: the text, escapes resolved
    uint32_t lDword = 0;          // Dword
    int32_t lHexKind = -1;        // Hex: -1 for "hex:", N for "hex(N):"
    std::vector<uint8_t> aBytes;  // Hex: the bytes
    bool bUnicode = true;         // Hex strings are UTF-16LE (false in a REGEDIT4 file)

    // The value as text: a string, the decimal form of a number, the text of a
    // hex(1)/hex(2) string. Nothing for other types.
    std::optional<std::string> AsText() const;
    // The value as a 32-bit number: a dword, the leading number of a string, a
    // little-endian hex(4), the low half of a hex(b). Nothing for other types.
    std::optional<int32_t> AsLong() const;
  };

  // A line that could not be read; it is skipped by the lookups and kept on rewrite.
  struct Problem {
    int iLine = 0;  // 1-based line number in the file
    std::string sText;
    std::string sReason;
  };

  RegistryFile() = default;
  // Reads the bytes of a file: UTF-16LE or UTF-16BE with byte-order mark, UTF-16LE
  // without one, UTF-8 with or without one; CRLF, LF or CR line ends. Never fails: what cannot be read becomes
  // a Problem.
  static RegistryFile Parse(std::string_view sBytes);

  const std::vector<Problem>& Problems() const { return m_aProblems; }

  std::optional<Value> GetValue(const std::string& sKey, const std::string& sName) const;
  bool ValueExists(const std::string& sKey, const std::string& sName) const {
    return GetValue(sKey, sName).has_value();
  }
  // A key exists when it or one of its sub-keys has a section of its own.
  bool KeyExists(const std::string& sKey) const;

  // Writes create the key when needed. An empty name is the key's default value ("@").
  // False (and nothing changed) for a key or name with a line break, which the file
  // cannot hold.
  bool SetString(const std::string& sKey, const std::string& sName, const std::string& sData);
  bool SetDword(const std::string& sKey, const std::string& sName, uint32_t lData);
  // Removes the key with its values and sub-keys.
  void DeleteKey(const std::string& sKey);

  // The whole file as UTF-8 "Windows Registry Editor Version 5.00" with CRLF line ends.
  std::string Serialise() const;

 private:
  // BadKey: an unreadable "[...]" line; it ends the section before it, and the values
  // after it belong to no key.
  enum class Kind { Header, Blank, Comment, Key, KeyDelete, BadKey, Value, ValueDelete, Malformed };
  struct Line {
    Kind eKind = Kind::Blank;
    std::vector<std::string> aText;  // the physical lines as read or as to be written
    std::vector<std::string> aPath;  // Key, KeyDelete: components, upper case, hive spelt out
    std::string sName;               // Value, ValueDelete: the name as written
    std::string sNameUpper;
    Value oValue;  // Value
  };

  static std::vector<std::string> PathOf(const std::string& sKey);
  static bool IsPrefix(const std::vector<std::string>& aPrefix, const std::vector<std::string>& aPath);
  void ClassifyLines(const std::vector<std::string_view>& aPhysical);
  // The steps of ClassifyLines: each fills L from the trimmed line t and gives the reason
  // it cannot be read, or "". A hex value takes its continuation lines (moving i).
  static std::string ClassifyKey(std::string_view t, Line& L);
  std::string ClassifyValue(std::string_view t, bool bInKey, const std::vector<std::string_view>& aPhysical, size_t& i,
                            Line& L) const;
  std::string ReadHexValue(std::string_view sType, const std::vector<std::string_view>& aPhysical, size_t& i,
                           Line& L) const;
  // Index of the line that holds the value now in force, or -1.
  long FindValue(const std::vector<std::string>& aPath, const std::string& sNameUpper) const;
  // Sets a value; an existing value keeps the spelling of its name.
  bool PutValue(const std::string& sKey, const std::string& sName, const Value& oValue);
  // Puts a new section of the key, holding the value line NL, where PutValue found none.
  void InsertKeyWith(const std::string& sKey, const std::vector<std::string>& aPath, Line NL);
  static std::vector<std::string> ValueLines(const std::string& sName, const Value& oValue);
  bool IsBlockStart(size_t i) const;
  size_t BlockEnd(size_t iHeader) const;

  std::vector<Line> m_aLines;
  std::vector<Problem> m_aProblems;
  bool m_bUnicode = true;  // false for a REGEDIT4 file
};
