#pragma once
#include <cstdint>
#include <string>

namespace OsInfo {
int32_t PlatformId();        // 2: the NT family, as the system expects
std::string ComputerName();  // host name, upper case, no backslashes
}  // namespace OsInfo

namespace Win32Helper {
// Text for a platform error code (an errno value here).
std::string ErrorText(int32_t lError);
}  // namespace Win32Helper
