// Names and texts on the wire are bytes; the engine's API is wide. Bytes are
// decoded as UTF-8, and a byte that is not part of valid UTF-8 is kept as the
// code point U+DC80 plus the byte (a lone low surrogate, U+DD00..U+DD7F), so
// that encoding the wide text again gives back exactly the bytes received.
#pragma once

#include <string>
#include <string_view>

namespace ftpzn::inet {

std::wstring WireToWide(std::string_view bytes);
std::string WideToWire(std::wstring_view text);

}  // namespace ftpzn::inet
