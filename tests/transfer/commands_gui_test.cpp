// The Download and Upload commands in the real main window under Xvfb,
// connected to vsftpd on loopback: what they ask, what they queue, and
// what arrives; the replace prompts answered by the dialog hook.
#include <gtest/gtest.h>
#include <wx/app.h>
#include <wx/button.h>
#include <wx/stattext.h>
#include <wx/timer.h>

#include <filesystem>

#include "gui_harness.h"
#include "mainwnd/dlgftpmainwnd.h"
#include "transfer/dlgftptransfermanager.h"
#include "transfer/dlgprogress.h"
#include "transfer/dlgreplace.h"
#include "window_fixture.h"

namespace {

namespace fs = std::filesystem;
using ftpzn::test::DialogScript;
using ftpzn::test::PumpFor;
using ftpzn::test::PumpUntil;
using ftpzn::test::ReadBytes;
using ftpzn::testing::FtpServerKind;
using ftpzn::testing::FtpTestServer;

class CommandsTest : public ftpzn::test::WindowTest {
 protected:
  // Logs in as the connect command would and lists `remoteDir`.
  void Connect(const wxString& remoteDir) {
    ftpzn::test::LogIn(*m_window, m_port);
    m_window->m_strRemoteDir = remoteDir;
    ASSERT_EQ(m_window->m_ctrlRemote.FillDirectory(remoteDir, m_window->m_pFtpConnection.get(), true), 1);
  }
  void ListLocal() { m_window->m_ctrlLocal.FillDirectory(wxString::FromUTF8(m_local)); }
  static void Select(CFtpListzn& pane, std::initializer_list<wxString> names) {
    for (int row = 0; row < pane.GetItemCount(); ++row) {
      bool wanted = false;
      for (const wxString& name : names) wanted = wanted || pane.GetRowName(row) == name;
      pane.SetItemState(row, wanted ? wxLIST_STATE_SELECTED : 0, wxLIST_STATE_SELECTED);
    }
    ASSERT_EQ(pane.GetSelectedItemCount(), static_cast<int>(names.size()));
  }
  void Press(int id) {
    wxCommandEvent event(wxEVT_BUTTON, id);
    event.SetEventObject(m_window);
    m_window->ProcessWindowEvent(event);
  }
  bool TransfersDone() {
    return PumpUntil([&] { return m_window->m_pTransferManager->GetRowCount() == 0; }, 20000);
  }
  std::string Local(const std::string& relative) const { return m_local + "/" + relative; }
  std::vector<wxString> Results() const {
    return {m_window->m_arrDownloadResults.begin(), m_window->m_arrDownloadResults.end()};
  }
};

TEST_F(CommandsTest, RefusedWithoutAConnectionOrADirectory) {
  DialogScript::ExpectMessageBox();
  DialogScript::ExpectMessageBox();
  Press(CDlgFTPMainWnd::ID_DOWNLOAD);
  Press(CDlgFTPMainWnd::ID_UPLOAD);
  Connect("/cmd");
  m_window->m_strRemoteDir = "/gone";
  DialogScript::ExpectMessageBox();
  Press(CDlgFTPMainWnd::ID_DOWNLOAD);
  EXPECT_EQ(DialogScript::MessageBoxTexts(),
            (std::vector<wxString>{"Please connect a ftp site first!", "Please connect ftp site first",
                                   "SetCurrentDirectory:/gone error:12003"}));
}

TEST_F(CommandsTest, DownloadFilesAndAFolderThenUploadATree) {
  Connect("/cmd");
  Select(m_window->m_ctrlRemote, {"f1.txt", "d", "f2.txt"});
  Press(CDlgFTPMainWnd::ID_DOWNLOAD);
  ASSERT_TRUE(TransfersDone());
  for (const char* file : {"f1.txt", "f2.txt", "d/g.txt", "d/sub/h.txt"})
    EXPECT_TRUE(ReadBytes(Local(file)) == ReadBytes(m_root + "/cmd/" + file)) << file;
  // The files themselves are the result a modal run hands over, not what
  // the folder held.
  const wxString local = wxString::FromUTF8(m_local);
  EXPECT_EQ(Results(), (std::vector<wxString>{local + "/f1.txt", local + "/f2.txt"}));

  // The same tree back up, under new names: a sub-folder whose first
  // character occurs nowhere in the local path, which the set-trim keeps.
  fs::rename(Local("d"), Local("_tree"));
  fs::rename(Local("_tree/sub"), Local("_tree/#sub"));
  m_window->m_strRemoteDir = "/up";
  m_window->m_ctrlRemote.FillDirectory("/up", m_window->m_pFtpConnection.get(), true);
  ListLocal();
  Select(m_window->m_ctrlLocal, {"_tree"});
  Press(CDlgFTPMainWnd::ID_UPLOAD);
  ASSERT_TRUE(TransfersDone());
  EXPECT_TRUE(ReadBytes(m_root + "/up/_tree/g.txt") == ReadBytes(m_root + "/cmd/d/g.txt"));
  EXPECT_EQ(ReadBytes(m_root + "/up/_tree/#sub/h.txt"), "h");
}

TEST_F(CommandsTest, ReplacePromptsAnswered) {
  Connect("/cmd");
  const wxString local = wxString::FromUTF8(m_local);
  struct Case {
    const char* what;
    std::vector<int> answers;
    std::vector<wxString> queued;
  } cases[] = {
      {"Yes to All at the first", {ftpzn::kResultYesToAll}, {local + "/f1.txt", local + "/f2.txt"}},
      {"Yes, then Cancel", {ftpzn::kResultYes, ftpzn::kResultCancel}, {local + "/f1.txt"}},
      {"No, then Yes", {ftpzn::kResultNo, ftpzn::kResultYes}, {local + "/f2.txt"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    ftpzn::test::WriteBytes(Local("f1.txt"), "old one");
    ftpzn::test::WriteBytes(Local("f2.txt"), "old two");
    m_window->m_arrDownloadResults.clear();
    m_window->m_pTransferManager->m_bHold = 1;
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
    m_window->m_pTransferManager->KillAll();
  }
}

// A prompt for one selected entry, shown for real: only Yes and No, in the
// two right-most places.
TEST_F(CommandsTest, ASingleEntryIsAskedYesOrNo) {
  Connect("/cmd");
  ftpzn::test::WriteBytes(Local("f1.txt"), "old one");
  fs::create_directories(Local("d"));
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
      ftpzn::test::SaveScreenshot(std::string("replace-") + (std::string(name) == "d" ? "folder" : "file"));
      d->EndModal(ftpzn::kResultNo);
    };
    DialogScript::Expect(std::move(prompt));
    Select(m_window->m_ctrlRemote, {name});
    Press(CDlgFTPMainWnd::ID_DOWNLOAD);
    EXPECT_EQ(m_window->m_pTransferManager->GetRowCount(), 0u);
  }
  EXPECT_EQ(ReadBytes(Local("f1.txt")), "old one");
}

// A walk that lasts shows its progress window; Cancel there ends the
// command: what was queued before stays, nothing of the folder is.
TEST_F(CommandsTest, ALongWalkShowsProgressAndCancels) {
  Connect("/cmd");
  Select(m_window->m_ctrlRemote, {"f1.txt", "many"});
  m_window->m_pTransferManager->m_bHold = 1;
  bool windowDisabled = false;
  bool cancelled = false;
  int seen = 0;
  wxTimer watch;
  watch.Bind(wxEVT_TIMER, [&](wxTimerEvent&) {
    for (wxWindow* w : wxTopLevelWindows) {
      auto* progress = dynamic_cast<CDlgProgress*>(w);
      // A few ticks after it shows, so that the walk's own pumps painted it.
      if (!progress || !progress->IsShown() || cancelled || ++seen < 2) continue;
      windowDisabled = !m_window->IsEnabled();
      ftpzn::test::SaveScreenshot("walk-progress");
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
  EXPECT_EQ(m_window->m_pTransferManager->GetRowCount(), 1u);  // f1.txt alone
  EXPECT_EQ(m_window->m_arrDownloadResults.size(), 1u);
  EXPECT_FALSE(fs::exists(Local("many")));
  EXPECT_EQ(m_window->m_pTransferManager->m_bHold, 0);
  m_window->m_pTransferManager->KillAll();
}

}  // namespace
