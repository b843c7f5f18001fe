#include "mainwnd/dlgftpmainwnd.h"

#include <wx/button.h>
#include <wx/evtloop.h>
#include <wx/menu.h>
#include <wx/panel.h>
#include <wx/statbmp.h>
#include <wx/textctrl.h>
#include <wx/utils.h>
#include <wx/weakref.h>

#include <cstdlib>

#include "connection/myinternetsession.h"
#include "platform/profile.h"
#include "sites/preferences.h"
#include "res/menus.h"
#include "res/resources.h"
#include "transfer/dlgftptransfermanager.h"
#include "ui/browse.h"
#include "ui/dialogs.h"

namespace {

// A thin bar the user drags; its mouse events belong to the main window's
// drag logic, in the main window's client coordinates.
class SplitterBar : public wxWindow {
 public:
  SplitterBar(CDlgFTPMainWnd* owner, wxWindow* parent, wxWindowID id, const wxRect& rect, bool vertical)
      : wxWindow(parent, id, rect.GetPosition(), rect.GetSize(), wxBORDER_NONE), m_owner(owner) {
    SetBackgroundColour(wxColour(160, 160, 160));
    SetCursor(wxCursor(vertical ? wxCURSOR_SIZEWE : wxCURSOR_SIZENS));
    Bind(wxEVT_LEFT_DOWN, [this](wxMouseEvent& e) {
      m_owner->OnSplitterButtonDown(ToClient(e.GetPosition()));
      e.Skip();
    });
    Bind(wxEVT_MOTION, [this](wxMouseEvent& e) {
      m_owner->OnSplitterMouseMove(ToClient(e.GetPosition()));
      e.Skip();
    });
    Bind(wxEVT_LEFT_UP, [this](wxMouseEvent& e) {
      m_owner->OnSplitterButtonUp();
      e.Skip();
    });
  }

 private:
  wxPoint ToClient(const wxPoint& p) const { return p + GetPosition(); }
  CDlgFTPMainWnd* m_owner;
};

int Right(const wxRect& r) { return r.x + r.width; }
int Bottom(const wxRect& r) { return r.y + r.height; }

// The lock's width and a gap.
constexpr int kIndicatorRoom = 28;

void SetRight(wxWindow* w, int right) {
  wxRect r = w->GetRect();
  r.width = right - r.x;
  w->SetSize(r);
}

void SetBottom(wxWindow* w, int bottom) {
  wxRect r = w->GetRect();
  r.height = bottom - r.y;
  w->SetSize(r);
}

void MoveLeftEdge(wxWindow* w, int d) {
  wxRect r = w->GetRect();
  r.x += d;
  r.width -= d;
  w->SetSize(r);
}

void MoveTopEdge(wxWindow* w, int d) {
  wxRect r = w->GetRect();
  r.y += d;
  r.height -= d;
  w->SetSize(r);
}

void Shift(wxWindow* w, int dx, int dy) { w->Move(w->GetPosition() + wxPoint(dx, dy)); }

wxString NewestChars(const wxString& text, size_t limit) {
  return text.length() > limit ? text.Right(limit) : text;
}

}  // namespace

wxBEGIN_EVENT_TABLE(CDlgFTPMainWnd, wxFrame)
  EVT_MENU(ID_CONNECT, CDlgFTPMainWnd::OnConnect)
  EVT_BUTTON(ID_CONNECT, CDlgFTPMainWnd::OnConnect)
  EVT_MENU(ID_DISCONNECT, CDlgFTPMainWnd::OnDisconnect)
  EVT_BUTTON(ID_DISCONNECT, CDlgFTPMainWnd::OnDisconnect)
  EVT_MENU(ID_EXIT, CDlgFTPMainWnd::OnExit)
  EVT_BUTTON(ID_EXIT, CDlgFTPMainWnd::OnExit)
  EVT_BUTTON(ID_LOCAL, CDlgFTPMainWnd::OnLocal)
  EVT_BUTTON(ID_DOWNLOAD, CDlgFTPMainWnd::OnDownload)
  EVT_MENU(ID_DOWNLOAD, CDlgFTPMainWnd::OnDownload)
  EVT_BUTTON(ID_UPLOAD, CDlgFTPMainWnd::OnUpload)
  EVT_MENU(ID_UPLOAD, CDlgFTPMainWnd::OnUpload)
  EVT_MENU(ID_TRANSFER_MANAGER, CDlgFTPMainWnd::OnTransferManager)
  EVT_MENU(ID_SELECT_ALL, CDlgFTPMainWnd::OnSelectAll)
  EVT_MENU(ID_SELECT_FILES, CDlgFTPMainWnd::OnSelectAll)
  EVT_MENU(ID_SELECT_GROUPS, CDlgFTPMainWnd::OnSelectAll)
  EVT_MENU(ID_INVERT_SELECTION, CDlgFTPMainWnd::OnInvertSelection)
  EVT_MENU(::ID_LOCAL_NEW_DIRECTORY, CDlgFTPMainWnd::OnLocalNewDirectory)
  EVT_MENU(ID_BOOKMARK_MICROSOFT, CDlgFTPMainWnd::OnBookmarkMicrosoft)
  EVT_MENU(ID_BOOKMARK_FILE_EXPLORE, CDlgFTPMainWnd::OnBookmarkFileExplore)
  EVT_CLOSE(CDlgFTPMainWnd::OnClose)
  EVT_CHAR_HOOK(CDlgFTPMainWnd::OnCharHook)
wxEND_EVENT_TABLE()

CDlgFTPMainWnd::CDlgFTPMainWnd() : m_strLocalDir(wxGetHomeDir()) {}

CDlgFTPMainWnd::~CDlgFTPMainWnd() {
  // A modal run still going (its entry object was destroyed from a handler
  // the run dispatched) ends with Cancel; DoModal sees the window is gone.
  if (m_modalLoop) m_modalLoop->Exit(ftpzn::kResultCancel);
  if (!m_transferManagerWindow) m_pTransferManager = nullptr;  // gone before this window
  if (m_pTransferManager) {
    // The transfer manager lives as long as this window object: left
    // behind, a hidden top-level window would keep the host from exiting.
    // It deletes itself once its window is gone, and must not call back.
    m_pTransferManager->m_pFtpMainWnd = nullptr;
    m_pTransferManager->Destroy();
    m_pTransferManager = nullptr;
  }
}

bool CDlgFTPMainWnd::Create(int templateId, wxWindow* /*parent*/) {
  if (GetHandle()) return true;
  if (!wxFrame::Create(nullptr, templateId, "FTP transfer...", wxDefaultPosition, wxDefaultSize,
                       wxDEFAULT_FRAME_STYLE))
    return false;
  SetMenuBar(ftpzn::res::LoadMenuBar(ftpzn::res::kMenuMain));
  SetClientSize(kClientWidth, kClientHeight);
  m_panel = new wxPanel(this, wxID_ANY, wxPoint(0, 0), wxSize(kClientWidth, kClientHeight));
  CreateControls();
  OnInitDialog();
  return true;
}

void CDlgFTPMainWnd::CreateControls() {
  wxPanel* p = m_panel;
  auto iconButton = [p](int id, const char* tip, int y) {
    auto* b = new wxButton(p, id, wxEmptyString, wxPoint(404, y), wxSize(40, 40), wxBU_EXACTFIT);
    b->SetToolTip(tip);
    return b;
  };
  // Data exchange binds, in this order: the five buttons, the panes, the
  // edits and trace boxes, the splitter bars, the Exit button.
  m_btnDisconnect = iconButton(ID_DISCONNECT, "Disconnect", 220);
  m_btnUpload = iconButton(ID_UPLOAD, "Upload", 175);
  m_btnDownload = iconButton(ID_DOWNLOAD, "Download", 130);
  m_btnLocal = iconButton(ID_LOCAL, "Local", 85);
  m_btnRemote = iconButton(ID_CONNECT, "Connect", 40);
  m_ctrlLocal.Create(p, IDC_LOCAL_LIST, wxPoint(10, 40), wxSize(380, 444));
  m_ctrlRemote.Create(p, IDC_REMOTE_LIST, wxPoint(450, 40), wxSize(520, 444));
  m_editLocalDir = new wxTextCtrl(p, IDC_LOCAL_DIR, wxEmptyString, wxPoint(10, 10), wxSize(380, 24));
  m_editRemoteDir = new wxTextCtrl(p, IDC_REMOTE_DIR, wxEmptyString, wxPoint(450, 10), wxSize(520, 24));
  const long traceStyle = wxTE_MULTILINE | wxTE_RICH2 | wxHSCROLL;
  m_richLocalTrace =
      new wxTextCtrl(p, IDC_LOCAL_TRACE, wxEmptyString, wxPoint(10, 490), wxSize(380, 140), traceStyle);
  m_richRemoteTrace =
      new wxTextCtrl(p, IDC_REMOTE_TRACE, wxEmptyString, wxPoint(450, 490), wxSize(520, 140), traceStyle);
  m_barVertical = new SplitterBar(this, p, IDC_BAR_VERTICAL, wxRect(392, 40, 6, 290), true);
  m_barHorizontal = new SplitterBar(this, p, IDC_BAR_HORIZONTAL, wxRect(392, 484, 56, 6), false);
  m_btnExit = iconButton(ID_EXIT, "Exit", 265);
  m_tlsIndicator = new wxStaticBitmap(p, wxID_ANY, wxBitmapBundle(), wxPoint(946, 10), wxSize(24, 24));
  m_tlsIndicator->Hide();

  p->Bind(wxEVT_SIZE, &CDlgFTPMainWnd::OnClientSize, this);
  p->Bind(wxEVT_LEFT_DOWN, [this](wxMouseEvent& e) {
    OnSplitterButtonDown(e.GetPosition());
    e.Skip();
  });
  p->Bind(wxEVT_MOTION, [this](wxMouseEvent& e) {
    OnSplitterMouseMove(e.GetPosition());
    e.Skip();
  });
  p->Bind(wxEVT_LEFT_UP, [this](wxMouseEvent& e) {
    OnSplitterButtonUp();
    e.Skip();
  });
  p->Bind(wxEVT_MOUSE_CAPTURE_LOST, [](wxMouseCaptureLostEvent&) {});
}

void CDlgFTPMainWnd::OnInitDialog() {
  if (m_initialised) return;
  m_initialised = true;
  using namespace ftpzn::res;
  const wxSize iconSize(32, 32);
  m_btnRemote->SetBitmap(LoadIconBundle(kIconRemote, iconSize));
  m_btnLocal->SetBitmap(LoadIconBundle(kIconLocal, iconSize));
  m_btnDownload->SetBitmap(LoadIconBundle(kIconDownload, iconSize));
  m_btnUpload->SetBitmap(LoadIconBundle(kIconUpload, iconSize));
  m_btnDisconnect->SetBitmap(LoadIconBundle(kIconDisconnect, iconSize));
  m_btnExit->SetBitmap(LoadIconBundle(kIconExit, iconSize));
  static_cast<wxStaticBitmap*>(m_tlsIndicator)->SetBitmap(LoadIconBundle(kIconEncrypted, wxSize(20, 20)));

  m_ctrlLocal.CreateImageList();
  m_ctrlLocal.InsertColumns();
  m_ctrlLocal.m_pstrDirectory = &m_strLocalDir;
  m_ctrlLocal.m_pOwner = this;
  m_ctrlRemote.CreateImageList();
  m_ctrlRemote.InsertColumns();
  m_ctrlRemote.m_pstrDirectory = &m_strRemoteDir;
  m_ctrlRemote.m_pOwner = this;

  m_pTransferManager = new CDlgFtpTransferManager;
  m_pTransferManager->Create(m_nTransferManagerShow);
  m_pTransferManager->m_nTransferMax = ftpzn::ReadTransferMax();
  m_pTransferManager->m_nConnectionTimeout = ftpzn::ReadConnectionTimeout();
  m_pTransferManager->m_bRemoveFailed = ftpzn::ReadRemoveFailed();
  m_pTransferManager->m_pFtpMainWnd = this;
  m_transferManagerWindow = m_pTransferManager;

  SetIcon(LoadIcon(kIconMainWindow, 32));
  m_sizeMin = m_panel->GetClientSize();
  if (!m_strLocalDir.empty()) m_ctrlLocal.FillDirectory(m_strLocalDir);
  UpdateData(false);
}

int CDlgFTPMainWnd::DoModal() {
  // One modal run at a time: a second one on the same window could never
  // be ended, since Exit ends the innermost.
  if (m_modalLoop) return -1;
  if (!GetHandle()) {
    if (!Create()) return -1;
  } else if (!m_strLocalDir.empty()) {
    // Initialisation ran on an earlier show; the pane still moves to the
    // directory the caller stored.
    m_ctrlLocal.FillDirectory(m_strLocalDir);
    UpdateData(false);
  }
  Show();
  Raise();
  wxWeakRef<CDlgFTPMainWnd> self(this);
  // A window shown before (modeless) may have been disabled by a modal
  // dialog the host runs now: the run takes input all the same, and the
  // window goes back to that state afterwards.
  const bool wasEnabled = IsEnabled();
  Enable();
  // Modal for the host's windows, not for the transfer manager: the user
  // follows, cancels and resubmits transfers while the run goes on.
  wxWindowDisabler disabler(this, m_transferManagerWindow.get());
  wxGUIEventLoop loop;
  m_modalLoop = &loop;
  const int result = loop.Run();
  if (!self) return ftpzn::kResultCancel;
  m_modalLoop = nullptr;
  Hide();
  if (!wasEnabled) Disable();
  return result;
}

void CDlgFTPMainWnd::EndDialog(int result) {
  if (m_modalLoop) {
    m_modalLoop->Exit(result);
    return;
  }
  Hide();
}

bool CDlgFTPMainWnd::UpdateData(bool saveAndValidate) {
  if (!m_panel) return false;
  if (saveAndValidate) {
    const wxString trace = m_richRemoteTrace->GetValue();
    if (!ftpzn::CheckMaxChars(m_richRemoteTrace, trace, kTraceLimit)) return false;
    m_strLocalDir = m_editLocalDir->GetValue();
    m_strRemoteDir = m_editRemoteDir->GetValue();
    m_strLocalTrace = m_richLocalTrace->GetValue();
    m_strRemoteTrace = trace;
    return true;
  }
  ftpzn::SetTextIfChanged(m_editLocalDir, m_strLocalDir);
  ftpzn::SetTextIfChanged(m_editRemoteDir, m_strRemoteDir);
  ftpzn::SetTextIfChanged(m_richLocalTrace, m_strLocalTrace);
  // The pane shows the newest part of the trace; the trace itself grows.
  const wxString shown = NewestChars(m_strRemoteTrace, kTraceLimit);
  const wxString current = m_richRemoteTrace->GetValue();
  if (current != shown) {
    if (shown.StartsWith(current) && !current.empty())
      m_richRemoteTrace->AppendText(shown.Mid(current.length()));
    else
      m_richRemoteTrace->ChangeValue(shown);
    m_richRemoteTrace->ShowPosition(m_richRemoteTrace->GetLastPosition());
  }
  return true;
}

int CDlgFTPMainWnd::SetLocalDirectory(wxString dir) {
  if (dir.empty()) dir = wxGetHomeDir();
  m_ctrlLocal.FillDirectory(dir);
  m_strLocalDir = dir;
  m_ctrlLocal.m_pstrDirectory = &m_strLocalDir;
  UpdateData(false);
  return m_strLocalDir.empty() ? 0 : 1;
}

void CDlgFTPMainWnd::RefreshRemoteDirectory() {
  m_site.m_strInitialPath = m_strRemoteDir;
  UpdateData(false);
}

bool CDlgFTPMainWnd::AddTrace(uintptr_t, unsigned long dwThreadId, const wxString& text) {
  if (dwThreadId != 0)
    m_strRemoteTrace += wxString::Format("[%d] %s \n", static_cast<int>(dwThreadId), text);
  else
    m_strRemoteTrace += wxString::Format("%s \n", text);
  UpdateData(false);
  return true;
}

bool CDlgFTPMainWnd::TryBefore(wxEvent& event) {
  // Commands go to the local pane first, then the remote pane, then here.
  const wxEventType type = event.GetEventType();
  if (type == wxEVT_MENU || type == wxEVT_BUTTON) {
    if (m_ctrlLocal.GetHandle() && m_ctrlLocal.ProcessWindowEventLocally(event)) return true;
    if (m_ctrlRemote.GetHandle() && m_ctrlRemote.ProcessWindowEventLocally(event)) return true;
  }
  return wxFrame::TryBefore(event);
}

void CDlgFTPMainWnd::OnClientSize(wxSizeEvent& event) {
  event.Skip();
  const int W = event.GetSize().x;
  const int H = event.GetSize().y;
  if (W < m_sizeMin.x || H < m_sizeMin.y) return;
  if (!m_ctrlLocal.GetHandle() || !m_ctrlRemote.GetHandle() || !m_btnDownload || !m_btnUpload ||
      !m_btnDisconnect)
    return;
  const int T = m_richLocalTrace->GetRect().height;
  SetRight(m_editRemoteDir, W - 10 - (m_tlsIndicator->IsShown() ? kIndicatorRoom : 0));
  m_tlsIndicator->Move(W - 10 - m_tlsIndicator->GetSize().x, m_tlsIndicator->GetPosition().y);
  SetRight(&m_ctrlRemote, W - 10);
  SetRight(m_richRemoteTrace, W - 10);
  for (wxWindow* trace : {static_cast<wxWindow*>(m_richLocalTrace), static_cast<wxWindow*>(m_richRemoteTrace)}) {
    wxRect r = trace->GetRect();
    r.y = H - T - 10;
    r.height = T;
    trace->SetSize(r);
  }
  SetBottom(&m_ctrlLocal, H - T - 16);
  SetBottom(&m_ctrlRemote, H - T - 16);
  wxRect bar = m_barHorizontal->GetRect();
  bar.y = H - T - 10 - bar.height;
  m_barHorizontal->SetSize(bar);
}

void CDlgFTPMainWnd::ShowEncryption() {
  const ftpzn::inet::TlsPeerInfo* tls = m_pFtpConnection ? m_pFtpConnection->GetTlsInfo() : nullptr;
  if (tls) {
    m_tlsIndicator->SetToolTip(wxString::Format("Encrypted: %s, %s\nCertificate: %s%s",
                                                tls->protocol, tls->cipher, wxString::FromUTF8(tls->subject),
                                                tls->problem ? "\n(accepted by you: " +
                                                                   wxString::FromUTF8(tls->problemText) + ")"
                                                             : wxString()));
  }
  if (m_tlsIndicator->IsShown() == (tls != nullptr)) return;
  m_tlsIndicator->Show(tls != nullptr);
  SetRight(m_editRemoteDir, Right(m_editRemoteDir->GetRect()) + (tls ? -kIndicatorRoom : kIndicatorRoom));
}

void CDlgFTPMainWnd::OnSplitterButtonDown(const wxPoint& point) {
  if (m_barVertical->GetRect().Contains(point))
    m_nDragMode = 1;
  else if (m_barHorizontal->GetRect().Contains(point))
    m_nDragMode = 2;
  else
    m_nDragMode = 0;
  if (m_nDragMode != 0 && !m_panel->HasCapture()) m_panel->CaptureMouse();
  m_ptLast = point;
}

void CDlgFTPMainWnd::OnSplitterMouseMove(const wxPoint& point) {
  if (m_panel->HasCapture()) {
    if (m_nDragMode == 1) {
      const int dx = point.x - m_ptLast.x;
      if (std::abs(dx) >= 1) MoveVerticalSplit(dx);
    } else if (m_nDragMode == 2) {
      const int dy = point.y - m_ptLast.y;
      if (std::abs(dy) >= 1) MoveHorizontalSplit(dy);
    }
  }
  m_ptLast = point;
}

void CDlgFTPMainWnd::OnSplitterButtonUp() {
  // The drag mode stays; without the capture further moves do nothing.
  if (m_panel->HasCapture()) m_panel->ReleaseMouse();
}

void CDlgFTPMainWnd::MoveVerticalSplit(int d) {
  const wxSize client = m_panel->GetClientSize();
  const int R = Right(m_editLocalDir->GetRect()) + d;
  if (R >= client.x - 120 || R <= 0 + 60) return;
  for (wxWindow* w : {static_cast<wxWindow*>(m_editLocalDir), static_cast<wxWindow*>(&m_ctrlLocal),
                      static_cast<wxWindow*>(m_richLocalTrace)})
    SetRight(w, Right(w->GetRect()) + d);
  for (wxWindow* w : {static_cast<wxWindow*>(m_editRemoteDir), static_cast<wxWindow*>(&m_ctrlRemote),
                      static_cast<wxWindow*>(m_richRemoteTrace)})
    MoveLeftEdge(w, d);
  // The Local button is not among the controls that follow the split.
  for (wxWindow* w : {static_cast<wxWindow*>(m_btnRemote), static_cast<wxWindow*>(m_btnDownload),
                      static_cast<wxWindow*>(m_btnUpload), static_cast<wxWindow*>(m_btnDisconnect),
                      static_cast<wxWindow*>(m_btnExit), m_barVertical, m_barHorizontal})
    Shift(w, d, 0);
}

void CDlgFTPMainWnd::MoveHorizontalSplit(int d) {
  const wxSize client = m_panel->GetClientSize();
  const wxRect bar = m_barHorizontal->GetRect();
  const int newTop = bar.y + d;
  const int newBottom = Bottom(bar) + d;
  if (newTop <= Bottom(m_barVertical->GetRect()) || newBottom >= client.y - 20) return;
  Shift(m_barHorizontal, 0, d);
  SetBottom(&m_ctrlLocal, Bottom(m_ctrlLocal.GetRect()) + d);
  SetBottom(&m_ctrlRemote, Bottom(m_ctrlRemote.GetRect()) + d);
  MoveTopEdge(m_richLocalTrace, d);
  MoveTopEdge(m_richRemoteTrace, d);
}

void CDlgFTPMainWnd::OnClose(wxCloseEvent& event) {
  // The close box ends the run with Cancel and does not disconnect; the
  // window object belongs to its creator, so it is never destroyed here.
  if (event.CanVeto()) event.Veto();
  EndDialog(ftpzn::kResultCancel);
}

void CDlgFTPMainWnd::OnCharHook(wxKeyEvent& event) {
  // Escape cancels as in a dialog; Enter is left alone, so it never closes.
  if (event.GetKeyCode() == WXK_ESCAPE) {
    EndDialog(ftpzn::kResultCancel);
    return;
  }
  event.Skip();
}

void CDlgFTPMainWnd::OnDisconnect(wxCommandEvent&) { Disconnect(); }

void CDlgFTPMainWnd::OnExit(wxCommandEvent&) {
  Disconnect();
  if (!UpdateData(true)) return;
  EndDialog(ftpzn::kResultOk);
}

void CDlgFTPMainWnd::OnLocal(wxCommandEvent&) {
  const wxString path = ftpzn::BrowseForFolder(this, "Select a directory:", 1);
  // A cancelled chooser gives nothing: an empty directory would leave the
  // pane showing one folder while downloads went to the root.
  if (path.empty()) return;
  m_ctrlLocal.FillDirectory(path);
  m_strLocalDir = path;
  UpdateData(false);
}

void CDlgFTPMainWnd::OnTransferManager(wxCommandEvent&) {
  if (!m_pTransferManager || !m_transferManagerWindow) return;
  if (!m_pTransferManager->IsShown()) {
    m_pTransferManager->Show();
    m_pTransferManager->m_bShow = 1;
  } else {
    m_pTransferManager->Hide();
    m_pTransferManager->m_bShow = 0;
  }
}

void CDlgFTPMainWnd::OnSelectAll(wxCommandEvent&) {
  const long state = wxLIST_STATE_SELECTED | wxLIST_STATE_FOCUSED;
  const int localCount = m_ctrlLocal.GetItemCount();
  for (int i = 0; i < localCount; ++i) m_ctrlLocal.SetItemState(i, state, state);
  // Bounded by the local count on purpose; rows past the remote list's end
  // are skipped, rows past the local count keep their state.
  const int remoteCount = m_ctrlRemote.GetItemCount();
  for (int i = 0; i < localCount; ++i)
    if (i < remoteCount) m_ctrlRemote.SetItemState(i, state, state);
}

void CDlgFTPMainWnd::OnInvertSelection(wxCommandEvent&) {
  for (CFtpListzn* pane : {static_cast<CFtpListzn*>(&m_ctrlLocal), static_cast<CFtpListzn*>(&m_ctrlRemote)}) {
    const int count = pane->GetItemCount();
    for (int i = 0; i < count; ++i) {
      const bool selected = pane->GetItemState(i, wxLIST_STATE_SELECTED) != 0;
      pane->SetItemState(i, selected ? 0 : wxLIST_STATE_SELECTED, wxLIST_STATE_SELECTED);
    }
  }
}

void CDlgFTPMainWnd::OnLocalNewDirectory(wxCommandEvent&) {
  if (!m_ctrlLocal.GetHandle()) return;
  wxCommandEvent command(wxEVT_MENU, ::ID_LOCAL_NEW_DIRECTORY);
  command.SetEventObject(&m_ctrlLocal);
  m_ctrlLocal.ProcessWindowEventLocally(command);
}

void CDlgFTPMainWnd::OnBookmarkMicrosoft(wxCommandEvent&) {
  // Assumes a sixth popup without checking; where there is none (the
  // window's own menu has five), appending fails and nothing changes.
  wxMenuBar* bar = GetMenuBar();
  if (bar && bar->GetMenuCount() > 5) bar->GetMenu(5)->Append(100, "MO");
}

void CDlgFTPMainWnd::OnBookmarkFileExplore(wxCommandEvent&) {}
