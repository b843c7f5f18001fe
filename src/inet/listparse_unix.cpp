// Unix "ls -l" lines, as most servers send them:
//   drwxr-xr-x   2 user group   4096 Jan 10 12:00 name
//   -rw-r--r--   1 user        12345 Mar  3  2021 name with spaces
//   lrwxrwxrwx   1 0    0          7 Jan 10 12:00 link -> target
//   crw-rw-rw-   1 root root   1,   3 Jan 10 12:00 null
// with or without the group, numeric ids, localised month names ("10. Mär",
// "janv. 10", " 1月 10") and ISO dates (--time-style=long-iso, full-iso).
#include <string_view>

#include "inet/listparse.h"

namespace ftpzn::inet::listparse {

namespace {

bool IsPermissionColumn(std::string_view t) {
  if (t.size() < 10 || t.size() > 11) return false;
  // Type letters: file, directory, link, devices, fifo, socket, Solaris door,
  // HP-UX network special.
  if (std::string_view("-dlcbpsDn").find(t[0]) == std::string_view::npos) return false;
  for (size_t i = 1; i < 10; ++i)
    if (std::string_view("rwxsStTlL-").find(t[i]) == std::string_view::npos) return false;
  // ACL, extended attribute or security-context marker.
  return t.size() == 10 || std::string_view("+@.").find(t[10]) != std::string_view::npos;
}

bool ParseDay(std::string_view t, int& day) {
  if (!t.empty() && t.back() == '.') t.remove_suffix(1);
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
  // ls pads the time/year column to five characters and follows it by one
  // blank, so a name's own leading blanks can be told apart.
  bool fixedColumn = false;
};

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

// The time-or-year column after month and day.
bool ParseTimeOrYear(const std::vector<Token>& tok, size_t at, DateMatch& m) {
  std::string_view t = tok[at].text;
  if (ParseYear(t, m.year)) {
    m.lastToken = at;
    m.fixedColumn = tok[at].begin >= 2 && tok[at].begin - 2 >= tok[at - 1].end;
    return true;
  }
  if (!ParseTimeOfDay(t, m.time) || t.size() > 8) return false;
  m.lastToken = at;
  m.fixedColumn = t.size() == 5;
  // BSD "ls -lT": "Jan 10 12:00:00 2024".
  if (t.size() == 8 && at + 1 < tok.size() && ParseYear(tok[at + 1].text, m.year)) {
    m.lastToken = at + 1;
    m.fixedColumn = true;
  }
  return true;
}

bool MatchDate(const std::vector<Token>& tok, size_t i, DateMatch& m) {
  if (i + 1 >= tok.size()) return false;
  int year = 0, month = 0, day = 0;
  if (ParseIsoDate(tok[i].text, year, month, day)) {
    if (!ParseTimeOfDay(tok[i + 1].text, m.time)) return false;
    m.year = year;
    m.month = month;
    m.day = day;
    m.lastToken = i + 1;
    m.fixedColumn = true;
    if (i + 2 < tok.size() && ParseZone(tok[i + 2].text, m.zoneOffset)) m.lastToken = i + 2;
    return true;
  }
  if (i + 2 >= tok.size()) return false;
  if ((month = MonthFromName(tok[i].text)) != 0 && ParseDay(tok[i + 1].text, day)) {
    // "Jan 10"
  } else if (ParseDay(tok[i].text, day) && (month = MonthFromName(tok[i + 1].text)) != 0) {
    // "10. Jan", "10 janv."
  } else {
    return false;
  }
  m.month = month;
  m.day = day;
  return ParseTimeOrYear(tok, i + 2, m);
}

bool IsDeviceMajor(std::string_view t) {
  return t.size() >= 2 && t.back() == ',' && IsDigits(t.substr(0, t.size() - 1));
}

bool IsDevicePair(std::string_view t) {
  size_t comma = t.find(',');
  return comma != std::string_view::npos && IsDigits(t.substr(0, comma)) && IsDigits(t.substr(comma + 1));
}

}  // namespace

bool ParseUnixLine(std::string_view line, const ListClock& clock, FtpListEntry& out) {
  std::vector<Token> tok = Tokenize(line, 16);
  if (tok.size() < 6 || !IsPermissionColumn(tok[0].text)) return false;

  // The date is found first: the size is the column right before it, and
  // everything between the permissions and the size is links, owner and group
  // (any of which a server may leave out).
  constexpr size_t kFirstDateToken = 3;
  constexpr size_t kLastDateToken = 9;
  DateMatch m;
  size_t dateAt = 0;
  uint64_t size = 0;
  for (size_t i = kFirstDateToken; i <= kLastDateToken && i < tok.size(); ++i) {
    DateMatch candidate;
    if (!MatchDate(tok, i, candidate)) continue;
    std::string_view before = tok[i - 1].text;
    if (ParseUint(before, size)) {
      if (IsDeviceMajor(tok[i - 2].text)) {
        if (i - 2 < 2) continue;
        size = 0;
      }
    } else if (IsDevicePair(before)) {
      size = 0;
    } else {
      continue;
    }
    m = candidate;
    dateAt = i;
    break;
  }
  if (dateAt == 0 || m.lastToken + 1 >= tok.size()) return false;

  size_t nameStart = tok[m.lastToken].end;
  if (m.fixedColumn && nameStart + 1 < line.size() && IsBlank(line[nameStart])) {
    ++nameStart;
  } else {
    nameStart = tok[m.lastToken + 1].begin;
  }
  std::string_view name = line.substr(nameStart);
  if (name.empty()) return false;

  FtpListEntry entry;
  char type = tok[0].text[0];
  entry.kind = type == 'd'   ? FtpListEntry::Kind::Directory
               : type == 'l' ? FtpListEntry::Kind::Link
                             : FtpListEntry::Kind::File;
  if (entry.kind == FtpListEntry::Kind::Link) {
    size_t arrow = name.find(" -> ");
    if (arrow != std::string_view::npos && arrow > 0) {
      entry.linkTarget = std::string(name.substr(arrow + 4));
      name = name.substr(0, arrow);
    }
  }
  entry.name = std::string(name);
  entry.size = size;
  int year = m.year != 0 ? m.year : YearForYearlessDate(clock, m.month, m.day, m.time);
  if (!IsValidDate(year, m.month, m.day)) return false;
  entry.mtime = UnixFromCivil(year, m.month, m.day, m.time.hour, m.time.minute, m.time.second) - m.zoneOffset;
  out = std::move(entry);
  return true;
}

}  // namespace ftpzn::inet::listparse
