// What the transfer tests share: files on disk and the servers' tree.
#pragma once

#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <tuple>
#include <utility>

#include "ftp_servers.h"

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

// Name (UTF-8) and size.
inline const std::pair<const char*, size_t> kSampleFiles[] = {
    std::pair{"empty.bin", 0}, std::pair{"block.bin", 4096}, std::pair{"ten.bin", 10 << 20},
    std::pair{"name with spaces \xc3\xa9\xe6\x97\xa5.txt", 5000}};

// One server of a kind for the binary, over a tree every test shares:
// /pub with the sample files, /up for uploads, and trees for the commands
// and the walks. With TLS, the test CA becomes the process's trust store.
inline testing::SharedFtpServer& TransferServer(testing::FtpServerKind kind,
                                                testing::FtpTlsOptions tls = {}) {
  std::string error;  // a failure shows as the server's or the handshake's
  if (tls.mode != testing::FtpTlsMode::None) testing::TrustTestCertificates(error);
  const auto populate = [](const std::string& root) {
    unsigned seed = 1;
    for (const auto& [name, size] : kSampleFiles)
      WriteBytes(root + "/pub/" + name, RandomBytes(size, seed++));
    for (const auto& [path, size, from] :
         {std::tuple{"pub/a.bin", 70000, 100}, {"pub/b.bin", 5, 101}, {"cmd/d/g.txt", 9000, 102}})
      WriteBytes(root + "/" + path, RandomBytes(size, from));
    // Cut by the expansion's trim, "w.." becomes ".." below /w; the empty
    // zz, listed last, stops the walk.
    for (const std::string file : {"cmd/f1.txt=first file", "cmd/f2.txt=second file", "cmd/d/sub/h.txt=h",
                                   "w/x/b.bin=bbbb", "w/x/y/c.txt=cc", "w/big.bin=", "w/w../escape.txt=e"})
      WriteBytes(root + "/" + file.substr(0, file.find('=')), file.substr(file.find('=') + 1));
    for (const char* empty : {"/up", "/w/zz"}) std::filesystem::create_directories(root + empty);
    for (int i = 0; i < 1500; ++i) WriteBytes(root + "/cmd/many/d" + std::to_string(i) + "/file.txt", "x");
    std::filesystem::resize_file(root + "/w/big.bin", 5000000000ULL);  // takes no room
  };
  return testing::SharedServer(kind, "ftpzn-xfer-", populate, tls);
}

}  // namespace ftpzn::test
