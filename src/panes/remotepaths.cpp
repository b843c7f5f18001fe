#include "panes/remotepaths.h"

#include <wx/strconv.h>

#include <algorithm>

namespace ftpzn {
namespace {

wxString CollapseAll(wxString text, const wxString& doubled, const wxString& single) {
  while (text.Replace(doubled, single) > 0) {
  }
  return text;
}

}  // namespace

wxString RemoteParentDirectory(const wxString& directory) {
  const int slash = directory.Find('/', true);
  if (slash == wxNOT_FOUND) return wxString();
  if (slash == 0) return "/";
  return directory.Left(static_cast<size_t>(slash));
}

wxString RemoteChangeDirectoryPath(const wxString& directory, const wxString& typed) {
  wxString path = wxString::Format("%s\\%s", directory, typed);
  if (!path.EndsWith("\\*")) path += "\\*";
  return CollapseAll(path, "\\\\", "\\");
}

wxString RemoteNewDirectoryPath(const wxString& directory, const wxString& name) {
  return CollapseAll(wxString::Format("%s/%s", directory, name), "//", "/");
}

wxString SaveListFilePath(const wxString& chosen) {
  if (chosen.Find(".doc") == wxNOT_FOUND && chosen.Find(".txt") == wxNOT_FOUND) return chosen + ".doc";
  return chosen;
}

std::string SaveListEntryBytes(const wxString& name) {
  wxMBConvUTF16LE utf16;
  const wxCharBuffer nameUnits = name.mb_str(utf16);
  const wxCharBuffer line = (name + "\n").mb_str(utf16);
  const size_t units = nameUnits.length() / 2;
  return std::string(line.data(), std::min(units + 1, line.length()));
}

}  // namespace ftpzn
