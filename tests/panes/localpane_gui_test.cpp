// The local pane as a real window under Xvfb, alone and inside the main
// window, over temporary directory trees, with its dialogs answered by the
// dialog hook.
#include <ftpzn/ftpface.h>
#include <gtest/gtest.h>
#include <wx/dnd.h>
#include <wx/frame.h>
#include <wx/menu.h>
#include <wx/textctrl.h>
#include <wx/uiaction.h>

#include <filesystem>
#include <fstream>

#include "gui_harness.h"
#include "mainwnd/dlgftpmainwnd.h"
#include "panes/ftplistzn.h"
#include "res/menus.h"
#include "ui/dialogs.h"
#include "ui/dlginputstring.h"

namespace {

namespace fs = std::filesystem;
using ftpzn::test::DialogScript;
using ftpzn::test::PumpFor;
using Texts = std::vector<wxString>;

class LocalPane : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(m_pane->Create(m_frame, 9068, wxPoint(0, 0), wxSize(500, 400)));
    m_pane->CreateImageList();
    m_pane->InsertColumns();
    m_pane->m_pstrDirectory = &m_directory;
    m_frame->Show();
    PumpFor(50);
  }
  void TearDown() override {
    DialogScript::VerifyAndClear();
    m_frame->Destroy();
    PumpFor(20);
  }

  // Files of `bytes` bytes; a name ending in '/' is a folder.
  void Make(std::initializer_list<fs::path> paths, size_t bytes = 0) {
    for (const fs::path& p : paths) {
      fs::create_directories((m_root / p).parent_path());
      if (!p.filename().empty()) std::ofstream(m_root / p) << std::string(bytes, 'x');
    }
  }
  wxString Path(const fs::path& relative = {}) const {
    return wxString::FromUTF8((relative.empty() ? m_root : m_root / relative).string());
  }
  Texts Column(int column) const {
    Texts texts;
    for (int row = 0; row < m_pane->GetItemCount(); ++row) texts.push_back(m_pane->GetItemText(row, column));
    return texts;
  }
  int Row(const wxString& name) const {
    for (int row = 0; row < m_pane->GetItemCount(); ++row)
      if (m_pane->GetRowName(row) == name) return row;
    ADD_FAILURE() << "no row " << name.utf8_str();
    return -1;
  }
  void Select(const Texts& names) {
    for (int row = 0; row < m_pane->GetItemCount(); ++row)
      m_pane->SetItemState(row, 0, wxLIST_STATE_SELECTED);
    for (const wxString& name : names)
      m_pane->SetItemState(Row(name), wxLIST_STATE_SELECTED, wxLIST_STATE_SELECTED);
  }
  // A command as the main window routes it: offered to the pane alone.
  bool Command(int id) {
    wxCommandEvent event(wxEVT_MENU, id);
    event.SetEventObject(m_pane);
    return m_pane->ProcessWindowEventLocally(event);
  }
  // Runs `act`, expecting exactly the message boxes `texts` after the
  // dialogs `first` expects.
  void Says(
      const std::function<void()>& act, const Texts& texts, const std::function<void()>& first = [] {}) {
    DialogScript::VerifyAndClear();
    first();
    for (size_t i = 0; i < texts.size(); ++i) DialogScript::ExpectMessageBox();
    act();
    EXPECT_EQ(DialogScript::MessageBoxTexts(), texts);
  }

  const fs::path m_root = ftpzn::test::MakeTempDir("ftpzn-pane-");
  wxString m_directory;
  wxFrame* m_frame = new wxFrame(nullptr, wxID_ANY, "panes", wxPoint(0, 0), wxSize(640, 420));
  CFtpListzn1Local* m_pane = new CFtpListzn1Local;
};

TEST_F(LocalPane, ListsParentRowFirstThenNamesByUpperCase) {
  Make({"A.pdf", "sub/", "noext/"});
  Make({"b.txt"}, 1025);
  Make({"_under"}, 1048576);
  Make({"Zed.qqzz", "archive.tar.gz"}, 10);
  Says([&] { ASSERT_EQ(m_pane->FillDirectory(Path()), 1); }, {});
  EXPECT_EQ(m_directory, Path());
  EXPECT_EQ(Column(0),
            (Texts{"..Up", "A.pdf", "archive.tar.gz", "b.txt", "noext", "sub", "Zed.qqzz", "_under"}));
  EXPECT_EQ(Column(1), (Texts{"", "1 KB", "1 KB", "2 KB", "", "", "1 KB", "1,024 KB"}));
  EXPECT_EQ(Column(2), (Texts{"..Up", "PDF document", "Tar archive (gzip-compressed)", "plain text document",
                              "Folder", "Folder", "QQZZ File", "File"}));
  EXPECT_TRUE(m_pane->GetItemText(3, 3).StartsWith(wxDateTime::Now().Format("%y/%m/%d")))
      << m_pane->GetItemText(3, 3);
  EXPECT_EQ(std::tuple(m_pane->IsItemFolder(0), m_pane->IsItemFolder(Row("sub")),
                       m_pane->IsItemFolder(Row("b.txt")), m_pane->GetItemSize(Row("b.txt"))),
            std::tuple(1, 1, 0, 1025u));
  m_pane->SetSize(620, 280);
  for (int column : {0, 2, 3}) m_pane->SetColumnWidth(column, column == 2 ? 200 : 140);
  EXPECT_FALSE(ftpzn::test::SaveScreenshot("local-pane").empty());
  // A second fill replaces the rows, parent row first again.
  Make({"0first"});
  ASSERT_EQ(m_pane->FillDirectory(Path()), 1);
  EXPECT_EQ(Column(0).size(), 9u);
  EXPECT_EQ(Column(0)[1], "0first");
}

TEST_F(LocalPane, EntersFoldersGoesUpToTheRootAndFallsBackHome) {
  Make({"sub/inner/deep.txt", "plain.txt", "vanishing/"});
  ASSERT_EQ(m_pane->FillDirectory(Path()), 1);
  m_pane->DoubleClickRow(Row("sub"));
  m_pane->DoubleClickRow(Row("inner"));
  EXPECT_EQ(std::pair(m_directory, m_pane->GetRowName(1)),
            std::pair(Path("sub/inner"), wxString("deep.txt")));
  // A file row, or a row past the end, does nothing.
  m_pane->DoubleClickRow(1);
  m_pane->DoubleClickRow(-1);
  EXPECT_EQ(m_directory, Path("sub/inner"));
  ASSERT_EQ(m_pane->GoUpDirectory(), 1);
  EXPECT_EQ(std::pair(m_directory, m_pane->GetRowName(1)), std::pair(Path("sub"), wxString("inner")));
  // Row 0 always goes up, a real double click on it too, and so does the
  // Up Directory command.
  wxRect rect;
  ASSERT_TRUE(m_pane->GetItemRect(0, rect));
  wxUIActionSimulator sim;
  sim.MouseMove(m_pane->ClientToScreen(rect.GetPosition() + wxPoint(20, rect.height / 2)));
  PumpFor(50);
  sim.MouseDblClick();
  EXPECT_TRUE(ftpzn::test::PumpUntil([&] { return m_directory == Path(); }, 3000)) << m_directory;
  // Root reads every directory, so the unreadable folder is one removed
  // after it was listed: opening it fails with ENOENT.
  fs::remove(m_root / "vanishing");
  Says([&] { EXPECT_EQ(m_pane->OpenItem(Row("vanishing")), 0); }, {"Find file error:2"});
  EXPECT_EQ(std::pair(m_directory, m_pane->GetItemCount()), std::pair(Path(), 4));
  m_pane->DoubleClickRow(0);
  EXPECT_TRUE(Command(ID_LOCAL_UP_DIRECTORY));
  EXPECT_EQ(m_directory, Path(m_root.parent_path().parent_path()));
  for (int step = 0; step < 64 && m_directory != "/"; ++step) ASSERT_EQ(m_pane->GoUpDirectory(), 1);
  ASSERT_EQ(m_directory, "/");
  EXPECT_NE(Row("tmp"), -1);
  Says([&] { EXPECT_EQ(m_pane->GoUpDirectory(), 0); }, {"Can't go up!"});
  EXPECT_EQ(m_directory, "/");
  // A listing that fails falls back to the home directory but keeps the
  // path asked for.
  std::ofstream(fs::path(wxGetHomeDir().utf8_string()) / "home-marker");
  Says([&] { ASSERT_EQ(m_pane->FillDirectory(Path("missing")), 1); },
       {"Find local fold error, trying defaul..."});
  EXPECT_NE(Row("home-marker"), -1);
  EXPECT_EQ(m_directory, Path("missing"));
  // Going up from a directory whose parent has gone.
  m_directory = Path("gone/child");
  Says([&] { EXPECT_EQ(m_pane->GoUpDirectory(), 0); }, {"File file error:2"});
  EXPECT_EQ(m_directory, Path("gone/child"));
  EXPECT_EQ(m_pane->FillDirectory(""), 0);
}

TEST_F(LocalPane, NameDialogsChangeAndCreateDirectories) {
  Make({"sub/deeper/x.txt"});
  ASSERT_EQ(m_pane->FillDirectory(Path()), 1);
  // Change Directory takes the typed text as relative, even after a
  // separator; New Directory creates below the current directory.
  const std::tuple<int, int, wxString, Texts, wxString, wxString> steps[] = {
      {ID_LOCAL_CHANGE_DIRECTORY, ftpzn::kResultOk, "sub/", {}, Path("sub"), "deeper"},
      {ID_LOCAL_CHANGE_DIRECTORY, ftpzn::kResultOk, "//deeper//", {}, Path("sub/deeper"), "x.txt"},
      {ID_LOCAL_CHANGE_DIRECTORY,
       ftpzn::kResultOk,
       "nope",
       {"Find local directory error!"},
       Path("sub/deeper"),
       "x.txt"},
      {ID_LOCAL_CHANGE_DIRECTORY, ftpzn::kResultCancel, "..", {}, Path("sub/deeper"), "x.txt"},
      {ID_LOCAL_NEW_DIRECTORY, ftpzn::kResultOk, "made", {}, Path("sub/deeper"), "made"},
      {ID_LOCAL_NEW_DIRECTORY,
       ftpzn::kResultOk,
       "/made",
       {"Create directory error:" + Path("sub/deeper/made") + " error:17"},
       Path("sub/deeper"),
       "made"},
      {ID_LOCAL_NEW_DIRECTORY, ftpzn::kResultCancel, "other", {}, Path("sub/deeper"), "made"},
  };
  for (const auto& [command, result, typed, messages, directory, firstRow] : steps) {
    SCOPED_TRACE(typed);
    const bool change = command == ID_LOCAL_CHANGE_DIRECTORY;
    Says([&] { EXPECT_TRUE(Command(command)); }, messages,
         [&] {
           DialogScript::ExpectModal<CDlgInputString>(result, [&](CDlgInputString* dialog) {
             EXPECT_EQ(dialog->m_strTitle, change ? "Type new directory name" : "Type directory name");
             EXPECT_EQ(dialog->m_strInput, change ? "To Directory" : "Please input here...");
             dialog->m_strInput = typed;
           });
         });
    EXPECT_EQ(std::pair(m_directory, m_pane->GetRowName(1)), std::pair(directory, firstRow));
  }
  EXPECT_TRUE(fs::is_directory(m_root / "sub/deeper/made"));
  EXPECT_FALSE(fs::exists(m_root / "sub/deeper/other"));
}

TEST_F(LocalPane, DeleteCommandsActOnTheirKindOfRow) {
  Make({"f1", "f2", "f3", "e1/", "e2/", "e3/", "n1/inside", "hollow/", "tree/"});
  fs::path deep = "tree";
  for (int level = 0; level < 8; ++level) {
    deep /= "d" + std::to_string(level);
    Make({deep / "data.bin", deep / "empty/"}, 100);
  }
  ASSERT_EQ(m_pane->FillDirectory(Path()), 1);
  const wxString notEmpty = "Directory:" + Path("n1") + " is not empty!";
  // The parent row is a folder named "..Up" like any other; Delete
  // Recursive asks nothing and removes whole trees. The rows are listed
  // again after each command.
  const std::tuple<Texts, int, Texts, Texts> steps[] = {
      {{"f1", "e1", "n1"},
       ID_LOCAL_DELETE,
       {notEmpty},
       {"..Up", "e2", "e3", "f2", "f3", "hollow", "n1", "tree"}},
      {{"f2", "e2"}, ID_LOCAL_DELETE_FILE, {}, {"..Up", "e2", "e3", "f3", "hollow", "n1", "tree"}},
      {{"f3", "e2", "n1"},
       ID_LOCAL_DELETE_DIRECTORY,
       {notEmpty},
       {"..Up", "e3", "f3", "hollow", "n1", "tree"}},
      {{"..Up", "e3"},
       ID_LOCAL_DELETE,
       {"Remove directory:" + Path("..Up") + " error:2"},
       {"..Up", "f3", "hollow", "n1", "tree"}},
      {{"tree", "hollow"}, ID_LOCAL_DELETE_RECURSIVE, {}, {"..Up", "f3", "n1"}},
  };
  for (const auto& [selected, command, messages, rows] : steps) {
    SCOPED_TRACE(command);
    Select(selected);
    Says([&] { EXPECT_TRUE(Command(command)); }, messages);
    EXPECT_EQ(Column(0), rows);
  }
  EXPECT_TRUE(fs::exists(m_root / "n1/inside"));
  // A file that went away after it was listed.
  Select({"f3"});
  fs::remove(m_root / "f3");
  Says([&] { EXPECT_TRUE(Command(ID_LOCAL_DELETE_FILE)); }, {"Delete file:" + Path("f3") + " error:2"});
  EXPECT_EQ(Column(0), (Texts{"..Up", "n1"}));
  Select({"n1"});
  Says([&] { EXPECT_TRUE(Command(ID_LOCAL_DELETE_RECURSIVE)); }, {});
  EXPECT_TRUE(fs::is_empty(m_root));
  EXPECT_EQ(m_pane->GetItemCount(), 1);
}

TEST_F(LocalPane, OddNamesAreShownEnteredAndDeletedWhereTheyAre) {
  Make({"old\xE9/inner.txt", "latin\xE9.txt", "star*/victim", "star*/other", "star/victim"});
  ASSERT_EQ(m_pane->FillDirectory(Path()), 1);
  PumpFor(30);  // drawn without complaint
  const wxString dir = ftpzn::LocalNameFromBytes("old\xE9"),
                 file = ftpzn::LocalNameFromBytes("latin\xE9.txt");
  EXPECT_EQ(m_pane->GetItemText(Row(file), 0), wxString(L"latin\uFFFD.txt"));
  Select({file});
  Says([&] { EXPECT_TRUE(Command(ID_LOCAL_DELETE)); }, {});
  EXPECT_FALSE(fs::exists(m_root / "latin\xE9.txt"));
  m_pane->DoubleClickRow(Row(dir));
  EXPECT_EQ(std::pair(m_directory, m_pane->GetRowName(1)),
            std::pair(Path() + "/" + dir, wxString("inner.txt")));
  // A folder named with a trailing star stays current after a refresh, and
  // a delete acts on the folder the rows show, never on its namesake.
  ASSERT_EQ(m_pane->FillDirectory(Path()), 1);
  m_pane->DoubleClickRow(Row("star*"));
  EXPECT_TRUE(Command(ID_LOCAL_REFRESH));
  EXPECT_EQ(m_directory, Path("star*"));
  Select({"victim"});
  Says([&] { EXPECT_TRUE(Command(ID_LOCAL_DELETE_FILE)); }, {});
  EXPECT_EQ(std::pair(fs::exists(m_root / "star*/victim"), fs::exists(m_root / "star/victim")),
            std::pair(false, true));
  EXPECT_EQ(m_directory, Path("star*"));
  EXPECT_EQ(Column(0), (Texts{"..Up", "other"}));
}

TEST_F(LocalPane, DropListsTheFolderButKeepsTheCurrentDirectoryAndOwnCommandsOnly) {
  Make({"here/one.txt", "there/two.txt", "there/three.txt"});
  ASSERT_EQ(m_pane->FillDirectory(Path("here")), 1);
  auto* target = dynamic_cast<wxFileDropTarget*>(m_pane->GetDropTarget());
  ASSERT_NE(target, nullptr);
  const std::tuple<std::vector<wxString>, Texts> drops[] = {
      {{Path("there/two.txt"), Path("here/one.txt")}, {"..Up", "three.txt", "two.txt"}},
      {{Path()}, {"..Up", "here", "there"}}};
  for (const auto& [dropped, rows] : drops) {
    EXPECT_TRUE(target->OnDropFiles(10, 10, wxArrayString(dropped.size(), dropped.data())));
    EXPECT_EQ(std::pair(Column(0), m_directory), std::pair(rows, Path("here")));
  }
  EXPECT_TRUE(Command(ID_LOCAL_REFRESH));
  for (int id : {9107, 9108, 9110, 9112, 9113, 9114, 9117, 9094}) EXPECT_FALSE(Command(id)) << id;
  // The context menu is the "Local" popup: the commands this pane handles,
  // and "Save list..." that nothing handles.
  std::unique_ptr<wxMenu> menu(ftpzn::res::LoadPopup(ftpzn::res::kMenuMain, 2));
  ASSERT_TRUE(menu);
  std::vector<int> ids;
  for (wxMenuItem* item : menu->GetMenuItems()) ids.push_back(item->GetId());
  EXPECT_EQ(ids,
            (std::vector<int>{ID_LOCAL_REFRESH, ID_LOCAL_UP_DIRECTORY, ID_LOCAL_CHANGE_DIRECTORY,
                              ID_LOCAL_NEW_DIRECTORY, ID_LOCAL_DELETE, ID_LOCAL_DELETE_FILE,
                              ID_LOCAL_DELETE_DIRECTORY, ID_LOCAL_DELETE_RECURSIVE, ID_LOCAL_SAVE_LIST}));
}

// An enumeration shaped like the remote one.
struct FakeFinder {
  std::wstring GetFileName() const { return L"remote.bin"; }
  uint64_t GetLength() const { return 0x100000400ULL; }
  bool GetLastWriteTime(uint64_t& t) const { return (t = 133000000000000000ULL) != 0; }
  bool IsDirectory() const { return false; }
};

TEST_F(LocalPane, InsertsBuildRowsFromRecordsAndTheBusyAnimationShowsOnce) {
  setenv("TZ", "UTC0", 1);
  tzset();
  // Same name in another case: refused; past the end: appended.
  EXPECT_EQ(std::vector<int>({m_pane->InsertParentItem(), m_pane->InsertNamedItem(1, "Data.TXT", 2048),
                              m_pane->InsertNamedItem(2, "data.txt", 10), m_pane->InsertNamedFolder(1, "box"),
                              m_pane->InsertFoundItem(3, FakeFinder{}),
                              m_pane->InsertFoundItemKeepingTexts(
                                  99, "last", 0, ftpzn::FileTimeFromUnix(-600000000), true)}),
            std::vector<int>({0, 1, -1, 1, 3, 4}));
  EXPECT_EQ(Column(0), (Texts{"..Up", "box", "Data.TXT", "remote.bin", "last"}));
  EXPECT_EQ(Column(1), (Texts{"", "", "2 KB", "1 KB", ""}));
  // The low 32 bits of the length; 1950 cannot be shown.
  EXPECT_EQ(std::tuple(m_pane->GetItemText(1, 2), m_pane->GetItemSize(3), m_pane->GetItemText(4, 3),
                       m_pane->GetItemText(0, 3)),
            std::tuple(wxString("Folder"), 1024u, wxString(), wxString("70/01/01/00/00/00")));
  EXPECT_TRUE(m_pane->GetItemText(2, 3).StartsWith(wxDateTime::Now().Format("%y/%m/%d")));
  EXPECT_EQ(m_pane->GetRecord(7), nullptr);
  for (int row : {2, 4}) m_pane->SetItemState(row, wxLIST_STATE_SELECTED, wxLIST_STATE_SELECTED);
  EXPECT_EQ(std::tuple(m_pane->GetNextSelectedRow(-1), m_pane->GetNextSelectedRow(2),
                       m_pane->GetNextSelectedRow(4)),
            std::tuple(2, 4, -1));
  m_pane->DeleteAllItems();
  EXPECT_EQ(std::pair(m_pane->GetItemCount(), m_pane->GetRecord(0)),
            std::pair(0, (const ftpzn::FileListItem*)nullptr));

  EXPECT_EQ((std::pair{m_pane->ShowBusyAnimation(true, m_frame), m_pane->m_bBusy}), std::pair(1, 1));
  EXPECT_NE(m_frame->FindWindow(9065), nullptr);
  EXPECT_EQ(m_pane->ShowBusyAnimation(true, m_frame), 0);
  EXPECT_EQ((std::pair{m_pane->ShowBusyAnimation(false, m_frame), m_pane->m_bBusy}), std::pair(1, 0));
  EXPECT_TRUE(ftpzn::test::PumpUntil([&] { return m_frame->FindWindow(9065) == nullptr; }, 2000));
  EXPECT_EQ((std::pair{m_pane->ShowBusyAnimation(true, m_frame), m_pane->ShowBusyAnimation(false, nullptr)}),
            std::pair(1, 1));
}

// Inside the real main window the path box follows every navigation, and
// the window's commands reach the pane first.
TEST(MainWindowLocalPane, PathBoxFollowsNavigationAndTheHostsDirectory) {
  const fs::path root = ftpzn::test::MakeTempDir("ftpzn-mainwnd-");
  fs::create_directories(root / "sub/inner");
  std::ofstream(root / "sub/file.txt") << "x";
  const auto path = [&](const fs::path& relative) { return wxString::FromUTF8((root / relative).string()); };
  const wxString top = wxString::FromUTF8(root.string());
  Cftpfacezn face;
  ASSERT_EQ(face.showFrameWnd(top, nullptr), 1);
  CDlgFTPMainWnd* window = nullptr;
  for (wxWindow* shown : wxTopLevelWindows)
    if (auto* main = dynamic_cast<CDlgFTPMainWnd*>(shown); main && main->IsShown()) window = main;
  ASSERT_NE(window, nullptr);
  CFtpListzn1Local& pane = window->m_ctrlLocal;
  const auto box = [&] { return window->m_editLocalDir->GetValue(); };
  const auto command = [&](int id) {
    wxCommandEvent event(wxEVT_MENU, id);
    event.SetEventObject(window);
    return window->ProcessWindowEvent(event);
  };
  EXPECT_EQ(std::tuple(box(), pane.GetItemCount(), pane.GetRowName(1)), std::tuple(top, 2, wxString("sub")));
  pane.DoubleClickRow(1);
  EXPECT_EQ(std::pair(box(), pane.GetRowName(1)), std::pair(path("sub"), wxString("file.txt")));
  // The menu's Up Directory and New Directory go to the pane through the window.
  EXPECT_TRUE(command(ID_LOCAL_UP_DIRECTORY));
  EXPECT_EQ(std::pair(box(), window->m_strLocalDir), std::pair(top, top));
  DialogScript::ExpectModal<CDlgInputString>(ftpzn::kResultOk, [](CDlgInputString* dialog) {
    EXPECT_EQ(dialog->m_strTitle, "Type directory name");
    dialog->m_strInput = "fresh";
  });
  EXPECT_TRUE(command(ID_LOCAL_NEW_DIRECTORY));
  EXPECT_EQ(std::pair(fs::is_directory(root / "fresh"), pane.GetRowName(1)),
            std::pair(true, wxString("fresh")));
  // A drop leaves the path box, and Refresh lists the current directory
  // again, not the dropped one.
  auto* target = dynamic_cast<wxFileDropTarget*>(pane.GetDropTarget());
  ASSERT_NE(target, nullptr);
  const wxString inner = path("sub/inner");
  target->OnDropFiles(5, 5, wxArrayString(1, &inner));
  EXPECT_EQ(std::pair(pane.GetItemCount(), box()),
            std::pair(1, top));  // inner is empty: the parent row alone
  EXPECT_TRUE(command(ID_LOCAL_REFRESH));
  EXPECT_EQ(pane.GetItemCount(), 3);
  // An unreadable directory shows the fallback but keeps the path asked for.
  DialogScript::ExpectMessageBox();
  ASSERT_EQ(window->SetLocalDirectory(path("missing")), 1);
  EXPECT_EQ(DialogScript::MessageBoxTexts(), Texts{"Find local fold error, trying defaul..."});
  EXPECT_EQ(std::pair(box(), pane.GetRowName(0)), std::pair(path("missing"), wxString("..Up")));
  // An empty directory from the host means the home directory.
  ASSERT_EQ(face.showFrameWnd(wxString(), nullptr), 1);
  EXPECT_EQ(std::pair(box(), pane.GetRowName(0)), std::pair(wxGetHomeDir(), wxString("..Up")));
  DialogScript::VerifyAndClear();
}

}  // namespace
