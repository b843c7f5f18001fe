// Whole-file transfers over an engine connection, for the tests against
// real servers: byte for byte, with the outcome Close reports checked.
#pragma once

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "inet/inet.h"
#include "inet/wirename.h"

namespace ftpzn::inet {

inline std::string RandomBytes(size_t size, unsigned seed) {
  std::mt19937 rng(seed);
  std::string s(size, '\0');
  for (auto& c : s) c = static_cast<char>(rng());
  return s;
}

inline std::string Download(CFtpConnection& c, const std::wstring& name) {
  auto file = c.OpenFile(name, GENERIC_READ, FTP_TRANSFER_TYPE_BINARY);
  std::string data;
  char block[4096];
  for (int guard = 0; guard < 1 << 20; ++guard) {
    uint32_t n = file->Read(block, sizeof block);
    if (n == 0) break;
    data.append(block, n);
  }
  SetLastError(99);
  file->Close();
  EXPECT_EQ(GetLastError(), 0u) << WideToWire(InternetGetLastResponseInfo());
  return data;
}

inline void Upload(CFtpConnection& c, const std::wstring& name, const std::string& bytes) {
  auto file = c.OpenFile(name, GENERIC_WRITE, FTP_TRANSFER_TYPE_BINARY);
  for (size_t at = 0; at < bytes.size(); at += 4096) {
    file->Write(bytes.data() + at, static_cast<uint32_t>(std::min<size_t>(4096, bytes.size() - at)));
  }
  SetLastError(99);
  file->Close();
  EXPECT_EQ(GetLastError(), 0u) << WideToWire(InternetGetLastResponseInfo());
}

}  // namespace ftpzn::inet
