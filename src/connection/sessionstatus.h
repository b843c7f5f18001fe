// The English lines of the user-interface session's status reports, and the
// text of an internet error code. Window-free.
#pragma once

#include <wx/string.h>

#include <cstdint>

namespace ftpzn {

// The line for one status report of the internet session: "[tid] ...". For
// 10 (resolving) and 11 (resolved) `info` is the name as the engine passes
// it, a NUL-terminated wchar_t string of `infoLength` bytes; other codes
// ignore it.
wxString ComposeStatusLine(long threadId, uint32_t status, const void* info, uint32_t infoLength);

// The text of an internet error code, or an empty string for a code without
// one.
wxString InternetErrorString(int32_t code);

}  // namespace ftpzn
