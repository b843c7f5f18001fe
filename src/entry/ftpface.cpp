#include <ftpzn/ftpface.h>

#include <wx/toplevel.h>
#include <wx/weakref.h>

#include <new>
#include <stdexcept>

#include "mainwnd/dlgftpmainwnd.h"

namespace {

// Compares addresses only: `window` may point at an object already gone.
bool IsLiveWindow(const CDlgFTPMainWnd* window) {
  const wxWindow* address = window;
  for (const wxWindow* w : wxTopLevelWindows)
    if (w == address) return !w->IsBeingDeleted();
  return false;
}

}  // namespace

Cftpface::Cftpface() : m_pMainWnd(nullptr) {}

Cftpface::Cftpface(const Cftpface& other) : m_pMainWnd(other.m_pMainWnd) {}

Cftpface& Cftpface::operator=(const Cftpface& other) {
  m_pMainWnd = other.m_pMainWnd;
  return *this;
}

Cftpface::~Cftpface() {
  if (m_pMainWnd) {
    // Only a window that is still there is deleted: the framework deletes
    // every open window when it shuts down (a host may keep this object in
    // its application object, which goes after that), and a copy of this
    // object may have deleted the shared window already.
    if (IsLiveWindow(m_pMainWnd)) delete m_pMainWnd;
    m_pMainWnd = nullptr;
  }
}

int Cftpface::showFrameWnd(wxString localDir, wxWindow* /*parent*/) {
  if (m_pMainWnd && !IsLiveWindow(m_pMainWnd)) m_pMainWnd = nullptr;  // deleted behind our back
  if (!m_pMainWnd) {
    auto* window = new (std::nothrow) CDlgFTPMainWnd;
    if (!window || !window->Create(CDlgFTPMainWnd::IDD, nullptr)) return 0;
    m_pMainWnd = window;
  }
  // Shown "normal": a window the user minimised comes back, in front.
  if (m_pMainWnd->IsIconized()) m_pMainWnd->Iconize(false);
  m_pMainWnd->Show();
  m_pMainWnd->Raise();
  m_pMainWnd->SetLocalDirectory(localDir);
  m_pMainWnd->Update();
  return 1;
}

int Cftpface::showFtpMainDoMo(wxString localDir, wxArrayString* results, wxWindow* /*parent*/) {
  if (m_pMainWnd && !IsLiveWindow(m_pMainWnd)) m_pMainWnd = nullptr;
  CDlgFTPMainWnd* window = m_pMainWnd;
  const bool ownWindow = window == nullptr;
  if (ownWindow) window = new CDlgFTPMainWnd;
  if (localDir.empty()) localDir = wxGetHomeDir();
  window->m_strLocalDir = localDir;
  wxWeakRef<CDlgFTPMainWnd> alive(window);
  const int result = window->DoModal();
  // Deleted during the run (with this entry object, perhaps): touch neither.
  if (!alive) return 0;
  int ok = 0;
  if (result == 1) {
    if (results) {
      const wxArrayString& list = window->m_arrDownloadResults;
      for (size_t i = 0; i < list.size(); ++i) results->Add(list[i]);
    }
    ok = 1;
  }
  // A window made for this run only is released once the run is over.
  if (ownWindow) window->Destroy();
  return ok;
}

Cftpfacezn::~Cftpfacezn() = default;
