#pragma once
// The process-wide variables of the log processor, set at start and by the main cycle.
#include <cstdint>
#include <string>

// Registry key (below HKEY_LOCAL_MACHINE) of the logger list.
extern std::string sLogListLoc;
constexpr const char* kDefaultLogListLoc = "SOFTWARE\\Norvane\\Kestrane v4\\Capture";
// Registry key of the processor's own values.
constexpr const char* kLogProcessorKey = "SOFTWARE\\Norvane\\Kestrane v4\\Log Processor";

// The crash filter was installed at start (and is removed when the form unloads).
extern bool UseExceptionHandler;
// "/SILENT": no message box when a copy is already running.
extern bool SilentMode;
// The hour of the day (0 to 23) at which the logger list was last loaded.
extern int32_t LastProcessedHour;
// Path of the system Windows Media profile file.
extern std::string SystemPrxFile;

// The handler names of the two ends of the message channel.
constexpr const char* kLogProcHandler = "KNLogProcMsgHandler";
constexpr const char* kCaptureHandler = "KNCaptureMsgHandler";
