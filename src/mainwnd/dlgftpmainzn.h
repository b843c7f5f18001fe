// A second dialog class over the main window's template, with no behaviour
// of its own; nothing creates it.
#pragma once

#include "ui/dialogs.h"

class CDlgFtpMainzn : public ftpzn::ModuleDialog {
 public:
  enum { IDD = 9066 };
  explicit CDlgFtpMainzn(wxWindow* parent = nullptr);
};
