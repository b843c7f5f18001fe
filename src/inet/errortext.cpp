// The internet error texts, worded exactly as users of the first platform
// saw them (odd spacing included: 12019 ends in a blank, 12110 has two
// blanks before "handle").
#include "inet/errortext.h"

#include <algorithm>
#include <iterator>

namespace ftpzn::inet {

namespace {

struct ErrorText {
  uint32_t code;
  const char* text;
  // The TLS failures are the engine's own: the error-text lookup of the
  // connection code knows only the platform's rows, inside and outside
  // 12001 to 12111 alike.
  bool engineOnly = false;
};

// Sorted by code.
constexpr ErrorText kErrorTexts[] = {
    {12001, "No more handles could be generated at this time."},
    {12002, "The request has timed out."},
    {12003, "An internal error has occurred."},
    {12004, "An internal error has occurred."},
    {12005, "The URL is invalid."},
    {12006, "The URL scheme could not be recognized or is not supported."},
    {12007, "The server name could not be resolved."},
    {12008, "The requested protocol could not be located."},
    {12009, "A request to InternetQueryOption or InternetSetOption specified an invalid option value."},
    {12010,
     "The length of an option supplied to InternetQueryOption or InternetSetOption is incorrect for the type "
     "of "
     "option specified."},
    {12011, "The request option cannot be set, only queried."},
    {12012, "The Win32 Internet function support is being shut down or unloaded."},
    {12013,
     "The request to connect and log on to an FTP server could not be completed because the supplied user "
     "name is "
     "incorrect."},
    {12014,
     "The request to connect and log on to an FTP server could not be completed because the supplied "
     "password is "
     "incorrect."},
    {12015, "The request to connect to and log on to an FTP server failed."},
    {12016, "The requested operation is invalid."},
    {12017,
     "The operation was canceled, usually because the handle on which the request was operating was closed "
     "before "
     "the operation completed."},
    {12018, "The type of handle supplied is incorrect for this operation."},
    {12019,
     "The requested operation cannot be carried out because the handle supplied is not in the correct "
     "state. "},
    {12020, "The request cannot be made via a proxy."},
    {12021, "A required registry value could not be located."},
    {12022, "A required registry value was located but is an incorrect type or has an invalid value."},
    {12023, "Direct network access cannot be made at this time."},
    {12024, "An asynchronous request could not be made because a zero context value was supplied."},
    {12025, "An asynchronous request could not be made because a callback function has not been set."},
    {12026, "The required operation could not be completed because one or more requests are pending."},
    {12027, "The format of the request is invalid."},
    {12028, "The requested item could not be located."},
    {12029, "The attempt to connect to the server failed."},
    {12030, "The connection with the server has been terminated."},
    {12031, "The connection with the server has been reset."},
    {12032, "Calls for the Win32 Internet function to redo the request."},
    {12033, "The request to the proxy was invalid."},
    {12036, "The request failed because the handle already exists."},
    {12037, "The server's certificate has expired or is not valid yet.", true},
    {12038, "The server's certificate was issued for another host name.", true},
    {12045, "The server's certificate is not signed by a trusted authority.", true},
    {12110,
     "The requested operation cannot be made on the FTP session  handle because an operation is already in "
     "progress."},
    {12111, "The FTP operation was not completed because the session was aborted."},
    {12157, "The secure (TLS) connection to the server could not be established.", true},
};

}  // namespace

const char* InternetErrorText(uint32_t code, bool withEngineCodes) {
  auto it = std::lower_bound(std::begin(kErrorTexts), std::end(kErrorTexts), code,
                             [](const ErrorText& entry, uint32_t c) { return entry.code < c; });
  if (it == std::end(kErrorTexts) || it->code != code) return nullptr;
  return !it->engineOnly || withEngineCodes ? it->text : nullptr;
}

}  // namespace ftpzn::inet
