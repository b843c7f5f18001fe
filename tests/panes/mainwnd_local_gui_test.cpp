// The local pane inside the real main window: the path box follows every
// navigation, and the window's commands reach the pane first.
#include <gtest/gtest.h>
#include <wx/dnd.h>
#include <wx/textctrl.h>
#include <wx/toplevel.h>

#include <filesystem>
#include <fstream>

#include <ftpzn/ftpface.h>
#include "gui_harness.h"
#include "mainwnd/dlgftpmainwnd.h"
#include "ui/dlginputstring.h"

namespace {

namespace fs = std::filesystem;
using ftpzn::test::DialogScript;

class MainWindowLocalPane : public testing::Test {
 protected:
  void SetUp() override {
    m_root = ftpzn::test::MakeTempDir("ftpzn-mainwnd-");
    ASSERT_FALSE(m_root.empty());
    fs::create_directories(m_root / "sub/inner");
    std::ofstream(m_root / "sub/file.txt") << "x";
    m_window = new CDlgFTPMainWnd;
    ASSERT_TRUE(m_window->Create());
    m_window->Show();
    ftpzn::test::PumpFor(50);
  }
  void TearDown() override {
    DialogScript::VerifyAndClear();
    m_window->Destroy();
    ftpzn::test::PumpFor(20);
  }
  wxString Path(const fs::path& relative = {}) const {
    return wxString::FromUTF8((relative.empty() ? m_root : m_root / relative).string());
  }
  bool Command(int id) {
    wxCommandEvent event(wxEVT_MENU, id);
    event.SetEventObject(m_window);
    return m_window->ProcessWindowEvent(event);
  }
  wxString PathBox() const { return m_window->m_editLocalDir->GetValue(); }
  CFtpListzn1Local& Pane() { return m_window->m_ctrlLocal; }

  fs::path m_root;
  CDlgFTPMainWnd* m_window = nullptr;
};

TEST_F(MainWindowLocalPane, PathBoxFollowsNavigation) {
  ASSERT_EQ(m_window->SetLocalDirectory(Path()), 1);
  EXPECT_EQ(PathBox(), Path());
  ASSERT_EQ(Pane().GetRowName(1), "sub");
  Pane().DoubleClickRow(1);
  EXPECT_EQ(PathBox(), Path("sub"));
  EXPECT_EQ(Pane().GetRowName(1), "file.txt");
  // The menu's Up Directory goes to the pane through the window.
  EXPECT_TRUE(Command(ID_LOCAL_UP_DIRECTORY));
  EXPECT_EQ(PathBox(), Path());
  EXPECT_EQ(m_window->m_strLocalDir, Path());
}

TEST_F(MainWindowLocalPane, NewDirectoryFromTheMenuAndDropsLeaveThePathBox) {
  ASSERT_EQ(m_window->SetLocalDirectory(Path()), 1);
  DialogScript::ExpectModal<CDlgInputString>(ftpzn::kResultOk, [](CDlgInputString* dialog) {
    EXPECT_EQ(dialog->m_strTitle, "Type directory name");
    dialog->m_strInput = "fresh";
  });
  EXPECT_TRUE(Command(ID_LOCAL_NEW_DIRECTORY));
  EXPECT_TRUE(fs::is_directory(m_root / "fresh"));
  EXPECT_EQ(Pane().GetRowName(1), "fresh");
  auto* target = dynamic_cast<wxFileDropTarget*>(Pane().GetDropTarget());
  ASSERT_NE(target, nullptr);
  wxArrayString dropped;
  dropped.Add(Path("sub/inner"));
  target->OnDropFiles(5, 5, dropped);
  EXPECT_EQ(Pane().GetItemCount(), 1);  // inner is empty: the parent row alone
  EXPECT_EQ(PathBox(), Path());
  // Refresh lists the current directory again, not the dropped one.
  EXPECT_TRUE(Command(ID_LOCAL_REFRESH));
  EXPECT_EQ(Pane().GetItemCount(), 3);
}

TEST_F(MainWindowLocalPane, UnreadableStartDirectoryShowsTheFallback) {
  DialogScript::ExpectMessageBox();
  ASSERT_EQ(m_window->SetLocalDirectory(Path("missing")), 1);
  EXPECT_EQ(DialogScript::MessageBoxTexts(),
            std::vector<wxString>{"Find local fold error, trying defaul..."});
  EXPECT_EQ(PathBox(), Path("missing"));
  EXPECT_GE(Pane().GetItemCount(), 1);
  EXPECT_EQ(Pane().GetRowName(0), "..Up");
}

TEST(EntryLocalPane, ShowFrameWndListsTheHostsDirectory) {
  const std::string root = ftpzn::test::MakeTempDir("ftpzn-entry-");
  std::ofstream(fs::path(root) / "from-host.txt") << "x";
  Cftpfacezn face;
  ASSERT_EQ(face.showFrameWnd(wxString::FromUTF8(root), nullptr), 1);
  CDlgFTPMainWnd* window = nullptr;
  for (wxWindow* top : wxTopLevelWindows)
    if (auto* main = dynamic_cast<CDlgFTPMainWnd*>(top); main && main->IsShown()) window = main;
  ASSERT_NE(window, nullptr);
  EXPECT_EQ(window->m_editLocalDir->GetValue(), wxString::FromUTF8(root));
  ASSERT_EQ(window->m_ctrlLocal.GetItemCount(), 2);
  EXPECT_EQ(window->m_ctrlLocal.GetRowName(1), "from-host.txt");
  // An empty directory from the host means the home directory.
  ASSERT_EQ(face.showFrameWnd(wxString(), nullptr), 1);
  EXPECT_EQ(window->m_editLocalDir->GetValue(), wxGetHomeDir());
  EXPECT_EQ(window->m_ctrlLocal.GetRowName(0), "..Up");
}

}  // namespace
