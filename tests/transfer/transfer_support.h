// What the transfer tests share: files on disk, the servers' tree, and a
// sink that records what a worker posts.
#pragma once

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "ftp_servers.h"
#include "transfer/threadftp.h"

namespace ftpzn::test {

inline std::string ReadBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

inline void WriteBytes(const std::string& path, const std::string& bytes) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
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
// /pub with the sample files, /up for uploads, and trees for the commands
// and the walks. With TLS, the test CA becomes the process's trust store.
inline testing::SharedFtpServer& TransferServer(testing::FtpServerKind kind,
                                                testing::FtpTlsOptions tls = {}) {
  if (tls.mode != testing::FtpTlsMode::None) {
    std::string error;  // a failure shows as the server's or the handshake's
    testing::TrustTestCertificates(error);
  }
  return testing::SharedServer(
      kind, "ftpzn-xfer-",
      [](const std::string& root) {
        namespace fs = std::filesystem;
        unsigned seed = 1;
        for (const SampleFile& f : kSampleFiles)
          WriteBytes(root + "/pub/" + f.name, RandomBytes(f.size, seed++));
        // Cut by the expansion's trim, "q.." becomes ".." below /q.
        const std::pair<const char*, std::string> files[] = {{"pub/a.bin", RandomBytes(70000, 100)},
                                                             {"pub/b.bin", RandomBytes(5, 101)},
                                                             {"cmd/f1.txt", "first file"},
                                                             {"cmd/f2.txt", "second file"},
                                                             {"cmd/d/g.txt", RandomBytes(9000, 102)},
                                                             {"cmd/d/sub/h.txt", "h"},
                                                             {"tree/x/b.bin", "bbbb"},
                                                             {"tree/x/y/c.txt", "cc"},
                                                             {"tree/big.bin", ""},
                                                             {"holes/a.txt", "a"},
                                                             {"q/stay.txt", "s"},
                                                             {"q/q../escape.txt", "e"}};
        for (const auto& [path, bytes] : files) WriteBytes(root + "/" + path, bytes);
        for (const char* empty : {"/up", "/holes/zz"}) fs::create_directories(root + empty);
        for (int i = 0; i < 1500; ++i)
          WriteBytes(root + "/cmd/many/d" + std::to_string(i) + "/file.txt", "x");
        fs::resize_file(root + "/tree/big.bin", 5000000000ULL);  // takes no room
      },
      tls);
}

// What a worker posted, in order.
struct Posted {
  std::vector<wxString> lines;
  size_t progress = 0;
  std::optional<TransferMessage> end;
};

class RecordingSink : public TransferSink {
 public:
  void PostProgress(CThreadFtp& worker, uint64_t bytes) override {
    std::lock_guard lock(m_mutex);
    m_posted.lines.push_back(worker.ProgressLine(bytes));
    ++m_posted.progress;
  }
  void PostStatus(CThreadFtp&, const wxString& text) override {
    std::lock_guard lock(m_mutex);
    m_posted.lines.push_back(text);
  }
  void PostEnd(CThreadFtp&, TransferMessage message) override {
    std::lock_guard lock(m_mutex);
    m_posted.end = message;
  }
  Posted Get() {
    std::lock_guard lock(m_mutex);
    return m_posted;
  }
  // Whether `done` held within `ms`.
  bool Wait(int ms, const std::function<bool(const Posted&)>& done) {
    for (int waited = 0; waited < ms && !done(Get()); waited += 5)
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    return done(Get());
  }

 private:
  std::mutex m_mutex;
  Posted m_posted;
};

}  // namespace ftpzn::test
