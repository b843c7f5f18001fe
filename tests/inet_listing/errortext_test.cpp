#include "inet/errortext.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

using ftpzn::inet::InternetErrorText;

namespace {

std::string Text(uint32_t code) {
  const char* text = InternetErrorText(code);
  return text ? text : "<none>";
}

// Codes whose wording a slip would change: odd spacing, long sentences, the
// shared 12003/12004 text, the gap before 12036, the two FTP codes at the end.
TEST(InternetErrorText, ExactTexts) {
  EXPECT_EQ(Text(12001), "No more handles could be generated at this time.");
  EXPECT_EQ(Text(12002), "The request has timed out.");
  EXPECT_EQ(Text(12003), "An internal error has occurred.");
  EXPECT_EQ(Text(12004), "An internal error has occurred.");
  EXPECT_EQ(Text(12010),
            "The length of an option supplied to InternetQueryOption or InternetSetOption is incorrect for "
            "the type "
            "of option specified.");
  EXPECT_EQ(
      Text(12013),
      "The request to connect and log on to an FTP server could not be completed because the supplied user "
      "name is incorrect.");
  EXPECT_EQ(Text(12014),
            "The request to connect and log on to an FTP server could not be completed because the supplied "
            "password is incorrect.");
  EXPECT_EQ(Text(12015), "The request to connect to and log on to an FTP server failed.");
  EXPECT_EQ(
      Text(12017),
      "The operation was canceled, usually because the handle on which the request was operating was closed "
      "before the operation completed.");
  EXPECT_EQ(Text(12019),
            "The requested operation cannot be carried out because the handle supplied is not in the correct "
            "state. ");
  EXPECT_EQ(Text(12029), "The attempt to connect to the server failed.");
  EXPECT_EQ(Text(12030), "The connection with the server has been terminated.");
  EXPECT_EQ(Text(12032), "Calls for the Win32 Internet function to redo the request.");
  EXPECT_EQ(Text(12033), "The request to the proxy was invalid.");
  EXPECT_EQ(Text(12036), "The request failed because the handle already exists.");
  EXPECT_EQ(
      Text(12110),
      "The requested operation cannot be made on the FTP session  handle because an operation is already in "
      "progress.");
  EXPECT_EQ(Text(12111), "The FTP operation was not completed because the session was aborted.");
}

TEST(InternetErrorText, CodesWithoutARow) {
  for (uint32_t code : {0u, 1u, 12000u, 12034u, 12035u, 12037u, 12100u, 12109u, 12112u, 0xFFFFFFFFu})
    EXPECT_EQ(InternetErrorText(code), nullptr) << code;
  // Exactly the 36 rows of the table, all in 12001..12111.
  int rows = 0;
  for (uint32_t code = 11000; code < 13000; ++code) {
    if (const char* text = InternetErrorText(code)) {
      ++rows;
      EXPECT_TRUE(code >= 12001 && code <= 12111) << code;
      EXPECT_GT(std::strlen(text), 10u) << code;
    }
  }
  EXPECT_EQ(rows, 36);
}

}  // namespace
