#include "transfer/dlgftptransfermanager.h"

#include <wx/accel.h>
#include <wx/imaglist.h>
#include <wx/listctrl.h>
#include <wx/menu.h>
#include <wx/settings.h>

#include <algorithm>
#include <chrono>

#include "mainwnd/dlgftpmainwnd.h"
#include "platform/workerthread.h"
#include "res/menus.h"
#include "res/resources.h"
#include "sites/preferences.h"
#include "transfer/transferpostbox.h"
#include "ui/dialogs.h"

namespace {

constexpr int kFileImage = 0;
// The first platform's system metrics: one-pixel borders, 32-pixel icons.
constexpr int kBorder = 1;
constexpr int kIconSize = 32;
// The template's client size.
constexpr int kClientWidth = 960;
constexpr int kClientHeight = 260;
// The placement's show commands.
constexpr int kShowNormal = 1;
constexpr int kShowMinimized = 2;
constexpr int kShowMaximized = 3;
// The longest line the progress column shows in practice.
constexpr char kWidestProgress[] = "100%  1.23 GB  123.4 MB/s  0:00 left";
constexpr char kColumnsKey[] = "Transfers";

// The list asks its owner for every cell, so it holds any number of rows
// without a copy of their texts.
class TransferListCtrl : public wxListCtrl {
 public:
  TransferListCtrl(CDlgFtpTransferManager* owner, wxWindow* parent, wxWindowID id, const wxPoint& pos,
                   const wxSize& size)
      : wxListCtrl(parent, id, pos, size, wxLC_REPORT | wxLC_VIRTUAL), m_owner(owner) {}

 protected:
  wxString OnGetItemText(long item, long column) const override {
    if (item < 0) return wxString();
    return m_owner->GetCellText(static_cast<size_t>(item), static_cast<int>(column));
  }
  int OnGetItemImage(long) const override { return kFileImage; }

 private:
  CDlgFtpTransferManager* m_owner;
};

uint64_t NowMs() {
  const auto since = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(since).count());
}

// Whether what was last shown at `shownMs` may be shown again now.
bool RepaintDue(uint64_t shownMs, uint64_t nowMs = NowMs()) {
  return nowMs - shownMs >= static_cast<uint64_t>(CDlgFtpTransferManager::kRepaintMs);
}

uint32_t ThreadIdOf(const wxThreadEvent& event) { return static_cast<uint32_t>(event.GetExtraLong()); }

}  // namespace

// clang-format off
wxBEGIN_EVENT_TABLE(CDlgFtpTransferManager, wxFrame)
  EVT_TIMER(kTimerId, CDlgFtpTransferManager::OnTimer)
  EVT_MENU(ID_TRANSFER_CANCEL, CDlgFtpTransferManager::OnCancel)
  EVT_MENU(ID_TRANSFER_RESUBMIT, CDlgFtpTransferManager::OnResubmit)
  EVT_MENU(ID_TRANSFER_EXIT, CDlgFtpTransferManager::OnExit)
  EVT_MENU(ID_EDIT_SELECT_ALL, CDlgFtpTransferManager::OnSelectAll)
  EVT_MENU(ID_EDIT_INVERT_SELECTION, CDlgFtpTransferManager::OnInvertSelection)
  EVT_CLOSE(CDlgFtpTransferManager::OnClose)
  EVT_SIZE(CDlgFtpTransferManager::OnSize)
wxEND_EVENT_TABLE()
    // clang-format on

    CDlgFtpTransferManager::CDlgFtpTransferManager()
    : m_timer(this, kTimerId) {}

CDlgFtpTransferManager::~CDlgFtpTransferManager() {
  SavePlacement();
  m_timer.Stop();
  // Whatever the workers still post now has no window to go to.
  if (m_postBox) m_postBox->Invalidate();
  KillAll();
}

bool CDlgFtpTransferManager::Create(int show) {
  m_bShow = show;
  if (!wxFrame::Create(nullptr, IDD, "Transfer Manager", wxDefaultPosition, wxDefaultSize,
                       wxDEFAULT_FRAME_STYLE | wxSTAY_ON_TOP | wxFRAME_NO_TASKBAR))
    return false;
  SetClientSize(kClientWidth, kClientHeight);
  m_listCtrl =
      new TransferListCtrl(this, this, IDC_LIST, wxPoint(2, 2), wxSize(kClientWidth - 4, kClientHeight - 4));
  m_postBox = std::make_shared<ftpzn::TransferPostBox>(this);
  Bind(ftpzn::EVT_FTP_STATUS, &CDlgFtpTransferManager::OnStatusMessage, this);
  Bind(ftpzn::EVT_FTP_DOWNLOAD_DONE, &CDlgFtpTransferManager::OnDownloadDoneMessage, this);
  Bind(ftpzn::EVT_FTP_UPLOAD_DONE, &CDlgFtpTransferManager::OnUploadDoneMessage, this);
  m_listCtrl->Bind(wxEVT_CONTEXT_MENU, &CDlgFtpTransferManager::OnListContextMenu, this);
  wxAcceleratorEntry keys[] = {{wxACCEL_CTRL, 'A', ID_EDIT_SELECT_ALL},
                               {wxACCEL_NORMAL, WXK_F1, ID_HELP_TOPICS}};
  SetAcceleratorTable(wxAcceleratorTable(static_cast<int>(std::size(keys)), keys));
  OnInitDialog();
  if (show > 0) Show();
  return true;
}

void CDlgFtpTransferManager::OnInitDialog() {
  RestorePlacement();
  // "Progress" is as wide as its longest line in the list's font; the
  // other columns share the rest equally.
  const int progress = m_listCtrl->GetTextExtent(kWidestProgress).x + 24;
  const int width = std::max(60, (GetClientSize().x - 7 * kBorder - progress) / (kColumnCount - 1));
  const char* const headings[kColumnCount] = {"Filename", "Host", "From", "To", "Status", "Progress"};
  for (int i = 0; i < kColumnCount; ++i) {
    const int initial = i == kColumnProgress ? progress : width;
    m_listCtrl->InsertColumn(i, headings[i], wxLIST_FORMAT_LEFT,
                             ftpzn::ReadColumnWidth(kColumnsKey, i, initial));
  }
  ftpzn::KeepDraggedColumnWidths(*m_listCtrl, kColumnsKey);
  auto* images = new wxImageList(16, 16, true, 1);
  const wxSize small(16, 16);
  images->Add(ftpzn::res::LoadIconBundle(ftpzn::res::kIconFile, small).GetBitmap(small));
  m_listCtrl->AssignImageList(images, wxIMAGE_LIST_SMALL);
  SetIcon(ftpzn::res::LoadIcon(IDI_ICON, kIconSize));
  m_timer.Start(kTimerMs);
}

void CDlgFtpTransferManager::RestorePlacement() {
  ftpzn::TransferManagerPlacement placement;
  if (!ftpzn::LoadTransferManagerPlacement(placement)) return;
  // At least an icon's size of the window's corner stays on the screen; the
  // right and bottom edges stay where they were stored.
  const wxSize screen = wxGetDisplaySize();
  const int left = std::min(placement.left, screen.x - kIconSize);
  const int top = std::min(placement.top, screen.y - kIconSize);
  SetSize(left, top, std::max(1, placement.right - left), std::max(1, placement.bottom - top));
  if (m_bShow > 0)
    ShowWithoutActivating();
  else
    Hide();
}

void CDlgFtpTransferManager::SavePlacement() {
  if (m_placementSaved || !GetHandle()) return;
  m_placementSaved = true;
  const wxRect rect = GetRect();
  ftpzn::TransferManagerPlacement placement;
  placement.showState = IsIconized() ? kShowMinimized : IsMaximized() ? kShowMaximized : kShowNormal;
  placement.left = rect.x;
  placement.top = rect.y;
  placement.right = rect.x + rect.width;
  placement.bottom = rect.y + rect.height;
  ftpzn::StoreTransferManagerPlacement(placement);
}

std::shared_ptr<ftpzn::TransferSink> CDlgFtpTransferManager::GetSink() { return m_postBox; }

// A tree moves hundreds of files a second, each ending with its row removed
// and the next one's lines: painting the list each time cost more than the
// transfers. The rows are read from the queue when painted, so a list shown
// late shows the queue as it is by then.
void CDlgFtpTransferManager::ListChanged() {
  m_listStale = true;
  if (RepaintDue(m_listShownMs)) ShowList();
}

void CDlgFtpTransferManager::ShowList() {
  m_listStale = false;
  m_listShownMs = NowMs();
  const long rows = static_cast<long>(GetRowCount());
  if (m_listCtrl->GetItemCount() != rows) m_listCtrl->SetItemCount(rows);
  m_listCtrl->Refresh();
}

void CDlgFtpTransferManager::ShowHeldChanges(bool all) {
  const uint64_t now = NowMs();
  auto due = [&](uint64_t shownMs) { return all || RepaintDue(shownMs, now); };
  if (m_listStale && due(m_listShownMs)) ShowList();
  if (m_statusOwed && due(m_statusShownMs)) ShowOwedStatus();
  for (bool upload : {false, true})
    if (m_paneOwed[upload] && due(m_paneListedMs[upload])) RefreshPaneNow(upload);
}

void CDlgFtpTransferManager::OnRowAppended() { ListChanged(); }

void CDlgFtpTransferManager::OnRowRemoved(size_t index) {
  // A row that leaves with a selection or the focus at or after it goes at
  // once, so that they stay on the rows they were on. Otherwise the rows
  // only move up, and the list is shown again when due.
  const long row = static_cast<long>(index);
  if (row < m_listCtrl->GetItemCount() &&
      (m_listCtrl->GetSelectedItemCount() > 0 ||
       m_listCtrl->GetNextItem(row - 1, wxLIST_NEXT_ALL, wxLIST_STATE_FOCUSED) != -1)) {
    m_listCtrl->DeleteItem(row);
  }
  ListChanged();
}

void CDlgFtpTransferManager::OnRowChanged(size_t) { ListChanged(); }

void CDlgFtpTransferManager::PumpAfterDownloadAdded() { ftpzn::PumpMessages(); }

void CDlgFtpTransferManager::ShowStatusText(const wxString& text) {
  if (!m_pFtpMainWnd) return;
  m_owedStatus = text;
  m_statusOwed = true;
  if (RepaintDue(m_statusShownMs)) ShowOwedStatus();
}

void CDlgFtpTransferManager::ShowOwedStatus() {
  m_statusOwed = false;
  m_statusShownMs = NowMs();
  if (!m_pFtpMainWnd) return;
  m_pFtpMainWnd->m_strLocalTrace = wxString::Format("%s", m_owedStatus);
  m_pFtpMainWnd->UpdateData(false);
}

void CDlgFtpTransferManager::RefreshPane(bool upload) {
  m_paneOwed[upload] = true;
  // The last transfer's end shows at once, whatever is still held.
  if (GetRowCount() == 0)
    ShowHeldChanges(true);
  else if (RepaintDue(m_paneListedMs[upload]))
    RefreshPaneNow(upload);
}

void CDlgFtpTransferManager::RefreshPaneNow(bool upload) {
  m_paneOwed[upload] = false;
  m_paneListedMs[upload] = NowMs();
  if (!m_pFtpMainWnd) return;
  if (upload)
    m_pFtpMainWnd->m_ctrlRemote.RefreshList();
  else
    m_pFtpMainWnd->m_ctrlLocal.RefreshList();
}

void CDlgFtpTransferManager::OnTimer(wxTimerEvent& event) {
  if (event.GetId() == kTimerId) {
    m_postBox->FlushHeldProgress();
    RunScheduler();
    ShowHeldChanges(false);
  }
  event.Skip();
}

void CDlgFtpTransferManager::OnStatusMessage(wxThreadEvent& event) {
  const uint32_t id = ThreadIdOf(event);
  if (event.GetInt() == 1) {
    uint64_t bytes = 0;
    if (m_postBox->TakeProgress(id, bytes)) OnProgress(id, bytes, NowMs());
    return;
  }
  OnStatus(id, event.GetString());
}

void CDlgFtpTransferManager::OnDownloadDoneMessage(wxThreadEvent& event) {
  m_postBox->Forget(ThreadIdOf(event));
  OnDownloadDone(ThreadIdOf(event));
}

void CDlgFtpTransferManager::OnUploadDoneMessage(wxThreadEvent& event) {
  m_postBox->Forget(ThreadIdOf(event));
  OnUploadDone(ThreadIdOf(event));
}

std::vector<long> CDlgFtpTransferManager::SelectedRows() {
  // Rows past the queue's end, not yet taken off the list, select nothing.
  if (m_listStale) ShowList();
  std::vector<long> rows;
  for (long item = m_listCtrl->GetNextItem(-1, wxLIST_NEXT_ALL, wxLIST_STATE_SELECTED); item != -1;
       item = m_listCtrl->GetNextItem(item, wxLIST_NEXT_ALL, wxLIST_STATE_SELECTED))
    rows.push_back(item);
  return rows;
}

void CDlgFtpTransferManager::OnCancel(wxCommandEvent&) { CancelRows(SelectedRows()); }

void CDlgFtpTransferManager::OnResubmit(wxCommandEvent&) { ResubmitRows(SelectedRows()); }

void CDlgFtpTransferManager::OnExit(wxCommandEvent&) {
  ftpzn::WriteShowTransferManager(0);
  Hide();
}

void CDlgFtpTransferManager::OnSelectAll(wxCommandEvent&) {
  if (m_listStale) ShowList();
  const long count = m_listCtrl->GetItemCount();
  if (count == 0) return;
  // All at once (a virtual list keeps its selection as ranges); the focus
  // ends on the last item, as setting it item by item leaves it.
  m_listCtrl->SetItemState(-1, wxLIST_STATE_SELECTED, wxLIST_STATE_SELECTED);
  m_listCtrl->SetItemState(count - 1, wxLIST_STATE_FOCUSED, wxLIST_STATE_FOCUSED);
}

void CDlgFtpTransferManager::OnInvertSelection(wxCommandEvent&) {
  if (m_listStale) ShowList();
  const long count = m_listCtrl->GetItemCount();
  for (long i = 0; i < count; ++i) {
    const bool selected = m_listCtrl->GetItemState(i, wxLIST_STATE_SELECTED) != 0;
    m_listCtrl->SetItemState(i, selected ? 0 : wxLIST_STATE_SELECTED, wxLIST_STATE_SELECTED);
  }
}

void CDlgFtpTransferManager::OnListContextMenu(wxContextMenuEvent&) {
  if (m_listCtrl->GetSelectedItemCount() == 0) return;
  std::unique_ptr<wxMenu> popup(ftpzn::res::LoadPopup(ftpzn::res::kMenuTransfer, 0));
  if (popup) PopupMenu(popup.get());
}

void CDlgFtpTransferManager::OnClose(wxCloseEvent& event) {
  ftpzn::WriteShowTransferManager(0);
  if (event.CanVeto()) {
    event.Veto();
    Hide();
    return;
  }
  event.Skip();
}

void CDlgFtpTransferManager::OnSize(wxSizeEvent& event) {
  event.Skip();
  if (m_listCtrl) {
    const wxSize client = GetClientSize();
    m_listCtrl->SetSize(2, 2, client.x - 4, client.y - 4);
  }
}
