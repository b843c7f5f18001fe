#include "panes/ftplistzn.h"

#include <wx/animate.h>
#include <wx/generic/animate.h>
#include <wx/imaglist.h>
#include <wx/menu.h>

#include <algorithm>
#include <exception>
#include <memory>
#include <utility>

#include "mainwnd/dlgftpmainwnd.h"
#include "res/menus.h"
#include "res/resources.h"

namespace {
constexpr int kFolderImage = 0;
constexpr int kFileImage = 1;
constexpr int kBusyAnimationId = 9065;
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
    if (static_cast<void*>(child) == static_cast<void*>(m_mainWin))
      child->Bind(wxEVT_LEFT_DCLICK, &CFtpListzn::OnMouseDoubleClick, this);
  }
#endif
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
  InsertColumn(0, "Name", wxLIST_FORMAT_LEFT, 90);
  InsertColumn(1, "Size", wxLIST_FORMAT_RIGHT, 100);
  InsertColumn(2, "Type", wxLIST_FORMAT_LEFT, 100);
  InsertColumn(3, "Created", wxLIST_FORMAT_LEFT, 100);
  return 1;
}

CFtpListzn::FillBatch::~FillBatch() {
  if (--m_list.m_fillDepth == 0) m_list.SyncItemCount();
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
