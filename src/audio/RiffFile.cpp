#include "audio/RiffFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "support/Faults.h"
#include "support/UniqueFd.h"

namespace {
constexpr uint32_t kRIFF = mmioFOURCC('R', 'I', 'F', 'F');
constexpr uint32_t kLIST = mmioFOURCC('L', 'I', 'S', 'T');
uint32_t Get32(const uint8_t* p) {
  return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) | (static_cast<uint32_t>(p[2]) << 16) |
         (static_cast<uint32_t>(p[3]) << 24);
}
void Put32(uint8_t* p, uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}
}  // namespace

RiffFile::~RiffFile() = default;

int RiffFile::Open(const std::string& sPath, bool bCreate) {
  if (m_iFd) Close();
  if (int e = Faults::Hit("audio.open")) return e;
  return OpenFile(sPath, bCreate);
}

int RiffFile::OpenFile(const std::string& sPath, bool bCreate) {
  UniqueFd fd(bCreate ? ::open(sPath.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644)
                      : ::open(sPath.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd) return errno;
  struct stat st {};
  if (::fstat(fd.Get(), &st) != 0 || !S_ISREG(st.st_mode)) return S_ISREG(st.st_mode) ? errno : EISDIR;
  m_iFd = std::move(fd);
  m_bWritten = false;
  m_llPos = 0;
  m_llSize = st.st_size;
  return 0;
}

int RiffFile::Close() {
  if (!m_iFd) return EBADF;
  int e = 0;
  if (m_bWritten && ::fsync(m_iFd.Get()) != 0) e = errno;
  if (!m_iFd.Close() && e == 0) e = errno;
  return e;
}

int RiffFile::GetInfo() const { return m_iFd ? 0 : EBADF; }

int64_t RiffFile::ReadWaveFormat(const std::string& sPath, uint8_t* pFormat, int64_t llMax) {
  RiffFile f;
  if (int e = f.OpenFile(sPath, false)) return -e;
  MMCKINFO ckRiff, ckFmt;
  ckRiff.fccType = kWAVE;
  ckFmt.ckid = kFmt;
  if (f.Descend(ckRiff, nullptr, MMIO_FINDRIFF) != 0 || f.Descend(ckFmt, &ckRiff, MMIO_FINDCHUNK) != 0) return 0;
  const int64_t n = f.Read(pFormat, std::min<int64_t>(ckFmt.cksize, llMax));
  return n < 0 ? -EIO : n;
}

int64_t RiffFile::Seek(int64_t llOffset) {
  if (!m_iFd || llOffset < 0) return -1;
  m_llPos = llOffset;
  return m_llPos;
}

int64_t RiffFile::Read(void* p, int64_t n) {
  if (!m_iFd || n < 0) return -1;
  int64_t llDone = 0;
  auto* q = static_cast<uint8_t*>(p);
  while (llDone < n) {
    ssize_t r = ::pread(m_iFd.Get(), q + llDone, static_cast<size_t>(n - llDone), m_llPos + llDone);
    if (r < 0) {
      if (errno == EINTR) continue;
      return -1;
    }
    if (r == 0) break;
    llDone += r;
  }
  m_llPos += llDone;
  return llDone;
}

int64_t RiffFile::Write(const void* p, int64_t n) {
  if (!m_iFd || n < 0) {
    errno = EBADF;
    return -1;
  }
  if (int e = Faults::Hit("audio.write")) {
    errno = e;
    return -1;
  }
  m_bWritten = true;
  int64_t llDone = 0;
  const auto* q = static_cast<const uint8_t*>(p);
  while (llDone < n) {
    ssize_t r = ::pwrite(m_iFd.Get(), q + llDone, static_cast<size_t>(n - llDone), m_llPos + llDone);
    if (r < 0) {
      if (errno == EINTR) continue;
      return -1;
    }
    llDone += r;
  }
  m_llPos += llDone;
  m_llSize = std::max(m_llSize, m_llPos);
  return llDone;
}

int32_t RiffFile::CreateChunk(MMCKINFO& ck, uint32_t lFlags) {
  uint8_t h[12];
  Put32(h, (lFlags & MMIO_CREATERIFF) ? kRIFF : ck.ckid);
  if (lFlags & MMIO_CREATERIFF) ck.ckid = kRIFF;
  Put32(h + 4, ck.cksize);
  Put32(h + 8, ck.fccType);
  const int64_t n = (lFlags & MMIO_CREATERIFF) ? 12 : 8;
  if (m_llPos + n > 0xFFFFFFFFll) return MMIOERR_CANNOTWRITE;
  ck.dwDataOffset = static_cast<uint32_t>(m_llPos + 8);
  if (Write(h, n) != n) return MMIOERR_CANNOTWRITE;
  ck.dwFlags = MMIO_DIRTY;
  return 0;
}

int32_t RiffFile::Descend(MMCKINFO& ck, const MMCKINFO* pParent, uint32_t lFlags) {
  if (!m_iFd) return MMIOERR_CANNOTSEEK;
  int64_t llEnd = m_llSize;
  if (pParent) llEnd = std::min<int64_t>(llEnd, static_cast<int64_t>(pParent->dwDataOffset) + pParent->cksize);
  const uint32_t lWantId = ck.ckid, lWantType = ck.fccType;
  int64_t llAt = m_llPos;
  while (llAt + 8 <= llEnd) {
    uint8_t h[12];
    const int64_t n = std::min<int64_t>(12, llEnd - llAt);
    m_llPos = llAt;
    if (Read(h, n) != n) return MMIOERR_CANNOTREAD;
    MMCKINFO c;
    c.ckid = Get32(h);
    c.dwDataOffset = static_cast<uint32_t>(llAt + 8);
    // A size beyond the parent or the file is cut to what is there.
    c.cksize = static_cast<uint32_t>(std::min<int64_t>(Get32(h + 4), llEnd - (llAt + 8)));
    const bool bList = c.ckid == kRIFF || c.ckid == kLIST;
    if (bList && n == 12) c.fccType = Get32(h + 8);
    bool bMatch = lFlags == 0 || ((lFlags & MMIO_FINDRIFF) && c.ckid == kRIFF && c.fccType == lWantType && n == 12) ||
                  ((lFlags & MMIO_FINDCHUNK) && c.ckid == lWantId);
    if (bMatch) {
      ck = c;
      m_llPos = c.dwDataOffset + (bList && n == 12 ? 4 : 0);
      return 0;
    }
    llAt = static_cast<int64_t>(c.dwDataOffset) + c.cksize + (c.cksize & 1);
  }
  m_llPos = std::min(llAt, llEnd);
  return MMIOERR_CHUNKNOTFOUND;
}

uint32_t RiffFile::DeclaredSize(const MMCKINFO& ck) const {
  uint8_t b[4];
  if (!m_iFd || ck.dwDataOffset < 4) return 0;
  if (::pread(m_iFd.Get(), b, 4, static_cast<off_t>(ck.dwDataOffset) - 4) != 4) return 0;
  return Get32(b);
}

int32_t RiffFile::Ascend(MMCKINFO& ck) {
  if (!m_iFd) return MMIOERR_CANNOTSEEK;
  if (ck.dwFlags & MMIO_DIRTY) {
    const int64_t llSize = m_llPos - static_cast<int64_t>(ck.dwDataOffset);
    if (llSize < 0 || llSize > 0xFFFFFFFFll) return MMIOERR_CANNOTWRITE;
    if (llSize & 1) {
      const uint8_t z = 0;
      if (Write(&z, 1) != 1) return MMIOERR_CANNOTWRITE;
    }
    const int64_t llEndPos = m_llPos;
    ck.cksize = static_cast<uint32_t>(llSize);
    uint8_t b[4];
    Put32(b, ck.cksize);
    m_llPos = ck.dwDataOffset - 4;
    if (Write(b, 4) != 4) return MMIOERR_CANNOTWRITE;
    m_llPos = llEndPos;
    ck.dwFlags &= ~MMIO_DIRTY;
    return 0;
  }
  m_llPos = static_cast<int64_t>(ck.dwDataOffset) + ck.cksize + (ck.cksize & 1);
  return 0;
}
