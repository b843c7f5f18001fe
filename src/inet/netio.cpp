#include "inet/netio.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace ftpzn::inet {

namespace {

std::string ErrnoText(int err) { return std::strerror(err); }

uint32_t CodeForSocketErrno(int err) {
  switch (err) {
    case ECONNRESET:
    case EPIPE:
      return kErrConnectionReset;
    case ETIMEDOUT:
      return kErrTimeout;
    default:
      return kErrConnectionAborted;
  }
}

void SetNonBlocking(int fd) {
  int flags = fcntl(fd, F_GETFL, 0);
  if (flags < 0 || fcntl(fd, F_SETFL, flags | O_NONBLOCK) < 0) {
    throw NetError(kErrCannotConnect, "fcntl: " + ErrnoText(errno));
  }
}

std::string Describe(const SocketAddress& a) { return a.Host() + " port " + std::to_string(a.Port()); }

}  // namespace

Deadline Deadline::After(uint32_t ms) {
  Deadline d;
  if (ms != 0) {
    d.m_unlimited = false;
    d.m_at = Clock::now() + std::chrono::milliseconds(ms);
  }
  return d;
}

int Deadline::RemainingMs() const {
  if (m_unlimited) return -1;
  auto left = std::chrono::duration_cast<std::chrono::milliseconds>(m_at - Clock::now()).count();
  if (left <= 0) return 0;
  return left > 0x7fffffff ? 0x7fffffff : static_cast<int>(left);
}

Fd& Fd::operator=(Fd&& other) noexcept {
  if (this != &other) {
    Reset();
    m_fd = other.Release();
  }
  return *this;
}

int Fd::Release() {
  int fd = m_fd;
  m_fd = -1;
  return fd;
}

void Fd::Reset() {
  if (m_fd >= 0) ::close(m_fd);
  m_fd = -1;
}

void WaitReady(int fd, short events, const Deadline& deadline, const std::string& what) {
  for (;;) {
    pollfd p{fd, events, 0};
    int ms = deadline.RemainingMs();
    if (ms == 0) throw NetError(kErrTimeout, what + ": timed out");
    int n = ::poll(&p, 1, ms);
    if (n > 0) return;  // errors and hang-ups surface in the operation itself
    if (n == 0) throw NetError(kErrTimeout, what + ": timed out");
    if (errno != EINTR) throw NetError(kErrConnectionAborted, what + ": poll: " + ErrnoText(errno));
  }
}

bool ReadableNow(int fd) {
  pollfd p{fd, POLLIN, 0};
  return ::poll(&p, 1, 0) > 0;
}

std::string SocketAddress::Host() const {
  char text[INET6_ADDRSTRLEN] = "";
  if (Family() == AF_INET) {
    inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in&>(storage).sin_addr, text, sizeof text);
  } else if (Family() == AF_INET6) {
    inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6&>(storage).sin6_addr, text, sizeof text);
  }
  return text;
}

bool SocketAddress::SameHost(const SocketAddress& other) const {
  if (Family() != other.Family()) return false;
  if (Family() == AF_INET)
    return reinterpret_cast<const sockaddr_in&>(storage).sin_addr.s_addr ==
           reinterpret_cast<const sockaddr_in&>(other.storage).sin_addr.s_addr;
  if (Family() == AF_INET6)
    return std::memcmp(&reinterpret_cast<const sockaddr_in6&>(storage).sin6_addr,
                       &reinterpret_cast<const sockaddr_in6&>(other.storage).sin6_addr,
                       sizeof(in6_addr)) == 0;
  return false;
}

uint16_t SocketAddress::Port() const {
  if (Family() == AF_INET) return ntohs(reinterpret_cast<const sockaddr_in&>(storage).sin_port);
  if (Family() == AF_INET6) return ntohs(reinterpret_cast<const sockaddr_in6&>(storage).sin6_port);
  return 0;
}

void SocketAddress::SetPort(uint16_t port) {
  if (Family() == AF_INET) reinterpret_cast<sockaddr_in&>(storage).sin_port = htons(port);
  if (Family() == AF_INET6) reinterpret_cast<sockaddr_in6&>(storage).sin6_port = htons(port);
}

SocketAddress LocalAddress(int fd) {
  SocketAddress a;
  a.length = sizeof a.storage;
  if (getsockname(fd, reinterpret_cast<sockaddr*>(&a.storage), &a.length) != 0) {
    throw NetError(kErrConnectionAborted, "getsockname: " + ErrnoText(errno));
  }
  return a;
}

SocketAddress PeerAddress(int fd) {
  SocketAddress a;
  a.length = sizeof a.storage;
  if (getpeername(fd, reinterpret_cast<sockaddr*>(&a.storage), &a.length) != 0) {
    throw NetError(kErrConnectionAborted, "getpeername: " + ErrnoText(errno));
  }
  return a;
}

std::vector<SocketAddress> Resolve(const std::string& host, uint16_t port) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_ADDRCONFIG;
  // "[::1]" is how URLs write IPv6 literals.
  std::string name = host;
  if (name.size() > 2 && name.front() == '[' && name.back() == ']') name = name.substr(1, name.size() - 2);
  addrinfo* list = nullptr;
  int rc = getaddrinfo(name.c_str(), std::to_string(port).c_str(), &hints, &list);
  if (rc != 0 && (hints.ai_flags & AI_ADDRCONFIG)) {
    // Without a configured address of a family (a loopback-only machine),
    // AI_ADDRCONFIG refuses even "::1".
    hints.ai_flags = 0;
    rc = getaddrinfo(name.c_str(), std::to_string(port).c_str(), &hints, &list);
  }
  if (rc != 0) throw NetError(kErrNameNotResolved, "resolve " + host + ": " + gai_strerror(rc));
  std::vector<SocketAddress> out;
  for (addrinfo* ai = list; ai; ai = ai->ai_next) {
    if (ai->ai_addrlen > sizeof(sockaddr_storage)) continue;
    SocketAddress a;
    std::memcpy(&a.storage, ai->ai_addr, ai->ai_addrlen);
    a.length = ai->ai_addrlen;
    out.push_back(a);
  }
  freeaddrinfo(list);
  if (out.empty()) throw NetError(kErrNameNotResolved, "resolve " + host + ": no address");
  return out;
}

Fd ConnectTo(const SocketAddress& address, const Deadline& deadline) {
  Fd fd(::socket(address.Family(), SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd) throw NetError(kErrCannotConnect, "socket: " + ErrnoText(errno));
  SetNonBlocking(fd.Get());
  int one = 1;
  setsockopt(fd.Get(), IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
  if (::connect(fd.Get(), reinterpret_cast<const sockaddr*>(&address.storage), address.length) != 0) {
    if (errno != EINPROGRESS) {
      throw NetError(kErrCannotConnect, "connect to " + Describe(address) + ": " + ErrnoText(errno));
    }
    WaitReady(fd.Get(), POLLOUT, deadline, "connect to " + Describe(address));
    int err = 0;
    socklen_t len = sizeof err;
    getsockopt(fd.Get(), SOL_SOCKET, SO_ERROR, &err, &len);
    if (err != 0)
      throw NetError(kErrCannotConnect, "connect to " + Describe(address) + ": " + ErrnoText(err));
  }
  return fd;
}

// With a full socket buffer, each acknowledgement the server sends makes its
// own CPU push our queued data on, and pushes from two CPUs arrive out of
// order: a 1 GiB upload over loopback saw 25 to 80 segments sent twice, with
// 128 KiB at most 2. On a fast link the server is the slower side of an
// upload, and a short queue also keeps that sending work off its CPU.
void LimitUnsent(int fd, int bytes) {
  if (fd >= 0) setsockopt(fd, IPPROTO_TCP, TCP_NOTSENT_LOWAT, &bytes, sizeof bytes);
}

Fd ListenOn(SocketAddress local) {
  local.SetPort(0);
  Fd fd(::socket(local.Family(), SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd) throw NetError(kErrCannotConnect, "socket: " + ErrnoText(errno));
  if (::bind(fd.Get(), reinterpret_cast<const sockaddr*>(&local.storage), local.length) != 0 ||
      ::listen(fd.Get(), 1) != 0) {
    throw NetError(kErrCannotConnect, "listen on " + local.Host() + ": " + ErrnoText(errno));
  }
  SetNonBlocking(fd.Get());
  return fd;
}

Fd AcceptFrom(int listener, const SocketAddress& peer, const Deadline& deadline) {
  for (;;) {
    SocketAddress from;
    from.length = sizeof from.storage;
    int fd = ::accept4(listener, reinterpret_cast<sockaddr*>(&from.storage), &from.length,
                       SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd >= 0) {
      Fd accepted(fd);
      // Anyone may connect to a listening port: only the server we talk to
      // may hand us data (or take an upload).
      if (!from.SameHost(peer)) {
        if (deadline.Passed()) throw NetError(kErrTimeout, "no data connection from " + peer.Host());
        continue;
      }
      int one = 1;
      setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
      return accepted;
    }
    if (errno == EINTR || errno == ECONNABORTED) continue;
    if (errno != EAGAIN && errno != EWOULDBLOCK) {
      throw NetError(kErrCannotConnect, "accept: " + ErrnoText(errno));
    }
    WaitReady(listener, POLLIN, deadline, "waiting for the server's data connection");
  }
}

bool Stream::WaitReadable(int ms) {
  pollfd p{NativeHandle(), POLLIN, 0};
  for (;;) {
    int n = ::poll(&p, 1, ms);
    if (n >= 0 || errno != EINTR) return n != 0;
  }
}

size_t SocketStream::ReadSome(void* buffer, size_t size, const Deadline& deadline) {
  for (;;) {
    ssize_t n = ::recv(m_fd.Get(), buffer, size, 0);
    if (n >= 0) return static_cast<size_t>(n);
    if (errno == EINTR) continue;
    if (errno != EAGAIN && errno != EWOULDBLOCK) {
      throw NetError(CodeForSocketErrno(errno), "receive from " + m_peerName + ": " + ErrnoText(errno));
    }
    WaitReady(m_fd.Get(), POLLIN, deadline, "receive from " + m_peerName);
  }
}

void SocketStream::WriteAll(const void* data, size_t size, const Deadline& deadline) {
  auto* p = static_cast<const char*>(data);
  while (size > 0) {
    ssize_t n = ::send(m_fd.Get(), p, size, MSG_NOSIGNAL);
    if (n > 0) {
      p += n;
      size -= static_cast<size_t>(n);
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK) {
      throw NetError(CodeForSocketErrno(errno), "send to " + m_peerName + ": " + ErrnoText(errno));
    }
    WaitReady(m_fd.Get(), POLLOUT, deadline, "send to " + m_peerName);
  }
}

void SocketStream::ShutdownWrite() { ::shutdown(m_fd.Get(), SHUT_WR); }

}  // namespace ftpzn::inet
