// The remote pane's path and text rules, without any window or connection:
// the parent of a server path, the paths its commands build, and the bytes
// its "Save List..." writes for one name.
#pragma once

#include <wx/string.h>

#include <string>

namespace ftpzn {

// The text before the last '/' of a server path: "/" when that '/' is the
// first character, an empty text when there is none. So "/" has "/" as its
// parent and going up from the root lists the root again.
wxString RemoteParentDirectory(const wxString& directory);

// What Change Directory hands to the server for the typed text: the path is
// built the way the local pane builds its search pattern, backslashes and
// all ("/pub" and "incoming" give "/pub\incoming\*"), and the server makes
// of it what it will.
wxString RemoteChangeDirectoryPath(const wxString& directory, const wxString& typed);

// A new directory's path: directory "/" name, every "//" collapsed.
wxString RemoteNewDirectoryPath(const wxString& directory, const wxString& name);

// The chosen file of "Save List...": ".doc" is appended unless ".doc" or
// ".txt" occurs anywhere in the path (so a.txt.bak is kept as it is).
wxString SaveListFilePath(const wxString& chosen);

// The bytes written for one name: the first n + 1 bytes of the UTF-16LE text
// of the name and a line feed, n being the name's length in UTF-16 units.
// For "abc" that is a, 0, b, 0: half the name and no line feed, a count the
// list files have always had.
std::string SaveListEntryBytes(const wxString& name);

}  // namespace ftpzn
