// MLSD lines (RFC 3659): "fact=value;fact=value; name". The name is all that
// follows the first blank (or tab), blanks included, tabs and all; fact
// names are case-insensitive and unknown facts are passed over.
// The current and parent directory entries (type=cdir, type=pdir) come back
// named "." and ".." whatever path the server gave them, so that the caller
// drops them like the "." and ".." of a LIST.
#include <string>
#include <string_view>

#include "inet/listing.h"
#include "inet/listparse.h"

namespace ftpzn::inet {

namespace {

using listparse::IsDigits;
using listparse::ParseInt;
using listparse::ParseUint;

bool EqualsNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    char x = a[i], y = b[i];
    if (x >= 'A' && x <= 'Z') x = static_cast<char>(x + 32);
    if (y >= 'A' && y <= 'Z') y = static_cast<char>(y + 32);
    if (x != y) return false;
  }
  return true;
}

bool StartsWithNoCase(std::string_view s, std::string_view prefix) {
  return s.size() >= prefix.size() && EqualsNoCase(s.substr(0, prefix.size()), prefix);
}

// "YYYYMMDDHHMMSS" with an optional ".sss" fraction, always UTC.
bool ParseMlsdTime(std::string_view v, int64_t& out) {
  size_t dot = v.find('.');
  if (dot != std::string_view::npos) {
    if (!IsDigits(v.substr(dot + 1))) return false;
    v = v.substr(0, dot);
  }
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
  if (v.size() != 14 || !ParseInt(v.substr(0, 4), year) || !ParseInt(v.substr(4, 2), month) ||
      !ParseInt(v.substr(6, 2), day) || !ParseInt(v.substr(8, 2), hour) ||
      !ParseInt(v.substr(10, 2), minute) || !ParseInt(v.substr(12, 2), second))
    return false;
  if (!listparse::IsValidDate(year, month, day) || hour > 23 || minute > 59 || second > 60) return false;
  out = listparse::UnixFromCivil(year, month, day, hour, minute, second);
  return true;
}

enum class MlsdType { Unknown, File, Dir, CurrentDir, ParentDir, Link };

// "file", "dir", "cdir", "pdir", and the Unix extensions servers use for links:
// "OS.unix=slink:/target" (the target optional) or "OS.unix=symlink".
MlsdType ClassifyType(std::string_view v, std::string& linkTarget) {
  if (EqualsNoCase(v, "file")) return MlsdType::File;
  if (EqualsNoCase(v, "dir")) return MlsdType::Dir;
  if (EqualsNoCase(v, "cdir")) return MlsdType::CurrentDir;
  if (EqualsNoCase(v, "pdir")) return MlsdType::ParentDir;
  if (StartsWithNoCase(v, "os.unix=slink") || StartsWithNoCase(v, "os.unix=symlink")) {
    size_t colon = v.find(':');
    if (colon != std::string_view::npos) linkTarget.assign(v.substr(colon + 1));
    return MlsdType::Link;
  }
  return MlsdType::Unknown;
}

}  // namespace

namespace {

// The facts of one line, read into `entry`; false when the text is not a
// fact list ("fact=value" items joined by ';', the last ';' optional).
bool ReadFacts(std::string_view facts, FtpListEntry& entry, MlsdType& type) {
  if (facts.empty()) return true;
  if (facts.find('=') == std::string_view::npos) return false;
  type = MlsdType::File;
  while (!facts.empty()) {
    size_t semi = facts.find(';');
    std::string_view fact = facts.substr(0, semi);
    facts.remove_prefix(semi == std::string_view::npos ? facts.size() : semi + 1);
    size_t eq = fact.find('=');
    if (eq == std::string_view::npos || eq == 0) return false;
    std::string_view key = fact.substr(0, eq);
    std::string_view value = fact.substr(eq + 1);
    if (EqualsNoCase(key, "type")) {
      MlsdType t = ClassifyType(value, entry.linkTarget);
      // A type this parser does not know (devices, "OS.xyz=...") is listed as
      // a file: it has a name the user can see, but it cannot be entered.
      type = t == MlsdType::Unknown ? MlsdType::File : t;
    } else if (EqualsNoCase(key, "size") || EqualsNoCase(key, "sizd")) {
      uint64_t size = 0;
      if (ParseUint(value, size)) entry.size = size;
    } else if (EqualsNoCase(key, "modify")) {
      int64_t mtime = 0;
      if (ParseMlsdTime(value, mtime)) entry.mtime = mtime;
    }
  }
  return true;
}

bool HasTypeFact(std::string_view facts) {
  for (size_t at = 0; at + 5 <= facts.size(); ++at)
    if ((at == 0 || facts[at - 1] == ';') && StartsWithNoCase(facts.substr(at), "type=")) return true;
  return false;
}

}  // namespace

bool ParseMlsdLine(std::string_view line, FtpListEntry& out) {
  auto stripped = listparse::StripLineEnd(line);
  if (!stripped) return false;
  line = *stripped;
  // A line without facts is a blank and the name (RFC 3659); some servers
  // put a blank before their facts too. The two are told apart by what
  // follows the blank: a fact list with a type is read as facts.
  if (line.size() > 1 && line[0] == ' ') {
    size_t next = line.find(' ', 1);
    if (next != std::string_view::npos && next + 1 < line.size() && HasTypeFact(line.substr(1, next - 1)))
      line.remove_prefix(1);
  }
  // Some servers put a tab after the facts instead of the blank.
  size_t space = line.find_first_of(" \t");
  if (space == std::string_view::npos || space + 1 >= line.size()) return false;
  std::string_view facts = line.substr(0, space);
  std::string_view name = line.substr(space + 1);

  out.linkTarget.clear();
  out.size = 0;
  out.sizeKnown = true;
  out.mtime.reset();
  MlsdType type = MlsdType::File;
  if (!ReadFacts(facts, out, type)) return false;
  switch (type) {
    case MlsdType::CurrentDir:
      name = ".";
      out.kind = FtpListEntry::Kind::Directory;
      break;
    case MlsdType::ParentDir:
      name = "..";
      out.kind = FtpListEntry::Kind::Directory;
      break;
    case MlsdType::Dir:
      out.kind = FtpListEntry::Kind::Directory;
      break;
    case MlsdType::Link:
      out.kind = FtpListEntry::Kind::Link;
      break;
    case MlsdType::File:
    case MlsdType::Unknown:
      out.kind = FtpListEntry::Kind::File;
      break;
  }
  out.name.assign(name);
  return true;
}

}  // namespace ftpzn::inet
