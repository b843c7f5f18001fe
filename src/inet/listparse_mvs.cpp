// z/OS (MVS) listings, in their two shapes. Data sets of a qualifier:
//   Volume Unit    Referred Ext Used Recfm Lrecl BlkSz Dsorg Dsname
//   WYNK01 3390   2024/01/10  1   15  FB      80  3120  PO  CLIST
//   Migrated                                                OLD.DATA
// and members of a partitioned data set:
//   Name     VV.MM   Created       Changed      Size  Init   Mod   Id
//   MEMBER1   01.03 2024/01/10 2024/01/11 12:34    10    10     0 USER1
// A partitioned data set is listed as a directory (its members are entered
// with CWD). Sizes are in tracks or lines, not bytes, so they are left 0.
#include <string>
#include <string_view>

#include "inet/listparse.h"

namespace ftpzn::inet::listparse {

namespace {

// "2024/01/10"
bool ParseMvsDate(std::string_view t, int& year, int& month, int& day) {
  return t.size() == 10 && t[4] == '/' && t[7] == '/' && ParseInt(t.substr(0, 4), year) &&
         ParseInt(t.substr(5, 2), month) && ParseInt(t.substr(8, 2), day) && IsValidDate(year, month, day);
}

bool IsVersion(std::string_view t) {
  return t.size() == 5 && t[2] == '.' && IsDigits(t.substr(0, 2)) && IsDigits(t.substr(3));
}

}  // namespace

bool ParseMvsLine(std::string_view line, const ListClock&, FtpListEntry& out) {
  TokenList tok = Tokenize(line);
  int year = 0, month = 0, day = 0;
  FtpListEntry entry;
  if (tok.size() == 2 && tok[0].text == "Migrated") {
    // A data set moved to tape: listed, with nothing known about it.
    entry.name = std::string(tok[1].text);
  } else if (tok.size() == 10 && ParseMvsDate(tok[2].text, year, month, day) && IsDigits(tok[3].text) &&
             IsDigits(tok[4].text)) {
    std::string_view dsorg = tok[8].text;
    if (dsorg == "PO" || dsorg == "PO-E") entry.kind = FtpListEntry::Kind::Directory;
    entry.name = std::string(tok[9].text);
    entry.mtime = UnixFromCivil(year, month, day, 0, 0, 0);
  } else if (tok.size() >= 9 && IsVersion(tok[1].text) && ParseMvsDate(tok[2].text, year, month, day) &&
             ParseMvsDate(tok[3].text, year, month, day)) {
    TimeOfDay time;
    if (!ParseTimeOfDay(tok[4].text, time)) return false;
    entry.name = std::string(tok[0].text);
    entry.mtime = UnixFromCivil(year, month, day, time.hour, time.minute, time.second);
  } else {
    return false;
  }
  out = std::move(entry);
  return true;
}

}  // namespace ftpzn::inet::listparse
