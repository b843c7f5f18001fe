// The local pane as a real window under Xvfb, over temporary directory
// trees, with its dialogs answered by the dialog hook.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <wx/dnd.h>
#include <wx/frame.h>
#include <wx/menu.h>
#include <wx/uiaction.h>
#include <wx/utils.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "gui_harness.h"
#include "panes/ftplistzn.h"
#include "res/menus.h"
#include "ui/dialogs.h"
#include "ui/dlginputstring.h"

namespace {

namespace fs = std::filesystem;
using ftpzn::test::DialogScript;

// The name dialog answered with `result` after checking what it offers and
// putting `typed` into it.
void ExpectNameInput(int result, const wxString& title, const wxString& offered, const wxString& typed) {
  DialogScript::ExpectModal<CDlgInputString>(result, [=](CDlgInputString* dialog) {
    EXPECT_EQ(dialog->m_strTitle, title);
    EXPECT_EQ(dialog->m_strInput, offered);
    dialog->m_strInput = typed;
  });
}

class LocalPane : public testing::Test {
 protected:
  void SetUp() override {
    m_root = ftpzn::test::MakeTempDir("ftpzn-pane-");
    ASSERT_FALSE(m_root.empty());
    m_frame = new wxFrame(nullptr, wxID_ANY, "panes", wxPoint(0, 0), wxSize(520, 420));
    m_pane = new CFtpListzn1Local;
    ASSERT_TRUE(m_pane->Create(m_frame, 9068, wxPoint(0, 0), wxSize(500, 400)));
    m_pane->CreateImageList();
    m_pane->InsertColumns();
    m_pane->m_pstrDirectory = &m_directory;
    m_frame->Show();
    ftpzn::test::PumpFor(50);
  }
  void TearDown() override {
    DialogScript::VerifyAndClear();
    m_frame->Destroy();
    ftpzn::test::PumpFor(20);
  }

  void File(const fs::path& relative, size_t bytes = 0) {
    fs::create_directories((m_root / relative).parent_path());
    std::ofstream(m_root / relative) << std::string(bytes, 'x');
  }
  void Dir(const fs::path& relative) { fs::create_directories(m_root / relative); }
  wxString Path(const fs::path& relative = {}) const {
    return wxString::FromUTF8((relative.empty() ? m_root : m_root / relative).string());
  }
  std::vector<wxString> Column(int column) const {
    std::vector<wxString> texts;
    for (int row = 0; row < m_pane->GetItemCount(); ++row) texts.push_back(m_pane->GetItemText(row, column));
    return texts;
  }
  int Row(const wxString& name) const {
    for (int row = 0; row < m_pane->GetItemCount(); ++row)
      if (m_pane->GetRowName(row) == name) return row;
    ADD_FAILURE() << "no row " << name.utf8_str();
    return -1;
  }
  void Select(std::initializer_list<const char*> names) {
    for (int row = 0; row < m_pane->GetItemCount(); ++row)
      m_pane->SetItemState(row, 0, wxLIST_STATE_SELECTED);
    for (const char* name : names)
      m_pane->SetItemState(Row(name), wxLIST_STATE_SELECTED, wxLIST_STATE_SELECTED);
  }
  // A command as the main window routes it: offered to the pane alone.
  bool Command(int id) {
    wxCommandEvent event(wxEVT_MENU, id);
    event.SetEventObject(m_pane);
    return m_pane->ProcessWindowEventLocally(event);
  }
  std::vector<wxString> Messages() const { return DialogScript::MessageBoxTexts(); }

  fs::path m_root;
  wxString m_directory;
  wxFrame* m_frame = nullptr;
  CFtpListzn1Local* m_pane = nullptr;
};

TEST_F(LocalPane, ListsParentRowFirstThenNamesByUpperCase) {
  File("b.txt", 1025);
  File("A.pdf", 0);
  File("_under", 1048576);
  File("Zed.qqzz", 10);
  Dir("sub");
  ASSERT_EQ(m_pane->FillDirectory(Path()), 1);
  EXPECT_EQ(m_directory, Path());
  const std::vector<wxString> names = {"..Up", "A.pdf", "b.txt", "sub", "Zed.qqzz", "_under"};
  EXPECT_EQ(Column(0), names);
  const std::vector<wxString> sizes = {"", "1 KB", "2 KB", "", "1 KB", "1,024 KB"};
  EXPECT_EQ(Column(1), sizes);
  const std::vector<wxString> types = {"..Up",   "PDF document", "plain text document",
                                       "Folder", "QQZZ File",    "File"};
  EXPECT_EQ(Column(2), types);
  const wxString today = wxDateTime::Now().Format("%y/%m/%d");
  EXPECT_TRUE(m_pane->GetItemText(2, 3).StartsWith(today)) << m_pane->GetItemText(2, 3);
  EXPECT_EQ(m_pane->IsItemFolder(0), 1);
  EXPECT_EQ(m_pane->IsItemFolder(Row("sub")), 1);
  EXPECT_EQ(m_pane->IsItemFolder(Row("b.txt")), 0);
  EXPECT_EQ(m_pane->GetItemSize(Row("b.txt")), 1025u);
  // A second fill replaces the rows, parent row first again.
  File("0first");
  ASSERT_EQ(m_pane->FillDirectory(Path()), 1);
  EXPECT_EQ(m_pane->GetItemCount(), 7);
  EXPECT_EQ(m_pane->GetRowName(0), "..Up");
  EXPECT_EQ(m_pane->GetRowName(1), "0first");
  EXPECT_TRUE(Messages().empty());
}

TEST_F(LocalPane, GoesUpToTheRootAndNoFurther) {
  Dir("a/b");
  ASSERT_EQ(m_pane->FillDirectory(Path("a/b")), 1);
  ASSERT_EQ(m_pane->GoUpDirectory(), 1);
  EXPECT_EQ(m_directory, Path("a"));
  EXPECT_EQ(m_pane->GetRowName(1), "b");
  // Row 0 always goes up, and so does the Up Directory command.
  m_pane->DoubleClickRow(0);
  EXPECT_EQ(m_directory, Path());
  EXPECT_TRUE(Command(ID_LOCAL_UP_DIRECTORY));
  EXPECT_EQ(m_directory, Path(m_root.parent_path()));
  for (int step = 0; step < 64 && m_directory != "/"; ++step) ASSERT_EQ(m_pane->GoUpDirectory(), 1);
  ASSERT_EQ(m_directory, "/");
  EXPECT_NE(Row("tmp"), -1);
  DialogScript::ExpectMessageBox();
  EXPECT_EQ(m_pane->GoUpDirectory(), 0);
  EXPECT_EQ(Messages(), std::vector<wxString>{"Can't go up!"});
  EXPECT_EQ(m_directory, "/");
}

TEST_F(LocalPane, RealDoubleClickOnTheParentRowGoesUp) {
  Dir("inner");
  ASSERT_EQ(m_pane->FillDirectory(Path("inner")), 1);
  wxRect rect;
  ASSERT_TRUE(m_pane->GetItemRect(0, rect));
  wxUIActionSimulator sim;
  sim.MouseMove(m_pane->ClientToScreen(rect.GetPosition() + wxPoint(20, rect.height / 2)));
  ftpzn::test::PumpFor(50);
  sim.MouseDblClick();
  EXPECT_TRUE(ftpzn::test::PumpUntil([&] { return m_directory == Path(); }, 3000)) << m_directory;
}

TEST_F(LocalPane, EntersFoldersAndReportsOneThatCannotBeListed) {
  File("sub/inner/deep.txt");
  File("plain.txt");
  Dir("vanishing");
  ASSERT_EQ(m_pane->FillDirectory(Path()), 1);
  m_pane->DoubleClickRow(Row("sub"));
  EXPECT_EQ(m_directory, Path("sub"));
  m_pane->DoubleClickRow(Row("inner"));
  EXPECT_EQ(m_directory, Path("sub/inner"));
  EXPECT_EQ(m_pane->GetRowName(1), "deep.txt");
  // A file row does nothing, a row past the end does nothing.
  m_pane->DoubleClickRow(1);
  m_pane->DoubleClickRow(-1);
  EXPECT_EQ(m_directory, Path("sub/inner"));
  // Root reads every directory, so the unreadable folder is one removed
  // after it was listed: opening it fails with ENOENT.
  ASSERT_EQ(m_pane->FillDirectory(Path()), 1);
  fs::remove(m_root / "vanishing");
  DialogScript::ExpectMessageBox();
  EXPECT_EQ(m_pane->OpenItem(Row("vanishing")), 0);
  EXPECT_EQ(Messages(), std::vector<wxString>{"Find file error:2"});
  EXPECT_EQ(m_directory, Path());
  EXPECT_EQ(m_pane->GetItemCount(), 4);
}

TEST_F(LocalPane, ListingFallsBackToHomeButKeepsTheAskedPath) {
  std::ofstream(fs::path(wxGetHomeDir().utf8_string()) / "home-marker");
  DialogScript::ExpectMessageBox();
  ASSERT_EQ(m_pane->FillDirectory(Path("missing")), 1);
  EXPECT_EQ(Messages(), std::vector<wxString>{"Find local fold error, trying defaul..."});
  EXPECT_NE(Row("home-marker"), -1);
  EXPECT_EQ(m_directory, Path("missing"));
  // Going up from a directory whose parent has gone.
  m_directory = Path("gone/child");
  DialogScript::ExpectMessageBox();
  EXPECT_EQ(m_pane->GoUpDirectory(), 0);
  EXPECT_EQ(Messages().back(), "File file error:2");
  EXPECT_EQ(m_directory, Path("gone/child"));
  EXPECT_EQ(m_pane->FillDirectory(""), 0);
}

TEST_F(LocalPane, ChangeDirectoryTakesTheTypedTextAsRelative) {
  File("sub/deeper/x.txt");
  ASSERT_EQ(m_pane->FillDirectory(Path()), 1);
  ExpectNameInput(ftpzn::kResultOk, "Type new directory name", "To Directory", "sub/");
  EXPECT_TRUE(Command(ID_LOCAL_CHANGE_DIRECTORY));
  EXPECT_EQ(m_directory, Path("sub"));
  EXPECT_EQ(m_pane->GetRowName(1), "deeper");
  // A leading separator still means below the current directory.
  ExpectNameInput(ftpzn::kResultOk, "Type new directory name", "To Directory", "//deeper//");
  EXPECT_TRUE(Command(ID_LOCAL_CHANGE_DIRECTORY));
  EXPECT_EQ(m_directory, Path("sub/deeper"));
  EXPECT_EQ(m_pane->GetRowName(1), "x.txt");
  ExpectNameInput(ftpzn::kResultOk, "Type new directory name", "To Directory", "nope");
  DialogScript::ExpectMessageBox();
  EXPECT_TRUE(Command(ID_LOCAL_CHANGE_DIRECTORY));
  EXPECT_EQ(Messages(), std::vector<wxString>{"Find local directory error!"});
  EXPECT_EQ(m_directory, Path("sub/deeper"));
  ExpectNameInput(ftpzn::kResultCancel, "Type new directory name", "To Directory", "..");
  EXPECT_TRUE(Command(ID_LOCAL_CHANGE_DIRECTORY));
  EXPECT_EQ(m_directory, Path("sub/deeper"));
}

TEST_F(LocalPane, NewDirectoryCreatesAndReportsFailure) {
  ASSERT_EQ(m_pane->FillDirectory(Path()), 1);
  ExpectNameInput(ftpzn::kResultOk, "Type directory name", "Please input here...", "made");
  EXPECT_TRUE(Command(ID_LOCAL_NEW_DIRECTORY));
  EXPECT_TRUE(fs::is_directory(m_root / "made"));
  EXPECT_EQ(m_pane->GetRowName(1), "made");
  ExpectNameInput(ftpzn::kResultOk, "Type directory name", "Please input here...", "/made");
  DialogScript::ExpectMessageBox();
  EXPECT_TRUE(Command(ID_LOCAL_NEW_DIRECTORY));
  EXPECT_EQ(Messages(), std::vector<wxString>{"Create directory error:" + Path("made") + " error:17"});
  ExpectNameInput(ftpzn::kResultCancel, "Type directory name", "Please input here...", "other");
  EXPECT_TRUE(Command(ID_LOCAL_NEW_DIRECTORY));
  EXPECT_FALSE(fs::exists(m_root / "other"));
}

TEST_F(LocalPane, DeleteCommandsActOnTheirKindOfRow) {
  File("f1");
  File("f2");
  File("f3");
  Dir("e1");
  Dir("e2");
  Dir("e3");
  File("n1/inside");
  ASSERT_EQ(m_pane->FillDirectory(Path()), 1);

  Select({"f1", "e1", "n1"});
  DialogScript::ExpectMessageBox();
  EXPECT_TRUE(Command(ID_LOCAL_DELETE));
  EXPECT_EQ(Messages(), std::vector<wxString>{"Directory:" + Path("n1") + " is not empty!"});
  EXPECT_FALSE(fs::exists(m_root / "f1"));
  EXPECT_FALSE(fs::exists(m_root / "e1"));
  EXPECT_TRUE(fs::exists(m_root / "n1/inside"));
  EXPECT_EQ(Row("n1"), 5);  // refreshed: ..Up e2 e3 f2 f3 n1

  DialogScript::VerifyAndClear();
  Select({"f2", "e2"});
  EXPECT_TRUE(Command(ID_LOCAL_DELETE_FILE));
  EXPECT_FALSE(fs::exists(m_root / "f2"));
  EXPECT_TRUE(fs::exists(m_root / "e2"));

  Select({"f3", "e2", "n1"});
  DialogScript::ExpectMessageBox();
  EXPECT_TRUE(Command(ID_LOCAL_DELETE_DIRECTORY));
  EXPECT_EQ(Messages(), std::vector<wxString>{"Directory:" + Path("n1") + " is not empty!"});
  EXPECT_TRUE(fs::exists(m_root / "f3"));
  EXPECT_FALSE(fs::exists(m_root / "e2"));

  // The parent row is a folder named "..Up" like any other.
  DialogScript::VerifyAndClear();
  Select({"..Up", "e3"});
  DialogScript::ExpectMessageBox();
  EXPECT_TRUE(Command(ID_LOCAL_DELETE));
  EXPECT_EQ(Messages(), std::vector<wxString>{"Remove directory:" + Path("..Up") + " error:2"});
  EXPECT_FALSE(fs::exists(m_root / "e3"));

  // A file that went away after it was listed.
  DialogScript::VerifyAndClear();
  Select({"f3"});
  fs::remove(m_root / "f3");
  DialogScript::ExpectMessageBox();
  EXPECT_TRUE(Command(ID_LOCAL_DELETE_FILE));
  EXPECT_EQ(Messages(), std::vector<wxString>{"Delete file:" + Path("f3") + " error:2"});
  EXPECT_EQ(m_pane->GetItemCount(), 2);
}

TEST_F(LocalPane, DeleteRecursiveRemovesADeepTreeWithoutAQuestion) {
  fs::path deep = "tree";
  for (int level = 0; level < 8; ++level) {
    deep /= "d" + std::to_string(level);
    File(deep / "data.bin", 100);
    Dir(deep / "empty");
  }
  File("lone.txt");
  Dir("hollow");
  ASSERT_EQ(m_pane->FillDirectory(Path()), 1);
  Select({"tree", "lone.txt", "hollow"});
  EXPECT_TRUE(Command(ID_LOCAL_DELETE_RECURSIVE));
  EXPECT_TRUE(Messages().empty());
  EXPECT_TRUE(fs::is_empty(m_root));
  EXPECT_EQ(m_pane->GetItemCount(), 1);
}

TEST_F(LocalPane, NamesThatAreNotUtf8AreShownEnteredAndDeleted) {
  File("old\xE9/inner.txt");
  File("latin\xE9.txt", 5);
  ASSERT_EQ(m_pane->FillDirectory(Path()), 1);
  ftpzn::test::PumpFor(30);  // drawn without complaint
  const wxString dir = ftpzn::LocalNameFromBytes("old\xE9");
  const wxString file = ftpzn::LocalNameFromBytes("latin\xE9.txt");
  EXPECT_EQ(m_pane->GetItemText(Row(file), 0), wxString(L"latin\uFFFD.txt"));
  Select({});
  m_pane->SetItemState(Row(file), wxLIST_STATE_SELECTED, wxLIST_STATE_SELECTED);
  EXPECT_TRUE(Command(ID_LOCAL_DELETE));
  EXPECT_TRUE(Messages().empty());
  EXPECT_FALSE(fs::exists(m_root / "latin\xE9.txt"));
  m_pane->DoubleClickRow(Row(dir));
  EXPECT_EQ(m_directory, Path() + "/" + dir);
  EXPECT_EQ(m_pane->GetRowName(1), "inner.txt");
}

TEST_F(LocalPane, FolderNamedWithATrailingStarStaysCurrentAfterARefresh) {
  File("star*/victim");
  File("star*/other");
  File("star/victim");
  ASSERT_EQ(m_pane->FillDirectory(Path()), 1);
  m_pane->DoubleClickRow(Row("star*"));
  ASSERT_EQ(m_directory, Path("star*"));
  EXPECT_TRUE(Command(ID_LOCAL_REFRESH));
  EXPECT_EQ(m_directory, Path("star*"));
  // A delete acts on the folder the rows show, never on its namesake.
  Select({"victim"});
  EXPECT_TRUE(Command(ID_LOCAL_DELETE_FILE));
  EXPECT_TRUE(Messages().empty());
  EXPECT_FALSE(fs::exists(m_root / "star*/victim"));
  EXPECT_TRUE(fs::exists(m_root / "star/victim"));
  EXPECT_EQ(m_directory, Path("star*"));
  EXPECT_EQ(Column(0), (std::vector<wxString>{"..Up", "other"}));
}

TEST_F(LocalPane, DropListsTheFolderButKeepsTheCurrentDirectory) {
  File("here/one.txt");
  File("there/two.txt");
  File("there/three.txt");
  ASSERT_EQ(m_pane->FillDirectory(Path("here")), 1);
  auto* target = dynamic_cast<wxFileDropTarget*>(m_pane->GetDropTarget());
  ASSERT_NE(target, nullptr);
  wxArrayString dropped;
  dropped.Add(Path("there/two.txt"));
  dropped.Add(Path("here/one.txt"));
  EXPECT_TRUE(target->OnDropFiles(10, 10, dropped));
  EXPECT_EQ(Column(0), (std::vector<wxString>{"..Up", "three.txt", "two.txt"}));
  EXPECT_EQ(m_directory, Path("here"));
  dropped.clear();
  dropped.Add(Path());
  EXPECT_TRUE(target->OnDropFiles(10, 10, dropped));
  EXPECT_EQ(Column(0), (std::vector<wxString>{"..Up", "here", "there"}));
  EXPECT_EQ(m_directory, Path("here"));
}

TEST_F(LocalPane, HandlesOnlyItsOwnCommands) {
  ASSERT_EQ(m_pane->FillDirectory(Path()), 1);
  EXPECT_TRUE(Command(ID_LOCAL_REFRESH));
  for (int id : {9107, 9108, 9110, 9112, 9113, 9114, 9117, 9094}) EXPECT_FALSE(Command(id)) << id;
  std::unique_ptr<wxMenu> menu(ftpzn::res::LoadPopup(ftpzn::res::kMenuMain, 2));
  ASSERT_TRUE(menu);
  // The context menu is the "Local" popup: the commands this pane handles,
  // and "Save list..." that nothing handles.
  std::vector<int> ids;
  for (wxMenuItem* item : menu->GetMenuItems()) ids.push_back(item->GetId());
  const std::vector<int> expected = {
      ID_LOCAL_REFRESH,          ID_LOCAL_UP_DIRECTORY,     ID_LOCAL_CHANGE_DIRECTORY,
      ID_LOCAL_NEW_DIRECTORY,    ID_LOCAL_DELETE,           ID_LOCAL_DELETE_FILE,
      ID_LOCAL_DELETE_DIRECTORY, ID_LOCAL_DELETE_RECURSIVE, ID_LOCAL_SAVE_LIST};
  EXPECT_EQ(ids, expected);
}

// An enumeration shaped like the remote one.
struct FakeFinder {
  std::wstring GetFileName() const { return L"remote.bin"; }
  uint64_t GetLength() const { return 0x100000400ULL; }
  bool GetLastWriteTime(uint64_t& t) const {
    t = 133000000000000000ULL;
    return true;
  }
  bool IsDirectory() const { return false; }
};

TEST_F(LocalPane, NamedAndFoundInsertsBuildRowsFromRecords) {
  setenv("TZ", "UTC0", 1);
  tzset();
  EXPECT_EQ(m_pane->InsertParentItem(), 0);
  EXPECT_EQ(m_pane->InsertNamedItem(1, "Data.TXT", 2048), 1);
  EXPECT_EQ(m_pane->InsertNamedItem(2, "data.txt", 10), -1);  // same name in another case
  EXPECT_EQ(m_pane->InsertNamedFolder(1, "box"), 1);
  EXPECT_EQ(m_pane->InsertFoundItem(3, FakeFinder{}), 3);
  EXPECT_EQ(m_pane->InsertFoundItemKeepingTexts(99, "last", 0, ftpzn::FileTimeFromUnix(-600000000), true),
            4);  // past the end: appended
  EXPECT_EQ(Column(0), (std::vector<wxString>{"..Up", "box", "Data.TXT", "remote.bin", "last"}));
  EXPECT_EQ(Column(1), (std::vector<wxString>{"", "", "2 KB", "1 KB", ""}));
  EXPECT_EQ(m_pane->GetItemText(1, 2), "Folder");
  EXPECT_EQ(m_pane->GetItemSize(3), 1024u);  // the low 32 bits of the length
  const wxString today = wxDateTime::Now().Format("%y/%m/%d");
  EXPECT_TRUE(m_pane->GetItemText(2, 3).StartsWith(today));
  EXPECT_EQ(m_pane->GetItemText(4, 3), "");  // 1950 cannot be shown
  EXPECT_EQ(m_pane->GetItemText(0, 3), "70/01/01/00/00/00");
  EXPECT_EQ(m_pane->GetRecord(7), nullptr);
  m_pane->SetItemState(2, wxLIST_STATE_SELECTED, wxLIST_STATE_SELECTED);
  m_pane->SetItemState(4, wxLIST_STATE_SELECTED, wxLIST_STATE_SELECTED);
  EXPECT_EQ(m_pane->GetNextSelectedRow(-1), 2);
  EXPECT_EQ(m_pane->GetNextSelectedRow(2), 4);
  EXPECT_EQ(m_pane->GetNextSelectedRow(4), -1);
  m_pane->DeleteAllItems();
  EXPECT_EQ(m_pane->GetItemCount(), 0);
  EXPECT_EQ(m_pane->GetRecord(0), nullptr);
}

TEST_F(LocalPane, BusyAnimationShowsOnce) {
  EXPECT_EQ(m_pane->ShowBusyAnimation(true, m_frame), 1);
  EXPECT_EQ(m_pane->m_bBusy, 1);
  EXPECT_NE(m_frame->FindWindow(9065), nullptr);
  EXPECT_EQ(m_pane->ShowBusyAnimation(true, m_frame), 0);
  EXPECT_EQ(m_pane->ShowBusyAnimation(false, m_frame), 1);
  EXPECT_EQ(m_pane->m_bBusy, 0);
  EXPECT_TRUE(ftpzn::test::PumpUntil([&] { return m_frame->FindWindow(9065) == nullptr; }, 2000));
  EXPECT_EQ(m_pane->ShowBusyAnimation(true, m_frame), 1);
  EXPECT_EQ(m_pane->ShowBusyAnimation(false, nullptr), 1);
}

TEST_F(LocalPane, ScreenshotOfAListing) {
  File("notes.txt", 3000);
  File("report.pdf", 250000);
  File("archive.tar.gz", 5000000);
  File("noext", 10);
  Dir("photos");
  Dir("src");
  ASSERT_EQ(m_pane->FillDirectory(Path()), 1);
  m_frame->SetSize(640, 300);
  m_pane->SetSize(620, 280);
  m_pane->SetColumnWidth(0, 140);
  m_pane->SetColumnWidth(2, 200);
  m_pane->SetColumnWidth(3, 140);
  const std::string shot = ftpzn::test::SaveScreenshot("local-pane");
  EXPECT_FALSE(shot.empty());
  std::printf("screenshot: %s\n", shot.c_str());
}

TEST_F(LocalPane, ListsOneHundredThousandFiles) {
  const fs::path big = fs::path("/dev/shm") / ("ftpzn-pane-" + std::to_string(getpid()));
  fs::create_directories(big);
  for (int i = 0; i < 100000; ++i) {
    char name[32];
    std::snprintf(name, sizeof name, "f%06d.dat", i);
    const int fd = open((big / name).c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
    ASSERT_GE(fd, 0);
    close(fd);
  }
  const auto start = std::chrono::steady_clock::now();
  ASSERT_EQ(m_pane->FillDirectory(wxString::FromUTF8(big.string())), 1);
  ftpzn::test::PumpFor(20);
  const auto elapsed =
      std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count();
  std::printf("100,000 files listed in %lld ms\n", static_cast<long long>(elapsed));
  EXPECT_EQ(m_pane->GetItemCount(), 100001);
  EXPECT_EQ(m_pane->GetRowName(1), "f000000.dat");
  EXPECT_EQ(m_pane->GetItemText(100000, 0), "f099999.dat");
  EXPECT_EQ(m_pane->GetItemText(100000, 2), "DAT File");
  m_pane->EnsureVisible(100000);
  ftpzn::test::PumpFor(20);
  std::error_code ec;
  fs::remove_all(big, ec);
}

}  // namespace
