#include "panes/filetexts.h"

#include <gio/gio.h>

#include <algorithm>
#include <chrono>
#include <ctime>

namespace ftpzn {

FileListItem MakeParentItem() {
  FileListItem item;
  item.name = "..Up";
  item.size = 1;
  item.typeText = "..Up";
  item.time = 0x0000000100000001ULL;
  item.folder = 1;
  return item;
}

uint64_t FileTimeFromUnix(int64_t seconds, int64_t nanoseconds) {
  return static_cast<uint64_t>((seconds + kFileTimeUnixOffset) * 10000000LL + nanoseconds / 100);
}

uint64_t FileTimeNow() {
  const auto since = std::chrono::system_clock::now().time_since_epoch();
  const auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(since).count();
  return FileTimeFromUnix(ns / 1000000000LL, ns % 1000000000LL);
}

wxString FormatSizeKb(uint32_t low, uint32_t high) {
  const uint64_t bytes = (static_cast<uint64_t>(high) << 32) | low;
  const uint64_t kb = bytes > 1024 ? (bytes + 1023) / 1024 : 1;
  const wxString digits = wxString::Format("%llu", static_cast<unsigned long long>(kb));
  if (digits.length() < 4) return digits + " KB";
  wxString grouped;
  const size_t n = digits.length();
  for (size_t i = 0; i < n; ++i) {
    if (i > 0 && (n - i) % 3 == 0) grouped += ',';
    grouped += digits[i];
  }
  return grouped + " KB";
}

namespace {

// The local calendar time of a file time, within the range a time value of
// the first platform held; see FormatFileDate.
std::optional<std::tm> LocalTimeOf(uint64_t fileTime) {
  // The calendar conversion only takes times in the signed range.
  if (fileTime > static_cast<uint64_t>(INT64_MAX)) return std::nullopt;
  time_t t = static_cast<time_t>(static_cast<int64_t>(fileTime / 10000000ULL) - kFileTimeUnixOffset);
  std::tm local{};
  if (!localtime_r(&t, &local)) return std::nullopt;
  const int year = local.tm_year + 1900;
  if (year < 1900) {
    t = 0;
  } else {
    // A time value holds 1970 to 3000 only; glibc would take more, so the
    // range is checked here.
    if (year < 1970 || year > 3000) return std::nullopt;
    local.tm_isdst = -1;  // daylight saving decided by the zone's rules
    t = mktime(&local);
    if (t == static_cast<time_t>(-1)) return std::nullopt;
  }
  if (!localtime_r(&t, &local)) return std::nullopt;
  return local;
}

}  // namespace

std::optional<wxString> FormatFileDate(uint64_t fileTime) {
  const std::optional<std::tm> local = LocalTimeOf(fileTime);
  if (!local) return std::nullopt;
  return wxString::Format("%0.2d/%0.2d/%0.2d/%0.2d/%0.2d/%0.2d", (local->tm_year + 1900) % 100,
                          local->tm_mon + 1, local->tm_mday, local->tm_hour, local->tm_min, local->tm_sec);
}

wxString FormatLongDate(uint64_t fileTime) {
  const std::optional<std::tm> local = LocalTimeOf(fileTime);
  if (!local) return wxString();
  char text[128];
  const size_t n = std::strftime(text, sizeof text, "%A, %B %d, %Y %H:%M:%S", &*local);
  return wxString::FromUTF8(text, n);
}

wxString DescribeForReplace(uint64_t length, uint64_t fileTime) {
  return wxString::Format("%s\r\nmodified: %s",
                          FormatSizeKb(static_cast<uint32_t>(length), static_cast<uint32_t>(length >> 32)),
                          FormatLongDate(fileTime));
}

wxString DisplayText(const wxString& text) {
  wxString shown;
  for (wxString::const_iterator it = text.begin(); it != text.end(); ++it) {
    const auto cp = static_cast<uint32_t>((*it).GetValue());
    if (cp >= 0xD800 && cp <= 0xDFFF) {
      // Copied only when there is something to replace.
      if (shown.empty()) shown = text.substr(0, static_cast<size_t>(it - text.begin()));
      shown += wxUniChar(0xFFFD);
    } else if (!shown.empty()) {
      shown += *it;
    }
  }
  return shown.empty() ? text : shown;
}

wxString ExtensionTypeText(const wxString& name) {
  // The rule looks for the extension after the last '\\'; '/' counts too,
  // being the separator of local paths here.
  const int slash = std::max(name.Find('/', true), name.Find('\\', true));
  const int dot = name.Find('.', true);
  if (dot == wxNOT_FOUND || dot < slash) return "File";
  return name.Mid(dot + 1).Upper() + " File";
}

wxString ShellTypeText(const wxString& name) {
  // A name holding bytes that are not UTF-8 (kept as U+DC80 plus the byte)
  // has no text form the desktop's type guess could take.
  for (wxString::const_iterator it = name.begin(); it != name.end(); ++it) {
    const auto cp = static_cast<uint32_t>((*it).GetValue());
    if (cp >= 0xD800 && cp <= 0xDFFF) return ExtensionTypeText(name);
  }
  gboolean uncertain = FALSE;
  const wxScopedCharBuffer utf8 = name.utf8_str();
  gchar* type = g_content_type_guess(utf8.data(), nullptr, 0, &uncertain);
  wxString text;
  if (type && !g_content_type_is_unknown(type)) {
    gchar* description = g_content_type_get_description(type);
    if (description) text = wxString::FromUTF8(description);
    g_free(description);
  }
  g_free(type);
  if (text.empty() || text == "unknown") return ExtensionTypeText(name);
  return text;
}

}  // namespace ftpzn
