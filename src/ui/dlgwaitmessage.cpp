#include "ui/dlgwaitmessage.h"

#include <wx/artprov.h>
#include <wx/button.h>
#include <wx/gauge.h>
#include <wx/statbmp.h>
#include <wx/stattext.h>

CDlgWaitMessage::CDlgWaitMessage(wxWindow* parent)
    : ModuleDialog(parent, IDD, "Ftp transfer problem", wxSize(400, 150)), m_timer(this, 1) {
  new wxStaticBitmap(this, IDC_ICON, wxArtProvider::GetBitmapBundle(wxART_INFORMATION, wxART_MESSAGE_BOX),
                     wxPoint(12, 12), wxSize(32, 32));
  m_message = new wxStaticText(this, IDC_MESSAGE, "Something went wrong...", wxPoint(56, 12),
                               wxSize(332, 36), wxST_NO_AUTORESIZE);
  m_countdown = new wxStaticText(this, IDC_COUNTDOWN, "FTP will retry to connect after %s seconds...",
                                 wxPoint(56, 54), wxSize(332, 20), wxST_NO_AUTORESIZE);
  m_ctrlProgress = new wxGauge(this, IDC_PROGRESS, 100, wxPoint(12, 80), wxSize(376, 18));
  auto* cancel = new wxButton(this, ftpzn::kResultCancel, "Cancel", wxPoint(158, 110), wxSize(84, 30));
  cancel->SetDefault();
}

void CDlgWaitMessage::OnInitDialog() {
  CentreOnParent();
  m_message->SetLabel(m_strMessage);
  m_countdown->SetLabel(wxString::Format("FTP Rovendel will retry to connect after %d seconds...", m_nSeconds));
  m_ctrlProgress->SetRange(m_nSeconds > 0 ? m_nSeconds : 0);
  m_ctrlProgress->SetValue(0);
  m_timer.Start(1000);
}
