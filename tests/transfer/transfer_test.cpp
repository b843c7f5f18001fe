// The workers, the queue and the tree walks without a window: transfers
// against vsftpd, pure-ftpd and proftpd on loopback with their lines,
// attempts, cancels and refusals; scripted servers for transfers that last,
// break or hear no goodbye, and for a listing no real server sends; the
// scheduler's rule; local trees with links.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <thread>
#include <tuple>

#include "connection/treewalk.h"
#include "fake_server.h"
#include "inet/inet.h"
#include "transfer/transferqueue.h"
#include "transfer_support.h"

namespace {

namespace fs = std::filesystem;
namespace fake = ftpzn::inet::fake;
namespace t = ftpzn::testing;
using ftpzn::TreeEntry;
using ftpzn::inet::TlsMode;
using ftpzn::test::ReadBytes;
using Kind = t::FtpServerKind;
using Mode = t::FtpTlsMode;
using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// What a worker posted, in order, and what it left behind; read once it ended.
struct Outcome : ftpzn::TransferSink {
  void PostProgress(CThreadFtp& w, uint64_t bytes) override { lines.push_back(w.ProgressLine(bytes)); }
  void PostStatus(CThreadFtp&, const wxString& text) override { lines.push_back(text); }
  void PostEnd(CThreadFtp&, ftpzn::TransferMessage message) override { end = message; }
  std::vector<wxString> lines;
  std::optional<ftpzn::TransferMessage> end;
  wxString result;
  int failed = 0;
  double seconds = 0;  // until the owner's KillThread returned
};

// One file for a worker of the test account, and what befalls it: with a
// retry delay, three attempts; a cancel after that many milliseconds (-1:
// before it starts); with a certificate the user accepted, though the
// system does not trust it.
struct Task {
  bool upload;
  wxString name, dir;
  uint16_t port;
  int retryDelay = 0, cancelAfterMs = 0;
  TlsMode tls = TlsMode::None;
  uint32_t size = 400 * 1024;
  std::string certificate = {};
};

// Runs the task's worker to its end (bounded) and disposes of it.
Outcome Transfer(const Task& task, const std::string& local) {
  CThreadFtp* worker = task.upload ? static_cast<CThreadFtp*>(new CThreadFtpUpload) : new CThreadFtpDownload;
  worker->m_strHost = "127.0.0.1";
  worker->m_strUser = t::FtpTestServer::kUser;
  worker->m_strPassword = t::FtpTestServer::kPassword;
  worker->m_bPassive = 1;
  worker->m_dwTimeout = 10000;
  worker->m_strFileName = task.name;
  worker->m_strRemoteDir = task.dir;
  worker->m_strLocalDir = wxString::FromUTF8(task.upload ? local : local + "/");
  worker->m_nPort = task.port;
  worker->m_nAttempts = task.retryDelay ? 3 : 1;
  worker->m_nRetryDelay = task.retryDelay;
  worker->m_tlsMode = task.tls;
  worker->m_dwFileSize = task.size;
  worker->m_strAcceptedCertificate = wxString::FromUTF8(task.certificate);
  const auto out = std::make_shared<Outcome>();
  worker->m_pOwner = out;
  worker->CreateThread(ftpzn::WorkerThread::kCreateSuspended);
  if (task.cancelAfterMs < 0) worker->m_hEventKill.Set();
  const auto start = Clock::now();
  worker->ResumeThread();
  std::this_thread::sleep_for(std::chrono::milliseconds(std::max(task.cancelAfterMs, 0)));
  if (task.cancelAfterMs > 0) worker->m_hEventKill.Set();
  EXPECT_TRUE(worker->m_hEventDead.Wait(30000)) << "the worker never ended";
  out->result = worker->GetResult();
  out->failed = worker->m_bFailed;
  worker->KillThread();
  out->seconds = SecondsSince(start);
  return *out;
}

struct Scratch {
  std::string path = t::MakeScratchDir("ftpzn-local-");
  ~Scratch() { t::RemoveTree(path); }
};

uint16_t Port(Kind kind, t::FtpTlsOptions tls = {}) {
  t::SharedFtpServer& shared = ftpzn::test::TransferServer(kind, tls);
  EXPECT_TRUE(shared.server) << shared.error;
  return shared.server ? shared.server->Port() : t::ClosedPort();
}

class WorkerTest : public ::testing::TestWithParam<std::pair<Kind, Mode>> {};

// Each sample file down from /pub and up to /up, byte for byte, with one
// progress line per block read (the last, empty or short, one too), then
// "Finished".
TEST_P(WorkerTest, DownloadAndUploadByteExactWithTheirLines) {
  const auto [kind, mode] = GetParam();
  const uint16_t port = Port(kind, {mode});
  const std::string root = ftpzn::test::TransferServer(kind, {mode}).root;
  const auto tls = static_cast<TlsMode>(mode);
  Scratch local;
  for (const auto& [file, size] : ftpzn::test::kSampleFiles) {
    SCOPED_TRACE(file);
    const wxString name = wxString::FromUTF8(file);
    const Outcome down =
        Transfer({false, name, "/pub", port, 0, 0, tls, static_cast<uint32_t>(size)}, local.path);
    const Outcome up = Transfer({true, name, "/up", port, 0, 0, tls, 0}, local.path);
    const std::string original = ReadBytes(root + "/pub/" + file);
    EXPECT_TRUE(ReadBytes(local.path + "/" + file) == original &&
                ReadBytes(root + "/up/" + file) == original);
    const size_t blocks = size ? size / 4096 + 1 : 0;
    for (const auto& [o, verb, line, end] :
         {std::tuple{&down, "downloaded.", "Receiving: %s(%d/%d)", ftpzn::WM_FTP_DOWNLOAD_DONE},
          std::tuple{&up, "uploaded.", "Sending: %s(%d/%d)\n", ftpzn::WM_FTP_UPLOAD_DONE}}) {
      EXPECT_EQ(o->result, "\"" + name + "\" successfully " + verb);
      EXPECT_EQ(o->end, end);
      ASSERT_EQ(o->lines.size(), blocks + 1);
      EXPECT_EQ(o->lines.back(), "Finished");
      if (blocks) {
        EXPECT_EQ(o->lines[blocks - 1], wxString::Format(line, name, int(size), int(size)));
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Servers, WorkerTest,
    ::testing::Values(std::pair{Kind::Vsftpd, Mode::None}, std::pair{Kind::PureFtpd, Mode::None},
                      std::pair{Kind::Proftpd, Mode::None}, std::pair{Kind::Vsftpd, Mode::Explicit},
                      std::pair{Kind::Vsftpd, Mode::Implicit}, std::pair{Kind::PureFtpd, Mode::Explicit}));

// Workers that end, whole or not: what the user reads, attempts a pause
// apart, a cancel before the start, in a pause or in a transfer; a
// certificate the system does not trust, taken only when it is the one the
// browsing connection accepted (workers never ask); a server that never
// answers QUIT (neither the worker's end nor the pool's goodbye waits for
// it); and what reached the disk (never a name that would leave it).
TEST(WorkerEnds, ResultsAttemptsCancelsCertificatesAndGoodbyes) {
  const uint16_t vsftpd = Port(Kind::Vsftpd), nobody = t::ClosedPort();
  const uint16_t selfSigned = Port(Kind::Vsftpd, {Mode::Explicit, t::TestCertKind::SelfSigned});
  struct Accepting : ftpzn::inet::CInternetSession {
    bool OnUntrustedCertificate(const std::wstring&, uint16_t, const ftpzn::inet::TlsPeerInfo&) override {
      return true;
    }
  } browsing;
  const auto connection = browsing.GetFtpConnection(L"127.0.0.1", L"ftpzntest", L"ftpzn-Pa55", selfSigned,
                                                    true, TlsMode::Explicit);
  ASSERT_TRUE(connection && connection->GetTlsInfo());
  // Scripted servers for the rows on port 0, made as their row comes: each
  // waits 5 s at most for its client.
  const auto pub = [](const std::vector<fake::Step>& steps) {
    return fake::Plus(fake::Plus(fake::Login(), {fake::On("CWD /pub", "250 ok\r\n"),
                                                 fake::On("TYPE I", "200 ok\r\n"), fake::Epsv()}),
                      steps);
  };
  fake::Step trickle = fake::Transfer("RETR slow.bin", std::string(400 * 1024, 's'));
  trickle.dataPieceSize = 4096;
  trickle.dataPieceMs = 10;
  const std::map<wxString, std::vector<fake::Step>> scripts = {
      {"cut.bin",
       pub({fake::Transfer("RETR cut.bin", std::string(10000, 'p'), "426 Connection broken\r\n")})},
      {"slow.bin", pub({trickle})},
      {"f.bin", pub({fake::Transfer("RETR f.bin", "data"), fake::Silence("QUIT")})}};
  Scratch scratch;
  const std::string& local = scratch.path;
  const wxString l = wxString::FromUTF8(local), refused = "The attempt to connect to the server failed.",
                 untrusted = "The server's certificate is not signed by a trusted authority.";
  const auto tls = [&](const std::string& certificate) {
    return Task{false, "block.bin", "/pub", selfSigned, 0, 0, TlsMode::Explicit, 0, certificate};
  };
  // The task; its result (a prefix when it ends in '*'); whether it failed
  // (-1: either); whether it posts its end; the seconds it lasts at least.
  const std::tuple<Task, wxString, int, bool, double> cases[] = {
      {{false, "block.bin", "/nowhere", vsftpd}, "550*", 1, true, 0},
      {{false, "missing.bin", "/pub", vsftpd}, "Internet Exception Error 12003550*", 1, true, 0},
      {{false, "../escape.txt", "/pub", vsftpd}, "Unable to create file " + l + "/../escape.txt", 1, true, 0},
      {{false, "..", "/pub", vsftpd}, "Unable to create file " + l + "/..", 1, true, 0},
      {{true, "absent.bin", "/up", vsftpd}, "Unable to open file " + l + "/absent.bin  ", 1, true, 0},
      {{false, "a.txt", "/", nobody, 1}, refused, 1, true, 2.0},
      {{false, "a.txt", "/", nobody, 30, -1}, "\\a.txt\\ download cancelled.", -1, true, 0},
      {{true, "a.txt", "/", nobody, 30, -1}, "\"a.txt\" upload cancelled.", -1, false, 0},
      {{false, "a.txt", "/", nobody, 30, 300}, refused, -1, true, 0},
      {{true, "a.txt", "/", nobody, 30, 300}, "Retrying after 30 seconds...", -1, true, 0},
      {tls(""), untrusted, 1, true, 0},
      {tls(std::string(64, 'A')), untrusted, 1, true, 0},
      {tls(connection->GetTlsInfo()->fingerprint), "\"block.bin\" successfully downloaded.", 0, true, 0},
      {{false, "cut.bin", "/pub", 0}, "Internet Exception Error 12003426 Connection broken", 1, true, 0},
      {{false, "slow.bin", "/pub", 0, 0, 300}, "\"slow.bin\" download cancelled.", 0, true, 0},
      {{false, "f.bin", "/pub", 0}, "\"f.bin\" successfully downloaded.", 0, true, 0},
  };
  for (auto [task, result, failed, ends, minSeconds] : cases) {
    std::optional<fake::FakeServer> server;
    if (!task.port) task.port = server.emplace(scripts.at(task.name)).Port();
    SCOPED_TRACE(task.name + " " + std::to_string(task.port));
    const Outcome out = Transfer(task, local);
    EXPECT_TRUE(result.EndsWith("*") ? out.result.StartsWith(result.BeforeLast('*')) : out.result == result)
        << out.result;
    EXPECT_EQ(out.result.find_first_of("\r\n"), wxString::npos);
    EXPECT_EQ(out.end.has_value(), ends);
    EXPECT_TRUE(out.seconds >= minSeconds && out.seconds < minSeconds + 3) << out.seconds;
    // A transfer that failed never ends with "Finished" (a break stops at
    // its last block); a whole or cancelled one does.
    EXPECT_TRUE(failed < 0 || out.failed == failed) << out.failed;
    EXPECT_TRUE(failed < 0 || (!out.lines.empty() && out.lines.back() == "Finished") == (failed == 0));
    const auto start = Clock::now();
    ftpzn::inet::EmptyConnectionPool();
    EXPECT_LT(SecondsSince(start), 0.5);
  }
  // The local file is made before the server is asked for the remote one;
  // what arrived before a break or a cancel stays; nothing else reached the
  // disk, inside the directory or beside it.
  std::set<std::string> made;
  for (const auto& entry : fs::directory_iterator(local)) made.insert(entry.path().filename().string());
  EXPECT_EQ(made, (std::set<std::string>{"block.bin", "cut.bin", "f.bin", "missing.bin", "slow.bin"}));
  EXPECT_FALSE(fs::exists(fs::path(local).parent_path() / "escape.txt"));
  EXPECT_EQ(fs::file_size(local + "/cut.bin"), 10000u);
  EXPECT_TRUE(fs::file_size(local + "/slow.bin") >= 4096u &&
              fs::file_size(local + "/slow.bin") < 400u * 1024);
  EXPECT_EQ(ReadBytes(local + "/f.bin"), "data");
}

TEST(LocalFile, OneWriterAtATime) {
  using ftpzn::LocalFile;
  Scratch scratch;
  const wxString path = wxString::FromUTF8(scratch.path) + "/one.bin";
  LocalFile first, second, reader;
  ASSERT_TRUE(first.Open(path, LocalFile::modeCreate | LocalFile::modeWrite));
  first.Write("abc", 3);
  ftpzn::CFileException error;
  // Another path to the same file is the same file.
  EXPECT_FALSE(second.Open(wxString::FromUTF8(scratch.path) + "/./one.bin",
                           LocalFile::modeCreate | LocalFile::modeWrite, &error));
  EXPECT_EQ(error.m_cause, ftpzn::CFileException::sharingViolation);
  EXPECT_FALSE(reader.Open(path, LocalFile::modeRead));
  first.Close();
  ASSERT_TRUE(reader.Open(path, LocalFile::modeRead));
  char buffer[8] = {};
  EXPECT_EQ(reader.Read(buffer, sizeof buffer), 3u);
  EXPECT_EQ(std::string(buffer, 3), "abc");
}

// The scheduler's rule, on workers that fail at once when started (nobody
// listens on their port and nobody reports their end).
TEST(Scheduler, HoldsStartsOneAndPassesOverFailedRows) {
  ftpzn::TransferArgs args{"127.0.0.1", "u", "p", "f", "/tmp/", "/"};
  args.port = t::ClosedPort();
  const auto started = [](const ftpzn::TransferQueue& queue) {
    std::vector<bool> started;
    for (size_t row = 0; row < queue.GetRowCount(); ++row)
      started.push_back(queue.GetRow(row).worker->HasStarted());
    return started;
  };
  // Held: the run does nothing at all. Then the limit is overwritten with
  // 1, and the first row that reads "Queued" after failed ones starts.
  // Each add runs it: a first row still "Queued" is counted again, which
  // stops the next runs.
  ftpzn::TransferQueue held, added;
  held.m_bHold = 1;
  held.m_nTransferMax = 10;
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(held.AddDownload(args) && added.AddDownload(args));
  for (size_t row : {0, 1}) held.OnStatus(held.GetRow(row).threadId, "Failed");
  held.RunScheduler();
  EXPECT_EQ(held.m_nTransferMax, 10);
  EXPECT_EQ(started(held), std::vector<bool>({false, false, false}));
  held.m_bHold = 0;
  held.RunScheduler();
  EXPECT_EQ(held.m_nTransferMax, 1);
  EXPECT_EQ(started(held), std::vector<bool>({false, false, true}));
  EXPECT_EQ(held.m_nActive, 1);
  EXPECT_EQ(started(added), std::vector<bool>({true, false, false}));
  EXPECT_EQ(added.m_nActive, 2);
  // Its end (its row goes) lowers the count once; with one still counted,
  // the next queued row starts all the same.
  added.m_bRemoveFailed = 1;
  ASSERT_TRUE(added.GetRow(0).worker->m_hEventDead.Wait(5000));
  added.OnDownloadDone(added.GetRow(0).threadId);
  EXPECT_EQ(started(added), std::vector<bool>({true, false}));
  EXPECT_EQ(added.m_nActive, 2);
}

TEST(TransferProgress, Texts) {
  for (const auto& [done, total, rate, text] : {
           std::tuple<uint64_t, uint64_t, double, const char*>{0, 0, -1, "0 B"},
           {4096, 10240, -1, "40%  4.00 KB"},
           {440401920, 1073741824, 451000000, "41%  420 MB  430 MB/s  0:02 left"},
           {0, 4000000000u, 100000, "0%  0 B  97.7 KB/s  11:06:40 left"},
           {5000, 4096, -1, "4.88 KB"},  // past a size that wrapped at 4 GiB
           {1024, 2048, 0, "50%  1.00 KB  0 B/s"},
       })
    EXPECT_EQ(ftpzn::FormatTransferProgress(done, total, rate), text);
}

// --- the tree walks ---

struct RecordingObserver : ftpzn::TreeWalkObserver {
  void Message(const wxString& text) override { messages.push_back(text); }
  void Trace(const wxString& text) override { traces.push_back(text); }
  bool Continue(const wxString&, size_t) override { return true; }
  std::vector<wxString> messages, traces;
};

// vsftpd's /w expanded into a queue whose downloads nobody serves: each
// folder made, each file queued in walk order (a folder's files, then its
// folders depth first) with its size wrapped at 4 GiB; a folder the trim
// cuts to ".." is passed over (the trim goes by the set of the start's
// characters, not by a prefix), and the empty one listed last stops the
// walk with what came before queued.
TEST(RemoteWalk, ExpansionQueuesTheTree) {
  ftpzn::inet::CInternetSession session;
  auto connection =
      session.GetFtpConnection(L"127.0.0.1", L"ftpzntest", L"ftpzn-Pa55", Port(Kind::Vsftpd), true);
  ASSERT_TRUE(connection);
  Scratch scratch;
  const wxString local = wxString::FromUTF8(scratch.path) + "/in";
  ftpzn::TransferQueue queue;
  const ftpzn::TransferSite nowhere{"127.0.0.1", "u", "p", 1, 10, t::ClosedPort()};  // serves no download
  RecordingObserver observer;
  EXPECT_TRUE(ftpzn::DownloadRemoteDirectory(connection.get(), queue, nowhere, "/w", local, observer));
  wxString rows;
  for (size_t i = 0; i < queue.GetRowCount(); ++i) {
    const CThreadFtp& w = *queue.GetRow(i).worker;
    rows << w.m_strRemoteDir.str() << w.m_strFileName << " " << w.m_dwFileSize << " " << w.m_strLocalDir.str()
         << "\n";
  }
  EXPECT_EQ(rows, "/w/big.bin 705032704 " + local + "/\n/w/x/b.bin 4 " + local + "/x/\n/w/x/y/c.txt 2 " +
                      local + "/x/y/\n");
  EXPECT_EQ(observer.messages, std::vector<wxString>{"find:/w/zz/* error:18"});
  EXPECT_EQ(observer.traces.size(), 2u);  // w.. and the file in it
  EXPECT_EQ(queue.m_bHold, 0);
  std::set<wxString> made;
  for (const auto& entry : fs::recursive_directory_iterator(scratch.path))
    made.insert(wxString::FromUTF8(entry.path().string()));
  EXPECT_EQ(made, (std::set<wxString>{local, local + "/x", local + "/x/y", local + "/zz"}));
  EXPECT_EQ(ftpzn::TrimLeadingCharsOf("/pub/pubs", "/pub"), "s");
}

// Names that are no file names are skipped with a trace line; control
// characters make a strange file name, but a file name all the same; "."
// never reaches the walk. A link is never entered, so a link to its own
// folder cannot make the walk endless (a change into it would be a command
// the script does not expect).
TEST(HostileListing, OddNamesSkippedAndLinksNotFollowed) {
  fake::FakeServer server(fake::Plus(
      fake::Login(),
      {fake::On("PWD", "257 \"/\"\r\n"), fake::On("CWD /h", "250 ok\r\n"), fake::On("TYPE A", "200 ok\r\n"),
       fake::Epsv(),
       fake::Transfer(
           "LIST",
           "-rw-r--r-- 1 u g 3 Jan 10  2020 ../x\r\n-rw-r--r-- 1 u g 3 Jan 10  2020 a/b\r\n"
           "drwxr-xr-x 2 u g 0 Jan 10  2020 .\r\n-rw-r--r-- 1 u g 3 Jan 10  2020 ok.txt\r\n"
           "lrwxrwxrwx 1 u g 1 Jan 10  2020 self -> .\r\n-rw-r--r-- 1 u g 3 Jan 10  2020 e\x1b[2J\a.txt\r\n"),
       fake::On("CWD /", "250 ok\r\n")}));
  ftpzn::inet::CInternetSession session;
  auto connection = session.GetFtpConnection(L"127.0.0.1", L"u", L"p", server.Port(), true);
  RecordingObserver observer;
  std::vector<TreeEntry> entries;
  EXPECT_EQ(ftpzn::RemoteTreeWalk(connection.get(), "/h", entries, observer), 1);
  EXPECT_EQ(entries,
            (std::vector<TreeEntry>{TreeEntry{"/h", "/", 0}, TreeEntry{"/h/", "ok.txt", 3},
                                    TreeEntry{"/h/", "self", 1}, TreeEntry{"/h/", "e\x1b[2J\a.txt", 3}}));
  ASSERT_EQ(observer.traces.size(), 2u);
  EXPECT_TRUE(observer.traces[0].Contains("\"../x\"") && observer.traces[1].Contains("\"a/b\""));
  EXPECT_EQ(server.Problem(), "");
}

TEST(LocalWalk, SortedDepthFirstAndLinksToFoldersNotFollowed) {
  Scratch scratch;
  const std::string& root = scratch.path;
  for (const auto& [file, bytes] :
       {std::pair{"/b.txt", "bb"}, {"/sub/c.txt", "c"}, {"/sub/deeper/d.txt", "dddd"}})
    ftpzn::test::WriteBytes(root + file, bytes);
  fs::create_directory_symlink("..", root + "/sub/loop");  // a cycle
  fs::create_symlink(root + "/b.txt", root + "/a-link.txt");
  const wxString r = wxString::FromUTF8(root);
  RecordingObserver observer;
  std::vector<TreeEntry> entries;
  ftpzn::LocalTreeWalk(r + "/", entries, observer);
  EXPECT_EQ(entries,
            (std::vector<TreeEntry>{TreeEntry{r, "/", 0}, TreeEntry{r + "/", "a-link.txt", 2},
                                    TreeEntry{r + "/", "b.txt", 2}, TreeEntry{r + "/sub", "/", 0},
                                    TreeEntry{r + "/sub/", "c.txt", 1}, TreeEntry{r + "/sub/deeper", "/", 0},
                                    TreeEntry{r + "/sub/deeper/", "d.txt", 4}}));
  ASSERT_EQ(observer.traces.size(), 1u);
  EXPECT_TRUE(observer.traces[0].Contains("/sub/loop"));
}

}  // namespace
