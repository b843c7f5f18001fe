#include "inet/reply.h"

#include <cctype>
#include <cstring>

namespace ftpzn::inet {

namespace {

bool StartsWithCode(const std::string& line) {
  return line.size() >= 3 && line[0] >= '1' && line[0] <= '5' &&
         isdigit(static_cast<unsigned char>(line[1])) && isdigit(static_cast<unsigned char>(line[2]));
}

[[noreturn]] void ProtocolError(const std::string& what) {
  throw NetError(kErrConnectionAborted, "invalid reply from the server: " + what);
}

}  // namespace

std::string FtpReply::Text() const {
  std::string text;
  for (const auto& line : lines) {
    if (!text.empty()) text += "\r\n";
    text += line;
  }
  return text;
}

std::string ReplyReader::ReadLine(const Deadline& deadline) {
  size_t scanned = m_start;
  for (;;) {
    size_t lf = m_buffer.find('\n', scanned);
    if (lf != std::string::npos) {
      std::string line = m_buffer.substr(m_start, lf - m_start);
      m_start = lf + 1;
      if (!line.empty() && line.back() == '\r') line.pop_back();
      if (line.size() > kMaxLineLength) ProtocolError("line too long");
      if (line.find('\0') != std::string::npos) ProtocolError("NUL byte in a reply");
      return line;
    }
    scanned = m_buffer.size();
    if (m_buffer.size() - m_start > kMaxLineLength + 1) ProtocolError("line too long");
    if (m_start > 0 && m_start == m_buffer.size()) {
      m_buffer.clear();
      scanned = m_start = 0;
    } else if (m_start > 65536) {
      m_buffer.erase(0, m_start);
      scanned -= m_start;
      m_start = 0;
    }
    char chunk[4096];
    size_t n = m_stream.ReadSome(chunk, sizeof chunk, deadline);
    if (n == 0) {
      throw NetError(kErrConnectionAborted, m_start < m_buffer.size()
                                                ? "the server closed the connection in the middle of a reply"
                                                : "the server closed the connection");
    }
    m_buffer.append(chunk, n);
  }
}

FtpReply ReplyReader::Read(const Deadline& deadline) {
  FtpReply reply;
  std::string first = ReadLine(deadline);
  if (!StartsWithCode(first) || (first.size() > 3 && first[3] != ' ' && first[3] != '-')) {
    ProtocolError("\"" + first.substr(0, 80) + "\"");
  }
  reply.code = std::stoi(first.substr(0, 3));
  bool multiLine = first.size() > 3 && first[3] == '-';
  reply.lines.push_back(std::move(first));
  // A multi-line reply ends at a line with the same code and a space (or
  // nothing) after it; lines in between may look like anything.
  const std::string code = reply.lines.front().substr(0, 3);
  while (multiLine) {
    if (reply.lines.size() >= kMaxLinesPerReply) ProtocolError("too many lines in one reply");
    std::string line = ReadLine(deadline);
    bool last = line.size() >= 3 && line.compare(0, 3, code) == 0 && (line.size() == 3 || line[3] == ' ');
    reply.lines.push_back(std::move(line));
    if (last) break;
  }
  return reply;
}

}  // namespace ftpzn::inet
