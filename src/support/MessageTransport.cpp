#include "support/MessageTransport.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <vector>

#include "support/Machine.h"

namespace {

// Largest datagram we read; longer texts are cut by the kernel (MSG_TRUNC).
constexpr size_t kMaxMessage = 64 * 1024;

// Creates <root>/run/msg (and its parents) when missing; the folder itself gets 0700.
bool EnsureMessageFolder(const std::string& sFolder) {
  std::string sPath;
  size_t iPos = 0;
  while (iPos != std::string::npos) {
    iPos = sFolder.find('/', iPos + 1);
    sPath = sFolder.substr(0, iPos);
    if (sPath.empty()) continue;
    if (mkdir(sPath.c_str(), iPos == std::string::npos ? 0700 : 0755) != 0 && errno != EEXIST) return false;
  }
  struct stat st {};
  return stat(sFolder.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

int OpenFolder(const std::string& sFolder) { return open(sFolder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC); }

// The address of handler sName. A path that doesn't fit the 108 bytes of sun_path goes
// through the descriptor of the open folder instead (/proc/self/fd/<dirfd>/<name>), which
// the kernel resolves as the same file.
bool MakeAddress(const std::string& sFolder, int iDirFd, const std::string& sName, sockaddr_un& addr, socklen_t& len) {
  if (sName.empty() || sName.find('/') != std::string::npos || sName == "." || sName == "..") return false;
  std::memset(&addr, 0, sizeof addr);
  addr.sun_family = AF_UNIX;
  std::string sPath = sFolder + "/" + sName;
  if (sPath.size() >= sizeof addr.sun_path) {
    if (iDirFd < 0) return false;
    sPath = "/proc/self/fd/" + std::to_string(iDirFd) + "/" + sName;
    if (sPath.size() >= sizeof addr.sun_path) return false;
  }
  std::memcpy(addr.sun_path, sPath.data(), sPath.size());
  len = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + sPath.size() + 1);
  return true;
}

bool SendFrom(int iFd, const std::string& sFolder, int iDirFd, const std::string& sHandler, const std::string& sText) {
  sockaddr_un addr;
  socklen_t len = 0;
  if (!MakeAddress(sFolder, iDirFd, sHandler, addr, len)) return false;
  ssize_t n;
  do {
    n = sendto(iFd, sText.data(), sText.size(), MSG_DONTWAIT | MSG_NOSIGNAL, reinterpret_cast<sockaddr*>(&addr), len);
  } while (n < 0 && errno == EINTR);
  return n == static_cast<ssize_t>(sText.size());
}

// A socket file that nobody has bound any more refuses connections.
bool IsStale(const sockaddr_un& addr, socklen_t len) {
  const UniqueFd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!fd) return false;
  int rc = connect(fd.Get(), reinterpret_cast<const sockaddr*>(&addr), len);
  return rc != 0 && errno == ECONNREFUSED;
}

}  // namespace

MessageEndpoint::~MessageEndpoint() { Close(); }

bool MessageEndpoint::Bind(const std::string& sName) {
  Close();
  const std::string sFolder = Machine::MessageFolder();
  if (!EnsureMessageFolder(sFolder)) return false;
  m_dirfd.Reset(OpenFolder(sFolder));
  if (!m_dirfd) return false;
  sockaddr_un addr;
  socklen_t len = 0;
  if (!MakeAddress(sFolder, m_dirfd.Get(), sName, addr, len)) {
    Close();
    return false;
  }
  m_fd.Reset(socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!m_fd) {
    Close();
    return false;
  }
  int rc = bind(m_fd.Get(), reinterpret_cast<sockaddr*>(&addr), len);
  if (rc != 0 && errno == EADDRINUSE && IsStale(addr, len)) {
    unlinkat(m_dirfd.Get(), sName.c_str(), 0);
    rc = bind(m_fd.Get(), reinterpret_cast<sockaddr*>(&addr), len);
  }
  if (rc != 0) {
    Close();
    return false;
  }
  // The folder is 0700 already; the socket itself is for this user alone as well.
  fchmodat(m_dirfd.Get(), sName.c_str(), 0600, 0);
  m_sName = sName;
  return true;
}

void MessageEndpoint::Close() {
  if (m_fd) {
    m_fd.Reset();
    // Remove our socket file. Nobody else can have taken the name over: Bind replaces
    // only sockets that refuse connections, and ours accepted them until now.
    if (m_dirfd && !m_sName.empty()) unlinkat(m_dirfd.Get(), m_sName.c_str(), 0);
  }
  m_dirfd.Reset();
  m_sName.clear();
}

std::optional<MessageEndpoint::Message> MessageEndpoint::Receive() {
  if (!m_fd) return std::nullopt;
  std::vector<char> buf(kMaxMessage);
  sockaddr_un from;
  socklen_t fromLen = sizeof from;
  std::memset(&from, 0, sizeof from);
  ssize_t n;
  do {
    n = recvfrom(m_fd.Get(), buf.data(), buf.size(), MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&from), &fromLen);
  } while (n < 0 && errno == EINTR);
  if (n < 0) return std::nullopt;
  Message m;
  m.Text.assign(buf.data(), static_cast<size_t>(n));
  if (fromLen > offsetof(sockaddr_un, sun_path) && from.sun_path[0] != '\0') {
    size_t iLen = fromLen - offsetof(sockaddr_un, sun_path);
    std::string sPath(from.sun_path, strnlen(from.sun_path, std::min(iLen, sizeof from.sun_path)));
    size_t iSlash = sPath.rfind('/');
    m.Sender = iSlash == std::string::npos ? sPath : sPath.substr(iSlash + 1);
  }
  return m;
}

std::optional<MessageEndpoint::Message> MessageEndpoint::Wait(int iTimeoutMs) {
  if (!m_fd) return std::nullopt;
  if (auto m = Receive()) return m;
  pollfd p{m_fd.Get(), POLLIN, 0};
  int rc;
  do {
    rc = poll(&p, 1, iTimeoutMs);
  } while (rc < 0 && errno == EINTR && iTimeoutMs < 0);
  if (rc <= 0) return std::nullopt;
  return Receive();
}

bool MessageEndpoint::Send(const std::string& sHandler, const std::string& sText) {
  if (!m_fd) return MessageTransport::Send(sHandler, sText);
  return SendFrom(m_fd.Get(), Machine::MessageFolder(), m_dirfd.Get(), sHandler, sText);
}

namespace MessageTransport {

bool Send(const std::string& sHandler, const std::string& sText) {
  const std::string sFolder = Machine::MessageFolder();
  const UniqueFd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!fd) return false;
  const UniqueFd dirfd(OpenFolder(sFolder));  // absent folder: nobody listens, the send fails
  return dirfd && SendFrom(fd.Get(), sFolder, dirfd.Get(), sHandler, sText);
}

}  // namespace MessageTransport

std::string MessageTransport::TimeStamp() {
  timeval tv{};
  gettimeofday(&tv, nullptr);
  std::tm tmLocal{};
  localtime_r(&tv.tv_sec, &tmLocal);
  char sz[64];
  const size_t n = std::strftime(sz, sizeof sz, "%Y-%m-%d %H:%M:%S", &tmLocal);
  std::snprintf(sz + n, sizeof sz - n, ".%03ld", static_cast<long>(tv.tv_usec / 1000));
  return sz;
}
