#pragma once
// The machine root: the folder that stands for the whole machine (drives, registry,
// message sockets). Read from KESTRANE_ROOT on every call, so a test can point it at a
// fresh temporary folder with setenv.
#include <string>

namespace Machine {

// $KESTRANE_ROOT, else $XDG_DATA_HOME/kestrane, else $HOME/.local/share/kestrane.
// Never ends with "/".
std::string Root();

// Folder that stands for drive `letter` ("D", "d", "D:" all give <root>/drive_d).
std::string DriveFolder(const std::string& sLetter);

// A path as the system stores it ("D:\Kestrane\Logger3", "D:/x", "/srv/x", "\\PC\x")
// turned into a path of this machine: "X:\rest" -> <root>/drive_x/rest with every "\"
// read as "/"; a path starting with "/" stays as it is; other "\" become "/".
std::string TranslatePath(const std::string& sPath);

// <root>/registry.reg
std::string RegistryFile();

// <root>/run/msg : the folder of the message sockets.
std::string MessageFolder();

// Temporary folder: $TMPDIR, else /tmp. Never ends with "/".
std::string TempFolder();

}  // namespace Machine
