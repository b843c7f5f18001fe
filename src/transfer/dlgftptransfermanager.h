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
  // While a tree is queued or its files end in a burst, the list is shown
  // again, the main window's status line shown and each pane listed again
  // at most this often; the last change always shows, at most this much
  // later, and at once when the list has emptied.
  static constexpr int kRepaintMs = 250;

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
  void ListChanged();
  void ShowList();
  // What is held and due, or everything when `all`.
  void ShowHeldChanges(bool all);
  void ShowOwedStatus();
  void RefreshPaneNow(bool upload);
  std::vector<long> SelectedRows();

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
  bool m_placementSaved = false;
  // Monotonic ms: when the list was last shown, the status line last shown
  // and each pane (download, upload) last listed again; and what is owed.
  uint64_t m_listShownMs = 0;
  bool m_listStale = false;
  uint64_t m_statusShownMs = 0;
  uint64_t m_paneListedMs[2] = {0, 0};
  bool m_statusOwed = false;
  bool m_paneOwed[2] = {false, false};
  wxString m_owedStatus;

  wxDECLARE_EVENT_TABLE();
};
