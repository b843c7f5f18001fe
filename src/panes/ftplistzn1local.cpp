#include <wx/dnd.h>
#include <wx/utils.h>


#include "panes/ftplistzn.h"
#include "ui/dialogs.h"
#include "ui/dlginputstring.h"

namespace {

// Drops from the desktop only list the folder of what was dropped.
class LocalPaneDropTarget : public wxFileDropTarget {
 public:
  explicit LocalPaneDropTarget(CFtpListzn1Local* pane) : m_pane(pane) {}
  bool OnDropFiles(wxCoord, wxCoord, const wxArrayString& paths) override {
    m_pane->DropPaths(paths);
    return true;
  }

 private:
  CFtpListzn1Local* m_pane;
};

void Tell(const wxString& text) { ftpzn::MessageBox(text); }

// The name input dialog: true and the typed text on OK. Without `initial`
// the dialog's own pre-filled text is offered.
bool AskName(wxWindow* parent, const wxString& title, const wxString* initial, wxString& typed) {
  CDlgInputString dialog(parent);
  dialog.m_strTitle = title;
  if (initial) dialog.m_strInput = *initial;
  if (dialog.ShowModal() != ftpzn::kResultOk) return false;
  typed = dialog.m_strInput;
  return true;
}

}  // namespace

bool CFtpListzn1Local::Create(wxWindow* parent, wxWindowID id, const wxPoint& pos, const wxSize& size) {
  if (!CFtpListzn::Create(parent, id, pos, size)) return false;
  SetDropTarget(new LocalPaneDropTarget(this));
  return true;
}

const wxString* CFtpListzn1Local::CurrentDirectory() const {
  if (!m_pstrDirectory || m_pstrDirectory->empty()) return nullptr;
  return m_pstrDirectory;
}

void CFtpListzn1Local::ShowFound(ftpzn::LocalFileFind& find) {
  FillBatch batch(*this);
  ClearRows();
  InsertParentItem();
  int row = 1;
  while (find.Next()) {
    if (find.IsDots()) continue;
    if (InsertFoundItem(row, find.Current()) >= 0) ++row;
  }
}

int CFtpListzn1Local::FillDirectory(const wxString& path) {
  if (path.empty()) return 0;
  ftpzn::LocalFileFind find;
  if (!find.FindFile(ftpzn::LocalSearchPattern(path))) {
    Tell("Find local fold error, trying defaul...");
    bool listed = false;
    for (const wxString& fallback : ftpzn::LocalFallbackDirectories()) {
      if (find.FindFile(ftpzn::LocalSearchPattern(fallback))) {
        listed = true;
        break;
      }
    }
    if (!listed) {
      find.Close();
      return 0;
    }
  }
  ShowFound(find);
  // The path asked for is kept even when a fallback was listed instead: the
  // path box then names the unreadable directory over the fallback's rows.
  if (m_pstrDirectory) *m_pstrDirectory = ftpzn::StripPatternTail(path);
  find.Close();
  UpdatePathDisplay();
  return 1;
}

void CFtpListzn1Local::RefreshList() {
  if (!m_pstrDirectory) return;
  const wxString directory = *m_pstrDirectory;
  FillDirectory(directory);
}

int CFtpListzn1Local::UpdatePathDisplay() {
  TransferDataToWindow();
  if (m_pOwner && m_pstrDirectory) RefreshOwnerFields();
  return 1;
}

int CFtpListzn1Local::OpenItem(int row) {
  const FileListItem* record = GetRecord(row);
  const wxString* current = CurrentDirectory();
  if (!record || !record->folder || !current) return 0;
  const wxString directory = ftpzn::JoinLocalPath(*current, record->name);
  ftpzn::LocalFileFind find;
  if (!find.FindFile(ftpzn::LocalSearchPattern(directory))) {
    Tell(wxString::Format("Find file error:%d", find.LastError()));
    return 0;
  }
  ShowFound(find);
  find.Close();
  *m_pstrDirectory = directory;
  UpdatePathDisplay();
  return 1;
}

int CFtpListzn1Local::GoUpDirectory() {
  const wxString* current = CurrentDirectory();
  if (!current) return 0;
  wxString parent;
  if (!ftpzn::LocalParentDirectory(*current, parent)) {
    Tell("Can't go up!");
    return 0;
  }
  ftpzn::LocalFileFind find;
  if (!find.FindFile(ftpzn::LocalSearchPattern(parent))) {
    Tell(wxString::Format("File file error:%d", find.LastError()));
    return 0;
  }
  ShowFound(find);
  find.Close();
  *m_pstrDirectory = parent;
  UpdatePathDisplay();
  return 1;
}

void CFtpListzn1Local::OnUpDirectory(wxCommandEvent&) {
  wxBusyCursor wait;
  if (m_pstrDirectory) GoUpDirectory();
}

void CFtpListzn1Local::OnRefresh(wxCommandEvent&) {
  wxBusyCursor wait;
  if (m_pstrDirectory) FillDirectory(*m_pstrDirectory);
}

void CFtpListzn1Local::OnChangeDirectory(wxCommandEvent&) {
  wxBusyCursor wait;
  const wxString* current = CurrentDirectory();
  if (!current) return;
  const wxString prefill = "To Directory";
  wxString typed;
  if (!AskName(this, "Type new directory name", &prefill, typed)) return;
  // The typed text is always taken as relative to the current directory.
  const wxString pattern =
      ftpzn::CollapseSeparators(ftpzn::LocalSearchPattern(wxString::Format("%s/%s", *current, typed)));
  ftpzn::LocalFileFind find;
  if (!find.FindFile(pattern)) {
    Tell("Find local directory error!");
    return;
  }
  ShowFound(find);
  *m_pstrDirectory = ftpzn::StripPatternTail(pattern);
  find.Close();
  UpdatePathDisplay();
}

void CFtpListzn1Local::OnNewDirectory(wxCommandEvent&) {
  wxBusyCursor wait;
  const wxString* current = CurrentDirectory();
  if (!current) return;
  wxString typed;
  if (!AskName(this, "Type directory name", nullptr, typed)) return;
  const wxString path = ftpzn::CollapseSeparators(wxString::Format("%s/%s", *current, typed));
  if (const int error = ftpzn::CreateLocalDirectory(path)) {
    Tell(wxString::Format("Create directory error:%s error:%d", path, error));
    return;
  }
  RefreshList();
}

void CFtpListzn1Local::OnUpdateNewDirectory(wxUpdateUIEvent&) {}

void CFtpListzn1Local::OnDelete(wxCommandEvent& event) {
  wxBusyCursor wait;
  DeleteSelection(event.GetId());
}

void CFtpListzn1Local::DeleteSelection(int command) {
  if (!m_pstrDirectory) return;
  const wxString& current = *m_pstrDirectory;
  const wxString base = current.EndsWith("/") ? current : current + "/";
  for (int row = GetNextSelectedRow(-1); row != -1; row = GetNextSelectedRow(row)) {
    const wxString path = base + GetRowName(row);
    if (IsItemFolder(row)) {
      if (command == ID_LOCAL_DELETE_FILE) continue;
      const int error = ftpzn::RemoveLocalDirectory(path);
      if (error == 0) continue;
      if (command == ID_LOCAL_DELETE_RECURSIVE && ftpzn::IsDirNotEmpty(error)) {
        DeleteLocalTree(path);
      } else if (command != ID_LOCAL_DELETE_RECURSIVE && ftpzn::IsDirNotEmpty(error)) {
        Tell(wxString::Format("Directory:%s is not empty!", path));
      } else {
        Tell(wxString::Format("Remove directory:%s error:%d", path, error));
      }
    } else {
      if (command == ID_LOCAL_DELETE_DIRECTORY) continue;
      if (const int error = ftpzn::DeleteLocalFile(path)) {
        Tell(wxString::Format("Delete file:%s error:%d", path, error));
      }
    }
  }
  RefreshList();
}

int CFtpListzn1Local::DeleteLocalTree(const wxString& path) { return ftpzn::DeleteLocalTree(path, Tell); }

void CFtpListzn1Local::DropPaths(const wxArrayString& paths) {
  wxBusyCursor wait;
  if (!paths.empty()) {
    wxString dropped = paths[0].Left(260);
    if (ftpzn::LocalPathHasDirectoryAttribute(dropped)) dropped = ftpzn::LocalSearchPattern(dropped);
    // A dropped file lists the folder that holds it. What cannot be found
    // leaves the rows as they are.
    ftpzn::LocalFileFind find;
    if (find.FindFile(dropped) && find.Next()) {
      const wxString pattern = ftpzn::LocalSearchPattern(find.GetRoot());
      find.Close();
      if (find.FindFile(pattern)) ShowFound(find);
    }
    // The current directory stays as it was: the rows now show the dropped
    // folder while the path box and every command keep the previous one.
  }
  UpdatePathDisplay();
}

void CFtpListzn1Local::OnContextMenu(wxContextMenuEvent& event) {
  // The third popup of the main menu, "Local"; its commands come to this pane.
  ShowMainMenuPopup(2, event);
}

// clang-format off
wxBEGIN_EVENT_TABLE(CFtpListzn1Local, CFtpListzn)
  EVT_MENU(ID_LOCAL_UP_DIRECTORY, CFtpListzn1Local::OnUpDirectory)
  EVT_MENU(ID_LOCAL_REFRESH, CFtpListzn1Local::OnRefresh)
  EVT_MENU(ID_LOCAL_CHANGE_DIRECTORY, CFtpListzn1Local::OnChangeDirectory)
  EVT_MENU(ID_LOCAL_NEW_DIRECTORY, CFtpListzn1Local::OnNewDirectory)
  EVT_UPDATE_UI(ID_LOCAL_NEW_DIRECTORY, CFtpListzn1Local::OnUpdateNewDirectory)
  EVT_MENU(ID_LOCAL_DELETE, CFtpListzn1Local::OnDelete)
  EVT_MENU(ID_LOCAL_DELETE_FILE, CFtpListzn1Local::OnDelete)
  EVT_MENU(ID_LOCAL_DELETE_DIRECTORY, CFtpListzn1Local::OnDelete)
  EVT_MENU(ID_LOCAL_DELETE_RECURSIVE, CFtpListzn1Local::OnDelete)
  EVT_CONTEXT_MENU(CFtpListzn1Local::OnContextMenu)
wxEND_EVENT_TABLE()
    // clang-format on
