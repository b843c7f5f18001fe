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
#include <utility>

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
using Texts = std::vector<wxString>;
using namespace std::string_literals;

void WriteFile(const fs::path& path, const std::string& bytes = "x") {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}
std::string ReadFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

TEST(RemotePaths, ParentChangeDirectoryNewDirectoryAndSaveListPaths) {
  using namespace ftpzn;
  const wxString cases[][2] = {
      {RemoteParentDirectory("/pub/data"), "/pub"}, {RemoteParentDirectory("/pub"), "/"},
      {RemoteParentDirectory("/"), "/"}, {RemoteParentDirectory("pub"), ""}, {RemoteParentDirectory("/pub/"), "/pub"},
      // The server makes sense of the backslashes, if it can.
      {RemoteChangeDirectoryPath("/pub", "incoming"), "/pub\\incoming\\*"},
      {RemoteChangeDirectoryPath("/pub", "incoming\\"), "/pub\\incoming\\*"},
      {RemoteChangeDirectoryPath("/pub", "\\x\\*"), "/pub\\x\\*"},
      {RemoteChangeDirectoryPath("/pub", "a\\\\\\\\b"), "/pub\\a\\b\\*"},
      {RemoteChangeDirectoryPath("/", "sub/dir"), "/\\sub/dir\\*"},
      {RemoteNewDirectoryPath("/pub", "fresh"), "/pub/fresh"}, {RemoteNewDirectoryPath("/", "fresh"), "/fresh"},
      {RemoteNewDirectoryPath("/pub", "///x//y"), "/pub/x/y"},
      // ".doc" is added unless ".doc" or ".txt" occurs anywhere, case and all.
      {SaveListFilePath("/tmp/list"), "/tmp/list.doc"}, {SaveListFilePath("/tmp/list.doc"), "/tmp/list.doc"},
      {SaveListFilePath("/tmp/a.txt.bak"), "/tmp/a.txt.bak"}, {SaveListFilePath("/tmp/x.docs/l"), "/tmp/x.docs/l"},
      {SaveListFilePath("/tmp/list.DOC"), "/tmp/list.DOC.doc"}};
  for (size_t i = 0; i < std::size(cases); ++i) EXPECT_EQ(cases[i][0], cases[i][1]) << "row " << i;
  // Save List writes n + 1 bytes of each name's UTF-16 text; a character of
  // two units counts as two, and a server byte that is no UTF-8 (one unit
  // of its own, U+DC80 plus the byte) like any other.
  const std::pair<wxString, std::string> bytes[] = {
      {"abc", "a\0b\0"s}, {"long5", "l\0o\0n\0"s}, {"x", "x\0"s}, {"", "\n"s},
      {wxString::FromUTF8("\xf0\x9f\x98\x80"), "\x3d\xd8\x00"s}, {wxString::FromUTF8("\xc3\xa9"), "\xe9\x00"s},
      {wxString(L"a\xDD7F"), "a\0\x7f"s}, {wxString(L"\xDD7Fz"), "\x7f\xdd\x7a"s}};
  for (const auto& [name, written] : bytes) EXPECT_EQ(SaveListEntryBytes(name), written) << name;
}

// Answers the next file dialog with `path`: the dialog shows for real, since
// the toolkit's chooser tells its path only once it holds the folder.
void ChooseFile(const std::string& path, std::function<void(wxFileDialog*)> inspect = [](wxFileDialog*) {}) {
  DialogScript::Expect({.description = "file dialog", .answer = {}, .interact = [=](wxDialog* shown) {
                          auto* dialog = dynamic_cast<wxFileDialog*>(shown);
                          ASSERT_NE(dialog, nullptr);  // the harness's watchdog ends it
                          inspect(dialog);
                          dialog->SetPath(wxString::FromUTF8(path));
                          EXPECT_TRUE(ftpzn::test::PumpUntil([&] { return dialog->GetPath() == wxString::FromUTF8(path); }));
                          dialog->EndModal(wxID_OK);
                        }});
  // GTK's file dialog passes the hook twice, its own ShowModal and then the
  // dialog's: the second time it is let through to show.
  DialogScript::Expect({.description = "file dialog shown", .answer = [](wxDialog*) { return int(wxID_NONE); }, .interact = {}});
}

// One server per kind for the whole binary; each stage of a test works in a
// directory of its own under the root, named after the test and the stage.
class RemotePane : public ::testing::TestWithParam<FtpServerKind> {
 protected:
  void SetUp() override {
    auto& s = ftpzn::testing::SharedServer(GetParam(), "ftpzn-remote-", [](const std::string& root) {
      // A /pub for going up to the root, and a few hundred names to look at.
      fs::create_directories(fs::path(root) / "pub/data");
      fs::create_directories(fs::path(root) / "many/archive");
      for (int i = 0; i < 300; ++i)
        WriteFile(root + wxString::Format("/many/report-%03d.txt", i).ToStdString(), std::string(i * 100u, 'r'));
    });
    ASSERT_TRUE(s.server) << "cannot start " << ftpzn::testing::FtpServerName(GetParam()) << ": " << s.error;
    m_root = s.root;
    const std::string name = ::testing::UnitTest::GetInstance()->current_test_info()->name();
    m_test = "/" + name.substr(0, name.find('/'));  // the server's name is in the root already
    using namespace ftpzn::inet;
    for (auto option : {INTERNET_OPTION_CONNECT_TIMEOUT, INTERNET_OPTION_RECEIVE_TIMEOUT, INTERNET_OPTION_SEND_TIMEOUT})
      m_session.SetOption(option, 10000);
    using ftpzn::testing::FtpTestServer;
    m_connection = m_session.GetFtpConnection(wxString(s.server->Host()).ToStdWstring(),
                                              wxString(FtpTestServer::kUser).ToStdWstring(),
                                              wxString(FtpTestServer::kPassword).ToStdWstring(), s.server->Port(), true);
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
  bool Show(const wxString& directory) {
    m_window->m_strRemoteDir = directory;
    return Pane().FillDirectory(directory, m_connection.get(), true) == 1;
  }
  CFtpListzn1Remote& Pane() { return m_window->m_ctrlRemote; }
  // What the user sees: the pane's directory, the path box and the names
  // after the parent row, sorted (the servers' order is their own).
  std::string Seen() {
    std::set<wxString> names;
    for (int row = 1; row < Pane().GetItemCount(); ++row) names.insert(Pane().GetRowName(row));
    wxString seen = m_window->m_strRemoteDir + " | " + m_window->m_editRemoteDir->GetValue() + " |";
    for (const wxString& name : names) seen += " " + name;
    return seen.utf8_string();
  }
  static std::string At(const wxString& dir, const wxString& names, const wxString& box = {}) {
    return (dir + " | " + (box.empty() ? dir : box) + " |" + (names.empty() ? "" : " ") + names).utf8_string();
  }
  // Which of `names` are on disk, in the stage's directory.
  std::string OnDisk(const std::vector<std::string>& names) {
    std::string present;
    for (const std::string& name : names) present += fs::exists(Local(name)) ? " " + name : "";
    return present.substr(present.empty() ? 0 : 1);
  }
  int RowOf(const wxString& name) {
    const int row = Pane().FindItemByName(name);
    EXPECT_GT(row, 0) << name;
    return row;
  }
  // Selects `names` (when given), runs a menu command through the window,
  // which offers it to the panes, and checks the message boxes it shows.
  void Run(int id, std::initializer_list<wxString> names = {}, const Texts& messages = {}) {
    for (int row = 0; names.size() && row < Pane().GetItemCount(); ++row)
      Pane().SetItemState(row, 0, wxLIST_STATE_SELECTED);
    for (const wxString& name : names) Pane().SetItemState(RowOf(name), wxLIST_STATE_SELECTED, wxLIST_STATE_SELECTED);
    for (size_t i = 0; i < messages.size(); ++i) DialogScript::ExpectMessageBox();
    wxCommandEvent event(wxEVT_MENU, id);
    event.SetEventObject(m_window);
    EXPECT_TRUE(m_window->ProcessWindowEvent(event));
    EXPECT_EQ(NewMessages(), messages);
  }
  // The message-box texts shown since the last call.
  Texts NewMessages() {
    const auto& all = DialogScript::MessageBoxTexts();
    return Texts(all.begin() + static_cast<std::ptrdiff_t>(std::exchange(m_seen, all.size())), all.end());
  }
  // As Run, answering the name input with `typed` after checking its title
  // and (when given) the text it offers.
  void RunInput(int id, const wxString& title, const wxString& typed, const Texts& messages = {},
                int result = ftpzn::kResultOk, const wxString& offered = {}) {
    DialogScript::ExpectModal<CDlgInputString>(result, [=](CDlgInputString* dialog) {
      EXPECT_EQ(dialog->m_strTitle, title);
      if (!offered.empty()) { EXPECT_EQ(dialog->m_strInput, offered); }
      dialog->m_strInput = typed;
    });
    Run(id, {}, messages);
  }
  wxString ServerDirectory() {
    std::wstring directory;
    EXPECT_TRUE(m_connection->GetCurrentDirectory(directory));
    return directory;
  }

  std::string m_root, m_test, m_dir;
  ftpzn::inet::CInternetSession m_session;
  std::unique_ptr<ftpzn::inet::CFtpConnection> m_connection;
  CDlgFTPMainWnd* m_window = nullptr;
  size_t m_seen = 0;
};

TEST_P(RemotePane, BrowseFoldersLinksTheRootAndFoldersThatGoAway) {
  ASSERT_TRUE(Make("plain", {"data/a.txt", "data/b.txt", "empty/", "top.txt"}));
  EXPECT_TRUE(Pane().GetRowName(0) == "..Up" && Pane().IsItemFolder(RowOf("data")));
  EXPECT_EQ(Pane().OpenItem(RowOf("top.txt")), 0) << "a file row does nothing";
  EXPECT_FALSE(Pane().IsItemFolder(RowOf("top.txt")));
  EXPECT_EQ(Seen(), At(Remote(), "data empty top.txt"));
  Pane().DoubleClickRow(RowOf("data"));
  EXPECT_EQ(Seen(), At(Remote("data"), "a.txt b.txt"));
  EXPECT_EQ(Pane().GetItemSize(RowOf("a.txt")), 1u);
  Pane().DoubleClickRow(0);  // up, to the directory the server names
  EXPECT_EQ(Seen(), At(Remote(), "data empty top.txt"));
  // An empty folder enumerates nothing: the parent row alone, and the
  // current directory is the folder all the same.
  ASSERT_EQ(Pane().OpenItem(RowOf("empty")), 1);
  EXPECT_TRUE(Pane().GetItemCount() == 1 && Pane().GetRowName(0) == "..Up");
  EXPECT_EQ(Seen(), At(Remote("empty"), ""));
  EXPECT_EQ(ServerDirectory(), Remote("empty"));

  // Links: one to a folder opens like the folder; one to a file, or to
  // nothing (which proftpd leaves out), is tried and leaves the pane as it
  // was, without a message.
  ASSERT_TRUE(Make("links", {"real/inside.txt", "plain.txt"}));
  fs::create_directory_symlink("real", Local("to-real"));
  fs::create_symlink("plain.txt", Local("to-plain"));
  fs::create_symlink("nowhere", Local("to-nothing"));
  ASSERT_TRUE(Show(Remote()));
  const bool toNothing = GetParam() != FtpServerKind::Proftpd;
  const wxString listed = toNothing ? "plain.txt real to-nothing to-plain to-real" : "plain.txt real to-plain to-real";
  EXPECT_EQ(Seen(), At(Remote(), listed));
  // vsftpd lists a link in LIST ("l"), pure-ftpd and proftpd in MLSD
  // (OS.unix=slink, OS.unix=symlink).
  const FileListItem *link = Pane().GetRecord(RowOf("to-real")), *file = Pane().GetRecord(RowOf("to-plain"));
  EXPECT_TRUE(link && file && link->link && !link->folder && !file->folder);
  for (const char* name : {"to-plain", "to-nothing"}) {
    if (name == "to-nothing"s && !toNothing) continue;
    EXPECT_EQ(Pane().OpenItem(RowOf(name)), 0) << name;
    EXPECT_EQ(Seen(), At(Remote(), listed)) << name;
    EXPECT_EQ(ServerDirectory(), Remote()) << name;
  }
  Pane().DoubleClickRow(RowOf("to-real"));
  // The server names the directory it is in: the link's path or its target's.
  const wxString entered = m_window->m_strRemoteDir;
  EXPECT_TRUE(entered == Remote("to-real") || entered == Remote("real")) << entered;
  EXPECT_EQ(Seen(), At(entered, "inside.txt"));

  // Up from /pub lists the root; up from the root lists it again, without a
  // "Can't go up!" box; into a folder from the root the path is built with
  // a doubled '/'.
  ASSERT_TRUE(Show("/pub"));
  EXPECT_EQ(Seen(), At("/pub", "data"));
  ASSERT_EQ(Pane().GoUpDirectory(), 1);
  const std::string root = Seen();
  EXPECT_TRUE(root.starts_with("/ | / |") && root.find(" pub") != root.npos && root.find(" many") != root.npos) << root;
  Run(ID_REMOTE_UP_DIRECTORY);
  EXPECT_EQ(Seen(), root);
  ASSERT_EQ(Pane().OpenItem(RowOf("pub")), 1);
  EXPECT_EQ(m_window->m_strRemoteDir, "/pub");

  ASSERT_TRUE(Make("gone", {"gone/", "keep.txt"}));
  fs::remove(Local("gone"));
  DialogScript::ExpectMessageBox();
  EXPECT_EQ(Pane().OpenItem(RowOf("gone")), 0);
  EXPECT_EQ(NewMessages(), Texts{"Set directory:" + Remote("gone") + " error:12003 \n"});
  EXPECT_EQ(Seen(), At(Remote(), "gone keep.txt"));
  // Refresh shows what changed; an empty directory cannot be enumerated and
  // leaves the rows as they were.
  WriteFile(Local("two.txt"));
  Run(ID_REMOTE_REFRESH);
  EXPECT_EQ(Seen(), At(Remote(), "keep.txt two.txt"));
  fs::remove(Local("keep.txt")), fs::remove(Local("two.txt"));
  EXPECT_EQ(Pane().FillDirectory(Remote(), m_connection.get(), true), 0);
  EXPECT_EQ(Seen(), At(Remote(), "keep.txt two.txt"));
}

TEST_P(RemotePane, ChangeAndNewDirectory) {
  // A directory literally named as the path the command builds, so the
  // server can follow it.
  const std::string odd = m_test.substr(1) + "-cd\\incoming\\*";
  fs::create_directories(fs::path(m_root) / odd);
  WriteFile(fs::path(m_root) / odd / "odd.txt");
  ftpzn::testing::GiveToTestAccount((fs::path(m_root) / odd).string());
  ASSERT_TRUE(Make("cd", {"own.txt", "incoming/inside.txt"}));
  const wxString title = "Type new directory name";
  RunInput(ID_REMOTE_CHANGE_DIRECTORY, title, "incoming", {}, ftpzn::kResultOk, "To Directory");
  // pure-ftpd refuses that path and stays where it was; the others go
  // there. Either way the rows are the directory the server is then in,
  // and the pane's own directory is not changed.
  const bool refused = GetParam() == FtpServerKind::PureFtpd;
  EXPECT_EQ(ServerDirectory(), refused ? Remote() : "/" + wxString::FromUTF8(odd));
  EXPECT_EQ(Seen(), At(Remote(), refused ? "incoming own.txt" : "odd.txt"));
  // A path the server refuses lists whatever directory it is in; Cancel
  // changes nothing.
  ASSERT_TRUE(m_connection->SetCurrentDirectory(L"/pub"));
  RunInput(ID_REMOTE_CHANGE_DIRECTORY, title, "incoming\\nothere");
  EXPECT_EQ(Seen(), At(Remote(), "data"));
  RunInput(ID_REMOTE_CHANGE_DIRECTORY, title, "incoming", {}, ftpzn::kResultCancel);
  EXPECT_EQ(Seen(), At(Remote(), "data"));

  // New Directory collapses doubled slashes; a name that exists is refused
  // by the server.
  ASSERT_TRUE(Make("mkdir", {"keep.txt"}));
  RunInput(ID_REMOTE_NEW_DIRECTORY, "Type directory name", "fresh");
  EXPECT_TRUE(Pane().IsItemFolder(RowOf("fresh")));
  RunInput(ID_REMOTE_NEW_DIRECTORY, "Type directory name", "//deeper");
  RunInput(ID_REMOTE_NEW_DIRECTORY, "Type directory name", "fresh",
           {"Create directory error:" + Remote("fresh") + " error:12003"});
  RunInput(ID_REMOTE_NEW_DIRECTORY, "Type directory name", "never", {}, ftpzn::kResultCancel);
  EXPECT_EQ(OnDisk({"fresh", "deeper", "never"}), "fresh deeper");
  EXPECT_TRUE(fs::is_directory(Local("fresh")) && fs::is_directory(Local("deeper")));
  // A current directory the server cannot enter: the text with a trailing
  // blank, and no name is asked for.
  m_window->m_strRemoteDir = Remote("missing");
  Run(ID_REMOTE_NEW_DIRECTORY, {}, {"Set directory:" + Remote("missing") + " error:12003 "});
}

TEST_P(RemotePane, DeleteCommandsActOnTheirKindOfRow) {
  const std::vector<std::string> all = {"keep.txt", "f1.txt", "f2.txt", "emptyA", "emptyB", "emptyC", "full/in"};
  ASSERT_TRUE(Make("rm", {"keep.txt", "f1.txt", "f2.txt", "f3.txt", "emptyA/", "emptyB/", "emptyC/", "full/in"}));
  // A file that went away: its message joins the directory and the name
  // with a backslash.
  fs::remove(Local("f3.txt"));
  Run(ID_REMOTE_DELETE, {"f3.txt"}, {"Delete file:" + Remote() + "\\f3.txt error:12003"});
  Run(ID_REMOTE_DELETE_FILE, {"f1.txt", "emptyA"});
  EXPECT_EQ(OnDisk(all), "keep.txt f2.txt emptyA emptyB emptyC full/in");
  EXPECT_EQ(Seen(), At(Remote(), "emptyA emptyB emptyC f2.txt full keep.txt"));
  Run(ID_REMOTE_DELETE_DIRECTORY, {"f2.txt", "emptyA"});
  EXPECT_EQ(OnDisk(all), "keep.txt f2.txt emptyB emptyC full/in");
  // Delete takes both kinds; a folder with content is refused by the server
  // with its own code, reported with the name alone, and the loop goes on.
  Run(ID_REMOTE_DELETE, {"emptyB", "f2.txt", "full"}, {"Remove directory:full error:12003"});
  EXPECT_EQ(OnDisk(all), "keep.txt emptyC full/in");
  EXPECT_EQ(Seen(), At(Remote(), "emptyC full keep.txt"));
  // Delete Recursive: the server's refusal is not the local "not empty"
  // code, so the folder is reported and not walked; files and empty
  // folders go as with Delete.
  Run(ID_REMOTE_DELETE_RECURSIVE, {"full", "emptyC"}, {"Remove directory:full error:12003"});
  EXPECT_EQ(OnDisk(all), "keep.txt full/in");
  EXPECT_EQ(Seen(), At(Remote(), "full keep.txt"));
  // Without the directory each command says so its own way.
  m_window->m_strRemoteDir = Remote("missing");
  const wxString prefix = "Set directory:" + Remote("missing") + " error:12003";
  Run(ID_REMOTE_DELETE, {"keep.txt"}, {prefix});
  for (int id : {ID_REMOTE_DELETE_FILE, ID_REMOTE_DELETE_DIRECTORY, ID_REMOTE_DELETE_RECURSIVE})
    Run(id, {}, {prefix + "%"});
  EXPECT_EQ(OnDisk(all), "keep.txt full/in");

  // A tree of one entry a level goes whatever order a server lists in: the
  // file is always the enumeration's last entry. The engine holds the
  // connection while an enumeration has entries left, so the first of two
  // files cannot go: 0, and nothing said.
  ASSERT_TRUE(Make("tree", {"tree/sub/deep/f.txt", "two/a.txt", "two/b.txt"}));
  ASSERT_EQ(Pane().DeleteRemoteTree(Remote("tree")), 1);
  EXPECT_EQ(ServerDirectory(), Remote());
  EXPECT_EQ(std::pair(Pane().DeleteRemoteTree(Remote("two")), Pane().DeleteRemoteTree(Remote("nowhere"))), std::pair(0, 0));
  EXPECT_EQ(OnDisk({"tree", "two"}), "two");
}

TEST_P(RemotePane, SaveListDropsAndAFewHundredEntries) {
  ASSERT_TRUE(Make("save", {"abc", "long5", "sub/inner.txt"}));
  ASSERT_TRUE(Show(Remote("sub")));
  const std::string out = ftpzn::test::MakeTempDir("ftpzn-savelist-");
  ChooseFile(out + "/list", [](wxFileDialog* dialog) {
    EXPECT_EQ(dialog->GetWildcard(), "Text file (*.doc)|*.doc|ASCII file(*.txt)|*.txt|All Files(*.*)|*.*");
    EXPECT_TRUE(dialog->HasFlag(wxFD_SAVE) && dialog->HasFlag(wxFD_OVERWRITE_PROMPT));
  });
  Run(ID_REMOTE_SAVE_LIST);
  // The parent's names, in the order the server lists them (as the pane
  // does). The pane moves there; the path box shows it after the next refresh.
  EXPECT_TRUE(Seen().starts_with(At(Remote(), "", Remote("sub")))) << Seen();
  Run(ID_REMOTE_REFRESH);
  EXPECT_EQ(Seen(), At(Remote(), "abc long5 sub"));
  const std::map<wxString, std::string> perName = {{"abc", "a\0b\0"s}, {"long5", "l\0o\0n\0"s}, {"sub", "s\0u\0"s}};
  std::string bytes;
  for (int row = 1; row < Pane().GetItemCount(); ++row) bytes += perName.at(Pane().GetRowName(row));
  EXPECT_EQ(ReadFile(out + "/list.doc"), bytes);
  // A name with ".txt" anywhere is kept as it is, and an old file is cut.
  ASSERT_TRUE(Show(Remote("sub")));
  WriteFile(out + "/a.txt.bak", std::string(100, 'z'));
  ChooseFile(out + "/a.txt.bak");
  Run(ID_REMOTE_SAVE_LIST);
  EXPECT_EQ(ReadFile(out + "/a.txt.bak"), bytes);
  EXPECT_FALSE(fs::exists(out + "/a.txt.bak.doc"));
  DialogScript::ExpectModal<wxFileDialog>(wxID_CANCEL);
  Run(ID_REMOTE_SAVE_LIST);

  // Files dropped on the pane transfer nothing.
  ASSERT_TRUE(Make("drop", {"keep.txt"}));
  const std::string local = ftpzn::test::MakeTempDir("ftpzn-drop-");
  fs::create_directories(local + "/folder/sub");
  WriteFile(local + "/folder/sub/one.txt");
  WriteFile(local + "/loose.txt");
  auto* target = dynamic_cast<wxFileDropTarget*>(Pane().GetDropTarget());
  ASSERT_NE(target, nullptr);
  const wxString dropped[] = {wxString::FromUTF8(local + "/folder"), wxString::FromUTF8(local + "/loose.txt")};
  target->OnDropFiles(5, 5, wxArrayString(2, dropped));
  target->OnDropFiles(5, 5, wxArrayString());
  EXPECT_EQ(std::distance(fs::recursive_directory_iterator(Local()), {}), 1);
  EXPECT_EQ(Seen(), At(Remote(), "keep.txt"));

  ASSERT_TRUE(Show("/many"));
  ASSERT_EQ(Pane().GetItemCount(), 302);
  const int row = RowOf("report-123.txt");
  EXPECT_EQ(Pane().GetItemText(row, 1), "13 KB");
  EXPECT_EQ(Pane().FindItemByName("REPORT-123.TXT"), row);
  EXPECT_EQ(Pane().FindItemByName("report-999.txt"), -1);
  EXPECT_EQ(Pane().GetItemText(RowOf("archive"), 2), "Folder");
  if (GetParam() == FtpServerKind::Vsftpd) {
    m_window->SetSize(wxSize(1100, 720));
    EXPECT_FALSE(ftpzn::test::SaveScreenshot("remote-pane-many").empty());
  }
}

INSTANTIATE_TEST_SUITE_P(Servers, RemotePane, ::testing::ValuesIn(ftpzn::testing::AllFtpServers()),
                         [](const auto& info) { return std::string(ftpzn::testing::FtpServerName(info.param)); });

// Without a connection the pane asks for one where the user double-clicks,
// says nothing elsewhere, and Save List leaves an empty file; its context
// menu is the remote popup.
TEST(RemotePaneUnconnected, AsksForAConnectionSavesAnEmptyListAndPopsUpTheRemoteMenu) {
  auto* window = new CDlgFTPMainWnd;
  ASSERT_TRUE(window->Create() && window->Show());
  ftpzn::test::PumpFor(50);
  CFtpListzn1Remote& pane = window->m_ctrlRemote;
  window->m_strRemoteDir = "/pub";
  EXPECT_EQ(pane.FindItemByName("..Up"), -1);
  EXPECT_EQ(pane.FillDirectory("/pub", nullptr, true), 0);
  pane.InsertParentItem();
  pane.InsertNamedFolder(1, "data");
  EXPECT_EQ(pane.FindItemByName("DATA"), 1);
  DialogScript::ExpectMessageBox();
  EXPECT_EQ(pane.OpenItem(1), 0);
  EXPECT_EQ(DialogScript::MessageBoxTexts(), Texts{"Please connect FTP site first!"});
  EXPECT_EQ(std::pair(pane.GoUpDirectory(), pane.DeleteRemoteTree("/pub")), std::pair(0, 0));
  // The remote commands are the pane's own, and say nothing but Save
  // List's file dialog; the local pane's ids are not.
  const std::string out = ftpzn::test::MakeTempDir("ftpzn-savelist-");
  ChooseFile(out + "/empty.txt");
  const std::set<int> local{9100, 9101, 9112, 9114};
  for (int id : {9107, 9108, 9109, 9110, 9127, 9126, 9111, 9128, 9100, 9101, 9112, 9114, int(ID_REMOTE_SAVE_LIST)}) {
    wxCommandEvent event(wxEVT_MENU, id);
    EXPECT_EQ(pane.ProcessWindowEventLocally(event), !local.count(id)) << id;
  }
  EXPECT_EQ(pane.GetItemCount(), 2);
  EXPECT_TRUE(fs::exists(out + "/empty.txt") && fs::file_size(out + "/empty.txt") == 0);

  std::vector<std::pair<int, wxString>> items;
  pane.Bind(wxEVT_MENU_OPEN, [&items, &pane](wxMenuEvent& event) {
    if (wxMenu* menu = event.GetMenu())
      for (const wxMenuItem* item : menu->GetMenuItems()) items.emplace_back(item->GetId(), item->GetItemLabelText());
    pane.CallAfter([] { wxUIActionSimulator().Char(WXK_ESCAPE); });
  });
  const wxPoint at = pane.ClientToScreen(wxPoint(40, 60));
  wxUIActionSimulator().MouseMove(at);
  ftpzn::test::PumpFor(20);
  wxContextMenuEvent event(wxEVT_CONTEXT_MENU, pane.GetId(), at);
  event.SetEventObject(&pane);
  pane.ProcessWindowEvent(event);
  const std::vector<std::pair<int, wxString>> remote = {
      {9107, "Refresh"},       {9108, "Up Directory"}, {9109, "Change Directory"},
      {9110, "New Directory"}, {9127, "Delete"},       {9126, "Delete File"},
      {9111, "Delete Directory"}, {9128, "Delete Recursive"}, {9113, "Save List..."}};
  EXPECT_EQ(items, remote);
  DialogScript::VerifyAndClear();
  window->Destroy();
  ftpzn::test::PumpFor(10);
}

}  // namespace
