// Asks for one name (a new directory, a directory to change to).
#pragma once

#include "ui/dialogs.h"

class wxTextCtrl;

class CDlgInputString : public ftpzn::ModuleDialog {
 public:
  enum { IDD = 9088, IDC_INPUT = 9092 };
  explicit CDlgInputString(wxWindow* parent = nullptr);

  wxString m_strInput = "Please input here...";
  wxString m_strTitle;

  wxTextCtrl* InputCtrl() const { return m_edit; }

 protected:
  void OnInitDialog() override;
  void OnOK() override;

 private:
  wxTextCtrl* m_edit = nullptr;
};
