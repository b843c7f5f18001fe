// Reading FTP replies from the control stream. Internal to the engine.
#pragma once

#include <string>
#include <vector>

#include "inet/netio.h"

namespace ftpzn::inet {

struct FtpReply {
  int code = 0;
  std::vector<std::string> lines;  // as received, without line ends
  int Class() const { return code / 100; }
  bool Preliminary() const { return Class() == 1; }
  bool Positive() const { return Class() == 2 || Class() == 3; }
  std::string Text() const;  // all lines joined by CRLF
};

// A reader that survives hostile servers: replies split over any number of
// reads, several replies in one read, over-long lines and endless
// multi-line replies (capped), NUL bytes and damaged first lines all end in
// a NetError instead of a hang or unbounded memory.
class ReplyReader {
 public:
  static constexpr size_t kMaxLineLength = 8192;
  static constexpr size_t kMaxLinesPerReply = 1000;

  explicit ReplyReader(Stream& stream) : m_stream(stream) {}
  // One complete reply ("123-" ... "123 " for multi-line ones).
  FtpReply Read(const Deadline& deadline);
  // True when bytes of a further reply are already buffered.
  bool HasBuffered() const { return m_start < m_buffer.size(); }

 private:
  std::string ReadLine(const Deadline& deadline);

  Stream& m_stream;
  std::string m_buffer;
  size_t m_start = 0;
};

}  // namespace ftpzn::inet
