// What the transfer tests share: files on disk, the servers' tree, and a
// sink that records what a worker posts.
#pragma once

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "ftp_servers.h"
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

struct SampleFile {
  const char* name;  // UTF-8
  size_t size;
};
inline const SampleFile kSampleFiles[] = {{"empty.bin", 0},
                                          {"block.bin", 4096},
                                          {"ten.bin", 10 << 20},
                                          {"name with spaces \xc3\xa9\xe6\x97\xa5.txt", 5000}};

// One server of a kind for the binary, over a tree every test shares:
// /pub with the sample files, /up for uploads, and trees for the walks.
// With TLS, the test CA becomes the process's trust store.
inline testing::SharedFtpServer& TransferServer(testing::FtpServerKind kind, testing::FtpTlsOptions tls = {}) {
  if (tls.mode != testing::FtpTlsMode::None) {
    // A failure shows as the server's or the handshake's.
    std::string error;
    testing::TrustTestCertificates(error);
  }
  return testing::SharedServer(kind, "ftpzn-xfer-", [](const std::string& root) {
    namespace fs = std::filesystem;
    fs::create_directories(root + "/pub");
    fs::create_directories(root + "/up");
    unsigned seed = 1;
    for (const SampleFile& f : kSampleFiles) WriteBytes(root + "/pub/" + f.name, RandomBytes(f.size, seed++));
    WriteBytes(root + "/pub/a.bin", RandomBytes(70000, 100));
    WriteBytes(root + "/pub/b.bin", RandomBytes(5, 101));
    // For the commands: two files, a small tree, and one of many folders.
    fs::create_directories(root + "/cmd/d/sub");
    WriteBytes(root + "/cmd/f1.txt", "first file");
    WriteBytes(root + "/cmd/f2.txt", "second file");
    WriteBytes(root + "/cmd/d/g.txt", RandomBytes(9000, 102));
    WriteBytes(root + "/cmd/d/sub/h.txt", "h");
    for (int i = 0; i < 1500; ++i) {
      const std::string folder = root + "/cmd/many/d" + std::to_string(i);
      fs::create_directories(folder);
      WriteBytes(folder + "/file.txt", "x");
    }
    fs::create_directories(root + "/tree/x/y");
    WriteBytes(root + "/tree/x/b.bin", "bbbb");
    WriteBytes(root + "/tree/x/y/c.txt", "cc");
    // A file of 5,000,000,000 bytes that takes no room.
    WriteBytes(root + "/tree/big.bin", "");
    fs::resize_file(root + "/tree/big.bin", 5000000000ULL);
    fs::create_directories(root + "/holes/zz");
    WriteBytes(root + "/holes/a.txt", "a");
    // Cut by the expansion's trim, "q.." becomes ".." below /q.
    fs::create_directories(root + "/q/q..");
    WriteBytes(root + "/q/q../escape.txt", "e");
    WriteBytes(root + "/q/stay.txt", "s");
  }, tls);
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
