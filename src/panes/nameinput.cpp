#include "panes/nameinput.h"

#include <wx/button.h>
#include <wx/sizer.h>
#include <wx/textctrl.h>

#include "ui/dialogs.h"

namespace ftpzn {

PaneNameDialog::PaneNameDialog(wxWindow* parent, const wxString& title)
    : wxDialog(parent, 9088, "Name Input"), m_strTitle(title) {
  m_edit = new wxTextCtrl(this, 9092, wxString(), wxDefaultPosition, wxSize(260, -1));
  auto* buttons = new wxBoxSizer(wxHORIZONTAL);
  auto* ok = new wxButton(this, kResultOk, "OK");
  ok->SetDefault();
  buttons->Add(ok, 0, wxRIGHT, 8);
  buttons->Add(new wxButton(this, kResultCancel, "Cancel"));
  auto* column = new wxBoxSizer(wxVERTICAL);
  column->Add(m_edit, 0, wxEXPAND | wxALL, 10);
  column->Add(buttons, 0, wxALIGN_RIGHT | wxLEFT | wxRIGHT | wxBOTTOM, 10);
  SetSizerAndFit(column);
  SetAffirmativeId(kResultOk);
  SetEscapeId(kResultCancel);
}

bool PaneNameDialog::TransferDataToWindow() {
  SetTitle(m_strTitle);
  m_edit->SetValue(m_strInput);
  return true;
}

bool PaneNameDialog::TransferDataFromWindow() {
  m_strInput = m_edit->GetValue();
  return true;
}

bool AskPaneName(wxWindow* parent, const wxString& title, const wxString* initial, wxString& typed) {
  PaneNameDialog dialog(parent, title);
  if (initial) dialog.m_strInput = *initial;
  if (dialog.ShowModal() != kResultOk) return false;
  typed = dialog.m_strInput;
  return true;
}

}  // namespace ftpzn
