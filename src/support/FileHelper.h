#pragma once
// Files and folders as the system sees them. Paths are paths of this machine; stored
// paths go through Machine::TranslatePath first.
#include <cstdint>
#include <string>

namespace FileHelper {

constexpr int32_t kWindowsFolder = 36;       // <root>/drive_c/Windows
constexpr int32_t kCommonProgramFiles = 43;  // <root>/drive_c/Program Files/Common Files
constexpr int32_t kAttrDirectory = 16;

std::string SpecialFolder(int32_t lFolderId);  // "" for an unknown id
std::string DataDrive();                       // "D"

bool FileExists(const std::string& sPath);  // a plain file
bool FolderExists(const std::string& sPath);
int64_t FileSize(const std::string& sPath);  // -1 when there is no such file

// Creates the folder and its parents. True when it exists afterwards.
bool EnsureFolder(const std::string& sPath, int32_t lFlags = 0);
// Same, with a result code: 0 on success, else an errno value.
int32_t CreateFolder(const std::string& sPath);
// Deletes the folder with everything in it. 0 on success, else an errno value.
// Title, window handle and flags are the platform's and are not used.
// Symbolic links inside are removed as links, never followed; a path that is itself a
// link to a folder loses the link only. A folder of another file system inside (a mount)
// is never entered: the delete fails with EXDEV and the mount stays. Every entry that can
// go goes; the result is the first error met.
int32_t DeleteFolder(const std::string& sPath, const std::string& sTitle = "", intptr_t hWnd = 0, int32_t lZero = 0,
                     int32_t lFlags = 1028);
// Deletes one file. 0 on success, else an errno value.
int32_t DeleteFile(const std::string& sPath);

// Folder search by wildcard mask, in the order the Windows file system gives names
// (ascending, case-insensitive). sPattern is a folder, a separator and a mask
// ("/x/y/*.*", "/x/13*.*"). lAttrMask 0: plain files only; 16: folders too, with the
// "." and ".." entries. Returns the bare name and sets hFind (0 when nothing matched);
// FindNext returns "" at the end. Close every search with FindClose.
// The whole folder is read by FindFirst: a folder that can't be opened or read to its end
// gives "" and a zero handle like an empty one, and LastFindError tells the two apart.
using FindHandle = intptr_t;
std::string FindFirst(const std::string& sPattern, int32_t lAttrMask, FindHandle& hFind);
std::string FindNext(FindHandle hFind);
void FindClose(FindHandle hFind);
// The outcome of the calling thread's last FindFirst: 0 when the folder was read to its
// end (whether or not a name matched), else an errno value (ENOENT: no such folder).
int32_t LastFindError();
// The Windows mask rules: "*.*" matches all, "?" one character or nothing at the end of
// the name or before its dot; case is ignored.
bool MatchMask(const std::string& sName, const std::string& sMask);

// Name parts. Both "/" and "\" separate.
std::string GetFolder(const std::string& sPath);     // "/a/b/c.wav" -> "/a/b"
std::string GetFileName(const std::string& sPath);   // -> "c.wav"
std::string GetFileTitle(const std::string& sPath);  // -> "c"
std::string GetExtension(const std::string& sPath);  // -> "wav" ("" when none)

// Free (lKind 2) or total (lKind 1) bytes of the file system that holds the drive
// ("c:" -> <root>/drive_c). -1 when it can't be read.
double DiskSpace(const std::string& sDrive, int32_t lKind = 2);
// Tests: answer DiskSpace from a function instead of the file system.
void SetDiskSpaceSourceForTesting(double (*fn)(const std::string& sDrive, int32_t lKind));

}  // namespace FileHelper
