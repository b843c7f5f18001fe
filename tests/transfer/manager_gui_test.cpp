// The transfer manager as a real window under Xvfb, with real workers
// against vsftpd on loopback and a scripted server that trickles a file.
#include <gtest/gtest.h>
#include <wx/app.h>
#include <wx/config.h>
#include <wx/listctrl.h>
#include <wx/weakref.h>

#include <chrono>
#include <filesystem>

#include "fake_server.h"
#include "ftp_servers.h"
#include "gui_harness.h"
#include "mainwnd/dlgftpmainwnd.h"
#include "platform/profile.h"
#include "transfer/dlgftptransfermanager.h"
#include "window_fixture.h"

namespace {

namespace fs = std::filesystem;
namespace fake = ftpzn::inet::fake;
using ftpzn::test::PumpFor;
using ftpzn::test::PumpUntil;
using ftpzn::test::ReadBytes;
using ftpzn::testing::FtpServerKind;
using ftpzn::testing::FtpTestServer;
using Column = ftpzn::TransferQueue::Column;

// A download of /pub/slow.bin that lasts: 400 KiB in 4 KiB pieces, 10 ms apart.
std::unique_ptr<fake::FakeServer> TrickleServer() {
  fake::Step trickle = fake::Transfer("RETR slow.bin", std::string(400 * 1024, 's'));
  trickle.dataPieceSize = 4096;
  trickle.dataPieceMs = 10;
  return std::make_unique<fake::FakeServer>(fake::Plus(
      fake::Login(),
      {fake::On("CWD /pub", "250 ok\r\n"), fake::On("TYPE I", "200 ok\r\n"), fake::Epsv(), trickle}));
}

class ManagerTest : public ftpzn::test::WindowTest {
 protected:
  void SetUp() override {
    ASSERT_NO_FATAL_FAILURE(WindowTest::SetUp());
    m_manager = m_window->m_pTransferManager;
    ASSERT_NE(m_manager, nullptr);
    m_manager->Show();
    PumpFor(30);
  }

  ftpzn::TransferArgs Args(const char* name, bool upload = false) const {
    ftpzn::TransferArgs args{"127.0.0.1",
                             FtpTestServer::kUser,
                             FtpTestServer::kPassword,
                             name,
                             wxString::FromUTF8(m_local) + (upload ? "" : "/"),
                             upload ? "/up" : "/pub"};
    args.port = m_port;
    args.passive = true;
    return args;
  }
  long ListedRows() { return m_manager->m_listCtrl->GetItemCount(); }
  wxString Cell(long row, int column) { return m_manager->m_listCtrl->GetItemText(row, column); }
  bool WaitRows(size_t rows, int ms = 10000) {
    return PumpUntil(
        [&] { return m_manager->GetRowCount() == rows && ListedRows() == static_cast<long>(rows); }, ms);
  }
  void Select(long row) {
    m_manager->m_listCtrl->SetItemState(-1, 0, wxLIST_STATE_SELECTED);
    m_manager->m_listCtrl->SetItemState(row, wxLIST_STATE_SELECTED, wxLIST_STATE_SELECTED);
  }
  // Starts a download of slow.bin from a server that trickles it, and
  // waits until it is under way.
  void StartSlowDownload() {
    m_trickle = TrickleServer();
    ftpzn::TransferArgs slow = Args("slow.bin");
    slow.port = m_trickle->Port();
    slow.fileSize = 400 * 1024;
    ASSERT_TRUE(m_manager->AddDownload(slow));
    ASSERT_TRUE(PumpUntil([&] { return Cell(0, Column::kColumnStatus).StartsWith("Receiving: slow.bin("); }));
  }
  void Command(int id) {
    wxCommandEvent event(wxEVT_MENU, id);
    m_manager->ProcessWindowEvent(event);
  }

  CDlgFtpTransferManager* m_manager = nullptr;
  std::unique_ptr<fake::FakeServer> m_trickle;
};

TEST_F(ManagerTest, QueuedRowsRunWhileHiddenAndLeave) {
  m_manager->m_bHold = 1;
  ASSERT_TRUE(m_manager->AddDownload(Args("a.bin")));
  ASSERT_TRUE(m_manager->AddUpload(Args("b.bin", true)));
  ftpzn::test::WriteBytes(m_local + "/b.bin", "upload");
  ASSERT_TRUE(WaitRows(2));
  const wxString local = wxString::FromUTF8(m_local);
  const wxString expected[2][6] = {{"a.bin", "127.0.0.1", "/pub", local + "/", "Queued", ""},
                                   {"b.bin", "127.0.0.1", local + "/b.bin", "/up/b.bin", "Queued", ""}};
  for (long row = 0; row < 2; ++row)
    for (int column = 0; column < 6; ++column)
      EXPECT_EQ(Cell(row, column), expected[row][column]) << row << column;
  ftpzn::test::SaveScreenshot("transfer-manager-queued");

  // Closing only hides the window, and says so in the store.
  m_manager->Close();
  EXPECT_FALSE(m_manager->IsShown());
  EXPECT_EQ(ftpzn::GetProfileInt("Settings", "ShowTransferManager", 7), 0);
  m_manager->m_bHold = 0;
  ASSERT_TRUE(WaitRows(0));
  EXPECT_TRUE(ReadBytes(m_local + "/a.bin") == ReadBytes(m_root + "/pub/a.bin"));
  EXPECT_EQ(ReadBytes(m_root + "/up/b.bin"), "upload");
  // The last line also went to the main window's status text, and the
  // local pane was listed again.
  EXPECT_EQ(m_window->m_richLocalTrace->GetValue(), "Finished");
  bool listed = false;
  for (int row = 0; row < m_window->m_ctrlLocal.GetItemCount(); ++row)
    listed = listed || m_window->m_ctrlLocal.GetRowName(row) == "a.bin";
  EXPECT_TRUE(listed);
}

TEST_F(ManagerTest, FailedTransfersListedAgain) {
  // A download that fails is listed again as "Failed" with what it had;
  // with "remove failed" it simply goes.
  for (const int removeFailed : {0, 1}) {
    SCOPED_TRACE(removeFailed);
    m_manager->m_bRemoveFailed = removeFailed;
    ftpzn::TransferArgs missing = Args("missing.bin");
    missing.fileSize = 1234;
    ASSERT_TRUE(m_manager->AddDownload(missing));
    // Listed again, its fresh worker waiting; or gone.
    ASSERT_TRUE(PumpUntil([&] {
      return removeFailed ? m_manager->GetRowCount() == 0
                          : WaitRows(1, 0) && !m_manager->GetRow(0).worker->HasStarted();
    }));
    if (removeFailed == 0) {
      EXPECT_EQ(Cell(0, Column::kColumnStatus), "Failed");
      EXPECT_EQ(Cell(0, Column::kColumnFilename), "missing.bin");
      EXPECT_EQ(m_manager->GetRow(0).worker->m_dwFileSize, 1234u);
      // A failed row is not started again unless resubmitted.
      Select(0);
      Command(CDlgFtpTransferManager::ID_TRANSFER_RESUBMIT);
      EXPECT_TRUE(m_manager->GetRow(0).worker->HasStarted());
      ASSERT_TRUE(
          PumpUntil([&] { return ListedRows() == 1 && m_manager->GetRow(0).worker->HasStarted() == false; }));
      Command(CDlgFtpTransferManager::ID_EDIT_SELECT_ALL);
      Command(CDlgFtpTransferManager::ID_TRANSFER_CANCEL);
      ASSERT_TRUE(WaitRows(0));
    }
  }

  // An upload that fails is listed again with its settings one place
  // early: queued, on the port that held the passive flag.
  m_manager->m_bRemoveFailed = 0;
  ftpzn::TransferArgs upload = Args("nothing-here.bin", true);
  upload.attempts = 1;
  upload.retryDelay = 2;
  ASSERT_TRUE(m_manager->AddUpload(upload));
  CThreadFtp* again = nullptr;
  ASSERT_TRUE(PumpUntil([&] {
    again = m_manager->GetRowCount() == 1 && m_manager->GetRow(0).worker->HasStarted()
                ? m_manager->GetRow(0).worker
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
}

TEST_F(ManagerTest, CancelRunningAndQueued) {
  ASSERT_NO_FATAL_FAILURE(StartSlowDownload());
  m_manager->m_bHold = 1;
  ASSERT_TRUE(m_manager->AddDownload(Args("a.bin")));
  ASSERT_TRUE(m_manager->AddUpload(Args("b.bin", true)));
  for (int i = 0; i < 300; ++i) m_manager->AddDownload(Args("b.bin"));
  ASSERT_TRUE(WaitRows(303));
  EXPECT_TRUE(PumpUntil([&] { return !Cell(0, Column::kColumnProgress).empty(); }));
  EXPECT_TRUE(Cell(0, Column::kColumnProgress).Contains("%  ")) << Cell(0, Column::kColumnProgress);
  ftpzn::test::SaveScreenshot("transfer-manager-busy");

  // The running one stops and goes; what it received stays.
  Select(0);
  Command(CDlgFtpTransferManager::ID_TRANSFER_CANCEL);
  ASSERT_TRUE(WaitRows(302));
  const size_t kept = ReadBytes(m_local + "/slow.bin").size();
  EXPECT_GT(kept, 0u);
  EXPECT_LT(kept, 400u * 1024);
  // A queued download goes too; a queued upload tells nothing and stays.
  Select(0);
  Command(CDlgFtpTransferManager::ID_TRANSFER_CANCEL);
  ASSERT_TRUE(WaitRows(301));
  EXPECT_EQ(Cell(0, Column::kColumnFilename), "b.bin");
  Select(0);
  Command(CDlgFtpTransferManager::ID_TRANSFER_CANCEL);
  PumpFor(100);
  EXPECT_EQ(ListedRows(), 301);
  EXPECT_EQ(Cell(0, Column::kColumnStatus), "Queued");
  EXPECT_EQ(m_manager->m_listUploads.size(), 1u);

  // Invert Selection leaves all but that one selected.
  Command(CDlgFtpTransferManager::ID_EDIT_INVERT_SELECTION);
  EXPECT_EQ(m_manager->m_listCtrl->GetSelectedItemCount(), 300);
  EXPECT_EQ(m_manager->m_listCtrl->GetItemState(0, wxLIST_STATE_SELECTED), 0);
}

TEST_F(ManagerTest, DestroyedWhileTransferring) {
  ASSERT_NO_FATAL_FAILURE(StartSlowDownload());
  wxWeakRef<wxWindow> manager(m_manager);
  const auto start = std::chrono::steady_clock::now();
  m_window->Destroy();
  m_window = nullptr;
  ASSERT_TRUE(PumpUntil([&] { return !manager; }));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1000));
  const size_t kept = ReadBytes(m_local + "/slow.bin").size();
  EXPECT_GT(kept, 0u);
  EXPECT_LT(kept, 400u * 1024);
}

TEST(ManagerPlacement, RestoredClampedAndSaved) {
  const wxSize screen = wxGetDisplaySize();
  struct Case {
    const char* what;
    int savePosition;
    wxRect stored;
    wxRect expected;  // empty: the template position
  } cases[] = {
      {"on the screen", 1, wxRect(100, 120, 500, 300), wxRect(100, 120, 500, 300)},
      {"off the screen", 1, wxRect(5000, 4000, 600, 250),
       wxRect(screen.x - 32, screen.y - 32, 5600 - (screen.x - 32), 4250 - (screen.y - 32))},
      {"not kept", 0, wxRect(100, 120, 500, 300), wxRect()},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    ftpzn::WriteProfileInt("Settings", "SavePosition", c.savePosition);
    ftpzn::WriteProfileInt("TransferManager", "WndLeft", c.stored.x);
    ftpzn::WriteProfileInt("TransferManager", "WndTop", c.stored.y);
    ftpzn::WriteProfileInt("TransferManager", "WndRight", c.stored.GetRight() + 1);
    ftpzn::WriteProfileInt("TransferManager", "WndBottom", c.stored.GetBottom() + 1);
    auto* manager = new CDlgFtpTransferManager;
    ASSERT_TRUE(manager->Create(1));
    PumpFor(30);
    if (!c.expected.IsEmpty()) {
      EXPECT_EQ(manager->GetRect(), c.expected);
    }
    manager->SetSize(40, 50, 610, 260);
    delete manager;
    // Saved when kept, the stored values left alone otherwise.
    const bool kept = c.savePosition != 0;
    EXPECT_EQ(ftpzn::GetProfileInt("TransferManager", "WndLeft", -1), kept ? 40 : c.stored.x);
    EXPECT_EQ(ftpzn::GetProfileInt("TransferManager", "WndBottom", -1),
              kept ? 310 : c.stored.GetBottom() + 1);
    if (kept) {
      EXPECT_EQ(ftpzn::GetProfileInt("TransferManager", "WndStatus", -1), 1);
    }
    wxConfigBase::Get()->DeleteAll();
  }
}

}  // namespace
