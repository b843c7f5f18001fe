// A control or data stream that feeds a fixed text in reads of at most
// `piece` bytes, then reports the peer's orderly end: replies and listings
// split anywhere, without a socket.
#pragma once

#include <algorithm>
#include <cstring>
#include <string>

#include "inet/netio.h"

namespace ftpzn::inet {

class MemoryStream : public Stream {
 public:
  MemoryStream(std::string text, size_t piece) : m_text(std::move(text)), m_piece(piece) {}
  size_t ReadSome(void* buffer, size_t size, const Deadline&) override {
    size_t n = std::min({size, m_piece, m_text.size() - m_at});
    std::memcpy(buffer, m_text.data() + m_at, n);
    m_at += n;
    return n;
  }
  void WriteAll(const void*, size_t, const Deadline&) override {}
  void ShutdownWrite() override {}
  int NativeHandle() const override { return -1; }

 private:
  std::string m_text;
  size_t m_piece;
  size_t m_at = 0;
};

}  // namespace ftpzn::inet
