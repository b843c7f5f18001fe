// The two file panes of the main window: a report list with four columns
// whose cell texts come from the row records on demand (a virtual list, so
// a pane holds 100,000 rows without delay).
#pragma once

#include <wx/listctrl.h>

class CDlgFTPMainWnd;

class CFtpListzn : public wxListCtrl {
 public:
  CFtpListzn() = default;
  bool Create(wxWindow* parent, wxWindowID id, const wxPoint& pos, const wxSize& size);

  int CreateImageList();
  int InsertColumns();
  virtual int GoUpDirectory() { return 1; }
  virtual int OpenItem(int /*row*/) { return 1; }

  // The directory text the pane shows; owned by the main window.
  wxString* m_pstrDirectory = nullptr;
  CDlgFTPMainWnd* m_pOwner = nullptr;
  int m_bBusy = 0;

 protected:
  wxString OnGetItemText(long item, long column) const override;
};

class CFtpListzn1Local : public CFtpListzn {
 public:
  int FillDirectory(const wxString& path);
};

class CFtpListzn1Remote : public CFtpListzn {};
