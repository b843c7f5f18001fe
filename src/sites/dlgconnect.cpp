#include "sites/dlgconnect.h"

#include <wx/button.h>
#include <wx/choice.h>
#include <wx/checkbox.h>
#include <wx/listbox.h>
#include <wx/stattext.h>
#include <wx/textctrl.h>
#include <wx/valtext.h>

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <vector>

#include "sites/preferences.h"
#include "sites/sitefile.h"
#include "ui/browse.h"
#include "ui/dialogs.h"

namespace {

constexpr char kAnonymous[] = "anonymous";

bool IsAnonymousLogin(const wxString& login) { return login.CmpNoCase(kAnonymous) == 0; }

}  // namespace

wxBEGIN_EVENT_TABLE(CDlgConnect, wxDialog) EVT_INIT_DIALOG(CDlgConnect::OnInitDialog)
    EVT_LISTBOX(CDlgConnect::IDC_SITE_LIST, CDlgConnect::OnSelectSite)
        EVT_LISTBOX_DCLICK(CDlgConnect::IDC_SITE_LIST, CDlgConnect::OnConnect)
            EVT_BUTTON(CDlgConnect::IDC_ADD, CDlgConnect::OnAdd)
                EVT_CHECKBOX(CDlgConnect::IDC_ANONYMOUS, CDlgConnect::OnAnonymous)
                    EVT_BUTTON(CDlgConnect::IDC_BROWSE, CDlgConnect::OnBrowse)
                        EVT_TEXT(CDlgConnect::IDC_LOGIN, CDlgConnect::OnLoginChanged)
                            EVT_TEXT(CDlgConnect::IDC_PROFILE_NAME, CDlgConnect::OnProfileNameChanged)
                                EVT_BUTTON(CDlgConnect::IDC_REMOVE, CDlgConnect::OnRemove)
                                    EVT_BUTTON(CDlgConnect::IDC_SAVE, CDlgConnect::OnSave)
                                        EVT_CHOICE(CDlgConnect::IDC_SECURITY, CDlgConnect::OnSecurityChosen)
                                            EVT_TEXT(CDlgConnect::IDC_HOST, CDlgConnect::OnHostChanged)
                                        EVT_BUTTON(ftpzn::kResultOk, CDlgConnect::OnConnect)
                                            EVT_BUTTON(ftpzn::kResultCancel, CDlgConnect::OnCancel)
                                                EVT_CLOSE(CDlgConnect::OnClose) wxEND_EVENT_TABLE()

                                                    CDlgConnect::CDlgConnect(wxWindow* parent)
    : EventGuard(parent, wxID_ANY, "FTP Sites", wxDefaultPosition, wxDefaultSize, wxDEFAULT_DIALOG_STYLE) {
  const CFtpSite builtIn = ftpzn::BuiltInSite();
  m_strHost = builtIn.m_strHost;
  m_strProfileName = builtIn.m_strProfileName;
  m_strDescription = builtIn.m_strDescription;
  m_strLogin = builtIn.m_strLogin;
  m_strPassword = builtIn.m_strPassword;
  m_strInitialPath = builtIn.m_strInitialPath;
  m_strAccount = builtIn.m_strAccount;
  m_nPort = builtIn.m_nPort;
  m_nRetries = builtIn.m_nRetries;
  m_nRetryDelay = builtIn.m_nRetryDelay;
  m_bPassive = builtIn.m_bPassive;
  m_bAnonymous = 0;
  m_bModified = 0;
  m_strSitesPath = ftpzn::DefaultSitesPath();

  SetAffirmativeId(ftpzn::kResultOk);
  SetEscapeId(ftpzn::kResultCancel);
  CreateControls();
}

void CDlgConnect::CreateControls() {
  // The template, in pixels. Labels sit left of their edits; the edits are
  // 30 pixels high because GTK's entries need that much.
  auto label = [this](const char* text, int x, int y) {
    new wxStaticText(this, wxID_STATIC, text, wxPoint(x, y + 6));
  };
  auto edit = [this](int id, int x, int y, int w, long style = 0) {
    return new wxTextCtrl(this, id, wxString(), wxPoint(x, y), wxSize(w, 30), style);
  };
  constexpr int kLabelX = 225;
  constexpr int kEditX = 330;
  constexpr int kWide = 300;

  m_listSites = new wxListBox(this, IDC_SITE_LIST, wxPoint(10, 10), wxSize(200, 330), 0, nullptr,
                              wxLB_SINGLE | wxLB_NEEDED_SB);

  label("Profile &Name:", kLabelX, 10);
  edit(IDC_PROFILE_NAME, kEditX, 10, kWide);
  label("&Host Address:", kLabelX, 46);
  edit(IDC_HOST, kEditX, 46, 160);
  label("P&ort:", 500, 46);
  edit(IDC_PORT, 545, 46, 85)->SetValidator(wxTextValidator(wxFILTER_DIGITS));
  label("&Login:", kLabelX, 82);
  edit(IDC_LOGIN, kEditX, 82, 160);
  new wxCheckBox(this, IDC_ANONYMOUS, "Anonymo&us", wxPoint(500, 88));
  label("&Password:", kLabelX, 118);
  edit(IDC_PASSWORD, kEditX, 118, 160, wxTE_PASSWORD);
  new wxCheckBox(this, IDC_PASSIVE, "Use PASV &Mode", wxPoint(500, 124));
  label("&Initial Path:", kLabelX, 154);
  edit(IDC_INITIAL_PATH, kEditX, 154, kWide);
  label("Re&tries:", kLabelX, 190);
  edit(IDC_RETRIES, kEditX, 190, 70)->SetValidator(wxTextValidator(wxFILTER_DIGITS));
  label("Retry Dela&y:", 420, 190);
  edit(IDC_RETRY_DELAY, 545, 190, 85)->SetValidator(wxTextValidator(wxFILTER_DIGITS));
  label("Account", kLabelX, 226);
  edit(IDC_ACCOUNT, kEditX, 226, kWide);
  label("&Description:", kLabelX, 262);
  new wxTextCtrl(this, IDC_DESCRIPTION, wxString(), wxPoint(kEditX, 262), wxSize(kWide, 78), wxTE_MULTILINE);

  // A row of its own under the form, so that nobody needs to know the
  // schemes: the choice writes one into the host address.
  label("&Encryption:", kLabelX, 352);
  const wxString security[] = {"None (plain FTP)", "Explicit TLS (AUTH TLS, usually port 21)",
                               "Implicit TLS (usually port 990)"};
  auto* choice = new wxChoice(this, IDC_SECURITY, wxPoint(kEditX, 352), wxSize(kWide, 30), 3, security);
  choice->SetSelection(0);

  constexpr int kButtonsY = 388;
  new wxButton(this, IDC_ADD, "&Add", wxPoint(10, kButtonsY), wxSize(64, 30));
  new wxButton(this, IDC_SAVE, "Sa&ve", wxPoint(78, kButtonsY), wxSize(64, 30));
  new wxButton(this, IDC_REMOVE, "&Remove", wxPoint(146, kButtonsY), wxSize(64, 30));
  auto* saveOption = new wxCheckBox(this, IDC_SAVE_OPTION, "Save ...", wxPoint(kLabelX, kButtonsY + 6));
  // The check box keeps the room its label needs in the font in use; the
  // Wizard button gives way (Connect and Cancel keep their places).
  const int saveRight = kLabelX + saveOption->GetBestSize().x;
  saveOption->SetSize(saveOption->GetBestSize());
  const int wizardX = std::max(kEditX, saveRight + 8);
  new wxButton(this, IDC_WIZARD, "Wizard...", wxPoint(wizardX, kButtonsY),
               wxSize(std::max(40, 426 - wizardX), 30));
  auto* connect = new wxButton(this, ftpzn::kResultOk, "&Connect", wxPoint(432, kButtonsY), wxSize(96, 30));
  new wxButton(this, ftpzn::kResultCancel, "Cancel", wxPoint(534, kButtonsY), wxSize(96, 30));
  connect->SetDefault();
  SetClientSize(640, kButtonsY + 40);
}

wxTextCtrl* CDlgConnect::Edit(int id) const { return static_cast<wxTextCtrl*>(FindWindow(id)); }
wxCheckBox* CDlgConnect::Check(int id) const { return static_cast<wxCheckBox*>(FindWindow(id)); }

bool CDlgConnect::UpdateData(bool bSaveAndValidate) {
  if (bSaveAndValidate) {
    // The first platform's exchange order; a failing number stops it there.
    m_strHost = Edit(IDC_HOST)->GetValue();
    m_bAnonymous = Check(IDC_ANONYMOUS)->GetValue() ? 1 : 0;
    m_strDescription = Edit(IDC_DESCRIPTION)->GetValue();
    m_strLogin = Edit(IDC_LOGIN)->GetValue();
    m_strProfileName = Edit(IDC_PROFILE_NAME)->GetValue();
    m_strPassword = Edit(IDC_PASSWORD)->GetValue();
    if (!ftpzn::ReadIntField(Edit(IDC_PORT), m_nPort)) return false;
    m_strInitialPath = Edit(IDC_INITIAL_PATH)->GetValue();
    if (!ftpzn::ReadIntField(Edit(IDC_RETRIES), m_nRetries)) return false;
    if (!ftpzn::ReadIntField(Edit(IDC_RETRY_DELAY), m_nRetryDelay)) return false;
    m_bPassive = Check(IDC_PASSIVE)->GetValue() ? 1 : 0;
    m_strAccount = Edit(IDC_ACCOUNT)->GetValue();
    return true;
  }
  ftpzn::SetTextIfChanged(Edit(IDC_HOST), m_strHost);
  Check(IDC_ANONYMOUS)->SetValue(m_bAnonymous != 0);
  ftpzn::SetTextIfChanged(Edit(IDC_DESCRIPTION), m_strDescription);
  ftpzn::SetTextIfChanged(Edit(IDC_LOGIN), m_strLogin);
  ftpzn::SetTextIfChanged(Edit(IDC_PROFILE_NAME), m_strProfileName);
  ftpzn::SetTextIfChanged(Edit(IDC_PASSWORD), m_strPassword);
  ftpzn::SetTextIfChanged(Edit(IDC_PORT), wxString::Format("%d", m_nPort));
  ftpzn::SetTextIfChanged(Edit(IDC_INITIAL_PATH), m_strInitialPath);
  ftpzn::SetTextIfChanged(Edit(IDC_RETRIES), wxString::Format("%d", m_nRetries));
  ftpzn::SetTextIfChanged(Edit(IDC_RETRY_DELAY), wxString::Format("%d", m_nRetryDelay));
  Check(IDC_PASSIVE)->SetValue(m_bPassive != 0);
  ftpzn::SetTextIfChanged(Edit(IDC_ACCOUNT), m_strAccount);
  return true;
}

void CDlgConnect::MaskPassword(bool mask) {
  wxTextCtrl* current = Edit(IDC_PASSWORD);
  if (current->HasFlag(wxTE_PASSWORD) == mask) {
    current->Refresh();
    return;
  }
  // GTK cannot switch an entry's masking through the window style, so the
  // field is made anew with the same id, place, text and tab position.
  const bool hadFocus = FindFocus() == current;
  auto* replacement = new wxTextCtrl(this, IDC_PASSWORD, current->GetValue(), current->GetPosition(),
                                     current->GetSize(), mask ? wxTE_PASSWORD : 0);
  replacement->MoveAfterInTabOrder(current);
  current->Destroy();
  if (hadFocus) replacement->SetFocus();
}

size_t CDlgConnect::ItemIndex(int listPosition) const {
  return static_cast<size_t>(reinterpret_cast<intptr_t>(m_listSites->GetClientData(listPosition)));
}

CFtpSite* CDlgConnect::RecordAt(int listPosition) {
  // The first platform raised an invalid-argument error for an item that
  // pointed past the collection; here the command is dropped instead, since
  // nothing may bring the host down.
  const size_t index = ItemIndex(listPosition);
  return index < m_arrSites.size() ? &m_arrSites[index] : nullptr;
}

void CDlgConnect::SetItemIndex(int listPosition, size_t index) {
  m_listSites->SetClientData(listPosition, reinterpret_cast<void*>(static_cast<intptr_t>(index)));
}

int CDlgConnect::InsertSorted(const wxString& text) {
  // After every item that does not sort behind it; a binary search, since a
  // site file may hold many thousands of profiles.
  unsigned int low = 0;
  unsigned int high = m_listSites->GetCount();
  while (low < high) {
    const unsigned int middle = low + (high - low) / 2;
    if (m_listSites->GetString(middle).CmpNoCase(text) <= 0)
      low = middle + 1;
    else
      high = middle;
  }
  return m_listSites->Insert(text, low);
}

void CDlgConnect::FillFromMembers(CFtpSite& site) const {
  // A stored site keeps its account too, which a connection does not take.
  CopyChosenSiteInto(site);
  site.m_strAccount = m_strAccount;
}

void CDlgConnect::CopyChosenSiteInto(CFtpSite& site) const {
  site.m_bPassive = m_bPassive;
  site.m_nRetries = m_nRetries;
  site.m_nPort = m_nPort;
  site.m_nRetryDelay = m_nRetryDelay;
  site.m_strHost = m_strHost;
  site.m_strDescription = m_strDescription;
  site.m_strLogin = m_strLogin;
  site.m_strProfileName = m_strProfileName;
  site.m_strPassword = m_strPassword;
  site.m_strInitialPath = m_strInitialPath;
}

bool CDlgConnect::SerializeSites(bool bSave) {
  ftpzn::SiteFileReport report;
  const bool ok = ftpzn::SerializeSites(m_strSitesPath, m_arrSites, bSave, &report);
  if (bSave && report.flushed) m_bModified = 0;
  return ok;
}

void CDlgConnect::AddOrUpdateSite(const CFtpSite& site) {
  SerializeSites(false);
  const int found = ftpzn::FindSiteNoCase(m_arrSites, site.m_strProfileName);
  if (found >= 0)
    ftpzn::AssignSiteFields(m_arrSites[static_cast<size_t>(found)], site);
  else
    m_arrSites.push_back(site);
  SerializeSites(true);
}

bool CDlgConnect::RequireProfileName() {
  // A failed number has shown its message already; the name is checked
  // with the members as they then stand.
  UpdateData(true);
  if (!m_strProfileName.empty()) return true;
  Edit(IDC_PROFILE_NAME)->SetFocus();
  return false;
}

void CDlgConnect::OnInitDialog(wxInitDialogEvent&) {
  // wx sends this on every show; the dialog initialises once.
  if (m_bInitDone) return;
  m_bInitDone = true;
  UpdateData(false);
  CentreOnParent();
  SerializeSites(false);
  // The order that inserting each profile in turn at its sorted place gives,
  // built in one pass: a stable sort by name without regard to case.
  std::vector<size_t> order(m_arrSites.size());
  std::iota(order.begin(), order.end(), size_t{0});
  std::stable_sort(order.begin(), order.end(), [this](size_t a, size_t b) {
    return m_arrSites[a].m_strProfileName.CmpNoCase(m_arrSites[b].m_strProfileName) < 0;
  });
  wxArrayString names;
  names.reserve(order.size());
  std::vector<void*> indexes;
  indexes.reserve(order.size());
  for (size_t index : order) {
    names.push_back(m_arrSites[index].m_strProfileName);
    indexes.push_back(reinterpret_cast<void*>(static_cast<intptr_t>(index)));
  }
  if (!names.empty()) m_listSites->Append(names, indexes.data());
  // A list position moves as profiles come and go: it is read and not
  // applied. The site connected to last is known by name.
  (void)ftpzn::ReadLastSelectedSite();
  if (m_listSites->IsEmpty()) return;
  const wxString lastName = ftpzn::ReadLastConnectedSite();
  const int last = lastName.empty() ? wxNOT_FOUND : m_listSites->FindString(lastName, true);
  m_listSites->SetSelection(last == wxNOT_FOUND ? 0 : last);
  m_listSites->EnsureVisible(m_listSites->GetSelection());
  SelectSite();
}

void CDlgConnect::SelectSite() {
  const int position = m_listSites->GetSelection();
  if (position == wxNOT_FOUND) return;
  const CFtpSite* record = RecordAt(position);
  if (!record) return;
  const CFtpSite& site = *record;
  m_bPassive = site.m_bPassive;
  m_nRetries = site.m_nRetries;
  m_nPort = site.m_nPort;
  m_nRetryDelay = site.m_nRetryDelay;
  m_strHost = site.m_strHost;
  m_strDescription = site.m_strDescription;
  m_strAccount = site.m_strAccount;
  m_strLogin = site.m_strLogin;
  m_bAnonymous = IsAnonymousLogin(m_strLogin) ? 1 : 0;
  MaskPassword(!m_bAnonymous);
  m_strProfileName = site.m_strProfileName;
  m_strPassword = site.m_strPassword;
  m_strInitialPath = site.m_strInitialPath;
  UpdateData(false);
  UpdateWindowUI();
  ftpzn::WriteLastSelectedSite(position);
}

void CDlgConnect::OnSelectSite(wxCommandEvent&) { SelectSite(); }

void CDlgConnect::OnConnect(wxCommandEvent&) {
  // What stands in the fields is what the caller gets, saved or not.
  if (!UpdateData(true)) return;
  const int position = m_listSites->GetSelection();
  if (position != wxNOT_FOUND) ftpzn::WriteLastConnectedSite(m_listSites->GetString(position));
  ftpzn::EndDialog(this, ftpzn::kResultOk);
}

void CDlgConnect::OnCancel(wxCommandEvent&) { ftpzn::EndDialog(this, ftpzn::kResultCancel); }

void CDlgConnect::OnClose(wxCloseEvent&) { ftpzn::EndDialog(this, ftpzn::kResultCancel); }

void CDlgConnect::OnAdd(wxCommandEvent&) {
  if (!RequireProfileName()) return;
  for (unsigned int i = 0; i < m_listSites->GetCount(); ++i) {
    if (m_listSites->GetString(i).CmpNoCase(m_strProfileName) == 0) {
      // A duplicate is refused without a message: the name is cleared.
      wxTextCtrl* name = Edit(IDC_PROFILE_NAME);
      name->SetValue(wxString());
      name->SetFocus();
      return;
    }
  }
  const int position = InsertSorted(m_strProfileName);
  m_arrSites.emplace_back();
  const size_t index = m_arrSites.size() - 1;
  SetItemIndex(position, index);
  m_listSites->SetSelection(position);
  FillFromMembers(m_arrSites[index]);
  SerializeSites(true);
  UpdateWindowUI();
}

void CDlgConnect::OnSave(wxCommandEvent&) {
  if (!RequireProfileName()) return;
  const int position = m_listSites->GetSelection();
  if (position == wxNOT_FOUND) return;
  const size_t index = ItemIndex(position);
  CFtpSite* record = RecordAt(position);
  if (!record) return;
  FillFromMembers(*record);
  // No check against the other names: renaming onto one is allowed.
  m_listSites->Delete(position);
  const int newPosition = InsertSorted(m_strProfileName);
  SetItemIndex(newPosition, index);
  m_listSites->SetSelection(newPosition);
  SerializeSites(true);
  UpdateWindowUI();
}

void CDlgConnect::OnRemove(wxCommandEvent&) {
  const int position = m_listSites->GetSelection();
  if (position == wxNOT_FOUND) return;
  const size_t removed = ItemIndex(position);
  if (!RecordAt(position)) return;
  m_listSites->Delete(position);
  ftpzn::RemoveSiteAt(m_arrSites, removed);
  // The list is ordered by name, the collection by file: re-point every item
  // that sat behind the removed record.
  for (unsigned int i = 0; i < m_listSites->GetCount(); ++i) {
    const size_t index = ItemIndex(static_cast<int>(i));
    if (index > removed) SetItemIndex(static_cast<int>(i), index - 1);
  }
  SerializeSites(true);
  UpdateWindowUI();
  // With the list now empty nothing is selected and the fields keep the
  // removed profile's values.
  if (m_listSites->GetCount() > 0) m_listSites->SetSelection(0);
  SelectSite();
}

void CDlgConnect::OnAnonymous(wxCommandEvent&) {
  UpdateData(true);
  if (m_bAnonymous) {
    m_strLogin = kAnonymous;
    m_strPassword = ftpzn::ReadEmailAddress();
    MaskPassword(false);  // the address is shown readable
  } else {
    const int position = m_listSites->GetSelection();
    if (position == wxNOT_FOUND) {
      UpdateData(false);
      return;
    }
    const CFtpSite* site = RecordAt(position);
    if (!site) return;
    m_strLogin = site->m_strLogin;
    m_strPassword = site->m_strPassword;
    MaskPassword(true);
  }
  UpdateData(false);
}

void CDlgConnect::OnLoginChanged(wxCommandEvent&) {
  m_bModified = 1;
  UpdateWindowUI();
  // Typing "anonymous" by hand does not tick the box; anything else unticks
  // it and hides the password.
  if (!IsAnonymousLogin(Edit(IDC_LOGIN)->GetValue())) {
    MaskPassword(true);
    Check(IDC_ANONYMOUS)->SetValue(false);
  }
}

void CDlgConnect::OnSecurityChosen(wxCommandEvent& event) {
  const auto security = static_cast<ftpzn::HostSecurity>(event.GetSelection());
  wxTextCtrl* host = Edit(IDC_HOST);
  const ftpzn::HostSecurity before = ftpzn::SecurityOfHost(host->GetValue());
  host->SetValue(ftpzn::HostWithSecurity(host->GetValue(), security));
  // Implicit TLS has its own usual port; a port the user chose stays.
  wxTextCtrl* port = Edit(IDC_PORT);
  const wxString usual = security == ftpzn::HostSecurity::ImplicitTls ? "990" : "21";
  const wxString previous = before == ftpzn::HostSecurity::ImplicitTls ? "990" : "21";
  if (port->GetValue().Trim().Trim(false) == previous) port->SetValue(usual);
}

void CDlgConnect::OnHostChanged(wxCommandEvent& event) {
  event.Skip();
  if (auto* choice = dynamic_cast<wxChoice*>(FindWindow(IDC_SECURITY)))
    choice->SetSelection(static_cast<int>(ftpzn::SecurityOfHost(Edit(IDC_HOST)->GetValue())));
}

void CDlgConnect::OnProfileNameChanged(wxCommandEvent&) { m_bModified = 1; }

void CDlgConnect::OnBrowse(wxCommandEvent&) {
  const wxString path = ftpzn::BrowseForFolder(this, "Select a directory:", 1);
  if (path.empty()) return;
  if (auto* target = dynamic_cast<wxTextCtrl*>(FindWindow(IDC_BROWSE_TARGET))) target->SetValue(path);
}
