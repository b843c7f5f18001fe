// The dispatcher over the listing families, and the helpers they share.
#include "inet/listing.h"

#include <array>
#include <ctime>
#include <string>
#include <utility>

#include "inet/listparse.h"

namespace ftpzn::inet {

namespace {

// Ordered by how cheaply and how surely a family rejects a foreign line: each
// parser checks a fixed shape (permission column, DOS date, '+' fact list)
// before it takes anything.
constexpr std::array<listparse::ParseFn, 7> kListParsers = {
    listparse::ParseUnixLine,    listparse::ParseDosLine, listparse::ParseEplfLine,  listparse::ParseVmsLine,
    listparse::ParseNetwareLine, listparse::ParseOs2Line, listparse::ParseOs400Line,
};

}  // namespace

bool ParseListLine(std::string_view line, const ListClock& clock, FtpListEntry& out) {
  auto stripped = listparse::StripLineEnd(line);
  if (!stripped || stripped->empty()) return false;
  for (auto parse : kListParsers) {
    FtpListEntry entry;
    if (parse(*stripped, clock, entry)) {
      out = std::move(entry);
      return true;
    }
  }
  return false;
}

}  // namespace ftpzn::inet

namespace ftpzn::inet::listparse {

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

std::vector<Token> Tokenize(std::string_view line, size_t maxTokens) {
  std::vector<Token> tokens;
  size_t i = 0;
  while (i < line.size() && tokens.size() < maxTokens) {
    while (i < line.size() && IsBlank(line[i])) ++i;
    if (i == line.size()) break;
    size_t begin = i;
    while (i < line.size() && !IsBlank(line[i])) ++i;
    tokens.push_back({line.substr(begin, i - begin), begin, i});
  }
  return tokens;
}

std::optional<std::string_view> StripLineEnd(std::string_view line) {
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
  if (line.find_first_of(std::string_view("\0\r\n", 3)) != std::string_view::npos) return std::nullopt;
  return line;
}

bool IsDigits(std::string_view s) {
  if (s.empty()) return false;
  for (char c : s)
    if (c < '0' || c > '9') return false;
  return true;
}

bool ParseUint(std::string_view s, uint64_t& out) {
  if (!IsDigits(s)) return false;
  uint64_t value = 0;
  for (char c : s) {
    uint64_t digit = static_cast<uint64_t>(c - '0');
    if (value > (UINT64_MAX - digit) / 10) return false;
    value = value * 10 + digit;
  }
  out = value;
  return true;
}

bool ParseInt(std::string_view s, int& out) {
  uint64_t value = 0;
  if (s.size() > 9 || !ParseUint(s, value)) return false;
  out = static_cast<int>(value);
  return true;
}

namespace {

// Lower-cases ASCII and the two-byte UTF-8 letters month names use (Latin-1,
// Latin Extended-A, Cyrillic); anything else is kept.
std::string FoldCase(std::string_view word) {
  std::string folded;
  folded.reserve(word.size());
  for (size_t i = 0; i < word.size(); ++i) {
    unsigned char c = static_cast<unsigned char>(word[i]);
    if (c < 0x80) {
      folded += static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
      continue;
    }
    unsigned char next = i + 1 < word.size() ? static_cast<unsigned char>(word[i + 1]) : 0;
    if (c < 0xC2 || c > 0xDF || (next & 0xC0) != 0x80) {
      folded += static_cast<char>(c);
      continue;
    }
    char32_t cp = (static_cast<char32_t>(c & 0x1F) << 6) | (next & 0x3F);
    ++i;
    if ((cp >= 0xC0 && cp <= 0xDE && cp != 0xD7) || (cp >= 0x410 && cp <= 0x42F)) {
      cp += 0x20;
    } else if (cp >= 0x400 && cp <= 0x40F) {
      cp += 0x50;
    } else if (cp >= 0x100 && cp <= 0x17F) {
      // Latin Extended-A pairs upper and lower case on neighbouring points;
      // which of the two is upper flips in the 0x139..0x148 and 0x179..0x17E runs.
      bool oddUpper = (cp >= 0x139 && cp <= 0x148) || (cp >= 0x179 && cp <= 0x17E);
      if ((cp % 2 == 1) == oddUpper && cp != 0x138 && cp != 0x149 && cp != 0x17F) cp += 1;
    }
    folded += static_cast<char>(0xC0 | (cp >> 6));
    folded += static_cast<char>(0x80 | (cp & 0x3F));
  }
  return folded;
}

struct MonthName {
  std::string_view name;
  int month;
};

// Abbreviations as the C libraries of common FTP hosts print them ("%b"),
// plus the older or longer forms some servers use. No two languages give one
// word different months; a word that could be two months ("jui" for juin or
// juillet) is left out.
constexpr MonthName kMonthNames[] = {
    // English
    {"jan", 1},
    {"feb", 2},
    {"mar", 3},
    {"apr", 4},
    {"may", 5},
    {"jun", 6},
    {"jul", 7},
    {"aug", 8},
    {"sep", 9},
    {"sept", 9},
    {"oct", 10},
    {"nov", 11},
    {"dec", 12},
    // German
    {"jän", 1},
    {"mär", 3},
    {"mrz", 3},
    {"mai", 5},
    {"okt", 10},
    {"dez", 12},
    // French
    {"janv", 1},
    {"févr", 2},
    {"fév", 2},
    {"fevr", 2},
    {"mars", 3},
    {"avr", 4},
    {"juin", 6},
    {"juil", 7},
    {"août", 8},
    {"aoû", 8},
    {"aout", 8},
    {"déc", 12},
    // Spanish
    {"ene", 1},
    {"abr", 4},
    {"ago", 8},
    {"dic", 12},
    // Italian
    {"gen", 1},
    {"mag", 5},
    {"giu", 6},
    {"lug", 7},
    {"set", 9},
    {"ott", 10},
    // Dutch
    {"mrt", 3},
    {"mei", 5},
    // Swedish, Danish, Norwegian
    {"maj", 5},
    {"des", 12},
    // Portuguese
    {"fev", 2},
    {"out", 10},
    {"dez", 12},
    // Polish
    {"sty", 1},
    {"lut", 2},
    {"kwi", 4},
    {"cze", 6},
    {"lip", 7},
    {"sie", 8},
    {"wrz", 9},
    {"paź", 10},
    {"lis", 11},
    {"gru", 12},
    // Czech
    {"led", 1},
    {"úno", 2},
    {"bře", 3},
    {"dub", 4},
    {"kvě", 5},
    {"čvn", 6},
    {"čvc", 7},
    {"srp", 8},
    {"zář", 9},
    {"říj", 10},
    {"pro", 12},
    // Hungarian
    {"febr", 2},
    {"márc", 3},
    {"ápr", 4},
    {"máj", 5},
    {"jún", 6},
    {"júl", 7},
    {"szept", 9},
    // Russian (nominative and genitive forms, both in use)
    {"янв", 1},
    {"фев", 2},
    {"февр", 2},
    {"мар", 3},
    {"марта", 3},
    {"апр", 4},
    {"май", 5},
    {"мая", 5},
    {"июн", 6},
    {"июня", 6},
    {"июл", 7},
    {"июля", 7},
    {"авг", 8},
    {"сен", 9},
    {"сент", 9},
    {"окт", 10},
    {"ноя", 11},
    {"нояб", 11},
    {"дек", 12},
};

}  // namespace

int MonthFromName(std::string_view word) {
  if (!word.empty() && word.back() == '.') word.remove_suffix(1);
  if (word.empty() || word.size() > 12) return 0;
  // "1月" .. "12月": Japanese, Chinese and Korean ("월") locales.
  for (std::string_view suffix : {std::string_view("\xE6\x9C\x88"), std::string_view("\xEC\x9B\x94")}) {
    if (word.size() > suffix.size() && word.ends_with(suffix)) {
      int month = 0;
      if (ParseInt(word.substr(0, word.size() - suffix.size()), month) && month >= 1 && month <= 12)
        return month;
      return 0;
    }
  }
  std::string folded = FoldCase(word);
  for (const auto& entry : kMonthNames)
    if (entry.name == folded) return entry.month;
  return 0;
}

bool ParseTimeOfDay(std::string_view s, TimeOfDay& out) {
  if (s.size() < 4 || s.size() > 20) return false;
  size_t colon = s.find(':');
  if (colon == std::string_view::npos || colon == 0 || colon > 2) return false;
  TimeOfDay t;
  if (!ParseInt(s.substr(0, colon), t.hour)) return false;
  std::string_view rest = s.substr(colon + 1);
  if (rest.size() < 2 || !ParseInt(rest.substr(0, 2), t.minute)) return false;
  rest.remove_prefix(2);
  if (!rest.empty()) {
    if (rest[0] != ':' || rest.size() < 3 || !ParseInt(rest.substr(1, 2), t.second)) return false;
    rest.remove_prefix(3);
    if (!rest.empty() && (rest[0] != '.' || !IsDigits(rest.substr(1)))) return false;
  }
  if (t.hour > 23 || t.minute > 59 || t.second > 60) return false;
  out = t;
  return true;
}

bool IsValidDate(int year, int month, int day) {
  static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (year < 1900 || year > 9999 || month < 1 || month > 12 || day < 1) return false;
  bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  return day <= kDays[month - 1] + (month == 2 && leap ? 1 : 0);
}

// Days from 1970-01-01 of a proleptic Gregorian date (the well-known
// era-based algorithm, exact for any year).
int64_t UnixFromCivil(int year, int month, int day, int hour, int minute, int second) {
  int64_t y = year - (month <= 2 ? 1 : 0);
  int64_t era = (y >= 0 ? y : y - 399) / 400;
  int64_t yoe = y - era * 400;
  int64_t doy = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  int64_t days = era * 146097 + doe - 719468;
  return days * 86400 + hour * 3600 + minute * 60 + second;
}

void CivilFromUnix(int64_t unixTime, int& year, int& month, int& day) {
  int64_t z = (unixTime >= 0 ? unixTime : unixTime - 86399) / 86400 + 719468;
  int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  int64_t doe = z - era * 146097;
  int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  int64_t mp = (5 * doy + 2) / 153;
  day = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
  month = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
  year = static_cast<int>(yoe + era * 400 + (month <= 2 ? 1 : 0));
}

int64_t ClockNow(const ListClock& clock) {
  return clock.nowUnix != 0 ? clock.nowUnix : static_cast<int64_t>(std::time(nullptr));
}

int YearForYearlessDate(const ListClock& clock, int month, int day, const TimeOfDay& time) {
  constexpr int64_t kSixMonths = 183 * 86400;
  int64_t now = ClockNow(clock);
  int year = 0, nowMonth = 0, nowDay = 0;
  CivilFromUnix(now, year, nowMonth, nowDay);
  // 29 February is compared as 28 February and then moved to the leap year
  // before, which is the only year it can belong to.
  int checkDay = IsValidDate(year, month, day) ? day : day - 1;
  int64_t candidate = UnixFromCivil(year, month, checkDay, time.hour, time.minute, time.second);
  if (candidate - now > kSixMonths) --year;
  for (int back = 0; back < 8 && !IsValidDate(year, month, day); ++back) --year;
  return year;
}

int ExpandTwoDigitYear(int yy) { return yy < 70 ? 2000 + yy : 1900 + yy; }

bool ParseNumericDate(std::string_view t, int& year, int& month, int& day) {
  if (t.size() < 8 || t.size() > 10) return false;
  char sep = t.find('-') != std::string_view::npos ? '-' : t.find('/') != std::string_view::npos ? '/' : '.';
  size_t a = t.find(sep);
  size_t b = a == std::string_view::npos ? a : t.find(sep, a + 1);
  if (b == std::string_view::npos) return false;
  int f1 = 0, f2 = 0, f3 = 0;
  std::string_view s1 = t.substr(0, a), s2 = t.substr(a + 1, b - a - 1), s3 = t.substr(b + 1);
  if (s2.empty() || s2.size() > 2 || !ParseInt(s1, f1) || !ParseInt(s2, f2) || !ParseInt(s3, f3))
    return false;
  if (s1.size() == 4 && s3.size() <= 2) {
    year = f1;
    month = f2;
    day = f3;
  } else if (s1.size() <= 2 && (s3.size() == 2 || s3.size() == 4)) {
    year = s3.size() == 2 ? ExpandTwoDigitYear(f3) : f3;
    month = f1;
    day = f2;
    if (month > 12 && day <= 12) std::swap(month, day);
  } else {
    return false;
  }
  return IsValidDate(year, month, day);
}

}  // namespace ftpzn::inet::listparse
