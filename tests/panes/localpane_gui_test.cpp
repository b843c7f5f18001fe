// The local pane as a real window under Xvfb over temporary directory
// trees, with its dialogs answered by the dialog hook.
#include <gtest/gtest.h>
#include <wx/dnd.h>
#include <wx/frame.h>
#include <wx/menu.h>
#include <wx/textctrl.h>
#include <wx/uiaction.h>

#include <filesystem>
#include <fstream>

#include "gui_harness.h"
#include "temp_tree.h"
#include "panes/ftplistzn.h"
#include "res/menus.h"
#include "ui/dialogs.h"
#include "ui/dlginputstring.h"

namespace {

namespace fs = std::filesystem;
using ftpzn::test::DialogScript;
using ftpzn::test::PumpFor;
using Texts = std::vector<wxString>;

class LocalPane : public testing::Test, public ftpzn::test::TempTree {
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

  wxString m_directory;
  wxFrame* m_frame = new wxFrame(nullptr, wxID_ANY, "panes", wxPoint(0, 0), wxSize(640, 420));
  CFtpListzn1Local* m_pane = new CFtpListzn1Local;
};

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
  // A link goes as a link: what it points to stays.
  fs::create_directory_symlink(m_root / "n1", m_root / "tree/d0/link-to-n1");
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
}

// The pane's context menu is the "Local" popup: the commands it handles,
// and "Save list..." that nothing handles. The bookmark menu is a resource
// of its own that the main window does not load.
TEST(Menus, LocalPopupAndBookmarkMenuItemsInOrder) {
  std::unique_ptr<wxMenu> popup(ftpzn::res::LoadPopup(ftpzn::res::kMenuMain, 2));
  std::unique_ptr<wxMenuBar> bar(ftpzn::res::LoadMenuBar(ftpzn::res::kMenuBookmarks));
  ASSERT_TRUE(popup && bar && bar->GetMenuCount() == 1);
  EXPECT_EQ(bar->GetMenuLabelText(0), "Bookmark");
  const std::pair<wxMenu*, std::vector<int>> menus[] = {
      {popup.get(),
       {ID_LOCAL_REFRESH, ID_LOCAL_UP_DIRECTORY, ID_LOCAL_CHANGE_DIRECTORY, ID_LOCAL_NEW_DIRECTORY, ID_LOCAL_DELETE,
        ID_LOCAL_DELETE_FILE, ID_LOCAL_DELETE_DIRECTORY, ID_LOCAL_DELETE_RECURSIVE, ID_LOCAL_SAVE_LIST}},
      {bar->GetMenu(0), {9119, 9129, 0, 9130, 9098}}};  // 0: a separator
  for (const auto& [menu, expected] : menus) {
    std::vector<int> ids;
    for (wxMenuItem* item : menu->GetMenuItems()) ids.push_back(item->IsSeparator() ? 0 : item->GetId());
    EXPECT_EQ(ids, expected);
  }
  EXPECT_EQ(bar->GetMenu(0)->GetLabelText(9129), "Add Bookmark");
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

}  // namespace
