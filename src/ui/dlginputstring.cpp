#include "ui/dlginputstring.h"

#include <wx/button.h>
#include <wx/textctrl.h>

CDlgInputString::CDlgInputString(wxWindow* parent)
    : ModuleDialog(parent, IDD, "Name Input", wxSize(320, 118)) {
  m_edit = new wxTextCtrl(this, IDC_INPUT, wxEmptyString, wxPoint(10, 10), wxSize(300, 56),
                          wxTE_MULTILINE | wxHSCROLL);
  auto* ok = new wxButton(this, ftpzn::kResultOk, "OK", wxPoint(144, 78), wxSize(80, 30));
  new wxButton(this, ftpzn::kResultCancel, "Cancel", wxPoint(230, 78), wxSize(80, 30));
  ok->SetDefault();
  // The edit is multi-line only so that a long name scrolls; Enter in it
  // confirms, as the default button of a dialog does, rather than putting
  // a line break into the name.
  m_edit->Bind(wxEVT_KEY_DOWN, [this](wxKeyEvent& event) {
    const int key = event.GetKeyCode();
    if ((key == WXK_RETURN || key == WXK_NUMPAD_ENTER) && event.GetModifiers() == wxMOD_NONE) {
      OnOK();
      return;
    }
    event.Skip();
  });
}

void CDlgInputString::OnInitDialog() {
  SetTitle(m_strTitle);
  ftpzn::SetTextIfChanged(m_edit, m_strInput);
}

void CDlgInputString::OnOK() {
  m_strInput = m_edit->GetValue();
  ftpzn::EndDialog(this, ftpzn::kResultOk);
}
