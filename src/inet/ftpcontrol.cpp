#include "inet/ftpcontrol.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <map>
#include <mutex>
#include <utility>

namespace ftpzn::inet {

namespace {

enum Status : uint32_t {
  kResolving = 10,
  kResolved = 11,
  kConnecting = 20,
  kConnected = 21,
  kSending = 30,
  kSent = 31,
  kReceiving = 40,
  kReceived = 41,
  kClosing = 50,
  kClosed = 51,
};

std::string Upper(std::string s) {
  for (char& c : s) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
  return s;
}

bool IsPrivate(const uint8_t a[4]) {
  return a[0] == 10 || (a[0] == 172 && (a[1] & 0xF0) == 16) || (a[0] == 192 && a[1] == 168) ||
         (a[0] == 169 && a[1] == 254) || (a[0] == 100 && (a[1] & 0xC0) == 64);
}

// The data of a transfer the server ended without connecting.
class EmptyStream : public Stream {
 public:
  size_t ReadSome(void*, size_t, const Deadline&) override { return 0; }
  void WriteAll(const void*, size_t, const Deadline&) override {
    throw NetError(kErrConnectionAborted, "the server ended the transfer");
  }
  void ShutdownWrite() override {}
  int NativeHandle() const override { return -1; }
};

struct ServerFeatures {
  bool mlsd = false;
  bool utf8 = false;
};

// What FEAT said, by server, for the logins that reuse it.
struct FeatureCache {
  std::mutex mutex;
  std::map<std::string, ServerFeatures> servers;
};

FeatureCache& Features() {
  static FeatureCache cache;
  return cache;
}

}  // namespace

void ForgetServerFeatures() {
  FeatureCache& cache = Features();
  std::lock_guard lock(cache.mutex);
  cache.servers.clear();
}

// The one mapping from a server's reply to the engine's error codes. A 421
// ("closing control connection") is a lost connection whatever was asked;
// during login the step that was refused tells which part of the login was
// wrong; any other refusal is "see the server's reply" (12003).
uint32_t ErrorForReply(const FtpReply& reply, ReplyContext context) {
  if (reply.code == 421) return kErrConnectionAborted;
  switch (context) {
    case ReplyContext::Greeting:
      return kErrLoginFailed;
    case ReplyContext::User:
      return kErrLoginUser;
    case ReplyContext::Password:
      // 332 wants ACCT, which no site profile carries.
      return reply.code == 530 ? kErrLoginPassword : kErrLoginFailed;
    case ReplyContext::Command:
      break;
  }
  return kErrExtended;
}

NetError Refusal(const FtpReply& reply, ReplyContext context) {
  return NetError(ErrorForReply(reply, context), reply.Text());
}

bool ParsePasvReply(const std::string& text, uint8_t address[4], uint16_t& port) {
  // Servers write "227 Entering Passive Mode (h1,h2,h3,h4,p1,p2)" with or
  // without parentheses, some with text after it: take the first run of six
  // comma-separated numbers after the code.
  auto digit = [&](size_t i) { return i < text.size() && isdigit(static_cast<unsigned char>(text[i])); };
  for (size_t i = text.size() > 3 ? 4 : text.size(); i < text.size(); ++i) {
    if (!digit(i) || digit(i - 1)) continue;
    unsigned values[6];
    size_t j = i;
    int count = 0;
    while (count < 6 && digit(j)) {
      unsigned v = 0;
      size_t begin = j;
      while (digit(j) && j - begin < 4) v = v * 10 + static_cast<unsigned>(text[j++] - '0');
      if (v > 255 || digit(j)) break;
      values[count++] = v;
      if (count < 6) {
        if (j >= text.size() || text[j] != ',') break;
        ++j;
      }
    }
    if (count == 6) {
      for (int k = 0; k < 4; ++k) address[k] = static_cast<uint8_t>(values[k]);
      port = static_cast<uint16_t>(values[4] * 256 + values[5]);
      return true;
    }
  }
  return false;
}

bool ParseEpsvReply(const std::string& text, uint16_t& port) {
  size_t open = text.find('(');
  if (open == std::string::npos || open + 4 >= text.size()) return false;
  char d = text[open + 1];
  if (d < 33 || d > 126 || text[open + 2] != d || text[open + 3] != d) return false;
  size_t i = open + 4;
  unsigned v = 0;
  size_t digits = 0;
  while (i < text.size() && isdigit(static_cast<unsigned char>(text[i])) && digits < 6) {
    v = v * 10 + static_cast<unsigned>(text[i] - '0');
    ++i, ++digits;
  }
  if (digits == 0 || v == 0 || v > 65535 || i >= text.size() || text[i] != d) return false;
  port = static_cast<uint16_t>(v);
  return true;
}

bool IsUnroutableFor(const uint8_t address[4], const SocketAddress& peer) {
  if (address[0] == 0) return true;
  if (peer.Family() != AF_INET) return true;
  uint8_t p[4];
  std::memcpy(p, &reinterpret_cast<const sockaddr_in&>(peer.storage).sin_addr, 4);
  if (std::memcmp(p, address, 4) == 0) return false;
  // A server behind NAT names its inside address, and one on this host may
  // name any of its own: the address the client reached it at is the one
  // that works. Inside the same private network the server's word holds.
  if (p[0] == 127 || address[0] == 127) return true;
  return IsPrivate(address) && !IsPrivate(p);
}

FtpControl::~FtpControl() = default;

void FtpControl::Drop() {
  if (!m_stream) return;
  m_observer->OnStatus(kClosing, {});
  m_reader.reset();
  m_stream.reset();
  m_observer->OnStatus(kClosed, {});
}

void FtpControl::Send(const std::string& line) { SendLines({line}); }

void FtpControl::SendLines(const std::vector<std::string>& lines) {
  if (!m_stream) throw NetError(kErrSessionDropped, "the connection to the server was lost");
  std::string wire;
  for (const std::string& line : lines) {
    // A line end inside a name would let it smuggle a second command; a NUL
    // would cut the name short on most servers.
    if (line.find_first_of(std::string_view("\r\n\0", 3)) != std::string::npos) {
      throw NetError(kErrExtended, "a name or command contains a line break or a NUL byte");
    }
    wire += line + "\r\n";
  }
  for (const std::string& line : lines)
    m_observer->OnTrace(true, line.compare(0, 5, "PASS ") == 0 ? "PASS ****" : line);
  m_observer->OnStatus(kSending, {});
  try {
    m_stream->WriteAll(wire.data(), wire.size(), Deadline::After(m_timeouts.sendMs));
  } catch (const NetError&) {
    Drop();
    throw;
  }
  m_observer->OnStatus(kSent, {});
}

FtpReply FtpControl::ReadReply() {
  if (!m_stream) throw NetError(kErrSessionDropped, "the connection to the server was lost");
  m_observer->OnStatus(kReceiving, {});
  FtpReply reply;
  try {
    reply = m_reader->Read(Deadline::After(m_timeouts.receiveMs));
  } catch (const NetError&) {
    // After a time-out or damage, the next bytes cannot be matched to a
    // command any more: the connection is done.
    Drop();
    throw;
  }
  ++m_repliesRead;
  for (const auto& line : reply.lines) m_observer->OnTrace(false, line);
  m_observer->OnStatus(kReceived, {});
  m_observer->OnReply(reply);
  if (reply.code == 421) {
    // "Service not available, closing control connection": in any state.
    Drop();
    throw Refusal(reply);
  }
  return reply;
}

FtpReply FtpControl::Command(const std::string& line) {
  Send(line);
  FtpReply reply = ReadReply();
  // A preliminary reply to a command without data is unusual but legal.
  for (int i = 0; i < 8 && reply.Preliminary(); ++i) reply = ReadReply();
  return reply;
}

FtpReply FtpControl::Expect(const std::string& line) {
  FtpReply reply = Command(line);
  if (!reply.Positive()) throw Refusal(reply);
  return reply;
}

void FtpControl::Open(const std::string& host, uint16_t port, const std::string& user,
                      const std::string& password) {
  m_observer->OnStatus(kResolving, host);
  std::vector<SocketAddress> addresses = Resolve(host, port);
  m_observer->OnStatus(kResolved, addresses.front().Host());
  m_observer->OnStatus(kConnecting, {});
  Fd fd;
  Deadline deadline = Deadline::After(m_timeouts.connectMs);
  for (size_t i = 0; i < addresses.size(); ++i) {
    try {
      fd = ConnectTo(addresses[i], deadline);
      break;
    } catch (const NetError&) {
      if (i + 1 == addresses.size()) throw;
    }
  }
  m_observer->OnStatus(kConnected, {});
  m_peer = PeerAddress(fd.Get());
  m_local = LocalAddress(fd.Get());
  m_host = host.size() > 2 && host.front() == '[' && host.back() == ']' ? host.substr(1, host.size() - 2) : host;
  m_serverKey = m_host + " " + std::to_string(port) + " " + std::to_string(static_cast<int>(m_tls));
  m_stream = std::make_unique<SocketStream>(std::move(fd), host);
  m_reader = std::make_unique<ReplyReader>(*m_stream);
  if (m_tls != TlsMode::None) {
    m_resumption = std::make_shared<TlsResumption>(m_host + " " + std::to_string(port));
    if (m_tls == TlsMode::Implicit) StartTls();
  }

  FtpReply greeting = ReadReply();
  for (int i = 0; i < 8 && greeting.Preliminary(); ++i) greeting = ReadReply();  // "120 ready in n minutes"
  if (greeting.Class() != 2) {
    Drop();
    throw Refusal(greeting, ReplyContext::Greeting);
  }
  if (m_tls == TlsMode::Explicit) {
    FtpReply reply = Command("AUTH TLS");
    if (reply.code != 234) {
      // Never on in clear text: the user asked for TLS.
      Drop();
      throw NetError(kErrSecureChannel, "the server refused TLS: " + reply.Text());
    }
    StartTls();
  }
  Login(user, password);
  if (m_tls != TlsMode::None) {
    // No buffer size on a stream; and the data connections are protected.
    Expect("PBSZ 0");
    Expect("PROT P");
  }
  ReadFeatures();
}

void FtpControl::StartTls() {
  // Whatever came after "234" in clear text is dropped with the reader: an
  // attacker on the path could have put replies there for the client to
  // take as coming from inside TLS.
  m_reader.reset();
  Fd fd = static_cast<SocketStream&>(*m_stream).ReleaseFd();
  m_stream.reset();
  std::unique_ptr<TlsStream> tls;
  try {
    tls = TlsStream::Connect(std::move(fd), m_host, m_resumption, Deadline::After(m_timeouts.connectMs));
  } catch (const NetError&) {
    Drop();
    throw;
  }
  m_tlsPeer = tls->Peer();
  m_stream = std::move(tls);
  m_reader = std::make_unique<ReplyReader>(*m_stream);
  if (m_tlsPeer.problem != 0 && !m_observer->AcceptCertificate(m_tlsPeer)) {
    Drop();
    throw NetError(m_tlsPeer.problem, "the certificate of " + m_host + " is not trusted: " + m_tlsPeer.problemText +
                                          " (SHA-256 " + m_tlsPeer.fingerprint + ")");
  }
}

void FtpControl::Login(const std::string& user, const std::string& password) {
  FtpReply reply = Command("USER " + user);
  if (reply.Class() == 2) return;  // no password needed
  if (reply.code != 331 && reply.code != 332) throw Refusal(reply, ReplyContext::User);
  reply = Command("PASS " + password);
  if (reply.Class() == 2) return;
  throw Refusal(reply, ReplyContext::Password);
}

void FtpControl::ReadFeatures() {
  bool known = false;
  if (m_reuseFeatures) {
    FeatureCache& cache = Features();
    std::lock_guard lock(cache.mutex);
    if (auto it = cache.servers.find(m_serverKey); it != cache.servers.end()) {
      m_hasMlsd = it->second.mlsd;
      m_hasUtf8 = it->second.utf8;
      known = true;
    }
  }
  if (!known) {
    FtpReply reply = Command("FEAT");
    if (reply.code == 211) {  // else FEAT unknown: plain RFC 959 server
      for (size_t i = 1; i + 1 < reply.lines.size(); ++i) {
        std::string feature = Upper(reply.lines[i]);
        size_t start = feature.find_first_not_of(' ');
        if (start == std::string::npos) continue;
        feature.erase(0, start);
        std::string name = feature.substr(0, feature.find(' '));
        if (name == "MLST") m_hasMlsd = true;
        if (name == "UTF8") m_hasUtf8 = true;
      }
    }
    // Kept whoever asked: the browsing connection's answer spares the
    // first worker its FEAT.
    FeatureCache& cache = Features();
    std::lock_guard lock(cache.mutex);
    cache.servers[m_serverKey] = {m_hasMlsd, m_hasUtf8};
  }
  if (m_hasUtf8) Command("OPTS UTF8 ON");  // names are UTF-8 either way; some servers need to hear it
}

std::unique_ptr<Stream> FtpControl::MakeDataStream(Fd fd, const std::string& peerName) {
  if (m_tls == TlsMode::None) return std::make_unique<SocketStream>(std::move(fd), peerName);
  // The client is the TLS client of every data connection, active or
  // passive, and resumes the control connection's session.
  auto tls = TlsStream::Connect(std::move(fd), m_host, m_resumption, Deadline::After(m_timeouts.connectMs));
  if (tls->Peer().fingerprint != m_tlsPeer.fingerprint) {
    throw NetError(kErrCertUntrusted, "the data connection of " + m_host +
                                          " showed another certificate than its control connection");
  }
  return tls;
}

Fd FtpControl::ConnectPassive(std::string& peerName, std::string& type) {
  Deadline deadline = Deadline::After(m_timeouts.connectMs);
  if (m_passiveCommand == PassiveCommand::Epsv) {
    FtpReply reply = CommandAfterType(type, "EPSV");
    uint16_t port = 0;
    if (reply.code == 229 && ParseEpsvReply(reply.Text(), port)) {
      SocketAddress target = m_peer;
      target.SetPort(port);
      peerName = target.Host();
      return ConnectTo(target, deadline);
    }
    // PASV speaks IPv4 only; over IPv6 there is nothing to fall back to.
    if (reply.Class() != 5 || m_peer.Family() != AF_INET) throw Refusal(reply);
    m_passiveCommand = PassiveCommand::Pasv;
  }
  FtpReply reply = CommandAfterType(type, "PASV");
  uint8_t address[4];
  uint16_t port = 0;
  if (reply.code != 227 || !ParsePasvReply(reply.lines.front(), address, port)) {
    throw Refusal(reply);
  }
  SocketAddress target = m_peer;
  if (!IsUnroutableFor(address, m_peer)) {
    auto& in = reinterpret_cast<sockaddr_in&>(target.storage);
    std::memcpy(&in.sin_addr, address, 4);
  }
  target.SetPort(port);
  peerName = target.Host();
  return ConnectTo(target, deadline);
}

Fd FtpControl::ListenActive(std::string& type) {
  Fd listener = ListenOn(m_local);
  SocketAddress bound = LocalAddress(listener.Get());
  if (m_activeCommand == ActiveCommand::Eprt) {
    std::string family = bound.Family() == AF_INET6 ? "2" : "1";
    FtpReply reply =
        CommandAfterType(type, "EPRT |" + family + "|" + bound.Host() + "|" + std::to_string(bound.Port()) + "|");
    if (reply.Class() == 2) return listener;
    if (reply.Class() != 5 || bound.Family() != AF_INET) throw Refusal(reply);
    m_activeCommand = ActiveCommand::Port;
  }
  std::string host = bound.Host();
  for (char& c : host) {
    if (c == '.') c = ',';
  }
  FtpReply port = CommandAfterType(type, "PORT " + host + "," + std::to_string(bound.Port() >> 8) + "," +
                                   std::to_string(bound.Port() & 0xFF));
  if (!port.Positive()) throw Refusal(port);
  return listener;
}

std::unique_ptr<Stream> FtpControl::StartTransfer(const std::string& command, TransferType type) {
  // Sent with the data connection's command, not on its own.
  std::string owedType;
  if (!m_typeKnown || m_type != type) owedType = type == TransferType::Binary ? "TYPE I" : "TYPE A";
  Fd data;
  std::string peerName = m_peer.Host();
  Fd listener;
  if (m_passive) {
    data = ConnectPassive(peerName, owedType);
  } else {
    listener = ListenActive(owedType);
  }
  m_type = type;
  m_typeKnown = true;
  Send(command);
  FtpReply reply = ReadReply();
  if (reply.Class() >= 4) throw Refusal(reply);
  // Some servers answer a transfer of nothing with the end reply at once.
  m_transferEnded = !reply.Preliminary();
  if (!data) {
    // A server that has already ended the transfer may never connect.
    Deadline deadline = Deadline::After(m_transferEnded ? kAbortGraceMs : m_timeouts.connectMs);
    try {
      data = AcceptFrom(listener.Get(), m_peer, deadline);
    } catch (const NetError&) {
      if (!m_transferEnded) throw;
      return std::make_unique<EmptyStream>();
    }
  }
  // Over TLS the server starts its side of the handshake only after its
  // preliminary reply; one that ended the transfer at once has nothing to
  // protect.
  if (m_transferEnded && m_tls != TlsMode::None) return std::make_unique<EmptyStream>();
  try {
    return MakeDataStream(std::move(data), peerName);
  } catch (const NetError&) {
    AbandonTransfer();
    throw;
  }
}

void FtpControl::FinishTransfer() {
  if (m_transferEnded) return;
  FtpReply reply = ReadReply();
  for (int i = 0; i < 8 && reply.Preliminary(); ++i) reply = ReadReply();
  if (!reply.Positive()) throw Refusal(reply);
}

void FtpControl::AbandonTransfer() {
  if (m_transferEnded || !m_stream) return;
  try {
    // Some servers (pure-ftpd) do not notice a data connection closed under
    // them and would wait forever: ABOR tells them. Replies differ: vsftpd
    // and proftpd end the transfer (426) and then answer ABOR (225/226);
    // pure-ftpd answers ABOR alone; a transfer that had finished ends with
    // 226 before ABOR's answer.
    Send("ABOR");
    auto finalReply = [&] {
      FtpReply reply = ReadReply();
      for (int i = 0; i < 8 && reply.Preliminary(); ++i) reply = ReadReply();
      return reply;
    };
    FtpReply first = finalReply();
    if (first.Class() != 2 || ReplyPending(kAbortGraceMs)) finalReply();
  } catch (const NetError&) {
    // Dropped already; nothing else to clean up.
  }
}

std::optional<FtpReply> FtpControl::EndReplyIfAny() {
  if (m_transferEnded || !m_stream || !ReplyPending(kAbortGraceMs)) return std::nullopt;
  FtpReply reply = ReadReply();
  for (int i = 0; i < 8 && reply.Preliminary(); ++i) reply = ReadReply();
  m_transferEnded = true;
  return reply;
}

bool FtpControl::ReplyPending(int ms) {
  return m_reader->HasBuffered() || m_stream->WaitReadable(ms);
}

void FtpControl::Quit() {
  if (!m_stream) return;
  try {
    Send("QUIT");
  } catch (const NetError&) {
    // The server may already be gone; closing is all that is left.
  }
  Drop();
}

FtpReply FtpControl::CommandAfterType(std::string& type, const std::string& line) {
  if (type.empty()) return Command(line);
  std::vector<FtpReply> replies = Pipeline({std::exchange(type, {}), line});
  if (!replies[0].Positive()) throw Refusal(replies[0]);
  return replies[1];
}

std::vector<FtpReply> FtpControl::Pipeline(const std::vector<std::string>& lines) {
  SendLines(lines);
  std::vector<FtpReply> replies;
  for (size_t i = 0; i < lines.size(); ++i) {
    FtpReply reply = ReadReply();
    for (int k = 0; k < 8 && reply.Preliminary(); ++k) reply = ReadReply();
    replies.push_back(std::move(reply));
  }
  return replies;
}

bool FtpControl::IdleAndOpen() {
  if (!m_stream || m_reader->HasBuffered()) return false;
  // Anything readable now is a 421, an end or garbage: not a connection to
  // hand on.
  return !m_stream->WaitReadable(0);
}

void FtpControl::DirectoryChanged(const std::string& to) {
  m_atLoginDirectory = false;
  if (!to.empty() && to[0] == '/')
    m_directory = to;
  else
    m_directory.reset();
}

}  // namespace ftpzn::inet
