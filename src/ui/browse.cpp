#include "ui/browse.h"

#include <wx/dirdlg.h>
#include <wx/filename.h>

#include "ui/dialogs.h"

namespace ftpzn {

wxString BrowseForFolder(wxWindow* owner, const wxString& prompt, int /*flags*/) {
  wxDirDialog dialog(owner, prompt, wxEmptyString, wxDD_DEFAULT_STYLE | wxDD_DIR_MUST_EXIST);
  if (dialog.ShowModal() != wxID_OK) return {};
  const wxString path = dialog.GetPath();
  if (path.empty() || !wxFileName::DirExists(path)) {
    MessageBox("Failed to get directory", wxICON_ERROR, owner);
    return {};
  }
  return path;
}

}  // namespace ftpzn
