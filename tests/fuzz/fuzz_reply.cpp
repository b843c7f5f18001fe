// Control-connection bytes through the reply reader, arriving in reads of a
// size the first byte chooses: every reply or a NetError, never more.
#include <cstdint>
#include <string>

#include "inet/reply.h"
#include "memory_stream.h"

using namespace ftpzn::inet;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  MemoryStream stream(std::string(reinterpret_cast<const char*>(data) + 1, size - 1), 1 + data[0] * 17u);
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
