// The rarer families: EPLF, VMS, NetWare, OS/2 and OS/400 (IBM i) lines
// (z/OS has a file of its own).
#include <string>
#include <string_view>

#include "inet/listparse.h"

namespace ftpzn::inet::listparse {

// EPLF: "+i8388621.29609,m824255902,/,\tdev" — comma-separated facts after
// '+', a tab, then the name. '/' marks a directory, "s" the size, "m" the
// modification time in Unix seconds.
bool ParseEplfLine(std::string_view line, const ListClock&, FtpListEntry& out) {
  if (line.size() < 3 || line[0] != '+') return false;
  size_t tab = line.find('\t');
  if (tab == std::string_view::npos || tab + 1 >= line.size()) return false;
  std::string_view facts = line.substr(1, tab - 1);
  FtpListEntry entry;
  bool listable = false;
  while (!facts.empty()) {
    size_t comma = facts.find(',');
    std::string_view fact = facts.substr(0, comma);
    facts.remove_prefix(comma == std::string_view::npos ? facts.size() : comma + 1);
    if (fact.empty()) continue;
    uint64_t value = 0;
    switch (fact[0]) {
      case '/':
        entry.kind = FtpListEntry::Kind::Directory;
        listable = true;
        break;
      case 'r':
        listable = true;
        break;
      case 's':
        if (!ParseUint(fact.substr(1), value)) return false;
        entry.size = value;
        break;
      case 'm':
        if (!ParseUint(fact.substr(1), value) || value > INT64_MAX) return false;
        entry.mtime = static_cast<int64_t>(value);
        break;
      default:
        break;  // "i" (identity), "up" (permissions) and future facts
    }
  }
  // Neither retrievable nor a directory: the server says nothing can be done with it.
  if (!listable) return false;
  entry.name = std::string(line.substr(tab + 1));
  out = std::move(entry);
  return true;
}

namespace {

// VMS dates: "10-JAN-2024".
bool ParseVmsDate(std::string_view t, int& year, int& month, int& day) {
  size_t a = t.find('-');
  size_t b = a == std::string_view::npos ? a : t.find('-', a + 1);
  if (b == std::string_view::npos || b - a - 1 != 3) return false;
  month = MonthFromName(t.substr(a + 1, 3));
  return month != 0 && t.size() - b - 1 == 4 && ParseInt(t.substr(0, a), day) &&
         ParseInt(t.substr(b + 1), year) && IsValidDate(year, month, day);
}

}  // namespace

// VMS: "NAME.EXT;3   12/14   10-JAN-2024 12:00:01  [GROUP,OWNER]  (RWED,RWED,RE,)".
// Sizes are in 512-byte blocks (used/allocated); a directory is NAME.DIR;1
// and listed without its ".DIR".
bool ParseVmsLine(std::string_view line, const ListClock&, FtpListEntry& out) {
  TokenList tok = Tokenize(line, 8);
  if (tok.size() < 4) return false;
  std::string_view name = tok[0].text;
  size_t semi = name.rfind(';');
  if (semi == std::string_view::npos || semi == 0 || !IsDigits(name.substr(semi + 1))) return false;
  name = name.substr(0, semi);
  std::string_view blocks = tok[1].text;
  size_t slash = blocks.find('/');
  if (slash != std::string_view::npos) {
    if (!IsDigits(blocks.substr(slash + 1))) return false;
    blocks = blocks.substr(0, slash);
  }
  uint64_t used = 0;
  int year = 0, month = 0, day = 0;
  TimeOfDay time;
  if (!ParseUint(blocks, used) || used > UINT64_MAX / 512 || !ParseVmsDate(tok[2].text, year, month, day) ||
      !ParseTimeOfDay(tok[3].text, time))
    return false;
  FtpListEntry entry;
  constexpr std::string_view kDirSuffix = ".DIR";
  if (name.size() > kDirSuffix.size() && name.ends_with(kDirSuffix)) {
    entry.kind = FtpListEntry::Kind::Directory;
    name.remove_suffix(kDirSuffix.size());
  }
  entry.name = std::string(name);
  entry.size = used * 512;
  entry.mtime = UnixFromCivil(year, month, day, time.hour, time.minute, time.second);
  out = std::move(entry);
  return true;
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

}  // namespace

// NetWare: "d [R----F--] supervisor     512       Jan 16 18:53    login".
bool ParseNetwareLine(std::string_view line, const ListClock& clock, FtpListEntry& out) {
  TokenList tok = Tokenize(line, 8);
  if (tok.size() < 8 || tok[0].text.size() != 1 || (tok[0].text[0] != 'd' && tok[0].text[0] != '-'))
    return false;
  std::string_view rights = tok[1].text;
  if (rights.size() < 3 || rights.front() != '[' || rights.back() != ']') return false;
  FtpListEntry entry;
  int64_t mtime = 0;
  if (!ParseUint(tok[3].text, entry.size) || !ParseMonthDayTimeOrYear(tok, 4, clock, mtime)) return false;
  entry.kind = tok[0].text[0] == 'd' ? FtpListEntry::Kind::Directory : FtpListEntry::Kind::File;
  entry.mtime = mtime;
  entry.name = std::string(line.substr(tok[7].begin));
  out = std::move(entry);
  return true;
}

// OS/2: "     0           DIR   04-11-95   16:26  ADDRESS"
//       "   612      A          07-28-95   16:45  air_tra1.bag"
// size, attribute letters, then date, time and name.
bool ParseOs2Line(std::string_view line, const ListClock&, FtpListEntry& out) {
  TokenList tok = Tokenize(line, 8);
  if (tok.size() < 4) return false;
  FtpListEntry entry;
  if (!ParseUint(tok[0].text, entry.size)) return false;
  size_t at = 1;
  for (; at < tok.size() && at < 4; ++at) {
    std::string_view attr = tok[at].text;
    if (attr == "DIR") {
      entry.kind = FtpListEntry::Kind::Directory;
    } else if (attr.empty() || attr.size() > 4 || attr.find_first_not_of("AHRS") != std::string_view::npos) {
      break;
    }
  }
  int year = 0, month = 0, day = 0;
  TimeOfDay time;
  if (at + 2 >= tok.size() || !ParseNumericDate(tok[at].text, year, month, day) || tok[at].text.size() != 8 ||
      !ParseTimeOfDay(tok[at + 1].text, time))
    return false;
  entry.mtime = UnixFromCivil(year, month, day, time.hour, time.minute, time.second);
  entry.name = std::string(line.substr(tok[at + 2].begin));
  out = std::move(entry);
  return true;
}

// OS/400 (IBM i) integrated file system:
//   "QSYS           77824 02/23/00 15:09:55 *DIR       QOpenSys/"
// owner, size, date, time, object type, name. Members of a file ("*MEM",
// listed without a date) are not entries of this directory.
bool ParseOs400Line(std::string_view line, const ListClock&, FtpListEntry& out) {
  TokenList tok = Tokenize(line, 8);
  if (tok.size() < 6) return false;
  FtpListEntry entry;
  int year = 0, month = 0, day = 0;
  TimeOfDay time;
  std::string_view type = tok[4].text;
  if (!ParseUint(tok[1].text, entry.size) || !ParseNumericDate(tok[2].text, year, month, day) ||
      !ParseTimeOfDay(tok[3].text, time) || type.size() < 2 || type[0] != '*')
    return false;
  std::string_view name = line.substr(tok[5].begin);
  if (type == "*DIR" || type == "*FLR" || type == "*LIB") {
    entry.kind = FtpListEntry::Kind::Directory;
    if (name.size() > 1 && name.back() == '/') name.remove_suffix(1);
  }
  entry.mtime = UnixFromCivil(year, month, day, time.hour, time.minute, time.second);
  entry.name = std::string(name);
  out = std::move(entry);
  return true;
}

}  // namespace ftpzn::inet::listparse
