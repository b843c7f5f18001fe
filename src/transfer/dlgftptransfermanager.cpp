#include "transfer/dlgftptransfermanager.h"

#include <wx/listctrl.h>
#include <wx/settings.h>

#include "sites/preferences.h"
#include "res/resources.h"

wxBEGIN_EVENT_TABLE(CDlgFtpTransferManager, wxFrame)
  EVT_CLOSE(CDlgFtpTransferManager::OnClose)
  EVT_SIZE(CDlgFtpTransferManager::OnSize)
wxEND_EVENT_TABLE()

bool CDlgFtpTransferManager::Create(int show) {
  m_bShow = show;
  if (!wxFrame::Create(nullptr, IDD, "Transfer Manager", wxDefaultPosition, wxDefaultSize,
                       wxDEFAULT_FRAME_STYLE | wxSTAY_ON_TOP | wxFRAME_NO_TASKBAR))
    return false;
  SetClientSize(640, 220);
  m_listCtrl = new wxListCtrl(this, IDC_LIST, wxPoint(2, 2), wxSize(636, 216), wxLC_REPORT);
  // Six columns of equal width: (client width - 7 borders) / 6.
  const int width = (GetClientSize().x - 7 * 1) / 6;
  const char* const headings[] = {"Filename", "Host", "From", "To", "Status", "Progress"};
  for (int i = 0; i < 6; ++i) m_listCtrl->InsertColumn(i, headings[i], wxLIST_FORMAT_LEFT, width);
  SetIcon(ftpzn::res::LoadIcon(ftpzn::res::kIconTransferManager, 32));
  if (show > 0) Show();
  return true;
}

void CDlgFtpTransferManager::OnClose(wxCloseEvent& event) {
  ftpzn::WriteShowTransferManager(0);
  if (event.CanVeto()) {
    event.Veto();
    Hide();
    return;
  }
  event.Skip();
}

void CDlgFtpTransferManager::OnSize(wxSizeEvent& event) {
  event.Skip();
  if (m_listCtrl) {
    const wxSize client = GetClientSize();
    m_listCtrl->SetSize(2, 2, client.x - 4, client.y - 4);
  }
}
