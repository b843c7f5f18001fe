// A scripted FTP server for faults real servers do not produce. Each step
// names the command the client must send next and what the server does:
// reply (optionally in small pieces), stay silent, close, or send half a
// line and close. Runs on 127.0.0.1 in a thread of its own; every wait in
// it is bounded.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

typedef struct ssl_st SSL;

namespace ftpzn::inet::fake {

struct Step {
  enum class Action { Reply, Silence, Close };
  // Prefix of the command the client must send; empty: act without waiting
  // for one (the greeting).
  std::string expect;
  Action action = Action::Reply;
  // Raw bytes sent (line ends included). "{P1},{P2}" and "{PORT}" name the
  // data listener's port, which exists from a step with `openData` on.
  std::string reply;
  size_t pieceSize = 0;  // send the reply in pieces of this many bytes
  bool openData = false;
  // After the reply: accept the client's data connection (passive) or
  // connect to the address of its PORT/EPRT (active), send this, close it.
  bool sendData = false;
  std::string data;
  // Silence on the data connection before `data`, as a server that builds
  // a long listing keeps.
  int dataPauseMs = 0;
  // The data in pieces of this many bytes with a pause between them: a
  // transfer that lasts, for cancelling it midway. 0: all at once.
  size_t dataPieceSize = 0;
  int dataPieceMs = 0;
  // Active mode: first connect to the client's port from this other local
  // address (say "127.0.0.2") and offer `data` there, as a stranger would.
  std::string activeFrom;
  // After `data`, close the control connection too (no end reply).
  bool closeAfterData = false;
  // Then send this reply (the end of the transfer) unless closed.
  std::string afterData;
  // After the reply, a TLS handshake as the server (a self-signed
  // certificate made at start): every later byte of the control connection
  // goes through TLS.
  bool startTls = false;
  // The data connection through TLS, ended with close_notify or (as an
  // attacker cutting it would) without.
  bool dataTls = false;
  bool dataCloseNotify = true;
};

Step Greet(std::string reply);
Step On(std::string expect, std::string reply);
// The usual login: greeting, USER, PASS, FEAT (no features).
std::vector<Step> Login();
// The same after AUTH TLS (answered with `authReply`), with PBSZ and PROT.
std::vector<Step> TlsLogin(std::string authReply = "234 go ahead\r\n");
std::vector<Step> Plus(std::vector<Step> a, const std::vector<Step>& b);
// Sends `bytes` (after `expect`, if any), then closes the connection.
Step CloseWith(std::string bytes, std::string expect = {});
// Says nothing (after `expect`, if any) until the client gives up.
Step Silence(std::string expect = {});
// A transfer command answered with 150, `data` on the data connection,
// then `end` (or a closed control connection when `end` is empty).
Step Transfer(std::string expect, std::string data, std::string end = "226 done\r\n");
// Passive mode, opening the data listener.
Step Epsv();
Step Pasv(std::string reply = "227 Entering Passive Mode (127,0,0,1,{P1},{P2})\r\n");

class FakeServer {
 public:
  explicit FakeServer(std::vector<Step> script);
  ~FakeServer();
  uint16_t Port() const { return m_port; }
  // Commands received so far, in order.
  std::vector<std::string> Received();
  // Waits (bounded) until the script has run out or the client left.
  void Finish();
  // A step that went wrong (unexpected command, data not accepted...).
  std::string Problem();

 private:
  void Run();
  void Serve(int control);
  // A connection to the client's PORT address, from `from` (empty: any).
  int ConnectActive(const std::string& from);
  void Note(const std::string& problem);

  std::vector<Step> m_script;
  int m_listener = -1;
  int m_dataListener = -1;
  uint16_t m_port = 0;
  std::atomic<bool> m_stop{false};
  std::mutex m_mutex;
  std::vector<std::string> m_received;
  std::string m_problem;
  std::string m_activeTarget;  // "host port" from PORT/EPRT
  SSL* m_controlTls = nullptr;
  std::thread m_thread;
};

}  // namespace ftpzn::inet::fake
