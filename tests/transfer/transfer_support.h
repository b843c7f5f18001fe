// What the transfer tests share: files on disk and a sink that records
// what a worker posts.
#pragma once

#include <chrono>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "transfer/threadftp.h"

namespace ftpzn::test {

inline std::string ReadBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

inline void WriteBytes(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

inline std::string RandomBytes(size_t size, unsigned seed) {
  std::mt19937 rng(seed);
  std::string s(size, '\0');
  for (char& c : s) c = static_cast<char>(rng());
  return s;
}

class RecordingSink : public TransferSink {
 public:
  void PostProgress(CThreadFtp& worker, uint64_t bytes) override {
    std::lock_guard lock(m_mutex);
    m_lines.push_back(worker.ProgressLine(bytes));
    ++m_progress;
    m_condition.notify_all();
  }
  void PostStatus(CThreadFtp&, const wxString& text) override {
    std::lock_guard lock(m_mutex);
    m_lines.push_back(text);
  }
  void PostEnd(CThreadFtp&, TransferMessage message) override {
    std::lock_guard lock(m_mutex);
    m_end = message;
    m_condition.notify_all();
  }
  // Whether the end came within `ms`.
  bool WaitEnd(int ms) {
    std::unique_lock lock(m_mutex);
    return m_condition.wait_for(lock, std::chrono::milliseconds(ms), [this] { return m_end.has_value(); });
  }
  bool WaitProgress(int ms) {
    std::unique_lock lock(m_mutex);
    return m_condition.wait_for(lock, std::chrono::milliseconds(ms), [this] { return m_progress > 0; });
  }
  std::vector<wxString> Lines() {
    std::lock_guard lock(m_mutex);
    return m_lines;
  }
  size_t ProgressCount() {
    std::lock_guard lock(m_mutex);
    return m_progress;
  }
  std::optional<TransferMessage> End() {
    std::lock_guard lock(m_mutex);
    return m_end;
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_condition;
  std::vector<wxString> m_lines;
  size_t m_progress = 0;
  std::optional<TransferMessage> m_end;
};

}  // namespace ftpzn::test
