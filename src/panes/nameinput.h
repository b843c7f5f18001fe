// How the panes ask the user for a name: a one-field dialog titled by the
// caller, starting with a given text or the dialog's own default.
#pragma once

#include <wx/dialog.h>
#include <wx/string.h>

class wxTextCtrl;

namespace ftpzn {

class PaneNameDialog : public wxDialog {
 public:
  PaneNameDialog(wxWindow* parent, const wxString& title);
  bool TransferDataToWindow() override;
  bool TransferDataFromWindow() override;

  wxString m_strInput = "Please input here...";
  wxString m_strTitle;

 private:
  wxTextCtrl* m_edit = nullptr;
};

// Runs the dialog modally; true and the text on OK. Without `initial` the
// dialog's default text is offered.
bool AskPaneName(wxWindow* parent, const wxString& title, const wxString* initial, wxString& typed);

}  // namespace ftpzn
