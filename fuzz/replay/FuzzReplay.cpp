// Runs a libFuzzer entry point without libFuzzer, so that the normal test build (GCC,
// sanitizers) exercises every fuzz target as a test:
//
//   fuzz_replay_<target> <corpus folder> [seconds, default 2]
//
// Every file of the corpus folder runs first, then random mutations of them (bit flips,
// boundary values, inserted, erased, repeated and spliced ranges) until the time is up.
// A failure is whatever the target or a sanitizer makes of an input (an abort, a report,
// an escaped exception); the input that caused it is written to
// fuzz-failure-<target>-<seed> in the working folder first, ready for the real fuzzer:
//   build-fuzz/bin/fuzz_<target> fuzz-failure-<target>-<seed>
// KN_FUZZ_SEED=<n> repeats a run's mutations. The targets' scratch files go to a fresh
// folder (TMPDIR) that is removed at the end.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <system_error>
#include <vector>

#if defined(__has_include)
#if __has_include(<sanitizer/common_interface_defs.h>)
#include <sanitizer/common_interface_defs.h>
#define KN_HAVE_SANITIZER_CALLBACK 1
#endif
#endif

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* pArgc, char*** pArgv);

namespace fs = std::filesystem;

namespace {

using Bytes = std::vector<uint8_t>;

const Bytes* g_pCurrent = nullptr;  // the input under way, for the failure file
std::string g_sFailureFile;

void Say(const char* p) {
  while (*p) {
    const ssize_t n = write(STDERR_FILENO, p, std::char_traits<char>::length(p));
    if (n <= 0) return;
    p += n;
  }
}

// Writes the input under way to the failure file. Called while the process dies (from a
// sanitizer's report, an abort, an escaped exception): plain system calls only.
void SaveCurrentInput() {
  const Bytes* pInput = g_pCurrent;
  if (!pInput || g_sFailureFile.empty()) return;
  g_pCurrent = nullptr;
  const int fd = open(g_sFailureFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return;
  size_t nDone = 0;
  while (nDone < pInput->size()) {
    const ssize_t n = write(fd, pInput->data() + nDone, pInput->size() - nDone);
    if (n <= 0) break;
    nDone += static_cast<size_t>(n);
  }
  close(fd);
  Say("fuzz replay: the failing input is in ");
  Say(g_sFailureFile.c_str());
  Say("\n");
}

extern "C" void OnAbort(int iSignal) {
  SaveCurrentInput();
  std::signal(iSignal, SIG_DFL);
  std::raise(iSignal);
}

template <typename T>
bool ParseNumber(const char* p, T& v) {
  const char* pEnd = p + std::char_traits<char>::length(p);
  const auto r = std::from_chars(p, pEnd, v);
  return r.ec == std::errc() && r.ptr == pEnd;
}

void RunOne(const Bytes& a) {
  g_pCurrent = &a;
  // A copy of exactly the input's size, so that a read past its end is seen by the sanitizer.
  std::unique_ptr<uint8_t[]> pCopy(new uint8_t[a.size() ? a.size() : 1]);
  std::copy(a.begin(), a.end(), pCopy.get());
  LLVMFuzzerTestOneInput(pCopy.get(), a.size());
  g_pCurrent = nullptr;
}

class Mutator {
 public:
  Mutator(uint64_t uSeed, size_t nMaxSize) : m_oRandom(uSeed), m_nMaxSize(nMaxSize) {}

  // One to four changes to a copy of a, drawing on other for splices.
  Bytes Mutate(const Bytes& a, const Bytes& other) {
    Bytes b = a;
    const int nChanges = 1 + static_cast<int>(Below(4));
    for (int i = 0; i < nChanges; ++i) Change(b, other);
    if (b.size() > m_nMaxSize) b.resize(m_nMaxSize);
    return b;
  }

  size_t Below(size_t n) { return n ? std::uniform_int_distribution<size_t>(0, n - 1)(m_oRandom) : 0; }

 private:
  void Change(Bytes& b, const Bytes& other) {
    switch (Below(8)) {
      case 0:  // flip a bit
        if (!b.empty()) b[Below(b.size())] ^= static_cast<uint8_t>(1u << Below(8));
        break;
      case 1:  // a byte at a boundary
        if (!b.empty()) b[Below(b.size())] = kBoundaryBytes[Below(std::size(kBoundaryBytes))];
        break;
      case 2:  // a little-endian 16- or 32-bit field at a boundary (sizes, counts, tags)
        PutField(b);
        break;
      case 3: {  // insert random bytes
        const size_t n = 1 + Below(16);
        Bytes aNew(n);
        for (auto& c : aNew) c = static_cast<uint8_t>(Below(256));
        b.insert(b.begin() + static_cast<std::ptrdiff_t>(Below(b.size() + 1)), aNew.begin(), aNew.end());
        break;
      }
      case 4: {  // erase a range
        if (b.empty()) break;
        const size_t iAt = Below(b.size());
        const size_t n = 1 + Below(std::min<size_t>(b.size() - iAt, 64));
        b.erase(b.begin() + static_cast<std::ptrdiff_t>(iAt), b.begin() + static_cast<std::ptrdiff_t>(iAt + n));
        break;
      }
      case 5: {  // repeat a range
        if (b.empty()) break;
        const size_t iAt = Below(b.size());
        const size_t n = 1 + Below(std::min<size_t>(b.size() - iAt, 64));
        const Bytes aRange(b.begin() + static_cast<std::ptrdiff_t>(iAt),
                           b.begin() + static_cast<std::ptrdiff_t>(iAt + n));
        b.insert(b.begin() + static_cast<std::ptrdiff_t>(Below(b.size() + 1)), aRange.begin(), aRange.end());
        break;
      }
      case 6:  // cut the end off
        b.resize(Below(b.size() + 1));
        break;
      default: {  // the head of one input with the tail of another
        const size_t iCut = Below(b.size() + 1);
        b.resize(iCut);
        const size_t iFrom = Below(other.size() + 1);
        b.insert(b.end(), other.begin() + static_cast<std::ptrdiff_t>(iFrom), other.end());
        break;
      }
    }
  }

  void PutField(Bytes& b) {
    const size_t nWidth = Below(2) ? 4 : 2;
    if (b.size() < nWidth) return;
    static constexpr uint32_t kValues[] = {0,      1,      2,      0x7F,       0x80,        0xFF,
                                           0x7FFF, 0x8000, 0xFFFF, 0x7FFFFFFF, 0x80000000u, 0xFFFFFFFFu};
    uint32_t v = kValues[Below(std::size(kValues))];
    if (Below(4) == 0) v = static_cast<uint32_t>(b.size() - Below(8));  // near the input's own size
    const size_t iAt = Below(b.size() - nWidth + 1);
    for (size_t i = 0; i < nWidth; ++i) b[iAt + i] = static_cast<uint8_t>(v >> (8 * i));
  }

  static constexpr uint8_t kBoundaryBytes[] = {0x00, 0x01, 0x7F, 0x80, 0xFF, '\r', '\n', '[', ']', '=', '"', ' '};
  std::mt19937_64 m_oRandom;
  size_t m_nMaxSize;
};

bool ReadCorpus(const fs::path& oDir, std::vector<Bytes>& aCorpus) {
  std::error_code ec;
  std::vector<fs::path> aFiles;
  for (const auto& e : fs::directory_iterator(oDir, ec))
    if (e.is_regular_file()) aFiles.push_back(e.path());
  if (ec) {
    std::fprintf(stderr, "fuzz replay: cannot list %s: %s\n", oDir.c_str(), ec.message().c_str());
    return false;
  }
  std::sort(aFiles.begin(), aFiles.end());
  for (const auto& p : aFiles) {
    std::ifstream f(p, std::ios::binary);
    aCorpus.emplace_back(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
  }
  return true;
}

std::string TargetName(const char* pArgv0) {
  std::string s = fs::path(pArgv0).filename().string();
  const std::string sPrefix = "fuzz_replay_";
  return s.rfind(sPrefix, 0) == 0 ? s.substr(sPrefix.size()) : s;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3) {
    std::fprintf(stderr, "usage: %s <corpus folder> [seconds]\n", argv[0]);
    return 2;
  }
  double dSeconds = 2.0;
  if (argc == 3) {
    if (!ParseNumber(argv[2], dSeconds) || dSeconds < 0) {
      std::fprintf(stderr, "fuzz replay: seconds must be a number >= 0, not \"%s\"\n", argv[2]);
      return 2;
    }
  }
  std::vector<Bytes> aCorpus;
  if (!ReadCorpus(argv[1], aCorpus)) return 2;
  if (aCorpus.empty()) {
    std::fprintf(stderr, "fuzz replay: %s holds no seed files; add a handful of small inputs\n", argv[1]);
    return 2;
  }

  uint64_t uSeed = std::random_device{}();
  if (const char* p = std::getenv("KN_FUZZ_SEED"); p && !ParseNumber(p, uSeed)) {
    std::fprintf(stderr, "fuzz replay: KN_FUZZ_SEED must be a whole number, not \"%s\"\n", p);
    return 2;
  }
  const std::string sTarget = TargetName(argv[0]);
  g_sFailureFile = (fs::current_path() / ("fuzz-failure-" + sTarget + "-" + std::to_string(uSeed))).string();
#ifdef KN_HAVE_SANITIZER_CALLBACK
  __sanitizer_set_death_callback(SaveCurrentInput);
#endif
  std::signal(SIGABRT, OnAbort);
  std::set_terminate([] {
    Say("fuzz replay: an exception escaped the target\n");
    SaveCurrentInput();
    std::abort();
  });

  std::string sScratch = (fs::temp_directory_path() / "knfuzz-replay.XXXXXX").string();
  if (!mkdtemp(sScratch.data())) {
    std::perror("fuzz replay: mkdtemp");
    return 2;
  }
  setenv("TMPDIR", sScratch.c_str(), 1);
  if (LLVMFuzzerInitialize) LLVMFuzzerInitialize(&argc, &argv);

  for (const Bytes& a : aCorpus) RunOne(a);

  size_t nLargest = 0;
  for (const Bytes& a : aCorpus) nLargest = std::max(nLargest, a.size());
  Mutator oMutator(uSeed, std::max<size_t>(4096, 2 * nLargest));
  const auto tEnd = std::chrono::steady_clock::now() + std::chrono::duration<double>(dSeconds);
  uint64_t nMutations = 0;
  while (std::chrono::steady_clock::now() < tEnd) {
    const Bytes& a = aCorpus[oMutator.Below(aCorpus.size())];
    const Bytes& other = aCorpus[oMutator.Below(aCorpus.size())];
    RunOne(oMutator.Mutate(a, other));
    ++nMutations;
  }

  std::error_code ec;
  fs::remove_all(sScratch, ec);
  std::printf("fuzz replay %s: %zu seed files and %llu mutations passed (KN_FUZZ_SEED=%llu)\n", sTarget.c_str(),
              aCorpus.size(), static_cast<unsigned long long>(nMutations), static_cast<unsigned long long>(uSeed));
  return 0;
}
