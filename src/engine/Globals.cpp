#include "engine/Globals.h"

std::string sLogListLoc = kDefaultLogListLoc;
bool UseExceptionHandler = false;
bool SilentMode = false;
int32_t LastProcessedHour = 0;
std::string SystemPrxFile;
