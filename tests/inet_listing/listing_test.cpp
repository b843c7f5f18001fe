// Listing lines of every family, as real servers print them, against the
// entries they must give; then all lines in one stream, and random damage.
#include "inet/listing.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <new>
#include <random>
#include <string>
#include <vector>

using ftpzn::inet::FtpListEntry;
using ftpzn::inet::ListClock;
using ftpzn::inet::ListLineReader;
using ftpzn::inet::ParseListLine;
using ftpzn::inet::ParseMlsdLine;
using Kind = FtpListEntry::Kind;

// Every allocation of this test program is counted, so that a test can tell
// whether parsing a listing allocates per line.
namespace {
std::atomic<size_t> g_allocations{0};
}  // namespace

void* operator new(size_t size) {
  ++g_allocations;
  if (void* p = std::malloc(size ? size : 1)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, size_t) noexcept { std::free(p); }

namespace {

// "YYYY-MM-DD HH:MM:SS" UTC through the C library, independent of the parser's
// own calendar code.
int64_t Utc(const char* text) {
  std::tm tm{};
  EXPECT_NE(strptime(text, "%Y-%m-%d %H:%M:%S", &tm), nullptr) << "bad expected time " << text;
  return static_cast<int64_t>(timegm(&tm));
}

const ListClock kClock{Utc("2024-06-15 12:00:00")};  // Saturday 15 June 2024, noon UTC
constexpr Kind F = Kind::File, D = Kind::Directory, L = Kind::Link;
constexpr uint64_t kUnknownSize = UINT64_MAX;  // the line gives no byte count: size 0, not known

struct Case {
  const char* label;
  std::string line;
  std::string name;
  Kind kind;
  uint64_t size;
  const char* mtime;  // nullptr: unknown
  std::string target = {};
  bool accepted = true;
};

Case Reject(const char* label, std::string line) { return {label, std::move(line), {}, F, 0, nullptr, {}, false}; }

void CheckCase(const Case& c, bool accepted, const FtpListEntry& e) {
  SCOPED_TRACE(std::string(c.label) + ": \"" + c.line + "\"");
  ASSERT_EQ(accepted, c.accepted);
  if (!c.accepted) return;
  EXPECT_EQ(e.name, c.name);
  EXPECT_EQ(e.kind, c.kind);
  EXPECT_EQ(e.size, c.size == kUnknownSize ? 0 : c.size);
  // A row listing 0 leaves open whether the line gave that 0.
  if (c.size != 0) {
    EXPECT_EQ(e.sizeKnown, c.size != kUnknownSize);
  }
  EXPECT_EQ(e.linkTarget, c.target);
  ASSERT_EQ(e.mtime.has_value(), c.mtime != nullptr);
  if (c.mtime) {
    EXPECT_EQ(*e.mtime, Utc(c.mtime)) << "expected " << c.mtime;
  }
}

// The text fed as the engine feeds its reader: split at each line feed,
// every piece after whatever came before.
bool ReadLines(ListLineReader& reader, std::string_view text, FtpListEntry& e) {
  bool ok = false;
  for (size_t pos = 0; pos < text.size();) {
    size_t eol = std::min(text.find('\n', pos), text.size());
    ok = reader.Parse(text.substr(pos, eol - pos), e);
    pos = eol + 1;
  }
  return ok;
}

// clang-format off
const std::vector<Case>& UnixCases() {
  static const std::vector<Case> cases = {
      {"vsftpd numeric ids", "-rw-r--r--    1 1000     1000         1234 Jan 10 12:00 file.txt", "file.txt", F, 1234, "2024-01-10 12:00:00"},
      {"directory", "drwxr-xr-x   2 0        0            4096 May  5 09:07 pub", "pub", D, 4096, "2024-05-05 09:07:00"},
      {"year-less up to six months ahead stays this year", "-rw-r--r-- 1 u g 1 Nov 20 08:30 soon", "soon", F, 1, "2024-11-20 08:30:00"},
      {"year-less further ahead is last year", "-rw-r--r-- 1 u g 1 Dec 31 23:59 eve", "eve", F, 1, "2023-12-31 23:59:00"},
      {"year-less today", "-rw-r--r-- 1 u g 1 Jun 15 11:59 now", "now", F, 1, "2024-06-15 11:59:00"},
      {"with year and spaces in the name", "-rw-r--r--   1 user  group   12345 Mar  3  2021 name with  spaces", "name with  spaces", F, 12345, "2021-03-03 00:00:00"},
      {"leading blanks of a name after the time", "-rw-r--r-- 1 u g 5 Jan 10 12:00   two leading", "  two leading", F, 5, "2024-01-10 12:00:00"},
      {"leading blank of a name after a padded year", "-rw-r--r-- 1 u g 5 Mar  3  2021  lead", " lead", F, 5, "2021-03-03 00:00:00"},
      {"trailing blanks kept", "-rw-r--r-- 1 u g 5 Jan 10 12:00 trail  ", "trail  ", F, 5, "2024-01-10 12:00:00"},
      {"no group, unpadded year", "-rw-r--r-- 1 ftp 42 Feb 29 2020 leap", "leap", F, 42, "2020-02-29 00:00:00"},
      {"no links, owner 'folder'", "drwxrwxrwx               folder        2 May 10  1996 network", "network", D, 2, "1996-05-10 00:00:00"},
      {"character device", "crw-rw-rw-   1 root     root       1,   3 Jan 10 12:00 null", "null", F, 0, "2024-01-10 12:00:00"},
      {"block device, joined numbers", "brw-rw----  1 root disk 8,0 Jan 10 12:00 sda", "sda", F, 0, "2024-01-10 12:00:00"},
      {"symlink", "lrwxrwxrwx   1 root root 7 Jan 10 12:00 lib -> usr/lib", "lib", L, 7, "2024-01-10 12:00:00", "usr/lib"},
      {"symlink with spaces", "lrwxrwxrwx 1 u g 9 Jan 10 12:00 my link -> my target", "my link", L, 9, "2024-01-10 12:00:00", "my target"},
      {"arrow in a plain file's name stays", "-rw-r--r-- 1 u g 9 Jan 10 12:00 a -> b", "a -> b", F, 9, "2024-01-10 12:00:00"},
      {"ACL marker", "-rw-r--r--+ 1 u g 10 Jan 10 12:00 acl", "acl", F, 10, "2024-01-10 12:00:00"},
      {"size above 4 GiB", "-rw-r--r-- 1 u g 10995116277760 Jan 10 12:00 big", "big", F, 10995116277760ull, "2024-01-10 12:00:00"},
      {"owner named like a month", "-rw-r--r-- 1 mar 10 1234 Jan 10 12:00 x", "x", F, 1234, "2024-01-10 12:00:00"},
      {"name that looks like a date", "-rw-r--r-- 1 u g 10 Jan 10 12:00 Feb 11  2020", "Feb 11  2020", F, 10, "2024-01-10 12:00:00"},
      {"dot entry is returned", "drwxr-xr-x 2 u g 4096 Jan 10 12:00 .", ".", D, 4096, "2024-01-10 12:00:00"},
      {"CR at the end", "-rw-r--r-- 1 u g 3 Jan 10 12:00 cr\r", "cr", F, 3, "2024-01-10 12:00:00"},
      {"long-iso", "-rw-r--r-- 1 u g 10 2023-04-05 06:07 iso name", "iso name", F, 10, "2023-04-05 06:07:00"},
      {"full-iso with zone", "-rw-r--r-- 1 u g 10 2023-04-05 06:07:08.123456789 +0200 iso", "iso", F, 10, "2023-04-05 04:07:08"},
      {"BSD -T", "-rw-r--r-- 1 u g 10 Apr  5 06:07:08 2023 bsd", "bsd", F, 10, "2023-04-05 06:07:08"},
      {"German day first", "-rw-r--r-- 1 u g 10 10. Mär 12:00 datei", "datei", F, 10, "2024-03-10 12:00:00"},
      {"German month first with year", "-rw-r--r-- 1 u g 10 Okt 10  2022 datei", "datei", F, 10, "2022-10-10 00:00:00"},
      {"German Dez", "-rw-r--r-- 1 u g 10 Dez  1  2022 d", "d", F, 10, "2022-12-01 00:00:00"},
      {"French month first", "-rw-r--r-- 1 u g 10 févr. 10 12:00 fichier", "fichier", F, 10, "2024-02-10 12:00:00"},
      {"French day first", "-rw-r--r-- 1 u g 10 10 déc.  2023 fichier", "fichier", F, 10, "2023-12-10 00:00:00"},
      {"French août", "-rw-r--r-- 1 u g 10 août  1  2023 f", "f", F, 10, "2023-08-01 00:00:00"},
      {"Spanish", "-rw-r--r-- 1 u g 10 ene 10 12:00 archivo", "archivo", F, 10, "2024-01-10 12:00:00"},
      {"Spanish dic", "-rw-r--r-- 1 u g 10 10 dic 2022 a", "a", F, 10, "2022-12-10 00:00:00"},
      {"Italian", "-rw-r--r-- 1 u g 10 10 giu 12:00 file", "file", F, 10, "2024-06-10 12:00:00"},
      {"Italian ott", "-rw-r--r-- 1 u g 10 ott  3  2022 f", "f", F, 10, "2022-10-03 00:00:00"},
      {"Dutch", "-rw-r--r-- 1 u g 10 mrt 10 12:00 bestand", "bestand", F, 10, "2024-03-10 12:00:00"},
      {"Dutch mei", "-rw-r--r-- 1 u g 10 mei  4 10:00 b", "b", F, 10, "2024-05-04 10:00:00"},
      {"Swedish", "-rw-r--r-- 1 u g 10 10 maj 12:00 fil", "fil", F, 10, "2024-05-10 12:00:00"},
      {"Polish lower case", "-rw-r--r-- 1 u g 10 paź 10  2023 plik", "plik", F, 10, "2023-10-10 00:00:00"},
      {"Polish capitalised", "-rw-r--r-- 1 u g 10 Paź 10  2023 plik", "plik", F, 10, "2023-10-10 00:00:00"},
      {"Polish wrz", "-rw-r--r-- 1 u g 10 wrz 10  2023 p", "p", F, 10, "2023-09-10 00:00:00"},
      {"Russian", "-rw-r--r-- 1 u g 10 янв 10 12:00 файл", "файл", F, 10, "2024-01-10 12:00:00"},
      {"Russian capitalised", "-rw-r--r-- 1 u g 10 Дек 10  2022 файл", "файл", F, 10, "2022-12-10 00:00:00"},
      {"Russian genitive day first", "-rw-r--r-- 1 u g 10 10 мая 12:00 файл", "файл", F, 10, "2024-05-10 12:00:00"},
      {"Japanese", "-rw-r--r-- 1 u g 10  1月 10 12:00 ファイル", "ファイル", F, 10, "2024-01-10 12:00:00"},
      {"owner and group glued to the size", "-rw-r--r--   1 webmaster developers98765432 Feb  2 10:15 glued.bin", "glued.bin", F, 98765432, "2024-02-02 10:15:00"},
      {"owner, group and size in one word", "-rw-r--r-- 1 webmasterdevelopers98765432 Feb  2 10:15 oneword", "oneword", F, 98765432, "2024-02-02 10:15:00"},
      {"glued columns with a year", "-rw-r--r--   1 webmaster developers12345678 Mar  3  2021 glued-old.bin", "glued-old.bin", F, 12345678, "2021-03-03 00:00:00"},
      {"no group, time", "-rw-r--r-- 1 ftp 42 Jan 10 12:00 nogroup-time", "nogroup-time", F, 42, "2024-01-10 12:00:00"},
      {"group name with a space and a year", "drwxr-xr-x   4 alice  Domain Users   4096 Mar  3  2021 Shared Docs", "Shared Docs", D, 4096, "2021-03-03 00:00:00"},
      {"link count glued to an @, time", "-rw-r--r--@3 alice staff 55 Jan 10 12:00 quarantined.dmg", "quarantined.dmg", F, 55, "2024-01-10 12:00:00"},
      {"no link count, year", "-rw-r--r-- alice staff 78 Mar  3  2021 nolinks-old.txt", "nolinks-old.txt", F, 78, "2021-03-03 00:00:00"},
      {"group name with a space", "-rw-r--r--   1 alice  Domain Users   2048 Jan 10 12:00 report.doc", "report.doc", F, 2048, "2024-01-10 12:00:00"},
      {"link count glued to an ACL +", "-rw-r--r--+12 alice staff 300 Jan 10 12:00 shared.txt", "shared.txt", F, 300, "2024-01-10 12:00:00"},
      {"link count glued to an @", "drwxr-xr-x@123 alice staff 3936 Mar  3  2021 Photos", "Photos", D, 3936, "2021-03-03 00:00:00"},
      {"no link count", "-rw-r--r-- alice staff 77 Jan 10 12:00 nolinks.txt", "nolinks.txt", F, 77, "2024-01-10 12:00:00"},
      {"MM-DD YYYY", "-rw-r--r-- 1 u g 10 03-04 2021 mmdd.txt", "mmdd.txt", F, 10, "2021-03-04 00:00:00"},
      {"YYYY/MM/DD HH:MM", "-rw-r--r-- 1 u g 11 2023/04/05 06:07 slash.txt", "slash.txt", F, 11, "2023-04-05 06:07:00"},
      {"DD-MM-YYYY HH:MM", "-rw-r--r-- 1 u g 12 25-03-2023 14:30 dmy.txt", "dmy.txt", F, 12, "2023-03-25 14:30:00"},
      {"DD-MM-YYYY in the future read as MM-DD-YYYY", "-rw-r--r-- 1 u g 12 03-08-2024 09:00 swapped.txt", "swapped.txt", F, 12, "2024-03-08 09:00:00"},
      {"MM/DD/YYYY", "-rw-r--r-- 1 u g 12 04/05/2024 09:00 us.txt", "us.txt", F, 12, "2024-04-05 09:00:00"},
      {"YYYY.MM.DD", "-rw-r--r-- 1 u g 13 2022.11.30 dotted.txt", "dotted.txt", F, 13, "2022-11-30 00:00:00"},
      {"DD-mon-YY", "-rw-r--r-- 1 u g 14 07-Aug-23 dmony.txt", "dmony.txt", F, 14, "2023-08-07 00:00:00"},
      {"DD-mon-YYYY HH:MM", "-rw-r--r-- 1 u g 15 10-Jan-2024 12:00 dmonyt.txt", "dmonyt.txt", F, 15, "2024-01-10 12:00:00"},
      {"numeric month before the day", "-rw-r--r-- 1 u g 16  3 15 12:00 nummonth.txt", "nummonth.txt", F, 16, "2024-03-15 12:00:00"},
      {"German month with comma", "-rw-r--r-- 1 u g 17 26. Juli, 2023 sommer.txt", "sommer.txt", F, 17, "2023-07-26 00:00:00"},
      {"German month with dot and comma", "-rw-r--r-- 1 u g 18 30. Jan., 09:15 winter.txt", "winter.txt", F, 18, "2024-01-30 09:15:00"},
      {"French juil.", "-rw-r--r-- 1 u g 19 juil. 14 09:30 fete.txt", "fete.txt", F, 19, "2024-07-14 09:30:00"},
      {"Spanish day first", "-rw-r--r-- 1 u g 20 10 ago  2023 agosto.txt", "agosto.txt", F, 20, "2023-08-10 00:00:00"},
      {"Norwegian des", "-rw-r--r-- 1 u g 21 des  24  2022 jul.txt", "jul.txt", F, 21, "2022-12-24 00:00:00"},
      {"Danish maj", "-rw-r--r-- 1 u g 22 maj  17 08:00 forår.txt", "forår.txt", F, 22, "2024-05-17 08:00:00"},
      {"Finnish written month", "-rw-r--r-- 1 u g 23 touko  2  2022 kevät.txt", "kevät.txt", F, 23, "2022-05-02 00:00:00"},
      {"CJK with year, UTF-8", "-rw-r--r-- 1 u g 24 2023年4月5日 cjk.txt", "cjk.txt", F, 24, "2023-04-05 00:00:00"},
      {"CJK with year, Shift-JIS", "-rw-r--r-- 1 u g 25 2023\x94N4\x8C\x8E" "5\x93\xFA sjis.txt", "sjis.txt", F, 25, "2023-04-05 00:00:00"},
      {"CJK with year, EUC-JP", "-rw-r--r-- 1 u g 26 2023\xC7\xAF" "4\xB7\xEE" "5\xC6\xFC euc.txt", "euc.txt", F, 26, "2023-04-05 00:00:00"},
      {"CJK month and day, Shift-JIS", "-rw-r--r-- 1 u g 27  4\x8C\x8E  5\x93\xFA 12:00 sjis2.txt", "sjis2.txt", F, 27, "2024-04-05 12:00:00"},
      {"hour 24:00 is the next midnight", "-rw-r--r-- 1 u g 28 Jan 10 24:00 midnight", "midnight", F, 28, "2024-01-11 00:00:00"},
      {"size in kilobytes with a fraction", "-rw-r--r-- 1 u g 33.5k Jan 10 12:00 half.txt", "half.txt", F, 34304, "2024-01-10 12:00:00"},
      {"size in megabytes", "-rw-r--r-- 1 u g 2M Jan 10 12:00 two.bin", "two.bin", F, 2097152, "2024-01-10 12:00:00"},
      {"no date at all", "-rw-r--r--   1 owner group    4321 nodate file.txt", "nodate file.txt", F, 4321, nullptr},
      {"no date, a directory", "drwxr-xr-x   3 owner group    4096 stuff", "stuff", D, 4096, nullptr},
      {"unknown type letter is a file", "wrw-r--r-- 1 u g 10 Jan 10 12:00 whiteout", "whiteout", F, 10, "2024-01-10 12:00:00"},
      {"Cygwin: owner and group of several words", "-rw-r--r--   1 Some Owner Name  Domain Users Group Long   1234 Jan 10 12:00 cyg file.txt", "cyg file.txt", F, 1234, "2024-01-10 12:00:00"},
      {"device number in hex", "crw-r-----  1 root  operator  0x5c Jan 10 12:00 ada0", "ada0", F, 0, "2024-01-10 12:00:00"},
      {"device minor in hex", "crw-rw-rw-   1 root     root     1, 0x03 Jan 10 12:00 tty3", "tty3", F, 0, "2024-01-10 12:00:00"},
      {"CJK month, day, year, Shift-JIS", "-rw-r--r-- 1 u g 29  4\x8C\x8E 18\x93\xFA 2003\x94N sj.txt", "sj.txt", F, 29, "2003-04-18 00:00:00"},
      {"Korean year, month, day, EUC-KR", "-rw-r--r-- 1 u g 30 2003  3\xBF\xF9 20 kr.txt", "kr.txt", F, 30, "2003-03-20 00:00:00"},
      {"Korean month, day, time, EUC-KR", "-rw-r--r-- 1 u g 31  8\xBF\xF9 17 08:52 kr2.txt", "kr2.txt", F, 31, "2024-08-17 08:52:00"},
      {"CJK month, day, year joined, UTF-8", "-rw-r--r-- 1 u g 32 4月18日2003年 utf.txt", "utf.txt", F, 32, "2003-04-18 00:00:00"},
      // As vsftpd, pure-ftpd and proftpd list them.
      {"vsftpd: leading blank", "-rw-r--r--    1 65534    0               2 Nov 21 06:22  lead space", " lead space", F, 2, "2024-11-21 06:22:00"},
      {"vsftpd: zero-padded day", "-rw-r--r--    1 65534    0               0 Mar 04  2019 old.txt", "old.txt", F, 0, "2019-03-04 00:00:00"},
      {"pure-ftpd: 5 GB file", "-rw-r--r--    1 65534      0          5000000000 Nov 21 06:22 big.bin", "big.bin", F, 5000000000ull, "2024-11-21 06:22:00"},
      {"proftpd: symlink", "lrwxrwxrwx   1 tester   0               9 Nov 21 06:22 link to plain -> plain.txt", "link to plain", L, 9, "2024-11-21 06:22:00", "plain.txt"},
      Reject("total line", "total 123"),
      Reject("empty", ""),
      Reject("no name", "-rw-r--r-- 1 u g 10 Jan 10 12:00"),
      Reject("no name but blanks", "-rw-r--r-- 1 u g 10 Jan 10 12:00 "),
      Reject("size not a number", "-rw-r--r-- 1 u g ten Jan 10 12:00 x"),
      Reject("unknown month", "-rw-r--r-- 1 u g 10 Foo 10 12:00 x"),
      Reject("day 32", "-rw-r--r-- 1 u g 10 Jan 32 12:00 x"),
      Reject("hour 25", "-rw-r--r-- 1 u g 10 Jan 10 25:00 x"),
      Reject("30 February", "-rw-r--r-- 1 u g 10 Feb 30  2020 x"),
      Reject("unknown type letter", "Xrw-r--r-- 1 u g 10 Jan 10 12:00 x"),
      Reject("bad permission letter", "-rw-r--r-Q 1 u g 10 Jan 10 12:00 x"),
      Reject("NUL inside", std::string("-rw-r--r-- 1 u g 10 Jan 10 12:00 a\0b", 35)),
      Reject("CR inside", "-rw-r--r-- 1 u g 10 Jan 10 12:00 a\rb"),
      Reject("damaged date is not read as a name", "-rw-r--r-- 1 u g 10 Jan 10 1:2:3 x"),
      Reject("unit letter alone", "-rw-r--r-- 1 u g k Jan 10 12:00 x"),
  };
  return cases;
}

// Lines GNU ls printed in each locale (LC_ALL=xx_XX.UTF-8 ls -l) on 21
// November 2026: a file of 15 June that year, listed with its time, and one
// of 5 December 2019, listed with its year; the rows hold the date columns.
const ListClock kLocaleClock{Utc("2026-11-21 12:00:00")};
const std::vector<Case>& LocaleCases() {
  static const std::vector<Case> cases = [] {
    const struct { const char *language, *recent, *old; } rows[] = {
      {"German", "15. Jun 09:07 ", " 5. Dez 2019  "},
      {"French", "15 juin  09:07 ", " 5 déc.   2019 "},
      {"Spanish", "jun 15 09:07 ", "dic  5  2019 "},
      {"Italian", "15 giu 09.07 ", " 5 dic  2019 "},
      {"Dutch", "15 jun 09:07 ", " 5 dec  2019 "},
      {"Swedish", "15 jun 09.07 ", " 5 dec  2019 "},
      {"Polish", "06-15 09:07 ", "2019-12-05  "},
      {"Russian", "июн 15 09:07 ", "дек  5  2019 "},
      {"Czech", "15.\u00A0čen 09.07 ", " 5.\u00A0pro  2019 "},
      {"Hungarian", "jún   15 09.07 ", "2019 dec    5 "},
      {"Finnish", "15. 6. 09:07 ", " 5.12.  2019 "},
      {"Chinese", " 6月15日 09:07 ", "2019年12月 5日 "},
      {"Korean", " 6월 15일  09:07 ", "2019년 12월  5일 "},
    };
    std::vector<Case> built;
    for (const auto& r : rows) {
      built.push_back({r.language, std::string("-rw-r--r-- 1 root root  0 ") + r.recent + "new 2026-06-15 09:07", "new 2026-06-15 09:07", F, 0, "2026-06-15 09:07:00"});
      built.push_back({r.language, std::string("-rw-r--r-- 1 root root  0 ") + r.old + "old 2019-12-05 00:00", "old 2019-12-05 00:00", F, 0, "2019-12-05 00:00:00"});
    }
    return built;
  }();
  return cases;
}

const std::vector<Case>& DosCases() {
  static const std::vector<Case> cases = {
      {"IIS directory", "01-10-24  12:00PM       <DIR>          name", "name", D, 0, "2024-01-10 12:00:00"},
      {"IIS file at midnight", "01-10-24  12:00AM                 1234 name.txt", "name.txt", F, 1234, "2024-01-10 00:00:00"},
      {"afternoon, spaces in name", "01-10-24  01:05PM                 1234 a b.txt", "a b.txt", F, 1234, "2024-01-10 13:05:00"},
      {"24 hour, four-digit year", "10-31-1999  23:59                 1234 old.txt", "old.txt", F, 1234, "1999-10-31 23:59:00"},
      {"two-digit year before 70", "02-29-68  07:00AM     1 y", "y", F, 1, "2068-02-29 07:00:00"},
      {"two-digit year from 70", "02-28-70  07:00AM     1 y", "y", F, 1, "1970-02-28 07:00:00"},
      {"day first when month cannot be", "31-12-99  23:59      1234 dm.txt", "dm.txt", F, 1234, "1999-12-31 23:59:00"},
      {"ISO date", "2024-01-10  12:00       <DIR>          iso", "iso", D, 0, "2024-01-10 12:00:00"},
      {"marker as its own word", "01/10/2024  08:15 PM    <DIR>          spaced", "spaced", D, 0, "2024-01-10 20:15:00"},
      {"size with thousands separators", "01/10/2024  08:15 AM         1,234,567 setup.exe", "setup.exe", F, 1234567, "2024-01-10 08:15:00"},
      {"leading blank after a size", "01-10-24  12:00PM                    5  lead", " lead", F, 5, "2024-01-10 12:00:00"},
      {"leading blanks after <DIR>", "01-10-24  12:00PM       <DIR>            lead", "  lead", D, 0, "2024-01-10 12:00:00"},
      {"junction", "01/10/2024  08:15 AM    <JUNCTION>     Docs [C:\\Users\\x\\Documents]", "Docs", L, 0, "2024-01-10 08:15:00", "C:\\Users\\x\\Documents"},
      {"CR at the end", "01-10-24  12:00PM       <DIR>          d\r", "d", D, 0, "2024-01-10 12:00:00"},
      {"dotted thousands", "10-05-2023  14:22          1.048.576 big.iso", "big.iso", F, 1048576, "2023-10-05 14:22:00"},
      {"two-digit year, 24 hour", "06-01-24  00:05                 77 early.log", "early.log", F, 77, "2024-06-01 00:05:00"},
      {"four-digit year, 12 hour", "12-24-2023  11:59PM             88 eve.txt", "eve.txt", F, 88, "2023-12-24 23:59:00"},
      Reject("13 PM", "01-10-24  01:00XM  5 x"),
      Reject("hour 13 with a marker", "01-10-24  13:00PM  5 x"),
      Reject("month and day both above 12", "13-13-24  12:00  5 x"),
      Reject("volume header", " Volume in drive C is SYSTEM"),
      Reject("directory header", " Directory of C:\\Users"),
      Reject("summary", "               3 File(s)        1,234 bytes"),
      Reject("bad thousands groups", "01-10-24  12:00PM  1,23,4 x"),
  };
  return cases;
}

const std::vector<Case>& OtherCases() {
  static const std::vector<Case> cases = {
      {"EPLF directory", "+i8388621.29609,m824255902,/,\tdev", "dev", D, 0, "1996-02-13 23:58:22"},
      {"EPLF file", "+i8388621.44468,m839956783,r,s10376,\tRFC EPLF", "RFC EPLF", F, 10376, "1996-08-13 17:19:43"},
      Reject("EPLF neither file nor directory", "+i8388621.1,s5,\tx"),
      Reject("EPLF without tab", "+i8388621.1,r, x"),
      {"VMS directory", "CORE.DIR;1          1/3          5-JUL-2023 10:23:12  [SYSTEM]  (RWED,RWED,RE,RE)", "CORE", D, 512, "2023-07-05 10:23:12"},
      {"VMS file keeps its version", "README.TXT;12   12  10-JAN-2024 12:00 [GROUP,OWNER] (RWED,RWED,R,)", "README.TXT;12", F, 6144, "2024-01-10 12:00:00"},
      {"VMS name and details on two lines", "LONG_DESCRIPTIVE_NAME.DAT;2\n        27/30      12-FEB-2024 08:15:42  [STAFF,BOB]  (RWED,RWED,RE,)", "LONG_DESCRIPTIVE_NAME.DAT;2", F, 13824, "2024-02-12 08:15:42"},
      {"VMS without a time", "NOTES.TXT;4   3   28-MAR-2023  [STAFF,BOB]  (RWED,RWED,R,)", "NOTES.TXT;4", F, 1536, "2023-03-28 00:00:00"},
      {"VMS date before the size", "PLAN.TXT;1   14-MAY-2024 16:40:00  [STAFF,BOB]  9/12  (RWED,RWED,,)", "PLAN.TXT;1", F, 4608, "2024-05-14 16:40:00"},
      {"VMS size in KB", "ARCHIVE.ZIP;1   120KB   01-APR-2024 07:05:00", "ARCHIVE.ZIP;1", F, 122880, "2024-04-01 07:05:00"},
      {"VMS French month, bare owner, no time", "NOTES.TXT;4   3   14-JUI-2023  SYSTEM  (RWED,RWED,R,)", "NOTES.TXT;4", F, 1536, "2023-07-14 00:00:00"},
      {"VMS name alone, CR LF, French month", "SOME_LONG_FILE_NAME.TXT;3\r\n        12/14   02-AOU-2023  SYSTEM  (RWED,RWED,RE,)", "SOME_LONG_FILE_NAME.TXT;3", F, 6144, "2023-08-02 00:00:00"},
      Reject("VMS error line", "%RMS-E-PRV, insufficient privilege or file protection violation"),
      Reject("VMS name alone", "ORPHAN.TXT;1"),
      Reject("VMS summary", "Total of 2 files, 13/17 blocks."),
      Reject("VMS header", "Directory DISK$USER:[ME]"),
      {"NetWare directory", "d [R----F--] supervisor            512       Jan 16 18:53    login", "login", D, 512, "2024-01-16 18:53:00"},
      {"NetWare file", "- [RWCEAFMS] rhesus             214059       Oct 20  2019    cx.exe", "cx.exe", F, 214059, "2019-10-20 00:00:00"},
      {"OS/2 directory", "     0           DIR   04-11-95   16:26  ADDRESS", "ADDRESS", D, 0, "1995-04-11 16:26:00"},
      {"OS/2 file", "   612      A          07-28-95   16:45  air tra1.bag", "air tra1.bag", F, 612, "1995-07-28 16:45:00"},
      {"OS/2 year counted from 1900", "  2048      A          11-17-103   09:41  y2k3.txt", "y2k3.txt", F, 2048, "2003-11-17 09:41:00"},
      {"OS/2 directory, four-digit year", "     0           DIR   05-19-2000 12:56  local", "local", D, 0, "2000-05-19 12:56:00"},
      {"OS/400 directory", "QSYS           77824 02/23/00 15:09:55 *DIR       QOpenSys/", "QOpenSys", D, 77824, "2000-02-23 15:09:55"},
      {"OS/400 file", "QPGMR          135 04/13/01 10:37:37 *STMF      file.txt", "file.txt", F, 135, "2001-04-13 10:37:37"},
      {"OS/400 date as YY/MM/DD", "QSYS            4096 23/11/30 08:00:00 *STMF      ymd.txt", "ymd.txt", F, 4096, "2023-11-30 08:00:00"},
      {"OS/400 MM/DD/YY in the future read as YY/MM/DD", "QUSER  512 12/06/24 07:30:00 *STMF  past.txt", "past.txt", F, 512, "2012-06-24 07:30:00"},
      {"OS/400 member", "QPGMR                                   *MEM       PAYLIB.LIB/QCLSRC.FILE/START.MBR", "START.MBR", F, 0, nullptr},
      {"OS/400 file of members", "QPGMR          61440 01/15/24 10:00:00 *FILE      QCLSRC.FILE/", "QCLSRC.FILE", D, 61440, "2024-01-15 10:00:00"},
      {"OS/400 day first with slashes, name with spaces", "QSYS   40960 27/03/11 09:15:02 *STMF   report march.csv", "report march.csv", F, 40960, "2011-03-27 09:15:02"},
      {"OS/400 day first with dots, file without members", "QPGMR  36864 21.10.09 16:40:11 *FILE   LIB.FILE", "LIB.FILE", F, 36864, "2009-10-21 16:40:11"},
      {"OS/400 name with its path", "QSYS    2048 01/15/24 10:00:00 *STMF   /HOME/USER/X.PDF", "X.PDF", F, 2048, "2024-01-15 10:00:00"},
      {"OS/400 date order shown by an earlier line", "QSYS 40960 27/03/11 09:15:02 *STMF a.csv\nQSYS 512 05/04/03 10:00:00 *STMF b.txt", "b.txt", F, 512, "2003-04-05 10:00:00"},
      {"z/OS partitioned data set", "WYNK01 3390   2024/01/10  1   15  PO      80  3120  PO  CLIST", "CLIST", D, 0, "2024-01-10 00:00:00"},
      {"z/OS sequential data set", "WYNK02 3390   2023/12/31  2  150  FB      80 27920  PS  DATA.SET", "DATA.SET", F, 0, "2023-12-31 00:00:00"},
      {"z/OS migrated data set", "Migrated                                                OLD.DATA", "OLD.DATA", F, 0, nullptr},
      {"z/OS member", "MEMBER1   01.03 2024/01/10 2024/01/11 12:34    10    10     0 USER1", "MEMBER1", F, 0, "2024-01-11 12:34:00"},
      {"z/OS data set never referred", "WYNK03 3390   **NONE**    1    1  U        0  6144  PO  EMPTY.LOAD", "EMPTY.LOAD", D, 0, nullptr},
      {"z/OS VSAM cluster", "SYS001 3390   2024/01/10  1   45                  VSAM  APP.KSDS", "APP.KSDS", F, 0, "2024-01-10 00:00:00"},
      {"z/OS VSAM with volume and unit alone", "USER01 3390   VSAM MY.CLUSTER", "MY.CLUSTER", F, kUnknownSize, nullptr},
      {"z/OS sequential data set, size unknown", "USER01 3390   2019/07/11  2  150  FB  80  27920  PS  MY.DATA", "MY.DATA", F, kUnknownSize, "2019-07-11 00:00:00"},
      {"z/OS migrated volume", "MIGRAT                                                  HSM.OLD.BACKUP", "HSM.OLD.BACKUP", F, 0, nullptr},
      {"z/OS pseudo directory", "Pseudo Directory                                        HLQ.SUB", "HLQ.SUB", D, 0, nullptr},
      {"z/OS load module", "PGM1      000A20   00000F         00 FO             RN RU            31    ANY", "PGM1", F, 2592, nullptr},
      {"octal mode and Unix time", "100644   1 owner    group        1234 1718452800 epoch.txt", "epoch.txt", F, 1234, "2024-06-15 12:00:00"},
      {"octal mode of a directory", "040755 2 owner group 4096 1700000000 folder", "folder", D, 4096, "2023-11-14 22:13:20"},
      {"octal mode of a link", "120777 1 owner group 7 1700000000 lnk -> target", "lnk", L, 7, "2023-11-14 22:13:20", "target"},
      {"VShell: year and time", "-rw-r--r--   1 owner group 12345 Mar 14 2023 08:24 vshell new.txt", "vshell new.txt", F, 12345, "2023-03-14 08:24:00"},
      {"VShell: owner alone", "-rwxr-xr-x owner 6789 Mar 14 2023 vshell-old.exe", "vshell-old.exe", F, 6789, "2023-03-14 00:00:00"},
      {"VShell: comma after the day", "-rw-r--r--   1 user group   77 Sep 30, 2011 07:02 notes.txt", "notes.txt", F, 77, "2011-09-30 07:02:00"},
      {"VShell: size first", "1048576  Jun 09, 2004 13:05 setup file.exe", "setup file.exe", F, 1048576, "2004-06-09 13:05:00"},
      {"VShell: size first, a folder by its slash", "0  Jun 09, 2004 13:05 tools/", "tools", D, 0, "2004-06-09 13:05:00"},
      {"VxWorks file", "     41   FEB-01-2000  10:20:34   notes.txt", "notes.txt", F, 41, "2000-02-01 10:20:34"},
      {"VxWorks directory", "    512   JAN-13-2000  09:12:12   subdir        <DIR>", "subdir", D, 512, "2000-01-13 09:12:12"},
      {"Nortel switch", "  12345  Jan 10 2024  12:00:00  CONFIG.CFG", "CONFIG.CFG", F, 12345, "2024-01-10 12:00:00"},
      {"Nortel switch: name first, the weekday tells the date", "name   1014196  01/04/04  Thur.   10:20:03", "name", F, 1014196, "2004-04-01 10:20:03"},
      {"OS-9 directory", "  0.0   24/01/10 1205 d-ewrewr     2A0      1C0 CMDS", "CMDS", D, 448, "2024-01-10 12:05:00"},
      {"OS-9 file", "  3.12  23/12/31 2359 ----r-wr     5F3     2A1B startup", "startup", F, 10779, "2023-12-31 23:59:00"},
      {"Connect:Enterprise batch", "-CR-E-----TCP A BATCH07          4096 Mar 12 09:30 PAYROLL.DAT", "PAYROLL.DAT", F, 4096, "2024-03-12 09:30:00"},
      Reject("z/OS data set header", "Volume Unit    Referred Ext Used Recfm Lrecl BlkSz Dsorg Dsname"),
      Reject("z/OS member header", "Name     VV.MM   Created       Changed      Size  Init   Mod   Id"),
      Reject("FTP reply text", "226 Transfer complete."),
  };
  return cases;
}

const std::vector<Case>& MlsdCases() {
  static const std::vector<Case> cases = {
      {"file with blanks in the name", "type=file;size=1234;modify=20240110120000; name with  spaces", "name with  spaces", F, 1234, "2024-01-10 12:00:00"},
      {"facts in any case, fraction", "Type=DIR;Modify=20240110120000.123;Perm=el; dir", "dir", D, 0, "2024-01-10 12:00:00"},
      {"cdir becomes .", "type=cdir;sizd=4096;modify=20240110120000; /home/user", ".", D, 4096, "2024-01-10 12:00:00"},
      {"pdir becomes ..", "type=pdir;modify=20240110120000; /home", "..", D, 0, "2024-01-10 12:00:00"},
      {"slink with target", "type=OS.unix=slink:/etc/target;size=10; link", "link", L, 10, nullptr, "/etc/target"},
      {"symlink without target", "type=OS.unix=symlink;UNIX.mode=0777; link2", "link2", L, 0, nullptr},
      {"directory size as sizd", "type=dir;sizd=4096; d", "d", D, 4096, nullptr},
      {"no facts", " no facts", "no facts", F, 0, nullptr},
      {"bad modify is unknown", "size=10;type=file;modify=bogus; x", "x", F, 10, nullptr},
      {"leading blank of the name", "type=file;size=1;  lead", " lead", F, 1, nullptr},
      {"device type is a file", "type=OS.unix=chr-13/29; tty", "tty", F, 0, nullptr},
      {"CR at the end", "type=file;size=1; a\r", "a", F, 1, nullptr},
      {"size above 4 GiB", "type=file;size=8589934592; big", "big", F, 8589934592ull, nullptr},
      {"pure-ftpd: slink with empty target", "type=OS.unix=slink:;size=9;modify=20261121062252;UNIX.mode=0777;UNIX.uid=65534;UNIX.gid=0;unique=" "fe00ga729a1; " "link to plain", "link to plain", L, 9, "2026-11-21 06:22:52"},
      {"pure-ftpd: leading blank", "type=file;size=2;modify=20261121062252;UNIX.mode=0644;UNIX.uid=65534;UNIX.gid=0;unique=fe00ga72961;  " "lead space", " lead space", F, 2, "2026-11-21 06:22:52"},
      {"proftpd: symlink", "modify=20261121062252;perm=adfrw;size=9;type=OS.unix=symlink;unique=FE00UA72951;UNIX.group=0;" "UNIX.groupname=nogroup;UNIX.mode=0777;UNIX.owner=65534;UNIX.ownername=tester; link to plain", "link to plain", L, 9, "2026-11-21 06:22:52"},
      {"proftpd: cdir", "modify=20261121062253;perm=flcdmpe;type=cdir;unique=FE00UA72921;UNIX.group=0;UNIX.groupname=nogroup;" "UNIX.mode=0755;UNIX.owner=65534;UNIX.ownername=tester; .", ".", D, 0, "2026-11-21 06:22:53"},
      Reject("no name", "type=file;size=1;"),
      {"no semicolon after the facts", "type=file;size=42;modify=20240110120000 tail.txt", "tail.txt", F, 42, "2024-01-10 12:00:00"},
      {"tab after the facts", "type=file;size=5;modify=20240110120000;\ttabbed.txt", "tabbed.txt", F, 5, "2024-01-10 12:00:00"},
      {"name that looks like a Unix line", "type=file;size=5; -rw-r--r-- 1 u g 10 Jan 10 12:00 x", "-rw-r--r-- 1 u g 10 Jan 10 12:00 x", F, 5, nullptr},
      {"tab in the name", "type=file;size=3; tab\there", "tab\there", F, 3, nullptr},
      {"unknown facts ignored", "type=file;x.custom=abc;size=8;lang=en;perm=r; unknown.txt", "unknown.txt", F, 8, nullptr},
      {"blank before the facts", " type=dir;modify=20240110120000; spaced", "spaced", D, 0, "2024-01-10 12:00:00"},
      {"cdir without the last semicolon", "TYPE=CDIR;MODIFY=20240110120000 /srv", ".", D, 0, "2024-01-10 12:00:00"},
      Reject("fact without value", "typefile; x"),
      Reject("empty name", "type=file; "),
      Reject("NUL in name", std::string("type=file; a\0b", 14)),
  };
  return cases;
}
// clang-format on

// Each family through the entry point the engine uses for it (the others
// through the reader, so that an entry on two lines, the case's lines joined
// by '\n', is one case), all into one entry as the engine does: nothing of
// a line (a link target, a time) may stay behind for the next. The second
// time round each line ends as it arrives, and once the entry's strings
// have grown to the longest name no line may cost an allocation.
TEST(ListingParse, EveryFamily) {
  FtpListEntry e;
  ListLineReader reader(kClock);
  size_t allocations = 0;
  for (const std::string end : {"", "\r\n"}) {
    auto check = [&](const Case& c, auto parse) {
      const std::string line = c.line + end;
      const size_t before = g_allocations.load();
      const bool ok = parse(line);
      if (!end.empty()) allocations += g_allocations.load() - before;
      CheckCase(c, ok, e);
    };
    for (const auto& [cases, clock] : {std::pair{&UnixCases(), kClock}, {&LocaleCases(), kLocaleClock}, {&DosCases(), kClock}})
      for (const Case& c : *cases) check(c, [&](const std::string& line) { return ParseListLine(line, clock, e); });
    for (const Case& c : OtherCases()) check(c, [&](const std::string& line) { return ReadLines(reader, line, e); });
    for (const Case& c : MlsdCases()) check(c, [&](const std::string& line) { return ParseMlsdLine(line, e); });
  }
  EXPECT_EQ(allocations, 0u);
}

// Leap days against this, last and next year; then the six-month edge: 183
// days ahead stays, 184 goes back a year.
TEST(ListingParse, YearlessDatesFollowTheClock) {
  const struct { const char *line, *now, *expected; } cases[] = {
      {"Feb 29 10:00", "2024-03-01 00:00:00", "2024-02-29 10:00:00"},
      {"Feb 29 10:00", "2025-03-01 00:00:00", "2024-02-29 10:00:00"},
      {"Feb 29 10:00", "2028-01-01 00:00:00", "2028-02-29 10:00:00"},
      {"Feb 29 10:00", "2027-08-01 00:00:00", "2024-02-29 10:00:00"},  // no leap year since
      {"Dec 15 12:00", "2024-06-15 12:00:00", "2024-12-15 12:00:00"},
      {"Dec 16 12:00", "2024-06-15 12:00:00", "2023-12-16 12:00:00"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.line) + " at " + c.now);
    FtpListEntry e;
    ASSERT_TRUE(ParseListLine(std::string("-rw-r--r-- 1 u g 1 ") + c.line + " x", ListClock{Utc(c.now)}, e));
    ASSERT_TRUE(e.mtime.has_value());
    EXPECT_EQ(*e.mtime, Utc(c.expected));
  }
}

// Columns padded to any width, with blanks or tabs: words are found a block
// of bytes at a time, so every column edge must come out right wherever it
// falls in a block, and the name keeps its own blanks.
TEST(ListingParse, ColumnsPaddedToAnyWidth) {
  for (size_t pad = 1; pad <= 33; ++pad) {
    for (char blank : {' ', '\t'}) {
      std::string gap(pad, blank);
      std::string line = "lrwxrwxrwx" + gap + "1" + gap + "owner" + gap + "group" + gap + "42" + gap + "Feb" +
                         gap + "3" + gap + "2021 " + std::string(pad % 3, ' ') + "a  b\tc -> /t a";
      // After a single blank before the year the layout is unknown and
      // every blank before the name is skipped.
      std::string name = std::string(pad >= 2 ? pad % 3 : 0, ' ') + "a  b\tc";
      FtpListEntry e;
      CheckCase({"padded", line, name, L, 42, "2021-02-03 00:00:00", "/t a"}, ParseListLine(line, kClock, e), e);
    }
  }
}

// Damaged lines may be taken or refused, but never crash, and an entry that is
// taken never carries a NUL, CR or LF in its name.
TEST(ListingParse, RandomDamageNeverCrashes) {
  std::mt19937 rng(20240615);
  const char kNoise[] = {'\r', '\n', '\0', ' ', '\t', ',', ';', '=', '>', '\xD0', '\xC3', '9'};
  size_t taken = 0, tried = 0;
  ListLineReader reader(kClock);
  for (const auto* table : {&UnixCases(), &LocaleCases(), &DosCases(), &OtherCases(), &MlsdCases()}) {
    for (const Case& c : *table) {
      for (int round = 0; round < 150; ++round) {
        std::string line = c.line;
        for (int k = 0, edits = 1 + static_cast<int>(rng() % 4); k < edits; ++k) {
          size_t at = line.empty() ? 0 : rng() % (line.size() + 1);
          const unsigned edit = rng() % 4;
          if (edit < 2) line.insert(at, 1, kNoise[rng() % sizeof kNoise]);
          if (edit == 2) line.resize(at);
          if (edit == 3 && at < line.size()) line.erase(at, 1 + rng() % 3);
        }
        // The reader gets each piece after whatever came before, so that a
        // name left waiting meets damaged details.
        for (int way = 0; way < 3; ++way) {
          FtpListEntry e;
          bool ok = way == 0 ? ParseMlsdLine(line, e) : way == 1 ? ParseListLine(line, kClock, e) : ReadLines(reader, line, e);
          ++tried;
          if (!ok) continue;
          ++taken;
          ASSERT_FALSE(e.name.empty()) << line;
          ASSERT_EQ(e.name.find_first_of(std::string("\r\n\0", 3)), std::string::npos) << line;
        }
      }
    }
  }
  // The damage must leave a good share of lines parseable, or the pass
  // would prove nothing about the accepting paths.
  EXPECT_GT(taken, tried / 20);
  EXPECT_LT(taken, tried);
}

}  // namespace
