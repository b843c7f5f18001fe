// "FTP Sites": the site manager, where the user keeps site profiles and
// picks the one to connect to. It owns the profiles while it is open, loads
// the site file when it opens and rewrites it after every Add, Save and
// Remove.
#pragma once

#include <wx/dialog.h>

#include <vector>

#include "sites/ftpsite.h"
#include "ui/eventguard.h"

class wxCheckBox;
class wxListBox;
class wxTextCtrl;

class CDlgConnect : public ftpzn::EventGuard<wxDialog> {
 public:
  // Control ids of the dialog template.
  enum {
    IDC_SITE_LIST = 9052,
    IDC_PROFILE_NAME = 9022,
    IDC_HOST = 9023,
    IDC_PORT = 9048,
    IDC_PASSIVE = 9053,
    IDC_LOGIN = 9024,
    IDC_PASSWORD = 9025,
    IDC_INITIAL_PATH = 9009,
    IDC_RETRIES = 9047,
    IDC_RETRY_DELAY = 9045,
    IDC_ACCOUNT = 24026,
    IDC_DESCRIPTION = 9062,
    IDC_ADD = 9043,
    IDC_SAVE = 9044,
    IDC_REMOVE = 9032,
    IDC_ANONYMOUS = 9034,
    IDC_WIZARD = 9050,
    IDC_SAVE_OPTION = 9035,
    IDC_BROWSE = 9054,         // no control carries it
    IDC_BROWSE_TARGET = 9037,  // nor this one
    IDC_SECURITY = 9425,       // plain, explicit or implicit TLS: the host's scheme
  };

  explicit CDlgConnect(wxWindow* parent);

  // After ShowModal() returned 1: copies what stood in the fields into the
  // caller's current site. Only the ten members a connection uses are
  // taken: passive, retries, port, retry delay, host, description, login,
  // profile name, password and initial path; the account and the reserved
  // value of `site` stay as they were.
  void CopyChosenSiteInto(CFtpSite& site) const;

  // Loads the site file into the collection, then overwrites the first
  // profile of the same name (without regard to case, the reserved value
  // kept) or appends `site`, and saves.
  void AddOrUpdateSite(const CFtpSite& site);
  // Loads or saves the collection; a save that reached the file clears the
  // modified mark. Silent: true unless a failure was raised part-way.
  bool SerializeSites(bool bSave);

  // Data exchange written by hand: members from the controls (false when a
  // number field failed, after its message and with the focus on it) or
  // the controls from the members.
  bool UpdateData(bool bSaveAndValidate = true);

  wxListBox* m_listSites = nullptr;
  wxString m_strHost;
  int m_bAnonymous = 0;
  wxString m_strDescription;
  wxString m_strLogin;
  wxString m_strProfileName;
  wxString m_strPassword;
  int m_nPort = 21;
  wxString m_strInitialPath;
  int m_nRetries = 3;
  int m_nRetryDelay = 10;
  int m_bPassive = 1;
  int m_bModified = 0;  // login or profile name edited since the last save
  wxString m_strSitesPath;
  std::vector<CFtpSite> m_arrSites;  // file order; list items point here
  wxString m_strAccount;

 private:
  void CreateControls();
  wxTextCtrl* Edit(int id) const;
  wxCheckBox* Check(int id) const;
  // Switches the password field between masked and readable.
  void MaskPassword(bool mask);
  // Moves the controls into the members; false, with the focus on the
  // profile name, when the name is empty.
  bool RequireProfileName();
  size_t ItemIndex(int listPosition) const;
  // The record an item points at, or null when its index is stale.
  CFtpSite* RecordAt(int listPosition);
  void SetItemIndex(int listPosition, size_t index);
  // Inserts at the place the first platform's sorted list box chose:
  // ordered without regard to case.
  int InsertSorted(const wxString& text);
  void FillFromMembers(CFtpSite& site) const;
  void SelectSite();

  void OnInitDialog(wxInitDialogEvent& event);
  void OnSelectSite(wxCommandEvent& event);
  void OnConnect(wxCommandEvent& event);
  void OnCancel(wxCommandEvent& event);
  void OnClose(wxCloseEvent& event);
  void OnAdd(wxCommandEvent& event);
  void OnSave(wxCommandEvent& event);
  void OnRemove(wxCommandEvent& event);
  void OnAnonymous(wxCommandEvent& event);
  void OnLoginChanged(wxCommandEvent& event);
  void OnProfileNameChanged(wxCommandEvent& event);
  void OnBrowse(wxCommandEvent& event);
  void OnSecurityChosen(wxCommandEvent& event);
  void OnHostChanged(wxCommandEvent& event);

  bool m_bInitDone = false;

  wxDECLARE_EVENT_TABLE();
};
