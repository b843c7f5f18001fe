// The FTP protocol over one control connection: login, commands, and data
// connections in passive or active mode. Internal to the engine; the public
// classes of inet.h wrap it. Texts here are bytes as on the wire.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "inet/netio.h"
#include "inet/reply.h"
#include "inet/tls.h"

namespace ftpzn::inet {

struct FtpTimeouts {
  uint32_t connectMs = 30000;
  uint32_t sendMs = 60000;
  uint32_t receiveMs = 60000;
};

// What the protocol code reports upwards: status codes of the session's
// status table, the dialogue for diagnosis, and each reply received.
class FtpObserver {
 public:
  virtual ~FtpObserver() = default;
  virtual void OnStatus(uint32_t status, const std::string& info) = 0;
  virtual void OnTrace(bool sent, const std::string& line) = 0;
  virtual void OnReply(const FtpReply& reply) = 0;
  // Whether to go on with a server whose certificate the system does not
  // trust (peer.problem says why); asked once per control connection.
  virtual bool AcceptCertificate(const TlsPeerInfo& peer) { return peer.problem == 0; }
};

enum class TransferType { Ascii, Binary };

class FtpControl {
 public:
  FtpControl(FtpObserver& observer, FtpTimeouts timeouts, bool passive, TlsMode tls = TlsMode::None)
      : m_observer(&observer), m_timeouts(timeouts), m_passive(passive), m_tls(tls) {}
  ~FtpControl();

  // Connects, reads the greeting, logs in and asks for the server's
  // features. Throws NetError (login refusals as 12013/12014/12015). With
  // TLS, the connection is encrypted before the login (a server that
  // refuses gives 12157: never a login in clear text), and so is every
  // data connection.
  void Open(const std::string& host, uint16_t port, const std::string& user, const std::string& password);
  // Sends one command and reads its final reply. A 421 reply, a time-out or
  // a closed connection leave the connection dropped; later calls fail
  // with 12111.
  FtpReply Command(const std::string& line);
  // Like Command, but a reply outside 2xx/3xx throws 12003.
  FtpReply Expect(const std::string& line);

  // Opens a data connection and sends `command` (RETR, STOR, LIST, MLSD);
  // returns the data stream once the server has accepted (1xx). A refusal
  // throws 12003.
  std::unique_ptr<Stream> StartTransfer(const std::string& command, TransferType type);
  // Reads the reply that ends a transfer, after the data stream was closed.
  void FinishTransfer();
  // Ends a transfer the client stopped early: the data stream is already
  // closed; the end reply is read and ignored, whatever it is.
  void AbandonTransfer();
  // After the data connection failed under a transfer: the server's end
  // reply if it comes within a moment (it explains the failure), else none.
  std::optional<FtpReply> EndReplyIfAny();

  // QUIT and close, without waiting for the goodbye: nothing is left to
  // learn from it.
  void Quit();
  // Reports go to `observer` from now on (a connection handed on).
  void Rebind(FtpObserver& observer) { m_observer = &observer; }
  // FEAT's answers are kept per server; with `reuse` a login to a server
  // whose answer is kept skips FEAT (what the server must hear, OPTS UTF8
  // ON, is still sent).
  void ReuseFeatures(bool reuse) { m_reuseFeatures = reuse; }
  // Sends the lines at once and reads their replies in order: a round trip
  // instead of one per command, for commands whose replies are not needed
  // to write the next one.
  std::vector<FtpReply> Pipeline(const std::vector<std::string>& lines);
  // True when nothing came from the server while the connection was idle
  // (no 421, no close): it can be handed on.
  bool IdleAndOpen();
  // Where the connection stands: the directory the login led to, or a
  // known absolute path, or (neither) somewhere a relative CWD led.
  bool AtLoginDirectory() const { return m_atLoginDirectory; }
  const std::optional<std::string>& KnownDirectory() const { return m_directory; }
  void DirectoryChanged(const std::string& to);
  bool Dropped() const { return !m_stream; }
  // Replies read so far: none since a connection was handed on means the
  // server has not yet shown it is still there.
  uint64_t RepliesRead() const { return m_repliesRead; }
  bool HasMlsd() const { return m_hasMlsd; }
  const FtpTimeouts& Timeouts() const { return m_timeouts; }
  TlsMode Tls() const { return m_tls; }
  // The control connection's TLS details (empty without TLS).
  const TlsPeerInfo& TlsPeer() const { return m_tlsPeer; }
  void SetTimeouts(FtpTimeouts t) { m_timeouts = t; }

 private:
  enum class PassiveCommand { Epsv, Pasv };
  enum class ActiveCommand { Eprt, Port };

  // How long a second reply to ABOR may take to show up when the first
  // one could have been either.
  static constexpr int kAbortGraceMs = 300;

  void Send(const std::string& line);
  // In one write.
  void SendLines(const std::vector<std::string>& lines);
  bool ReplyPending(int ms);
  FtpReply ReadReply();
  void Drop();
  void Login(const std::string& user, const std::string& password);
  void ReadFeatures();
  // The data connection's socket, and the host it went to. `type` is a
  // TYPE still owed to the server, sent with the first command (and
  // emptied then).
  Fd ConnectPassive(std::string& peerName, std::string& type);
  Fd ListenActive(std::string& type);
  void StartTls();
  std::unique_ptr<Stream> MakeDataStream(Fd fd, const std::string& peerName);
  // `line`, with `type` (when not empty) sent before it in one write.
  FtpReply CommandAfterType(std::string& type, const std::string& line);

  FtpObserver* m_observer;
  FtpTimeouts m_timeouts;
  bool m_passive;
  TlsMode m_tls;
  std::string m_host;  // as the user named it: the certificate must name it too
  std::shared_ptr<TlsResumption> m_resumption;
  TlsPeerInfo m_tlsPeer;
  std::unique_ptr<Stream> m_stream;
  std::unique_ptr<ReplyReader> m_reader;
  SocketAddress m_peer;
  SocketAddress m_local;
  PassiveCommand m_passiveCommand = PassiveCommand::Epsv;
  ActiveCommand m_activeCommand = ActiveCommand::Eprt;
  bool m_hasMlsd = false;
  bool m_hasUtf8 = false;
  bool m_typeKnown = false;
  TransferType m_type = TransferType::Binary;
  bool m_transferEnded = false;  // the end reply came with the first one
  bool m_reuseFeatures = false;
  uint64_t m_repliesRead = 0;
  bool m_atLoginDirectory = true;
  std::optional<std::string> m_directory;  // absolute, when known
  std::string m_serverKey;                 // host, port and TLS mode
};

// Forgets the features kept for every server (with the connection pool).
void ForgetServerFeatures();

enum class ReplyContext { Greeting, User, Password, Command };
// The error code for a reply that refused (or ended) what was asked.
uint32_t ErrorForReply(const FtpReply& reply, ReplyContext context);
// That error, with the reply as its text.
NetError Refusal(const FtpReply& reply, ReplyContext context = ReplyContext::Command);

// The IPv4 address and port in a 227 reply: the first run of six numbers
// of at most 255 each, wherever the server put them. False if none.
bool ParsePasvReply(const std::string& text, uint8_t address[4], uint16_t& port);
// The port of a 229 reply "(|||port|)". False if none.
bool ParseEpsvReply(const std::string& text, uint16_t& port);
// True for an IPv4 address a client cannot reach when its control
// connection goes to `peer` (0.0.0.0, or a private or loopback address
// while the server itself is elsewhere).
bool IsUnroutableFor(const uint8_t address[4], const SocketAddress& peer);

}  // namespace ftpzn::inet
