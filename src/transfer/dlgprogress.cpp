#include "transfer/dlgprogress.h"

#include <wx/animate.h>
#include <wx/button.h>
#include <wx/gauge.h>
#include <wx/generic/animate.h>
#include <wx/stattext.h>

#include <algorithm>

CDlgProgress::~CDlgProgress() {
  m_bValid = 0;
  // Stopped here, while this object is whole: the base class's destruction
  // would still let the animation's timer tick into a half-destroyed dialog.
  if (m_animate) m_animate->Stop();
}

bool CDlgProgress::Create(wxWindow* parent, ftpzn::ManualResetEvent* cancelEvent) {
  m_hCancelEvent = cancelEvent;
  // No caption of its own: the title is only ever the percentage.
  if (!CreateDialog(parent, IDD, wxString(), wxSize(400, 150), wxBORDER_RAISED | wxSTAY_ON_TOP)) {
    m_bValid = 0;
    return false;
  }
  m_animate = new wxGenericAnimationCtrl(this, IDC_ANIMATION, wxNullAnimation, wxPoint(12, 12),
                                         wxSize(48, 48), wxAC_DEFAULT_STYLE | wxAC_NO_AUTORESIZE);
  m_line1 = new wxStaticText(this, IDC_LINE1, wxString(), wxPoint(72, 14), wxSize(316, 20),
                             wxST_NO_AUTORESIZE | wxST_ELLIPSIZE_MIDDLE);
  m_line2 =
      new wxStaticText(this, IDC_LINE2, wxString(), wxPoint(72, 40), wxSize(316, 20), wxST_NO_AUTORESIZE);
  new wxStaticText(this, IDC_STATIC_107, wxString(), wxPoint(72, 62), wxSize(1, 1));
  new wxStaticText(this, IDC_STATIC_1020, wxString(), wxPoint(72, 64), wxSize(1, 1));
  m_progress = new wxGauge(this, IDC_PROGRESS, 100, wxPoint(12, 76), wxSize(376, 18));
  new wxButton(this, ftpzn::kResultCancel, "Cancel", wxPoint(158, 108), wxSize(84, 30));
  m_bValid = 1;
  InitDialog();
  return true;
}

void CDlgProgress::OnInitDialog() {
  m_progress->SetRange(m_nUpper - m_nLower);
  m_progress->SetValue(0);
  wxAnimation frames = m_animate->CreateAnimation();
  if (ftpzn::res::LoadAnimation(m_nAnimation, frames)) {
    m_animate->SetAnimation(frames);
    m_animate->Play(true);
  }
}

void CDlgProgress::OnCancel() {
  if (m_hCancelEvent) m_hCancelEvent->Set();
  ModuleDialog::OnCancel();
}

void CDlgProgress::SetLine1(const wxString& text) { m_line1->SetLabel(text); }

void CDlgProgress::SetLine2(const wxString& text) { m_line2->SetLabel(text); }

void CDlgProgress::SetUpper(int upper) {
  m_nLower = 0;
  m_nUpper = upper;
}

// The bar is given a percentage (on the range it was made with); past the
// upper bound it starts again (150 shows as 50; exactly 100 stays 100), and
// with an upper bound of 0 it never moves. The caption changes only when
// its text does.
void CDlgProgress::SetPos(int position) {
  ftpzn::PumpMessages();
  if (m_nUpper == 0) return;
  int percent = (position - m_nLower) * 100 / (m_nUpper - m_nLower);
  if (percent != 100) percent %= 100;
  m_progress->SetValue(std::clamp(percent, 0, m_progress->GetRange()));
  const wxString caption = wxString::Format("%d%c %s", percent, '%', m_strCaption);
  if (GetTitle() != caption) SetTitle(caption);
}

bool CDlgProgress::DestroyWindow() {
  m_bValid = 0;
  return Destroy();
}
