// What a pane row shows, computed without any window: the row record, the
// size text, the date text and the file type text.
#pragma once

#include <wx/string.h>

#include <cstdint>
#include <optional>

namespace ftpzn {

// One row of either pane. Row 0 of every listing is the parent row.
struct FileListItem {
  wxString name;
  uint32_t size = 0;  // low 32 bits of the length, as the enumeration gives it
  wxString typeText;  // empty until a pane first shows it (see CFtpListzn)
  uint64_t time = 0;  // file time: 100 ns units since 1601-01-01 UTC
  int folder = 0;     // non-zero for folders and for the parent row
  // A link on the server: not a folder (walks never follow it), but opened
  // as one when the server lets the client change into it.
  int link = 0;
};

// The "..Up" row: size 1, both halves of its time 1, so it dates from 1601.
FileListItem MakeParentItem();

// Seconds between 1601-01-01 and 1970-01-01.
constexpr int64_t kFileTimeUnixOffset = 11644473600LL;
uint64_t FileTimeFromUnix(int64_t seconds, int64_t nanoseconds = 0);
// The current time as a file time.
uint64_t FileTimeNow();

// "1 KB" for up to 1024 bytes, else the kilobytes rounded up, grouped by
// thousands: 1,234,567 KB.
wxString FormatSizeKb(uint32_t low, uint32_t high);

// "yy/mm/dd/hh/mm/ss" in local time. Local times before 1900 show the time
// value 0 instead; a local year from 1900 to 1969, or after 3000, cannot be
// held as a time value and gives no text, nor does a time beyond the
// signed 64-bit range.
std::optional<wxString> FormatFileDate(uint64_t fileTime);

// "Tuesday, March 04, 2025 14:05:09": a file time in local time, the long
// form; empty where FormatFileDate gives no text.
wxString FormatLongDate(uint64_t fileTime);
// "1,234 KB\r\nmodified: <long date>": an entry as the replace prompts
// describe it.
wxString DescribeForReplace(uint64_t length, uint64_t fileTime);

// A name as a cell shows it: a byte that is not UTF-8 (held as U+DC80 plus
// the byte) has no text form and is drawn as U+FFFD. The row keeps the
// name itself, so commands still reach the file.
wxString DisplayText(const wxString& text);

// "XYZ File" for a.xyz (the text after the last '.' of the last path
// component, upper-cased), "File" without an extension.
wxString ExtensionTypeText(const wxString& name);
// The desktop's description of the type guessed from the name alone, when
// it knows one; else the extension rule.
wxString ShellTypeText(const wxString& name);

}  // namespace ftpzn
