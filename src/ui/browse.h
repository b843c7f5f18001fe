#pragma once

#include <wx/string.h>

class wxWindow;

namespace ftpzn {

// The folder picker: the chosen path, or an empty text when the user
// cancels. `flags` 1 restricts the choice to file-system directories, which
// is all a directory dialog offers here.
wxString BrowseForFolder(wxWindow* owner, const wxString& prompt, int flags);

}  // namespace ftpzn
