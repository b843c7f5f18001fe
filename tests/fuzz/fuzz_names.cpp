// Wire names and URLs: any bytes round-trip through the wide form exactly,
// and a URL parses without fault, its parts decoded the way the tools do.
#include <cstdint>
#include <string>
#include <string_view>

#include "inet/inet.h"
#include "inet/wirename.h"

using namespace ftpzn::inet;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const std::wstring wide = WireToWide(bytes);
  if (WideToWire(wide) != bytes) __builtin_trap();

  uint32_t service = 0;
  uint16_t port = 0;
  std::wstring server, object, user, password;
  if (ParseURLEx(wide, service, server, object, port, user, password)) {
    for (const std::wstring* part : {&server, &object, &user, &password}) {
      const std::wstring decoded = DecodeUrlComponent(*part);
      if (decoded.size() > part->size()) __builtin_trap();
      WideToWire(decoded);
    }
  }
  return 0;
}
