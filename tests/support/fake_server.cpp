#include "fake_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstring>

namespace ftpzn::inet::fake {

namespace {

constexpr int kWaitMs = 5000;  // the longest the server waits for anything

int Listen() {
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  int one = 1;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  if (bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 || listen(fd, 4) != 0) {
    close(fd);
    return -1;
  }
  return fd;
}

uint16_t PortOf(int fd) {
  sockaddr_in a{};
  socklen_t len = sizeof a;
  getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len);
  return ntohs(a.sin_port);
}

bool WaitIn(int fd, int ms) {
  pollfd p{fd, POLLIN, 0};
  return poll(&p, 1, ms) > 0;
}

int AcceptOne(int listener) {
  if (!WaitIn(listener, kWaitMs)) return -1;
  return accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
}

// A server context with a self-signed certificate made in memory, once.
SSL_CTX* ServerTlsContext() {
  static SSL_CTX* const context = [] {
    SSL_CTX* ctx = SSL_CTX_new(TLS_server_method());
    EVP_PKEY* key = EVP_EC_gen("P-256");
    X509* cert = X509_new();
    ASN1_INTEGER_set(X509_get_serialNumber(cert), 1);
    X509_gmtime_adj(X509_getm_notBefore(cert), -3600);
    X509_gmtime_adj(X509_getm_notAfter(cert), 86400);
    X509_set_pubkey(cert, key);
    X509_NAME_add_entry_by_txt(X509_get_subject_name(cert), "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>("fake server"), -1, -1, 0);
    X509_set_issuer_name(cert, X509_get_subject_name(cert));
    X509_sign(cert, key, EVP_sha256());
    SSL_CTX_use_certificate(ctx, cert);
    SSL_CTX_use_PrivateKey(ctx, key);
    X509_free(cert);
    EVP_PKEY_free(key);
    return ctx;
  }();
  return context;
}

// A server-side handshake on a blocking socket, bounded by a receive
// time-out; null when it failed.
SSL* AcceptTls(int fd) {
  timeval limit{kWaitMs / 1000, 0};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  SSL* ssl = SSL_new(ServerTlsContext());
  SSL_set_fd(ssl, fd);
  if (SSL_accept(ssl) != 1) {
    SSL_free(ssl);
    ERR_clear_error();
    return nullptr;
  }
  return ssl;
}

bool SendAll(int fd, const std::string& bytes, size_t pieceSize, SSL* tls = nullptr) {
  size_t step = pieceSize ? pieceSize : bytes.size();
  for (size_t at = 0; at < bytes.size(); at += step) {
    size_t n = std::min(step, bytes.size() - at);
    const ssize_t sent = tls ? SSL_write(tls, bytes.data() + at, static_cast<int>(n))
                             : send(fd, bytes.data() + at, n, MSG_NOSIGNAL);
    if (sent != static_cast<ssize_t>(n)) return false;
    // Separate pieces reach the client as separate reads.
    if (pieceSize) std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

void Replace(std::string& s, const std::string& from, const std::string& to) {
  for (size_t at = s.find(from); at != std::string::npos; at = s.find(from, at + to.size())) {
    s.replace(at, from.size(), to);
  }
}

}  // namespace

Step Greet(std::string reply) {
  Step s;
  s.reply = std::move(reply);
  return s;
}

Step On(std::string expect, std::string reply) {
  Step s;
  s.expect = std::move(expect);
  s.reply = std::move(reply);
  return s;
}

std::vector<Step> Login() {
  return {Greet("220 fake ready\r\n"), On("USER", "331 password please\r\n"), On("PASS", "230 in\r\n"),
          On("FEAT", "500 no FEAT here\r\n")};
}

std::vector<Step> TlsLogin(std::string authReply) {
  Step auth = On("AUTH TLS", std::move(authReply));
  auth.startTls = true;
  return {Greet("220 fake ready\r\n"), auth,
          On("USER", "331 password please\r\n"), On("PASS", "230 in\r\n"),
          On("PBSZ 0", "200 ok\r\n"), On("PROT P", "200 ok\r\n"), On("FEAT", "500 no FEAT here\r\n")};
}

std::vector<Step> Plus(std::vector<Step> a, const std::vector<Step>& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

Step CloseWith(std::string bytes, std::string expect) {
  Step s;
  s.expect = std::move(expect);
  s.action = Step::Action::Close;
  s.reply = std::move(bytes);
  return s;
}

Step Silence(std::string expect) {
  Step s;
  s.expect = std::move(expect);
  s.action = Step::Action::Silence;
  return s;
}

Step Transfer(std::string expect, std::string data, std::string end) {
  Step s = On(std::move(expect), "150 here it comes\r\n");
  s.sendData = true;
  s.data = std::move(data);
  s.afterData = end;
  s.closeAfterData = end.empty();
  return s;
}

Step Epsv() {
  Step s = On("EPSV", "229 Entering Extended Passive Mode (|||{PORT}|)\r\n");
  s.openData = true;
  return s;
}

Step Pasv(std::string reply) {
  Step s = On("PASV", std::move(reply));
  s.openData = true;
  return s;
}

FakeServer::FakeServer(std::vector<Step> script) : m_script(std::move(script)) {
  m_listener = Listen();
  m_port = m_listener >= 0 ? PortOf(m_listener) : 0;
  m_thread = std::thread([this] { Run(); });
}

FakeServer::~FakeServer() {
  m_stop = true;
  if (m_thread.joinable()) m_thread.join();
  if (m_listener >= 0) close(m_listener);
  if (m_dataListener >= 0) close(m_dataListener);
}

void FakeServer::Finish() {
  if (m_thread.joinable()) m_thread.join();
}

std::vector<std::string> FakeServer::Received() {
  std::lock_guard lock(m_mutex);
  return m_received;
}

std::string FakeServer::Problem() {
  std::lock_guard lock(m_mutex);
  return m_problem;
}

void FakeServer::Note(const std::string& problem) {
  std::lock_guard lock(m_mutex);
  if (m_problem.empty()) m_problem = problem;
}

void FakeServer::Run() {
  if (m_listener < 0) {
    Note("cannot listen");
    return;
  }
  int control = AcceptOne(m_listener);
  if (control < 0) {
    Note("the client never connected");
    return;
  }
  Serve(control);
  if (m_controlTls) SSL_free(m_controlTls);
  m_controlTls = nullptr;
  close(control);
}

int FakeServer::ConnectActive(const std::string& from) {
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  if (!from.empty()) {
    inet_pton(AF_INET, from.c_str(), &a.sin_addr);
    if (bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
      close(fd);
      return -1;
    }
  }
  inet_pton(AF_INET, m_activeTarget.substr(0, m_activeTarget.find(' ')).c_str(), &a.sin_addr);
  a.sin_port = htons(static_cast<uint16_t>(std::stoi(m_activeTarget.substr(m_activeTarget.find(' ') + 1))));
  if (connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
    close(fd);
    return -1;
  }
  return fd;
}

void FakeServer::Serve(int control) {
  std::string buffer;
  // One command line, or false when the client closed or stayed silent.
  auto readLine = [&](std::string& line) {
    for (int guard = 0; guard < 10000; ++guard) {
      size_t lf = buffer.find("\r\n");
      if (lf != std::string::npos) {
        line = buffer.substr(0, lf);
        buffer.erase(0, lf + 2);
        std::lock_guard lock(m_mutex);
        m_received.push_back(line);
        return true;
      }
      const bool pending = m_controlTls && SSL_pending(m_controlTls) > 0;
      // In slices, so that a server being destroyed stops waiting at once
      // for a client that keeps its connection (a pooled one).
      bool ready = pending;
      for (int slice = 0; !ready && !m_stop && slice < kWaitMs / 100; ++slice) ready = WaitIn(control, 100);
      if (m_stop || !ready) return false;
      char chunk[512];
      ssize_t n = m_controlTls ? SSL_read(m_controlTls, chunk, sizeof chunk) : recv(control, chunk, sizeof chunk, 0);
      if (n <= 0) return false;
      buffer.append(chunk, static_cast<size_t>(n));
    }
    return false;
  };

  for (const Step& step : m_script) {
    std::string line;
    if (!step.expect.empty()) {
      if (!readLine(line)) {
        Note("expected \"" + step.expect + "\", the client sent nothing more");
        return;
      }
      if (line.compare(0, step.expect.size(), step.expect) != 0) {
        Note("expected \"" + step.expect + "\", got \"" + line + "\"");
        SendAll(control, "500 unexpected\r\n", 0, m_controlTls);
        return;
      }
    }
    if (line.rfind("PORT ", 0) == 0) {
      unsigned h[4], p[2];
      if (sscanf(line.c_str() + 5, "%u,%u,%u,%u,%u,%u", &h[0], &h[1], &h[2], &h[3], &p[0], &p[1]) == 6) {
        m_activeTarget = std::to_string(h[0]) + "." + std::to_string(h[1]) + "." + std::to_string(h[2]) +
                         "." + std::to_string(h[3]) + " " + std::to_string(p[0] * 256 + p[1]);
      }
    }
    if (step.openData && m_dataListener < 0) m_dataListener = Listen();
    switch (step.action) {
      case Step::Action::Silence:
        // Say nothing until the client gives up (bounded); what it sends
        // meanwhile (a TLS hello) is read and ignored.
        for (int i = 0; i < 40 && !m_stop; ++i) {
          char ignored[512];
          if (WaitIn(control, 250) && recv(control, ignored, sizeof ignored, 0) <= 0) break;
        }
        return;
      case Step::Action::Close:
        if (!step.reply.empty()) SendAll(control, step.reply, step.pieceSize, m_controlTls);
        return;
      case Step::Action::Reply:
        break;
    }
    std::string reply = step.reply;
    if (m_dataListener >= 0) {
      uint16_t port = PortOf(m_dataListener);
      Replace(reply, "{P1}", std::to_string(port >> 8));
      Replace(reply, "{P2}", std::to_string(port & 0xFF));
      Replace(reply, "{PORT}", std::to_string(port));
    }
    if (!SendAll(control, reply, step.pieceSize, m_controlTls)) return;
    if (step.startTls && !(m_controlTls = AcceptTls(control))) {
      Note("no TLS handshake on the control connection");
      return;
    }
    if (step.sendData) {
      int data = -1;
      if (!m_activeTarget.empty()) {
        if (!step.activeFrom.empty()) {
          int stranger = ConnectActive(step.activeFrom);
          SendAll(stranger, step.data, 0);
          // The client must hang up on it.
          if (stranger < 0 || !WaitIn(stranger, 2000))
            Note("the client kept a data connection from " + step.activeFrom);
          if (stranger >= 0) close(stranger);
        }
        data = ConnectActive({});
      } else if (m_dataListener >= 0) {
        data = AcceptOne(m_dataListener);
      }
      if (data < 0) {
        Note("no data connection for \"" + line + "\"");
        return;
      }
      SSL* dataTls = nullptr;
      if (step.dataTls && !(dataTls = AcceptTls(data))) {
        Note("no TLS handshake on the data connection for \"" + line + "\"");
        close(data);
        return;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(step.dataPauseMs));
      if (step.dataPieceSize == 0) {
        SendAll(data, step.data, 0, dataTls);
      } else {
        for (size_t at = 0; at < step.data.size() && !m_stop; at += step.dataPieceSize) {
          if (!SendAll(data, step.data.substr(at, step.dataPieceSize), 0, dataTls)) break;
          std::this_thread::sleep_for(std::chrono::milliseconds(step.dataPieceMs));
        }
      }
      if (dataTls) {
        if (step.dataCloseNotify) SSL_shutdown(dataTls);
        SSL_free(dataTls);
      }
      close(data);
      if (step.closeAfterData) return;
      if (!step.afterData.empty() && !SendAll(control, step.afterData, 0, m_controlTls)) return;
    }
  }
  // Script done: answer QUIT, refuse the rest, until the client leaves.
  std::string line;
  for (int i = 0; i < 100 && readLine(line); ++i) {
    bool quit = line.rfind("QUIT", 0) == 0;
    SendAll(control, quit ? "221 bye\r\n" : "502 not in the script\r\n", 0, m_controlTls);
    if (quit) return;
  }
}

}  // namespace ftpzn::inet::fake
