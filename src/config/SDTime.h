#pragma once
// A moment as a day serial and the seconds since that day's midnight.
#include <cstdint>

struct SDTime {
  int32_t Date = 0;      // day serial: days since 30 December 1899
  float Seconds = 0.0f;  // seconds since midnight
};
