#include "connection/sessionstatus.h"

#include <gtest/gtest.h>

#include <cwchar>
#include <string>

using ftpzn::ComposeStatusLine;
using ftpzn::InternetErrorString;

namespace {

std::string Line(uint32_t status, const wchar_t* info = nullptr) {
  uint32_t bytes = info ? static_cast<uint32_t>((std::wcslen(info) + 1) * sizeof(wchar_t)) : 0;
  return ComposeStatusLine(4242, status, info, bytes).utf8_string();
}

TEST(SessionStatusLine, EveryCodeOfTheTable) {
  struct {
    uint32_t status;
    const char* line;
  } cases[] = {
      {20, "[4242] Connecting to server..."},
      {21, "[4242] Connected to server!"},
      {30, "[4242] Sending request..."},
      {31, "[4242] Request sent"},
      {40, "[4242] Receiving response..."},
      {41, "[4242] Response received!"},
      {50, "[4242] Closing connection..."},
      {51, "[4242] Connection close!"},
      {60, "[4242] Connection created!"},
      {70, "[4242] Closing Connection..."},
      {100, "[4242] request complete"},
      {110, "[4242] Redirected to URL"},
      {200, "[4242] Busy"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Line(c.status), c.line) << c.status;
    // Only 10 and 11 read the information.
    EXPECT_EQ(Line(c.status, L"ignored"), c.line) << c.status;
  }
}

TEST(SessionStatusLine, NameReportsCarryTheName) {
  EXPECT_EQ(Line(10, L"ftp.example.org"), "[4242] resolving name for ftp.example.org");
  EXPECT_EQ(Line(11, L"127.0.0.1"), "[4242] resolved name for 127.0.0.1!");
  EXPECT_EQ(Line(10, L"m\u00FCller.example"), "[4242] resolving name for m\u00FCller.example");
  // A '%' in the name is text, not a format.
  EXPECT_EQ(Line(10, L"%s%d"), "[4242] resolving name for %s%d");
  EXPECT_EQ(Line(11), "[4242] resolved name for !");
  // The length bounds the read when the terminator is missing or later.
  const wchar_t name[] = L"hostname";
  EXPECT_EQ(ComposeStatusLine(7, 10, name, 4 * sizeof(wchar_t)).utf8_string(), "[7] resolving name for host");
}

TEST(SessionStatusLine, UnknownCodes) {
  EXPECT_EQ(Line(12), "[4242] Unknown status: 12");
  EXPECT_EQ(Line(0), "[4242] Unknown status: 0");
  EXPECT_EQ(Line(0xFFFFFFFFu), "[4242] Unknown status: -1");
  EXPECT_EQ(ComposeStatusLine(1, 101, nullptr, 0).utf8_string(), "[1] Unknown status: 101");
}

TEST(InternetErrorString, TextsAndEmptyCodes) {
  EXPECT_EQ(InternetErrorString(12019).utf8_string(),
            "The requested operation cannot be carried out because the handle supplied is not in the correct "
            "state. ");
  EXPECT_EQ(
      InternetErrorString(12110).utf8_string(),
      "The requested operation cannot be made on the FTP session  handle because an operation is already in "
      "progress.");
  EXPECT_EQ(InternetErrorString(12007).utf8_string(), "The server name could not be resolved.");
  EXPECT_EQ(InternetErrorString(12001).utf8_string(), "No more handles could be generated at this time.");
  EXPECT_EQ(InternetErrorString(12111).utf8_string(),
            "The FTP operation was not completed because the session was aborted.");
  for (int32_t code : {12000, 12034, 12035, 12037, 12050, 12109, 12112, 0, -1, -12001, INT32_MIN, INT32_MAX})
    EXPECT_TRUE(InternetErrorString(code).empty()) << code;
}

}  // namespace
