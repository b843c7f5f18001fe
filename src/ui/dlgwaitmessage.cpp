#include "ui/dlgwaitmessage.h"

#include <wx/artprov.h>
#include <wx/button.h>
#include <wx/gauge.h>
#include <wx/statbmp.h>
#include <wx/stattext.h>

#include <algorithm>

namespace {
// The template's places, in pixels; the text column widens to its texts.
constexpr int kMargin = 12;
constexpr int kTextX = 56;
constexpr int kMinTextWidth = 332;
// A long error wraps rather than making the window wider than this.
constexpr int kMaxTextWidth = 560;
constexpr int kMessageMinHeight = 36;
constexpr int kButtonWidth = 84;
constexpr int kButtonHeight = 30;
}  // namespace

CDlgWaitMessage::CDlgWaitMessage(wxWindow* parent)
    : ModuleDialog(parent, IDD, "Ftp transfer problem", wxSize(400, 150)), m_timer(this, 1) {
  new wxStaticBitmap(this, IDC_ICON, wxArtProvider::GetBitmapBundle(wxART_INFORMATION, wxART_MESSAGE_BOX),
                     wxPoint(kMargin, kMargin), wxSize(32, 32));
  m_message = new wxStaticText(this, IDC_MESSAGE, "Something went wrong...", wxPoint(kTextX, kMargin),
                               wxSize(kMinTextWidth, kMessageMinHeight), wxST_NO_AUTORESIZE);
  m_countdown = new wxStaticText(this, IDC_COUNTDOWN, "FTP will retry to connect after %s seconds...",
                                 wxPoint(kTextX, 54), wxSize(kMinTextWidth, 20), wxST_NO_AUTORESIZE);
  m_ctrlProgress = new wxGauge(this, IDC_PROGRESS, 100, wxPoint(kMargin, 80), wxSize(376, 18));
  m_cancel = new wxButton(this, ftpzn::kResultCancel, "Cancel", wxPoint(158, 110),
                          wxSize(kButtonWidth, kButtonHeight));
  m_cancel->SetDefault();
}

void CDlgWaitMessage::OnInitDialog() {
  m_message->SetLabel(m_strMessage);
  m_countdown->SetLabel(wxString::Format("FTP Rovendel will retry to connect after %d seconds...", m_nSeconds));
  m_ctrlProgress->SetRange(m_nSeconds > 0 ? m_nSeconds : 0);
  m_ctrlProgress->SetValue(0);
  FitToTexts();
  CentreOnParent();
  m_timer.Start(1000);
}

void CDlgWaitMessage::FitToTexts() {
  // The countdown line is never cut; the message wraps within the column.
  const wxSize countdown = m_countdown->GetTextExtent(m_countdown->GetLabel());
  const int textWidth = std::clamp(std::max(countdown.x, m_message->GetTextExtent(m_strMessage).x) + 4,
                                   kMinTextWidth, kMaxTextWidth);
  m_message->Wrap(textWidth);
  const int messageHeight = std::max(kMessageMinHeight, m_message->GetBestSize().y);
  m_message->SetSize(kTextX, kMargin, textWidth, messageHeight);
  int y = kMargin + messageHeight + 6;
  const int lineHeight = std::max(20, countdown.y + 4);
  m_countdown->SetSize(kTextX, y, textWidth, lineHeight);
  y += lineHeight + 6;
  const int right = kTextX + textWidth;
  m_ctrlProgress->SetSize(kMargin, y, right - kMargin, 18);
  y += 18 + kMargin;
  const int clientWidth = right + kMargin;
  m_cancel->SetSize((clientWidth - kButtonWidth) / 2, y, kButtonWidth, kButtonHeight);
  SetClientSize(clientWidth, y + kButtonHeight + 10);
}
