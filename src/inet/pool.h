// Logged-in control connections kept for a short while after their user
// closed them, so that the next connection to the same server with the same
// login takes one instead of connecting and logging in again: a folder of
// small files costs one login, not one a file. Internal to the engine.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "inet/ftpcontrol.h"

namespace ftpzn::inet {

// What a pooled connection must match exactly to be handed on.
struct PoolKey {
  std::string host;
  uint16_t port = 0;
  std::string user;
  std::string password;
  bool passive = true;
  TlsMode tls = TlsMode::None;
  bool operator==(const PoolKey&) const = default;
};

class ConnectionPool {
 public:
  static ConnectionPool& Instance();

  // A kept connection for `key` that `accept` takes (it sees the
  // connection's TLS details), the newest first; null when there is none.
  // It is the caller's alone from now on.
  std::unique_ptr<FtpControl> Take(const PoolKey& key, const std::function<bool(const FtpControl&)>& accept);
  // Keeps `control` for the idle time, at most a few per server (the oldest
  // goes first). Its reports go nowhere meanwhile.
  void Give(const PoolKey& key, std::unique_ptr<FtpControl> control);
  // Says goodbye to every kept connection, and forgets what the servers'
  // FEAT said.
  void Empty();
  size_t Size();

  ~ConnectionPool();

 private:
  ConnectionPool();
  struct State;
  State& Shared() { return *m_state; }
  void Reap();
  std::unique_ptr<State> m_state;
};

}  // namespace ftpzn::inet
