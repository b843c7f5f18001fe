#include "connection/sessionstatus.h"

#include <cwchar>

#include "inet/errortext.h"

namespace ftpzn {

namespace {

// The name the engine hands over, read no further than its length or its
// terminator, whichever comes first.
wxString InfoText(const void* info, uint32_t infoLength) {
  if (!info) return wxString();
  const auto* text = static_cast<const wchar_t*>(info);
  size_t count = 0;
  for (size_t limit = infoLength / sizeof(wchar_t); count < limit && text[count] != L'\0';) ++count;
  return wxString(text, count);
}

}  // namespace

wxString ComposeStatusLine(long threadId, uint32_t status, const void* info, uint32_t infoLength) {
  const char* fixed = nullptr;
  switch (status) {
    case 10:
      return wxString::Format("[%ld] resolving name for %s", threadId, InfoText(info, infoLength));
    case 11:
      return wxString::Format("[%ld] resolved name for %s!", threadId, InfoText(info, infoLength));
    case 20:
      fixed = "Connecting to server...";
      break;
    case 21:
      fixed = "Connected to server!";
      break;
    case 30:
      fixed = "Sending request...";
      break;
    case 31:
      fixed = "Request sent";
      break;
    case 40:
      fixed = "Receiving response...";
      break;
    case 41:
      fixed = "Response received!";
      break;
    case 50:
      fixed = "Closing connection...";
      break;
    case 51:
      fixed = "Connection close!";
      break;
    case 60:
      fixed = "Connection created!";
      break;
    case 70:
      fixed = "Closing Connection...";
      break;
    case 100:
      fixed = "request complete";
      break;
    case 110:
      fixed = "Redirected to URL";
      break;
    case 200:
      fixed = "Busy";
      break;
    default:
      // The status code is printed as the signed 32-bit number it was.
      return wxString::Format("[%ld] Unknown status: %d", threadId, static_cast<int32_t>(status));
  }
  return wxString::Format("[%ld] %s", threadId, fixed);
}

wxString InternetErrorString(int32_t code) {
  if (code < 12001 || code > 12111) return wxString();
  const char* text = inet::InternetErrorText(static_cast<uint32_t>(code));
  return text ? wxString::FromUTF8(text) : wxString();
}

}  // namespace ftpzn
