// Control-connection bytes through the reply reader, arriving in reads of a
// size the first byte chooses: every reply or a NetError, never more.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "inet/reply.h"

using namespace ftpzn::inet;

namespace {

class BytesStream : public Stream {
 public:
  BytesStream(const uint8_t* data, size_t size, size_t piece) : m_data(data), m_size(size), m_piece(piece) {}
  size_t ReadSome(void* buffer, size_t size, const Deadline&) override {
    const size_t n = std::min({size, m_piece, m_size - m_at});
    std::memcpy(buffer, m_data + m_at, n);
    m_at += n;
    return n;
  }
  void WriteAll(const void*, size_t, const Deadline&) override {}
  void ShutdownWrite() override {}
  int NativeHandle() const override { return -1; }

 private:
  const uint8_t* m_data;
  size_t m_size;
  size_t m_piece;
  size_t m_at = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  BytesStream stream(data + 1, size - 1, 1 + data[0] * 17u);
  ReplyReader reader(stream);
  try {
    for (size_t replies = 0; replies <= size; ++replies) {
      const FtpReply reply = reader.Read(Deadline::After(0));
      if (reply.code < 100 || reply.code > 599 || reply.lines.empty() ||
          reply.lines.size() > ReplyReader::kMaxLinesPerReply)
        __builtin_trap();
    }
    __builtin_trap();  // more replies than bytes
  } catch (const NetError&) {
  }
  return 0;
}
