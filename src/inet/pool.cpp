#include "inet/pool.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace ftpzn::inet {

namespace {

// Long enough to bridge the gaps between the files of a folder, short
// enough that servers (which time idle sessions out after a minute or
// more) and users are not kept waiting on them.
constexpr std::chrono::milliseconds kIdleTime{15000};
// No server likes many sessions of one user; the workers run one or a few
// at a time.
constexpr size_t kPerServer = 4;

// A pooled connection reports to no one.
class Silent : public FtpObserver {
 public:
  void OnStatus(uint32_t, const std::string&) override {}
  void OnTrace(bool, const std::string&) override {}
  void OnReply(const FtpReply&) override {}
};

Silent g_silent;

using Clock = std::chrono::steady_clock;

}  // namespace

struct ConnectionPool::State {
  struct Entry {
    PoolKey key;
    std::unique_ptr<FtpControl> control;
    Clock::time_point until;
  };
  std::mutex mutex;
  std::condition_variable wake;
  std::vector<Entry> entries;  // oldest first
  std::thread reaper;
  bool stopping = false;
};

ConnectionPool& ConnectionPool::Instance() {
  static ConnectionPool pool;
  return pool;
}

ConnectionPool::ConnectionPool() : m_state(std::make_unique<State>()) {}

ConnectionPool::~ConnectionPool() {
  State& s = Shared();
  {
    std::lock_guard lock(s.mutex);
    s.stopping = true;
  }
  s.wake.notify_all();
  if (s.reaper.joinable()) s.reaper.join();
  // At the process's exit the TLS library and the feature cache may be
  // gone already: what is left is let go unclosed, and the system closes
  // the sockets. The module says goodbye properly when it is unloaded.
  for (auto& e : s.entries) (void)e.control.release();
}

std::unique_ptr<FtpControl> ConnectionPool::Take(const PoolKey& key,
                                                 const std::function<bool(const FtpControl&)>& accept) {
  State& s = Shared();
  for (int guard = 0; guard < 64; ++guard) {
    std::unique_ptr<FtpControl> found;
    {
      std::lock_guard lock(s.mutex);
      for (auto it = s.entries.rbegin(); it != s.entries.rend(); ++it) {
        if (it->key == key && accept(*it->control)) {
          found = std::move(it->control);
          s.entries.erase(std::next(it).base());
          break;
        }
      }
    }
    if (!found) return nullptr;
    // One the server closed (or sent 421 to) while it waited is dropped
    // without a word and the next one tried.
    if (found->IdleAndOpen()) return found;
  }
  return nullptr;
}

void ConnectionPool::Give(const PoolKey& key, std::unique_ptr<FtpControl> control) {
  if (!control || !control->IdleAndOpen()) return;
  control->Rebind(g_silent);
  State& s = Shared();
  std::unique_ptr<FtpControl> evicted;
  {
    std::lock_guard lock(s.mutex);
    if (s.stopping) return;
    size_t same = 0;
    for (const auto& e : s.entries) same += e.key.host == key.host && e.key.port == key.port;
    if (same >= kPerServer) {
      for (auto it = s.entries.begin(); it != s.entries.end(); ++it) {
        if (it->key.host == key.host && it->key.port == key.port) {
          evicted = std::move(it->control);
          s.entries.erase(it);
          break;
        }
      }
    }
    s.entries.push_back({key, std::move(control), Clock::now() + kIdleTime});
    if (!s.reaper.joinable()) s.reaper = std::thread([this] { Reap(); });
  }
  s.wake.notify_all();
  if (evicted) evicted->Quit();
}

void ConnectionPool::Reap() {
  State& s = Shared();
  std::unique_lock lock(s.mutex);
  while (!s.stopping) {
    if (s.entries.empty()) {
      s.wake.wait(lock);
      continue;
    }
    const Clock::time_point next = s.entries.front().until;
    if (Clock::now() < next) {
      s.wake.wait_until(lock, next);
      continue;
    }
    std::vector<std::unique_ptr<FtpControl>> expired;
    const Clock::time_point now = Clock::now();
    for (auto it = s.entries.begin(); it != s.entries.end();) {
      if (it->until <= now) {
        expired.push_back(std::move(it->control));
        it = s.entries.erase(it);
      } else {
        ++it;
      }
    }
    lock.unlock();
    for (auto& control : expired) control->Quit();
    lock.lock();
  }
}

void ConnectionPool::Empty() {
  State& s = Shared();
  std::vector<State::Entry> all;
  {
    std::lock_guard lock(s.mutex);
    all.swap(s.entries);
  }
  for (auto& e : all) e.control->Quit();
  ForgetServerFeatures();
}

size_t ConnectionPool::Size() {
  State& s = Shared();
  std::lock_guard lock(s.mutex);
  return s.entries.size();
}


}  // namespace ftpzn::inet
