// Unix "ls -l" lines, as most servers send them:
//   drwxr-xr-x   2 user group   4096 Jan 10 12:00 name
//   -rw-r--r--   1 user        12345 Mar  3  2021 name with spaces
//   lrwxrwxrwx   1 0    0          7 Jan 10 12:00 link -> target
//   crw-rw-rw-   1 root root   1,   3 Jan 10 12:00 null
// with or without the group, numeric ids, localised month names ("10. Mär",
// "janv. 10", " 1月 10") and ISO dates (--time-style=long-iso, full-iso).
// Also the listings of servers that only imitate ls: numeric dates in many
// orders, sizes with unit letters, no date at all, and Connect:Enterprise's
// batch lines, which share the columns after their own first one.
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "inet/listparse.h"

namespace ftpzn::inet::listparse {

namespace {

// Which bytes may stand where in the permission column; a table, since
// every line of a listing comes through here.
struct PermissionBytes {
  bool type[256] = {};
  bool mode[256] = {};
  bool marker[256] = {};
  constexpr PermissionBytes() {
    // Type letters: file, directory, link, devices, fifo, socket, Solaris
    // door, HP-UX network special.
    for (char c : std::string_view("-dlcbpsDn")) type[static_cast<unsigned char>(c)] = true;
    // Other systems' lower-case letters ("w" whiteout, "e" event port, "m"
    // migrated) and ls's "?" for a type it cannot tell: entries all the same.
    for (char c = 'a'; c <= 'z'; ++c) type[static_cast<unsigned char>(c)] = true;
    type[static_cast<unsigned char>('?')] = true;
    for (char c : std::string_view("rwxsStTlL-")) mode[static_cast<unsigned char>(c)] = true;
    // ACL, extended attribute or security-context marker.
    for (char c : std::string_view("+@.")) marker[static_cast<unsigned char>(c)] = true;
  }
};
constexpr PermissionBytes kPermissionBytes;

// The permissions, optionally followed by a marker and, where the link count
// overflowed its column, the count itself ("-rw-r--r--+12").
bool IsPermissionColumn(std::string_view t) {
  if (t.size() < 10) return false;
  auto byte = [&t](size_t i) { return static_cast<unsigned char>(t[i]); };
  if (!kPermissionBytes.type[byte(0)]) return false;
  for (size_t i = 1; i < 10; ++i)
    if (!kPermissionBytes.mode[byte(i)]) return false;
  if (t.size() == 10) return true;
  return kPermissionBytes.marker[byte(10)] && (t.size() == 11 || (t.size() <= 20 && IsDigits(t.substr(11))));
}

// "10", "10." (day first), "10," (VShell's "Sep 30, 2011").
bool ParseDay(std::string_view t, int& day) {
  if (!t.empty() && (t.back() == '.' || t.back() == ',')) t.remove_suffix(1);
  return t.size() <= 2 && ParseInt(t, day) && day >= 1 && day <= 31;
}

bool ParseYear(std::string_view t, int& year) {
  return t.size() == 4 && ParseInt(t, year) && year >= 1900 && year <= 2999;
}

// Where the date sits and what it says; mtime is set by the caller once the
// year is known.
struct DateMatch {
  int year = 0;  // 0: listed without a year
  int month = 0;
  int day = 0;
  TimeOfDay time;
  int64_t zoneOffset = 0;  // seconds east of UTC (full-iso only)
  size_t lastToken = 0;
  // How many blanks between the date and the name are separators. ls pads
  // its date column and follows it by one blank, so further blanks belong to
  // the name; where the layout is not known, all blanks are skipped.
  size_t separatorBlanks = 1;
  // For the forms whose order of day and month is not certain.
  const ListClock* clock = nullptr;
};

constexpr size_t kAnyBlanks = static_cast<size_t>(-1);

bool ParseZone(std::string_view t, int64_t& offset) {
  int hhmm = 0;
  if (t.size() != 5 || (t[0] != '+' && t[0] != '-') || !ParseInt(t.substr(1), hhmm)) return false;
  int hours = hhmm / 100, minutes = hhmm % 100;
  if (hours > 14 || minutes > 59) return false;
  offset = (t[0] == '-' ? -1 : 1) * static_cast<int64_t>(hours * 3600 + minutes * 60);
  return true;
}

bool ParseIsoDate(std::string_view t, int& year, int& month, int& day) {
  return t.size() == 10 && t[4] == '-' && t[7] == '-' && ParseInt(t.substr(0, 4), year) &&
         ParseInt(t.substr(5, 2), month) && ParseInt(t.substr(8, 2), day) && IsValidDate(year, month, day);
}

// "HH:MM", "HH:MM:SS", and "HH.MM" as Italian, Swedish, Czech and Hungarian
// locales print the time.
// "24:00" (some servers' end of a day) is the next day's midnight; the
// calendar arithmetic carries the 24 hours over.
bool ParseListTime(std::string_view t, TimeOfDay& time) {
  if (t.size() == 5 && t[2] == '.') {
    char colon[5] = {t[0], t[1], ':', t[3], t[4]};
    return ParseTimeOfDay(std::string_view(colon, 5), time);
  }
  if (t.size() <= 8 && ParseTimeOfDay(t, time)) return true;
  if (t == "24:00" || t == "24:00:00") {
    time = {24, 0, 0};
    return true;
  }
  return false;
}

// The time-or-year column after month and day.
bool ParseTimeOrYear(const TokenList& tok, size_t at, DateMatch& m) {
  if (at >= tok.size()) return false;
  std::string_view t = tok[at].text;
  m.lastToken = at;
  if (ParseYear(t, m.year)) {
    // Two blanks before a year mean ls's five-character column.
    bool padded = tok[at].begin >= 2 && tok[at].begin - 2 >= tok[at - 1].end;
    m.separatorBlanks = padded ? 1 : kAnyBlanks;
    // VShell and some other imitations print the year and then the time
    // ("Mar 14 2023 08:24"); ls never does, and pads its year column.
    if (!padded && at + 2 < tok.size() && tok[at + 1].text.size() == 5 &&
        ParseListTime(tok[at + 1].text, m.time))
      m.lastToken = at + 1;
    return true;
  }
  if (!ParseListTime(t, m.time)) return false;
  m.separatorBlanks = t.size() == 5 ? 1 : kAnyBlanks;
  // BSD "ls -lT": "Jan 10 12:00:00 2024".
  if (t.size() == 8 && at + 1 < tok.size() && ParseYear(tok[at + 1].text, m.year)) {
    m.lastToken = at + 1;
    m.separatorBlanks = 1;
  }
  return true;
}

// "2024-01-10 12:00" (long-iso), "2024-01-10 12:00:00.000000000 +0100"
// (full-iso).
bool MatchIsoDate(const TokenList& tok, size_t i, DateMatch& m) {
  if (i + 1 >= tok.size() || !ParseIsoDate(tok[i].text, m.year, m.month, m.day) ||
      !ParseTimeOfDay(tok[i + 1].text, m.time))
    return false;
  m.lastToken = i + 1;
  if (i + 2 < tok.size() && ParseZone(tok[i + 2].text, m.zoneOffset)) m.lastToken = i + 2;
  return true;
}

// "Jan 10 12:00", "janv. 10  2024", " 1月 10 12:00".
bool MatchMonthDay(const TokenList& tok, size_t i, DateMatch& m) {
  return i + 2 < tok.size() && (m.month = MonthFromName(tok[i].text)) != 0 &&
         ParseDay(tok[i + 1].text, m.day) && ParseTimeOrYear(tok, i + 2, m);
}

// "10. Mär 12:00", "10 déc.  2023", "10 мая 12:00".
bool MatchDayMonth(const TokenList& tok, size_t i, DateMatch& m) {
  return i + 2 < tok.size() && ParseDay(tok[i].text, m.day) &&
         (m.month = MonthFromName(tok[i + 1].text)) != 0 && ParseTimeOrYear(tok, i + 2, m);
}

// Czech: "15.\u00A0led  2026", day and month joined by a no-break space.
bool MatchDayMonthJoined(const TokenList& tok, size_t i, DateMatch& m) {
  constexpr std::string_view kNoBreakSpace = "\xC2\xA0";
  std::string_view t = tok[i].text;
  size_t nbsp = t.find(kNoBreakSpace);
  return nbsp != std::string_view::npos && ParseDay(t.substr(0, nbsp), m.day) &&
         (m.month = MonthFromName(t.substr(nbsp + kNoBreakSpace.size()))) != 0 &&
         ParseTimeOrYear(tok, i + 1, m);
}

// Hungarian: "2025 dec   15" (older files; recent ones are "nov   21 06.17").
bool MatchYearMonthDay(const TokenList& tok, size_t i, DateMatch& m) {
  if (i + 2 >= tok.size() || !ParseYear(tok[i].text, m.year) ||
      (m.month = MonthFromName(tok[i + 1].text)) == 0 || !ParseDay(tok[i + 2].text, m.day))
    return false;
  m.lastToken = i + 2;
  return true;
}

// Finnish: "21.11. 06:17", "15.12.  2025", "15. 1.  2026".
bool MatchNumericDayMonth(const TokenList& tok, size_t i, DateMatch& m) {
  std::string_view t = tok[i].text;
  size_t dot = t.find('.');
  if (dot == std::string_view::npos || t.back() != '.') return false;
  if (dot + 1 < t.size()) {
    if (!ParseDay(t.substr(0, dot), m.day) || !ParseInt(t.substr(dot + 1, t.size() - dot - 2), m.month))
      return false;
    ++i;
  } else {
    if (i + 1 >= tok.size() || !ParseDay(t, m.day)) return false;
    std::string_view next = tok[i + 1].text;
    if (next.size() < 2 || next.size() > 3 || next.back() != '.' ||
        !ParseInt(next.substr(0, next.size() - 1), m.month))
      return false;
    i += 2;
  }
  return m.month >= 1 && m.month <= 12 && ParseTimeOrYear(tok, i, m);
}

// Polish: "2019-01-05" without a time for older files, "11-21 06:17" for
// recent ones; the older form is padded to the width of the recent one.
bool MatchNumericIso(const TokenList& tok, size_t i, DateMatch& m) {
  std::string_view t = tok[i].text;
  if (ParseIsoDate(t, m.year, m.month, m.day)) {
    m.lastToken = i;
    m.separatorBlanks = 2;
    return true;
  }
  if (t.size() != 5 || t[2] != '-' || !ParseInt(t.substr(0, 2), m.month) || !ParseInt(t.substr(3), m.day) ||
      m.month < 1 || m.month > 12 || m.day < 1 || m.day > 31 || i + 1 >= tok.size())
    return false;
  // "MM-DD HH:MM", and "MM-DD YYYY" for older files.
  return ParseTimeOrYear(tok, i + 1, m);
}

// A date in token i ends the date, unless a time follows it (and a name
// after that): then the time does, one blank before the name.
bool EndAtDateOrTime(const TokenList& tok, size_t i, DateMatch& m) {
  m.lastToken = i;
  m.separatorBlanks = kAnyBlanks;
  if (i + 2 < tok.size() && ParseListTime(tok[i + 1].text, m.time)) {
    m.lastToken = i + 1;
    m.separatorBlanks = 1;
  }
  return true;
}

// Numbers alone: "2023/04/05 06:07", "25-03-2023 14:30", "2023.04.05",
// "04-05-23". Day first with '.' and '-', month first with '/' (as the US
// prints it), unless that reading is no date or a future one and the other
// is not; with a year first the order is always year, month, day. A time
// after the date is taken when present.
bool MatchNumericDate(const TokenList& tok, size_t i, DateMatch& m) {
  std::string_view t = tok[i].text;
  if (t.size() < 8 || t.size() > 10) return false;
  char sep = t[2] == '-' || t[2] == '/' || t[2] == '.' ? t[2] : t.size() > 4 ? t[4] : 0;
  if (sep != '-' && sep != '/' && sep != '.') return false;
  size_t a = t.find(sep), b = t.find(sep, a + 1);
  if (b == std::string_view::npos || t.find(sep, b + 1) != std::string_view::npos) return false;
  int f1 = 0, f2 = 0, f3 = 0;
  std::string_view s1 = t.substr(0, a), s2 = t.substr(a + 1, b - a - 1), s3 = t.substr(b + 1);
  if (s2.empty() || s2.size() > 2 || !ParseInt(s1, f1) || !ParseInt(s2, f2) || !ParseInt(s3, f3))
    return false;
  if (s1.size() == 4 && s3.size() <= 2) {
    m.year = f1;
    m.month = f2;
    m.day = f3;
  } else if (s1.size() <= 2 && (s3.size() == 2 || s3.size() == 4)) {
    // Either order may be meant: the one this separator suggests is taken
    // unless it gives no date or one in the future and the other does not.
    const int year = s3.size() == 2 ? ExpandTwoDigitYear(f3) : f3;
    const DateReading dayFirst{year, f2, f1}, monthFirst{year, f1, f2};
    const DateReading readings[] = {sep == '/' ? monthFirst : dayFirst, sep == '/' ? dayFirst : monthFirst};
    DateReading chosen;
    if (!m.clock || !ChooseDateReading(readings, 2, *m.clock, chosen)) return false;
    m.year = chosen.year;
    m.month = chosen.month;
    m.day = chosen.day;
  } else {
    return false;
  }
  if (!IsValidDate(m.year, m.month, m.day)) return false;
  return EndAtDateOrTime(tok, i, m);
}

// "10-Jan-24", "10-Jan-2024", optionally followed by a time.
bool MatchDayMonthNameYear(const TokenList& tok, size_t i, DateMatch& m) {
  std::string_view t = tok[i].text;
  size_t a = t.find('-');
  size_t b = a == std::string_view::npos ? a : t.find('-', a + 1);
  if (b == std::string_view::npos || !ParseDay(t.substr(0, a), m.day)) return false;
  std::string_view year = t.substr(b + 1);
  if ((m.month = MonthFromName(t.substr(a + 1, b - a - 1))) == 0 || (year.size() != 2 && year.size() != 4) ||
      !ParseInt(year, m.year))
    return false;
  if (year.size() == 2) m.year = ExpandTwoDigitYear(m.year);
  return EndAtDateOrTime(tok, i, m);
}

// A month as a number before the day: " 3 15 12:00", "11  2  2023".
bool MatchNumericMonthDay(const TokenList& tok, size_t i, DateMatch& m) {
  return i + 2 < tok.size() && tok[i].text.size() <= 2 && ParseInt(tok[i].text, m.month) && m.month >= 1 &&
         m.month <= 12 && ParseDay(tok[i + 1].text, m.day) && ParseTimeOrYear(tok, i + 2, m);
}

// Chinese, Japanese and Korean dates with unit signs: "2025年12月15日",
// "2026年 1月15日", "11月21日 06:17", "2019년  1월  5일", "11월 21일  06:17",
// and the year after the day as some Japanese servers print it
// ("4月 18日 2003年", "4月18日2003年").
bool MatchCjkDate(const TokenList& tok, size_t i, DateMatch& m) {
  // UTF-8 Chinese and Japanese, Korean, the Japanese signs in Shift-JIS and
  // EUC-JP as servers on older Japanese systems send them, and Korean in EUC-KR.
  static constexpr std::string_view kSigns[3][5] = {
      {"\xE5\xB9\xB4", "\xEB\x85\x84", "\x94\x4E", "\xC7\xAF", "\xB3\xE2"},  // year
      {"\xE6\x9C\x88", "\xEC\x9B\x94", "\x8C\x8E", "\xB7\xEE", "\xBF\xF9"},  // month
      {"\xE6\x97\xA5", "\xEC\x9D\xBC", "\x93\xFA", "\xC6\xFC", "\xC0\xCF"},  // day
  };
  int fields[3] = {0, 0, 0};  // year, month, day
  // One word's "number, sign" pieces; a field given twice, or a day before
  // its month, is no date.
  auto pieces = [&fields](std::string_view t) {
    while (!t.empty()) {
      size_t digits = 0;
      while (digits < t.size() && digits < 4 && t[digits] >= '0' && t[digits] <= '9') ++digits;
      int value = 0;
      if (digits == 0 || !ParseInt(t.substr(0, digits), value)) return false;
      t.remove_prefix(digits);
      int field = -1;
      for (int f = 0; f < 3 && field < 0; ++f) {
        for (std::string_view sign : kSigns[f]) {
          if (t.starts_with(sign)) {
            field = f;
            t.remove_prefix(sign.size());
            break;
          }
        }
      }
      if (field < 0 || fields[field] != 0 || (field == 2 && fields[1] == 0) || value == 0) return false;
      fields[field] = value;
    }
    return true;
  };
  size_t k = i;
  for (; k < tok.size() && k < i + 3 && fields[2] == 0; ++k)
    if (!pieces(tok[k].text)) return false;
  if (fields[0] == 0 && fields[2] != 0 && k < tok.size()) {
    // A year of its own after the day; anything else there (a time, the
    // name) is left as it was.
    if (pieces(tok[k].text) && fields[0] != 0)
      ++k;
    else
      fields[0] = 0;
  }
  if (fields[1] < 1 || fields[1] > 12 || fields[2] < 1 || fields[2] > 31) return false;
  m.year = fields[0];
  m.month = fields[1];
  m.day = fields[2];
  if (m.year != 0) {
    m.lastToken = k - 1;
    return m.year >= 1900;
  }
  m.lastToken = k;
  return k < tok.size() && ParseListTime(tok[k].text, m.time);
}

using DateMatcher = bool (*)(const TokenList&, size_t, DateMatch&);
// The forms of English and most European locales are looked for first,
// across all columns; only a line none of them fits is read in the rarer
// forms, so that a group or size that looks like a year cannot mislead.
constexpr DateMatcher kCommonForms[] = {MatchMonthDay, MatchDayMonth, MatchIsoDate};
constexpr DateMatcher kRareForms[] = {MatchYearMonthDay,     MatchNumericDayMonth, MatchNumericIso,
                                      MatchCjkDate,          MatchDayMonthJoined,  MatchNumericDate,
                                      MatchDayMonthNameYear, MatchNumericMonthDay};

bool IsDeviceMajor(std::string_view t) {
  return t.size() >= 2 && t.back() == ',' && IsDigits(t.substr(0, t.size() - 1));
}

bool IsDevicePair(std::string_view t) {
  size_t comma = t.find(',');
  return comma != std::string_view::npos && IsDigits(t.substr(0, comma)) && IsDigits(t.substr(comma + 1));
}

// "33.5k", "2M", "1.2G": sizes that some servers print the way "ls -h"
// does, in units of 1024.
bool ParseUnitSize(std::string_view t, uint64_t& size) {
  if (t.size() < 2 || t.size() > 12) return false;
  int shift = 0;
  switch (t.back()) {
    case 'k':
    case 'K':
      shift = 10;
      break;
    case 'm':
    case 'M':
      shift = 20;
      break;
    case 'g':
    case 'G':
      shift = 30;
      break;
    case 't':
    case 'T':
      shift = 40;
      break;
    default:
      return false;
  }
  t.remove_suffix(1);
  size_t dot = t.find('.');
  uint64_t whole = 0, fraction = 0, scale = 1;
  if (!ParseUint(t.substr(0, dot), whole) || whole >= (uint64_t{1} << 20)) return false;
  if (dot != std::string_view::npos) {
    std::string_view digits = t.substr(dot + 1);
    if (digits.empty() || digits.size() > 3 || !ParseUint(digits, fraction)) return false;
    for (size_t i = 0; i < digits.size(); ++i) scale *= 10;
  }
  size = (whole << shift) + ((fraction << shift) / scale);
  return true;
}

// The size column right before the date: a byte count, or a device's
// "major, minor" (listed as size 0). When owner and group overflow their
// columns, ls prints them without a blank before the size: the size is then
// the digits that end the word ("staff12345"), as long as a word of letters
// stands before them.
bool SizeBefore(const TokenList& tok, size_t dateAt, uint64_t& size) {
  std::string_view before = tok[dateAt - 1].text;
  if (ParseUint(before, size)) {
    if (!IsDeviceMajor(tok[dateAt - 2].text)) return true;
    size = 0;
    return dateAt - 2 >= 2;
  }
  if (ParseUnitSize(before, size)) return true;
  size = 0;
  // FreeBSD prints a device's number in hex ("0x5c"), HP-UX and others its
  // minor ("1, 0x000003").
  if (before.size() > 2 && before[0] == '0' && (before[1] | 0x20) == 'x' && IsHexDigits(before.substr(2)))
    return true;
  if (IsDevicePair(before)) return true;
  size_t digits = before.size();
  while (digits > 0 && before[digits - 1] >= '0' && before[digits - 1] <= '9') --digits;
  if (digits == before.size() || digits == 0 || dateAt < 2) return false;
  char last = before[digits - 1];
  bool letter = (last >= 'a' && last <= 'z') || (last >= 'A' && last <= 'Z') || last == '_';
  return letter && ParseUint(before.substr(digits), size);
}

// Whether a word could belong to a date: a month, a time, a year or numbers
// joined by date separators. A line without a date is only taken when none
// of the words after its size looks like one, so that a line whose date is
// damaged is refused instead of being read as a name.
bool LooksLikeDatePart(std::string_view t) {
  if (MonthFromName(t) != 0) return true;
  bool digit = false;
  for (char c : t) {
    if (c >= '0' && c <= '9')
      digit = true;
    else if (c != ':' && c != '-' && c != '/' && c != '.' && c != ',')
      return false;
  }
  return digit && (t.size() == 4 || t.find_first_of(":-/.") != std::string_view::npos);
}

// The columns after the first one: links, owner and group (any may be
// missing), the size and the date, then the name.
bool ParseLsColumns(std::string_view line, const TokenList& tok, FtpListEntry::Kind kind, bool linkArrow,
                    const ListClock& clock, FtpListEntry& out) {
  // The date is found first: the size is the column right before it, and
  // everything between the permissions and the size is links, owner and group
  // (any of which a server may leave out).
  constexpr size_t kFirstDateToken = 3;
  // Windows servers (Cygwin) may give owner and group names of several
  // words each: the date may stand that far along.
  constexpr size_t kLastDateToken = 12;
  // Where the common forms can start. In the usual "links owner group size
  // Mon DD HH:MM" layout none of them can match at the group or the size: a
  // date there would need a month or a time in the all-digit size column, or
  // a time or year (four bytes at least) in one of the two short columns
  // after it. Those columns are checked, and the search starts at the month,
  // as it would have ended up there anyway.
  size_t commonFrom = kFirstDateToken;
  if (tok.size() > 6 && IsDigits(tok[4].text) && tok[5].text.size() < 4 && tok[6].text.size() < 4)
    commonFrom = 5;
  DateMatch m;
  size_t dateAt = 0;
  uint64_t size = 0;
  for (std::span<const DateMatcher> forms :
       {std::span<const DateMatcher>(kCommonForms), std::span<const DateMatcher>(kRareForms)}) {
    size_t from = forms.data() == kCommonForms ? commonFrom : kFirstDateToken;
    for (size_t i = from; dateAt == 0 && i <= kLastDateToken && i < tok.size(); ++i) {
      for (DateMatcher match : forms) {
        DateMatch candidate;
        candidate.clock = &clock;
        if (!match(tok, i, candidate) || !SizeBefore(tok, i, size)) continue;
        m = candidate;
        dateAt = i;
        break;
      }
    }
    if (dateAt != 0) break;
  }

  size_t nameStart = 0;
  std::optional<int64_t> mtime;
  if (dateAt != 0) {
    if (m.lastToken + 1 >= tok.size()) return false;
    nameStart = tok[m.lastToken].end;
    for (size_t skipped = 0;
         skipped < m.separatorBlanks && nameStart < line.size() && IsBlank(line[nameStart]); ++skipped)
      ++nameStart;
    int year = m.year != 0 ? m.year : YearForYearlessDate(clock, m.month, m.day, m.time);
    if (!IsValidDate(year, m.month, m.day)) return false;
    mtime = UnixFromCivil(year, m.month, m.day, m.time.hour, m.time.minute, m.time.second) - m.zoneOffset;
  } else {
    // No date at all: "links owner group size name" and nothing else.
    if (tok.size() < 6 || !IsDigits(tok[1].text) || !ParseUint(tok[4].text, size)) return false;
    for (size_t i = 5; i < tok.size() && i < 8; ++i)
      if (LooksLikeDatePart(tok[i].text)) return false;
    nameStart = tok[4].end + 1;
  }
  std::string_view name = line.substr(nameStart);
  if (name.empty()) return false;

  std::string_view target;
  if (linkArrow) {
    size_t arrow = name.find(" -> ");
    if (arrow != std::string_view::npos && arrow > 0) {
      target = name.substr(arrow + 4);
      name = name.substr(0, arrow);
    }
  }
  // Assigned, not built anew: a caller parsing a listing into one entry
  // keeps the strings' storage from line to line.
  out.kind = kind;
  out.name.assign(name);
  out.linkTarget.assign(target);
  out.size = size;
  out.sizeKnown = true;
  out.mtime = mtime;
  return true;
}

}  // namespace

bool ParseUnixLine(std::string_view line, const ListClock& clock, FtpListEntry& out) {
  TokenList tok = Tokenize(line, 16);
  if (tok.size() < 6 || !IsPermissionColumn(tok[0].text)) return false;
  char type = tok[0].text[0];
  auto kind = type == 'd'   ? FtpListEntry::Kind::Directory
              : type == 'l' ? FtpListEntry::Kind::Link
                            : FtpListEntry::Kind::File;
  return ParseLsColumns(line, tok, kind, kind == FtpListEntry::Kind::Link, clock, out);
}

// Connect:Enterprise mailboxes list their batches with a column of batch
// flags and the protocol in place of the permissions
// ("-CR-E-----TCP A BATCH7 ... 2048 Mar 12 09:30 PAYROLL"); the rest is ls's.
bool ParseConnectEnterpriseLine(std::string_view line, const ListClock& clock, FtpListEntry& out) {
  TokenList tok = Tokenize(line, 16);
  if (tok.size() < 6) return false;
  std::string_view flags = tok[0].text;
  if (flags.size() < 13 || flags.size() > 16 || flags[0] != '-') return false;
  for (char c : flags)
    if (c != '-' && (c < 'A' || c > 'Z')) return false;
  std::string_view protocol = flags.substr(10);
  if (protocol != "FTP" && protocol != "TCP" && protocol != "BSC" && protocol != "SNA") return false;
  return ParseLsColumns(line, tok, FtpListEntry::Kind::File, false, clock, out);
}

}  // namespace ftpzn::inet::listparse
