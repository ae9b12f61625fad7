#include "support/Clock.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mutex>

#include "support/VbDate.h"

namespace {

std::mutex g_mutex;
bool g_fixed = false;
double g_fixedValue = 0;
double g_offsetDays = 0;  // added to the real clock (KESTRANE_CLOCK_START, Advance)
std::once_flag g_envOnce;

double RealNow() {
  using namespace std::chrono;
  auto now = system_clock::now();
  auto us = duration_cast<microseconds>(now.time_since_epoch()).count();
  std::time_t t = static_cast<std::time_t>(us / 1000000);
  std::tm tm{};
  localtime_r(&t, &tm);
  VbDate::Parts p{tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec};
  return VbDate::Make(p) + static_cast<double>(us % 1000000) / 1e6 / 86400.0;
}

void LoadFromEnvironment() {
  const char* start = std::getenv("KESTRANE_CLOCK_START");
  if (!start || !*start) return;
  VbDate::Parts p;
  if (std::sscanf(start, "%d-%d-%d %d:%d:%d", &p.Year, &p.Month, &p.Day, &p.Hour, &p.Minute, &p.Second) >= 3)
    g_offsetDays = VbDate::Make(p) - RealNow();
}

}  // namespace

namespace Clock {

double Now() {
  std::call_once(g_envOnce, LoadFromEnvironment);
  std::lock_guard<std::mutex> lock(g_mutex);
  if (g_fixed) return g_fixedValue;
  return RealNow() + g_offsetDays;
}

void SetFixed(double dDate) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_fixed = true;
  g_fixedValue = dDate;
}

void Advance(double dSeconds) {
  std::lock_guard<std::mutex> lock(g_mutex);
  if (g_fixed) g_fixedValue += dSeconds / 86400.0;
  else g_offsetDays += dSeconds / 86400.0;
}

void Reset() {
  std::call_once(g_envOnce, LoadFromEnvironment);
  std::lock_guard<std::mutex> lock(g_mutex);
  g_fixed = false;
  g_offsetDays = 0;
}

}  // namespace Clock
