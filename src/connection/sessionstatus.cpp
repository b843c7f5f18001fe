#include "connection/sessionstatus.h"

#include <cwchar>

#include "inet/errortext.h"
#include "inet/inet.h"

namespace ftpzn {

namespace {

// Reports the engine never makes but the table has lines for.
constexpr uint32_t kStatusRequestComplete = 100;
constexpr uint32_t kStatusRedirect = 110;
constexpr uint32_t kStatusStateChange = 200;

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
    case inet::INTERNET_STATUS_RESOLVING_NAME:
      return wxString::Format("[%ld] resolving name for %s", threadId, InfoText(info, infoLength));
    case inet::INTERNET_STATUS_NAME_RESOLVED:
      return wxString::Format("[%ld] resolved name for %s!", threadId, InfoText(info, infoLength));
    case inet::INTERNET_STATUS_CONNECTING_TO_SERVER:
      fixed = "Connecting to server...";
      break;
    case inet::INTERNET_STATUS_CONNECTED_TO_SERVER:
      fixed = "Connected to server!";
      break;
    case inet::INTERNET_STATUS_SENDING_REQUEST:
      fixed = "Sending request...";
      break;
    case inet::INTERNET_STATUS_REQUEST_SENT:
      fixed = "Request sent";
      break;
    case inet::INTERNET_STATUS_RECEIVING_RESPONSE:
      fixed = "Receiving response...";
      break;
    case inet::INTERNET_STATUS_RESPONSE_RECEIVED:
      fixed = "Response received!";
      break;
    case inet::INTERNET_STATUS_CLOSING_CONNECTION:
      fixed = "Closing connection...";
      break;
    case inet::INTERNET_STATUS_CONNECTION_CLOSED:
      fixed = "Connection close!";
      break;
    case inet::INTERNET_STATUS_HANDLE_CREATED:
      fixed = "Connection created!";
      break;
    case inet::INTERNET_STATUS_HANDLE_CLOSING:
      fixed = "Closing Connection...";
      break;
    case kStatusRequestComplete:
      fixed = "request complete";
      break;
    case kStatusRedirect:
      fixed = "Redirected to URL";
      break;
    case kStatusStateChange:
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
