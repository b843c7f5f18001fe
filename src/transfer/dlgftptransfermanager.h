// The transfer manager window: a modeless, always-on-top list of the
// transfers, created hidden by the main window. It owns every worker
// (through the transfer queue it is), starts queued ones from a 10 ms
// timer, shows each worker's lines, removes finished transfers, lists
// failed ones again, and lets the user cancel and resubmit. Closing it
// only hides it; the main window destroys it, and destroying it cancels
// and awaits every worker.
#pragma once

#include <wx/frame.h>
#include <wx/timer.h>

#include <memory>

#include "transfer/transferqueue.h"
#include "ui/eventguard.h"

class wxListCtrl;
class wxThreadEvent;
class CDlgFTPMainWnd;
namespace ftpzn {
class TransferPostBox;
}

class CDlgFtpTransferManager : public ftpzn::EventGuard<wxFrame>, public ftpzn::TransferQueue {
 public:
  enum {
    IDD = 9135,
    IDC_LIST = 9027,
    IDI_ICON = 9133,
    ID_TRANSFER_CANCEL = 9120,
    ID_TRANSFER_RESUBMIT = 9122,
    ID_TRANSFER_EXIT = 9131,
    ID_EDIT_SELECT_ALL = 57642,
    ID_EDIT_INVERT_SELECTION = 9125,
    ID_HELP_TOPICS = 57666,
    kTimerId = 10,
    kTimerMs = 10,
  };
  // New rows reach the list at most this often, so that queueing a whole
  // tree does not repaint the list once per file.
  static constexpr int kRowCountRefreshMs = 100;

  CDlgFtpTransferManager();
  ~CDlgFtpTransferManager() override;

  // Creates the window without a parent and initialises it; shows it when
  // `show` > 0.
  bool Create(int show);

  wxListCtrl* m_listCtrl = nullptr;
  CDlgFTPMainWnd* m_pFtpMainWnd = nullptr;
  int m_bShow = 0;

 protected:
  std::shared_ptr<ftpzn::TransferSink> GetSink() override;
  void OnRowAppended() override;
  void OnRowRemoved(size_t index) override;
  void OnRowChanged(size_t index) override;
  void PumpAfterDownloadAdded() override;
  void ShowStatusText(const wxString& text) override;
  void RefreshPane(bool upload) override;

 private:
  void OnInitDialog();
  void RestorePlacement();
  void SavePlacement();
  void SyncRowCount();
  std::vector<long> SelectedRows() const;

  void OnTimer(wxTimerEvent& event);
  void OnStatusMessage(wxThreadEvent& event);
  void OnDownloadDoneMessage(wxThreadEvent& event);
  void OnUploadDoneMessage(wxThreadEvent& event);
  void OnCancel(wxCommandEvent& event);
  void OnResubmit(wxCommandEvent& event);
  void OnExit(wxCommandEvent& event);
  void OnSelectAll(wxCommandEvent& event);
  void OnInvertSelection(wxCommandEvent& event);
  void OnListContextMenu(wxContextMenuEvent& event);
  void OnClose(wxCloseEvent& event);
  void OnSize(wxSizeEvent& event);

  std::shared_ptr<ftpzn::TransferPostBox> m_postBox;
  wxTimer m_timer;
  long m_lastCountSync = 0;  // monotonic ms of the last row-count sync
  bool m_placementSaved = false;

  wxDECLARE_EVENT_TABLE();
};
