// TLS under the protocol code: a Stream over OpenSSL, for FTPS control and
// data connections alike. Internal to the engine.
//
// Certificates are checked against the system's trust store and the host
// name (or address) the user gave, but a failed check does not end the
// handshake here: the caller learns why the certificate is not trusted
// (TlsPeerInfo::problem) and decides, since a user may trust it anyway.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "inet/netio.h"

typedef struct ssl_st SSL;
typedef struct ssl_session_st SSL_SESSION;

namespace ftpzn::inet {

enum class TlsMode {
  None,
  Explicit,  // AUTH TLS on the usual port ("ftpes://")
  Implicit,  // TLS from the first byte, usually on port 990 ("ftps://")
};

// What the server of a TLS connection showed, for the trace, the
// encryption indicator and the question whether to trust it.
struct TlsPeerInfo {
  std::string protocol;     // "TLS 1.3"
  std::string cipher;       // "TLS_AES_256_GCM_SHA384"
  std::string subject;      // "CN=ftp.example.org,O=Example"
  std::string issuer;
  std::string notBefore;    // "2026-01-31 12:00:00 UTC"
  std::string notAfter;
  std::string fingerprint;  // SHA-256 of the certificate, "AB:CD:..."
  bool resumed = false;     // an abbreviated handshake: an earlier session went on
  // 0 when the certificate is trusted; else kErrCertUntrusted,
  // kErrCertDate or kErrCertHost, with the reason in words.
  uint32_t problem = 0;
  std::string problemText;
};

// A fingerprint as users write it ("SHA256:ab:cd...", "abcd...", any case)
// in the form TlsPeerInfo gives; empty when it is not 32 bytes of hex.
std::string NormalizeFingerprint(const std::string& text);

// The session that the next handshake to one server resumes: the newest
// any connection to it received (under TLS 1.3 new tickets arrive after
// the handshake, and some servers accept each only once). One per control
// connection, shared with its data connections, so that servers that
// insist on the data connections resuming the control connection's
// session get it; the control connection starts from the newest session of
// any connection to the same server in this process.
class TlsResumption {
 public:
  explicit TlsResumption(std::string serverKey);
  ~TlsResumption();
  TlsResumption(const TlsResumption&) = delete;
  TlsResumption& operator=(const TlsResumption&) = delete;

  // A new reference for SSL_set_session, or null.
  SSL_SESSION* Take() const;
  void Offer(SSL_SESSION* session);  // takes a reference of its own

 private:
  std::string m_serverKey;
  mutable std::mutex m_mutex;
  SSL_SESSION* m_session = nullptr;
};

class TlsStream : public Stream {
 public:
  // Handshakes as a client over `fd`, checking the certificate against
  // `host` (a name, or an address in its usual text form), resuming the
  // session `resumption` holds. 12157 when the handshake fails, 12002 when
  // the deadline passes.
  static std::unique_ptr<TlsStream> Connect(Fd fd, const std::string& host,
                                            std::shared_ptr<TlsResumption> resumption,
                                            const Deadline& deadline);
  ~TlsStream() override;

  // Returns 0 only after the server's close_notify: a connection that just
  // ends could have been cut by anyone, so it throws 12030 instead.
  size_t ReadSome(void* buffer, size_t size, const Deadline& deadline) override;
  void WriteAll(const void* data, size_t size, const Deadline& deadline) override;
  // Sends close_notify and waits (a few seconds at most) for the server's.
  void ShutdownWrite() override;
  int NativeHandle() const override { return m_fd.Get(); }
  bool WaitReadable(int ms) override;

  const TlsPeerInfo& Peer() const { return m_peer; }

 private:
  TlsStream(Fd fd, SSL* ssl, std::string host) : m_fd(std::move(fd)), m_ssl(ssl), m_host(std::move(host)) {}
  // Runs one OpenSSL call until it completes, waiting as it asks.
  template <typename Op>
  int Drive(Op op, const Deadline& deadline, const char* what);
  [[noreturn]] void Fail(int result, const char* what);
  void DescribePeer();

  static constexpr uint32_t kCloseWaitMs = 10000;
  static constexpr uint32_t kTicketWaitMs = 1000;

  Fd m_fd;
  SSL* m_ssl;
  std::string m_host;
  TlsPeerInfo m_peer;
  bool m_established = false;  // the handshake is over
  bool m_broken = false;       // no orderly close_notify may follow
  bool m_closeSent = false;
  bool m_ticketArrived = false;  // a session ticket came after the handshake
};

}  // namespace ftpzn::inet
