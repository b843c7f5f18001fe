// DOS and IIS lines:
//   01-10-24  12:00PM       <DIR>          name
//   01-10-2024  23:59              1234 name
// Month first as IIS prints it; a first field above 12 is a day, a
// four-digit first field a year (YYYY-MM-DD).
#include <string>
#include <string_view>

#include "inet/listparse.h"

namespace ftpzn::inet::listparse {

namespace {

using Kind = FtpListEntry::Kind;

// "12:00PM", "12:00 PM" (the marker as the next word), "23:59".
bool ParseDosTime(const TokenList& tok, size_t& at, TimeOfDay& time) {
  std::string_view t = tok[at].text;
  std::string_view marker;
  if (t.size() >= 2) {
    std::string_view tail = t.substr(t.size() - 2);
    if (tail == "AM" || tail == "PM" || tail == "am" || tail == "pm") {
      marker = tail;
      t.remove_suffix(2);
    }
  }
  if (marker.empty() && at + 1 < tok.size()) {
    std::string_view next = tok[at + 1].text;
    if (next == "AM" || next == "PM" || next == "am" || next == "pm") {
      marker = next;
      ++at;
    }
  }
  if (!ParseTimeOfDay(t, time)) return false;
  if (!marker.empty()) {
    if (time.hour < 1 || time.hour > 12) return false;
    bool pm = marker[0] == 'P' || marker[0] == 'p';
    time.hour = time.hour % 12 + (pm ? 12 : 0);
  }
  return true;
}

// "1234" or with thousands separators as "dir" prints them ("1,234", and
// "1.234" where the locale groups with dots).
bool ParseDosSize(std::string_view t, uint64_t& size) {
  if (ParseUint(t, size)) return true;
  size_t first = t.find_first_of(",.");
  if (first == std::string_view::npos || first == 0 || first > 3 || t.size() > 27) return false;
  const char separator = t[first];
  uint64_t value = 0;
  if (!ParseUint(t.substr(0, first), value)) return false;
  for (t.remove_prefix(first); !t.empty(); t.remove_prefix(4)) {
    uint64_t group = 0;
    if (t.size() < 4 || t[0] != separator || !ParseUint(t.substr(1, 3), group)) return false;
    value = value * 1000 + group;
  }
  size = value;
  return true;
}

}  // namespace

bool ParseDosLine(std::string_view line, const ListClock&, FtpListEntry& out) {
  TokenList tok = Tokenize(line, 6);
  if (tok.size() < 4) return false;
  int year = 0, month = 0, day = 0;
  if (!ParseNumericDate(tok[0].text, year, month, day)) return false;
  size_t at = 1;
  TimeOfDay time;
  if (!ParseDosTime(tok, at, time) || ++at + 1 >= tok.size()) return false;

  Kind kind = Kind::File;
  uint64_t size = 0;
  std::string_view target;
  std::string_view column = tok[at].text;
  size_t nameStart = tok[at].end;
  if (column == "<DIR>" || column == "<JUNCTION>" || column == "<SYMLINKD>" || column == "<SYMLINK>") {
    kind = column == "<DIR>" ? Kind::Directory : Kind::Link;
    // The directory marker is followed by ten blanks; more are the name's own.
    constexpr size_t kDirPadding = 10;
    size_t blanks = 0;
    while (nameStart + blanks < line.size() && IsBlank(line[nameStart + blanks])) ++blanks;
    nameStart += (column == "<DIR>" && blanks > kDirPadding) ? kDirPadding : blanks;
  } else if (ParseDosSize(column, size)) {
    // The size is right-aligned and followed by one blank.
    ++nameStart;
  } else {
    return false;
  }
  std::string_view name = line.substr(nameStart);
  // Links as "dir" shows them: "name [target]".
  if (kind == Kind::Link && name.size() > 3 && name.back() == ']') {
    size_t open = name.rfind(" [");
    if (open != std::string_view::npos && open > 0) {
      target = name.substr(open + 2, name.size() - open - 3);
      name = name.substr(0, open);
    }
  }
  if (name.empty()) return false;
  SetEntry(out, kind, name, size, UnixFromCivil(year, month, day, time.hour, time.minute, time.second),
           target);
  return true;
}

}  // namespace ftpzn::inet::listparse
