// Shared pieces of the listing parsers: the per-family parse functions the
// dispatcher tries in order, and the token, number and date helpers they all
// need. Internal to the listing library.
#pragma once

#include <cstdint>
#include <new>
#include <optional>
#include <string_view>

#include "inet/listing.h"

namespace ftpzn::inet::listparse {

using ParseFn = bool (*)(std::string_view line, const ListClock& clock, FtpListEntry& out);

bool ParseUnixLine(std::string_view line, const ListClock& clock, FtpListEntry& out);
bool ParseDosLine(std::string_view line, const ListClock& clock, FtpListEntry& out);
bool ParseEplfLine(std::string_view line, const ListClock& clock, FtpListEntry& out);
bool ParseVmsLine(std::string_view line, const ListClock& clock, FtpListEntry& out);
bool ParseNetwareLine(std::string_view line, const ListClock& clock, FtpListEntry& out);
bool ParseOs2Line(std::string_view line, const ListClock& clock, FtpListEntry& out);
bool ParseOs400Line(std::string_view line, const ListClock& clock, FtpListEntry& out);
bool ParseMvsLine(std::string_view line, const ListClock& clock, FtpListEntry& out);
bool ParseOctalModeLine(std::string_view line, const ListClock& clock, FtpListEntry& out);
bool ParseSizeFirstLine(std::string_view line, const ListClock& clock, FtpListEntry& out);
bool ParseOs9Line(std::string_view line, const ListClock& clock, FtpListEntry& out);
bool ParseConnectEnterpriseLine(std::string_view line, const ListClock& clock, FtpListEntry& out);
bool ParseNortelLine(std::string_view line, const ListClock& clock, FtpListEntry& out);
// A VMS name alone on its line ("A_VERY_LONG_NAME.TXT;1"): its details follow
// on the next line.
bool IsVmsNameAlone(std::string_view line);
// Where an IBM i line's date reads only one way, the order it shows is kept
// in `clock` for the lines of the same listing that read several ways.
void NoteDateOrder(std::string_view line, ListClock& clock);

// A whitespace-separated word and where it sits in the line, so a parser can
// take the rest of the line (a name with spaces) from a known column.
struct Token {
  std::string_view text;
  size_t begin = 0;
  size_t end = 0;
};

// The words of one line, without a heap allocation: no listing family needs
// more than the first sixteen (the name is taken from the line itself).
class TokenList {
 public:
  static constexpr size_t kCapacity = 16;
  TokenList() {}  // the slots stay unset until used: a line has only a few words
  size_t size() const { return m_count; }
  const Token& operator[](size_t i) const { return m_tokens[i]; }
  const Token* begin() const { return m_tokens; }
  const Token* end() const { return m_tokens + m_count; }
  void push_back(const Token& token) { new (&m_tokens[m_count++]) Token(token); }

 private:
  // A union leaves its member unconstructed: zeroing all sixteen slots for
  // every line of a listing cost more than splitting the line.
  union {
    Token m_tokens[kCapacity];
  };
  size_t m_count = 0;
};

// Fills `out` from one line's fields. Assigned, not built anew: a caller
// parsing a listing into one entry keeps the strings' storage from line to
// line, so a parse costs no allocation.
inline void SetEntry(FtpListEntry& out, FtpListEntry::Kind kind, std::string_view name, uint64_t size,
                     std::optional<int64_t> mtime, std::string_view linkTarget = {}) {
  out.kind = kind;
  out.name.assign(name.data(), name.size());
  out.size = size;
  out.mtime = mtime;
  out.linkTarget.assign(linkTarget.data(), linkTarget.size());
  out.sizeKnown = true;
}

inline bool IsHexDigits(std::string_view s) {
  if (s.empty()) return false;
  for (char c : s)
    if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'))) return false;
  return true;
}

// Splits on blanks and tabs; at most maxTokens words (at most kCapacity).
TokenList Tokenize(std::string_view line, size_t maxTokens = TokenList::kCapacity);

// The line without its line end (CR, LF or both); nullopt for a line that
// still holds a NUL, CR or LF: the name would be damaged, so no parser takes it.
std::optional<std::string_view> StripLineEnd(std::string_view line);

// These four run several times on every line of a listing: inline, so the
// parsers of the other files get them without a call each.
inline bool IsBlank(char c) { return c == ' ' || c == '\t'; }

inline bool IsDigits(std::string_view s) {
  if (s.empty()) return false;
  for (char c : s)
    if (c < '0' || c > '9') return false;
  return true;
}

// Decimal without sign; false on overflow or any other character.
inline bool ParseUint(std::string_view s, uint64_t& out) {
  if (s.empty()) return false;
  uint64_t value = 0;
  for (char c : s) {
    if (c < '0' || c > '9') return false;
    uint64_t digit = static_cast<uint64_t>(c - '0');
    if (value > (UINT64_MAX - digit) / 10) return false;
    value = value * 10 + digit;
  }
  out = value;
  return true;
}

inline bool ParseInt(std::string_view s, int& out) {
  uint64_t value = 0;
  if (s.size() > 9 || !ParseUint(s, value)) return false;
  out = static_cast<int>(value);
  return true;
}

// Month 1..12 from an abbreviated or short name in English or one of the
// common locales servers list in (German, French, Spanish, Italian, Dutch,
// Swedish, Polish, Russian, ...), any case, with or without a trailing dot
// or comma ("Jan.,"); "1月" with the month sign in UTF-8, Shift-JIS or
// EUC-JP, "1월" in UTF-8 or EUC-KR; 0 when the word is no month.
int MonthFromName(std::string_view word);

struct TimeOfDay {
  int hour = 0;
  int minute = 0;
  int second = 0;
};
// "HH:MM" or "HH:MM:SS" (also with a fraction "HH:MM:SS.sss").
bool ParseTimeOfDay(std::string_view s, TimeOfDay& out);

bool IsValidDate(int year, int month, int day);
// Seconds since 1970 of a UTC calendar time; the caller has checked the fields.
int64_t UnixFromCivil(int year, int month, int day, int hour, int minute, int second);

int64_t ClockNow(const ListClock& clock);
// The year of a date listed without one: this year when the date is at most
// six months ahead of now, else last year (a listing shows the time instead
// of the year only for recent files).
int YearForYearlessDate(const ListClock& clock, int month, int day, const TimeOfDay& time);

// Two-digit years as DOS-style listings print them.
int ExpandTwoDigitYear(int yy);

// "MM-DD-YY", "MM-DD-YYYY", "YYYY-MM-DD" with '-', '/' or '.' between the
// fields; month first unless the first field cannot be a month.
bool ParseNumericDate(std::string_view t, int& year, int& month, int& day);

// Three numbers of a date whose order the line does not tell (IBM i prints
// YY/MM/DD or MM/DD/YY by its job's settings): the first of the readings
// given, in order of preference, that is a valid date not after today
// (a day of slack for zones); failing that, the first valid one.
struct DateReading {
  int year = 0, month = 0, day = 0;
};
bool ChooseDateReading(const DateReading* readings, size_t count, const ListClock& clock, DateReading& out);

}  // namespace ftpzn::inet::listparse
