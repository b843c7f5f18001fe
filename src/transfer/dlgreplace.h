// The two confirmations before a transfer replaces what is there: a file
// ("Confirm File Replace") and a folder ("Confirm Folder Replace"). Both
// answer 6 (Yes), 9061 (Yes to All), 7 (No) or 2 (Cancel); for a single
// selected entry only Yes and No are offered.
#pragma once

#include "ui/dialogs.h"

class wxButton;
class wxStaticBitmap;
class wxStaticText;

class CDlgReplaceFile : public ftpzn::ModuleDialog {
 public:
  enum {
    IDD = 9036,
    IDC_HEADLINE = 9056,
    IDC_ICON_EXISTING = 9057,
    IDC_ICON_NEW = 9058,
    IDC_EXISTING = 9059,
    IDC_NEW = 9060,
    IDI_REPLACE = 163,
  };
  explicit CDlgReplaceFile(wxWindow* parent = nullptr);

  // "%s\r\nmodified: %s" of the entry that is there and of the one that
  // would replace it.
  wxString m_strExisting;
  wxString m_strNew;
  int m_nCount = 0;  // entries selected for the transfer
  wxString m_strName;

 protected:
  void OnInitDialog() override;

 private:
  wxStaticText* m_headline = nullptr;
  wxStaticText* m_existing = nullptr;
  wxStaticText* m_new = nullptr;
  wxStaticBitmap* m_iconExisting = nullptr;
  wxStaticBitmap* m_iconNew = nullptr;
};

class CDlgReplaceFold : public ftpzn::ModuleDialog {
 public:
  enum { IDD = 9039, IDC_HEADLINE = 9056 };
  explicit CDlgReplaceFold(wxWindow* parent = nullptr);

  int m_nCount = 0;
  wxString m_strName;

 protected:
  void OnInitDialog() override;

 private:
  wxStaticText* m_headline = nullptr;
};
