// The remote pane inside the real main window, over a connection made by
// the engine to vsftpd, pure-ftpd and proftpd on loopback. The server's root
// is a local directory, so what a command did on the server is checked on
// disk.
#include <gtest/gtest.h>
#include <wx/app.h>
#include <wx/dnd.h>
#include <wx/filedlg.h>
#include <wx/menu.h>
#include <wx/textctrl.h>
#include <wx/uiaction.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <set>

#include "ftp_servers.h"
#include "gui_harness.h"
#include "inet/inet.h"
#include "mainwnd/dlgftpmainwnd.h"
#include "ui/dlginputstring.h"

namespace {

// GTK's file chooser saves its settings; keep them in memory, away from a
// session bus the virtual display does not have.
const bool kMemorySettings = setenv("GSETTINGS_BACKEND", "memory", 1) == 0;

namespace fs = std::filesystem;
namespace inet = ftpzn::inet;
using ftpzn::test::DialogScript;
using ftpzn::testing::FtpServerKind;
using ftpzn::testing::FtpTestServer;
using namespace std::string_literals;

void WriteFile(const fs::path& path, const std::string& bytes = "x") {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

// One server per kind for the whole binary; each test works in a directory
// of its own under the root, named after the test.
ftpzn::testing::SharedFtpServer& ServerFor(FtpServerKind kind) {
  return ftpzn::testing::SharedServer(kind, "ftpzn-remote-", [](const std::string& root) {
    // A /pub for going up to the root, and a few hundred names to look at.
    fs::create_directories(fs::path(root) / "pub/data");
    fs::create_directories(fs::path(root) / "many");
    for (int i = 0; i < 300; ++i) {
      WriteFile(fs::path(root) / "many" / wxString::Format("report-%03d.txt", i).ToStdString(),
                std::string(static_cast<size_t>(i) * 100, 'r'));
    }
    fs::create_directories(fs::path(root) / "many/archive");
  });
}

std::string KindName(const ::testing::TestParamInfo<FtpServerKind>& info) {
  std::string name = ftpzn::testing::FtpServerName(info.param);
  for (char& c : name) {
    if (!isalnum(static_cast<unsigned char>(c))) c = '_';
  }
  return name;
}

// Answers the next file dialog with `path`: the dialog shows for real, since
// the toolkit's chooser tells its path only once it holds the folder.
void ChooseFile(const std::string& path, std::function<void(wxFileDialog*)> inspect = {}) {
  ftpzn::test::ExpectedDialog choose;
  choose.description = "file dialog";
  choose.interact = [path, inspect](wxDialog* shown) {
    auto* dialog = dynamic_cast<wxFileDialog*>(shown);
    if (!dialog) {
      ADD_FAILURE() << "not a file dialog: " << shown->GetTitle();
      shown->EndModal(wxID_CANCEL);
      return;
    }
    if (inspect) inspect(dialog);
    const wxString wanted = wxString::FromUTF8(path);
    dialog->SetPath(wanted);
    EXPECT_TRUE(ftpzn::test::PumpUntil([dialog, wanted] { return dialog->GetPath() == wanted; }));
    dialog->EndModal(wxID_OK);
  };
  DialogScript::Expect(std::move(choose));
  // GTK's file dialog passes the hook twice, its own ShowModal and then the
  // dialog's: the second time it is let through to show.
  ftpzn::test::ExpectedDialog show;
  show.description = "file dialog shown";
  show.answer = [](wxDialog*) { return static_cast<int>(wxID_NONE); };
  DialogScript::Expect(std::move(show));
}

class RemotePane : public ::testing::TestWithParam<FtpServerKind> {
 protected:
  void SetUp() override {
    ftpzn::testing::SharedFtpServer& s = ServerFor(GetParam());
    ASSERT_TRUE(s.server) << "cannot start " << ftpzn::testing::FtpServerName(GetParam()) << ": " << s.error;
    m_root = s.root;
    std::string name = ::testing::UnitTest::GetInstance()->current_test_info()->name();
    m_dir = "/" + name.substr(0, name.find('/'));  // the server's name is in the root already
    fs::create_directories(Local());
    m_session.SetOption(inet::INTERNET_OPTION_CONNECT_TIMEOUT, 10000);
    m_session.SetOption(inet::INTERNET_OPTION_RECEIVE_TIMEOUT, 10000);
    m_session.SetOption(inet::INTERNET_OPTION_SEND_TIMEOUT, 10000);
    try {
      m_connection = m_session.GetFtpConnection(
          wxString(s.server->Host()).ToStdWstring(), wxString(FtpTestServer::kUser).ToStdWstring(),
          wxString(FtpTestServer::kPassword).ToStdWstring(), s.server->Port(), true);
    } catch (const inet::CInternetException& e) {
      FAIL() << "cannot connect: " << e.m_dwError;
    }
    m_window = new CDlgFTPMainWnd;
    ASSERT_TRUE(m_window->Create());
    m_window->Show();
    ftpzn::test::PumpFor(30);
  }
  void TearDown() override {
    DialogScript::VerifyAndClear();
    if (m_window) {
      m_window->m_ctrlRemote.m_pConnection = nullptr;
      m_window->Destroy();
      ftpzn::test::PumpFor(10);
    }
    if (m_connection) m_connection->Close();
  }

  // The test's directory on disk, or a path under it.
  fs::path Local(const std::string& relative = {}) const {
    return relative.empty() ? fs::path(m_root + m_dir) : fs::path(m_root + m_dir) / relative;
  }
  // Makes files and (with a trailing '/') folders under the test's
  // directory, owned by the server's account.
  void Make(std::initializer_list<std::string> entries) {
    for (const std::string& entry : entries) {
      if (entry.back() == '/') {
        fs::create_directories(Local(entry));
      } else {
        fs::create_directories(Local(entry).parent_path());
        WriteFile(Local(entry));
      }
    }
    ftpzn::testing::GiveToTestAccount(Local());
  }
  wxString Remote(const std::string& relative = {}) const {
    return wxString::FromUTF8(relative.empty() ? m_dir : m_dir + "/" + relative);
  }
  // Lists a server directory the way the window does after connecting.
  bool Show(const wxString& directory) {
    m_window->m_strRemoteDir = directory;
    return Pane().FillDirectory(directory, m_connection.get(), true) == 1;
  }
  CFtpListzn1Remote& Pane() { return m_window->m_ctrlRemote; }
  wxString PathBox() const { return m_window->m_editRemoteDir->GetValue(); }
  // The names after the parent row; the servers' order is their own.
  std::set<wxString> Rows() {
    std::set<wxString> names;
    for (int row = 1; row < Pane().GetItemCount(); ++row) names.insert(Pane().GetRowName(row));
    return names;
  }
  int RowOf(const wxString& name) {
    const int row = Pane().FindItemByName(name);
    EXPECT_GT(row, 0) << name;
    return row;
  }
  void Select(std::initializer_list<wxString> names) {
    for (int row = 0; row < Pane().GetItemCount(); ++row) Pane().SetItemState(row, 0, wxLIST_STATE_SELECTED);
    for (const wxString& name : names) {
      Pane().SetItemState(RowOf(name), wxLIST_STATE_SELECTED, wxLIST_STATE_SELECTED);
    }
  }
  // A menu command through the window, which offers it to the panes.
  bool Command(int id) {
    wxCommandEvent event(wxEVT_MENU, id);
    event.SetEventObject(m_window);
    return m_window->ProcessWindowEvent(event);
  }
  // The message-box texts shown since the last call.
  std::vector<wxString> NewMessages() {
    const auto& all = DialogScript::MessageBoxTexts();
    std::vector<wxString> fresh(all.begin() + static_cast<std::ptrdiff_t>(m_seen), all.end());
    m_seen = all.size();
    return fresh;
  }
  // The names of a server directory in the order the server lists them.
  std::vector<std::wstring> ServerOrder(const wxString& directory) {
    std::wstring back;
    EXPECT_TRUE(m_connection->GetCurrentDirectory(back));
    EXPECT_TRUE(m_connection->SetCurrentDirectory(directory.ToStdWstring()));
    std::vector<std::wstring> names;
    inet::CFtpFileFind find(m_connection.get());
    for (bool more = find.FindFile(); more;) {
      more = find.FindNextFile();
      names.push_back(find.GetFileName());
    }
    find.Close();
    EXPECT_TRUE(m_connection->SetCurrentDirectory(back));
    return names;
  }
  std::wstring ServerDirectory() {
    std::wstring directory;
    EXPECT_TRUE(m_connection->GetCurrentDirectory(directory));
    return directory;
  }
  void ExpectInput(const wxString& title, const wxString& typed, int result = ftpzn::kResultOk) {
    DialogScript::ExpectModal<CDlgInputString>(result, [title, typed](CDlgInputString* dialog) {
      dialog->m_strInput = typed;
      EXPECT_EQ(dialog->m_strTitle, title);
    });
  }

  std::string m_root;
  std::string m_dir;
  inet::CInternetSession m_session;
  std::unique_ptr<inet::CFtpConnection> m_connection;
  CDlgFTPMainWnd* m_window = nullptr;
  size_t m_seen = 0;
};

TEST_P(RemotePane, IntoAFolderAnEmptyFolderAndBackUp) {
  Make({"data/a.txt", "data/b.txt", "empty/", "top.txt"});
  ASSERT_TRUE(Show(Remote()));
  EXPECT_EQ(Pane().GetRowName(0), "..Up");
  EXPECT_EQ(Rows(), (std::set<wxString>{"data", "empty", "top.txt"}));
  EXPECT_EQ(PathBox(), Remote());
  EXPECT_TRUE(Pane().IsItemFolder(RowOf("data")));
  EXPECT_FALSE(Pane().IsItemFolder(RowOf("top.txt")));

  // A file row does nothing.
  EXPECT_EQ(Pane().OpenItem(RowOf("top.txt")), 0);
  EXPECT_EQ(Pane().GetItemCount(), 4);

  Pane().DoubleClickRow(RowOf("data"));
  EXPECT_EQ(Rows(), (std::set<wxString>{"a.txt", "b.txt"}));
  EXPECT_EQ(m_window->m_strRemoteDir, Remote("data"));
  EXPECT_EQ(PathBox(), Remote("data"));
  EXPECT_EQ(Pane().GetItemSize(RowOf("a.txt")), 1u);

  // Row 0 goes up, to the directory the server names.
  Pane().DoubleClickRow(0);
  EXPECT_EQ(m_window->m_strRemoteDir, Remote());
  EXPECT_EQ(Rows(), (std::set<wxString>{"data", "empty", "top.txt"}));

  // An empty folder enumerates nothing: the parent row alone, and the
  // current directory is the folder all the same.
  ASSERT_EQ(Pane().OpenItem(RowOf("empty")), 1);
  EXPECT_EQ(Pane().GetItemCount(), 1);
  EXPECT_EQ(Pane().GetRowName(0), "..Up");
  EXPECT_EQ(PathBox(), Remote("empty"));
  EXPECT_EQ(ServerDirectory(), Remote("empty").ToStdWstring());
}

// Links on the server: one to a folder opens like the folder; one to a
// file, or to nothing, is tried and leaves the pane as it was, without a
// message (an unexpected message box fails the test).
TEST_P(RemotePane, ALinkIsTriedAsAFolder) {
  Make({"real/inside.txt", "plain.txt"});
  fs::create_directory_symlink("real", Local("to-real"));
  fs::create_symlink("plain.txt", Local("to-plain"));
  fs::create_symlink("nowhere", Local("to-nothing"));
  ASSERT_TRUE(Show(Remote()));
  // proftpd leaves a link to nothing out of its listings.
  std::set<wxString> listed{"plain.txt", "real", "to-plain", "to-real"};
  if (GetParam() != FtpServerKind::Proftpd) listed.insert("to-nothing");
  EXPECT_EQ(Rows(), listed);
  const FileListItem* record = Pane().GetRecord(RowOf("to-real"));
  ASSERT_NE(record, nullptr);
  // vsftpd lists it as a link in LIST ("l"), pure-ftpd and proftpd in MLSD
  // (OS.unix=slink, OS.unix=symlink).
  EXPECT_TRUE(record->link);
  EXPECT_FALSE(record->folder);
  const FileListItem* file = Pane().GetRecord(RowOf("to-plain"));
  ASSERT_NE(file, nullptr);
  EXPECT_FALSE(file->folder);

  for (const char* name : {"to-plain", "to-nothing"}) {
    if (!listed.count(name)) continue;
    SCOPED_TRACE(name);
    EXPECT_EQ(Pane().OpenItem(RowOf(name)), 0);
    EXPECT_EQ(Rows(), listed);
    EXPECT_EQ(m_window->m_strRemoteDir, Remote());
    EXPECT_EQ(PathBox(), Remote());
    EXPECT_EQ(ServerDirectory(), Remote().ToStdWstring());
  }
  EXPECT_TRUE(NewMessages().empty());

  Pane().DoubleClickRow(RowOf("to-real"));
  EXPECT_EQ(Rows(), std::set<wxString>{"inside.txt"});
  // The server names the directory it is in: the link's path or its target's.
  const wxString entered = m_window->m_strRemoteDir;
  EXPECT_TRUE(entered == Remote("to-real") || entered == Remote("real")) << entered;
  EXPECT_EQ(PathBox(), entered);
}

TEST_P(RemotePane, UpFromPubListsTheRootAndFromTheRootAgain) {
  ASSERT_TRUE(Show("/pub"));
  EXPECT_EQ(Rows(), std::set<wxString>{"data"});
  ASSERT_EQ(Pane().GoUpDirectory(), 1);
  EXPECT_EQ(m_window->m_strRemoteDir, "/");
  EXPECT_EQ(PathBox(), "/");
  EXPECT_TRUE(Rows().count("pub"));
  EXPECT_TRUE(Rows().count("many"));
  const size_t rootRows = Rows().size();
  // No "Can't go up!": the root lists itself again (an unexpected message
  // box would fail the test).
  EXPECT_TRUE(Command(ID_REMOTE_UP_DIRECTORY));
  EXPECT_EQ(m_window->m_strRemoteDir, "/");
  EXPECT_EQ(Rows().size(), rootRows);
  // Into a folder from the root, where the path is built with a doubled '/'.
  ASSERT_EQ(Pane().OpenItem(RowOf("pub")), 1);
  EXPECT_EQ(m_window->m_strRemoteDir, "/pub");
}

TEST_P(RemotePane, AFolderThatWentAwayIsReported) {
  Make({"gone/", "keep.txt"});
  ASSERT_TRUE(Show(Remote()));
  fs::remove(Local("gone"));
  DialogScript::ExpectMessageBox();
  EXPECT_EQ(Pane().OpenItem(RowOf("gone")), 0);
  EXPECT_EQ(NewMessages(), std::vector<wxString>{"Set directory:" + Remote("gone") + " error:12003 \n"});
  EXPECT_EQ(Rows(), (std::set<wxString>{"gone", "keep.txt"}));
  EXPECT_EQ(m_window->m_strRemoteDir, Remote());
}

TEST_P(RemotePane, RefreshShowsChangesAndKeepsRowsWhenNothingIsListed) {
  Make({"one.txt"});
  ASSERT_TRUE(Show(Remote()));
  Make({"two.txt"});
  EXPECT_TRUE(Command(ID_REMOTE_REFRESH));
  EXPECT_EQ(Rows(), (std::set<wxString>{"one.txt", "two.txt"}));
  // An empty directory cannot be enumerated: the rows stay as they were.
  fs::remove(Local("one.txt"));
  fs::remove(Local("two.txt"));
  EXPECT_EQ(Pane().FillDirectory(Remote(), m_connection.get(), true), 0);
  EXPECT_EQ(Rows(), (std::set<wxString>{"one.txt", "two.txt"}));
}

TEST_P(RemotePane, ChangeDirectoryHandsTheServerTheBackslashedPath) {
  Make({"own.txt", "incoming/inside.txt"});
  // A directory literally named as the path the command builds, so the
  // server can follow it.
  const std::string odd = m_dir.substr(1) + "\\incoming\\*";
  fs::create_directories(fs::path(m_root) / odd);
  WriteFile(fs::path(m_root) / odd / "odd.txt");
  ftpzn::testing::GiveToTestAccount((fs::path(m_root) / odd).string());
  ASSERT_TRUE(Show(Remote()));

  DialogScript::ExpectModal<CDlgInputString>(ftpzn::kResultOk, [](CDlgInputString* dialog) {
    EXPECT_EQ(dialog->m_strTitle, "Type new directory name");
    EXPECT_EQ(dialog->m_strInput, "To Directory");
    dialog->m_strInput = "incoming";
  });
  EXPECT_TRUE(Command(ID_REMOTE_CHANGE_DIRECTORY));
  // pure-ftpd refuses that path and stays where it was; the others go
  // there. Either way the rows are the directory the server is then in.
  if (GetParam() == FtpServerKind::PureFtpd) {
    EXPECT_EQ(ServerDirectory(), Remote().ToStdWstring());
    EXPECT_EQ(Rows(), (std::set<wxString>{"own.txt", "incoming"}));
  } else {
    EXPECT_EQ(ServerDirectory(), L"/" + wxString::FromUTF8(odd).ToStdWstring());
    EXPECT_EQ(Rows(), std::set<wxString>{"odd.txt"});
  }
  // The pane's own directory is not changed.
  EXPECT_EQ(m_window->m_strRemoteDir, Remote());

  // A path the server refuses lists whatever directory it is in.
  ASSERT_TRUE(m_connection->SetCurrentDirectory(L"/pub"));
  ExpectInput("Type new directory name", "incoming\\nothere");
  EXPECT_TRUE(Command(ID_REMOTE_CHANGE_DIRECTORY));
  EXPECT_EQ(Rows(), std::set<wxString>{"data"});
  EXPECT_EQ(m_window->m_strRemoteDir, Remote());

  // Cancel changes nothing.
  ExpectInput("Type new directory name", "incoming", ftpzn::kResultCancel);
  EXPECT_TRUE(Command(ID_REMOTE_CHANGE_DIRECTORY));
  EXPECT_EQ(Rows(), std::set<wxString>{"data"});
}

TEST_P(RemotePane, NewDirectory) {
  Make({"keep.txt"});
  ASSERT_TRUE(Show(Remote()));
  // The real dialog, typed into and confirmed with its OK button.
  ftpzn::test::ExpectedDialog typed;
  typed.description = "name input";
  typed.interact = [](wxDialog* shown) {
    auto* dialog = dynamic_cast<CDlgInputString*>(shown);
    ASSERT_NE(dialog, nullptr);
    EXPECT_EQ(dialog->GetTitle(), "Type directory name");
    EXPECT_EQ(dialog->InputCtrl()->GetValue(), "Please input here...");
    dialog->InputCtrl()->SetValue("fresh");
    wxCommandEvent ok(wxEVT_BUTTON, ftpzn::kResultOk);
    dialog->ProcessWindowEvent(ok);
  };
  DialogScript::Expect(std::move(typed));
  EXPECT_TRUE(Command(ID_REMOTE_NEW_DIRECTORY));
  EXPECT_TRUE(fs::is_directory(Local("fresh")));
  EXPECT_TRUE(Rows().count("fresh"));
  EXPECT_TRUE(Pane().IsItemFolder(RowOf("fresh")));

  // Doubled slashes collapse before the server sees the path.
  ExpectInput("Type directory name", "//deeper");
  EXPECT_TRUE(Command(ID_REMOTE_NEW_DIRECTORY));
  EXPECT_TRUE(fs::is_directory(Local("deeper")));

  // A name that exists is refused by the server.
  ExpectInput("Type directory name", "fresh");
  DialogScript::ExpectMessageBox();
  EXPECT_TRUE(Command(ID_REMOTE_NEW_DIRECTORY));
  EXPECT_EQ(NewMessages(),
            std::vector<wxString>{"Create directory error:" + Remote("fresh") + " error:12003"});

  ExpectInput("Type directory name", "never", ftpzn::kResultCancel);
  EXPECT_TRUE(Command(ID_REMOTE_NEW_DIRECTORY));
  EXPECT_FALSE(fs::exists(Local("never")));

  // A current directory the server cannot enter: the text with a trailing
  // blank, and no name is asked for.
  m_window->m_strRemoteDir = Remote("missing");
  DialogScript::ExpectMessageBox();
  EXPECT_TRUE(Command(ID_REMOTE_NEW_DIRECTORY));
  EXPECT_EQ(NewMessages(), std::vector<wxString>{"Set directory:" + Remote("missing") + " error:12003 "});
}

TEST_P(RemotePane, DeleteCommandsActOnTheirKindOfRow) {
  Make({"keep.txt", "f1.txt", "f2.txt", "f3.txt", "emptyA/", "emptyB/", "emptyC/", "full/inside.txt"});
  ASSERT_TRUE(Show(Remote()));

  Select({"f1.txt", "emptyA"});
  EXPECT_TRUE(Command(ID_REMOTE_DELETE_FILE));
  EXPECT_FALSE(fs::exists(Local("f1.txt")));
  EXPECT_TRUE(fs::exists(Local("emptyA")));
  EXPECT_FALSE(Rows().count("f1.txt"));

  Select({"f2.txt", "emptyA"});
  EXPECT_TRUE(Command(ID_REMOTE_DELETE_DIRECTORY));
  EXPECT_TRUE(fs::exists(Local("f2.txt")));
  EXPECT_FALSE(fs::exists(Local("emptyA")));

  // Delete takes both kinds; a folder with content is refused by the server
  // with its own code, reported with the name alone, and the loop goes on.
  Select({"emptyB", "f2.txt", "full"});
  DialogScript::ExpectMessageBox();
  EXPECT_TRUE(Command(ID_REMOTE_DELETE));
  EXPECT_EQ(NewMessages(), std::vector<wxString>{"Remove directory:full error:12003"});
  EXPECT_FALSE(fs::exists(Local("emptyB")));
  EXPECT_FALSE(fs::exists(Local("f2.txt")));
  EXPECT_TRUE(fs::exists(Local("full/inside.txt")));
  EXPECT_EQ(Rows(), (std::set<wxString>{"keep.txt", "f3.txt", "emptyC", "full"}));

  // A file that went away: its message joins the directory and the name
  // with a backslash.
  fs::remove(Local("f3.txt"));
  Select({"f3.txt"});
  DialogScript::ExpectMessageBox();
  EXPECT_TRUE(Command(ID_REMOTE_DELETE));
  EXPECT_EQ(NewMessages(), std::vector<wxString>{"Delete file:" + Remote() + "\\f3.txt error:12003"});

  // Delete Recursive: the server's refusal is not the local "not empty"
  // code, so the folder is reported and not walked; files and empty
  // folders go as with Delete.
  Select({"full", "emptyC"});
  DialogScript::ExpectMessageBox();
  EXPECT_TRUE(Command(ID_REMOTE_DELETE_RECURSIVE));
  EXPECT_EQ(NewMessages(), std::vector<wxString>{"Remove directory:full error:12003"});
  EXPECT_TRUE(fs::exists(Local("full/inside.txt")));
  EXPECT_FALSE(fs::exists(Local("emptyC")));
  EXPECT_EQ(Rows(), (std::set<wxString>{"keep.txt", "full"}));
}

TEST_P(RemotePane, DeleteCommandsWithoutTheDirectoryEachSayItTheirWay) {
  Make({"keep.txt"});
  ASSERT_TRUE(Show(Remote()));
  Select({"keep.txt"});
  m_window->m_strRemoteDir = Remote("missing");
  const wxString prefix = "Set directory:" + Remote("missing") + " error:12003";
  for (int command :
       {ID_REMOTE_DELETE, ID_REMOTE_DELETE_FILE, ID_REMOTE_DELETE_DIRECTORY, ID_REMOTE_DELETE_RECURSIVE}) {
    DialogScript::ExpectMessageBox();
    EXPECT_TRUE(Command(command));
  }
  EXPECT_EQ(NewMessages(), (std::vector<wxString>{prefix, prefix + "%", prefix + "%", prefix + "%"}));
  EXPECT_TRUE(fs::exists(Local("keep.txt")));
}

TEST_P(RemotePane, DeleteRemoteTree) {
  // One entry per level, whatever order a server lists in: the file is
  // always the enumeration's last entry.
  Make({"tree/sub/deep/f.txt", "two/a.txt", "two/b.txt"});
  ASSERT_TRUE(Show(Remote()));
  ASSERT_EQ(Pane().DeleteRemoteTree(Remote("tree")), 1);
  EXPECT_FALSE(fs::exists(Local("tree")));
  EXPECT_EQ(ServerDirectory(), Remote().ToStdWstring());
  // The engine holds the connection while an enumeration has entries left,
  // so the first of two files cannot go: 0, and nothing said.
  EXPECT_EQ(Pane().DeleteRemoteTree(Remote("two")), 0);
  EXPECT_TRUE(fs::exists(Local("two")));
  EXPECT_EQ(Pane().DeleteRemoteTree(Remote("nowhere")), 0);
}

TEST_P(RemotePane, SaveListWritesTheParentsNamesAndMovesThePaneThere) {
  Make({"abc", "long5", "sub/inner.txt"});
  ASSERT_TRUE(Show(Remote("sub")));
  const std::string out = ftpzn::test::MakeTempDir("ftpzn-savelist-");
  ChooseFile(out + "/list", [](wxFileDialog* dialog) {
    EXPECT_EQ(dialog->GetWildcard(), "Text file (*.doc)|*.doc|ASCII file(*.txt)|*.txt|All Files(*.*)|*.*");
    EXPECT_TRUE(dialog->HasFlag(wxFD_SAVE));
    EXPECT_TRUE(dialog->HasFlag(wxFD_OVERWRITE_PROMPT));
  });
  EXPECT_TRUE(Command(ID_REMOTE_SAVE_LIST));
  std::ifstream written(out + "/list.doc", std::ios::binary);
  ASSERT_TRUE(written) << "list.doc was not written";
  const std::string bytes(std::istreambuf_iterator<char>(written), {});
  // n + 1 bytes of each name's UTF-16 text, in the order the server lists.
  const std::map<std::wstring, std::string> perName = {
      {L"abc", "a\0b\0"s}, {L"long5", "l\0o\0n\0"s}, {L"sub", "s\0u\0"s}};
  std::string expected;
  for (const std::wstring& name : ServerOrder(Remote())) expected += perName.at(name);
  EXPECT_EQ(expected.size(), 14u);
  EXPECT_EQ(bytes, expected);
  EXPECT_EQ(m_window->m_strRemoteDir, Remote());
  // The path box shows it after the next refresh.
  EXPECT_EQ(PathBox(), Remote("sub"));
  EXPECT_TRUE(Command(ID_REMOTE_REFRESH));
  EXPECT_EQ(PathBox(), Remote());

  // A name with ".txt" anywhere is kept as it is, and an old file is cut.
  ASSERT_TRUE(Show(Remote("sub")));
  WriteFile(out + "/a.txt.bak", std::string(100, 'z'));
  ChooseFile(out + "/a.txt.bak");
  EXPECT_TRUE(Command(ID_REMOTE_SAVE_LIST));
  std::ifstream again(out + "/a.txt.bak", std::ios::binary);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(again), {}), bytes);
  EXPECT_FALSE(fs::exists(out + "/a.txt.bak.doc"));

  DialogScript::ExpectModal<wxFileDialog>(wxID_CANCEL);
  EXPECT_TRUE(Command(ID_REMOTE_SAVE_LIST));
}

TEST_P(RemotePane, DropsTransferNothing) {
  Make({"keep.txt"});
  ASSERT_TRUE(Show(Remote()));
  const std::string local = ftpzn::test::MakeTempDir("ftpzn-drop-");
  fs::create_directories(local + "/folder/sub");
  WriteFile(local + "/folder/sub/one.txt");
  WriteFile(local + "/loose.txt");
  auto* target = dynamic_cast<wxFileDropTarget*>(Pane().GetDropTarget());
  ASSERT_NE(target, nullptr);
  wxArrayString dropped;
  dropped.Add(wxString::FromUTF8(local + "/folder"));
  dropped.Add(wxString::FromUTF8(local + "/loose.txt"));
  target->OnDropFiles(5, 5, dropped);
  target->OnDropFiles(5, 5, wxArrayString());
  size_t onServer = 0;
  for (const auto& entry : fs::recursive_directory_iterator(Local())) {
    EXPECT_EQ(entry.path().filename(), "keep.txt");
    ++onServer;
  }
  EXPECT_EQ(onServer, 1u);
  EXPECT_EQ(Rows(), std::set<wxString>{"keep.txt"});
  EXPECT_EQ(PathBox(), Remote());
}

TEST_P(RemotePane, AFewHundredEntries) {
  ASSERT_TRUE(Show("/many"));
  ASSERT_EQ(Pane().GetItemCount(), 302);
  const int row = RowOf("report-123.txt");
  EXPECT_EQ(Pane().GetItemText(row, 1), "13 KB");
  EXPECT_EQ(Pane().FindItemByName("REPORT-123.TXT"), row);
  EXPECT_EQ(Pane().FindItemByName("report-999.txt"), -1);
  EXPECT_EQ(Pane().GetItemText(RowOf("archive"), 2), "Folder");
  if (GetParam() == FtpServerKind::Vsftpd) {
    m_window->SetSize(wxSize(1100, 720));
    Pane().SetColumnWidth(0, 160);
    Pane().SetColumnWidth(3, 140);
    const std::string shot = ftpzn::test::SaveScreenshot("remote-pane-many");
    EXPECT_FALSE(shot.empty());
  }
}

INSTANTIATE_TEST_SUITE_P(Servers, RemotePane,
                         ::testing::Values(FtpServerKind::Vsftpd, FtpServerKind::PureFtpd,
                                           FtpServerKind::Proftpd),
                         KindName);

// Without a connection the pane asks for one where the user double-clicks,
// says nothing elsewhere, and Save List leaves an empty file.
TEST(RemotePaneUnconnected, AsksForAConnectionAndSavesAnEmptyList) {
  auto* window = new CDlgFTPMainWnd;
  ASSERT_TRUE(window->Create());
  CFtpListzn1Remote& pane = window->m_ctrlRemote;
  window->m_strRemoteDir = "/pub";
  EXPECT_EQ(pane.FindItemByName("..Up"), -1);
  EXPECT_EQ(pane.FillDirectory("/pub", nullptr, true), 0);
  pane.InsertParentItem();
  pane.InsertNamedFolder(1, "data");
  EXPECT_EQ(pane.FindItemByName("DATA"), 1);
  DialogScript::ExpectMessageBox();
  EXPECT_EQ(pane.OpenItem(1), 0);
  EXPECT_EQ(DialogScript::MessageBoxTexts(), std::vector<wxString>{"Please connect FTP site first!"});
  EXPECT_EQ(pane.GoUpDirectory(), 0);
  EXPECT_EQ(pane.DeleteRemoteTree("/pub"), 0);
  for (int command :
       {ID_REMOTE_REFRESH, ID_REMOTE_UP_DIRECTORY, ID_REMOTE_CHANGE_DIRECTORY, ID_REMOTE_NEW_DIRECTORY,
        ID_REMOTE_DELETE, ID_REMOTE_DELETE_FILE, ID_REMOTE_DELETE_DIRECTORY, ID_REMOTE_DELETE_RECURSIVE}) {
    wxCommandEvent event(wxEVT_MENU, command);
    EXPECT_TRUE(pane.ProcessWindowEventLocally(event)) << command;
  }
  EXPECT_EQ(pane.GetItemCount(), 2);
  // The local pane's ids are not the remote pane's.
  for (int command : {9100, 9101, 9112, 9114}) {
    wxCommandEvent event(wxEVT_MENU, command);
    EXPECT_FALSE(pane.ProcessWindowEventLocally(event)) << command;
  }
  const std::string out = ftpzn::test::MakeTempDir("ftpzn-savelist-");
  ChooseFile(out + "/empty.txt");
  wxCommandEvent save(wxEVT_MENU, ID_REMOTE_SAVE_LIST);
  EXPECT_TRUE(pane.ProcessWindowEventLocally(save));
  ASSERT_TRUE(fs::exists(out + "/empty.txt"));
  EXPECT_EQ(fs::file_size(out + "/empty.txt"), 0u);
  DialogScript::VerifyAndClear();
  window->Destroy();
  ftpzn::test::PumpFor(10);
}

TEST(RemotePaneUnconnected, ContextMenuIsTheRemotePopup) {
  auto* window = new CDlgFTPMainWnd;
  ASSERT_TRUE(window->Create());
  window->Show();
  ftpzn::test::PumpFor(50);
  CFtpListzn1Remote& pane = window->m_ctrlRemote;
  std::vector<std::pair<int, wxString>> items;
  pane.Bind(wxEVT_MENU_OPEN, [&items](wxMenuEvent& event) {
    if (wxMenu* menu = event.GetMenu()) {
      for (const wxMenuItem* item : menu->GetMenuItems())
        items.emplace_back(item->GetId(), item->GetItemLabelText());
    }
    wxTheApp->CallAfter([] { wxUIActionSimulator().Char(WXK_ESCAPE); });
  });
  const wxPoint at = pane.ClientToScreen(wxPoint(40, 60));
  wxUIActionSimulator().MouseMove(at);
  ftpzn::test::PumpFor(20);
  wxContextMenuEvent event(wxEVT_CONTEXT_MENU, pane.GetId(), at);
  event.SetEventObject(&pane);
  pane.ProcessWindowEvent(event);
  const std::vector<std::pair<int, wxString>> remote = {
      {9107, "Refresh"},          {9108, "Up Directory"},     {9109, "Change Directory"},
      {9110, "New Directory"},    {9127, "Delete"},           {9126, "Delete File"},
      {9111, "Delete Directory"}, {9128, "Delete Recursive"}, {9113, "Save List..."}};
  EXPECT_EQ(items, remote);
  window->Destroy();
  ftpzn::test::PumpFor(10);
}

}  // namespace
