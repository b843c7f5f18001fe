#include "panes/filetexts.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

namespace ftpzn {
namespace {

TEST(FormatSizeKb, RoundsUpAndGroupsThousands) {
  struct Case {
    uint32_t low, high;
    const char* text;
  } cases[] = {
      {0, 0, "1 KB"},
      {1024, 0, "1 KB"},
      {1025, 0, "2 KB"},
      {1048576, 0, "1,024 KB"},
      {1023998976, 0, "999,999 KB"},
      {999 * 1024 + 1, 0, "1,000 KB"},
      {1024, 1, "4,194,305 KB"},  // 4 GiB + 1024 bytes given in two halves
      {4294967295u, 0, "4,194,304 KB"},
  };
  for (const Case& c : cases) EXPECT_EQ(FormatSizeKb(c.low, c.high), c.text) << c.low << " " << c.high;
}

class FileDate : public testing::Test {
 protected:
  void SetZone(const char* zone) {
    setenv("TZ", zone, 1);
    tzset();
  }
  void TearDown() override {
    if (m_saved.empty()) {
      unsetenv("TZ");
    } else {
      setenv("TZ", m_saved.c_str(), 1);
    }
    tzset();
  }
  static uint64_t At(int year, int month, int day, int hour, int minute, int second) {
    std::tm tm{};
    tm.tm_year = year - 1900;
    tm.tm_mon = month - 1;
    tm.tm_mday = day;
    tm.tm_hour = hour;
    tm.tm_min = minute;
    tm.tm_sec = second;
    return FileTimeFromUnix(timegm(&tm));
  }
  static wxString Text(uint64_t fileTime) { return FormatFileDate(fileTime).value_or("<none>"); }

 private:
  std::string m_saved = std::getenv("TZ") ? std::getenv("TZ") : "";
};

TEST_F(FileDate, ShowsLocalTimeTwoDigitsEach) {
  SetZone("UTC0");
  EXPECT_EQ(Text(At(2023, 3, 5, 14, 7, 9)), "23/03/05/14/07/09");
  EXPECT_EQ(Text(At(2000, 12, 31, 23, 59, 59)), "00/12/31/23/59/59");
  // Central European time with its summer rule, written out so no zone
  // database is needed.
  SetZone("CET-1CEST,M3.5.0,M10.5.0/3");
  EXPECT_EQ(Text(At(2023, 3, 5, 14, 7, 9)), "23/03/05/15/07/09");
  EXPECT_EQ(Text(At(2023, 7, 1, 12, 0, 0)), "23/07/01/14/00/00");
}

TEST_F(FileDate, ParentRowAndEarlyTimesShowTimeValueZero) {
  SetZone("UTC0");
  EXPECT_EQ(Text(MakeParentItem().time), "70/01/01/00/00/00");
  EXPECT_EQ(Text(At(1850, 6, 1, 0, 0, 0)), "70/01/01/00/00/00");
  EXPECT_EQ(Text(0), "70/01/01/00/00/00");
  SetZone("CET-1CEST,M3.5.0,M10.5.0/3");
  EXPECT_EQ(Text(MakeParentItem().time), "70/01/01/01/00/00");
}

TEST_F(FileDate, YearsOutsideTheTimeValueRangeGiveNoText) {
  SetZone("UTC0");
  EXPECT_FALSE(FormatFileDate(At(1969, 6, 1, 0, 0, 0)).has_value());
  EXPECT_FALSE(FormatFileDate(At(1900, 1, 1, 0, 0, 0)).has_value());
  EXPECT_FALSE(FormatFileDate(At(3001, 1, 1, 0, 0, 0)).has_value());
  EXPECT_EQ(Text(At(3000, 12, 31, 0, 0, 0)), "00/12/31/00/00/00");
  EXPECT_FALSE(FormatFileDate(0x8000000000000000ULL).has_value());
  // The local year decides: half an hour after the epoch is still 1969 in
  // New York.
  SetZone("EST5");
  EXPECT_FALSE(FormatFileDate(At(1970, 1, 1, 0, 30, 0)).has_value());
  EXPECT_EQ(Text(At(1970, 1, 1, 5, 30, 0)), "70/01/01/00/30/00");
}

TEST(FileTime, CountsHundredNanosecondsSince1601) {
  EXPECT_EQ(FileTimeFromUnix(0), 116444736000000000ULL);
  EXPECT_EQ(FileTimeFromUnix(1, 500), 116444736010000005ULL);
}

TEST(TypeText, ExtensionRule) {
  EXPECT_EQ(ExtensionTypeText("a.xyz"), "XYZ File");
  EXPECT_EQ(ExtensionTypeText("x.tar.gz"), "GZ File");
  EXPECT_EQ(ExtensionTypeText("readme"), "File");
  EXPECT_EQ(ExtensionTypeText("v1.2/readme"), "File");
  EXPECT_EQ(ExtensionTypeText(".bashrc"), "BASHRC File");
  EXPECT_EQ(ExtensionTypeText("name."), " File");
  // A backslash is an ordinary character in a Linux or remote name, but the
  // rule still only looks behind the last one.
  EXPECT_EQ(ExtensionTypeText("v1.2\\readme"), "File");
  EXPECT_EQ(ExtensionTypeText("a\\b.c"), "C File");
}

TEST(TypeText, BytesThatAreNotUtf8ShowAsReplacementCharacters) {
  const wxString name(std::wstring{L'c', static_cast<wchar_t>(0xDCE9), L'.', L't', L'x', L't'});
  EXPECT_EQ(DisplayText(name), wxString(L"c\uFFFD.txt"));
  EXPECT_EQ(DisplayText(wxString(std::wstring(1, static_cast<wchar_t>(0xDCFF)))), wxString(L"\uFFFD"));
  EXPECT_EQ(DisplayText("plain"), "plain");
  EXPECT_EQ(ShellTypeText(name), "TXT File");
}

TEST(TypeText, DesktopDescriptionElseExtensionRule) {
  EXPECT_EQ(ShellTypeText("report.pdf"), "PDF document");
  EXPECT_EQ(ShellTypeText("x.tar.gz"), "Tar archive (gzip-compressed)");
  EXPECT_EQ(ShellTypeText("a.qqzz"), "QQZZ File");
  EXPECT_EQ(ShellTypeText("zzqnoext"), "File");
}

}  // namespace
}  // namespace ftpzn
