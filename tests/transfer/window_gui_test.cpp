// The main window's Download and Upload commands, the keys and headers of
// its panes, and the transfer manager, as real windows under Xvfb with real
// workers against vsftpd on loopback and a scripted server that trickles a
// file; prompts answered by the dialog hook.
#include <gtest/gtest.h>
#include <wx/config.h>
#include <wx/dirdlg.h>
#include <wx/listctrl.h>
#include <wx/stattext.h>
#include <wx/timer.h>
#include <wx/uiaction.h>

#include <filesystem>

#include "fake_server.h"
#include "platform/profile.h"
#include "transfer/dlgprogress.h"
#include "transfer/dlgreplace.h"
#include "window_fixture.h"

namespace {

namespace fs = std::filesystem;
namespace fake = ftpzn::inet::fake;
using ftpzn::test::DialogScript;
using ftpzn::test::PumpFor;
using ftpzn::test::PumpUntil;
using ftpzn::test::ReadBytes;
using ftpzn::test::WriteBytes;
using ftpzn::testing::FtpTestServer;
using Column = ftpzn::TransferQueue::Column;

class WindowTest : public ftpzn::test::WindowTest {
 protected:
  bool TransfersDone() {
    return PumpUntil([&] { return Manager().GetRowCount() == 0; }, 20000);
  }
  std::vector<wxString> Results() const {
    return {m_window->m_arrDownloadResults.begin(), m_window->m_arrDownloadResults.end()};
  }
  // Types `key` into the pane as the user would, with `name` (when given)
  // the row the keyboard stands on and the only one selected.
  void Key(CFtpListzn& pane, const wxString& name, int key, int modifiers = wxMOD_NONE) {
    if (!name.empty()) {
      ASSERT_GE(Row(pane, name), 0) << name;
      const long state = wxLIST_STATE_SELECTED | wxLIST_STATE_FOCUSED;
      pane.SetItemState(-1, 0, wxLIST_STATE_SELECTED);
      pane.SetItemState(Row(pane, name), state, state);
    }
    // Without a window manager the keyboard follows the pointer.
    wxUIActionSimulator sim;
    sim.MouseMove(pane.GetScreenRect().GetBottomRight() - wxPoint(30, 30));
    pane.SetFocus();
    PumpFor(50);
    sim.Char(key, modifiers);
    PumpFor(150);
  }
  // A real click on a column's header, and the headings afterwards.
  std::pair<wxString, wxString> ClickHeader(CFtpListzn& pane, int column) {
    PumpFor(500);  // a pause, or GTK takes two clicks for a double click
    int x = 12;
    for (int i = 0; i < column; ++i) x += pane.GetColumnWidth(i);
    wxUIActionSimulator sim;
    sim.MouseMove(pane.ClientToScreen(wxPoint(x, 10)));
    PumpFor(50);
    sim.MouseClick();
    PumpFor(150);
    wxListItem name, size;
    name.SetMask(wxLIST_MASK_TEXT);
    size.SetMask(wxLIST_MASK_TEXT);
    pane.GetColumn(0, name);
    pane.GetColumn(1, size);
    return {name.GetText(), size.GetText()};
  }
  // The manager shown, and the arguments of a transfer of `name` it runs.
  ftpzn::TransferArgs Args(const char* name, bool upload = false) {
    Manager().Show();
    ftpzn::TransferArgs args{"127.0.0.1", FtpTestServer::kUser,          FtpTestServer::kPassword,
                             name,        Local() + (upload ? "" : "/"), upload ? "/up" : "/pub"};
    args.port = m_port;
    args.passive = true;
    return args;
  }
  long ListedRows() { return Manager().m_listCtrl->GetItemCount(); }
  wxString Cell(long row, int column) { return Manager().m_listCtrl->GetItemText(row, column); }
  bool WaitRows(size_t rows, int ms = 10000) {
    return PumpUntil(
        [&] { return Manager().GetRowCount() == rows && ListedRows() == static_cast<long>(rows); }, ms);
  }
  void Command(int id, long row = -1) {
    if (row >= 0) {
      Manager().m_listCtrl->SetItemState(-1, 0, wxLIST_STATE_SELECTED);
      Manager().m_listCtrl->SetItemState(row, wxLIST_STATE_SELECTED, wxLIST_STATE_SELECTED);
    }
    wxCommandEvent event(wxEVT_MENU, id);
    Manager().ProcessWindowEvent(event);
  }
  // A download of /pub/slow.bin that lasts (400 KiB in 4 KiB pieces, 10 ms
  // apart), under way.
  void StartSlowDownload() {
    fake::Step trickle = fake::Transfer("RETR slow.bin", std::string(400 * 1024, 's'));
    trickle.dataPieceSize = 4096;
    trickle.dataPieceMs = 10;
    m_trickle = std::make_unique<fake::FakeServer>(fake::Plus(
        fake::Login(),
        {fake::On("CWD /pub", "250 ok\r\n"), fake::On("TYPE I", "200 ok\r\n"), fake::Epsv(), trickle}));
    ftpzn::TransferArgs slow = Args("slow.bin");
    slow.port = m_trickle->Port();
    slow.fileSize = 400 * 1024;
    ASSERT_TRUE(Manager().AddDownload(slow));
    ASSERT_TRUE(PumpUntil([&] { return Cell(0, Column::kColumnStatus).StartsWith("Receiving: slow.bin("); }));
  }
  std::unique_ptr<fake::FakeServer> m_trickle;
};

// Commands refused, or chosen and cancelled, change nothing.
TEST_F(WindowTest, RefusedOrCancelledCommandsChangeNothing) {
  const std::string before = Rows(m_window->m_ctrlLocal);
  DialogScript::ExpectModal<wxDirDialog>(wxID_CANCEL);
  Press(CDlgFTPMainWnd::ID_LOCAL);
  EXPECT_EQ(m_window->m_strLocalDir, Local());
  EXPECT_EQ(m_window->m_editLocalDir->GetValue(), Local());
  EXPECT_EQ(Rows(m_window->m_ctrlLocal), before);

  Select(m_window->m_ctrlRemote, {"f1.txt"});
  m_window->m_strLocalDir.clear();
  for (int i = 0; i < 4; ++i) DialogScript::ExpectMessageBox();
  Press(CDlgFTPMainWnd::ID_DOWNLOAD);
  m_window->m_strLocalDir = Local();
  m_window->m_strRemoteDir = "/gone";
  Press(CDlgFTPMainWnd::ID_DOWNLOAD);
  m_window->Disconnect();
  Press(CDlgFTPMainWnd::ID_DOWNLOAD);
  Press(CDlgFTPMainWnd::ID_UPLOAD);
  EXPECT_EQ(DialogScript::MessageBoxTexts(),
            (std::vector<wxString>{"Please choose a local directory first!",
                                   "SetCurrentDirectory:/gone error:12003",
                                   "Please connect a ftp site first!", "Please connect ftp site first"}));
  EXPECT_EQ(Manager().GetRowCount(), 0u);
  EXPECT_TRUE(m_window->m_arrDownloadResults.empty());
}

TEST_F(WindowTest, DownloadFilesAndAFolderThenUploadATree) {
  Select(m_window->m_ctrlRemote, {"f1.txt", "d", "f2.txt"});
  Press(CDlgFTPMainWnd::ID_DOWNLOAD);
  ASSERT_TRUE(TransfersDone());
  for (const char* file : {"f1.txt", "f2.txt", "d/g.txt", "d/sub/h.txt"})
    EXPECT_TRUE(ReadBytes(m_local + "/" + file) == ReadBytes(m_root + "/cmd/" + file)) << file;
  // The files themselves are the result a modal run hands over, not what
  // the folder held.
  EXPECT_EQ(Results(), (std::vector<wxString>{Local("f1.txt"), Local("f2.txt")}));

  // The same tree back up, under new names: a sub-folder whose first
  // character occurs nowhere in the local path, which the set-trim keeps.
  fs::rename(m_local + "/d", m_local + "/_tree");
  fs::rename(m_local + "/_tree/sub", m_local + "/_tree/#sub");
  m_window->m_strRemoteDir = "/up";
  m_window->m_ctrlRemote.FillDirectory("/up", m_window->m_pFtpConnection.get(), true);
  m_window->m_ctrlLocal.FillDirectory(Local());
  Select(m_window->m_ctrlLocal, {"_tree"});
  Press(CDlgFTPMainWnd::ID_UPLOAD);
  ASSERT_TRUE(TransfersDone());
  EXPECT_TRUE(ReadBytes(m_root + "/up/_tree/g.txt") == ReadBytes(m_root + "/cmd/d/g.txt"));
  EXPECT_EQ(ReadBytes(m_root + "/up/_tree/#sub/h.txt"), "h");
}

TEST_F(WindowTest, ReplacePromptsAnswered) {
  struct Case {
    const char* what;
    std::vector<int> answers;
    std::vector<wxString> queued;
  } cases[] = {
      {"Yes to All at the first", {ftpzn::kResultYesToAll}, {Local("f1.txt"), Local("f2.txt")}},
      {"Yes, then Cancel", {ftpzn::kResultYes, ftpzn::kResultCancel}, {Local("f1.txt")}},
      {"No, then Yes", {ftpzn::kResultNo, ftpzn::kResultYes}, {Local("f2.txt")}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    WriteBytes(m_local + "/f1.txt", "old one");
    WriteBytes(m_local + "/f2.txt", "old two");
    m_window->m_arrDownloadResults.clear();
    Manager().m_bHold = 1;
    for (size_t i = 0; i < c.answers.size(); ++i) {
      DialogScript::ExpectModal<CDlgReplaceFile>(c.answers[i], [i](CDlgReplaceFile* d) {
        EXPECT_EQ(d->m_nCount, 2);
        EXPECT_EQ(d->m_strName, i == 0 ? "f1.txt" : "f2.txt");
        EXPECT_TRUE(d->m_strExisting.StartsWith("1 KB\r\nmodified: ")) << d->m_strExisting;
      });
    }
    Select(m_window->m_ctrlRemote, {"f1.txt", "f2.txt"});
    Press(CDlgFTPMainWnd::ID_DOWNLOAD);
    EXPECT_FALSE(DialogScript::Pending());
    EXPECT_EQ(Results(), c.queued);
    Manager().KillAll();
  }

  // A prompt for one selected entry, shown for real: only Yes and No, in
  // the two right-most places.
  fs::create_directories(m_local + "/d");
  for (const char* name : {"f1.txt", "d"}) {
    SCOPED_TRACE(name);
    ftpzn::test::ExpectedDialog prompt;
    prompt.description = name;
    prompt.interact = [name](wxDialog* d) {
      wxWindow* yes = d->FindWindow(ftpzn::kResultYes);
      wxWindow* no = d->FindWindow(ftpzn::kResultNo);
      EXPECT_FALSE(d->FindWindow(ftpzn::kResultCancel)->IsShown());
      EXPECT_FALSE(d->FindWindow(ftpzn::kResultYesToAll)->IsShown());
      EXPECT_LT(yes->GetPosition().x, no->GetPosition().x);
      EXPECT_GT(no->GetPosition().x, d->GetClientSize().x - 110);
      auto* headline = dynamic_cast<wxStaticText*>(d->FindWindow(CDlgReplaceFile::IDC_HEADLINE));
      EXPECT_TRUE(headline->GetLabel().Contains(wxString("'") + name + "'")) << headline->GetLabel();
      d->EndModal(ftpzn::kResultNo);
    };
    DialogScript::Expect(std::move(prompt));
    Select(m_window->m_ctrlRemote, {name});
    Press(CDlgFTPMainWnd::ID_DOWNLOAD);
    EXPECT_EQ(Manager().GetRowCount(), 0u);
  }
  EXPECT_EQ(ReadBytes(m_local + "/f1.txt"), "old one");
}

// A walk that lasts shows its progress window; Cancel there ends the
// command: what was queued before stays, nothing of the folder is.
TEST_F(WindowTest, ALongWalkShowsProgressAndCancels) {
  Select(m_window->m_ctrlRemote, {"f1.txt", "many"});
  Manager().m_bHold = 1;
  bool windowDisabled = false, cancelled = false;
  int seen = 0;
  wxTimer watch;
  watch.Bind(wxEVT_TIMER, [&](wxTimerEvent&) {
    for (wxWindow* w : wxTopLevelWindows) {
      auto* progress = dynamic_cast<CDlgProgress*>(w);
      // A few ticks after it shows, so that the walk's own pumps painted it.
      if (!progress || !progress->IsShown() || cancelled || ++seen < 2) continue;
      windowDisabled = !m_window->IsEnabled();
      wxCommandEvent cancel(wxEVT_BUTTON, ftpzn::kResultCancel);
      progress->ProcessWindowEvent(cancel);
      cancelled = true;
    }
  });
  watch.Start(50);
  Press(CDlgFTPMainWnd::ID_DOWNLOAD);
  watch.Stop();
  EXPECT_TRUE(cancelled);
  EXPECT_TRUE(windowDisabled);
  EXPECT_TRUE(m_window->IsEnabled());
  EXPECT_EQ(Manager().GetRowCount(), 1u);  // f1.txt alone
  EXPECT_EQ(m_window->m_arrDownloadResults.size(), 1u);
  EXPECT_FALSE(fs::exists(m_local + "/many"));
  EXPECT_EQ(Manager().m_bHold, 0);
  Manager().KillAll();
}

// F5, Ctrl+A, Delete, Enter and Backspace as a user types them.
TEST_F(WindowTest, KeysOfThePanes) {
  CFtpListzn& local = m_window->m_ctrlLocal;
  CFtpListzn& remote = m_window->m_ctrlRemote;
  WriteBytes(m_local + "/new-local.txt", "n");
  WriteBytes(m_root + "/cmd/new-remote.txt", "n");
  Key(remote, "", WXK_F5);
  EXPECT_NE(Row(remote, "new-remote.txt"), -1);
  EXPECT_EQ(Row(local, "new-local.txt"), -1) << "only the pane with the keyboard";
  Key(local, "", WXK_F5);
  EXPECT_NE(Row(local, "new-local.txt"), -1);
  fs::remove(m_root + "/cmd/new-remote.txt");

  // Ctrl+A selects every entry of that pane but the parent row; Delete does nothing.
  Key(local, "b.txt", 'A', wxMOD_CONTROL);
  EXPECT_EQ(local.GetSelectedItemCount(), local.GetItemCount() - 1);
  EXPECT_EQ(local.GetItemState(0, wxLIST_STATE_SELECTED), 0);
  EXPECT_EQ(remote.GetSelectedItemCount(), 0);
  const std::string before = Rows(local);
  Key(local, "", WXK_DELETE);
  EXPECT_EQ(Rows(local), before);
  EXPECT_TRUE(fs::exists(m_local + "/b.txt"));

  // Enter opens a folder and the parent row, not a file.
  Key(local, "c", WXK_RETURN);
  EXPECT_EQ(m_window->m_strLocalDir, Local("c"));
  EXPECT_EQ(Rows(local), "..Up inside.txt");
  Key(local, "..Up", WXK_RETURN);
  EXPECT_EQ(m_window->m_strLocalDir, Local());
  Key(local, "b.txt", WXK_RETURN);
  EXPECT_EQ(m_window->m_strLocalDir, Local());
  Key(remote, "d", WXK_RETURN);
  EXPECT_EQ(m_window->m_strRemoteDir, "/cmd/d");
  EXPECT_EQ(m_window->m_editRemoteDir->GetValue(), "/cmd/d");

  // Backspace goes up.
  Key(local, "A.txt", WXK_BACK);
  EXPECT_EQ(m_window->m_strLocalDir, fs::path(m_local).parent_path().string());
  Key(remote, "g.txt", WXK_BACK);
  EXPECT_EQ(m_window->m_strRemoteDir, "/cmd");
  Key(remote, "f1.txt", WXK_BACK);
  EXPECT_EQ(m_window->m_strRemoteDir, "/");
  EXPECT_NE(Row(remote, "cmd"), -1);
}

TEST_F(WindowTest, HeaderClickSortsReversesAndOutlivesAListing) {
  CFtpListzn& pane = m_window->m_ctrlLocal;
  EXPECT_EQ(Rows(pane), "..Up A.txt b.txt c Z");  // by the upper-cased name
  pane.SetItemState(Row(pane, "b.txt"), wxLIST_STATE_SELECTED, wxLIST_STATE_SELECTED);
  EXPECT_EQ(ClickHeader(pane, 0).first, L"Name \u25B2");
  EXPECT_EQ(Rows(pane), "..Up c Z A.txt b.txt");
  EXPECT_EQ(pane.GetNextSelectedRow(-1), Row(pane, "b.txt")) << "the selection moves with its row";
  EXPECT_EQ(ClickHeader(pane, 0).first, L"Name \u25BC");
  EXPECT_EQ(Rows(pane), "..Up Z c b.txt A.txt");
  EXPECT_EQ(ClickHeader(pane, 1), std::make_pair(wxString("Name"), wxString(L"Size \u25B2")));
  EXPECT_EQ(Rows(pane), "..Up c Z b.txt A.txt");  // by size, smallest first
  pane.RefreshList();
  EXPECT_EQ(Rows(pane), "..Up c Z b.txt A.txt");
}

TEST_F(WindowTest, ADraggedColumnWidthIsKeptForTheNextWindow) {
  CFtpListzn& pane = m_window->m_ctrlRemote;
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
}

TEST_F(WindowTest, ManagerRunsQueuedRowsWhileHiddenAndTheyLeave) {
  Manager().m_bHold = 1;
  ASSERT_TRUE(Manager().AddDownload(Args("a.bin")));
  ASSERT_TRUE(Manager().AddUpload(Args("b.bin", true)));
  WriteBytes(m_local + "/b.bin", "upload");
  ASSERT_TRUE(WaitRows(2));
  const wxString expected[2][6] = {{"a.bin", "127.0.0.1", "/pub", Local() + "/", "Queued", ""},
                                   {"b.bin", "127.0.0.1", Local("b.bin"), "/up/b.bin", "Queued", ""}};
  for (long row = 0; row < 2; ++row)
    for (int column = 0; column < 6; ++column)
      EXPECT_EQ(Cell(row, column), expected[row][column]) << row << column;

  // Closing only hides the window, and says so in the store.
  Manager().Close();
  EXPECT_FALSE(Manager().IsShown());
  EXPECT_EQ(ftpzn::GetProfileInt("Settings", "ShowTransferManager", 7), 0);
  Manager().m_bHold = 0;
  ASSERT_TRUE(WaitRows(0));
  EXPECT_TRUE(ReadBytes(m_local + "/a.bin") == ReadBytes(m_root + "/pub/a.bin"));
  EXPECT_EQ(ReadBytes(m_root + "/up/b.bin"), "upload");
  // The last line also went to the main window's status text, and the
  // local pane was listed again.
  EXPECT_EQ(m_window->m_richLocalTrace->GetValue(), "Finished");
  EXPECT_NE(Row(m_window->m_ctrlLocal, "a.bin"), -1);
}

TEST_F(WindowTest, ManagerListsFailedTransfersAgain) {
  // A download that fails is listed again as "Failed" with what it had and
  // why; with "remove failed" it simply goes.
  for (const int removeFailed : {0, 1}) {
    SCOPED_TRACE(removeFailed);
    Manager().m_bRemoveFailed = removeFailed;
    ftpzn::TransferArgs missing = Args("missing.bin");
    missing.fileSize = 1234;
    ASSERT_TRUE(Manager().AddDownload(missing));
    ASSERT_TRUE(PumpUntil([&] {
      return removeFailed ? Manager().GetRowCount() == 0
                          : WaitRows(1, 0) && !Manager().GetRow(0).worker->HasStarted();
    }));
    if (removeFailed) break;
    EXPECT_EQ(Cell(0, Column::kColumnStatus), "Failed");
    EXPECT_EQ(Cell(0, Column::kColumnFilename), "missing.bin");
    EXPECT_TRUE(Cell(0, Column::kColumnProgress).Contains("550")) << Cell(0, Column::kColumnProgress);
    EXPECT_FALSE(Cell(0, Column::kColumnProgress).Contains("\n"));
    EXPECT_GT(Manager().m_listCtrl->GetColumnWidth(Column::kColumnProgress),
              Manager().m_listCtrl->GetTextExtent("100%  1.23 GB  123.4 MB/s  0:00 left").x);
    EXPECT_EQ(Manager().GetRow(0).worker->m_dwFileSize, 1234u);
    // A failed row is not started again unless resubmitted.
    Command(CDlgFtpTransferManager::ID_TRANSFER_RESUBMIT, 0);
    EXPECT_TRUE(Manager().GetRow(0).worker->HasStarted());
    ASSERT_TRUE(PumpUntil([&] { return ListedRows() == 1 && !Manager().GetRow(0).worker->HasStarted(); }));
    Command(CDlgFtpTransferManager::ID_EDIT_SELECT_ALL);
    Command(CDlgFtpTransferManager::ID_TRANSFER_CANCEL);
    ASSERT_TRUE(WaitRows(0));
  }

  // An upload that fails is listed again with its settings one place
  // early: queued, on the port that held the passive flag.
  Manager().m_bRemoveFailed = 0;
  ftpzn::TransferArgs upload = Args("nothing-here.bin", true);
  upload.attempts = 1;
  upload.retryDelay = 2;
  ASSERT_TRUE(Manager().AddUpload(upload));
  CThreadFtp* again = nullptr;
  ASSERT_TRUE(PumpUntil([&] {
    again = Manager().GetRowCount() == 1 && Manager().GetRow(0).worker->HasStarted()
                ? Manager().GetRow(0).worker
                : nullptr;
    return again && again->m_nPort == 1;
  }));
  EXPECT_EQ(again->m_dwFileSize, 2u);  // the transfer type
  EXPECT_EQ(again->m_dwTransferType, 1u);
  EXPECT_EQ(again->m_nAttempts, 2u);
  EXPECT_EQ(again->m_nRetryDelay, m_port);
  EXPECT_EQ(again->m_bPassive, 1);
  ASSERT_TRUE(WaitRows(1));
  EXPECT_EQ(Cell(0, Column::kColumnStatus), "Queued");

  // One cancelled while it waits to try its server again says so; the
  // failed row left the scheduler's count taken, so it is started by hand.
  ftpzn::TransferArgs waiting = Args("w.bin");
  waiting.port = ftpzn::testing::ClosedPort();
  waiting.attempts = 2;
  waiting.retryDelay = 30;
  ASSERT_TRUE(Manager().AddDownload(waiting));
  ASSERT_TRUE(WaitRows(2));
  Manager().ResubmitRows({1});
  ASSERT_TRUE(Manager().GetRow(1).worker->HasStarted());
  PumpFor(300);
  Manager().CancelRows({1});
  ASSERT_TRUE(PumpUntil([&] { return ListedRows() == 2 && Cell(1, Column::kColumnStatus) == "Failed"; }));
  EXPECT_EQ(Cell(1, Column::kColumnProgress), "Cancelled");
  Manager().KillAll();
}

TEST_F(WindowTest, ManagerCancelsRunningAndQueued) {
  ASSERT_NO_FATAL_FAILURE(StartSlowDownload());
  Manager().m_bHold = 1;
  ASSERT_TRUE(Manager().AddDownload(Args("a.bin")));
  ASSERT_TRUE(Manager().AddUpload(Args("b.bin", true)));
  for (int i = 0; i < 300; ++i) Manager().AddDownload(Args("b.bin"));
  ASSERT_TRUE(WaitRows(303));
  // Refreshed a while later with the rate it runs at.
  EXPECT_TRUE(PumpUntil([&] { return Cell(0, Column::kColumnProgress).Contains("/s"); }));
  EXPECT_TRUE(Cell(0, Column::kColumnProgress).Contains("%  ")) << Cell(0, Column::kColumnProgress);
  // The running one stops and goes; what it received stays.
  Command(CDlgFtpTransferManager::ID_TRANSFER_CANCEL, 0);
  ASSERT_TRUE(WaitRows(302));
  EXPECT_GT(ReadBytes(m_local + "/slow.bin").size(), 0u);
  EXPECT_LT(ReadBytes(m_local + "/slow.bin").size(), 400u * 1024);
  // A queued download goes too; a queued upload tells nothing and stays.
  Command(CDlgFtpTransferManager::ID_TRANSFER_CANCEL, 0);
  ASSERT_TRUE(WaitRows(301));
  EXPECT_EQ(Cell(0, Column::kColumnFilename), "b.bin");
  Command(CDlgFtpTransferManager::ID_TRANSFER_CANCEL, 0);
  PumpFor(100);
  EXPECT_EQ(ListedRows(), 301);
  EXPECT_EQ(Cell(0, Column::kColumnStatus), "Queued");
  EXPECT_EQ(Manager().m_listUploads.size(), 1u);
  // Invert Selection leaves all but that one selected.
  Command(CDlgFtpTransferManager::ID_EDIT_INVERT_SELECTION);
  EXPECT_EQ(Manager().m_listCtrl->GetSelectedItemCount(), 300);
  EXPECT_EQ(Manager().m_listCtrl->GetItemState(0, wxLIST_STATE_SELECTED), 0);
  // A row that goes moves a selection after it up with its transfer.
  Manager().m_listCtrl->SetItemState(-1, 0, wxLIST_STATE_SELECTED);
  Manager().m_listCtrl->SetItemState(5, wxLIST_STATE_SELECTED, wxLIST_STATE_SELECTED);
  Manager().CancelRows({1});
  ASSERT_TRUE(WaitRows(300));
  EXPECT_EQ(Manager().m_listCtrl->GetNextItem(-1, wxLIST_NEXT_ALL, wxLIST_STATE_SELECTED), 4);
}

TEST(ManagerPlacement, RestoredClampedAndSaved) {
  const wxSize screen = wxGetDisplaySize();
  struct Case {
    const char* what;
    int savePosition;
    wxRect stored, expected;  // expected empty: the template position
  } cases[] = {
      {"on the screen", 1, wxRect(100, 120, 500, 300), wxRect(100, 120, 500, 300)},
      {"off the screen", 1, wxRect(5000, 4000, 600, 250),
       wxRect(screen.x - 32, screen.y - 32, 5600 - (screen.x - 32), 4250 - (screen.y - 32))},
      {"not kept", 0, wxRect(100, 120, 500, 300), wxRect()},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    ftpzn::WriteProfileInt("Settings", "SavePosition", c.savePosition);
    const std::pair<const char*, int> stored[] = {{"WndLeft", c.stored.x},
                                                  {"WndTop", c.stored.y},
                                                  {"WndRight", c.stored.GetRight() + 1},
                                                  {"WndBottom", c.stored.GetBottom() + 1}};
    for (const auto& [key, value] : stored) ftpzn::WriteProfileInt("TransferManager", key, value);
    auto* manager = new CDlgFtpTransferManager;
    ASSERT_TRUE(manager->Create(1));
    PumpFor(30);
    EXPECT_TRUE(c.expected.IsEmpty() ? manager->GetRect() != c.stored : manager->GetRect() == c.expected)
        << manager->GetRect().x;
    manager->SetSize(40, 50, 610, 260);
    delete manager;
    // Saved when kept, the stored values left alone otherwise.
    const bool kept = c.savePosition != 0;
    EXPECT_EQ(ftpzn::GetProfileInt("TransferManager", "WndLeft", -1), kept ? 40 : c.stored.x);
    EXPECT_EQ(ftpzn::GetProfileInt("TransferManager", "WndBottom", -1),
              kept ? 310 : c.stored.GetBottom() + 1);
    EXPECT_EQ(ftpzn::GetProfileInt("TransferManager", "WndStatus", -1), kept ? 1 : -1);
    wxConfigBase::Get()->DeleteAll();
  }
}

}  // namespace
