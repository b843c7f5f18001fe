#include "panes/ftplistzn.h"

#include <wx/animate.h>
#include <wx/generic/animate.h>
#include <wx/imaglist.h>
#include <wx/menu.h>

#include <algorithm>
#include <exception>
#include <memory>
#include <numeric>
#include <utility>

#include "mainwnd/dlgftpmainwnd.h"
#include "res/menus.h"
#include "res/resources.h"
#include "sites/preferences.h"
#include "ui/dialogs.h"

namespace {
constexpr int kFolderImage = 0;
constexpr int kFileImage = 1;
constexpr int kBusyAnimationId = 9065;
constexpr int kColumnCount = 4;
const char* const kHeadings[kColumnCount] = {"Name", "Size", "Type", "Created"};

bool IsParentRow(const FileListItem& record) {
  return record.folder && record.name == "..Up" && record.typeText == "..Up";
}

template <typename T>
int Compare(const T& a, const T& b) {
  return a < b ? -1 : b < a ? 1 : 0;
}
}  // namespace

CFtpListzn::~CFtpListzn() = default;

bool CFtpListzn::Create(wxWindow* parent, wxWindowID id, const wxPoint& pos, const wxSize& size) {
  if (!wxListCtrl::Create(parent, id, pos, size, wxLC_REPORT | wxLC_VIRTUAL | wxBORDER_SUNKEN)) return false;
#if (defined(__WXMSW__) || defined(__WXQT__)) && !defined(__WXUNIVERSAL__)
  Bind(wxEVT_LEFT_DCLICK, &CFtpListzn::OnMouseDoubleClick, this);
#else
  // The generic list takes its mouse input in its inner rows window, not in
  // the header: a double click is caught there and hit-tested in that
  // window's coordinates, the ones HitTest expects. The rows window is only
  // declared in a private header; it is a plain wxWindow, found among the
  // children by its address.
  for (wxWindow* child : GetChildren()) {
    if (static_cast<void*>(child) == static_cast<void*>(m_mainWin)) {
      child->Bind(wxEVT_LEFT_DCLICK, &CFtpListzn::OnMouseDoubleClick, this);
      // Ahead of the list's own keys: Enter there only reports an
      // activation, and a letter starts a search by name.
      child->Bind(wxEVT_KEY_DOWN, &CFtpListzn::OnKeyDown, this);
    }
  }
#endif
#if (defined(__WXMSW__) || defined(__WXQT__)) && !defined(__WXUNIVERSAL__)
  Bind(wxEVT_KEY_DOWN, &CFtpListzn::OnKeyDown, this);
#endif
  Bind(wxEVT_LIST_COL_CLICK, &CFtpListzn::OnColumnClick, this);
  return true;
}

int CFtpListzn::CreateImageList() {
  auto* images = new wxImageList(16, 16, true, 0);
  const wxSize small(16, 16);
  images->Add(ftpzn::res::LoadIconBundle(ftpzn::res::kIconFolder, small).GetBitmap(small));
  images->Add(ftpzn::res::LoadIconBundle(ftpzn::res::kIconFile, small).GetBitmap(small));
  AssignImageList(images, wxIMAGE_LIST_SMALL);
  return 0;
}

int CFtpListzn::InsertColumns() {
  // Measured in the font the list draws with, so that sizes and dates fit
  // whatever the desktop's font; the name takes what room is left, and at
  // least enough for a name of some twenty characters.
  constexpr int kMargin = 16;
  constexpr int kIcon = 20;
  // The largest size a row holds is 4 GiB less one byte.
  const int size = GetTextExtent("4,194,304 KB").x + kMargin;
  const int type = GetTextExtent("plain text").x + kMargin;
  const int date = GetTextExtent("88/88/88/88/88/88").x + kMargin;
  const int scrollBar = 20;
  const int room = GetClientSize().x - size - type - date - scrollBar;
  const int name = std::max(room, GetTextExtent("A typical file name.txt").x + kIcon + kMargin);
  const struct {
    wxListColumnFormat format;
    int width;
  } columns[kColumnCount] = {{wxLIST_FORMAT_LEFT, name},
                             {wxLIST_FORMAT_RIGHT, size},
                             {wxLIST_FORMAT_LEFT, type},
                             {wxLIST_FORMAT_LEFT, date}};
  for (int i = 0; i < kColumnCount; ++i) {
    const int width =
        ColumnsKey() ? ftpzn::ReadColumnWidth(ColumnsKey(), i, columns[i].width) : columns[i].width;
    InsertColumn(i, kHeadings[i], columns[i].format, width);
  }
  if (ColumnsKey()) ftpzn::KeepDraggedColumnWidths(*this, ColumnsKey());
  return 1;
}

void CFtpListzn::ShowSortHeading() {
  // An arrow in the text: the theme's own sort mark is faint and sits over
  // the text of a right-aligned heading.
  for (int i = 0; i < GetColumnCount() && i < kColumnCount; ++i) {
    wxString heading = kHeadings[i];
    if (i == m_sortColumn) heading << (m_sortAscending ? L" \u25B2" : L" \u25BC");
    wxListItem column;
    column.SetMask(wxLIST_MASK_TEXT);
    column.SetText(heading);
    SetColumn(i, column);
  }
}

CFtpListzn::FillBatch::~FillBatch() {
  if (--m_list.m_fillDepth == 0) {
    m_list.SortRows(false);
    m_list.SyncItemCount();
  }
}

void CFtpListzn::SortRows(bool keepSelection) {
  if (m_sortColumn < 0 || m_rows.size() < 2) return;
  const size_t first = IsParentRow(m_rows.front()) ? 1 : 0;
  if (m_sortColumn == 2) {
    for (size_t i = first; i < m_rows.size(); ++i) GetItemTypeText(static_cast<int>(i));
  }
  const int column = m_sortColumn;
  auto compare = [column](const FileListItem& a, const FileListItem& b) {
    switch (column) {
      case 1:
        return Compare(a.size, b.size);
      case 2:
        return a.typeText.CmpNoCase(b.typeText);
      case 3:
        return Compare(a.time, b.time);
      default:
        return 0;
    }
  };
  std::vector<size_t> order(m_rows.size() - first);
  std::iota(order.begin(), order.end(), first);
  const bool ascending = m_sortAscending;
  std::stable_sort(order.begin(), order.end(), [&](size_t x, size_t y) {
    const FileListItem& a = m_rows[x];
    const FileListItem& b = m_rows[y];
    if ((a.folder != 0) != (b.folder != 0)) return a.folder != 0;
    int c = compare(a, b);
    if (c == 0) c = a.name.CmpNoCase(b.name);
    if (c == 0) c = a.name.Cmp(b.name);
    return ascending ? c < 0 : c > 0;
  });

  std::vector<long> selected;
  long focused = -1;
  if (keepSelection) {
    for (int row = GetNextSelectedRow(-1); row != -1; row = GetNextSelectedRow(row)) selected.push_back(row);
    focused = GetNextItem(-1, wxLIST_NEXT_ALL, wxLIST_STATE_FOCUSED);
  }
  std::vector<FileListItem> sorted;
  sorted.reserve(m_rows.size());
  std::vector<long> moved(m_rows.size());
  for (size_t i = 0; i < first; ++i) {
    moved[i] = static_cast<long>(i);
    sorted.push_back(std::move(m_rows[i]));
  }
  for (size_t from : order) {
    moved[from] = static_cast<long>(sorted.size());
    sorted.push_back(std::move(m_rows[from]));
  }
  m_rows.swap(sorted);
  if (keepSelection) {
    SetItemState(-1, 0, wxLIST_STATE_SELECTED);
    for (long row : selected)
      SetItemState(moved[static_cast<size_t>(row)], wxLIST_STATE_SELECTED, wxLIST_STATE_SELECTED);
    if (focused >= 0)
      SetItemState(moved[static_cast<size_t>(focused)], wxLIST_STATE_FOCUSED, wxLIST_STATE_FOCUSED);
  }
  Refresh();
}

void CFtpListzn::OnColumnClick(wxListEvent& event) {
  const int column = event.GetColumn();
  if (column < 0 || column >= kColumnCount) return;
  m_sortAscending = column == m_sortColumn ? !m_sortAscending : true;
  m_sortColumn = column;
  ShowSortHeading();
  wxBusyCursor wait;
  SortRows(true);
}

void CFtpListzn::SelectAllEntries() {
  if (GetItemCount() == 0) return;
  SetItemState(-1, wxLIST_STATE_SELECTED, wxLIST_STATE_SELECTED);
  if (IsParentRow(m_rows.front())) SetItemState(0, 0, wxLIST_STATE_SELECTED);
}

void CFtpListzn::OnKeyDown(wxKeyEvent& event) {
  const int key = event.GetKeyCode();
  const int modifiers = event.GetModifiers();
  if (modifiers == wxMOD_CONTROL && key == 'A') {
    SelectAllEntries();
    return;
  }
  if (modifiers != wxMOD_NONE) {
    event.Skip();
    return;
  }
  switch (key) {
    case WXK_RETURN:
    case WXK_NUMPAD_ENTER: {
      // The row the keyboard stands on, as a double click on it would.
      long row = GetNextItem(-1, wxLIST_NEXT_ALL, wxLIST_STATE_FOCUSED);
      if (row < 0) row = GetNextSelectedRow(-1);
      wxBusyCursor wait;
      DoubleClickRow(static_cast<int>(row));
      return;
    }
    case WXK_BACK: {
      wxBusyCursor wait;
      GoUpDirectory();
      return;
    }
    case WXK_F5: {
      wxBusyCursor wait;
      RefreshList();
      return;
    }
    default:
      // Delete stays unbound: the deletes ask nothing before they act.
      event.Skip();
  }
}

void CFtpListzn::SyncItemCount() {
  if (m_fillDepth > 0) return;
  SetItemCount(static_cast<long>(m_rows.size()));
  Refresh();
}

int CFtpListzn::InsertRecord(int row, FileListItem record) {
  if (row < 0) return -1;
  const size_t at = std::min(static_cast<size_t>(row), m_rows.size());
  try {
    m_rows.insert(m_rows.begin() + static_cast<std::ptrdiff_t>(at), std::move(record));
  } catch (const std::bad_alloc&) {
    return -1;
  }
  SyncItemCount();
  return static_cast<int>(at);
}

int CFtpListzn::InsertFoundItem(int row, wxString name, uint64_t length, uint64_t lastWrite, bool directory,
                                bool link) {
  FileListItem record;
  record.name = std::move(name);
  record.size = static_cast<uint32_t>(length);
  record.time = lastWrite;
  record.folder = directory ? 1 : 0;
  record.link = link ? 1 : 0;
  if (directory) record.typeText = "Folder";
  return InsertRecord(row, std::move(record));
}

int CFtpListzn::InsertFoundItem(int row, const ftpzn::LocalFoundEntry& found) {
  return InsertFoundItem(row, found.name, found.length, found.lastWrite, found.directory);
}

int CFtpListzn::InsertFoundItemKeepingTexts(int row, const wxString& name, uint64_t length,
                                            uint64_t lastWrite, bool directory) {
  return InsertFoundItem(row, name, length, lastWrite, directory);
}

int CFtpListzn::InsertParentItem() { return InsertRecord(0, ftpzn::MakeParentItem()); }

int CFtpListzn::InsertNamedItem(int row, const wxString& name, unsigned size) {
  for (const FileListItem& existing : m_rows) {
    if (existing.name.IsSameAs(name, false)) return -1;
  }
  FileListItem record;
  record.name = name;
  record.size = size;
  record.time = ftpzn::FileTimeNow();
  return InsertRecord(row, std::move(record));
}

int CFtpListzn::InsertNamedFolder(int row, const wxString& name) {
  FileListItem record;
  record.name = name;
  record.typeText = "Folder";
  record.time = ftpzn::FileTimeNow();
  record.folder = 1;
  return InsertRecord(row, std::move(record));
}

void CFtpListzn::ClearRows() { DeleteAllItems(); }

void CFtpListzn::ReserveRows(size_t count) {
  try {
    m_rows.reserve(count);
  } catch (const std::exception&) {
    // Without the room the rows still go in one by one.
  }
}

bool CFtpListzn::DeleteAllItems() {
  m_rows.clear();
  m_rows.shrink_to_fit();
  return wxListCtrl::DeleteAllItems();
}

const FileListItem* CFtpListzn::GetRecord(int row) const {
  if (row < 0 || static_cast<size_t>(row) >= m_rows.size()) return nullptr;
  return &m_rows[static_cast<size_t>(row)];
}

unsigned CFtpListzn::GetItemSize(int row) const {
  const FileListItem* record = GetRecord(row);
  return record ? record->size : 0;
}

int CFtpListzn::IsItemFolder(int row) const {
  const FileListItem* record = GetRecord(row);
  return record ? record->folder : 0;
}

const wxString& CFtpListzn::GetItemTypeText(int row) const {
  static const wxString none;
  if (row < 0 || static_cast<size_t>(row) >= m_rows.size()) return none;
  FileListItem& record = m_rows[static_cast<size_t>(row)];
  if (record.typeText.empty()) record.typeText = ftpzn::ShellTypeText(record.name);
  return record.typeText;
}

wxString CFtpListzn::GetRowName(int row) const {
  const FileListItem* record = GetRecord(row);
  return record ? record->name : wxString();
}

int CFtpListzn::GetNextSelectedRow(int after) const {
  return static_cast<int>(GetNextItem(after, wxLIST_NEXT_ALL, wxLIST_STATE_SELECTED));
}

wxString CFtpListzn::OnGetItemText(long item, long column) const {
  const FileListItem* record = GetRecord(static_cast<int>(item));
  if (!record) return {};
  switch (column) {
    case 0:
      return ftpzn::DisplayText(record->name);
    case 1:
      return record->folder ? wxString() : ftpzn::FormatSizeKb(record->size, 0);
    case 2:
      return ftpzn::DisplayText(GetItemTypeText(static_cast<int>(item)));
    case 3:
      // A time that cannot be shown leaves the cell empty.
      return ftpzn::FormatFileDate(record->time).value_or(wxString());
    default:
      return {};
  }
}

int CFtpListzn::OnGetItemImage(long item) const {
  const FileListItem* record = GetRecord(static_cast<int>(item));
  return record && !record->folder ? kFileImage : kFolderImage;
}

void CFtpListzn::RefreshOwnerFields() {
  if (m_pOwner) m_pOwner->UpdateData(false);
}

void CFtpListzn::DoubleClickRow(int row) {
  if (row < 0) return;
  if (row == 0) {
    GoUpDirectory();
  } else {
    OpenItem(row);
  }
}

void CFtpListzn::OnMouseDoubleClick(wxMouseEvent& event) {
  int flags = 0;
  const long row = HitTest(event.GetPosition(), flags);
  DoubleClickRow(static_cast<int>(row));
}

int CFtpListzn::ShowBusyAnimation(bool on, wxWindow* parent) {
  if (!on) {
    m_bBusy = 0;
    if (m_busyAnimation) {
      wxGenericAnimationCtrl* animation = m_busyAnimation.get();
      animation->Stop();
      animation->Hide();
      if (IsFrozen()) Thaw();
      Refresh();
      m_busyAnimation = nullptr;
      animation->CallAfter([animation] { animation->Destroy(); });
    }
    return 1;
  }
  if (m_busyAnimation) return 0;
  const wxRect area = GetClientRect();
  wxWindow* host = parent ? parent : GetParent();
  auto* animation = new wxGenericAnimationCtrl(host, kBusyAnimationId, wxNullAnimation, wxDefaultPosition,
                                               wxDefaultSize, wxAC_DEFAULT_STYLE | wxAC_NO_AUTORESIZE);
  wxAnimation frames = animation->CreateAnimation();
  const bool loaded = ftpzn::res::LoadAnimation(ftpzn::res::kAnimationBusy, frames);
  const wxSize size = loaded ? frames.GetSize() : wxSize(32, 32);
  // Centred over the list, in the parent's coordinates.
  wxPoint centre = area.GetPosition() + wxPoint((area.width - size.x) / 2, (area.height - size.y) / 2);
  if (host != this) centre = host->ScreenToClient(ClientToScreen(centre));
  animation->SetSize(wxRect(centre, size));
  animation->Show();
  if (loaded) {
    animation->SetAnimation(frames);
    animation->Play(true);
  }
  m_busyAnimation = animation;
  m_bBusy = 1;
  return 1;
}

void CFtpListzn::ShowMainMenuPopup(int index, const wxContextMenuEvent& event) {
  std::unique_ptr<wxMenu> menu(ftpzn::res::LoadPopup(ftpzn::res::kMenuMain, index));
  if (!menu) return;
  wxPoint at = event.GetPosition();
  at = at == wxDefaultPosition ? wxDefaultPosition : ScreenToClient(at);
  PopupMenu(menu.get(), at);
}
