// The main window's Download (9075) and Upload (9077) commands: the
// selection of one pane becomes queued transfers, after asking before
// anything of the same name on the other side is replaced; folders go
// through the tree walks, which show a progress window when they take a
// while.
#include <wx/utils.h>

#include <chrono>
#include <memory>
#include <vector>

#include "connection/treewalk.h"
#include "inet/inet.h"
#include "mainwnd/dlgftpmainwnd.h"
#include "panes/filetexts.h"
#include "panes/localfs.h"
#include "transfer/dlgftptransfermanager.h"
#include "transfer/dlgprogress.h"
#include "transfer/dlgreplace.h"
#include "ui/dialogs.h"

namespace {

using Clock = std::chrono::steady_clock;

// A walk shows its progress window once it has lasted this long.
constexpr auto kProgressDelay = std::chrono::milliseconds(500);

// What the walks tell the user, and the progress window with Cancel. While
// that window shows, the other windows take no input: the walk blocks the
// commands; painting and its Cancel go on.
class WalkProgress : public ftpzn::TreeWalkObserver {
 public:
  explicit WalkProgress(CDlgFTPMainWnd* window) : m_window(window), m_start(Clock::now()) {}
  ~WalkProgress() override {
    m_disabler.reset();
    if (m_dialog) m_dialog->DestroyWindow();
  }
  void Message(const wxString& text) override { ftpzn::MessageBox(text, 0, m_window); }
  void Trace(const wxString& text) override { m_window->AddTrace(0, 0, text); }
  bool Continue(const wxString& directory, size_t entries) override {
    if (m_cancel.IsSet()) return false;
    if (!m_dialog && Clock::now() - m_start >= kProgressDelay) {
      auto dialog = std::make_unique<CDlgProgress>();
      if (dialog->Create(m_window, &m_cancel)) {
        // The count has no end to measure against: the bar stays, the
        // animation and the lines move.
        dialog->SetUpper(0);
        dialog->CentreOnParent();
        dialog->Show();
        m_dialog = dialog.release();
        m_disabler = std::make_unique<wxWindowDisabler>(m_dialog);
      }
    }
    if (m_dialog) {
      m_dialog->SetLine1(directory);
      m_dialog->SetLine2(wxString::Format("%zu entries", entries));
      m_dialog->SetPos(static_cast<int>(entries));
    }
    return !m_cancel.IsSet();
  }

 private:
  CDlgFTPMainWnd* m_window;
  Clock::time_point m_start;
  ftpzn::ManualResetEvent m_cancel;
  CDlgProgress* m_dialog = nullptr;
  std::unique_ptr<wxWindowDisabler> m_disabler;
};

wxString WithOneTrailingSlash(wxString path) {
  while (path.EndsWith("/")) path.RemoveLast();
  return path + "/";
}

// A selected row as it stood when the command began: windows may be
// listed again while the command runs (a transfer that ends refreshes
// them).
struct Selected {
  wxString name;
  FileListItem record;
};

std::vector<Selected> SelectedRows(const CFtpListzn& pane) {
  std::vector<Selected> rows;
  for (int row = pane.GetNextSelectedRow(-1); row != -1; row = pane.GetNextSelectedRow(row)) {
    if (const FileListItem* record = pane.GetRecord(row)) rows.push_back({record->name, *record});
  }
  return rows;
}

// The answer to "replace it?": 6 Yes, 9061 Yes to All, 7 No, else Cancel.
int AskReplace(wxWindow* parent, bool folder, int count, const wxString& name, const wxString& existing,
               const wxString& replacement) {
  if (folder) {
    CDlgReplaceFold dialog(parent);
    dialog.m_nCount = count;
    dialog.m_strName = name;
    return dialog.ShowModal();
  }
  CDlgReplaceFile dialog(parent);
  dialog.m_nCount = count;
  dialog.m_strName = name;
  dialog.m_strExisting = existing;
  dialog.m_strNew = replacement;
  return dialog.ShowModal();
}

// The local entry's description for a replace prompt; empty when it is
// not there.
bool DescribeLocal(const wxString& path, wxString& description) {
  ftpzn::LocalFoundEntry entry;
  if (!ftpzn::StatLocalPath(path, entry)) return false;
  description = ftpzn::DescribeForReplace(entry.length, entry.lastWrite);
  return true;
}

enum class Go { On, Skip, Stop };

// Asks unless Yes to All was answered before; Yes to All is remembered.
Go Confirm(wxWindow* parent, bool& yesToAll, bool folder, int count, const wxString& name,
           const wxString& existing, const wxString& replacement) {
  if (yesToAll) return Go::On;
  switch (AskReplace(parent, folder, count, name, existing, replacement)) {
    case ftpzn::kResultYes:
      return Go::On;
    case ftpzn::kResultYesToAll:
      yesToAll = true;
      return Go::On;
    case ftpzn::kResultNo:
      return Go::Skip;
    default:
      return Go::Stop;
  }
}

}  // namespace

ftpzn::TransferSite CDlgFTPMainWnd::CurrentTransferSite() const {
  ftpzn::TransferSite site;
  site.server = m_strServerName;
  site.login = m_site.m_strLogin;
  site.password = m_site.m_strPassword;
  site.retries = static_cast<uint32_t>(m_site.m_nRetries);
  site.retryDelay = static_cast<uint32_t>(m_site.m_nRetryDelay);
  site.port = static_cast<uint32_t>(m_site.m_nPort);
  site.passive = m_site.m_bPassive != 0;
  site.tls = m_tlsMode;
  site.acceptedCertificate = wxString::FromUTF8(m_strAcceptedCertificate);
  return site;
}

int CDlgFTPMainWnd::DownloadRemoteDirectory(const wxString& remotePath, const wxString& localBase) {
  WalkProgress progress(this);
  return ftpzn::DownloadRemoteDirectory(m_pFtpConnection.get(), *m_pTransferManager, CurrentTransferSite(),
                                        remotePath, localBase, progress)
             ? 1
             : 0;
}

int CDlgFTPMainWnd::UploadLocalDirectory(const wxString& localPath, const wxString& remoteBase) {
  WalkProgress progress(this);
  return ftpzn::UploadLocalDirectory(m_pFtpConnection.get(), *m_pTransferManager, CurrentTransferSite(),
                                     localPath, remoteBase, progress)
             ? 1
             : 0;
}

void CDlgFTPMainWnd::OnDownload(wxCommandEvent&) {
  if (!m_pFtpConnection) {
    ftpzn::MessageBox("Please connect a ftp site first!", 0, this);
    return;
  }
  // Without a local directory every target would become "/" + name.
  if (m_strLocalDir.empty()) {
    ftpzn::MessageBox("Please choose a local directory first!", 0, this);
    return;
  }
  if (!m_pFtpConnection->SetCurrentDirectory(m_strRemoteDir.ToStdWstring())) {
    ftpzn::MessageBox(wxString::Format("SetCurrentDirectory:%s error:%d", m_strRemoteDir,
                                       static_cast<int>(ftpzn::inet::GetLastError())),
                      0, this);
    return;
  }
  wxBusyCursor wait;
  const std::vector<Selected> rows = SelectedRows(m_ctrlRemote);
  const int count = m_ctrlRemote.GetSelectedItemCount();
  const wxString localBase = WithOneTrailingSlash(m_strLocalDir);
  const wxString remoteBase = WithOneTrailingSlash(m_strRemoteDir);
  bool yesToAll = false;
  for (const Selected& row : rows) {
    // A name from the server that is no local name never becomes a path.
    if (!ftpzn::IsSafeEntryName(row.name)) {
      AddTrace(0, 0, wxString::Format("Skipped \"%s\": not a name a file can have here", row.name));
      continue;
    }
    const wxString localTarget = localBase + row.name;
    wxString existing;
    if (DescribeLocal(localTarget, existing)) {
      const Go go = Confirm(this, yesToAll, row.record.folder != 0, count, row.name, existing,
                            ftpzn::DescribeForReplace(row.record.size, row.record.time));
      if (go == Go::Skip) continue;
      if (go == Go::Stop) return;
    }
    if (row.record.folder) {
      if (!DownloadRemoteDirectory(remoteBase + row.name, localTarget)) return;
    } else {
      m_pTransferManager->AddDownload(CurrentTransferSite().ArgsFor(
          row.name, localBase, remoteBase, row.record.size, static_cast<uint32_t>(m_nTransferType)));
      m_arrDownloadResults.Add(localBase + row.name);
    }
  }
}

void CDlgFTPMainWnd::OnUpload(wxCommandEvent&) {
  if (!m_pFtpConnection) {
    ftpzn::MessageBox("Please connect ftp site first", 0, this);
    return;
  }
  if (m_strLocalDir.empty()) {
    ftpzn::MessageBox("Please choose a local directory first!", 0, this);
    return;
  }
  wxBusyCursor wait;
  const std::vector<Selected> rows = SelectedRows(m_ctrlLocal);
  const int count = m_ctrlLocal.GetSelectedItemCount();
  const wxString localBase = WithOneTrailingSlash(m_strLocalDir);
  const wxString remoteBase = WithOneTrailingSlash(m_strRemoteDir);
  bool yesToAll = false;
  for (const Selected& row : rows) {
    const int remoteRow = m_ctrlRemote.FindItemByName(row.name);
    if (remoteRow >= 0) {
      // The entry there is the one replaced; the local one replaces it.
      const FileListItem* there = m_ctrlRemote.GetRecord(remoteRow);
      wxString local;
      DescribeLocal(localBase + row.name, local);
      const Go go = Confirm(this, yesToAll, row.record.folder != 0, count, row.name,
                            there ? ftpzn::DescribeForReplace(there->size, there->time) : wxString(), local);
      if (go == Go::Skip) continue;
      if (go == Go::Stop) return;
    }
    if (row.record.folder) {
      if (!UploadLocalDirectory(WithOneTrailingSlash(localBase + row.name), remoteBase + row.name)) return;
    } else {
      m_pTransferManager->AddUpload(CurrentTransferSite().ArgsFor(
          row.name, localBase, remoteBase, row.record.size, static_cast<uint32_t>(m_nTransferType)));
    }
  }
}
