#pragma once
// Small file helpers of the system.
#include <cstdint>
#include <string>
#include <vector>
#include "support/FileHelper.h"

// Full name of a file that didn't exist (or exists empty), "" on failure.
// sPath empty: the temporary folder. sExt empty or "TMP": keep the generated ".tmp" file.
std::string GetTempFile(std::string sPath, const std::string& sExt);

// The folder of a path ("." for a bare name, "/" for a name in the root) and its last
// part, with "/" as the only separator.
std::string FolderOf(const std::string& sPath);
std::string NameOf(const std::string& sPath);

// Copies the string's characters into the array and fills the rest with zeros.
void ClearBytes(std::vector<uint8_t>& aBytes, const std::string& s);

// Closes a folder search and sets the handle to 0.
void CloseFind(FileHelper::FindHandle& hFind);

// Writes a whole file through a temporary file in the same folder, flushed, renamed over
// the target, folder flushed. 0 on success, else an errno value (the old file stays).
int WriteFileAtomically(const std::string& sPath, const std::string& sContent);
// Removes the temporary files that interrupted WriteFileAtomically calls for sPath left
// behind. Only while no other writer of sPath can be at work (under its lock).
void RemoveAtomicLeftovers(const std::string& sPath);
// Reads a whole file. 0 on success (also sets sContent), else an errno value.
int ReadWholeFile(const std::string& sPath, std::string& sContent);
// fsync of a file and of its folder. 0 on success, else an errno value.
int SyncFileAndFolder(const std::string& sPath);
// fsync of a file, or of a folder, alone. 0 on success, else an errno value.
int SyncFile(const std::string& sPath);
int SyncFolder(const std::string& sPath);
// Renames sFrom to sTo, never replacing a file that is already at sTo: EEXIST then, and
// both files stay as they were. Uses renameat2(RENAME_NOREPLACE); on a file system
// without it, a hard link and an unlink (or, where links are refused too, a check of the
// name just before a plain rename). 0 on success, else an errno value.
int RenameNoReplace(const std::string& sFrom, const std::string& sTo);
