// The transfer manager window: a modeless, always-on-top list of the
// transfers, created hidden by the main window. Closing it only hides it.
#pragma once

#include <wx/frame.h>

class wxListCtrl;
class CDlgFTPMainWnd;

class CDlgFtpTransferManager : public wxFrame {
 public:
  enum { IDD = 9135, IDC_LIST = 9027 };
  CDlgFtpTransferManager() = default;

  // Creates the window without a parent; shows it when `show` > 0.
  bool Create(int show);

  wxListCtrl* m_listCtrl = nullptr;
  CDlgFTPMainWnd* m_pFtpMainWnd = nullptr;
  int m_nTransferMax = 0;
  int m_nConnectionTimeout = 0;
  int m_bRemoveFailed = 0;
  int m_bHold = 0;
  int m_nActive = 0;
  int m_bShow = 0;

 private:
  void OnClose(wxCloseEvent& event);
  void OnSize(wxSizeEvent& event);
  wxDECLARE_EVENT_TABLE();
};
