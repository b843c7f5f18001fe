// The tree walks and their expansions without a window: remote trees on
// vsftpd, a scripted server whose listing holds names no file may have,
// and local trees with links.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "connection/treewalk.h"
#include "fake_server.h"
#include "ftp_servers.h"
#include "inet/inet.h"
#include "transfer_support.h"

namespace {

namespace fs = std::filesystem;
namespace fake = ftpzn::inet::fake;
using ftpzn::TreeEntry;
using ftpzn::testing::FtpServerKind;
using ftpzn::testing::FtpTestServer;

class RecordingObserver : public ftpzn::TreeWalkObserver {
 public:
  void Message(const wxString& text) override { messages.push_back(text); }
  void Trace(const wxString& text) override { traces.push_back(text); }
  bool Continue(const wxString& directory, size_t) override {
    directories.push_back(directory);
    return directories.size() <= stopAfter;
  }
  std::vector<wxString> messages, traces, directories;
  size_t stopAfter = 1000;
};

class RemoteWalk : public ::testing::Test {
 protected:
  void SetUp() override {
    ftpzn::testing::SharedFtpServer& shared = ftpzn::test::TransferServer(FtpServerKind::Vsftpd);
    ASSERT_TRUE(shared.server) << shared.error;
    m_root = shared.root;
    m_connection = m_session.GetFtpConnection(L"127.0.0.1", wxString(FtpTestServer::kUser).ToStdWstring(),
                                              wxString(FtpTestServer::kPassword).ToStdWstring(),
                                              shared.server->Port(), true);
  }
  std::wstring ServerDirectory() {
    std::wstring dir;
    EXPECT_TRUE(m_connection->GetCurrentDirectory(dir));
    return dir;
  }

  std::string m_root;
  ftpzn::inet::CInternetSession m_session;
  std::unique_ptr<ftpzn::inet::CFtpConnection> m_connection;
  RecordingObserver m_observer;
};

TEST_F(RemoteWalk, EntriesInOrderWithSizesWrappedAtFourGiB) {
  std::vector<TreeEntry> entries;
  EXPECT_EQ(ftpzn::RemoteTreeWalk(m_connection.get(), "/tree", entries, m_observer), 1);
  const std::vector<TreeEntry> expected = {{"/tree", "/", 0},     {"/tree/", "big.bin", 705032704},
                                           {"/tree/x", "/", 0},   {"/tree/x/", "b.bin", 4},
                                           {"/tree/x/y", "/", 0}, {"/tree/x/y/", "c.txt", 2}};
  EXPECT_EQ(entries, expected);
  EXPECT_TRUE(m_observer.messages.empty());
  EXPECT_EQ(ServerDirectory(), L"/");  // set back at the end
}

TEST_F(RemoteWalk, AnEmptyFolderStopsTheWalkWhatCameBeforeIsQueued) {
  const std::string local = ftpzn::testing::MakeScratchDir("ftpzn-holes-");
  ftpzn::TransferQueue queue;
  ftpzn::TransferSite site{"127.0.0.1", "u", "p"};
  site.port = ftpzn::testing::ClosedPort();
  EXPECT_TRUE(ftpzn::DownloadRemoteDirectory(m_connection.get(), queue, site, "/holes",
                                             wxString::FromUTF8(local) + "/holes", m_observer));
  EXPECT_EQ(m_observer.messages, std::vector<wxString>{"find:/holes/zz/* error:18"});
  ASSERT_EQ(queue.GetRowCount(), 1u);
  EXPECT_EQ(queue.GetRow(0).worker->m_strFileName, "a.txt");
  EXPECT_EQ(queue.GetRow(0).worker->m_strRemoteDir.str(), "/holes/");
  EXPECT_EQ(queue.GetRow(0).worker->m_strLocalDir.str(), wxString::FromUTF8(local) + "/holes/");
  EXPECT_EQ(queue.m_bHold, 0);
  // Both directories were made, the empty one too.
  EXPECT_TRUE(fs::is_directory(local + "/holes/zz"));
  ftpzn::testing::RemoveTree(local);
}

TEST_F(RemoteWalk, ADirectoryCutToDotDotIsPassedOver) {
  const std::string local = ftpzn::testing::MakeScratchDir("ftpzn-escape-");
  fs::create_directories(local + "/in");
  ftpzn::TransferQueue queue;
  queue.m_bHold = 1;
  ftpzn::TransferSite site{"127.0.0.1", "u", "p"};
  site.port = ftpzn::testing::ClosedPort();
  EXPECT_TRUE(ftpzn::DownloadRemoteDirectory(m_connection.get(), queue, site, "/q",
                                             wxString::FromUTF8(local) + "/in", m_observer));
  // stay.txt is queued; q.. (cut to "..") and the file in it are not.
  ASSERT_EQ(queue.GetRowCount(), 1u);
  EXPECT_EQ(queue.GetRow(0).worker->m_strFileName, "stay.txt");
  EXPECT_EQ(m_observer.traces.size(), 2u);
  EXPECT_EQ(std::distance(fs::directory_iterator(local), fs::directory_iterator()), 1);
  ftpzn::testing::RemoveTree(local);
}

TEST_F(RemoteWalk, CancelStopsAndSetsTheDirectoryBack) {
  m_observer.stopAfter = 1;
  std::vector<TreeEntry> entries;
  bool cancelled = false;
  EXPECT_EQ(ftpzn::RemoteTreeWalk(m_connection.get(), "/tree", entries, m_observer, &cancelled), 0);
  EXPECT_TRUE(cancelled);
  EXPECT_EQ(entries.size(), 2u);  // /tree and big.bin: cancelled before /tree/x
  EXPECT_EQ(ServerDirectory(), L"/");
  // Cancelled, an expansion makes and queues nothing.
  m_observer.directories.clear();
  m_observer.stopAfter = 1;
  ftpzn::TransferQueue queue;
  EXPECT_FALSE(ftpzn::DownloadRemoteDirectory(m_connection.get(), queue, {}, "/tree", "/nonexistent/never",
                                              m_observer));
  EXPECT_EQ(queue.GetRowCount(), 0u);
  EXPECT_FALSE(fs::exists("/nonexistent"));
}

TEST(HostileListing, NamesThatAreNoFileNamesAreSkippedWithATraceLine) {
  const std::string listing =
      "-rw-r--r-- 1 u g 3 Jan 10  2020 ../x\r\n"
      "-rw-r--r-- 1 u g 3 Jan 10  2020 a/b\r\n"
      "drwxr-xr-x 2 u g 0 Jan 10  2020 .\r\n"
      "-rw-r--r-- 1 u g 3 Jan 10  2020 ok.txt\r\n"
      "-rw-r--r-- 1 u g 3 Jan 10  2020 esc\x1b[2J\x07"
      "bell.txt\r\n";
  fake::FakeServer server(fake::Plus(
      fake::Login(),
      {fake::On("PWD", "257 \"/\"\r\n"), fake::On("CWD /h", "250 ok\r\n"), fake::On("TYPE A", "200 ok\r\n"),
       fake::Epsv(), fake::Transfer("LIST", listing), fake::On("CWD /", "250 ok\r\n")}));
  ftpzn::inet::CInternetSession session;
  auto connection = session.GetFtpConnection(L"127.0.0.1", L"u", L"p", server.Port(), true);
  const std::string local = ftpzn::testing::MakeScratchDir("ftpzn-hostile-");
  RecordingObserver observer;
  ftpzn::TransferQueue queue;
  ftpzn::TransferSite site{"127.0.0.1", "u", "p"};
  site.port = ftpzn::testing::ClosedPort();
  EXPECT_TRUE(ftpzn::DownloadRemoteDirectory(connection.get(), queue, site, "/h",
                                             wxString::FromUTF8(local) + "/h", observer));
  // "." never reaches the walk: the engine drops it from every listing.
  ASSERT_EQ(observer.traces.size(), 2u);
  EXPECT_TRUE(observer.traces[0].Contains("\"../x\""));
  EXPECT_TRUE(observer.traces[1].Contains("\"a/b\""));
  // Control characters make a strange file name, but a file name all the same.
  ASSERT_EQ(queue.GetRowCount(), 2u);
  EXPECT_EQ(queue.GetRow(0).worker->m_strFileName, "ok.txt");
  EXPECT_EQ(queue.GetRow(1).worker->m_strFileName,
            "esc\x1b[2J\x07"
            "bell.txt");
  std::vector<std::string> made;
  for (const auto& entry : fs::recursive_directory_iterator(local)) made.push_back(entry.path().string());
  EXPECT_EQ(made, std::vector<std::string>{local + "/h"});
  EXPECT_EQ(server.Problem(), "");
  ftpzn::testing::RemoveTree(local);
}

// A link on the server is never entered, so a link to its own folder
// cannot make the walk endless: it is an entry of its folder like a file (a
// change into it would be a command the script does not expect).
TEST(HostileListing, ALinkLoopIsNotFollowed) {
  const std::string listing =
      "lrwxrwxrwx 1 u g 1 Jan 10  2020 self -> .\r\n"
      "-rw-r--r-- 1 u g 3 Jan 10  2020 f.txt\r\n";
  fake::FakeServer server(fake::Plus(
      fake::Login(),
      {fake::On("PWD", "257 \"/\"\r\n"), fake::On("CWD /l", "250 ok\r\n"), fake::On("TYPE A", "200 ok\r\n"),
       fake::Epsv(), fake::Transfer("LIST", listing), fake::On("CWD /", "250 ok\r\n")}));
  ftpzn::inet::CInternetSession session;
  auto connection = session.GetFtpConnection(L"127.0.0.1", L"u", L"p", server.Port(), true);
  RecordingObserver observer;
  std::vector<TreeEntry> entries;
  EXPECT_EQ(ftpzn::RemoteTreeWalk(connection.get(), "/l", entries, observer), 1);
  const std::vector<TreeEntry> expected = {{"/l", "/", 0}, {"/l/", "self", 1}, {"/l/", "f.txt", 3}};
  EXPECT_EQ(entries, expected);
  EXPECT_EQ(observer.directories, std::vector<wxString>{"/l"});
  EXPECT_EQ(server.Problem(), "");
}

TEST(LocalWalk, SortedDepthFirstAndLinksToFoldersNotFollowed) {
  const std::string root = ftpzn::testing::MakeScratchDir("ftpzn-lwalk-");
  fs::create_directories(root + "/sub/deeper");
  ftpzn::test::WriteBytes(root + "/b.txt", "bb");
  ftpzn::test::WriteBytes(root + "/sub/c.txt", "c");
  ftpzn::test::WriteBytes(root + "/sub/deeper/d.txt", "dddd");
  fs::create_directory_symlink("..", root + "/sub/loop");  // a cycle
  fs::create_symlink(root + "/b.txt", root + "/a-link.txt");
  const wxString r = wxString::FromUTF8(root);
  RecordingObserver observer;
  std::vector<TreeEntry> entries;
  ftpzn::LocalTreeWalk(r + "/", entries, observer);
  const std::vector<TreeEntry> expected = {{r, "/", 0},
                                           {r + "/", "a-link.txt", 2},
                                           {r + "/", "b.txt", 2},
                                           {r + "/sub", "/", 0},
                                           {r + "/sub/", "c.txt", 1},
                                           {r + "/sub/deeper", "/", 0},
                                           {r + "/sub/deeper/", "d.txt", 4}};
  EXPECT_EQ(entries, expected);
  ASSERT_EQ(observer.traces.size(), 1u);
  EXPECT_TRUE(observer.traces[0].Contains("/sub/loop"));
  ftpzn::testing::RemoveTree(root);
}

TEST(TreeExpansion, TrimsByTheSetOfTheStartsCharacters) {
  struct Case {
    const char* text;
    const char* set;
    const char* trimmed;
  } cases[] = {{"/pub/x", "/pub", "x"},
               {"/pub/pubs", "/pub", "s"},  // the first letters that occur in the start go too
               {"/pub/", "/pub", ""},
               {"/q/q..", "/q", ".."}};
  for (const Case& c : cases) EXPECT_EQ(ftpzn::TrimLeadingCharsOf(c.text, c.set), c.trimmed) << c.text;
}

}  // namespace
