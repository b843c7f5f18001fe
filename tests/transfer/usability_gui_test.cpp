// What a user does by reflex in the main window, connected to vsftpd on
// loopback: the keys of the panes, sorting by a header, a column widened,
// the Local chooser cancelled, Download without a local directory, and why
// a download failed, in its row of the transfer manager. One row per case.
#include <gtest/gtest.h>
#include <wx/config.h>
#include <wx/dirdlg.h>
#include <wx/listctrl.h>
#include <wx/uiaction.h>

#include <filesystem>
#include <functional>

#include "gui_harness.h"
#include "mainwnd/dlgftpmainwnd.h"
#include "transfer/dlgftptransfermanager.h"
#include "window_fixture.h"

namespace {

namespace fs = std::filesystem;
using ftpzn::test::DialogScript;
using ftpzn::test::PumpFor;
using ftpzn::test::PumpUntil;
using ftpzn::test::WriteBytes;
using Column = ftpzn::TransferQueue::Column;

class UsabilityTest;
struct Case {
  const char* name;
  std::function<void(UsabilityTest&)> run;
};
void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

class UsabilityTest : public ftpzn::test::WindowTest, public testing::WithParamInterface<Case> {
 public:
  using WindowTest::m_local;
  using WindowTest::m_root;
  using WindowTest::m_window;

  void SetUp() override {
    ASSERT_NO_FATAL_FAILURE(WindowTest::SetUp());
    for (const char* folder : {"c", "Z"}) fs::create_directories(m_local + "/" + folder);
    WriteBytes(m_local + "/b.txt", "bb");
    WriteBytes(m_local + "/A.txt", std::string(3000, 'a'));
    WriteBytes(m_local + "/c/inside.txt", "i");
    m_window->SetLocalDirectory(Local());
    ftpzn::test::LogIn(*m_window, m_port);
    m_window->m_strRemoteDir = "/cmd";
    ASSERT_EQ(m_window->m_ctrlRemote.FillDirectory("/cmd", m_window->m_pFtpConnection.get(), true), 1);
  }

  wxString Local(const char* relative = nullptr) const {
    return wxString::FromUTF8(relative ? m_local + "/" + relative : m_local);
  }
  CFtpListzn1Local& LocalPane() { return m_window->m_ctrlLocal; }
  CFtpListzn1Remote& RemotePane() { return m_window->m_ctrlRemote; }
  // The names of the rows, in order, one blank between.
  static std::string Rows(const CFtpListzn& pane) {
    wxString names;
    for (int row = 0; row < pane.GetItemCount(); ++row) names << (row ? " " : "") << pane.GetRowName(row);
    return names.utf8_string();
  }
  static int Row(const CFtpListzn& pane, const wxString& name) {
    for (int row = 0; row < pane.GetItemCount(); ++row)
      if (pane.GetRowName(row) == name) return row;
    return -1;
  }
  // Types `key` into the pane as the user would, with `name` (when given)
  // the row the keyboard stands on and the only one selected.
  void Key(CFtpListzn& pane, const wxString& name, int key, int modifiers = wxMOD_NONE) {
    if (!name.empty()) {
      const int row = Row(pane, name);
      ASSERT_GE(row, 0) << name;
      pane.SetItemState(-1, 0, wxLIST_STATE_SELECTED);
      const long state = wxLIST_STATE_SELECTED | wxLIST_STATE_FOCUSED;
      pane.SetItemState(row, state, state);
    }
    // Without a window manager the keyboard follows the pointer.
    wxUIActionSimulator sim;
    sim.MouseMove(pane.GetScreenRect().GetBottomRight() - wxPoint(30, 30));
    pane.SetFocus();
    PumpFor(50);
    sim.Char(key, modifiers);
    PumpFor(150);
  }
  static wxString Heading(CFtpListzn& pane, int column) {
    wxListItem item;
    item.SetMask(wxLIST_MASK_TEXT);
    pane.GetColumn(column, item);
    return item.GetText();
  }
  // A real click on a column's header.
  void ClickHeader(CFtpListzn& pane, int column) {
    PumpFor(500);  // a pause, or GTK takes two clicks for a double click
    int x = 12;
    for (int i = 0; i < column; ++i) x += pane.GetColumnWidth(i);
    wxUIActionSimulator sim;
    sim.MouseMove(pane.ClientToScreen(wxPoint(x, 10)));
    PumpFor(50);
    sim.MouseClick();
    PumpFor(150);
  }
  void Press(int id) {
    wxCommandEvent event(wxEVT_BUTTON, id);
    event.SetEventObject(m_window);
    m_window->ProcessWindowEvent(event);
  }
  CDlgFtpTransferManager& Manager() { return *m_window->m_pTransferManager; }
};

const Case kCases[] = {
    {"LocalChooserCancelledKeepsTheDirectory",
     [](UsabilityTest& t) {
       const std::string before = t.Rows(t.LocalPane());
       DialogScript::ExpectModal<wxDirDialog>(wxID_CANCEL);
       t.Press(CDlgFTPMainWnd::ID_LOCAL);
       EXPECT_EQ(t.m_window->m_strLocalDir, t.Local());
       EXPECT_EQ(t.m_window->m_editLocalDir->GetValue(), t.Local());
       EXPECT_EQ(t.Rows(t.LocalPane()), before);
     }},
    {"DownloadRefusedWithoutALocalDirectory",
     [](UsabilityTest& t) {
       t.RemotePane().SetItemState(t.Row(t.RemotePane(), "f1.txt"), wxLIST_STATE_SELECTED,
                                   wxLIST_STATE_SELECTED);
       t.m_window->m_strLocalDir.clear();
       DialogScript::ExpectMessageBox();
       t.Press(CDlgFTPMainWnd::ID_DOWNLOAD);
       EXPECT_EQ(DialogScript::MessageBoxTexts(),
                 std::vector<wxString>{"Please choose a local directory first!"});
       EXPECT_EQ(t.Manager().GetRowCount(), 0u);
       EXPECT_TRUE(t.m_window->m_arrDownloadResults.empty());
     }},
    {"EnterOpensAFolderAndTheParentRow",
     [](UsabilityTest& t) {
       t.Key(t.LocalPane(), "c", WXK_RETURN);
       EXPECT_EQ(t.m_window->m_strLocalDir, t.Local("c"));
       EXPECT_EQ(t.Rows(t.LocalPane()), "..Up inside.txt");
       t.Key(t.LocalPane(), "..Up", WXK_RETURN);
       EXPECT_EQ(t.m_window->m_strLocalDir, t.Local());
       t.Key(t.LocalPane(), "b.txt", WXK_RETURN);  // a file: nothing
       EXPECT_EQ(t.m_window->m_strLocalDir, t.Local());
       t.Key(t.RemotePane(), "d", WXK_RETURN);
       EXPECT_EQ(t.m_window->m_strRemoteDir, "/cmd/d");
       EXPECT_EQ(t.m_window->m_editRemoteDir->GetValue(), "/cmd/d");
     }},
    {"BackspaceGoesUp",
     [](UsabilityTest& t) {
       t.Key(t.LocalPane(), "A.txt", WXK_BACK);
       EXPECT_EQ(t.m_window->m_strLocalDir, fs::path(t.m_local).parent_path().string());
       t.Key(t.RemotePane(), "f1.txt", WXK_BACK);
       EXPECT_EQ(t.m_window->m_strRemoteDir, "/");
       EXPECT_NE(t.Row(t.RemotePane(), "cmd"), -1);
     }},
    {"F5RefreshesThePaneWithTheKeyboard",
     [](UsabilityTest& t) {
       WriteBytes(t.m_local + "/new-local.txt", "n");
       WriteBytes(t.m_root + "/cmd/new-remote.txt", "n");
       t.Key(t.RemotePane(), "", WXK_F5);
       EXPECT_NE(t.Row(t.RemotePane(), "new-remote.txt"), -1);
       EXPECT_EQ(t.Row(t.LocalPane(), "new-local.txt"), -1) << "only the pane with the keyboard";
       t.Key(t.LocalPane(), "", WXK_F5);
       EXPECT_NE(t.Row(t.LocalPane(), "new-local.txt"), -1);
       fs::remove(t.m_root + "/cmd/new-remote.txt");
     }},
    {"CtrlASelectsEveryEntryOfThatPaneAndDeleteDoesNothing",
     [](UsabilityTest& t) {
       t.Key(t.LocalPane(), "b.txt", 'A', wxMOD_CONTROL);
       EXPECT_EQ(t.LocalPane().GetSelectedItemCount(), t.LocalPane().GetItemCount() - 1);
       EXPECT_EQ(t.LocalPane().GetItemState(0, wxLIST_STATE_SELECTED), 0) << "not the parent row";
       EXPECT_EQ(t.RemotePane().GetSelectedItemCount(), 0);
       const std::string before = t.Rows(t.LocalPane());
       t.Key(t.LocalPane(), "", WXK_DELETE);
       EXPECT_EQ(t.Rows(t.LocalPane()), before);
       EXPECT_TRUE(fs::exists(t.m_local + "/b.txt"));
     }},
    {"HeaderClickSortsReversesAndOutlivesAListing",
     [](UsabilityTest& t) {
       CFtpListzn& pane = t.LocalPane();
       // Listed by the upper-cased name: A.txt, b.txt, c, Z.
       EXPECT_EQ(t.Rows(pane), "..Up A.txt b.txt c Z");
       pane.SetItemState(t.Row(pane, "b.txt"), wxLIST_STATE_SELECTED, wxLIST_STATE_SELECTED);
       t.ClickHeader(pane, 0);
       EXPECT_EQ(t.Rows(pane), "..Up c Z A.txt b.txt");
       EXPECT_EQ(t.Heading(pane, 0), L"Name \u25B2");
       EXPECT_EQ(pane.GetNextSelectedRow(-1), t.Row(pane, "b.txt")) << "the selection moves with its row";
       t.ClickHeader(pane, 0);
       EXPECT_EQ(t.Rows(pane), "..Up Z c b.txt A.txt");
       EXPECT_EQ(t.Heading(pane, 0), L"Name \u25BC");
       t.ClickHeader(pane, 1);  // by size, smallest first
       EXPECT_EQ(t.Rows(pane), "..Up c Z b.txt A.txt");
       EXPECT_EQ(t.Heading(pane, 0), "Name");
       EXPECT_EQ(t.Heading(pane, 1), L"Size \u25B2");
       t.m_window->m_ctrlLocal.RefreshList();
       EXPECT_EQ(t.Rows(pane), "..Up c Z b.txt A.txt");
       ftpzn::test::SaveScreenshot("panes-sorted");
     }},
    {"ADraggedColumnWidthIsKeptForTheNextWindow",
     [](UsabilityTest& t) {
       CFtpListzn& pane = t.RemotePane();
       const int before = pane.GetColumnWidth(0);
       const wxPoint border = pane.ClientToScreen(wxPoint(before - 1, 10));
       wxUIActionSimulator sim;
       sim.MouseMove(border);
       PumpFor(50);
       sim.MouseDown();
       PumpFor(50);
       sim.MouseMove(border + wxPoint(60, 0));
       PumpFor(50);
       sim.MouseUp();
       PumpFor(200);
       const int dragged = pane.GetColumnWidth(0);
       EXPECT_NEAR(dragged, before + 60, 2);
       CDlgFTPMainWnd next;
       ASSERT_TRUE(next.Create());
       EXPECT_EQ(next.m_ctrlRemote.GetColumnWidth(0), dragged);
       wxConfigBase::Get()->DeleteGroup("/Columns");
     }},
    {"AFailedDownloadShowsWhyInItsProgressColumn",
     [](UsabilityTest& t) {
       // Listed, then gone from the server: its download meets a 550.
       WriteBytes(t.m_root + "/cmd/vanishing.txt", "v");
       t.RemotePane().RefreshList();
       const int row = t.Row(t.RemotePane(), "vanishing.txt");
       ASSERT_GE(row, 0);
       t.RemotePane().SetItemState(row, wxLIST_STATE_SELECTED, wxLIST_STATE_SELECTED);
       fs::remove(t.m_root + "/cmd/vanishing.txt");
       t.Manager().Show();
       t.Press(CDlgFTPMainWnd::ID_DOWNLOAD);
       wxListCtrl& list = *t.Manager().m_listCtrl;
       ASSERT_TRUE(PumpUntil(
           [&] { return list.GetItemCount() == 1 && list.GetItemText(0, Column::kColumnStatus) == "Failed"; },
           15000));
       const wxString why = list.GetItemText(0, Column::kColumnProgress);
       EXPECT_TRUE(why.Contains("550")) << why;
       EXPECT_FALSE(why.Contains("\n")) << why;
       EXPECT_GT(list.GetColumnWidth(Column::kColumnProgress),
                 list.GetTextExtent("100%  1.23 GB  123.4 MB/s  0:00 left").x);
       ftpzn::test::SaveScreenshot("transfer-manager-failed");

       // One cancelled while it waits to try its server again says so.
       ftpzn::TransferArgs waiting{"127.0.0.1", "u", "p", "w.bin", t.Local() + "/", "/cmd"};
       waiting.port = ftpzn::testing::ClosedPort();
       waiting.attempts = 2;
       waiting.retryDelay = 30;
       ASSERT_TRUE(t.Manager().AddDownload(waiting));
       // The failed row above left the scheduler's count taken: started by hand.
       ASSERT_TRUE(PumpUntil([&] { return list.GetItemCount() == 2; }));
       t.Manager().ResubmitRows({1});
       ASSERT_TRUE(t.Manager().GetRow(1).worker->HasStarted());
       PumpFor(300);
       t.Manager().CancelRows({1});
       ASSERT_TRUE(PumpUntil([&] {
         return list.GetItemCount() == 2 && list.GetItemText(1, Column::kColumnStatus) == "Failed";
       }));
       EXPECT_EQ(list.GetItemText(1, Column::kColumnProgress), "Cancelled");
       t.Manager().KillAll();
     }},
};

TEST_P(UsabilityTest, Case) { GetParam().run(*this); }

INSTANTIATE_TEST_SUITE_P(Window, UsabilityTest, testing::ValuesIn(kCases),
                         [](const testing::TestParamInfo<Case>& info) {
                           return std::string(info.param.name);
                         });

}  // namespace
