// z/OS (MVS) listings, in their shapes. Data sets of a qualifier:
//   Volume Unit    Referred Ext Used Recfm Lrecl BlkSz Dsorg Dsname
//   WYNK01 3390   2024/01/10  1   15  FB      80  3120  PO  CLIST
//   WYNK03 3390   **NONE**    1    1  U        0  6144  PO  EMPTY.LOAD
//   SYS001 3390   2024/01/10  1   45                  VSAM  APP.KSDS
//   Migrated                                                OLD.DATA
//   Pseudo Directory                                        HLQ.SUB
// members of a partitioned data set, with their statistics:
//   Name     VV.MM   Created       Changed      Size  Init   Mod   Id
//   MEMBER1   01.03 2024/01/10 2024/01/11 12:34    10    10     0 USER1
// and members of a load library:
//   Name      Size     TTR   Alias-of AC --------- Attributes --------- Amode Rmode
//   PGM1     000A20   00000F         00 FO             RN RU            31    ANY
// A partitioned data set is listed as a directory (its members are entered
// with CWD). Data set sizes are in tracks and member sizes in lines, not
// bytes, so they are left unknown; a load module's size is its bytes, in hex.
// A VSAM cluster on some servers shows no more than its volume and unit:
//   USER01 3390   VSAM MY.CLUSTER
#include <string>
#include <string_view>

#include "inet/listparse.h"

namespace ftpzn::inet::listparse {

namespace {

using Kind = FtpListEntry::Kind;

// "2024/01/10"
bool ParseMvsDate(std::string_view t, int& year, int& month, int& day) {
  return t.size() == 10 && t[4] == '/' && t[7] == '/' && ParseInt(t.substr(0, 4), year) &&
         ParseInt(t.substr(5, 2), month) && ParseInt(t.substr(8, 2), day) && IsValidDate(year, month, day);
}

bool IsVersion(std::string_view t) {
  return t.size() == 5 && t[2] == '.' && IsDigits(t.substr(0, 2)) && IsDigits(t.substr(3));
}

bool IsDataSetOrganisation(std::string_view t) {
  for (std::string_view dsorg : {"PO", "PO-E", "PS", "DA", "IS", "VS", "VSAM", "??"})
    if (t == dsorg) return true;
  return false;
}

// Where the data set lies: a volume serial of one to six letters and digits.
bool IsVolume(std::string_view t) {
  if (t.empty() || t.size() > 6) return false;
  for (char c : t)
    if (!((c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '#' || c == '$' || c == '@')) return false;
  return true;
}

bool ParseHex(std::string_view t, uint64_t& value) {
  if (!IsHexDigits(t) || t.size() > 15) return false;
  value = 0;
  for (char c : t) value = value * 16 + static_cast<uint64_t>(c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10);
  return true;
}

// An entry whose line gives no byte count.
void SetUnsized(FtpListEntry& out, Kind kind, std::string_view name, std::optional<int64_t> mtime) {
  SetEntry(out, kind, name, 0, mtime);
  out.sizeKnown = false;
}

}  // namespace

bool ParseMvsLine(std::string_view line, const ListClock&, FtpListEntry& out) {
  TokenList tok = Tokenize(line);
  if (tok.size() < 2) return false;
  int year = 0, month = 0, day = 0;
  std::string_view first = tok[0].text;
  // Data sets moved off disk (to tape, or by HSM): listed, with nothing
  // known about them.
  if (tok.size() == 2 && (first == "Migrated" || first == "MIGRAT" || first == "MIGRAT1" ||
                          first == "MIGRAT2" || first == "ARCIVE")) {
    SetUnsized(out, Kind::File, tok[1].text, std::nullopt);
    return true;
  }
  if (tok.size() == 3 && first == "Pseudo" && tok[1].text == "Directory") {
    SetUnsized(out, Kind::Directory, tok[2].text, std::nullopt);
    return true;
  }
  const size_t n = tok.size();
  if (n == 4 && tok[2].text == "VSAM" && IsVolume(first) && IsDigits(tok[1].text)) {
    SetUnsized(out, Kind::File, tok[3].text, std::nullopt);
    return true;
  }
  if (n >= 5 && n <= 10 && IsVolume(first) && (IsDigits(tok[1].text) || tok[1].text == "Tape") &&
      IsDataSetOrganisation(tok[n - 2].text) && IsDigits(tok[3].text)) {
    std::optional<int64_t> mtime;
    if (ParseMvsDate(tok[2].text, year, month, day))
      mtime = UnixFromCivil(year, month, day, 0, 0, 0);
    else if (tok[2].text != "**NONE**")
      return false;
    std::string_view dsorg = tok[n - 2].text;
    SetUnsized(out, dsorg == "PO" || dsorg == "PO-E" ? Kind::Directory : Kind::File, tok[n - 1].text, mtime);
    return true;
  }
  if (n >= 9 && IsVersion(tok[1].text) && ParseMvsDate(tok[2].text, year, month, day) &&
      ParseMvsDate(tok[3].text, year, month, day)) {
    TimeOfDay time;
    if (!ParseTimeOfDay(tok[4].text, time)) return false;
    SetUnsized(out, Kind::File, tok[0].text,
               UnixFromCivil(year, month, day, time.hour, time.minute, time.second));
    return true;
  }
  // A load module: size and TTR in six hex digits, the modes last.
  std::string_view rmode = tok[n - 1].text;
  uint64_t size = 0, ttr = 0;
  if (n >= 5 && tok[1].text.size() == 6 && tok[2].text.size() == 6 && ParseHex(tok[1].text, size) &&
      ParseHex(tok[2].text, ttr) && (rmode == "ANY" || rmode == "24" || rmode == "31" || rmode == "64")) {
    SetEntry(out, Kind::File, tok[0].text, size, std::nullopt);
    return true;
  }
  return false;
}

}  // namespace ftpzn::inet::listparse
