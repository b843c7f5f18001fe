// Small helpers every window of the module shares: ending a dialog the way
// the first platform did, message boxes, and hand-written data exchange.
#pragma once

#include <wx/dialog.h>
#include <wx/string.h>

#include "ui/eventguard.h"

class wxWindow;
class wxListCtrl;
class wxTextCtrl;
class wxTopLevelWindow;

namespace ftpzn {

// Dialog results as the module has always numbered them.
enum DialogResult : int {
  kResultOk = 1,
  kResultCancel = 2,
  kResultYes = 6,
  kResultNo = 7,
  kResultYesToAll = 9061,
};

// EndModal(result) when the window runs modally, otherwise only hides it.
void EndDialog(wxTopLevelWindow* dialog, int result);

// An OK-only message box titled with the host application's display name.
// The first platform added the exclamation icon to every plain OK box.
void MessageBox(const wxString& text, long icon = 0, wxWindow* parent = nullptr);

// Data exchange for an integer field: leading and trailing blanks allowed,
// a signed 32-bit decimal; anything else shows "Please enter an integer.",
// focuses the field, selects its text and returns false.
bool ReadIntField(wxTextCtrl* field, int& value);
// Parses as ReadIntField does, without any window.
bool ParseInt32(const wxString& text, int& value);
// A length check: "Please enter no more than N characters."
bool CheckMaxChars(wxTextCtrl* field, const wxString& value, int maxChars);
// Sets a control's text only when it differs, so change handlers fire only
// for real changes.
void SetTextIfChanged(wxTextCtrl* field, const wxString& text);

// After the user drags a column's edge, keeps every column width of `list`
// under `key` in the profile store, where ReadColumnWidth finds them next
// run.
void KeepDraggedColumnWidths(wxListCtrl& list, const wxString& key);

// The module's dialogs: results 1 (OK) and 2 (Cancel) as the window
// numbers them; Escape, the close box and a button with id 2 end with 2;
// OnInitDialog runs once, after creation, never again on a later show.
class ModuleDialog : public EventGuard<wxDialog> {
 public:
  ModuleDialog(wxWindow* parent, wxWindowID id, const wxString& title, const wxSize& clientSize,
               long style = wxDEFAULT_DIALOG_STYLE);

 protected:
  // Two steps, for a modeless dialog made by its own Create.
  ModuleDialog() = default;
  bool CreateDialog(wxWindow* parent, wxWindowID id, const wxString& title, const wxSize& clientSize,
                    long style = wxDEFAULT_DIALOG_STYLE);
  virtual void OnInitDialog() {}
  // Button 1 by default: read the controls, end with 1.
  virtual void OnOK();
  virtual void OnCancel() { ftpzn::EndDialog(this, kResultCancel); }

 private:
  void OnInitEvent(wxInitDialogEvent& event);
  bool m_initialised = false;
};

}  // namespace ftpzn
