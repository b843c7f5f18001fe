// The rarer families: EPLF, VMS, NetWare, OS/2, OS/400 (IBM i), listings
// that start with the size (VxWorks, Nortel switches), OS-9, and the octal
// mode lines some embedded servers print (z/OS has a file of its own).
#include <string>
#include <string_view>

#include "inet/listparse.h"

namespace ftpzn::inet::listparse {

using Kind = FtpListEntry::Kind;

// EPLF: "+i8388621.29609,m824255902,/,\tdev" — comma-separated facts after
// '+', a tab, then the name. '/' marks a directory, "s" the size, "m" the
// modification time in Unix seconds.
bool ParseEplfLine(std::string_view line, const ListClock&, FtpListEntry& out) {
  if (line.size() < 3 || line[0] != '+') return false;
  size_t tab = line.find('\t');
  if (tab == std::string_view::npos || tab + 1 >= line.size()) return false;
  std::string_view facts = line.substr(1, tab - 1);
  Kind kind = Kind::File;
  uint64_t size = 0;
  std::optional<int64_t> mtime;
  bool listable = false;
  while (!facts.empty()) {
    size_t comma = facts.find(',');
    std::string_view fact = facts.substr(0, comma);
    facts.remove_prefix(comma == std::string_view::npos ? facts.size() : comma + 1);
    if (fact.empty()) continue;
    uint64_t value = 0;
    switch (fact[0]) {
      case '/':
        kind = Kind::Directory;
        listable = true;
        break;
      case 'r':
        listable = true;
        break;
      case 's':
        if (!ParseUint(fact.substr(1), value)) return false;
        size = value;
        break;
      case 'm':
        if (!ParseUint(fact.substr(1), value) || value > INT64_MAX) return false;
        mtime = static_cast<int64_t>(value);
        break;
      default:
        break;  // "i" (identity), "up" (permissions) and future facts
    }
  }
  // Neither retrievable nor a directory: the server says nothing can be done with it.
  if (!listable) return false;
  SetEntry(out, kind, line.substr(tab + 1), size, mtime);
  return true;
}

namespace {

// A month as VMS abbreviates it in its own language. French VMS tells juin
// and juillet apart as "JUN" and "JUI", which elsewhere could be either.
int VmsMonth(std::string_view word) {
  if (int month = MonthFromName(word)) return month;
  auto is = [word](std::string_view name) {
    for (size_t i = 0; i < 3; ++i)
      if ((word[i] | 0x20) != name[i]) return false;
    return true;
  };
  return word.size() != 3 ? 0 : is("jui") ? 7 : is("aou") ? 8 : 0;
}

// VMS dates: "10-JAN-2024", "14-JUI-2023".
bool ParseVmsDate(std::string_view t, int& year, int& month, int& day) {
  size_t a = t.find('-');
  size_t b = a == std::string_view::npos ? a : t.find('-', a + 1);
  if (b == std::string_view::npos || b - a - 1 != 3) return false;
  month = VmsMonth(t.substr(a + 1, 3));
  return month != 0 && t.size() - b - 1 == 4 && ParseInt(t.substr(0, a), day) &&
         ParseInt(t.substr(b + 1), year) && IsValidDate(year, month, day);
}

// The owner as some servers print it, without brackets: "SYSTEM", "STAFF,BOB".
bool IsBareVmsOwner(std::string_view t) {
  bool letter = false;
  for (char c : t) {
    bool alpha = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
    letter |= alpha;
    if (!alpha && !(c >= '0' && c <= '9') && c != '_' && c != '$' && c != ',') return false;
  }
  return letter;
}

// "12" or "12/14" (blocks of 512 bytes used, and allocated), "24KB".
bool ParseVmsSize(std::string_view t, uint64_t& size) {
  uint64_t value = 0;
  if (t.size() > 2 && (t.ends_with("KB") || t.ends_with("kB"))) {
    if (!ParseUint(t.substr(0, t.size() - 2), value) || value > UINT64_MAX / 1024) return false;
    size = value * 1024;
    return true;
  }
  size_t slash = t.find('/');
  if (slash != std::string_view::npos) {
    if (!IsDigits(t.substr(slash + 1))) return false;
    t = t.substr(0, slash);
  }
  if (!ParseUint(t, value) || value > UINT64_MAX / 512) return false;
  size = value * 512;
  return true;
}

}  // namespace

// VMS: "NAME.EXT;3   12/14   10-JAN-2024 12:00:01  [GROUP,OWNER]  (RWED,RWED,RE,)".
// The columns after the name come in the order the server's settings chose,
// the time may be missing and the size may be in kilobytes. A file keeps its
// ";version", which names that very version to the server; a directory is
// NAME.DIR;1 and is listed, and entered, as NAME. A name too long for its
// column stands alone on a line and its details follow on the next: the
// caller joins the two (ListLineReader).
bool ParseVmsLine(std::string_view line, const ListClock&, FtpListEntry& out) {
  TokenList tok = Tokenize(line, 8);
  if (tok.size() < 2) return false;
  std::string_view name = tok[0].text;
  size_t semi = name.rfind(';');
  if (semi == std::string_view::npos || semi == 0 || !IsDigits(name.substr(semi + 1))) return false;
  uint64_t size = 0;
  bool sized = false, dated = false, owned = false;
  int year = 0, month = 0, day = 0;
  TimeOfDay time;
  for (size_t i = 1; i < tok.size(); ++i) {
    std::string_view t = tok[i].text;
    if (!dated && ParseVmsDate(t, year, month, day)) {
      dated = true;
      if (i + 1 < tok.size() && ParseTimeOfDay(tok[i + 1].text, time)) ++i;
    } else if (!sized && ParseVmsSize(t, size)) {
      sized = true;
    } else if (!owned && dated && IsBareVmsOwner(t)) {
      owned = true;
    } else if (!((t.front() == '[' && t.back() == ']') || (t.front() == '(' && t.back() == ')'))) {
      return false;  // owner and protection are the only other columns
    }
  }
  if (!dated) return false;
  Kind kind = Kind::File;
  constexpr std::string_view kDirSuffix = ".DIR";
  std::string_view base = name.substr(0, semi);
  if (base.size() > kDirSuffix.size() && base.ends_with(kDirSuffix)) {
    kind = Kind::Directory;
    name = base.substr(0, base.size() - kDirSuffix.size());
  }
  SetEntry(out, kind, name, size, UnixFromCivil(year, month, day, time.hour, time.minute, time.second));
  return true;
}

bool IsVmsNameAlone(std::string_view line) {
  TokenList tok = Tokenize(line, 2);
  if (tok.size() != 1 || tok[0].text.size() > 255) return false;
  std::string_view name = tok[0].text;
  size_t semi = name.rfind(';');
  return semi != std::string_view::npos && semi > 0 && IsDigits(name.substr(semi + 1));
}

namespace {

// "Jan 16 18:53" or "Jan 16  2019" at tok[at..at+2]; the mtime of it.
bool ParseMonthDayTimeOrYear(const TokenList& tok, size_t at, const ListClock& clock, int64_t& mtime) {
  int month = MonthFromName(tok[at].text), day = 0, year = 0;
  TimeOfDay time;
  if (month == 0 || !ParseInt(tok[at + 1].text, day) || day < 1 || day > 31) return false;
  std::string_view last = tok[at + 2].text;
  if (last.size() == 4 && ParseInt(last, year)) {
    if (year < 1900) return false;
  } else if (ParseTimeOfDay(last, time)) {
    year = YearForYearlessDate(clock, month, day, time);
  } else {
    return false;
  }
  if (!IsValidDate(year, month, day)) return false;
  mtime = UnixFromCivil(year, month, day, time.hour, time.minute, time.second);
  return true;
}

// The name after the time column, and whether a "<DIR>" after it makes it
// a directory (VxWorks puts the marker behind the name).
std::string_view NameWithTrailingDirMarker(std::string_view name, Kind& kind) {
  constexpr std::string_view kDir = "<DIR>";
  if (name.size() > kDir.size() && name.ends_with(kDir) && IsBlank(name[name.size() - kDir.size() - 1])) {
    kind = Kind::Directory;
    name.remove_suffix(kDir.size());
    while (!name.empty() && IsBlank(name.back())) name.remove_suffix(1);
  }
  return name;
}

}  // namespace

// NetWare: "d [R----F--] supervisor     512       Jan 16 18:53    login".
bool ParseNetwareLine(std::string_view line, const ListClock& clock, FtpListEntry& out) {
  TokenList tok = Tokenize(line, 8);
  if (tok.size() < 8 || tok[0].text.size() != 1 || (tok[0].text[0] != 'd' && tok[0].text[0] != '-'))
    return false;
  std::string_view rights = tok[1].text;
  if (rights.size() < 3 || rights.front() != '[' || rights.back() != ']') return false;
  uint64_t size = 0;
  int64_t mtime = 0;
  if (!ParseUint(tok[3].text, size) || !ParseMonthDayTimeOrYear(tok, 4, clock, mtime)) return false;
  SetEntry(out, tok[0].text[0] == 'd' ? Kind::Directory : Kind::File, line.substr(tok[7].begin), size, mtime);
  return true;
}

// OS/2: "     0           DIR   04-11-95   16:26  ADDRESS"
//       "   612      A          07-28-95   16:45  air_tra1.bag"
// size, attribute letters, then date, time and name. The year counts from
// 1900, so that 2003 is "103" and 1995 "95", unless it has four digits.
bool ParseOs2Line(std::string_view line, const ListClock&, FtpListEntry& out) {
  TokenList tok = Tokenize(line, 8);
  if (tok.size() < 4) return false;
  uint64_t size = 0;
  Kind kind = Kind::File;
  if (!ParseUint(tok[0].text, size)) return false;
  size_t at = 1;
  for (; at < tok.size() && at < 4; ++at) {
    std::string_view attr = tok[at].text;
    if (attr == "DIR") {
      kind = Kind::Directory;
    } else if (attr.empty() || attr.size() > 4 || attr.find_first_not_of("AHRS") != std::string_view::npos) {
      break;
    }
  }
  TimeOfDay time;
  if (at + 2 >= tok.size() || !ParseTimeOfDay(tok[at + 1].text, time)) return false;
  std::string_view date = tok[at].text;
  int month = 0, day = 0, year = 0;
  if (date.size() < 8 || date.size() > 10 || date[2] != '-' || date[5] != '-' ||
      !ParseInt(date.substr(0, 2), month) || !ParseInt(date.substr(3, 2), day) ||
      !ParseInt(date.substr(6), year))
    return false;
  if (date.size() < 10) year += 1900;  // later servers print all four digits
  if (!IsValidDate(year, month, day)) return false;
  SetEntry(out, kind, line.substr(tok[at + 2].begin), size,
           UnixFromCivil(year, month, day, time.hour, time.minute, time.second));
  return true;
}

namespace {

// "02/23/00", "00/02/23" or "23/02/00" as IBM i prints dates by its job's
// settings, "23.02.00" where the job is European; "2000/02/23" and
// "02/23/2000" say their order themselves. The readings of two-digit fields
// go to `readings` in order of preference: the order the listing has shown
// first, then the one the separator suggests (the US order with '/', day
// first with '.'). Returns how many there are, 0 for no date.
size_t Os400DateReadings(std::string_view t, const ListClock& clock, DateReading (&readings)[4]) {
  if (t.size() != 8 && t.size() != 10) return 0;
  const char sep = t[2] == '.' || (t.size() == 10 && t[4] == '.') ? '.' : '/';
  size_t a = t.find(sep), b = a == std::string_view::npos ? a : t.find(sep, a + 1);
  if (b == std::string_view::npos) return 0;
  int f1 = 0, f2 = 0, f3 = 0;
  std::string_view s1 = t.substr(0, a), s2 = t.substr(a + 1, b - a - 1), s3 = t.substr(b + 1);
  if (s2.size() != 2 || !ParseInt(s1, f1) || !ParseInt(s2, f2) || !ParseInt(s3, f3)) return 0;
  if (s1.size() == 4 && s3.size() == 2) {
    readings[0] = {f1, f2, f3};
    return 1;
  }
  if (s1.size() == 2 && s3.size() == 4) {
    readings[0] = sep == '.' ? DateReading{f3, f2, f1} : DateReading{f3, f1, f2};
    return 1;
  }
  if (s1.size() != 2 || s3.size() != 2) return 0;
  using Order = ListClock::DateOrder;
  auto reading = [&](Order order) {
    switch (order) {
      case Order::YearMonthDay:
        return DateReading{ExpandTwoDigitYear(f1), f2, f3};
      case Order::DayMonthYear:
        return DateReading{ExpandTwoDigitYear(f3), f2, f1};
      default:
        return DateReading{ExpandTwoDigitYear(f3), f1, f2};
    }
  };
  size_t count = 0;
  if (clock.dateOrder != Order::Unknown) readings[count++] = reading(clock.dateOrder);
  if (sep == '.') {
    readings[count++] = reading(Order::DayMonthYear);
    readings[count++] = reading(Order::YearMonthDay);
    readings[count++] = reading(Order::MonthDayYear);
  } else {
    readings[count++] = reading(Order::MonthDayYear);
    readings[count++] = reading(Order::YearMonthDay);
    readings[count++] = reading(Order::DayMonthYear);
  }
  return count;
}

bool ParseOs400Date(std::string_view t, const ListClock& clock, int& year, int& month, int& day) {
  DateReading readings[4], chosen;
  size_t count = Os400DateReadings(t, clock, readings);
  if (count == 0 || !ChooseDateReading(readings, count, clock, chosen)) return false;
  year = chosen.year;
  month = chosen.month;
  day = chosen.day;
  return IsValidDate(year, month, day);
}

// An object line: owner, size, date, time, "*TYPE", name.
bool IsOs400ObjectLine(const TokenList& tok) {
  return tok.size() >= 6 && tok[4].text.size() >= 2 && tok[4].text[0] == '*';
}

}  // namespace

// OS/400 (IBM i) integrated file system:
//   "QSYS           77824 02/23/00 15:09:55 *DIR       QOpenSys/"
//   "QPGMR          36864 21.10.09 16:40:11 *FILE      LIB.FILE"
//   "QPGMR                                   *MEM       LIB.LIB/SRC.FILE/MBR1.MBR"
// owner, size, date, time, object type, name. A member has no size or date
// of its own; it is listed by its own name, which the server takes relative
// to the file it is in. A name given with its path is listed by its last
// part, which is what the server takes in the folder listed. A "*FILE" is a
// folder only where the server marks it with "/" to show members under it.
bool ParseOs400Line(std::string_view line, const ListClock& clock, FtpListEntry& out) {
  TokenList tok = Tokenize(line, 8);
  if (tok.size() == 3 && tok[1].text == "*MEM") {
    std::string_view name = line.substr(tok[2].begin);
    size_t slash = name.rfind('/');
    if (slash != std::string_view::npos) name.remove_prefix(slash + 1);
    if (name.empty()) return false;
    SetEntry(out, Kind::File, name, 0, std::nullopt);
    return true;
  }
  if (!IsOs400ObjectLine(tok)) return false;
  uint64_t size = 0;
  int year = 0, month = 0, day = 0;
  TimeOfDay time;
  std::string_view type = tok[4].text;
  if (!ParseUint(tok[1].text, size) || !ParseOs400Date(tok[2].text, clock, year, month, day) ||
      !ParseTimeOfDay(tok[3].text, time))
    return false;
  std::string_view name = line.substr(tok[5].begin);
  const bool marked = name.size() > 1 && name.back() == '/';
  if (marked) name.remove_suffix(1);
  size_t slash = name.rfind('/');
  if (slash != std::string_view::npos) name.remove_prefix(slash + 1);
  if (name.empty()) return false;
  Kind kind = Kind::File;
  if (type == "*DIR" || type == "*FLR" || type == "*LIB" || (type == "*FILE" && marked))
    kind = Kind::Directory;
  SetEntry(out, kind, name, size, UnixFromCivil(year, month, day, time.hour, time.minute, time.second));
  return true;
}

void NoteDateOrder(std::string_view line, ListClock& clock) {
  TokenList tok = Tokenize(line, 6);
  if (!IsOs400ObjectLine(tok)) return;
  // Each order in turn, alone: the line shows its order when exactly one
  // gives a date that is not after today.
  using Order = ListClock::DateOrder;
  const int64_t latest = ClockNow(clock) + 86400;
  Order shown = Order::Unknown;
  int fitting = 0;
  for (Order order : {Order::MonthDayYear, Order::YearMonthDay, Order::DayMonthYear}) {
    ListClock one = clock;
    one.dateOrder = order;
    DateReading readings[4];
    if (Os400DateReadings(tok[2].text, one, readings) != 4) return;  // a date that tells its order
    const DateReading& r = readings[0];
    if (IsValidDate(r.year, r.month, r.day) && UnixFromCivil(r.year, r.month, r.day, 0, 0, 0) <= latest) {
      shown = order;
      ++fitting;
    }
  }
  if (fitting == 1) clock.dateOrder = shown;
}

// Servers that print a file's mode as the octal number of its stat and its
// time as Unix seconds: "100644 1 owner group 1234 1718452800 name". The
// type is in the mode's top bits (04 directory, 10 file, 12 link).
bool ParseOctalModeLine(std::string_view line, const ListClock&, FtpListEntry& out) {
  TokenList tok = Tokenize(line, 9);
  if (tok.size() < 4) return false;
  std::string_view mode = tok[0].text;
  if (mode.size() < 5 || mode.size() > 7 || mode.find_first_not_of("01234567") != std::string_view::npos)
    return false;
  unsigned value = 0;
  for (char c : mode) value = value * 8 + static_cast<unsigned>(c - '0');
  Kind kind = Kind::File;
  switch ((value >> 12) & 017) {
    case 004:
      kind = Kind::Directory;
      break;
    case 012:
      kind = Kind::Link;
      break;
    case 010:
    case 002:
    case 006:
    case 001:
    case 014:
      break;
    default:
      return false;
  }
  for (size_t k = 2; k + 1 < tok.size() && k < 7; ++k) {
    std::string_view epoch = tok[k].text;
    uint64_t size = 0, seconds = 0;
    if (epoch.size() < 9 || epoch.size() > 10 || !ParseUint(epoch, seconds) ||
        !ParseUint(tok[k - 1].text, size))
      continue;
    std::string_view name = line.substr(tok[k + 1].begin), target;
    if (kind == Kind::Link) {
      size_t arrow = name.find(" -> ");
      if (arrow != std::string_view::npos && arrow > 0) {
        target = name.substr(arrow + 4);
        name = name.substr(0, arrow);
      }
    }
    SetEntry(out, kind, name, size, static_cast<int64_t>(seconds), target);
    return true;
  }
  return false;
}

// The size first, then the date and a time, then the name:
//   VxWorks          "     41   FEB-01-2000  10:20:34   notes.txt"
//                    "    512   JAN-13-2000  09:12:12   subdir        <DIR>"
//   Nortel switches  "  12345  Jan 10 2024  12:00:00  CONFIG.CFG"
//   VShell           "1048576  Jun 09, 2004 13:05 setup file.exe"
// VShell marks a folder by a "/" after its name.
bool ParseSizeFirstLine(std::string_view line, const ListClock&, FtpListEntry& out) {
  TokenList tok = Tokenize(line, 6);
  if (tok.size() < 4) return false;
  uint64_t size = 0;
  if (!ParseUint(tok[0].text, size)) return false;
  int year = 0, month = 0, day = 0;
  size_t timeAt = 0;
  std::string_view date = tok[1].text, dayText = tok[2].text;
  if (dayText.size() > 1 && dayText.back() == ',') dayText.remove_suffix(1);
  if (date.size() == 11 && date[3] == '-' && date[6] == '-') {
    month = MonthFromName(date.substr(0, 3));
    if (month == 0 || !ParseInt(date.substr(4, 2), day) || !ParseInt(date.substr(7), year)) return false;
    timeAt = 2;
  } else if (tok.size() >= 6 && (month = MonthFromName(date)) != 0 && ParseInt(dayText, day) &&
             tok[3].text.size() == 4 && ParseInt(tok[3].text, year)) {
    timeAt = 4;
  } else {
    return false;
  }
  TimeOfDay time;
  const size_t timeSize = tok[timeAt].text.size();
  if (!IsValidDate(year, month, day) || timeAt + 1 >= tok.size() || (timeSize != 8 && timeSize != 5) ||
      !ParseTimeOfDay(tok[timeAt].text, time))
    return false;
  Kind kind = Kind::File;
  std::string_view name = NameWithTrailingDirMarker(line.substr(tok[timeAt + 1].begin), kind);
  if (name.size() > 1 && name.back() == '/') {
    kind = Kind::Directory;
    name.remove_suffix(1);
  }
  if (name.empty()) return false;
  SetEntry(out, kind, name, size, UnixFromCivil(year, month, day, time.hour, time.minute, time.second));
  return true;
}

namespace {

// A weekday, 0 for Sunday, from its English abbreviation as switches print
// it ("Thur.", "Tue", "Wed"); -1 for any other word.
int Weekday(std::string_view t) {
  if (!t.empty() && t.back() == '.') t.remove_suffix(1);
  if (t.size() < 2 || t.size() > 9) return -1;
  static constexpr std::string_view kDays[] = {"sunday",   "monday", "tuesday", "wednesday",
                                               "thursday", "friday", "saturday"};
  for (int d = 0; d < 7; ++d) {
    bool prefix = t.size() <= kDays[d].size();
    for (size_t i = 0; prefix && i < t.size(); ++i) prefix = (t[i] | 0x20) == kDays[d][i];
    if (prefix) return d;
  }
  return -1;
}

}  // namespace

// Nortel switches: "name   1014196  06/03/04  Thur.   10:20:03" — the name
// first, then size, date, weekday and time. The date's order is not fixed
// by the switch, but its weekday tells it: the reading on that weekday is taken.
bool ParseNortelLine(std::string_view line, const ListClock&, FtpListEntry& out) {
  TokenList tok = Tokenize(line);
  const size_t n = tok.size();
  if (n < 5 || n == TokenList::kCapacity) return false;
  uint64_t size = 0;
  TimeOfDay time;
  const int weekday = Weekday(tok[n - 2].text);
  std::string_view date = tok[n - 3].text;
  if (weekday < 0 || !ParseUint(tok[n - 4].text, size) || !ParseTimeOfDay(tok[n - 1].text, time) ||
      date.size() != 8 || date[2] != date[5] || (date[2] != '/' && date[2] != '-' && date[2] != '.'))
    return false;
  int f[3] = {0, 0, 0};
  for (size_t i = 0; i < 3; ++i)
    if (!ParseInt(date.substr(i * 3, 2), f[i])) return false;
  const DateReading readings[] = {{ExpandTwoDigitYear(f[2]), f[0], f[1]},
                                  {ExpandTwoDigitYear(f[2]), f[1], f[0]},
                                  {ExpandTwoDigitYear(f[0]), f[1], f[2]}};
  for (const DateReading& r : readings) {
    if (!IsValidDate(r.year, r.month, r.day)) continue;
    int64_t midnight = UnixFromCivil(r.year, r.month, r.day, 0, 0, 0);
    // 1 January 1970 was a Thursday.
    int64_t days = midnight / 86400;
    if (static_cast<int>(((days % 7) + 11) % 7) != weekday) continue;
    std::string_view name = line.substr(tok[0].begin, tok[n - 4].begin - tok[0].begin);
    while (!name.empty() && IsBlank(name.back())) name.remove_suffix(1);
    SetEntry(out, Kind::File, name, size, midnight + time.hour * 3600 + time.minute * 60 + time.second);
    return true;
  }
  return false;
}

// OS-9 "dir -e": owner as group.user, date YY/MM/DD, time HHMM, attributes,
// the first sector and the byte count, both in hexadecimal, then the name:
//   "  0.0   24/01/10 1205 d-ewrewr     2A0      1C0 CMDS"
bool ParseOs9Line(std::string_view line, const ListClock&, FtpListEntry& out) {
  TokenList tok = Tokenize(line, 7);
  if (tok.size() < 7) return false;
  std::string_view owner = tok[0].text, date = tok[1].text, hhmm = tok[2].text, attr = tok[3].text;
  size_t dot = owner.find('.');
  if (dot == std::string_view::npos || !IsDigits(owner.substr(0, dot)) || !IsDigits(owner.substr(dot + 1)))
    return false;
  int yy = 0, month = 0, day = 0, hour = 0, minute = 0;
  if (date.size() != 8 || date[2] != '/' || date[5] != '/' || !ParseInt(date.substr(0, 2), yy) ||
      !ParseInt(date.substr(3, 2), month) || !ParseInt(date.substr(6, 2), day) || hhmm.size() != 4 ||
      !ParseInt(hhmm.substr(0, 2), hour) || !ParseInt(hhmm.substr(2), minute) || hour > 23 || minute > 59)
    return false;
  int year = ExpandTwoDigitYear(yy);
  if (!IsValidDate(year, month, day)) return false;
  if (attr.size() != 8 || attr.find_first_not_of("d-ewrs") != std::string_view::npos ||
      attr.find('d', 1) != std::string_view::npos)
    return false;
  std::string_view bytes = tok[5].text;
  if (!IsHexDigits(tok[4].text) || !IsHexDigits(bytes) || bytes.size() > 15) return false;
  uint64_t size = 0;
  for (char c : bytes) size = size * 16 + static_cast<uint64_t>(c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10);
  SetEntry(out, attr[0] == 'd' ? Kind::Directory : Kind::File, line.substr(tok[6].begin), size,
           UnixFromCivil(year, month, day, hour, minute, 0));
  return true;
}

}  // namespace ftpzn::inet::listparse
