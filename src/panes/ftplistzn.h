// The two file panes of the main window. Both are report lists with four
// columns whose cell texts come from the row records on demand (a virtual
// list, so a pane holds 100,000 rows without delay); the base knows nothing
// of where rows come from, the local and remote panes fill and navigate.
#pragma once

#include <wx/listctrl.h>
#include <wx/weakref.h>

#include <cstdint>
#include <vector>

#include "panes/filetexts.h"
#include "panes/localfs.h"
#include "ui/eventguard.h"

class CDlgFTPMainWnd;
namespace ftpzn::inet {
class CFtpConnection;
class CFtpFileFind;
}  // namespace ftpzn::inet

// The row record of either pane, known by this name module-wide.
using ftpzn::FileListItem;
class wxGenericAnimationCtrl;

// Commands of the "Local" menu, handled by the local pane.
enum LocalPaneCommand : int {
  ID_LOCAL_UP_DIRECTORY = 9100,
  ID_LOCAL_REFRESH = 9101,
  ID_LOCAL_NEW_DIRECTORY = 9102,
  ID_LOCAL_DELETE_DIRECTORY = 9103,
  ID_LOCAL_CHANGE_DIRECTORY = 9104,
  ID_LOCAL_SAVE_LIST = 9112,
  ID_LOCAL_DELETE_FILE = 9121,
  ID_LOCAL_DELETE = 9123,
  ID_LOCAL_DELETE_RECURSIVE = 9124,
};

class CFtpListzn : public ftpzn::EventGuard<wxListCtrl> {
 public:
  CFtpListzn() = default;
  ~CFtpListzn() override;
  bool Create(wxWindow* parent, wxWindowID id, const wxPoint& pos, const wxSize& size);

  int CreateImageList();
  int InsertColumns();
  virtual int GoUpDirectory() { return 1; }
  virtual int OpenItem(int /*row*/) { return 1; }

  // The row inserts. Each returns the new row's index, or -1.
  int InsertFoundItem(int row, const ftpzn::LocalFoundEntry& found);
  // The name is taken by value: a caller that has no further use for its
  // string moves it in, which saves a copy per row of a long listing.
  int InsertFoundItem(int row, wxString name, uint64_t length, uint64_t lastWrite, bool directory,
                      bool link = false);
  // The variant that asked the first platform's list to keep the texts; a
  // virtual list asks for them every time, so it inserts the same row.
  int InsertFoundItemKeepingTexts(int row, const wxString& name, uint64_t length, uint64_t lastWrite,
                                  bool directory);
  // Any enumeration that tells name, length, last-write file time and kind
  // (the remote one as well as the local one).
  template <typename Finder>
  requires requires(const Finder& f, uint64_t& t) {
    f.GetFileName();
    f.GetLength();
    f.GetLastWriteTime(t);
    f.IsDirectory();
  }
  int InsertFoundItem(int row, const Finder& found) {
    uint64_t lastWrite = 0;
    found.GetLastWriteTime(lastWrite);
    return InsertFoundItem(row, wxString(found.GetFileName()), found.GetLength(), lastWrite,
                           found.IsDirectory());
  }
  int InsertParentItem();
  // A file row dated now, unless a row of that name exists (any case).
  int InsertNamedItem(int row, const wxString& name, unsigned size);
  // A folder row of size 0 dated now.
  int InsertNamedFolder(int row, const wxString& name);
  // Releases every row with its record. Hides the control's own, so that a
  // caller clearing a pane releases the records too.
  void ClearRows();
  bool DeleteAllItems();

  unsigned GetItemSize(int row) const;
  int IsItemFolder(int row) const;
  // The type text a row shows: asked of the desktop for the rows being
  // painted only, and kept once known.
  const wxString& GetItemTypeText(int row) const;
  // The record of a row, or null past the end.
  const FileListItem* GetRecord(int row) const;
  // Column 0 of a row: the name.
  wxString GetRowName(int row) const;
  // The selection walk: the next selected row after `after` (-1 to start),
  // or -1 when there is none.
  int GetNextSelectedRow(int after) const;

  static wxString FormatSizeKb(uint32_t low, uint32_t high) { return ftpzn::FormatSizeKb(low, high); }
  static void CollectLocalTree(const wxString& folder, std::vector<ftpzn::LocalTreeLine>& lines) {
    ftpzn::CollectLocalTree(folder, lines);
  }

  // The busy animation over the list, a child of `parent`. Showing it while
  // shown returns 0.
  int ShowBusyAnimation(bool on, wxWindow* parent);

  // A double click on `row` (-1 below the rows): row 0 always goes up.
  void DoubleClickRow(int row);
  // Lists the current directory again; nothing without one.
  virtual void RefreshList() {}

  // The order the user chose by clicking a column header: -1 (none: rows
  // stay in the order they were listed) or the column, and its direction.
  // Folders come first either way, the parent row always first.
  int GetSortColumn() const { return m_sortColumn; }
  bool IsSortAscending() const { return m_sortAscending; }

  // The directory text the pane shows; owned by the main window.
  wxString* m_pstrDirectory = nullptr;
  CDlgFTPMainWnd* m_pOwner = nullptr;
  int m_bBusy = 0;

 protected:
  wxString OnGetItemText(long item, long column) const override;
  int OnGetItemImage(long item) const override;
  // Pushes the owner's fields to its controls so the path box follows.
  void RefreshOwnerFields();
  // Pops up popup `index` of the main menu at the event's point; its
  // commands come to this pane.
  void ShowMainMenuPopup(int index, const wxContextMenuEvent& event);

  // Room for `count` rows, for a fill that knows how many are coming.
  void ReserveRows(size_t count);
  // The key under which the column widths the user dragged are kept in the
  // profile store; null keeps none.
  virtual const char* ColumnsKey() const { return nullptr; }
  // While filling, the control learns the row count once at the end.
  class FillBatch {
   public:
    explicit FillBatch(CFtpListzn& list) : m_list(list) { ++m_list.m_fillDepth; }
    ~FillBatch();
    FillBatch(const FillBatch&) = delete;
    FillBatch& operator=(const FillBatch&) = delete;

   private:
    CFtpListzn& m_list;
  };

 private:
  int InsertRecord(int row, FileListItem record);
  void SyncItemCount();
  // Puts the rows in the chosen order; with `keepSelection` the selected
  // and focused rows stay so, wherever they move.
  void SortRows(bool keepSelection);
  // Every row but the parent row: what a transfer of "everything" wants.
  void SelectAllEntries();
  // The headings, the sorted one with an arrow for its direction.
  void ShowSortHeading();
  void OnMouseDoubleClick(wxMouseEvent& event);
  void OnKeyDown(wxKeyEvent& event);
  void OnColumnClick(wxListEvent& event);

  // Mutable for the type texts, filled in as rows are first painted: the
  // desktop's type guess for every row of a large listing cost as much as
  // the listing itself.
  mutable std::vector<FileListItem> m_rows;
  int m_fillDepth = 0;
  int m_sortColumn = -1;
  bool m_sortAscending = true;
  wxWeakRef<wxGenericAnimationCtrl> m_busyAnimation;
};

// The left pane: one local directory.
class CFtpListzn1Local : public CFtpListzn {
 public:
  bool Create(wxWindow* parent, wxWindowID id, const wxPoint& pos, const wxSize& size);

  int FillDirectory(const wxString& path);
  void RefreshList() override;
  int UpdatePathDisplay();
  int GoUpDirectory() override;
  int OpenItem(int row) override;

  // Recursive removal of a local folder, telling failures in message boxes.
  int DeleteLocalTree(const wxString& path);
  // What a drop of desktop files does: lists the folder of the first path.
  void DropPaths(const wxArrayString& paths);

 private:
  const char* ColumnsKey() const override { return "Local"; }
  // The current directory, or null when there is none to work in.
  const wxString* CurrentDirectory() const;
  // Clears the list and shows what `find` found, parent row first.
  void ShowFound(ftpzn::LocalFileFind& find);
  void DeleteSelection(int command);

  void OnUpDirectory(wxCommandEvent& event);
  void OnRefresh(wxCommandEvent& event);
  void OnChangeDirectory(wxCommandEvent& event);
  void OnNewDirectory(wxCommandEvent& event);
  void OnUpdateNewDirectory(wxUpdateUIEvent& event);
  void OnDelete(wxCommandEvent& event);
  void OnContextMenu(wxContextMenuEvent& event);

  wxDECLARE_EVENT_TABLE();
};

// Commands of the "Remote" menu, handled by the remote pane.
enum RemotePaneCommand : int {
  ID_REMOTE_REFRESH = 9107,
  ID_REMOTE_UP_DIRECTORY = 9108,
  ID_REMOTE_CHANGE_DIRECTORY = 9109,
  ID_REMOTE_NEW_DIRECTORY = 9110,
  ID_REMOTE_DELETE_DIRECTORY = 9111,
  ID_REMOTE_SAVE_LIST = 9113,
  ID_REMOTE_DELETE_FILE = 9126,
  ID_REMOTE_DELETE = 9127,
  ID_REMOTE_DELETE_RECURSIVE = 9128,
};

// The right pane: one directory of the FTP server, reached over the main
// window's connection. Every listing enumerates the server's current
// directory, and names are given to the server relative to it.
class CFtpListzn1Remote : public CFtpListzn {
 public:
  bool Create(wxWindow* parent, wxWindowID id, const wxPoint& pos, const wxSize& size);

  // Lists the server's directory after asking it to change to `path` (when
  // not empty; the answer is not checked). 0 when nothing could be listed:
  // the rows then stay. The current directory text is left alone.
  int FillDirectory(const wxString& path, ftpzn::inet::CFtpConnection* connection, bool update);
  void RefreshList() override;
  int UpdatePathDisplay();
  int GoUpDirectory() override;
  int OpenItem(int row) override;
  // The first row whose name equals `name` in any case, or -1.
  int FindItemByName(const wxString& name) const;
  // Empties and removes a server directory, sub-directories after the
  // enumeration that found them is closed. 1 on success, 0 at the first
  // failure, which it does not report.
  int DeleteRemoteTree(const wxString& path);
  // What a drop of desktop files does: it reads the dropped folders and
  // sends nothing; uploads go through the upload command.
  void DropPaths(const wxArrayString& paths);

  // The main window's connection, not owned; null before the first one.
  // Whoever closes the connection sets it back to null.
  ftpzn::inet::CFtpConnection* m_pConnection = nullptr;

 private:
  const char* ColumnsKey() const override { return "Remote"; }
  // Clears the list and shows what `find` finds, parent row first.
  void ShowFound(ftpzn::inet::CFtpFileFind& find, bool found);
  // Reads the server's directory into the current directory text; false
  // when the server does not tell it.
  bool ReadServerDirectory();
  void DeleteSelection(int command);
  void SaveList();

  void OnRefresh(wxCommandEvent& event);
  void OnUpDirectory(wxCommandEvent& event);
  void OnChangeDirectory(wxCommandEvent& event);
  void OnNewDirectory(wxCommandEvent& event);
  void OnDelete(wxCommandEvent& event);
  void OnSaveList(wxCommandEvent& event);
  void OnContextMenu(wxContextMenuEvent& event);

  wxDECLARE_EVENT_TABLE();
};
