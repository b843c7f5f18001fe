// Every line of the input through the listing parsers, as a LIST listing
// (line after line through one reader, which joins two-line entries) and as
// an MLSD listing would reach them; the first eight bytes set the clock.
#include <cstdint>
#include <cstring>
#include <string_view>

#include "inet/listing.h"

using namespace ftpzn::inet;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ListClock clock{1700000000};
  if (size >= 8) {
    int64_t now = 0;
    std::memcpy(&now, data, 8);
    // Any instant from 1900 to 2200: year-less dates are resolved against it.
    clock.nowUnix = -2208988800 + static_cast<int64_t>(static_cast<uint64_t>(now) % 9467107200u);
    data += 8;
    size -= 8;
  }
  std::string_view rest(reinterpret_cast<const char*>(data), size);
  FtpListEntry entry;
  ListLineReader reader(clock);
  while (!rest.empty()) {
    const size_t lf = rest.find('\n');
    const std::string_view line = rest.substr(0, lf);
    rest = lf == std::string_view::npos ? std::string_view() : rest.substr(lf + 1);
    reader.Parse(line, entry);
    ParseMlsdLine(line, entry);
  }
  return 0;
}
