// The remote pane inside the real main window, over a connection made by
// the engine to vsftpd, pure-ftpd and proftpd on loopback. The server's root
// is a local directory, so what a command did on the server is checked on
// disk. The pure path and byte rules the commands are built on come first.
#include <gtest/gtest.h>
#include <wx/dnd.h>
#include <wx/filedlg.h>
#include <wx/menu.h>
#include <wx/textctrl.h>
#include <wx/uiaction.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <set>

#include "ftp_servers.h"
#include "gui_harness.h"
#include "mainwnd/dlgftpmainwnd.h"
#include "panes/remotepaths.h"
#include "ui/dlginputstring.h"

namespace {

// GTK's file chooser saves its settings; keep them in memory, away from a
// session bus the virtual display does not have.
const bool kMemorySettings = setenv("GSETTINGS_BACKEND", "memory", 1) == 0;

namespace fs = std::filesystem;
using ftpzn::test::DialogScript;
using ftpzn::testing::FtpServerKind;
using namespace std::string_literals;

void WriteFile(const fs::path& path, const std::string& bytes = "x") {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

TEST(RemotePaths, ParentChangeDirectoryNewDirectoryAndSaveListPaths) {
  using namespace ftpzn;
  const wxString cases[][2] = {
      {RemoteParentDirectory("/pub/data"), "/pub"}, {RemoteParentDirectory("/pub"), "/"},
      {RemoteParentDirectory("pub"), ""},
      // The server makes sense of the backslashes, if it can.
      {RemoteChangeDirectoryPath("/pub", "incoming\\"), "/pub\\incoming\\*"},
      {RemoteChangeDirectoryPath("/pub", "\\x\\*"), "/pub\\x\\*"},
      {RemoteChangeDirectoryPath("/pub", "a\\\\\\\\b"), "/pub\\a\\b\\*"},
      {RemoteNewDirectoryPath("/", "fresh"), "/fresh"}, {RemoteNewDirectoryPath("/pub", "///x//y"), "/pub/x/y"},
      // ".doc" is added unless ".doc" or ".txt" occurs anywhere, case and all.
      {SaveListFilePath("/tmp/list"), "/tmp/list.doc"}, {SaveListFilePath("/tmp/list.doc"), "/tmp/list.doc"},
      {SaveListFilePath("/tmp/x.docs/l"), "/tmp/x.docs/l"}, {SaveListFilePath("/tmp/l.DOC"), "/tmp/l.DOC.doc"}};
  for (size_t i = 0; i < std::size(cases); ++i) EXPECT_EQ(cases[i][0], cases[i][1]) << "row " << i;
  // Save List writes n + 1 bytes of each name's UTF-16 text; a character of
  // two units counts as two, and a server byte that is no UTF-8 (one unit
  // of its own, U+DC80 plus the byte) like any other.
  const std::pair<wxString, std::string> bytes[] = {
      {"x", "x\0"s}, {"", "\n"s}, {wxString::FromUTF8("\xf0\x9f\x98\x80"), "\x3d\xd8\x00"s},
      {wxString::FromUTF8("\xc3\xa9"), "\xe9\x00"s}, {L"a\xDD7F", "a\0\x7f"s}, {L"\xDD7Fz", "\x7f\xdd\x7a"s}};
  for (const auto& [name, written] : bytes) EXPECT_EQ(SaveListEntryBytes(name), written) << name;
}

// One server per kind for the whole binary; each stage of a test works in a
// directory of its own under the root, named after the test and the stage,
// and written "~" in what the tests expect.
class RemotePane : public ::testing::TestWithParam<FtpServerKind> {
 protected:
  void SetUp() override {
    auto& s = ftpzn::testing::SharedServer(GetParam(), "ftpzn-remote-", [](const std::string&) {});
    ASSERT_TRUE(s.server) << "cannot start " << ftpzn::testing::FtpServerName(GetParam()) << ": " << s.error;
    m_root = s.root;
    const std::string name = ::testing::UnitTest::GetInstance()->current_test_info()->name();
    m_test = "/" + name.substr(0, name.find('/'));  // the server's name is in the root already
    using namespace ftpzn::inet;
    for (auto option : {INTERNET_OPTION_CONNECT_TIMEOUT, INTERNET_OPTION_RECEIVE_TIMEOUT, INTERNET_OPTION_SEND_TIMEOUT})
      m_session.SetOption(option, 10000);
    const auto wide = [](const std::string& text) { return wxString(text).ToStdWstring(); };
    m_connection = m_session.GetFtpConnection(wide(s.server->Host()), wide(ftpzn::testing::FtpTestServer::kUser),
                                              wide(ftpzn::testing::FtpTestServer::kPassword), s.server->Port(), true);
    m_window = new CDlgFTPMainWnd;
    ASSERT_TRUE(m_window->Create() && m_window->Show());
    ftpzn::test::PumpFor(30);
  }
  void TearDown() override {
    DialogScript::VerifyAndClear();
    if (m_window) m_window->m_ctrlRemote.m_pConnection = nullptr, m_window->Destroy(), ftpzn::test::PumpFor(10);
    if (m_connection) m_connection->Close();
  }

  // Makes files and (with a trailing '/') folders in a fresh directory for
  // `stage`, owned by the server's account, and lists it as the window does.
  bool Make(const std::string& stage, std::initializer_list<std::string> entries) {
    m_dir = m_test + "-" + stage;
    for (const std::string& entry : entries) {
      fs::create_directories(Local(entry).parent_path());  // the folder itself for "name/"
      if (entry.back() != '/') WriteFile(Local(entry));
    }
    ftpzn::testing::GiveToTestAccount(Local());
    return Show(Remote());
  }
  fs::path Local(const std::string& relative = {}) const { return fs::path(m_root + m_dir) / relative; }
  wxString Remote(const std::string& relative = {}) const {
    return wxString::FromUTF8(relative.empty() ? m_dir : m_dir + "/" + relative);
  }
  wxString Tilde(wxString text) const { return text.Replace(Remote(), "~"), text; }
  bool Show(const wxString& directory) {
    m_window->m_strRemoteDir = directory;
    return Pane().FillDirectory(directory, m_connection.get(), true) == 1;
  }
  CFtpListzn1Remote& Pane() { return m_window->m_ctrlRemote; }
  // What the user sees: the pane's directory, the path box and the names
  // after the parent row, sorted (the servers' order is their own).
  wxString Seen() {
    std::set<wxString> names;
    for (int row = 1; row < Pane().GetItemCount(); ++row) names.insert(Pane().GetRowName(row));
    wxString seen = m_window->m_strRemoteDir + " | " + m_window->m_editRemoteDir->GetValue() + " |";
    for (const wxString& name : names) seen += " " + name;
    return Tilde(seen);
  }
  // Which of `names` are on disk, in the stage's directory.
  std::string OnDisk(const std::vector<std::string>& names) {
    std::string present;
    for (const std::string& name : names) present += fs::exists(Local(name)) ? " " + name : "";
    return present.substr(present.empty() ? 0 : 1);
  }
  int RowOf(const wxString& name) { return Pane().FindItemByName(name); }
  // Selects `names` (when given), runs a menu command through the window,
  // which offers it to the panes, and checks the message box it shows, if
  // any.
  void Run(int id, std::initializer_list<wxString> names = {}, const wxString& message = {}) {
    for (int row = 0; names.size() && row < Pane().GetItemCount(); ++row)
      Pane().SetItemState(row, 0, wxLIST_STATE_SELECTED);
    for (const wxString& name : names) Pane().SetItemState(RowOf(name), wxLIST_STATE_SELECTED, wxLIST_STATE_SELECTED);
    if (!message.empty()) DialogScript::ExpectMessageBox();
    wxCommandEvent event(wxEVT_MENU, id);
    EXPECT_TRUE(m_window->ProcessWindowEvent(event));
    EXPECT_EQ(Said(), message);
  }
  // The message-box texts shown since the last call.
  wxString Said() {
    wxString said;
    for (const wxString& text : DialogScript::MessageBoxTexts()) said += text;
    DialogScript::VerifyAndClear();
    return Tilde(said);
  }
  // As Run, typing `typed` into the name input, shown for real, after
  // checking its title and the text it offers, then pressing `button`.
  void RunInput(int id, const wxString& shown, const wxString& typed, const wxString& message = {},
                int button = ftpzn::kResultOk) {
    DialogScript::Expect({.description = "name input", .answer = {}, .interact = [=](wxDialog* d) {
                            auto* dialog = dynamic_cast<CDlgInputString*>(d);
                            ASSERT_NE(dialog, nullptr);  // the harness's watchdog ends it
                            EXPECT_EQ(dialog->GetTitle() + "|" + dialog->InputCtrl()->GetValue(), shown);
                            dialog->InputCtrl()->SetValue(typed);
                            wxCommandEvent click(wxEVT_BUTTON, button);
                            dialog->FindWindow(button)->ProcessWindowEvent(click);
                          }});
    Run(id, {}, message);
  }
  wxString ServerDirectory() {
    std::wstring directory;
    EXPECT_TRUE(m_connection->GetCurrentDirectory(directory));
    return Tilde(directory);
  }

  std::string m_root, m_test, m_dir;
  ftpzn::inet::CInternetSession m_session;
  std::unique_ptr<ftpzn::inet::CFtpConnection> m_connection;
  CDlgFTPMainWnd* m_window = nullptr;
};

TEST_P(RemotePane, BrowseFoldersLinksFoldersThatGoAwayAndNoConnection) {
  ASSERT_TRUE(Make("plain", {"data/a.txt", "data/b.txt", "empty/", "top.txt"}));
  EXPECT_EQ(Pane().GetRowName(0), "..Up");
  EXPECT_EQ(Pane().OpenItem(RowOf("top.txt")), 0) << "a file row does nothing";
  Pane().DoubleClickRow(RowOf("data"));
  EXPECT_EQ(Seen(), "~/data | ~/data | a.txt b.txt");
  Run(ID_REMOTE_UP_DIRECTORY);  // to the directory the server names
  EXPECT_EQ(Seen(), "~ | ~ | data empty top.txt");
  // An empty folder enumerates nothing: the parent row alone, and the
  // current directory is the folder all the same.
  ASSERT_EQ(Pane().OpenItem(RowOf("empty")), 1);
  EXPECT_EQ(Seen(), "~/empty | ~/empty |");
  EXPECT_EQ(ServerDirectory(), "~/empty");

  // Links: one to a folder opens like the folder (the server names the
  // directory it is then in: the link's path or its target's); one to a
  // file is tried and leaves the pane as it was, without a message.
  ASSERT_TRUE(Make("links", {"real/inside.txt", "plain.txt"}));
  fs::create_directory_symlink("real", Local("to-real"));
  fs::create_symlink("plain.txt", Local("to-plain"));
  ASSERT_TRUE(Show(Remote()));
  EXPECT_EQ(Pane().OpenItem(RowOf("to-plain")), 0);
  EXPECT_EQ(Seen(), "~ | ~ | plain.txt real to-plain to-real");
  Pane().DoubleClickRow(RowOf("to-real"));
  EXPECT_TRUE(Seen() == "~/to-real | ~/to-real | inside.txt" || Seen() == "~/real | ~/real | inside.txt") << Seen();

  // A folder that went away is announced; Refresh shows what changed; an
  // empty directory cannot be enumerated and leaves the rows as they were.
  ASSERT_TRUE(Make("gone", {"gone/", "keep.txt"}));
  fs::remove(Local("gone"));
  DialogScript::ExpectMessageBox();
  EXPECT_EQ(Pane().OpenItem(RowOf("gone")), 0);
  EXPECT_EQ(Said(), "Set directory:~/gone error:12003 \n");
  EXPECT_EQ(Seen(), "~ | ~ | gone keep.txt");
  WriteFile(Local("two.txt"));
  Run(ID_REMOTE_REFRESH);
  EXPECT_EQ(Seen(), "~ | ~ | keep.txt two.txt");
  fs::remove(Local("keep.txt")), fs::remove(Local("two.txt"));
  EXPECT_EQ(Pane().FillDirectory(Remote(), m_connection.get(), true), 0);
  EXPECT_EQ(Seen(), "~ | ~ | keep.txt two.txt");

  // Without a connection the pane asks for one where the user double-clicks
  // and does nothing elsewhere.
  Pane().m_pConnection = nullptr;
  DialogScript::ExpectMessageBox();
  EXPECT_EQ(Pane().OpenItem(RowOf("two.txt")), 0);
  EXPECT_EQ(Said(), "Please connect FTP site first!");
  EXPECT_EQ(std::tuple(Pane().GoUpDirectory(), Pane().DeleteRemoteTree(Remote()),
                       Pane().FillDirectory(Remote(), nullptr, true), Pane().FindItemByName("KEEP.TXT")),
            std::tuple(0, 0, 0, RowOf("keep.txt")));
  // The context menu is the main menu's remote popup.
  std::vector<int> items;
  Pane().Bind(wxEVT_MENU_OPEN, [&items, this](wxMenuEvent& event) {
    for (const wxMenuItem* item : event.GetMenu()->GetMenuItems()) items.push_back(item->GetId());
    Pane().CallAfter([] { wxUIActionSimulator().Char(WXK_ESCAPE); });
  });
  wxContextMenuEvent event(wxEVT_CONTEXT_MENU, Pane().GetId());
  Pane().ProcessWindowEvent(event);
  EXPECT_EQ(items, (std::vector<int>{9107, 9108, 9109, 9110, 9127, 9126, 9111, 9128, 9113}));
}

TEST_P(RemotePane, ChangeAndNewDirectory) {
  // A directory literally named as the path the command builds, so the
  // server can follow it (pure-ftpd will not list it).
  Make("cd\\incoming\\*", {"odd.txt"});
  ASSERT_TRUE(Make("cd", {"own.txt", "incoming/inside.txt"}));
  const wxString change = "Type new directory name|To Directory", make = "Type directory name|Please input here...";
  RunInput(ID_REMOTE_CHANGE_DIRECTORY, change, "incoming");
  // pure-ftpd refuses that path and stays where it was; the others go
  // there. Either way the rows are the directory the server is then in,
  // and the pane's own directory is not changed.
  const bool refused = GetParam() == FtpServerKind::PureFtpd;
  EXPECT_EQ(ServerDirectory(), refused ? "~" : "~\\incoming\\*");
  EXPECT_EQ(Seen(), refused ? "~ | ~ | incoming own.txt" : "~ | ~ | odd.txt");
  // Cancel changes nothing.
  ASSERT_TRUE(m_connection->SetCurrentDirectory(L"/"));
  RunInput(ID_REMOTE_CHANGE_DIRECTORY, change, "incoming", {}, ftpzn::kResultCancel);
  EXPECT_EQ(ServerDirectory(), "/");

  // New Directory collapses doubled slashes; a name that exists is refused
  // by the server.
  ASSERT_TRUE(Make("mkdir", {"keep.txt"}));
  RunInput(ID_REMOTE_NEW_DIRECTORY, make, "fresh");
  EXPECT_TRUE(Pane().IsItemFolder(RowOf("fresh")));
  RunInput(ID_REMOTE_NEW_DIRECTORY, make, "//deeper");
  RunInput(ID_REMOTE_NEW_DIRECTORY, make, "fresh", "Create directory error:~/fresh error:12003");
  EXPECT_TRUE(fs::is_directory(Local("fresh")) && fs::is_directory(Local("deeper")));
  // A current directory the server cannot enter: the text with a trailing
  // blank, and no name is asked for.
  m_window->m_strRemoteDir = Remote("missing");
  Run(ID_REMOTE_NEW_DIRECTORY, {}, "Set directory:~/missing error:12003 ");
}

TEST_P(RemotePane, DeleteCommandsActOnTheirKindOfRow) {
  const std::vector<std::string> all = {"keep.txt", "f1.txt", "f2.txt", "emptyA", "emptyB", "emptyC", "full/in"};
  ASSERT_TRUE(Make("rm", {"keep.txt", "f1.txt", "f2.txt", "f3.txt", "emptyA/", "emptyB/", "emptyC/", "full/in"}));
  // A file that went away: its message joins the directory and the name
  // with a backslash.
  fs::remove(Local("f3.txt"));
  Run(ID_REMOTE_DELETE, {"f3.txt"}, "Delete file:~\\f3.txt error:12003");
  Run(ID_REMOTE_DELETE_FILE, {"f1.txt", "emptyA"});
  EXPECT_EQ(OnDisk(all), "keep.txt f2.txt emptyA emptyB emptyC full/in");
  Run(ID_REMOTE_DELETE_DIRECTORY, {"f2.txt", "emptyA"});
  EXPECT_EQ(OnDisk(all), "keep.txt f2.txt emptyB emptyC full/in");
  // Delete takes both kinds; a folder with content is refused by the server
  // with its own code, reported with the name alone, and the loop goes on.
  Run(ID_REMOTE_DELETE, {"emptyB", "f2.txt", "full"}, "Remove directory:full error:12003");
  EXPECT_EQ(OnDisk(all), "keep.txt emptyC full/in");
  // Delete Recursive: the server's refusal is not the local "not empty"
  // code, so the folder is reported and not walked; files and empty
  // folders go as with Delete.
  Run(ID_REMOTE_DELETE_RECURSIVE, {"full", "emptyC"}, "Remove directory:full error:12003");
  EXPECT_EQ(Seen(), "~ | ~ | full keep.txt");
  // Without the directory each command says so its own way.
  m_window->m_strRemoteDir = Remote("missing");
  Run(ID_REMOTE_DELETE, {"keep.txt"}, "Set directory:~/missing error:12003");
  for (int id : {ID_REMOTE_DELETE_FILE, ID_REMOTE_DELETE_DIRECTORY, ID_REMOTE_DELETE_RECURSIVE})
    Run(id, {}, "Set directory:~/missing error:12003%");
  EXPECT_EQ(OnDisk(all), "keep.txt full/in");

  // A tree of one entry a level goes whatever order a server lists in: the
  // file is always the enumeration's last entry. The engine holds the
  // connection while an enumeration has entries left, so the first of two
  // files cannot go: 0, and nothing said.
  ASSERT_TRUE(Make("tree", {"tree/sub/deep/f.txt", "two/a.txt", "two/b.txt"}));
  ASSERT_EQ(Pane().DeleteRemoteTree(Remote("tree")), 1);
  EXPECT_EQ(ServerDirectory(), "~");
  EXPECT_EQ(Pane().DeleteRemoteTree(Remote("two")) + Pane().DeleteRemoteTree(Remote("nowhere")), 0);
  EXPECT_EQ(OnDisk({"tree", "two"}), "two");
}

TEST_P(RemotePane, SaveListWritesTheParentsNamesAndDropsSendNothing) {
  ASSERT_TRUE(Make("save", {"abc", "long5", "sub/inner.txt"}));
  ASSERT_TRUE(Show(Remote("sub")));
  // A name with ".txt" anywhere is kept as it is, and an old file is cut.
  const std::string out = ftpzn::test::MakeTempDir("ftpzn-savelist-") + "/a.txt.bak";
  WriteFile(out, std::string(100, 'z'));
  // The file dialog shows for real, since the toolkit's chooser tells its
  // path only once it holds the folder.
  DialogScript::Expect({.description = "file dialog", .answer = {}, .interact = [=](wxDialog* shown) {
                          auto* dialog = dynamic_cast<wxFileDialog*>(shown);
                          ASSERT_NE(dialog, nullptr);  // the harness's watchdog ends it
                          EXPECT_EQ(dialog->GetWildcard(), "Text file (*.doc)|*.doc|ASCII file(*.txt)|*.txt|All Files(*.*)|*.*");
                          EXPECT_TRUE(dialog->HasFlag(wxFD_SAVE) && dialog->HasFlag(wxFD_OVERWRITE_PROMPT));
                          dialog->SetPath(out);
                          EXPECT_TRUE(ftpzn::test::PumpUntil([&] { return dialog->GetPath() == out; }));
                          dialog->EndModal(wxID_OK);
                        }});
  // GTK's file dialog passes the hook twice, its own ShowModal and then the
  // dialog's: the second time it is let through to show.
  DialogScript::Expect({.description = "file dialog shown", .answer = [](wxDialog*) { return int(wxID_NONE); }, .interact = {}});
  Run(ID_REMOTE_SAVE_LIST);
  // The parent's names, in the order the server lists them (as the pane
  // does). The pane moves there; the path box shows it after the next refresh.
  EXPECT_TRUE(Seen().StartsWith("~ | ~/sub |")) << Seen();
  Run(ID_REMOTE_REFRESH);
  EXPECT_EQ(Seen(), "~ | ~ | abc long5 sub");
  const std::map<wxString, std::string> perName = {{"abc", "a\0b\0"s}, {"long5", "l\0o\0n\0"s}, {"sub", "s\0u\0"s}};
  std::string bytes;
  for (int row = 1; row < Pane().GetItemCount(); ++row) bytes += perName.at(Pane().GetRowName(row));
  std::ifstream written(out, std::ios::binary);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(written), {}), bytes);

  // A folder dropped on the pane transfers nothing.
  ASSERT_TRUE(Make("drop", {"keep.txt"}));
  const std::string local = ftpzn::test::MakeTempDir("ftpzn-drop-");
  fs::create_directories(local + "/folder/sub");
  WriteFile(local + "/folder/sub/one.txt");
  auto* target = dynamic_cast<wxFileDropTarget*>(Pane().GetDropTarget());
  ASSERT_NE(target, nullptr);
  target->OnDropFiles(5, 5, wxArrayString(1, std::array<wxString, 1>{wxString::FromUTF8(local + "/folder")}.data()));
  EXPECT_EQ(std::distance(fs::recursive_directory_iterator(Local()), {}), 1);
  EXPECT_EQ(Seen(), "~ | ~ | keep.txt");
}

INSTANTIATE_TEST_SUITE_P(Servers, RemotePane, ::testing::ValuesIn(ftpzn::testing::AllFtpServers()),
                         [](const auto& info) { return std::string(ftpzn::testing::FtpServerName(info.param)); });

}  // namespace
