#include "inet/inet.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <ctime>
#include <cwctype>
#include <optional>
#include <utility>

#include "inet/errortext.h"
#include "inet/ftpcontrol.h"
#include "inet/pool.h"
#include "inet/wirename.h"

namespace ftpzn::inet {

namespace {

thread_local uint32_t t_lastError = 0;
thread_local std::wstring t_lastResponse;

// Big enough that a transfer in 4096-byte blocks costs one system call per
// sixteen blocks, small enough to stay in the cache between our copy and
// the kernel's (256 KiB and 1 MiB were measurably slower on loopback).
constexpr size_t kTransferBuffer = 64 * 1024;
constexpr int kUnsentLimit = 128 * 1024;  // an upload's queue in the kernel

// Every engine failure ends up in the thread's last error and response.
void Record(const NetError& e) {
  t_lastError = e.code;
  t_lastResponse = WireToWide(e.what());
}

[[noreturn]] void Throw(const NetError& e, uintptr_t context) {
  Record(e);
  throw CInternetException(e.code, context);
}

bool WildcardMatch(const wchar_t* pattern, const wchar_t* name) {
  // Iterative '*' backtracking: linear in practice, never recursive.
  const wchar_t* star = nullptr;
  const wchar_t* resume = nullptr;
  while (*name) {
    if (*pattern == L'?' || *pattern == *name) {
      ++pattern, ++name;
    } else if (*pattern == L'*') {
      star = pattern++;
      resume = name;
    } else if (star) {
      pattern = star + 1;
      name = ++resume;
    } else {
      return false;
    }
  }
  while (*pattern == L'*') ++pattern;
  return *pattern == 0;
}

// Some servers refuse to list an empty directory ("550 No files found."):
// that is an empty listing, not a failure.
bool IsNoFilesReply(std::string text) {
  if (text.size() < 4 || (text[0] != '4' && text[0] != '5')) return false;
  for (char& c : text) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
  return text.find("no files") != std::string::npos;
}

std::string PwdPath(const FtpReply& reply) {
  const std::string& line = reply.lines.front();
  size_t open = line.find('"');
  if (open == std::string::npos) return line.size() > 4 ? line.substr(4) : std::string();
  std::string path;
  for (size_t i = open + 1; i < line.size(); ++i) {
    if (line[i] == '"') {
      if (i + 1 < line.size() && line[i + 1] == '"') {
        path += '"';  // a quote inside the name is doubled
        ++i;
        continue;
      }
      break;
    }
    path += line[i];
  }
  return path;
}

}  // namespace

void EmptyConnectionPool() { ConnectionPool::Instance().Empty(); }
size_t PooledConnectionCount() { return ConnectionPool::Instance().Size(); }

uint32_t GetLastError() { return t_lastError; }
void SetLastError(uint32_t code) { t_lastError = code; }
std::wstring InternetGetLastResponseInfo() { return t_lastResponse; }

// ---- URLs

bool ParseURLEx(const std::wstring& url, uint32_t& serviceType, std::wstring& server, std::wstring& object,
                uint16_t& port, std::wstring& user, std::wstring& password) {
  size_t sep = url.find(L"://");
  if (sep == std::wstring::npos) return false;
  std::wstring scheme = url.substr(0, sep);
  for (wchar_t& c : scheme) c = static_cast<wchar_t>(towlower(c));
  uint16_t defaultPort = 0;
  if (scheme == L"ftp") {
    serviceType = AFX_INET_SERVICE_FTP, defaultPort = 21;
  } else if (scheme == L"ftpes") {
    serviceType = INET_SERVICE_FTPES, defaultPort = 21;
  } else if (scheme == L"ftps") {
    serviceType = INET_SERVICE_FTPS, defaultPort = 990;
  } else if (scheme == L"http") {
    serviceType = AFX_INET_SERVICE_HTTP, defaultPort = 80;
  } else if (scheme == L"https") {
    serviceType = AFX_INET_SERVICE_HTTPS, defaultPort = 443;
  } else if (scheme == L"file") {
    serviceType = AFX_INET_SERVICE_FILE;
  } else {
    serviceType = AFX_INET_SERVICE_UNK;
  }
  std::wstring rest = url.substr(sep + 3);
  size_t slash = rest.find(L'/');
  std::wstring authority = rest.substr(0, slash);
  object = slash == std::wstring::npos ? L"/" : rest.substr(slash);
  user.clear();
  password.clear();
  size_t at = authority.rfind(L'@');
  if (at != std::wstring::npos) {
    std::wstring credentials = authority.substr(0, at);
    authority.erase(0, at + 1);
    size_t colon = credentials.find(L':');
    user = credentials.substr(0, colon);
    if (colon != std::wstring::npos) password = credentials.substr(colon + 1);
  }
  // "[v6 address]:port"
  size_t portSep = std::wstring::npos;
  if (!authority.empty() && authority.front() == L'[') {
    size_t close = authority.find(L']');
    if (close == std::wstring::npos) return false;
    server = authority.substr(1, close - 1);
    if (close + 1 < authority.size()) {
      if (authority[close + 1] != L':') return false;
      portSep = close + 1;
    }
  } else {
    portSep = authority.find(L':');
    server = authority.substr(0, portSep);
  }
  port = defaultPort;
  if (portSep != std::wstring::npos) {
    std::wstring digits = authority.substr(portSep + 1);
    if (digits.empty() || digits.size() > 5) return false;
    unsigned value = 0;
    for (wchar_t c : digits) {
      if (c < L'0' || c > L'9') return false;
      value = value * 10 + static_cast<unsigned>(c - L'0');
    }
    if (value == 0 || value > 65535) return false;
    port = static_cast<uint16_t>(value);
  }
  return true;
}

bool ParseURL(const std::wstring& url, uint32_t& serviceType, std::wstring& server, std::wstring& object,
              uint16_t& port) {
  std::wstring user, password;
  return ParseURLEx(url, serviceType, server, object, port, user, password);
}

TlsMode TlsModeForService(uint32_t serviceType) {
  if (serviceType == INET_SERVICE_FTPES) return TlsMode::Explicit;
  if (serviceType == INET_SERVICE_FTPS) return TlsMode::Implicit;
  return TlsMode::None;
}

std::wstring DecodeUrlComponent(const std::wstring& text) {
  std::string bytes = WideToWire(text);
  std::string out;
  auto hex = [](char c) -> int {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  };
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (bytes[i] == '%' && i + 2 < bytes.size() + 0 && hex(bytes[i + 1]) >= 0 && hex(bytes[i + 2]) >= 0) {
      out += static_cast<char>(hex(bytes[i + 1]) * 16 + hex(bytes[i + 2]));
      i += 2;
    } else {
      out += bytes[i];
    }
  }
  return WireToWide(out);
}

// ---- CInternetException

CInternetException::CInternetException(uint32_t error, uintptr_t context)
    : m_dwError(error), m_dwContext(context) {
  const char* text = InternetErrorText(error, true);
  m_what = "internet error " + std::to_string(error) + (text ? std::string(": ") + text : std::string());
}

bool CInternetException::GetErrorMessage(std::wstring& text) const {
  const char* table = InternetErrorText(m_dwError, true);
  text = table ? WireToWide(table) : std::wstring();
  return table != nullptr;
}

// ---- CInternetSession

class SessionObserver : public FtpObserver {
 public:
  SessionObserver(CInternetSession* session, CFtpConnection* connection)
      : m_session(session), m_connection(connection) {}
  void Detach() { m_session = nullptr; }
  void OnStatus(uint32_t status, const std::string& info) override {
    if (m_session) m_session->Report(status, info, m_context.value_or(m_session->GetContext()));
  }
  // The context of the find or file the next notices belong to.
  std::optional<uintptr_t> SwapContext(std::optional<uintptr_t> context) {
    std::swap(context, m_context);
    return context;
  }
  void OnTrace(bool sent, const std::string& line) override {
    if (m_session) m_session->OnProtocolTrace(sent, line);
  }
  void OnReply(const FtpReply& reply) override { t_lastResponse = WireToWide(reply.Text()); }
  bool AcceptCertificate(const TlsPeerInfo& peer) override {
    return m_session && m_session->AcceptCertificate(m_connection->m_server, m_connection->m_port, peer);
  }

 private:
  CInternetSession* m_session;
  CFtpConnection* m_connection;
  std::optional<uintptr_t> m_context;
};

namespace {

// While a find or a file works on its connection, the notices of that work
// carry the find's or the file's context, as the platform's handles do.
class ContextScope {
 public:
  ContextScope(SessionObserver* observer, uintptr_t context)
      : m_observer(observer), m_saved(observer ? observer->SwapContext(context) : std::nullopt) {}
  ~ContextScope() {
    if (m_observer) m_observer->SwapContext(m_saved);
  }
  ContextScope(const ContextScope&) = delete;
  ContextScope& operator=(const ContextScope&) = delete;

 private:
  SessionObserver* m_observer;
  std::optional<uintptr_t> m_saved;
};

}  // namespace

CInternetSession::CInternetSession(const wchar_t*, uintptr_t context, uint32_t, const wchar_t*,
                                   const wchar_t*, uint32_t)
    : m_context(context) {}

CInternetSession::~CInternetSession() { Close(); }

bool CInternetSession::SetOption(uint32_t option, uint32_t value) {
  switch (option) {
    case INTERNET_OPTION_CONNECT_TIMEOUT:
      m_connectMs = value;
      break;
    case INTERNET_OPTION_SEND_TIMEOUT:
    case INTERNET_OPTION_DATA_SEND_TIMEOUT:
      m_sendMs = value;
      break;
    case INTERNET_OPTION_RECEIVE_TIMEOUT:
    case INTERNET_OPTION_DATA_RECEIVE_TIMEOUT:
      m_receiveMs = value;
      break;
    case INTERNET_OPTION_CONNECT_RETRIES:
      return true;
    default:
      t_lastError = 12009;  // invalid option
      return false;
  }
  for (CFtpConnection* c : m_connections) {
    if (c->m_control) c->m_control->SetTimeouts({m_connectMs, m_sendMs, m_receiveMs});
  }
  return true;
}

bool CInternetSession::QueryOption(uint32_t option, uint32_t& value) const {
  switch (option) {
    case INTERNET_OPTION_CONNECT_TIMEOUT:
      value = m_connectMs;
      return true;
    case INTERNET_OPTION_SEND_TIMEOUT:
    case INTERNET_OPTION_DATA_SEND_TIMEOUT:
      value = m_sendMs;
      return true;
    case INTERNET_OPTION_RECEIVE_TIMEOUT:
    case INTERNET_OPTION_DATA_RECEIVE_TIMEOUT:
      value = m_receiveMs;
      return true;
    default:
      t_lastError = 12009;
      return false;
  }
}

bool CInternetSession::EnableStatusCallback(bool enable) {
  m_statusCallback = enable;
  return true;
}

void CInternetSession::OnStatusCallback(uintptr_t, uint32_t, const void*, uint32_t) {}

void CInternetSession::OnProtocolTrace(bool, const std::string&) {}

void CInternetSession::Report(uint32_t status, const std::string& info) { Report(status, info, m_context); }

void CInternetSession::Report(uint32_t status, const std::string& info, uintptr_t context) {
  if (!m_statusCallback) return;
  if (status == INTERNET_STATUS_RESOLVING_NAME || status == INTERNET_STATUS_NAME_RESOLVED) {
    std::wstring text = WireToWide(info);
    OnStatusCallback(context, status, text.c_str(),
                     static_cast<uint32_t>((text.size() + 1) * sizeof(wchar_t)));
  } else {
    OnStatusCallback(context, status, nullptr, 0);
  }
}

void CInternetSession::TrustCertificate(const std::string& fingerprint) {
  std::string normal = NormalizeFingerprint(fingerprint);
  if (!normal.empty()) m_trustedCertificates.insert(normal);
}

bool CInternetSession::OnUntrustedCertificate(const std::wstring&, uint16_t, const TlsPeerInfo&) { return false; }

bool CInternetSession::Trusts(const TlsPeerInfo& peer) const {
  return peer.problem == 0 || m_trustedCertificates.count(peer.fingerprint) > 0;
}

bool CInternetSession::AcceptCertificate(const std::wstring& server, uint16_t port, const TlsPeerInfo& peer) {
  if (Trusts(peer)) return true;
  if (!OnUntrustedCertificate(server, port, peer)) return false;
  // Accepted once for the session: its later connections ask no more.
  m_trustedCertificates.insert(peer.fingerprint);
  return true;
}

std::unique_ptr<CFtpConnection> CInternetSession::GetFtpConnection(const std::wstring& server,
                                                                   const std::wstring& user,
                                                                   const std::wstring& password,
                                                                   uint16_t port, bool passive, TlsMode tls) {
  if (port == 0) port = INTERNET_DEFAULT_FTP_PORT;
  std::unique_ptr<CFtpConnection> connection(new CFtpConnection(*this, server, port));
  auto key = std::make_unique<PoolKey>(PoolKey{WideToWire(server), port,
                                               user.empty() ? "anonymous" : WideToWire(user),
                                               user.empty() && password.empty() ? "anonymous@" : WideToWire(password),
                                               passive, tls});
  if (m_pooling) {
    // Only a connection whose certificate this session would accept.
    std::unique_ptr<FtpControl> kept = ConnectionPool::Instance().Take(*key, [this](const FtpControl& c) {
      return c.Tls() == TlsMode::None || Trusts(c.TlsPeer());
    });
    if (kept) {
      kept->Rebind(*connection->m_observer);
      kept->SetTimeouts({m_connectMs, m_sendMs, m_receiveMs});
      connection->m_awayFromLogin = !kept->AtLoginDirectory();
      connection->m_control = std::move(kept);
      connection->m_fromPool = true;
    }
  }
  connection->m_pooled = m_pooling;
  connection->m_key = std::move(key);
  if (!connection->m_control) {
    try {
      connection->Reopen(false);
    } catch (const NetError& e) {
      // No QUIT: its reply would replace the one that explains the failure.
      connection->m_control.reset();
      Throw(e, m_context);
    }
  }
  Report(INTERNET_STATUS_HANDLE_CREATED, {});
  t_lastError = 0;
  return connection;
}

void CInternetSession::Close() {
  // Closing a connection removes it from the set.
  while (!m_connections.empty()) {
    CFtpConnection* c = *m_connections.begin();
    c->Close();
    c->m_observer->Detach();
    c->m_session = nullptr;
    m_connections.erase(c);
  }
}

// ---- CFtpConnection

CFtpConnection::CFtpConnection(CInternetSession& session, std::wstring server, uint16_t port)
    : m_session(&session),
      m_server(std::move(server)),
      m_port(port),
      m_observer(std::make_unique<SessionObserver>(&session, this)) {
  session.m_connections.insert(this);
}

CFtpConnection::~CFtpConnection() {
  Close();
  if (m_session) m_session->m_connections.erase(this);
}

void CFtpConnection::Close() {
  if (m_openFile) {
    // The file outlives its connection: its later calls fail with 12017.
    m_openFile->m_data.reset();
    m_openFile->m_connection = nullptr;
    m_openFile = nullptr;
  }
  const bool midway = m_busy;
  m_busy = false;
  if (!m_control) return;
  if (m_session) m_session->Report(INTERNET_STATUS_HANDLE_CLOSING, {});
  if (m_pooled && !midway && !m_control->Dropped()) {
    ConnectionPool::Instance().Give(*m_key, std::move(m_control));
    return;
  }
  m_control->Quit();
  m_control.reset();
}

void CFtpConnection::Reopen(bool keepDirectory) {
  std::optional<std::string> directory;
  if (keepDirectory && m_control && !m_control->AtLoginDirectory()) directory = m_control->KnownDirectory();
  if (m_control) {
    // Dead, or standing elsewhere: not for anyone else either.
    m_control->Quit();
    m_control.reset();
  }
  if (!m_session) throw NetError(kErrCancelled, "the connection is closed");
  m_fromPool = false;
  m_awayFromLogin = false;
  m_control = std::make_unique<FtpControl>(
      *m_observer, FtpTimeouts{m_session->m_connectMs, m_session->m_sendMs, m_session->m_receiveMs},
      m_key->passive, m_key->tls);
  m_control->ReuseFeatures(m_pooled);
  m_control->Open(m_key->host, m_key->port, m_key->user, m_key->password);
  if (directory) {
    m_control->Expect("CWD " + *directory);
    m_control->DirectoryChanged(*directory);
  }
}

bool CFtpConnection::UsesMlsd() const { return m_control && m_control->HasMlsd(); }

TlsMode CFtpConnection::GetTlsMode() const { return m_control ? m_control->Tls() : TlsMode::None; }

const TlsPeerInfo* CFtpConnection::GetTlsInfo() const {
  return m_control && m_control->Tls() != TlsMode::None ? &m_control->TlsPeer() : nullptr;
}

FtpControl* CFtpConnection::Ready() {
  if (!m_control) throw NetError(kErrCancelled, "the connection is closed");
  if (m_busy) throw NetError(kErrInProgress, "another operation is under way on this connection");
  if (m_control->Dropped()) throw NetError(kErrSessionDropped, "the connection to the server was lost");
  return m_control.get();
}

template <typename Fn>
auto CFtpConnection::Use(Fn&& fn, bool absoluteDirectory) {
  if (m_awayFromLogin && !absoluteDirectory) Reopen(false);
  FtpControl* control = Ready();
  if (!m_fromPool) return fn(*control);
  const uint64_t replies = control->RepliesRead();
  try {
    if constexpr (std::is_void_v<decltype(fn(*control))>) {
      fn(*control);
      if (control->RepliesRead() != replies) m_fromPool = false;
    } else {
      auto result = fn(*control);
      if (control->RepliesRead() != replies) m_fromPool = false;
      return result;
    }
  } catch (const NetError& e) {
    const bool lost = e.code == kErrConnectionAborted || e.code == kErrConnectionReset ||
                      e.code == kErrSessionDropped || e.code == kErrTimeout;
    // Closed by the server while it waited (or a 421 as its first word):
    // a new connection does what this one would have.
    if (!lost || control->RepliesRead() > replies + (control->Dropped() ? 1 : 0)) throw;
    Reopen(true);
    return fn(*Ready());
  }
}

template <typename Fn>
bool CFtpConnection::Run(Fn&& fn, bool absoluteDirectory) {
  try {
    Use(fn, absoluteDirectory);
  } catch (const NetError& e) {
    Record(e);
    return false;
  }
  t_lastError = 0;
  return true;
}

bool CFtpConnection::SetCurrentDirectory(const std::wstring& directory) {
  const std::string wire = WideToWire(directory);
  const bool absolute = !wire.empty() && wire[0] == '/';
  const bool ok = Run(
      [&](FtpControl& c) {
        // A pooled connection knows where it stands: no CWD to go there.
        if (m_pooled && absolute && c.KnownDirectory() == wire) return;
        c.Expect("CWD " + wire);
        c.DirectoryChanged(wire);
      },
      absolute);
  if (ok && absolute) m_awayFromLogin = false;
  return ok;
}

bool CFtpConnection::GetCurrentDirectory(std::wstring& directory) {
  return Run([&](FtpControl& c) {
    FtpReply reply = c.Command("PWD");
    if (reply.code != 257) throw NetError(kErrExtended, reply.Text());
    directory = WireToWide(PwdPath(reply));
  });
}

bool CFtpConnection::CreateDirectory(const std::wstring& directory) {
  return Run([&](FtpControl& c) { c.Expect("MKD " + WideToWire(directory)); });
}

bool CFtpConnection::RemoveDirectory(const std::wstring& directory) {
  return Run([&](FtpControl& c) { c.Expect("RMD " + WideToWire(directory)); });
}

bool CFtpConnection::Remove(const std::wstring& file) {
  return Run([&](FtpControl& c) { c.Expect("DELE " + WideToWire(file)); });
}

bool CFtpConnection::Rename(const std::wstring& from, const std::wstring& to) {
  return Run([&](FtpControl& c) {
    FtpReply reply = c.Command("RNFR " + WideToWire(from));
    if (reply.code != 350) throw NetError(kErrExtended, reply.Text());
    c.Expect("RNTO " + WideToWire(to));
  });
}

std::unique_ptr<CInternetFile> CFtpConnection::OpenFile(const std::wstring& name, uint32_t access,
                                                        uint32_t flags, uintptr_t context) {
  ContextScope scope(m_observer.get(), context);
  bool writing = (access & GENERIC_WRITE) != 0;
  TransferType type = (flags & 3) == FTP_TRANSFER_TYPE_ASCII ? TransferType::Ascii : TransferType::Binary;
  std::unique_ptr<Stream> data;
  try {
    if ((access & (GENERIC_READ | GENERIC_WRITE)) == (GENERIC_READ | GENERIC_WRITE) ||
        (access & (GENERIC_READ | GENERIC_WRITE)) == 0) {
      throw NetError(87, "a remote file opens for reading or for writing");  // invalid parameter
    }
    data = Use([&](FtpControl& c) { return c.StartTransfer((writing ? "STOR " : "RETR ") + WideToWire(name), type); });
    // Over TLS a short queue cuts records across sends and doubles the
    // packets: the limit is for plain uploads only.
    if (writing && GetTlsMode() == TlsMode::None) LimitUnsent(data->NativeHandle(), kUnsentLimit);
  } catch (const NetError& e) {
    Throw(e, context);
  }
  m_busy = true;
  if (m_session) m_session->Report(INTERNET_STATUS_HANDLE_CREATED, {}, context);
  t_lastError = 0;
  std::unique_ptr<CInternetFile> file(new CInternetFile(*this, std::move(data), writing, context));
  m_openFile = file.get();
  return file;
}

// ---- CInternetFile

CInternetFile::CInternetFile(CFtpConnection& connection, std::unique_ptr<Stream> data, bool writing,
                             uintptr_t context)
    : m_connection(&connection),
      m_data(std::move(data)),
      m_writing(writing),
      m_context(context),
      m_buffer(kTransferBuffer) {}

CInternetFile::~CInternetFile() {
  uint32_t saved = t_lastError;
  Close();
  t_lastError = saved;
}

void CInternetFile::Fail(uint32_t code) {
  Record(NetError(code, code == kErrCancelled ? "the file is closed" : "the file is not open for this"));
  throw CInternetException(code, m_context);
}

uint32_t CInternetFile::Read(void* buffer, uint32_t count) {
  // Full blocks until the end, as the platform's reads were: callers take a
  // short block for the last one. A failure after some bytes came returns
  // those first; the next Read throws it, or Close leaves it as the last
  // error.
  auto* out = static_cast<char*>(buffer);
  uint32_t done = 0;
  while (done < count) {
    uint32_t n = 0;
    if (done == 0) {
      n = ReadSome(out, count);
    } else {
      try {
        n = ReadSome(out + done, count - done);
      } catch (const CInternetException& e) {
        m_pendingError = e.m_dwError;
        break;
      }
    }
    if (n == 0) break;
    done += n;
  }
  return done;
}

uint32_t CInternetFile::ReadSome(void* buffer, uint32_t count) {
  if (m_pendingError != 0) {
    const uint32_t code = m_pendingError;
    m_pendingError = 0;
    t_lastError = code;
    throw CInternetException(code, m_context);
  }
  if (!m_data && !m_atEnd) Fail(kErrCancelled);
  if (m_writing) Fail(12018);  // wrong handle type
  if (count == 0 || (m_atEnd && m_begin == m_end)) return 0;
  auto* out = static_cast<char*>(buffer);
  FtpControl* control = m_connection ? m_connection->m_control.get() : nullptr;
  if (!control) Fail(kErrCancelled);
  ContextScope scope(m_connection->m_observer.get(), m_context);
  try {
    if (m_begin == m_end) {
      Deadline deadline = Deadline::After(control->Timeouts().receiveMs);
      if (count >= m_buffer.size()) {
        size_t n = m_data->ReadSome(out, count, deadline);
        if (n > 0) return static_cast<uint32_t>(n);
      } else {
        m_begin = 0;
        m_end = m_data->ReadSome(m_buffer.data(), m_buffer.size(), deadline);
      }
      if (m_begin == m_end) {
        // The data connection ended: only the server's end reply says
        // whether that was the whole file.
        m_atEnd = true;
        m_data.reset();
        control->FinishTransfer();
        return 0;
      }
    }
    size_t n = std::min<size_t>(count, m_end - m_begin);
    std::memcpy(out, m_buffer.data() + m_begin, n);
    m_begin += n;
    return static_cast<uint32_t>(n);
  } catch (const NetError& e) {
    m_atEnd = true;
    m_begin = m_end = 0;
    m_data.reset();
    if (e.code != kErrExtended) control->AbandonTransfer();
    Throw(e, m_context);
  }
}

void CInternetFile::Write(const void* buffer, uint32_t count) {
  if (!m_data) Fail(kErrCancelled);
  if (!m_writing) Fail(12018);
  auto* in = static_cast<const char*>(buffer);
  if (m_end + count <= m_buffer.size()) {
    std::memcpy(m_buffer.data() + m_end, in, count);
    m_end += count;
    if (m_end == m_buffer.size()) Flush();
    return;
  }
  Flush();
  if (count >= m_buffer.size()) {
    Send(in, count);
    return;
  }
  std::memcpy(m_buffer.data(), in, count);
  m_end = count;
}

void CInternetFile::Flush() {
  if (!m_writing || m_end == 0) return;
  Send(m_buffer.data(), m_end);
  m_end = 0;
}

void CInternetFile::Send(const char* data, size_t size) {
  FtpControl* control = m_connection ? m_connection->m_control.get() : nullptr;
  if (!control || !m_data) Fail(kErrCancelled);
  ContextScope scope(m_connection->m_observer.get(), m_context);
  try {
    m_data->WriteAll(data, size, Deadline::After(control->Timeouts().sendMs));
  } catch (const NetError& e) {
    m_data.reset();
    m_end = 0;
    // A server that stops an upload (disk full, quota) drops the data
    // connection and says why on the control connection: its reply is the
    // better report.
    std::optional<FtpReply> reply;
    try {
      if (e.code == kErrConnectionAborted || e.code == kErrConnectionReset) reply = control->EndReplyIfAny();
    } catch (const NetError& late) {
      Throw(late, m_context);
    }
    if (reply && !reply->Positive()) Throw(Refusal(*reply), m_context);
    Throw(e, m_context);
  }
}

void CInternetFile::Close() {
  if (!m_connection) return;
  CFtpConnection* connection = m_connection;
  FtpControl* control = connection->m_control.get();
  ContextScope scope(connection->m_observer.get(), m_context);
  t_lastError = 0;
  try {
    if (m_writing && m_data) {
      Flush();
      m_data->ShutdownWrite();
      m_data.reset();
      control->FinishTransfer();
    } else if (m_writing) {
      // A failed write: the server's end reply (426 or so) is of no use.
      control->AbandonTransfer();
    } else if (!m_atEnd) {
      // Closed before the end: dropping the data connection makes the
      // server stop sending and answer with its end reply.
      m_data.reset();
      control->AbandonTransfer();
    }
  } catch (const CInternetException&) {
    // The last flush failed and said so in the thread's last error.
    control->AbandonTransfer();
  } catch (const NetError& e) {
    Record(e);
    m_data.reset();
    if (e.code != kErrExtended) control->AbandonTransfer();
  }
  // A failure held back behind the last bytes read is the transfer's
  // outcome.
  if (m_pendingError != 0) t_lastError = std::exchange(m_pendingError, 0);
  m_connection = nullptr;
  m_atEnd = true;
  connection->m_busy = false;
  connection->m_openFile = nullptr;
  if (connection->m_session) connection->m_session->Report(INTERNET_STATUS_HANDLE_CLOSING, {}, m_context);
}

// ---- CFtpFileFind

namespace {
ListingLimits g_listingLimits;
}  // namespace

void CFtpFileFind::SetLimitsForTesting(const ListingLimits& limits) { g_listingLimits = limits; }

CFtpFileFind::CFtpFileFind(CFtpConnection* connection, uintptr_t context)
    : m_connection(connection), m_context(context) {}

CFtpFileFind::~CFtpFileFind() { Close(); }

bool CFtpFileFind::FindFile(const wchar_t* pattern, uint32_t) {
  Close();
  Clear();
  if (!m_connection) {
    Record(NetError(kErrCancelled, "no connection"));
    return false;
  }
  ContextScope scope(m_connection->m_observer.get(), m_context);
  // One "now" for the whole listing, so every year-less date in it is
  // resolved alike.
  ListClock clock{static_cast<int64_t>(std::time(nullptr))};
  std::wstring mask = pattern ? pattern : L"";
  bool everything = mask.empty() || mask == L"*" || mask == L"*.*";
  bool mlsd = false;
  FtpListEntry entry;  // one for every line: its strings keep their capacity
  const ListingLimits limits = g_listingLimits;
  ListLineReader listReader(clock);
  auto parseLine = [&](std::string_view line) {
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (line.empty()) return;
    if (mlsd) {
      // cdir and pdir come back as "." and "..", dropped below.
      if (!ParseMlsdLine(line, entry)) return;
    } else if (!listReader.Parse(line, entry)) {
      return;
    }
    // By length first: comparing every name with "." and ".." as strings
    // was a visible share of a long listing.
    const std::string& name = entry.name;
    if (name.empty() || (name[0] == '.' && (name.size() == 1 || (name.size() == 2 && name[1] == '.'))))
      return;
    if (!everything && !WildcardMatch(mask.c_str(), WireToWide(entry.name).c_str())) return;
    if (m_count == limits.entries) {
      throw NetError(kErrConnectionAborted,
                     "the listing holds more than " + std::to_string(limits.entries) + " entries");
    }
    Append(entry);
  };
  try {
    std::unique_ptr<Stream> data = m_connection->Use([&](FtpControl& c) {
      mlsd = c.HasMlsd();
      return c.StartTransfer(mlsd ? "MLSD" : "LIST", TransferType::Ascii);
    });
    // Use may have put a new connection in place of the one it started on.
    FtpControl* control = m_connection->m_control.get();
    try {
      // A large directory keeps the server busy before its first byte (a
      // quarter of a second for 100,000 names on vsftpd). That time makes
      // blocks ready, so that their first touch is not paid for while the
      // lines arrive and wait to be parsed.
      PrepareBlocksWhileIdle(data->NativeHandle());
      // Lines are parsed as they arrive, where they were received: only a
      // line cut by the end of a read is copied, to the front of the buffer.
      // The buffer holds the longest line allowed and more, so it never grows.
      std::vector<char> buffer(std::max<size_t>(128 * 1024, limits.lineBytes + 1));
      size_t held = 0;  // bytes of an unfinished line at the front
      uint64_t total = 0;
      for (;;) {
        if (held > limits.lineBytes) {
          throw NetError(kErrConnectionAborted,
                         "a listing line is longer than " + std::to_string(limits.lineBytes) + " bytes");
        }
        size_t n = data->ReadSome(buffer.data() + held, buffer.size() - held,
                                  Deadline::After(control->Timeouts().receiveMs));
        if (n == 0) break;
        total += n;
        if (total > limits.totalBytes) {
          throw NetError(kErrConnectionAborted,
                         "the listing is longer than " + std::to_string(limits.totalBytes) + " bytes");
        }
        const char* begin = buffer.data();
        const char* end = begin + held + n;
        const char* line = begin;
        // Only the new bytes can hold the next line feed.
        for (const char* from = begin + held;;) {
          const void* lf = std::memchr(from, '\n', static_cast<size_t>(end - from));
          if (!lf) break;
          const char* at = static_cast<const char*>(lf);
          parseLine(std::string_view(line, static_cast<size_t>(at - line)));
          line = from = at + 1;
        }
        held = static_cast<size_t>(end - line);
        if (line != begin) std::memmove(buffer.data(), line, held);
      }
      parseLine(std::string_view(buffer.data(), held));  // a last line without its line end
      m_spareBlocks.clear();
    } catch (const NetError& e) {
      data.reset();
      if (e.code != kErrExtended) control->AbandonTransfer();
      throw;
    } catch (const std::bad_alloc&) {
      // Within the bounds, yet more than this process can hold: the listing
      // is given up and the host goes on.
      Clear();
      data.reset();
      control->AbandonTransfer();
      throw NetError(kErrConnectionAborted, "not enough memory for the listing");
    }
    data.reset();
    control->FinishTransfer();
  } catch (const NetError& e) {
    Clear();
    Record(e);
    if (e.code == kErrExtended && IsNoFilesReply(e.what())) t_lastError = kErrNoMoreFiles;
    return false;
  }
  if (m_count == 0) {
    // Not a failure without a reply: the server's end reply stays the
    // last response.
    t_lastError = kErrNoMoreFiles;
    return false;
  }
  m_open = true;
  m_connection->m_busy = true;
  if (m_connection->m_session) m_connection->m_session->Report(INTERNET_STATUS_HANDLE_CREATED, {}, m_context);
  t_lastError = 0;
  return true;
}

bool CFtpFileFind::FindNextFile() {
  if (!m_open || m_next >= m_count) {
    t_lastError = kErrNoMoreFiles;
    return false;
  }
  DecodeNext();
  ++m_next;
  if (m_next < m_count) return true;
  // The last entry: the enumeration no longer holds the connection.
  if (m_connection) m_connection->m_busy = false;
  t_lastError = kErrNoMoreFiles;
  return false;
}

namespace {

constexpr size_t kMaxRecordHead = 1 + 3 * 10 + 10;  // flags, three numbers, a time

char* PutVarint(char* out, uint64_t value) {
  while (value >= 0x80) {
    *out++ = static_cast<char>((value & 0x7F) | 0x80);
    value >>= 7;
  }
  *out++ = static_cast<char>(value);
  return out;
}

const char* GetVarint(const char* in, uint64_t& value) {
  value = 0;
  for (int shift = 0;; shift += 7) {
    auto byte = static_cast<unsigned char>(*in++);
    value |= static_cast<uint64_t>(byte & 0x7F) << shift;
    if (byte < 0x80) return in;
  }
}

}  // namespace

void CFtpFileFind::Clear() {
  m_blocks.clear();
  m_spareBlocks.clear();
  m_capacity = 0;
  m_appendTime = 0;
  m_count = 0;
  m_next = 0;
  m_readBlock = 0;
  m_readOffset = 0;
  m_readTime = 0;
  m_current = {};
  m_unpackedIndex = 0;
}

void CFtpFileFind::PrepareBlocksWhileIdle(int dataFd) {
  while (m_spareBlocks.size() < kMaxSpareBlocks && !ReadableNow(dataFd)) {
    auto block = std::make_unique_for_overwrite<char[]>(kBlockSize);
    // Written once, so that the kernel supplies its pages now.
    std::memset(block.get(), 0, kBlockSize);
    m_spareBlocks.push_back(std::move(block));
  }
}

void CFtpFileFind::Append(const FtpListEntry& entry) {
  size_t bound = kMaxRecordHead + entry.name.size() + entry.linkTarget.size();
  if (m_blocks.empty() || m_capacity - m_blocks.back().used < bound) {
    // A record never spans two blocks; a huge one gets a block of its size.
    m_capacity = std::max(kBlockSize, bound);
    if (m_capacity == kBlockSize && !m_spareBlocks.empty()) {
      m_blocks.push_back({std::move(m_spareBlocks.back()), 0});
      m_spareBlocks.pop_back();
    } else {
      m_blocks.push_back({std::make_unique_for_overwrite<char[]>(m_capacity), 0});
    }
  }
  Block& block = m_blocks.back();
  char* p = block.bytes.get() + block.used;
  *p++ = static_cast<char>(static_cast<unsigned>(entry.kind) | (entry.mtime ? 4u : 0u));
  p = PutVarint(p, entry.size);
  p = PutVarint(p, entry.name.size());
  p = PutVarint(p, entry.linkTarget.size());
  if (entry.mtime) {
    // Zigzag, so that a small step back is a small number too.
    uint64_t step = static_cast<uint64_t>(*entry.mtime) - static_cast<uint64_t>(m_appendTime);
    p = PutVarint(p, (step << 1) ^ (0 - (step >> 63)));
    m_appendTime = *entry.mtime;
  }
  std::memcpy(p, entry.name.data(), entry.name.size());
  p += entry.name.size();
  std::memcpy(p, entry.linkTarget.data(), entry.linkTarget.size());
  p += entry.linkTarget.size();
  block.used = static_cast<size_t>(p - block.bytes.get());
  ++m_count;
}

void CFtpFileFind::DecodeNext() {
  if (m_readOffset == m_blocks[m_readBlock].used) {
    ++m_readBlock;
    m_readOffset = 0;
  }
  const char* start = m_blocks[m_readBlock].bytes.get() + m_readOffset;
  const char* p = start;
  unsigned flags = static_cast<unsigned char>(*p++);
  uint64_t size = 0, nameLength = 0, linkLength = 0;
  p = GetVarint(p, size);
  p = GetVarint(p, nameLength);
  p = GetVarint(p, linkLength);
  m_current.kind = static_cast<FtpListEntry::Kind>(flags & 3);
  m_current.size = size;
  if (flags & 4) {
    uint64_t zigzag = 0;
    p = GetVarint(p, zigzag);
    uint64_t step = (zigzag >> 1) ^ (0 - (zigzag & 1));
    m_readTime = static_cast<int64_t>(static_cast<uint64_t>(m_readTime) + step);
    m_current.mtime = m_readTime;
  } else {
    m_current.mtime.reset();
  }
  m_current.name = std::string_view(p, nameLength);
  p += nameLength;
  m_current.linkTarget = std::string_view(p, linkLength);
  p += linkLength;
  m_readOffset += static_cast<size_t>(p - start);
}

const FtpListEntryView* CFtpFileFind::Current() const {
  return m_next > 0 && m_next <= m_count ? &m_current : nullptr;
}

const FtpListEntryView& CFtpFileFind::GetEntryView() const {
  static const FtpListEntryView none;
  const FtpListEntryView* e = Current();
  return e ? *e : none;
}

const FtpListEntry& CFtpFileFind::GetEntry() const {
  static const FtpListEntry none;
  const FtpListEntryView* e = Current();
  if (!e) return none;
  if (m_unpackedIndex != m_next) {
    m_unpacked.name.assign(e->name);
    m_unpacked.linkTarget.assign(e->linkTarget);
    m_unpacked.kind = e->kind;
    m_unpacked.size = e->size;
    m_unpacked.mtime = e->mtime;
    m_unpackedIndex = m_next;
  }
  return m_unpacked;
}

std::wstring CFtpFileFind::GetFileName() const {
  const FtpListEntryView* e = Current();
  return e ? WireToWide(e->name) : std::wstring();
}
uint64_t CFtpFileFind::GetLength() const {
  const FtpListEntryView* e = Current();
  return e ? e->size : 0;
}
bool CFtpFileFind::IsDirectory() const {
  return Current() && Current()->kind == FtpListEntry::Kind::Directory;
}
bool CFtpFileFind::IsDots() const { return false; }

bool CFtpFileFind::GetLastWriteTime(uint64_t& fileTime) const {
  const FtpListEntryView* e = Current();
  constexpr int64_t kFileTimeEpochOffset = 11644473600;  // seconds from 1601 to 1970
  // Times a file time cannot hold are no time at all.
  constexpr int64_t kLatest = static_cast<int64_t>(UINT64_MAX / 10000000u) - kFileTimeEpochOffset;
  if (!e || !e->mtime || *e->mtime < -kFileTimeEpochOffset || *e->mtime > kLatest) return false;
  fileTime = static_cast<uint64_t>(*e->mtime + kFileTimeEpochOffset) * 10000000ull;
  return true;
}

bool CFtpFileFind::MatchesMask(uint32_t mask) const {
  const FtpListEntryView* e = Current();
  if (!e) return false;
  uint32_t attributes = FILE_ATTRIBUTE_NORMAL;
  if (e->kind == FtpListEntry::Kind::Directory) attributes = FILE_ATTRIBUTE_DIRECTORY;
  if (e->kind == FtpListEntry::Kind::Link) attributes = FILE_ATTRIBUTE_REPARSE_POINT;
  return (attributes & mask) != 0;
}

void CFtpFileFind::Close() {
  if (!m_open) return;
  m_open = false;
  if (m_connection) {
    if (m_next < m_count) m_connection->m_busy = false;
    if (m_connection->m_session)
      m_connection->m_session->Report(INTERNET_STATUS_HANDLE_CLOSING, {}, m_context);
  }
}

}  // namespace ftpzn::inet
