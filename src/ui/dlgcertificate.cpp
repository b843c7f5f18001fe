#include "ui/dlgcertificate.h"

#include <wx/artprov.h>
#include <wx/button.h>
#include <wx/sizer.h>
#include <wx/statbmp.h>
#include <wx/stattext.h>

CDlgCertificate::CDlgCertificate(wxWindow* parent, const ftpzn::TrustQuestion& question)
    : ModuleDialog(parent, IDD, question.changed ? "Certificate changed" : "Certificate not trusted",
                   wxSize(100, 100)) {
  const wxString server = question.host.Contains(":")
                              ? wxString::Format("[%s]:%u", question.host, static_cast<unsigned>(question.port))
                              : wxString::Format("%s:%u", question.host, static_cast<unsigned>(question.port));
  const wxString headline =
      question.changed
          ? "The certificate of " + server +
                " has CHANGED since you chose to always trust it.\n"
                "This happens when the server gets a new certificate, but also when someone\n"
                "intercepts the connection. Trust it only if you know why it changed."
          : "The certificate of " + server + " is not trusted by this system.";
  const ftpzn::inet::TlsPeerInfo& peer = question.peer;
  auto* top = new wxBoxSizer(wxVERTICAL);
  auto* head = new wxBoxSizer(wxHORIZONTAL);
  head->Add(new wxStaticBitmap(this, wxID_ANY, wxArtProvider::GetBitmapBundle(wxART_WARNING, wxART_MESSAGE_BOX)),
            0, wxRIGHT, 12);
  auto* texts = new wxBoxSizer(wxVERTICAL);
  texts->Add(new wxStaticText(this, wxID_ANY, headline));
  texts->Add(new wxStaticText(this, IDC_WHY, "Why: " + wxString::FromUTF8(peer.problemText)), 0, wxTOP, 8);
  head->Add(texts, 1);
  top->Add(head, 0, wxALL, 12);

  auto* grid = new wxFlexGridSizer(2, 4, 12);
  const std::pair<const char*, std::string> rows[] = {
      {"Subject:", peer.subject},
      {"Issuer:", peer.issuer},
      {"Valid from:", peer.notBefore},
      {"Valid until:", peer.notAfter},
      {"SHA-256 fingerprint:", peer.fingerprint},
  };
  for (const auto& [label, value] : rows) {
    grid->Add(new wxStaticText(this, wxID_ANY, label));
    // The fingerprint is 95 characters: two lines of it stay readable.
    wxString text = wxString::FromUTF8(value);
    if (text.length() > 60 && text[47] == ':') text = text.Left(48) + "\n" + text.Mid(48);
    grid->Add(new wxStaticText(this, wxID_ANY, text));
  }
  top->Add(grid, 0, wxLEFT | wxRIGHT | wxBOTTOM, 12);

  auto* buttons = new wxBoxSizer(wxHORIZONTAL);
  buttons->AddStretchSpacer();
  buttons->Add(new wxButton(this, ID_TRUST_ONCE, "Trust once"), 0, wxRIGHT, 8);
  buttons->Add(new wxButton(this, ID_TRUST_ALWAYS, "Always trust"), 0, wxRIGHT, 8);
  auto* cancel = new wxButton(this, ftpzn::kResultCancel, "Cancel");
  buttons->Add(cancel);
  cancel->SetDefault();
  cancel->SetFocus();
  top->Add(buttons, 0, wxEXPAND | wxLEFT | wxRIGHT | wxBOTTOM, 12);
  SetSizerAndFit(top);
  for (const int id : {ID_TRUST_ONCE, ID_TRUST_ALWAYS})
    Bind(wxEVT_BUTTON, [this, id](wxCommandEvent&) { ftpzn::EndDialog(this, id); }, id);
}

ftpzn::TrustAnswer CDlgCertificate::Ask(wxWindow* parent, const ftpzn::TrustQuestion& question) {
  CDlgCertificate dialog(parent, question);
  switch (dialog.ShowModal()) {
    case ID_TRUST_ONCE:
      return ftpzn::TrustAnswer::Once;
    case ID_TRUST_ALWAYS:
      return ftpzn::TrustAnswer::Always;
    default:
      return ftpzn::TrustAnswer::Cancel;
  }
}
