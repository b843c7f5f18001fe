// A modeless window for long operations: an animation, two lines of text,
// a percentage bar and Cancel, which signals an event the operation
// watches. The tree walks show it when they take a while.
#pragma once

#include "platform/workerthread.h"
#include "res/resources.h"
#include "ui/dialogs.h"

class wxGauge;
class wxGenericAnimationCtrl;
class wxStaticText;

class CDlgProgress : public ftpzn::ModuleDialog {
 public:
  enum {
    IDD = 9046,
    IDC_LINE1 = 9008,
    IDC_LINE2 = 9010,
    IDC_PROGRESS = 9011,
    IDC_ANIMATION = 9012,
    IDC_STATIC_107 = 107,
    IDC_STATIC_1020 = 1020,
  };
  CDlgProgress() = default;
  ~CDlgProgress() override;

  // Makes the window, initialised and not yet shown, remembering the event
  // Cancel signals; false (and m_bValid cleared) when it cannot be made.
  bool Create(wxWindow* parent, ftpzn::ManualResetEvent* cancelEvent);
  void SetLine1(const wxString& text);
  void SetLine2(const wxString& text);
  // Lower bound 0, upper bound `upper`.
  void SetUpper(int upper);
  void SetCaption(const wxString& caption) { m_strCaption = caption; }
  // Dispatches what is waiting for the windows first, then moves the bar
  // to `position` (see the definition for how the percentage is found).
  void SetPos(int position);
  bool DestroyWindow();

  wxGauge* m_progress = nullptr;
  wxGenericAnimationCtrl* m_animate = nullptr;
  wxString m_strCaption;
  int m_nLower = 0;
  int m_nUpper = 100;
  int m_nStep = 1;
  int m_bValid = 0;
  ftpzn::ManualResetEvent* m_hCancelEvent = nullptr;
  int m_nAnimation = ftpzn::res::kAnimationTransfer;

 protected:
  void OnInitDialog() override;
  void OnCancel() override;

 private:
  wxStaticText* m_line1 = nullptr;
  wxStaticText* m_line2 = nullptr;
};
