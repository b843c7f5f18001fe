#include "inet/tls.h"

#include <arpa/inet.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <map>

namespace ftpzn::inet {

namespace {

// OpenSSL writes to the socket with write(), which raises SIGPIPE once the
// server has reset the connection; that must fail the call, not end the
// host's process. The signal is blocked for this thread while OpenSSL runs,
// and one raised meanwhile is taken off before the old mask returns.
class NoSigpipe {
 public:
  NoSigpipe() {
    sigemptyset(&m_pipe);
    sigaddset(&m_pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &m_pipe, &m_old);
  }
  ~NoSigpipe() {
    sigset_t pending;
    const timespec none{0, 0};
    if (!sigismember(&m_old, SIGPIPE) && sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE)) {
      sigtimedwait(&m_pipe, nullptr, &none);
    }
    pthread_sigmask(SIG_SETMASK, &m_old, nullptr);
  }
  NoSigpipe(const NoSigpipe&) = delete;
  NoSigpipe& operator=(const NoSigpipe&) = delete;

 private:
  sigset_t m_pipe;
  sigset_t m_old;
};

// The process's sessions by server, so that a worker's control connection
// resumes what the browsing connection (or an earlier worker) negotiated.
struct SessionCache {
  std::mutex mutex;
  std::map<std::string, SSL_SESSION*> sessions;
  ~SessionCache() {
    for (auto& [key, session] : sessions) SSL_SESSION_free(session);
  }
};

SessionCache& Cache() {
  static SessionCache cache;
  return cache;
}

void CacheSession(const std::string& key, SSL_SESSION* session) {
  SessionCache& cache = Cache();
  std::lock_guard lock(cache.mutex);
  SSL_SESSION_up_ref(session);
  SSL_SESSION*& slot = cache.sessions[key];
  if (slot) SSL_SESSION_free(slot);
  slot = session;
}

SSL_SESSION* CachedSession(const std::string& key) {
  SessionCache& cache = Cache();
  std::lock_guard lock(cache.mutex);
  auto it = cache.sessions.find(key);
  if (it == cache.sessions.end()) return nullptr;
  SSL_SESSION_up_ref(it->second);
  return it->second;
}

constexpr size_t kReadAheadBytes = 128 * 1024;

int ResumptionIndex() {
  static const int index = SSL_get_ex_new_index(0, nullptr, nullptr, nullptr, nullptr);
  return index;
}

// Every session the server hands out (at the handshake, or later as a TLS
// 1.3 ticket) becomes the one the next handshake resumes.
int OnNewSession(SSL* ssl, SSL_SESSION* session) {
  auto* resumption = static_cast<std::shared_ptr<TlsResumption>*>(SSL_get_ex_data(ssl, ResumptionIndex()));
  if (resumption && *resumption) (*resumption)->Offer(session);
  if (auto* arrived = static_cast<bool*>(SSL_get_app_data(ssl))) *arrived = true;
  return 0;  // OpenSSL keeps its reference; Offer took one of its own
}

SSL_CTX* ClientContext() {
  static SSL_CTX* const context = [] {
    SSL_CTX* ctx = SSL_CTX_new(TLS_client_method());
    if (!ctx) return ctx;
    SSL_CTX_set_min_proto_version(ctx, TLS1_2_VERSION);
    SSL_CTX_set_max_proto_version(ctx, TLS1_3_VERSION);
    // The system's trust store (SSL_CERT_FILE and SSL_CERT_DIR override it).
    SSL_CTX_set_default_verify_paths(ctx);
    // The chain and the name are checked, and the verdict kept for the
    // caller, who may trust what the store does not.
    SSL_CTX_set_verify(ctx, SSL_VERIFY_NONE, nullptr);
    SSL_CTX_set_session_cache_mode(ctx, SSL_SESS_CACHE_CLIENT | SSL_SESS_CACHE_NO_INTERNAL_STORE);
    SSL_CTX_sess_set_new_cb(ctx, OnNewSession);
    SSL_CTX_set_mode(ctx, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    // Records read in batches: without it every 16 KiB record costs two
    // reads (its header, then its body).
    SSL_CTX_set_read_ahead(ctx, 1);
    SSL_CTX_set_default_read_buffer_len(ctx, kReadAheadBytes);
    return ctx;
  }();
  return context;
}

std::string OpenSslReason() {
  unsigned long code = ERR_peek_last_error();
  if (code == 0) return "unknown error";
  char text[256];
  ERR_error_string_n(code, text, sizeof text);
  // "error:0A000086:SSL routines::certificate verify failed": the last
  // part is what a user can read.
  const char* reason = ERR_reason_error_string(code);
  return reason ? reason : text;
}

std::string FormatTime(const ASN1_TIME* time) {
  std::tm tm{};
  if (!time || ASN1_TIME_to_tm(time, &tm) != 1) return {};
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &tm);
  return text;
}

std::string NameText(const X509_NAME* name) {
  BIO* bio = BIO_new(BIO_s_mem());
  if (!bio) return {};
  // Names in UTF-8 as they stand; separators as a user reads them.
  X509_NAME_print_ex(bio, name, 0, XN_FLAG_RFC2253 & ~ASN1_STRFLGS_ESC_MSB);
  char* data = nullptr;
  long length = BIO_get_mem_data(bio, &data);
  std::string text(data, length > 0 ? static_cast<size_t>(length) : 0);
  BIO_free(bio);
  return text;
}

std::string HexPairs(const unsigned char* bytes, unsigned length) {
  static const char digits[] = "0123456789ABCDEF";
  std::string text;
  for (unsigned i = 0; i < length; ++i) {
    if (i) text += ':';
    text += digits[bytes[i] >> 4];
    text += digits[bytes[i] & 15];
  }
  return text;
}

bool IsAddress(const std::string& host) {
  unsigned char buffer[sizeof(in6_addr)];
  return inet_pton(AF_INET, host.c_str(), buffer) == 1 || inet_pton(AF_INET6, host.c_str(), buffer) == 1;
}

uint32_t ProblemFor(long verifyResult) {
  switch (verifyResult) {
    case X509_V_OK:
      return 0;
    case X509_V_ERR_CERT_HAS_EXPIRED:
    case X509_V_ERR_CERT_NOT_YET_VALID:
      return kErrCertDate;
    case X509_V_ERR_HOSTNAME_MISMATCH:
    case X509_V_ERR_IP_ADDRESS_MISMATCH:
      return kErrCertHost;
    default:
      return kErrCertUntrusted;
  }
}

}  // namespace

std::string NormalizeFingerprint(const std::string& text) {
  std::string digits;
  size_t start = 0;
  if (text.size() > 7 && strncasecmp(text.c_str(), "SHA256:", 7) == 0) start = 7;
  for (size_t i = start; i < text.size(); ++i) {
    char c = text[i];
    if (c == ':' || c == ' ') continue;
    if (!isxdigit(static_cast<unsigned char>(c))) return {};
    digits += static_cast<char>(toupper(static_cast<unsigned char>(c)));
  }
  if (digits.size() != 64) return {};
  std::string out;
  for (size_t i = 0; i < digits.size(); i += 2) {
    if (i) out += ':';
    out.append(digits, i, 2);
  }
  return out;
}

// ---- TlsResumption

TlsResumption::TlsResumption(std::string serverKey) : m_serverKey(std::move(serverKey)) {
  if (!m_serverKey.empty()) m_session = CachedSession(m_serverKey);
}

TlsResumption::~TlsResumption() {
  if (m_session) SSL_SESSION_free(m_session);
}

SSL_SESSION* TlsResumption::Take() const {
  std::lock_guard lock(m_mutex);
  if (m_session) SSL_SESSION_up_ref(m_session);
  return m_session;
}

void TlsResumption::Offer(SSL_SESSION* session) {
  if (!session || !SSL_SESSION_is_resumable(session)) return;
  {
    std::lock_guard lock(m_mutex);
    SSL_SESSION_up_ref(session);
    if (m_session) SSL_SESSION_free(m_session);
    m_session = session;
  }
  if (!m_serverKey.empty()) CacheSession(m_serverKey, session);
}

// ---- TlsStream

std::unique_ptr<TlsStream> TlsStream::Connect(Fd fd, const std::string& host,
                                              std::shared_ptr<TlsResumption> resumption,
                                              const Deadline& deadline) {
  SSL_CTX* context = ClientContext();
  SSL* ssl = context ? SSL_new(context) : nullptr;
  if (!ssl) throw NetError(kErrSecureChannel, "TLS cannot start: " + OpenSslReason());
  std::unique_ptr<TlsStream> stream(new TlsStream(std::move(fd), ssl, host));
  SSL_set_fd(ssl, stream->m_fd.Get());
  X509_VERIFY_PARAM* param = SSL_get0_param(ssl);
  if (IsAddress(host)) {
    X509_VERIFY_PARAM_set1_ip_asc(param, host.c_str());
  } else {
    // Server name indication is for names only.
    SSL_set_tlsext_host_name(ssl, host.c_str());
    X509_VERIFY_PARAM_set1_host(param, host.c_str(), 0);
  }
  // The ex-data slot holds its own owner of the resumption, freed with the
  // stream, so a ticket arriving late never finds it gone.
  auto* owner = new std::shared_ptr<TlsResumption>(std::move(resumption));
  SSL_set_ex_data(ssl, ResumptionIndex(), owner);
  SSL_set_app_data(ssl, &stream->m_ticketArrived);
  if (*owner) {
    if (SSL_SESSION* session = (*owner)->Take()) {
      SSL_set_session(ssl, session);
      SSL_SESSION_free(session);
    }
  }
  stream->Drive([ssl] { return SSL_connect(ssl); }, deadline, "TLS handshake");
  // OpenSSL itself counts the tickets that follow as part of a handshake.
  stream->m_established = true;
  stream->DescribePeer();
  return stream;
}

TlsStream::~TlsStream() {
  NoSigpipe noSigpipe;
  // A polite close_notify where the stream is still whole.
  if (!m_broken && !m_closeSent) {
    // A resumed TLS 1.3 stream closed before its end (a download given up)
    // has used its ticket, and servers whose tickets serve once refuse the
    // next data connection unless the new ticket this one brings is read:
    // what arrives is read and dropped until that ticket is in, for a
    // second at most.
    if (m_established && SSL_version(m_ssl) == TLS1_3_VERSION && SSL_session_reused(m_ssl) &&
        !(SSL_get_shutdown(m_ssl) & SSL_RECEIVED_SHUTDOWN)) {
      const Deadline deadline = Deadline::After(kTicketWaitMs);
      char sink[16384];
      try {
        for (int i = 0; !m_ticketArrived && i < 1024; ++i) {
          if (Drive([&] { return SSL_read(m_ssl, sink, sizeof sink); }, deadline, "TLS close") == 0) break;
        }
      } catch (const NetError&) {
        // No ticket within the time, or the server went: the next data
        // connection will say whether it minds.
      }
    }
    ERR_clear_error();
    SSL_shutdown(m_ssl);
  }
  // Freed without a close_notify sent, OpenSSL would mark the session
  // unusable; but a data stream dropped early (a download closed before its
  // end) says nothing against the session, and servers that require reuse
  // refuse every later data connection of a control connection that has to
  // start afresh.
  if (m_established) SSL_set_shutdown(m_ssl, SSL_get_shutdown(m_ssl) | SSL_SENT_SHUTDOWN);
  delete static_cast<std::shared_ptr<TlsResumption>*>(SSL_get_ex_data(m_ssl, ResumptionIndex()));
  SSL_free(m_ssl);
  ERR_clear_error();
}

void TlsStream::Fail(int result, const char* what) {
  m_broken = true;
  int error = SSL_get_error(m_ssl, result);
  const bool handshaking = !m_established;
  const uint32_t lost = handshaking ? kErrSecureChannel : kErrConnectionAborted;
  std::string reason;
  uint32_t code = lost;
  if (error == SSL_ERROR_SYSCALL && errno != 0) {
    reason = std::strerror(errno);
    if (!handshaking) code = errno == ECONNRESET || errno == EPIPE ? kErrConnectionReset : lost;
  } else if (error == SSL_ERROR_ZERO_RETURN) {
    reason = "the server ended TLS";
  } else if (ERR_GET_REASON(ERR_peek_last_error()) == SSL_R_UNEXPECTED_EOF_WHILE_READING ||
             (error == SSL_ERROR_SYSCALL && ERR_peek_last_error() == 0)) {
    reason = handshaking ? "the server closed the connection"
                         : "the connection ended without TLS close_notify: the data may be cut short";
  } else {
    reason = OpenSslReason();
  }
  ERR_clear_error();
  throw NetError(code, std::string(what) + " with " + m_host + ": " + reason);
}

template <typename Op>
int TlsStream::Drive(Op op, const Deadline& deadline, const char* what) {
  NoSigpipe noSigpipe;
  for (;;) {
    ERR_clear_error();
    errno = 0;
    int result = op();
    if (result > 0) return result;
    switch (SSL_get_error(m_ssl, result)) {
      case SSL_ERROR_WANT_READ:
        WaitReady(m_fd.Get(), POLLIN, deadline, std::string(what) + " with " + m_host);
        break;
      case SSL_ERROR_WANT_WRITE:
        WaitReady(m_fd.Get(), POLLOUT, deadline, std::string(what) + " with " + m_host);
        break;
      case SSL_ERROR_ZERO_RETURN:
        if (m_established) return 0;
        [[fallthrough]];
      default:
        Fail(result, what);
    }
  }
}

size_t TlsStream::ReadSome(void* buffer, size_t size, const Deadline& deadline) {
  if (m_broken) throw NetError(kErrConnectionAborted, "the TLS connection with " + m_host + " has failed");
  const int limit = static_cast<int>(std::min<size_t>(size, 1 << 30));
  try {
    return static_cast<size_t>(Drive([&] { return SSL_read(m_ssl, buffer, limit); }, deadline, "receive"));
  } catch (const NetError& e) {
    // After a time-out the record layer is in an unknown state.
    m_broken = true;
    throw;
  }
}

void TlsStream::WriteAll(const void* data, size_t size, const Deadline& deadline) {
  if (m_broken) throw NetError(kErrConnectionAborted, "the TLS connection with " + m_host + " has failed");
  auto* p = static_cast<const char*>(data);
  try {
    while (size > 0) {
      const int chunk = static_cast<int>(std::min<size_t>(size, 1 << 30));
      const int n = Drive([&] { return SSL_write(m_ssl, p, chunk); }, deadline, "send");
      if (n <= 0) throw NetError(kErrConnectionAborted, "send to " + m_host + ": the server ended TLS");
      p += n;
      size -= static_cast<size_t>(n);
    }
  } catch (const NetError&) {
    m_broken = true;
    throw;
  }
}

void TlsStream::ShutdownWrite() {
  if (!m_broken && !m_closeSent) {
    m_closeSent = true;
    // close_notify tells the server that the upload is whole. Then the
    // stream is read to the server's own close_notify: a close with unread
    // bytes (TLS 1.3 tickets the server sent after the handshake) makes the
    // kernel reset the connection, dropping what it had not yet sent.
    Deadline deadline = Deadline::After(kCloseWaitMs);
    try {
      Drive([this] { return SSL_shutdown(m_ssl) >= 0 ? 1 : -1; }, deadline, "TLS close");
      char sink[4096];
      for (int i = 0; i < 1024 && Drive([&] { return SSL_read(m_ssl, sink, sizeof sink); }, deadline, "TLS close") > 0;
           ++i) {
      }
    } catch (const NetError&) {
      // The server went without its close_notify: the upload's end reply
      // says whether it got everything.
      m_broken = true;
    }
    ERR_clear_error();
  }
  ::shutdown(m_fd.Get(), SHUT_WR);
}

bool TlsStream::WaitReadable(int ms) {
  Deadline deadline = Deadline::After(static_cast<uint32_t>(ms > 0 ? ms : 1));
  // Bytes on the socket may be a record that holds no data (a TLS 1.3
  // ticket): only what SSL_peek sees counts.
  for (int round = 0; round < 64; ++round) {
    if (SSL_pending(m_ssl) > 0) return true;
    char byte;
    ERR_clear_error();
    int result = SSL_peek(m_ssl, &byte, 1);
    if (result > 0) return true;
    int error = SSL_get_error(m_ssl, result);
    if (error != SSL_ERROR_WANT_READ && error != SSL_ERROR_WANT_WRITE) {
      ERR_clear_error();
      return true;  // an end or a failure: the next read reports it
    }
    pollfd p{m_fd.Get(), static_cast<short>(error == SSL_ERROR_WANT_READ ? POLLIN : POLLOUT), 0};
    int left = deadline.RemainingMs();
    if (left == 0 || ::poll(&p, 1, left) == 0) return false;
  }
  return true;
}

void TlsStream::DescribePeer() {
  const std::string version = SSL_get_version(m_ssl);  // "TLSv1.3"
  m_peer.protocol = version.rfind("TLSv", 0) == 0 ? "TLS " + version.substr(4) : version;
  const SSL_CIPHER* cipher = SSL_get_current_cipher(m_ssl);
  const char* name = cipher ? SSL_CIPHER_standard_name(cipher) : nullptr;
  m_peer.cipher = name ? name : (cipher ? SSL_CIPHER_get_name(cipher) : "");
  m_peer.resumed = SSL_session_reused(m_ssl) == 1;
  X509* certificate = SSL_get1_peer_certificate(m_ssl);
  if (!certificate) {
    m_peer.problem = kErrCertUntrusted;
    m_peer.problemText = "the server showed no certificate";
    return;
  }
  m_peer.subject = NameText(X509_get_subject_name(certificate));
  m_peer.issuer = NameText(X509_get_issuer_name(certificate));
  m_peer.notBefore = FormatTime(X509_get0_notBefore(certificate));
  m_peer.notAfter = FormatTime(X509_get0_notAfter(certificate));
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned length = 0;
  if (X509_digest(certificate, EVP_sha256(), digest, &length) == 1) m_peer.fingerprint = HexPairs(digest, length);
  X509_free(certificate);
  const long result = SSL_get_verify_result(m_ssl);
  m_peer.problem = ProblemFor(result);
  switch (m_peer.problem) {
    case 0:
      break;
    case kErrCertDate:
      m_peer.problemText = result == X509_V_ERR_CERT_HAS_EXPIRED ? "it expired on " + m_peer.notAfter
                                                                 : "it is not valid before " + m_peer.notBefore;
      break;
    case kErrCertHost:
      m_peer.problemText = "it was issued for another host than " + m_host;
      break;
    default:
      m_peer.problemText = std::string("no trusted authority signed it (") +
                           X509_verify_cert_error_string(result) + ")";
  }
}

}  // namespace ftpzn::inet
