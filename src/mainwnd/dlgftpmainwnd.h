// The two-pane FTP window: local files left, the server right, a button
// column between, the trace under the remote side. One class serves the
// modeless and the modal mode. It carries a menu, so it is a frame with a
// modal run of its own (results 1 OK, 2 Cancel) rather than a dialog.
#pragma once

#include <wx/arrstr.h>
#include <wx/frame.h>
#include <wx/weakref.h>

#include <cstdint>
#include <memory>

#include "connection/treewalk.h"
#include "inet/inet.h"
#include "panes/ftplistzn.h"
#include "sites/ftpsite.h"
#include "ui/eventguard.h"

class wxButton;
class wxGUIEventLoop;
class wxPanel;
class wxTextCtrl;
class CDlgFtpTransferManager;
namespace ftpzn {
class CMyInternetSession;
}

class CDlgFTPMainWnd : public ftpzn::EventGuard<wxFrame> {
 public:
  enum {
    IDD = 9066,
    IDC_LOCAL_LIST = 9068,
    IDC_REMOTE_LIST = 9065,
    IDC_LOCAL_DIR = 9072,
    IDC_REMOTE_DIR = 9073,
    IDC_LOCAL_TRACE = 9081,
    IDC_REMOTE_TRACE = 9083,
    IDC_BAR_VERTICAL = 24024,
    IDC_BAR_HORIZONTAL = 24025,
    ID_CONNECT = 9094,
    ID_DISCONNECT = 9097,
    ID_EXIT = 9095,
    ID_LOCAL = 9071,
    ID_DOWNLOAD = 9075,
    ID_UPLOAD = 9077,
    ID_TRANSFER_MANAGER = 9099,
    ID_SELECT_ALL = 9117,
    ID_SELECT_FILES = 9116,
    ID_SELECT_GROUPS = 9115,
    ID_INVERT_SELECTION = 9118,
    ID_BOOKMARK_MICROSOFT = 9130,
    ID_BOOKMARK_FILE_EXPLORE = 9098,
  };
  // The design size of the client area; also the smallest the layout follows.
  static constexpr int kClientWidth = 980;
  static constexpr int kClientHeight = 640;
  static constexpr int kTraceLimit = 20000;

  // Makes the object only; Create or DoModal makes the window.
  CDlgFTPMainWnd();
  ~CDlgFTPMainWnd() override;

  // Creates the window (hidden) and initialises it, once.
  bool Create(int templateId = IDD, wxWindow* parent = nullptr);
  // Runs the window modally; 1 after Exit, 2 after the close box or Escape
  // (or when the object is deleted during the run), -1 while a run is going.
  int DoModal();
  bool IsModalRun() const { return m_modalLoop != nullptr; }
  // Ends the modal run with `result`; a modeless window only hides.
  void EndDialog(int result);

  // Data exchange: false pushes the fields into the controls, true reads
  // them back (with the trace length check) and may refuse.
  bool UpdateData(bool saveAndValidate = true);

  // Moves the local pane to `dir` (the home directory when empty).
  int SetLocalDirectory(wxString dir);
  // Copies the remote directory field into the current site's initial path.
  void RefreshRemoteDirectory();
  void RefreshFields() { UpdateData(false); }

  // Appends "[id] text \n" (id not 0) or "text \n" to the trace.
  bool AddTrace(uintptr_t nUnused, unsigned long dwThreadId, const wxString& text);

  // Closes the connection and the session (a trace line each) and empties
  // the remote pane.
  void Disconnect();
  // Logs in to the current site with its attempts and pauses; leaves the
  // connection set or null.
  void ConnectRoutine();
  // True when the connection answers; a dead one is closed and dropped.
  bool CheckConnection();

  // A remote directory downloaded into `localBase`, or a local one uploaded
  // to `remoteBase`, through this window's connection and transfer manager:
  // the tree is walked, its directories made, its files queued. 1, or 0
  // when the user cancelled the walk.
  int DownloadRemoteDirectory(const wxString& remotePath, const wxString& localBase);
  int UploadLocalDirectory(const wxString& localPath, const wxString& remoteBase);

  // Splitter moves by d pixels; refused moves change nothing.
  void MoveVerticalSplit(int d);
  void MoveHorizontalSplit(int d);

  // Controls and fields in declaration order.
  wxButton* m_btnDisconnect = nullptr;
  wxButton* m_btnUpload = nullptr;
  wxButton* m_btnDownload = nullptr;
  wxButton* m_btnLocal = nullptr;
  wxButton* m_btnRemote = nullptr;
  CFtpListzn1Local m_ctrlLocal;
  CFtpListzn1Remote m_ctrlRemote;
  wxString m_strLocalDir;
  wxString m_strRemoteDir;
  wxString m_strLocalTrace;
  wxString m_strRemoteTrace;
  CDlgFtpTransferManager* m_pTransferManager = nullptr;
  CFtpSite m_site;
  std::unique_ptr<ftpzn::inet::CFtpConnection> m_pFtpConnection;
  std::unique_ptr<ftpzn::CMyInternetSession> m_pInetSession;
  void* m_pReserved = nullptr;
  wxString m_strReserved;
  int m_nTransferManagerShow = 0;
  int m_nTransferType = 2;
  int m_nReserved = 0;
  wxString m_strReserved2;
  wxString m_strServerName;
  CFtpSite m_sites[10];  // made and destroyed with the window, not used
  wxTextCtrl* m_editLocalDir = nullptr;
  wxTextCtrl* m_editRemoteDir = nullptr;
  wxTextCtrl* m_richLocalTrace = nullptr;
  wxTextCtrl* m_richRemoteTrace = nullptr;
  wxSize m_sizeMin;
  wxWindow* m_barVertical = nullptr;
  wxWindow* m_barHorizontal = nullptr;
  int m_nDragMode = 0;
  wxPoint m_ptLast;
  wxArrayString m_arrDownloadResults;
  wxButton* m_btnExit = nullptr;
  // How the current site is connected (the scheme of its host address),
  // and the certificate the user accepted for it although the system does
  // not trust it: the transfer workers use both.
  ftpzn::inet::TlsMode m_tlsMode = ftpzn::inet::TlsMode::None;
  std::string m_strAcceptedCertificate;
  // A lock beside the remote path while the connection is encrypted.
  wxWindow* m_tlsIndicator = nullptr;

  // The panel holding every control: its client area is the window's.
  wxPanel* Client() const { return m_panel; }

  // Mouse handling of the splitters, in client coordinates.
  void OnSplitterButtonDown(const wxPoint& point);
  void OnSplitterMouseMove(const wxPoint& point);
  void OnSplitterButtonUp();

 protected:
  bool TryBefore(wxEvent& event) override;

 private:
  void CreateControls();
  void OnInitDialog();
  void OnClientSize(wxSizeEvent& event);
  // Shows or hides the lock for the current connection; the remote path
  // box makes room for it.
  void ShowEncryption();
  void OnClose(wxCloseEvent& event);
  void OnCharHook(wxKeyEvent& event);

  void OnConnect(wxCommandEvent& event);
  void OnDisconnect(wxCommandEvent& event);
  void OnExit(wxCommandEvent& event);
  void OnLocal(wxCommandEvent& event);
  void OnTransferManager(wxCommandEvent& event);
  void OnDownload(wxCommandEvent& event);
  void OnUpload(wxCommandEvent& event);
  // The connected site as the transfers of the commands take it.
  ftpzn::TransferSite CurrentTransferSite() const;
  void OnSelectAll(wxCommandEvent& event);
  void OnInvertSelection(wxCommandEvent& event);
  void OnLocalNewDirectory(wxCommandEvent& event);
  void OnBookmarkMicrosoft(wxCommandEvent& event);
  void OnBookmarkFileExplore(wxCommandEvent& event);

  wxPanel* m_panel = nullptr;
  wxGUIEventLoop* m_modalLoop = nullptr;
  // Clears itself should the framework delete the transfer manager first
  // (its shut-down deletes every window left open).
  wxWeakRef<wxWindow> m_transferManagerWindow;
  bool m_initialised = false;

  wxDECLARE_EVENT_TABLE();
};
