// Asks whether to go on with a server whose certificate the system does not
// trust: what the certificate says, why it is not trusted, and whether it
// replaced one the user chose to always trust.
#pragma once

#include "connection/certtrust.h"
#include "ui/dialogs.h"

class CDlgCertificate : public ftpzn::ModuleDialog {
 public:
  // Results besides Cancel (2). Cancel is the default button: Enter alone
  // never trusts anything.
  enum { IDD = 9420, ID_TRUST_ONCE = 9421, ID_TRUST_ALWAYS = 9422, IDC_WHY = 9423 };
  CDlgCertificate(wxWindow* parent, const ftpzn::TrustQuestion& question);

  // Runs the dialog and turns its result into an answer.
  static ftpzn::TrustAnswer Ask(wxWindow* parent, const ftpzn::TrustQuestion& question);
};
