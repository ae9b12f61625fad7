#pragma once
// The text forms of a registry editor export, shared by the reading and the writing of
// a RegistryFile: headers, quoted names and strings, hex bytes, key paths.
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace RegistryText {

constexpr std::string_view kHeader5 = "Windows Registry Editor Version 5.00";
constexpr std::string_view kHeader4 = "REGEDIT4";
constexpr std::string_view kBlanks = " \t";
constexpr std::string_view kLocalMachine = "HKEY_LOCAL_MACHINE";

bool StartsWithNoCase(std::string_view s, std::string_view sPrefix);
// 1 to 8 hex digits and nothing else.
bool ParseHex32(std::string_view s, uint32_t& lValue);
// A quoted text at s[pos] (which is '"'). "\\" and "\"" are escapes; any other
// backslash stands for itself. On success pos is just past the closing quote.
bool ParseQuoted(std::string_view s, size_t& pos, std::string& sOut);
std::string Quote(std::string_view s);
// Comma-separated bytes of one or two hex digits; a trailing comma is allowed.
bool ParseHexBytes(std::string_view s, std::vector<uint8_t>& aBytes);
// A continuation line of a hex value holds only bytes, commas, blanks and a final
// backslash.
bool IsHexContinuation(std::string_view s);
bool IsKnownHive(std::string_view sUpper);
std::vector<std::string> SplitPath(std::string_view s);
// A value's name as written: quoted, or "@" for the default value.
std::string NameText(const std::string& sName);
// Hex bytes behind sStart, wrapped as the registry editor wraps them.
std::vector<std::string> HexLines(const std::string& sStart, const std::vector<uint8_t>& aBytes);

}  // namespace RegistryText
