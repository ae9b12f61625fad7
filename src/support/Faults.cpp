#include "support/Faults.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>

namespace {

struct Point {
  int Errno = 0;
  int Skip = 0;
  int Count = -1;
};

std::mutex g_mutex;
std::map<std::string, Point>* g_points = nullptr;
std::atomic<bool> g_armed{false};
std::once_flag g_envOnce;

int ErrnoByName(const std::string& s) {
  static const std::map<std::string, int> names = {{"ENOSPC", ENOSPC}, {"EIO", EIO},      {"EACCES", EACCES},
                                                   {"EPERM", EPERM},   {"EROFS", EROFS},  {"ENOENT", ENOENT},
                                                   {"EEXIST", EEXIST}, {"EBUSY", EBUSY},  {"EDQUOT", EDQUOT},
                                                   {"EINVAL", EINVAL}, {"EFAULT", EFAULT}};
  auto it = names.find(s);
  if (it != names.end()) return it->second;
  return std::atoi(s.c_str());
}

void ArmLocked(const std::string& sPoint, int iErrno, int iSkip, int iCount) {
  if (!g_points) g_points = new std::map<std::string, Point>();
  (*g_points)[sPoint] = Point{iErrno, iSkip, iCount};
  g_armed.store(true, std::memory_order_relaxed);
}

// KESTRANE_FAULTS="point=ENOSPC@skip xcount,..."
void LoadFromEnvironment() {
  const char* env = std::getenv("KESTRANE_FAULTS");
  if (!env || !*env) return;
  std::string all = env;
  size_t pos = 0;
  std::lock_guard<std::mutex> lock(g_mutex);
  while (pos <= all.size()) {
    size_t comma = all.find(',', pos);
    std::string item = all.substr(pos, comma == std::string::npos ? std::string::npos : comma - pos);
    pos = comma == std::string::npos ? all.size() + 1 : comma + 1;
    size_t eq = item.find('=');
    if (eq == std::string::npos) continue;
    std::string point = item.substr(0, eq);
    std::string sFault = item.substr(eq + 1);
    int skip = 0, count = -1;
    size_t x = sFault.find('x');
    if (x != std::string::npos) {
      count = std::atoi(sFault.c_str() + x + 1);
      sFault.erase(x);
    }
    size_t at = sFault.find('@');
    if (at != std::string::npos) {
      skip = std::atoi(sFault.c_str() + at + 1);
      sFault.erase(at);
    }
    ArmLocked(point, ErrnoByName(sFault), skip, count);
  }
}

}  // namespace

namespace Faults {

int Hit(const char* sPoint) {
  std::call_once(g_envOnce, LoadFromEnvironment);
  if (!g_armed.load(std::memory_order_relaxed)) return 0;
  std::lock_guard<std::mutex> lock(g_mutex);
  if (!g_points) return 0;
  auto it = g_points->find(sPoint);
  if (it == g_points->end()) return 0;
  Point& p = it->second;
  if (p.Skip > 0) {
    --p.Skip;
    return 0;
  }
  if (p.Count == 0) return 0;
  if (p.Count > 0) --p.Count;
  return p.Errno;
}

void Arm(const std::string& sPoint, int iErrno, int iSkip, int iCount) {
  std::call_once(g_envOnce, LoadFromEnvironment);
  std::lock_guard<std::mutex> lock(g_mutex);
  ArmLocked(sPoint, iErrno, iSkip, iCount);
}

void DisarmAll() {
  std::lock_guard<std::mutex> lock(g_mutex);
  if (g_points) g_points->clear();
  g_armed.store(false, std::memory_order_relaxed);
}

}  // namespace Faults
