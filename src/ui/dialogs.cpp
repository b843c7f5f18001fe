#include "ui/dialogs.h"

#include <wx/app.h>
#include <wx/dialog.h>
#include <wx/listctrl.h>
#include <wx/msgdlg.h>
#include <wx/textctrl.h>
#include <wx/toplevel.h>

#include <cerrno>
#include <climits>
#include <cstdlib>

#include "sites/preferences.h"

namespace ftpzn {

void EndDialog(wxTopLevelWindow* window, int result) {
  if (auto* dialog = dynamic_cast<wxDialog*>(window); dialog && dialog->IsModal()) {
    dialog->EndModal(result);
    return;
  }
  window->Hide();
}

void MessageBox(const wxString& text, long icon, wxWindow* parent) {
  if (icon == 0) icon = wxICON_EXCLAMATION;
  const wxString title = wxTheApp ? wxTheApp->GetAppDisplayName() : wxString();
  wxMessageBox(text, title, wxOK | icon, parent);
}

bool ParseInt32(const wxString& text, int& value) {
  const std::string s = text.ToStdString(wxConvUTF8);
  size_t begin = 0;
  size_t end = s.size();
  while (begin < end && (s[begin] == ' ' || s[begin] == '\t')) ++begin;
  while (end > begin && (s[end - 1] == ' ' || s[end - 1] == '\t')) --end;
  if (begin == end) return false;
  const std::string digits = s.substr(begin, end - begin);
  size_t i = (digits[0] == '-' || digits[0] == '+') ? 1 : 0;
  if (i == digits.size()) return false;
  for (size_t k = i; k < digits.size(); ++k)
    if (digits[k] < '0' || digits[k] > '9') return false;
  errno = 0;
  const long long parsed = std::strtoll(digits.c_str(), nullptr, 10);
  if (errno == ERANGE || parsed < INT_MIN || parsed > INT_MAX) return false;
  value = static_cast<int>(parsed);
  return true;
}

static void FailField(wxTextCtrl* field, const wxString& message) {
  MessageBox(message, wxICON_EXCLAMATION, field ? wxGetTopLevelParent(field) : nullptr);
  if (field) {
    field->SetFocus();
    field->SelectAll();
  }
}

bool ReadIntField(wxTextCtrl* field, int& value) {
  if (ParseInt32(field->GetValue(), value)) return true;
  FailField(field, "Please enter an integer.");
  return false;
}

bool CheckMaxChars(wxTextCtrl* field, const wxString& value, int maxChars) {
  if (static_cast<int>(value.length()) <= maxChars) return true;
  FailField(field, wxString::Format("Please enter no more than %d characters.", maxChars));
  return false;
}

void SetTextIfChanged(wxTextCtrl* field, const wxString& text) {
  if (field->GetValue() != text) field->SetValue(text);
}

ModuleDialog::ModuleDialog(wxWindow* parent, wxWindowID id, const wxString& title,
                           const wxSize& clientSize, long style) {
  CreateDialog(parent, id, title, clientSize, style);
}

bool ModuleDialog::CreateDialog(wxWindow* parent, wxWindowID id, const wxString& title,
                                const wxSize& clientSize, long style) {
  if (!wxDialog::Create(parent, id, title, wxDefaultPosition, wxDefaultSize, style)) return false;
  SetClientSize(clientSize);
  SetAffirmativeId(kResultOk);
  SetEscapeId(kResultCancel);
  Bind(wxEVT_INIT_DIALOG, &ModuleDialog::OnInitEvent, this);
  Bind(wxEVT_BUTTON, [this](wxCommandEvent&) { OnOK(); }, kResultOk);
  Bind(wxEVT_BUTTON, [this](wxCommandEvent&) { OnCancel(); }, kResultCancel);
  return true;
}

void ModuleDialog::OnInitEvent(wxInitDialogEvent&) {
  if (m_initialised) return;
  m_initialised = true;
  OnInitDialog();
}

void ModuleDialog::OnOK() {
  if (!Validate() || !TransferDataFromWindow()) return;
  ftpzn::EndDialog(this, kResultOk);
}

void KeepDraggedColumnWidths(wxListCtrl& list, const wxString& key) {
  list.Bind(wxEVT_LIST_COL_END_DRAG, [&list, key](wxListEvent& event) {
    event.Skip();
    // The list takes the new width after telling of the drag.
    list.CallAfter([&list, key] {
      for (int i = 0; i < list.GetColumnCount(); ++i) WriteColumnWidth(key, i, list.GetColumnWidth(i));
    });
  });
}

}  // namespace ftpzn
