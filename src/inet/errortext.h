// The one table of internet error texts: the engine's
// CInternetException::GetErrorMessage and the error-text lookup of the
// connection code both read it.
#pragma once

#include <cstdint>

namespace ftpzn::inet {

// The text for an internet error code (UTF-8), or nullptr when the table
// has none. The TLS codes (certificate and handshake failures) are the
// engine's own and have texts only `withEngineCodes`, as its exceptions ask.
const char* InternetErrorText(uint32_t code, bool withEngineCodes = false);

}  // namespace ftpzn::inet
