#pragma once
// Registry values (below HKEY_LOCAL_MACHINE, kept in <root>/registry.reg) and private
// profile files (Kestrane.ini, hour ".inf" files), with the Windows behaviour.
// Every read sees what is on disk at that moment; every write goes through a temporary
// file and a rename, so that no reader ever sees half a file.
#include <cstdint>
#include <string>

namespace ConfigAccess {

// ---- Registry. Keys are paths below HKEY_LOCAL_MACHINE, e.g.
// "SOFTWARE\Norvane\Kestrane v4\Capture\Logger1"; names compare without regard to case.

// A string value; a dword reads as its decimal text. sDefault when absent.
std::string GetRegString(const std::string& sKey, const std::string& sValue, const std::string& sDefault);
// A 32-bit value; a string value gives its leading number. lDefault when absent.
int32_t GetRegLong(const std::string& sKey, const std::string& sValue, int32_t lDefault);
bool RegValueExists(const std::string& sKey, const std::string& sValue);
bool RegKeyExists(const std::string& sKey);

// Writes create missing keys. bFlag is the platform's extra argument (not used here).
bool SetRegString(const std::string& sKey, const std::string& sValue, const std::string& sData);
bool SetRegLong(const std::string& sKey, const std::string& sValue, int32_t lData, bool bFlag = false);
// Deletes the key, its values and its sub-keys. True when it is gone afterwards.
bool DeleteRegKey(const std::string& sKey);

// ---- Private profile files. File names are paths of this machine (see
// Machine::TranslatePath for stored paths).

std::string GetProfileString(const std::string& sSection, const std::string& sKey, const std::string& sDefault,
                             const std::string& sFile);
int32_t GetProfileInt(const std::string& sSection, const std::string& sKey, int32_t lDefault, const std::string& sFile);
// The whole section as entries each ended by a NUL, with one more NUL after the last;
// "" when the section (or the file) is absent.
std::string GetProfileSection(const std::string& sSection, const std::string& sFile);
// Writes one key (creating file and section as needed). False on failure.
bool WriteProfileString(const std::string& sSection, const std::string& sKey, const std::string& sValue,
                        const std::string& sFile);
// Replaces the whole section by the NUL-separated entries (same form as a section read).
bool WriteProfileSection(const std::string& sSection, const std::string& sEntries, const std::string& sFile);

// Can the file be read at all? 0 when it can (or does not exist), else the errno of the
// failed read, or kErrNotRegularFile. Lets callers tell "unreadable" from "empty".
int ProfileReadError(const std::string& sFile);

// A registry or profile file that is a pipe, a device or a socket: refused unread. Not
// an errno value.
constexpr int kErrNotRegularFile = -1000;
// The text of a read failure: strerror, or the refusal above.
std::string ReadErrorText(int e);
// The errno of the last registry or profile write of this thread that failed to reach
// the disk (0 when it did, or failed for another reason), so that a caller can say why.
int LastWriteError();

// Tests: drop the cache of parsed files.
void ClearCache();

}  // namespace ConfigAccess
