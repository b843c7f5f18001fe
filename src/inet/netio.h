// Sockets, deadlines and the byte stream that the FTP protocol code reads and
// writes. Internal to the engine.
//
// Every blocking operation goes through WaitReady(), the one poll() helper
// that knows the deadline: sockets are non-blocking, an operation is tried
// first and waited for only when it would block. The control and data
// connections are Streams, so TLS can be put under the protocol code later
// as another Stream without touching it (tls.h).
#pragma once

#include <sys/socket.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace ftpzn::inet {

// Error codes of the engine; their texts live in the one error-text table.
enum InternetError : uint32_t {
  kErrNoMoreFiles = 18,  // an enumeration that found nothing (more)
  kErrTimeout = 12002,
  kErrExtended = 12003,  // the server refused: see its last reply
  kErrNameNotResolved = 12007,
  kErrLoginUser = 12013,
  kErrLoginPassword = 12014,
  kErrLoginFailed = 12015,
  kErrCancelled = 12017,
  kErrCannotConnect = 12029,
  kErrConnectionAborted = 12030,
  kErrConnectionReset = 12031,
  kErrCertDate = 12037,       // the server's certificate has expired or is not yet valid
  kErrCertHost = 12038,       // the server's certificate names another host
  kErrCertUntrusted = 12045,  // no trusted authority signed the server's certificate
  kErrInProgress = 12110,
  kErrSessionDropped = 12111,
  kErrSecureChannel = 12157,  // TLS refused by the server, or its handshake failed
};

// Thrown inside the engine; the public classes turn it into a
// CInternetException or a thread last error. `detail` becomes the last
// response text when no server reply explains the failure.
struct NetError : std::runtime_error {
  NetError(uint32_t code, const std::string& detail) : std::runtime_error(detail), code(code) {}
  uint32_t code;
};

class Deadline {
 public:
  using Clock = std::chrono::steady_clock;
  // ms == 0 means no limit.
  static Deadline After(uint32_t ms);
  // Milliseconds left for poll(): -1 without limit, 0 when passed.
  int RemainingMs() const;
  bool Passed() const { return RemainingMs() == 0; }

 private:
  bool m_unlimited = true;
  Clock::time_point m_at{};
};

// Owns one file descriptor.
class Fd {
 public:
  Fd() = default;
  explicit Fd(int fd) : m_fd(fd) {}
  Fd(Fd&& other) noexcept : m_fd(other.Release()) {}
  Fd& operator=(Fd&& other) noexcept;
  ~Fd() { Reset(); }
  int Get() const { return m_fd; }
  int Release();
  void Reset();
  explicit operator bool() const { return m_fd >= 0; }

 private:
  int m_fd = -1;
};

// Waits until `fd` is ready for `events` (POLLIN/POLLOUT) or the deadline
// passes (NetError 12002 with `what` in the text).
void WaitReady(int fd, short events, const Deadline& deadline, const std::string& what);

// True when `fd` has something to read, or an end or error to report, at
// once.
bool ReadableNow(int fd);

struct SocketAddress {
  sockaddr_storage storage{};
  socklen_t length = 0;
  int Family() const { return storage.ss_family; }
  std::string Host() const;  // numeric
  bool SameHost(const SocketAddress& other) const;
  uint16_t Port() const;
  void SetPort(uint16_t port);
};

SocketAddress LocalAddress(int fd);
SocketAddress PeerAddress(int fd);

// Resolves `host` (NetError 12007 on failure). Numeric addresses skip DNS.
std::vector<SocketAddress> Resolve(const std::string& host, uint16_t port);
// Connects to the first address that answers (12029, or 12002 on time-out).
Fd ConnectTo(const SocketAddress& address, const Deadline& deadline);
// Keeps at most `bytes` written but not yet sent in the kernel (an upload's
// data connection): see the definition for why.
void LimitUnsent(int fd, int bytes);
// A listening socket on `local`'s address and a free port.
Fd ListenOn(SocketAddress local);
// The first connection from `peer`'s host (any port); connections from
// elsewhere are closed and the wait goes on.
Fd AcceptFrom(int listener, const SocketAddress& peer, const Deadline& deadline);

// A byte stream with deadlines. ReadSome returns 0 only at the peer's
// orderly end; every failure throws NetError.
class Stream {
 public:
  virtual ~Stream() = default;
  virtual size_t ReadSome(void* buffer, size_t size, const Deadline& deadline) = 0;
  virtual void WriteAll(const void* data, size_t size, const Deadline& deadline) = 0;
  // Sends the end of data (for uploads: the server sees end of file).
  virtual void ShutdownWrite() = 0;
  virtual int NativeHandle() const = 0;
  // True when a read would return something (bytes, the end, an error)
  // within `ms`; false when nothing came in that time.
  virtual bool WaitReadable(int ms);
};

// The plain TCP stream.
class SocketStream : public Stream {
 public:
  SocketStream(Fd fd, std::string peerName) : m_fd(std::move(fd)), m_peerName(std::move(peerName)) {}
  size_t ReadSome(void* buffer, size_t size, const Deadline& deadline) override;
  void WriteAll(const void* data, size_t size, const Deadline& deadline) override;
  void ShutdownWrite() override;
  int NativeHandle() const override { return m_fd.Get(); }
  // The socket, for a TLS stream to take over.
  Fd ReleaseFd() { return std::move(m_fd); }

 private:
  Fd m_fd;
  std::string m_peerName;  // for error texts
};

}  // namespace ftpzn::inet
