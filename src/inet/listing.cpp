// The dispatcher over the listing families, and the helpers they share.
#include "inet/listing.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <ctime>
#include <string>
#include <unordered_map>
#include <utility>

#include "inet/listparse.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace ftpzn::inet {

namespace {

// Ordered by how cheaply and how surely a family rejects a foreign line: each
// parser checks a fixed shape (permission column, DOS date, '+' fact list)
// before it takes anything.
// The rarer families come after the three common ones, so that a line one
// of those takes is never read another way. Nortel's lines are read from
// their end, with the name first and any words in it: last of all.
constexpr std::array<listparse::ParseFn, 13> kListParsers = {
    listparse::ParseUnixLine,      listparse::ParseDosLine,     listparse::ParseEplfLine,
    listparse::ParseVmsLine,       listparse::ParseNetwareLine, listparse::ParseOs2Line,
    listparse::ParseOs400Line,     listparse::ParseMvsLine,     listparse::ParseOctalModeLine,
    listparse::ParseSizeFirstLine, listparse::ParseOs9Line,     listparse::ParseConnectEnterpriseLine,
    listparse::ParseNortelLine,
};

}  // namespace

bool ParseListLine(std::string_view line, const ListClock& clock, FtpListEntry& out) {
  auto stripped = listparse::StripLineEnd(line);
  if (!stripped || stripped->empty()) return false;
  // Each parser fills `out` only when it takes the line.
  for (auto parse : kListParsers)
    if (parse(*stripped, clock, out)) return true;
  return false;
}

bool ListLineReader::Parse(std::string_view line, FtpListEntry& out) {
  if (!m_pending.empty()) {
    auto stripped = listparse::StripLineEnd(line);
    if (stripped && !stripped->empty() && listparse::IsBlank((*stripped)[0])) {
      m_joined.assign(m_pending);
      m_joined += ' ';
      m_joined.append(*stripped);
      m_pending.clear();
      if (ParseListLine(m_joined, m_clock, out)) return true;
    }
    m_pending.clear();
  }
  auto stripped = listparse::StripLineEnd(line);
  if (ParseListLine(line, m_clock, out)) {
    // Only IBM i object lines carry " *TYPE": the others cost one search.
    if (stripped && stripped->find(" *") != std::string_view::npos)
      listparse::NoteDateOrder(*stripped, m_clock);
    return true;
  }
  if (stripped && listparse::IsVmsNameAlone(*stripped)) m_pending.assign(*stripped);
  return false;
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

}  // namespace ftpzn::inet

namespace ftpzn::inet::listparse {

TokenList Tokenize(std::string_view line, size_t maxTokens) {
  TokenList tokens;
  maxTokens = std::min(maxTokens, TokenList::kCapacity);
  if (maxTokens == 0) return tokens;
  // Every line of a listing is split here, so this is the parse's hot loop.
  // Words are found from where blanks and non-blanks meet: sixteen bytes
  // are classified at once where the processor allows, and each meeting
  // point then starts or ends a word.
  const char* const data = line.data();
  const size_t size = line.size();
  size_t pos = 0;
  size_t wordStart = 0;
  bool inWord = false;
  auto edge = [&](size_t at) {
    if (!inWord) {
      wordStart = at;
      inWord = true;
      return false;
    }
    inWord = false;
    tokens.push_back({std::string_view(data + wordStart, at - wordStart), wordStart, at});
    return tokens.size() == maxTokens;
  };
#ifdef __SSE2__
  const __m128i space = _mm_set1_epi8(' ');
  const __m128i tab = _mm_set1_epi8('\t');
  // One bit a byte of the sixteen at `at`: set where the byte is in a word.
  auto wordBits = [&](size_t at) {
    __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + at));
    __m128i blank = _mm_or_si128(_mm_cmpeq_epi8(bytes, space), _mm_cmpeq_epi8(bytes, tab));
    return ~static_cast<uint32_t>(_mm_movemask_epi8(blank)) & 0xFFFFu;
  };
  // The meeting points marked in `edges`, counted from `at`; true once
  // enough words were found.
  auto edgesFrom = [&](size_t at, uint32_t edges) {
    for (; edges != 0; edges &= edges - 1)
      if (edge(at + static_cast<size_t>(std::countr_zero(edges)))) return true;
    return false;
  };
  for (; pos + 16 <= size; pos += 16) {
    uint32_t word = wordBits(pos);
    if (edgesFrom(pos, (word ^ ((word << 1) | (inWord ? 1u : 0u))) & 0xFFFFu)) return tokens;
  }
  if (pos < size && size >= 16) {
    // The last few bytes (often a name's end) as the end of one more
    // sixteen, of which the bytes already classified are masked off: a
    // byte loop over them cost as much as the rest of the line. Each byte
    // is compared with the one before it, all of which are in the sixteen
    // from the first new byte on.
    size_t from = size - 16;
    uint32_t word = wordBits(from);
    if (edgesFrom(from, (word ^ (word << 1)) & (0xFFFFu << (pos - from)) & 0xFFFFu)) return tokens;
    pos = size;
  }
#endif
  for (; pos < size; ++pos)
    if (IsBlank(data[pos]) == inWord && edge(pos)) return tokens;
  if (inWord) edge(size);
  return tokens;
}

std::optional<std::string_view> StripLineEnd(std::string_view line) {
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
  // One pass for the three bytes, sixteen at a time where the processor
  // allows: a byte loop was a tenth of a long listing's parse.
  const char* p = line.data();
  const char* const end = p + line.size();
#ifdef __SSE2__
  const __m128i nul = _mm_setzero_si128();
  const __m128i cr = _mm_set1_epi8('\r');
  const __m128i lf = _mm_set1_epi8('\n');
  auto anyBad = [&](const char* at) {
    __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
    __m128i bad = _mm_or_si128(_mm_cmpeq_epi8(bytes, nul),
                               _mm_or_si128(_mm_cmpeq_epi8(bytes, cr), _mm_cmpeq_epi8(bytes, lf)));
    return _mm_movemask_epi8(bad) != 0;
  };
  for (; end - p >= 16; p += 16)
    if (anyBad(p)) return std::nullopt;
  if (p != end && line.size() >= 16) {
    // The rest as the end of one more sixteen, which only checks some
    // bytes twice.
    if (anyBad(end - 16)) return std::nullopt;
    p = end;
  }
#endif
  for (; p != end; ++p)
    if (*p == '\0' || *p == '\r' || *p == '\n') return std::nullopt;
  return line;
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

// Month words, January to December on each row ("-" where a row has no word
// of its own): the abbreviations the C libraries of common FTP hosts print
// for "%b" in each locale, and the older or written-out forms some servers
// use. No word means different months in two rows; a word that could be two
// months ("jui" for juin or juillet) is left out.
constexpr std::string_view kMonthRows[] = {
    "jan feb mar apr may jun jul aug sep oct nov dec",         // English
    "- - - april - juni juli - sept - - -",                    // written out (de, nl, sv, da, no)
    "jän - mär - mai - - - - okt - dez",                       // German
    "- - mrz - - - - - - - - -",                               // German, older
    "- - märz - - - - - - - - -",                              // German, written out
    "janv févr mars avr mai juin juil août sept oct nov déc",  // French
    "- fév - avril - - - aoû - - - -",                         // French, other forms
    "- fevr - - - - - aout - - - -",                           // French, without accents
    "ene feb mar abr may jun jul ago sep oct nov dic",         // Spanish
    "gen feb mar apr mag giu lug ago set ott nov dic",         // Italian
    "jan feb mrt apr mei jun jul aug sep okt nov dec",         // Dutch
    "jan feb mar apr maj jun jul aug sep okt nov dec",         // Swedish, Danish
    "- - - - - - - - - - - des",                               // Norwegian
    "jan fev mar abr mai jun jul ago set out nov dez",         // Portuguese
    "sty lut mar kwi maj cze lip sie wrz paź lis gru",         // Polish
    "led úno bře dub kvě čen čec srp zář říj lis pro",         // Czech
    "- - - - - čvn čvc - - - - -",                             // Czech, older
    "jan febr márc ápr máj jún júl aug szept okt nov dec",     // Hungarian
    "oca şub mar nis may haz tem ağu eyl eki kas ara",         // Turkish
    "янв фев мар апр май июн июл авг сен окт ноя дек",         // Russian
    "- февр марта - мая июня июля - сент - нояб -",            // Russian, genitive
    "січ лют бер кві тра чер лип сер вер жов лис гру",         // Ukrainian
    "tammi helmi maalis huhti touko kesä heinä elo syys loka marras joulu",         // Finnish
    "- - - - - - - - - - - desember",                                               // Norwegian, written out
    "januari februari maart - - - - augustus september oktober november december",  // Dutch, written out
    "enero febrero marzo abril mayo junio julio agosto septiembre octubre noviembre diciembre",  // Spanish
    "janvier février - - - - juillet - septembre octobre novembre décembre",  // French, written out
};

// The words of kMonthRows, folded, to their month.
const std::unordered_map<std::string, int>& MonthWords() {
  static const std::unordered_map<std::string, int> words = [] {
    std::unordered_map<std::string, int> map;
    for (std::string_view row : kMonthRows) {
      int month = 1;
      for (const Token& word : Tokenize(row)) {
        if (word.text != "-") map.emplace(FoldCase(word.text), month);
        ++month;
      }
    }
    return map;
  }();
  return words;
}

}  // namespace

int MonthFromName(std::string_view word) {
  // "Jan.," and "Juli," as some locales print the month before the year.
  if (!word.empty() && word.back() == ',') word.remove_suffix(1);
  if (!word.empty() && word.back() == '.') word.remove_suffix(1);
  if (word.empty() || word.size() > 12) return 0;
  // "1月" .. "12月": Japanese, Chinese and Korean ("월") locales. Every other
  // month word starts with a letter, so the numeric columns stop here.
  if (word[0] >= '0' && word[0] <= '9') {
    // The size, links and ids columns end in a digit: no sign to look for.
    if (word.back() >= '0' && word.back() <= '9') return 0;
    // The month sign in UTF-8 (Chinese, Japanese), Korean, Shift-JIS, EUC-JP,
    // and Korean in EUC-KR.
    for (std::string_view suffix :
         {std::string_view("\xE6\x9C\x88"), std::string_view("\xEC\x9B\x94"), std::string_view("\x8C\x8E"),
          std::string_view("\xB7\xEE"), std::string_view("\xBF\xF9")}) {
      int month = 0;
      if (word.ends_with(suffix) && ParseInt(word.substr(0, word.size() - suffix.size()), month) &&
          month >= 1 && month <= 12)
        return month;
    }
    return 0;
  }
  // Most servers list in English: its words are found without folding into
  // a string and hashing it. The map gives each of them the same month.
  if (word.size() == 3) {
    // The three bytes as one number, compared with each month's.
    auto key = [](char a, char b, char c) {
      auto fold = [](char x) {
        return static_cast<uint32_t>(static_cast<unsigned char>(x >= 'A' && x <= 'Z' ? x + 32 : x));
      };
      return fold(a) << 16 | fold(b) << 8 | fold(c);
    };
    static constexpr auto kEnglish = [key] {
      constexpr std::string_view kNames = "janfebmaraprmayjunjulaugsepoctnovdec";
      std::array<uint32_t, 12> keys{};
      for (size_t m = 0; m < 12; ++m) keys[m] = key(kNames[3 * m], kNames[3 * m + 1], kNames[3 * m + 2]);
      return keys;
    }();
    uint32_t folded = key(word[0], word[1], word[2]);
    for (size_t m = 0; m < 12; ++m)
      if (kEnglish[m] == folded) return static_cast<int>(m) + 1;
  }
  const auto& words = MonthWords();
  auto it = words.find(FoldCase(word));
  return it != words.end() ? it->second : 0;
}

bool ParseTimeOfDay(std::string_view s, TimeOfDay& out) {
  // "HH:MM", as nearly every listing line has it, without the general walk.
  auto digit = [&s](size_t i) { return static_cast<unsigned>(s[i] - '0'); };
  if (s.size() == 5 && s[2] == ':' && digit(0) <= 9 && digit(1) <= 9 && digit(3) <= 9 && digit(4) <= 9) {
    int hour = static_cast<int>(digit(0) * 10 + digit(1)),
        minute = static_cast<int>(digit(3) * 10 + digit(4));
    if (hour > 23 || minute > 59) return false;
    out = {hour, minute, 0};
    return true;
  }
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
  int64_t time = hour * 3600 + minute * 60 + second;
  // Most lines of a listing share their date with the line before.
  thread_local int cachedYear = 0, cachedMonth = 0, cachedDay = 0;  // no date has day 0
  thread_local int64_t cachedDays = 0;
  if (year == cachedYear && month == cachedMonth && day == cachedDay && day != 0)
    return cachedDays * 86400 + time;
  int64_t y = year - (month <= 2 ? 1 : 0);
  int64_t era = (y >= 0 ? y : y - 399) / 400;
  int64_t yoe = y - era * 400;
  int64_t doy = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  int64_t days = era * 146097 + doe - 719468;
  cachedYear = year;
  cachedMonth = month;
  cachedDay = day;
  cachedDays = days;
  return days * 86400 + time;
}

int64_t ClockNow(const ListClock& clock) {
  return clock.nowUnix != 0 ? clock.nowUnix : static_cast<int64_t>(std::time(nullptr));
}

namespace {

int YearForYearlessDateUncached(int64_t now, int month, int day, const TimeOfDay& time) {
  constexpr int64_t kSixMonths = 183 * 86400;
  // A listing asks with one "now" for every line: its year is kept.
  thread_local int64_t cachedNow = INT64_MIN;
  thread_local int cachedYear = 0;
  if (now != cachedNow) {
    int nowMonth = 0, nowDay = 0;
    CivilFromUnix(now, cachedYear, nowMonth, nowDay);
    cachedNow = now;
  }
  int year = cachedYear;
  // 29 February is compared as 28 February and then moved to the leap year
  // before, which is the only year it can belong to.
  int checkDay = IsValidDate(year, month, day) ? day : day - 1;
  int64_t candidate = UnixFromCivil(year, month, checkDay, time.hour, time.minute, time.second);
  if (candidate - now > kSixMonths) --year;
  for (int back = 0; back < 8 && !IsValidDate(year, month, day); ++back) --year;
  return year;
}

}  // namespace

int YearForYearlessDate(const ListClock& clock, int month, int day, const TimeOfDay& time) {
  int64_t now = ClockNow(clock);
  // Neighbouring lines of a listing often share date and time: the answer
  // for the same question is kept.
  thread_local struct {
    int64_t now = INT64_MIN;
    int month = 0, day = 0, hour = 0, minute = 0, second = 0;
    int year = 0;
  } last;
  if (now == last.now && month == last.month && day == last.day && time.hour == last.hour &&
      time.minute == last.minute && time.second == last.second)
    return last.year;
  int year = YearForYearlessDateUncached(now, month, day, time);
  last = {now, month, day, time.hour, time.minute, time.second, year};
  return year;
}

int ExpandTwoDigitYear(int yy) { return yy < 70 ? 2000 + yy : 1900 + yy; }

bool ChooseDateReading(const DateReading* readings, size_t count, const ListClock& clock, DateReading& out) {
  const int64_t latest = ClockNow(clock) + 86400;
  const DateReading* firstValid = nullptr;
  for (size_t i = 0; i < count; ++i) {
    const DateReading& r = readings[i];
    if (!IsValidDate(r.year, r.month, r.day)) continue;
    if (!firstValid) firstValid = &r;
    if (UnixFromCivil(r.year, r.month, r.day, 0, 0, 0) <= latest) {
      out = r;
      return true;
    }
  }
  if (!firstValid) return false;
  out = *firstValid;
  return true;
}

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
