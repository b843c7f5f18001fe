#include "panes/ftplistzn.h"

bool CFtpListzn::Create(wxWindow* parent, wxWindowID id, const wxPoint& pos, const wxSize& size) {
  return wxListCtrl::Create(parent, id, pos, size, wxLC_REPORT | wxLC_VIRTUAL | wxBORDER_SUNKEN);
}

int CFtpListzn::CreateImageList() { return 0; }

int CFtpListzn::InsertColumns() {
  InsertColumn(0, "Name", wxLIST_FORMAT_LEFT, 90);
  InsertColumn(1, "Size", wxLIST_FORMAT_RIGHT, 100);
  InsertColumn(2, "Type", wxLIST_FORMAT_LEFT, 100);
  InsertColumn(3, "Created", wxLIST_FORMAT_LEFT, 100);
  return 1;
}

wxString CFtpListzn::OnGetItemText(long, long) const { return {}; }

int CFtpListzn1Local::FillDirectory(const wxString&) { return 0; }
