// The texts users read: the engine's error texts, the same through the
// user interface's lookup, and the session's status lines.
#include <gtest/gtest.h>

#include <cstring>
#include <cwchar>
#include <string>

#include "connection/sessionstatus.h"
#include "inet/errortext.h"

using ftpzn::ComposeStatusLine;
using ftpzn::InternetErrorString;
using ftpzn::inet::InternetErrorText;

namespace {

// Codes whose wording a slip would change: the ends of the table, the
// shared 12003/12004 text, the trailing blank of 12019, the gap before
// 12036; outside the table, and for the engine's own TLS codes, no text.
TEST(ErrorTexts, ExactTextsBothWays) {
  const struct { uint32_t code; const char* text; } cases[] = {
      {12001, "No more handles could be generated at this time."},
      {12003, "An internal error has occurred."},
      {12004, "An internal error has occurred."},
      {12019, "The requested operation cannot be carried out because the handle supplied is not in the correct state. "},
      {12033, "The request to the proxy was invalid."},
      {12036, "The request failed because the handle already exists."},
      {12111, "The FTP operation was not completed because the session was aborted."},
  };
  for (const auto& c : cases) {
    EXPECT_STREQ(InternetErrorText(c.code), c.text) << c.code;
    EXPECT_EQ(InternetErrorString(static_cast<int32_t>(c.code)).utf8_string(), c.text) << c.code;
  }
  for (int32_t code : {12000, 12034, 12035, 12037, 12050, 12109, 12112, 0, -1, -12001, INT32_MIN, INT32_MAX})
    EXPECT_TRUE(InternetErrorString(code).empty()) << code;
  int rows = 0;
  for (uint32_t code = 11000; code < 13000; ++code) {
    if (const char* text = InternetErrorText(code)) {
      ++rows;
      EXPECT_TRUE(code >= 12001 && code <= 12111) << code;
      EXPECT_GT(std::strlen(text), 10u) << code;
    }
  }
  EXPECT_EQ(rows, 36);
  EXPECT_EQ(InternetErrorText(0xFFFFFFFFu), nullptr);
}

std::string Line(uint32_t status, const wchar_t* info = nullptr, uint32_t chars = 0, long thread = 4242) {
  uint32_t bytes = info ? static_cast<uint32_t>((chars ? chars : std::wcslen(info) + 1) * sizeof(wchar_t)) : 0;
  return ComposeStatusLine(thread, status, info, bytes).utf8_string();
}

// Only 10 and 11 read the information: the others give the same line with
// or without it. A '%' in a name is text, not a format; the length bounds
// the read when the terminator is missing or later.
TEST(SessionStatusLine, EveryCodeOfTheTable) {
  const struct { uint32_t status; const char* line; } fixed[] = {
      {20, "Connecting to server..."}, {21, "Connected to server!"},  {30, "Sending request..."},
      {31, "Request sent"},            {40, "Receiving response..."}, {41, "Response received!"},
      {50, "Closing connection..."},   {51, "Connection close!"},     {60, "Connection created!"},
      {70, "Closing Connection..."},   {100, "request complete"},     {110, "Redirected to URL"},
      {200, "Busy"},                   {12, "Unknown status: 12"},    {0xFFFFFFFFu, "Unknown status: -1"},
  };
  for (const auto& c : fixed) {
    EXPECT_EQ(Line(c.status), std::string("[4242] ") + c.line) << c.status;
    EXPECT_EQ(Line(c.status, L"ignored"), std::string("[4242] ") + c.line) << c.status;
  }
  EXPECT_EQ(Line(10, L"m\u00FCller.example"), "[4242] resolving name for m\u00FCller.example");
  EXPECT_EQ(Line(11, L"%s%d"), "[4242] resolved name for %s%d!");
  EXPECT_EQ(Line(11), "[4242] resolved name for !");
  EXPECT_EQ(Line(10, L"hostname", 4, 7), "[7] resolving name for host");
}

}  // namespace
