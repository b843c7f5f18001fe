#include "transfer/dlgreplace.h"

#include <wx/button.h>
#include <wx/statbmp.h>
#include <wx/stattext.h>

#include "res/resources.h"
#include "ui/filetypeicon.h"

namespace {

constexpr int kClientWidth = 440;
constexpr int kButtonWidth = 88;
constexpr int kButtonHeight = 30;
constexpr int kButtonGap = 8;
const wxSize kIcon(32, 32);

// "&Yes" (the default), "Yes to &All", "&No" and "Cancel", right-aligned
// on one row; each ends the dialog with its own number.
void AddAnswerButtons(ftpzn::ModuleDialog* dialog, int y) {
  const struct {
    int id;
    const char* label;
  } buttons[] = {{ftpzn::kResultYes, "&Yes"},
                 {ftpzn::kResultYesToAll, "Yes to &All"},
                 {ftpzn::kResultNo, "&No"},
                 {ftpzn::kResultCancel, "Cancel"}};
  int x = kClientWidth - 12 - 4 * kButtonWidth - 3 * kButtonGap;
  for (const auto& b : buttons) {
    auto* button = new wxButton(dialog, b.id, b.label, wxPoint(x, y), wxSize(kButtonWidth, kButtonHeight));
    if (b.id != ftpzn::kResultCancel)
      button->Bind(wxEVT_BUTTON, [dialog, id = b.id](wxCommandEvent&) { dialog->EndModal(id); });
    x += kButtonWidth + kButtonGap;
  }
  dialog->FindWindow(ftpzn::kResultYes)->SetFocus();
  static_cast<wxButton*>(dialog->FindWindow(ftpzn::kResultYes))->SetDefault();
}

// One entry selected: Yes takes No's place, No takes Cancel's, and Cancel
// and Yes to All go, so only Yes and No show, right-aligned.
void KeepYesAndNoOnly(wxWindow* dialog) {
  wxWindow* yes = dialog->FindWindow(ftpzn::kResultYes);
  wxWindow* yesToAll = dialog->FindWindow(ftpzn::kResultYesToAll);
  wxWindow* no = dialog->FindWindow(ftpzn::kResultNo);
  wxWindow* cancel = dialog->FindWindow(ftpzn::kResultCancel);
  yes->Move(no->GetPosition());
  no->Move(cancel->GetPosition());
  cancel->Hide();
  yesToAll->Hide();
}

wxStaticBitmap* AddIcon(wxWindow* parent, wxWindowID id, const wxBitmapBundle& icon, const wxPoint& at) {
  return new wxStaticBitmap(parent, id, icon, at, kIcon);
}

// The descriptions keep their "\r\n"; a label shows a plain line break.
wxString ShownText(wxString text) {
  text.Replace("\r\n", "\n");
  return text;
}

}  // namespace

CDlgReplaceFile::CDlgReplaceFile(wxWindow* parent)
    : ModuleDialog(parent, IDD, "Confirm File Replace", wxSize(kClientWidth, 250)) {
  AddIcon(this, wxID_ANY, ftpzn::res::LoadIconBundle(IDI_REPLACE, kIcon), wxPoint(12, 12));
  m_headline = new wxStaticText(this, IDC_HEADLINE, wxString(), wxPoint(56, 12), wxSize(372, 36),
                                wxST_NO_AUTORESIZE | wxST_ELLIPSIZE_MIDDLE);
  new wxStaticText(this, wxID_STATIC, "Would you like to replace the existing file", wxPoint(56, 50));
  m_iconExisting = AddIcon(this, IDC_ICON_EXISTING, wxBitmapBundle(), wxPoint(56, 76));
  m_existing =
      new wxStaticText(this, IDC_EXISTING, wxString(), wxPoint(100, 76), wxSize(328, 40), wxST_NO_AUTORESIZE);
  new wxStaticText(this, wxID_STATIC, "with this one?", wxPoint(56, 126));
  m_iconNew = AddIcon(this, IDC_ICON_NEW, wxBitmapBundle(), wxPoint(56, 152));
  m_new = new wxStaticText(this, IDC_NEW, wxString(), wxPoint(100, 152), wxSize(328, 40), wxST_NO_AUTORESIZE);
  AddAnswerButtons(this, 208);
}

void CDlgReplaceFile::OnInitDialog() {
  m_headline->SetLabel(wxString::Format("This folder already contains a file named '%s'", m_strName));
  m_existing->SetLabel(ShownText(m_strExisting));
  m_new->SetLabel(ShownText(m_strNew));
  const wxBitmapBundle icon = ftpzn::FileTypeIcon(m_strName, kIcon);
  m_iconExisting->SetBitmap(icon);
  m_iconNew->SetBitmap(icon);
  if (m_nCount == 1) KeepYesAndNoOnly(this);
}

CDlgReplaceFold::CDlgReplaceFold(wxWindow* parent)
    : ModuleDialog(parent, IDD, "Confirm Folder Replace", wxSize(kClientWidth, 170)) {
  AddIcon(this, wxID_ANY, ftpzn::res::LoadIconBundle(CDlgReplaceFile::IDI_REPLACE, kIcon), wxPoint(12, 12));
  m_headline = new wxStaticText(this, IDC_HEADLINE,
                                "This folder already contains a folder named '%2'.\n\nIf the files in the "
                                "existing folder have the same "
                                "name as files in the folder you are downloading, they will be replaced.  Do "
                                "you still want to download "
                                "the folder?",
                                wxPoint(56, 12), wxSize(372, 104), wxST_NO_AUTORESIZE);
  AddAnswerButtons(this, 128);
}

void CDlgReplaceFold::OnInitDialog() {
  wxString text = m_headline->GetLabel();
  text.Replace("%2", m_strName);
  m_headline->SetLabel(text);
  m_headline->Wrap(372);
  if (m_nCount == 1) KeepYesAndNoOnly(this);
}
