#pragma once
// Owners of a file descriptor and of a directory stream: closed when the owner goes, on
// every path out of the routine that opened them. Move-only; a destructor never throws.
#include <dirent.h>
#include <unistd.h>

#include <memory>
#include <utility>

class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int iFd) : m_iFd(iFd) {}
  ~UniqueFd() { Reset(); }
  UniqueFd(UniqueFd&& o) noexcept : m_iFd(o.Release()) {}
  UniqueFd& operator=(UniqueFd&& o) noexcept {
    if (this != &o) Reset(o.Release());
    return *this;
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;

  int Get() const { return m_iFd; }
  bool Valid() const { return m_iFd >= 0; }
  explicit operator bool() const { return Valid(); }
  // Gives the descriptor up without closing it.
  int Release() { return std::exchange(m_iFd, -1); }
  // Closes the descriptor held (if any) and holds iFd instead.
  void Reset(int iFd = -1) {
    if (m_iFd >= 0) ::close(m_iFd);
    m_iFd = iFd;
  }
  // Closes now and says whether the close succeeded (a close can report a failed write).
  bool Close() {
    const int iFd = Release();
    return iFd < 0 || ::close(iFd) == 0;
  }

 private:
  int m_iFd = -1;
};

struct DirCloser {
  void operator()(DIR* p) const { ::closedir(p); }
};
using UniqueDir = std::unique_ptr<DIR, DirCloser>;
