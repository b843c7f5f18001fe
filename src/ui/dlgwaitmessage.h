// Shown between connection attempts. It has no timer handler: the
// countdown and the bar stay as set, and only Cancel (or the close box)
// ends it, with Cancel — so cancelling it is what ends the retrying.
#pragma once

#include <wx/timer.h>

#include "ui/dialogs.h"

class wxButton;
class wxGauge;
class wxStaticText;

class CDlgWaitMessage : public ftpzn::ModuleDialog {
 public:
  enum { IDD = 9020, IDC_PROGRESS = 9030, IDC_COUNTDOWN = 9031, IDC_MESSAGE = 9033, IDC_ICON = 9035 };
  explicit CDlgWaitMessage(wxWindow* parent = nullptr);

  wxGauge* m_ctrlProgress = nullptr;
  wxString m_strMessage;
  int m_nSeconds = 0;

 protected:
  void OnInitDialog() override;

 private:
  // Places the controls around the texts as set, at the font in use.
  void FitToTexts();

  wxStaticText* m_message = nullptr;
  wxStaticText* m_countdown = nullptr;
  wxButton* m_cancel = nullptr;
  wxTimer m_timer;
};
