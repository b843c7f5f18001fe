// Directory listings as the server sends them (LIST lines or MLSD facts),
// parsed into entries. Window-free; the engine and ftpzn-ftp use it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ftpzn::inet {

struct FtpListEntry {
  enum class Kind { File, Directory, Link };
  std::string name;  // bytes as sent by the server
  Kind kind = Kind::File;
  uint64_t size = 0;
  std::optional<int64_t> mtime;  // Unix seconds, UTC; empty when unknown
  std::string linkTarget;        // for "name -> target" links
  // False where the line gives no byte count (z/OS data sets count tracks):
  // size is then 0, which is not the file's size.
  bool sizeKnown = true;
};

// An entry whose texts are held elsewhere (by a finder, for its current
// entry): the same fields without copying the name.
struct FtpListEntryView {
  std::string_view name;
  FtpListEntry::Kind kind = FtpListEntry::Kind::File;
  uint64_t size = 0;
  std::optional<int64_t> mtime;
  std::string_view linkTarget;
};

// Year-less dates ("Jan 10 12:00") need the current time; tests inject it.
struct ListClock {
  int64_t nowUnix = 0;  // 0: use the real clock
  // The order of day, month and year one line of this listing made
  // unambiguous (IBM i prints all of its dates in its job's order), for
  // the lines whose numbers read either way; ListLineReader learns it.
  enum class DateOrder : uint8_t { Unknown, MonthDayYear, YearMonthDay, DayMonthYear };
  DateOrder dateOrder = DateOrder::Unknown;
};

// One LIST line of any family the engine knows (Unix ls, DOS/IIS, ...).
// Returns false for lines no parser accepts (totals, banners, damage):
// those are skipped, never guessed.
// A trailing CR or LF is ignored; a NUL, CR or LF inside refuses the line.
// "." and ".." are returned like any entry: the caller drops them. LIST
// times carry no zone and are taken as UTC. A date without a year is this
// year's unless that puts it more than 183 days after now, then last year's.
bool ParseListLine(std::string_view line, const ListClock& clock, FtpListEntry& out);
// The lines of one LIST reply in order. Where an entry takes two lines (VMS
// puts a name too long for its column alone on a line, the details on the
// next), the two are joined; every other line goes to ParseListLine as it
// is. A name alone at the end of the listing is dropped, not guessed at.
class ListLineReader {
 public:
  explicit ListLineReader(const ListClock& clock) : m_clock(clock) {}
  bool Parse(std::string_view line, FtpListEntry& out);

 private:
  ListClock m_clock;      // also carries the date order the listing has shown
  std::string m_pending;  // a name waiting for its details
  std::string m_joined;   // kept, so that joining costs no allocation each time
};

// One MLSD line: "fact=value;fact=value; name". The name is everything
// after the first blank. type=cdir and type=pdir come back as directories
// named "." and "..", whatever path the server gave them.
bool ParseMlsdLine(std::string_view line, FtpListEntry& out);

// Year, month and day (proleptic Gregorian) of a UTC Unix time.
void CivilFromUnix(int64_t unixTime, int& year, int& month, int& day);

}  // namespace ftpzn::inet
