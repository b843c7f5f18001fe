#include <wx/dnd.h>
#include <wx/file.h>
#include <wx/filedlg.h>
#include <wx/log.h>
#include <wx/utils.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "inet/inet.h"
#include "mainwnd/dlgftpmainwnd.h"
#include "panes/ftplistzn.h"
#include "panes/remotepaths.h"
#include "ui/dialogs.h"
#include "ui/dlginputstring.h"

namespace inet = ftpzn::inet;

namespace {

// The code the delete commands test for a directory that is not empty. It
// is the local file system's code; the FTP engine reports a refused RMD as
// a refused command instead, so the remote recursive branch waits for a
// connection that answers with it.
constexpr uint32_t kErrorDirNotEmpty = 145;
// Each enumeration tells the session's status callback this context.
constexpr uintptr_t kFindContext = 1;

class RemotePaneDropTarget : public wxFileDropTarget {
 public:
  explicit RemotePaneDropTarget(CFtpListzn1Remote* pane) : m_pane(pane) {}
  bool OnDropFiles(wxCoord, wxCoord, const wxArrayString& paths) override {
    m_pane->DropPaths(paths);
    return true;
  }

 private:
  CFtpListzn1Remote* m_pane;
};

void Tell(const wxString& text) { ftpzn::MessageBox(text); }

int LastError() { return static_cast<int>(inet::GetLastError()); }

bool IsDotsName(const wxString& name) {
  return name.length() <= 2 && (name.IsSameAs(".", false) || name.IsSameAs("..", false));
}

// The entry's name as a row holds it. Most names are ASCII, which is the
// same text in every reading: those are made straight from the listed
// bytes, which spares the general decoding a long listing's every row.
wxString RowName(const inet::CFtpFileFind& find) {
  const std::string_view bytes = find.GetEntryView().name;
  for (char c : bytes) {
    if (static_cast<unsigned char>(c) >= 0x80) return wxString(find.GetFileName());
  }
  return wxString::FromAscii(bytes.data(), bytes.size());
}

bool AskName(wxWindow* parent, const wxString& title, const wxString* initial, wxString& typed) {
  CDlgInputString dialog(parent);
  dialog.m_strTitle = title;
  if (initial) dialog.m_strInput = *initial;
  if (dialog.ShowModal() != ftpzn::kResultOk) return false;
  typed = dialog.m_strInput;
  return true;
}

}  // namespace

bool CFtpListzn1Remote::Create(wxWindow* parent, wxWindowID id, const wxPoint& pos, const wxSize& size) {
  if (!CFtpListzn::Create(parent, id, pos, size)) return false;
  SetDropTarget(new RemotePaneDropTarget(this));
  return true;
}

void CFtpListzn1Remote::ShowFound(inet::CFtpFileFind& find, bool found) {
  FillBatch batch(*this);
  ClearRows();
  if (found) ReserveRows(find.GetCount() + 1);
  InsertParentItem();
  int row = 1;
  // The finder stands before its first entry; its step answers false once
  // it has moved onto the last one.
  for (bool more = found; more;) {
    more = find.FindNextFile();
    wxString name = RowName(find);
    if (IsDotsName(name)) continue;
    uint64_t lastWrite = 0;
    find.GetLastWriteTime(lastWrite);
    const bool link = find.MatchesMask(inet::FILE_ATTRIBUTE_REPARSE_POINT);
    if (InsertFoundItem(row, std::move(name), find.GetLength(), lastWrite, find.IsDirectory(), link) >= 0)
      ++row;
  }
}

bool CFtpListzn1Remote::ReadServerDirectory() {
  std::wstring directory;
  if (!m_pConnection->GetCurrentDirectory(directory)) return false;
  if (m_pstrDirectory) *m_pstrDirectory = directory;
  return true;
}

int CFtpListzn1Remote::FillDirectory(const wxString& path, inet::CFtpConnection* connection, bool update) {
  wxBusyCursor wait;
  if (!connection) return 0;
  m_pConnection = connection;
  if (!path.empty()) connection->SetCurrentDirectory(path.ToStdWstring());
  inet::CFtpFileFind find(connection, kFindContext);
  if (!find.FindFile(nullptr, inet::INTERNET_FLAG_RELOAD)) {
    find.Close();
    return 0;
  }
  ShowFound(find, true);
  find.Close();
  if (update) UpdatePathDisplay();
  return 1;
}

void CFtpListzn1Remote::RefreshList() {
  if (!m_pstrDirectory || !m_pConnection) return;
  const wxString directory = *m_pstrDirectory;
  FillDirectory(directory, m_pConnection, true);
}

int CFtpListzn1Remote::UpdatePathDisplay() {
  TransferDataToWindow();
  if (m_pOwner && m_pstrDirectory) m_pOwner->RefreshRemoteDirectory();
  return 1;
}

int CFtpListzn1Remote::OpenItem(int row) {
  if (!m_pConnection) {
    Tell("Please connect FTP site first!");
    return 0;
  }
  const FileListItem* record = GetRecord(row);
  if (!record || (!record->folder && !record->link)) return 0;
  const bool link = !record->folder;
  const wxString current = m_pstrDirectory ? *m_pstrDirectory : wxString();
  const wxString path = current + "/" + record->name;
  inet::CFtpFileFind find(m_pConnection, kFindContext);
  if (!m_pConnection->SetCurrentDirectory(path.ToStdWstring())) {
    // A link is only tried as a folder: one the server will not enter (a
    // link to a file, or to nothing) leaves the pane as it was, unannounced.
    if (!link) Tell(wxString::Format("Set directory:%s error:%d \n", path, LastError()));
    find.Close();
    return 0;
  }
  // An empty directory finds nothing either: it shows the parent row alone.
  ShowFound(find, find.FindFile(nullptr, inet::INTERNET_FLAG_RELOAD));
  if (!ReadServerDirectory()) Tell(wxString::Format("Get FTP connect directiory error:%d \n", LastError()));
  find.Close();
  UpdatePathDisplay();
  return 1;
}

int CFtpListzn1Remote::GoUpDirectory() {
  if (!m_pConnection) return 0;
  const wxString current = m_pstrDirectory ? *m_pstrDirectory : wxString();
  m_pConnection->SetCurrentDirectory(ftpzn::RemoteParentDirectory(current).ToStdWstring());
  inet::CFtpFileFind find(m_pConnection, kFindContext);
  if (!find.FindFile(nullptr, inet::INTERNET_FLAG_RELOAD)) {
    find.Close();
    return 0;
  }
  ShowFound(find, true);
  ReadServerDirectory();
  find.Close();
  UpdatePathDisplay();
  return 1;
}

int CFtpListzn1Remote::FindItemByName(const wxString& name) const {
  const int count = GetItemCount();
  for (int row = 0; row < count; ++row) {
    if (GetRowName(row).IsSameAs(name, false)) return row;
  }
  return -1;
}

void CFtpListzn1Remote::OnRefresh(wxCommandEvent&) {
  if (m_pstrDirectory && m_pConnection) FillDirectory(*m_pstrDirectory, m_pConnection, true);
}

void CFtpListzn1Remote::OnUpDirectory(wxCommandEvent&) {
  wxBusyCursor wait;
  if (m_pConnection) GoUpDirectory();
}

void CFtpListzn1Remote::OnChangeDirectory(wxCommandEvent&) {
  wxBusyCursor wait;
  if (!m_pstrDirectory || m_pstrDirectory->empty() || !m_pConnection) return;
  const wxString prefill = "To Directory";
  wxString typed;
  if (!AskName(this, "Type new directory name", &prefill, typed)) return;
  FillDirectory(ftpzn::RemoteChangeDirectoryPath(*m_pstrDirectory, typed), m_pConnection, true);
}

void CFtpListzn1Remote::OnNewDirectory(wxCommandEvent&) {
  wxBusyCursor wait;
  if (!m_pstrDirectory || m_pstrDirectory->empty() || !m_pConnection) return;
  const wxString current = *m_pstrDirectory;
  if (!m_pConnection->SetCurrentDirectory(current.ToStdWstring())) {
    Tell(wxString::Format("Set directory:%s error:%d ", current, LastError()));
    return;
  }
  wxString typed;
  if (!AskName(this, "Type directory name", nullptr, typed)) return;
  const wxString path = ftpzn::RemoteNewDirectoryPath(current, typed);
  if (!m_pConnection->CreateDirectory(path.ToStdWstring())) {
    Tell(wxString::Format("Create directory error:%s error:%d", path, LastError()));
    return;
  }
  RefreshList();
}

void CFtpListzn1Remote::OnDelete(wxCommandEvent& event) {
  wxBusyCursor wait;
  DeleteSelection(event.GetId());
}

void CFtpListzn1Remote::DeleteSelection(int command) {
  if (!m_pstrDirectory || !m_pConnection) return;
  const wxString current = *m_pstrDirectory;
  if (!m_pConnection->SetCurrentDirectory(current.ToStdWstring())) {
    // Three distinct texts, the odd trailing '%' printed as it stands.
    const wxString format =
        command == ID_REMOTE_DELETE ? "Set directory:%s error:%d" : "Set directory:%s error:%d%%";
    Tell(wxString::Format(format, current, LastError()));
    return;
  }
  // A backslash, as the local pane joins: it shows in the file message and
  // in the recursive path, and the server decides what the latter means.
  const wxString base = current.EndsWith("\\") ? current : current + "\\";
  for (int row = GetNextSelectedRow(-1); row != -1; row = GetNextSelectedRow(row)) {
    const wxString name = GetRowName(row);
    if (IsItemFolder(row)) {
      if (command == ID_REMOTE_DELETE_FILE) continue;
      if (m_pConnection->RemoveDirectory(name.ToStdWstring())) continue;
      const int error = LastError();
      if (error == static_cast<int>(kErrorDirNotEmpty) && command == ID_REMOTE_DELETE_RECURSIVE) {
        DeleteRemoteTree(wxString::Format("%s/%s", base, name));
        Tell(wxString());
      } else if (error == static_cast<int>(kErrorDirNotEmpty)) {
        Tell(wxString::Format("Directory:%s is not empty!", name));
      } else {
        Tell(wxString::Format("Remove directory:%s error:%d", name, error));
      }
    } else {
      if (command == ID_REMOTE_DELETE_DIRECTORY) continue;
      if (!m_pConnection->Remove(name.ToStdWstring())) {
        Tell(wxString::Format("Delete file:%s error:%d", base + name, LastError()));
      }
    }
  }
  RefreshList();
}

int CFtpListzn1Remote::DeleteRemoteTree(const wxString& path) {
  if (!m_pConnection || !m_pstrDirectory) return 0;
  std::wstring remembered;
  if (!m_pConnection->GetCurrentDirectory(remembered)) return 0;
  if (!m_pConnection->SetCurrentDirectory(path.ToStdWstring())) return 0;
  std::vector<std::wstring> directories;
  {
    inet::CFtpFileFind find(m_pConnection, kFindContext);
    for (bool more = find.FindFile(nullptr, inet::INTERNET_FLAG_RELOAD); more;) {
      more = find.FindNextFile();
      const std::wstring name = find.GetFileName();
      if (IsDotsName(name)) continue;
      if (find.IsDirectory()) {
        directories.push_back(name);
      } else if (!m_pConnection->Remove(name)) {
        find.Close();
        return 0;
      }
    }
    find.Close();
  }
  // One enumeration at a time on a connection: sub-directories only now.
  for (const std::wstring& directory : directories) {
    if (!DeleteRemoteTree(directory)) return 0;
  }
  if (!m_pConnection->SetCurrentDirectory(remembered)) return 0;
  if (!m_pConnection->RemoveDirectory(path.ToStdWstring())) return 0;
  return 1;
}

void CFtpListzn1Remote::OnSaveList(wxCommandEvent&) { SaveList(); }

void CFtpListzn1Remote::SaveList() {
  wxFileDialog dialog(this, "Save As", wxString(), wxString(),
                      "Text file (*.doc)|*.doc|ASCII file(*.txt)|*.txt|All Files(*.*)|*.*",
                      wxFD_SAVE | wxFD_OVERWRITE_PROMPT);
  if (dialog.ShowModal() != wxID_OK) return;
  const wxString path = ftpzn::SaveListFilePath(dialog.GetPath());
  // Failures end the command without a message; keep wx from showing one.
  wxLogNull quiet;
  wxFile file;
  if (!file.Create(path, true)) return;
  if (!m_pConnection) return;
  const wxString current = m_pstrDirectory ? *m_pstrDirectory : wxString();
  // The list written is the parent's: the server is moved there first.
  m_pConnection->SetCurrentDirectory(ftpzn::RemoteParentDirectory(current).ToStdWstring());
  inet::CFtpFileFind find(m_pConnection, kFindContext);
  for (bool more = find.FindFile(nullptr, inet::INTERNET_FLAG_RELOAD); more;) {
    more = find.FindNextFile();
    const wxString name(find.GetFileName());
    if (IsDotsName(name)) continue;
    const std::string bytes = ftpzn::SaveListEntryBytes(name);
    if (file.Write(bytes.data(), bytes.size()) != bytes.size()) return;
  }
  ReadServerDirectory();
  find.Close();
  file.Flush();
  file.Close();
}

void CFtpListzn1Remote::DropPaths(const wxArrayString& paths) {
  for (const wxString& full : paths) {
    const wxString dropped = full.Left(260);
    if (!ftpzn::LocalPathHasDirectoryAttribute(dropped)) continue;
    std::vector<ftpzn::LocalTreeLine> lines;
    CollectLocalTree(dropped, lines);
    // Each file's folder relative to the drop, in server form. Nothing is
    // sent: uploads start only from the upload command.
    const wxString cut = dropped.Left(static_cast<size_t>(dropped.Find(wxFILE_SEP_PATH, true) + 1));
    std::vector<wxString> relativeFolders;
    relativeFolders.reserve(lines.size());
    for (const ftpzn::LocalTreeLine& line : lines) {
      wxString relative = line.folder.Mid(cut.length());
      relative.Replace(wxString(wxFILE_SEP_PATH), "/");
      relativeFolders.push_back(relative);
    }
  }
  UpdatePathDisplay();
}

void CFtpListzn1Remote::OnContextMenu(wxContextMenuEvent& event) {
  // The fourth popup of the main menu, "Remote"; its commands come here.
  ShowMainMenuPopup(3, event);
}

// clang-format off
wxBEGIN_EVENT_TABLE(CFtpListzn1Remote, CFtpListzn)
  EVT_MENU(ID_REMOTE_REFRESH, CFtpListzn1Remote::OnRefresh)
  EVT_MENU(ID_REMOTE_UP_DIRECTORY, CFtpListzn1Remote::OnUpDirectory)
  EVT_MENU(ID_REMOTE_CHANGE_DIRECTORY, CFtpListzn1Remote::OnChangeDirectory)
  EVT_MENU(ID_REMOTE_NEW_DIRECTORY, CFtpListzn1Remote::OnNewDirectory)
  EVT_MENU(ID_REMOTE_DELETE, CFtpListzn1Remote::OnDelete)
  EVT_MENU(ID_REMOTE_DELETE_FILE, CFtpListzn1Remote::OnDelete)
  EVT_MENU(ID_REMOTE_DELETE_DIRECTORY, CFtpListzn1Remote::OnDelete)
  EVT_MENU(ID_REMOTE_DELETE_RECURSIVE, CFtpListzn1Remote::OnDelete)
  EVT_MENU(ID_REMOTE_SAVE_LIST, CFtpListzn1Remote::OnSaveList)
  EVT_CONTEXT_MENU(CFtpListzn1Remote::OnContextMenu)
wxEND_EVENT_TABLE()
    // clang-format on
