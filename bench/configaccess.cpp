// Cost of the registry and profile reads that every cycle makes: from the cache while a
// file is unchanged, and with a parse of the whole file when it was changed just now.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "support/ConfigAccess.h"

namespace fs = std::filesystem;

namespace {

void SetOldTime(const std::string& sPath) {
  struct timespec ts[2] = {{1000000, 0}, {1000000, 0}};
  utimensat(AT_FDCWD, sPath.c_str(), ts, 0);
}

// A machine root with a registry of iLoggers loggers and one settings file; old time
// stamps unless bFresh.
std::string MakeRoot(int iLoggers, bool bFresh = false) {
  std::string sRoot = (fs::temp_directory_path() / "knbench.XXXXXX").string();
  if (!mkdtemp(sRoot.data())) std::abort();
  setenv("KESTRANE_ROOT", sRoot.c_str(), 1);
  std::string s = "Windows Registry Editor Version 5.00\r\n\r\n";
  s += "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4\\Capture]\r\n";
  s += fmt::format("\"LogCount\"=dword:{:08x}\r\n\r\n", iLoggers);
  for (int i = 1; i <= iLoggers; ++i) {
    s += fmt::format("[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4\\Capture\\Logger{}]\r\n", i);
    s += fmt::format("\"LogPath\"=\"D:\\\\Kestrane\\\\Logger{}\"\r\n\"Enabled\"=dword:ffffffff\r\n", i);
    for (int k = 0; k < 12; ++k) s += fmt::format("\"Setting{}\"=dword:{:08x}\r\n", k, k * 7);
    s += "\r\n";
  }
  std::ofstream(sRoot + "/registry.reg", std::ios::binary) << s;
  std::string sIni = "[General]\r\n";
  for (int k = 0; k < 40; ++k) sIni += fmt::format("Key{}={}\r\n", k, k);
  std::ofstream(sRoot + "/Kestrane.ini", std::ios::binary) << sIni;
  if (!bFresh) {
    SetOldTime(sRoot + "/Kestrane.ini");
    SetOldTime(sRoot + "/registry.reg");
  }
  ConfigAccess::ClearCache();
  return sRoot;
}

void BM_GetRegLong(benchmark::State& state) {
  const std::string sRoot = MakeRoot(static_cast<int>(state.range(0)), state.range(1) != 0);
  for (auto _ : state)
    benchmark::DoNotOptimize(
        ConfigAccess::GetRegLong("SOFTWARE\\Norvane\\Kestrane v4\\Capture\\Logger1", "Setting11", -1));
  fs::remove_all(sRoot);
}
// Arguments: loggers, file changed just now.
BENCHMARK(BM_GetRegLong)->Args({4, 0})->Args({32, 0})->Args({4, 1})->Args({32, 1});

void BM_GetProfileStringCached(benchmark::State& state) {
  const std::string sRoot = MakeRoot(1);
  for (auto _ : state)
    benchmark::DoNotOptimize(ConfigAccess::GetProfileString("General", "Key39", "", sRoot + "/Kestrane.ini"));
  fs::remove_all(sRoot);
}
BENCHMARK(BM_GetProfileStringCached);

}  // namespace

BENCHMARK_MAIN();
