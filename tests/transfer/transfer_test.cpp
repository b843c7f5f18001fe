// The workers, the queue and the tree walks without a window: transfers
// against vsftpd, pure-ftpd and proftpd on loopback with their lines,
// attempts, cancels and refusals; a scripted server for transfers that last,
// break or hear no goodbye, and for listings no real server sends; the
// scheduler's rule; local trees with links.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <set>
#include <thread>
#include <utility>

#include "connection/treewalk.h"
#include "fake_server.h"
#include "ftp_servers.h"
#include "inet/inet.h"
#include "transfer/transferqueue.h"
#include "transfer_support.h"

namespace {

namespace fs = std::filesystem;
namespace fake = ftpzn::inet::fake;
using ftpzn::TreeEntry;
using ftpzn::inet::TlsMode;
using ftpzn::test::ReadBytes;
using ftpzn::testing::FtpServerKind;
using ftpzn::testing::FtpTestServer;
using ftpzn::testing::FtpTlsMode;
using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

std::wstring ErrorText(int code) {
  std::wstring text;
  ftpzn::inet::CInternetException(code).GetErrorMessage(text);
  return text;
}

// What a worker left behind once it ended.
struct Outcome : ftpzn::test::Posted {
  wxString result;
  int failed = 0;
  double seconds = 0;
};

// Makes workers whose posts it records, and runs one to its end (bounded).
struct Runner {
  template <typename Worker>
  Worker* Make(const wxString& name, const wxString& remoteDir, const std::string& localDir, uint16_t port,
               TlsMode tls = TlsMode::None) {
    auto* worker = new Worker;
    worker->m_strHost = "127.0.0.1";
    worker->m_strUser = FtpTestServer::kUser;
    worker->m_strPassword = FtpTestServer::kPassword;
    worker->m_bPassive = 1;
    worker->m_dwTimeout = 10000;
    worker->m_strFileName = name;
    worker->m_strRemoteDir = remoteDir;
    worker->m_strLocalDir = wxString::FromUTF8(localDir);
    worker->m_nPort = port;
    worker->m_tlsMode = tls;
    worker->m_pOwner = sink = std::make_shared<ftpzn::test::RecordingSink>();
    worker->CreateThread(ftpzn::WorkerThread::kCreateSuspended);
    return worker;
  }
  // `during` runs on this thread once the worker has been resumed.
  Outcome Finish(CThreadFtp* worker, const std::function<void()>& during = {}) {
    const auto start = Clock::now();
    worker->ResumeThread();
    if (during) during();
    EXPECT_TRUE(worker->m_hEventDead.Wait(30000)) << "the worker never ended";
    Outcome out;
    static_cast<ftpzn::test::Posted&>(out) = sink->Get();
    out.result = worker->GetResult();
    out.failed = worker->m_bFailed;
    out.seconds = SecondsSince(start);
    worker->KillThread();
    return out;
  }
  std::shared_ptr<ftpzn::test::RecordingSink> sink;
};

// A scratch directory for one test.
struct Scratch {
  std::string path = ftpzn::testing::MakeScratchDir("ftpzn-local-");
  ~Scratch() { ftpzn::testing::RemoveTree(path); }
};

uint16_t VsftpdPort() {
  ftpzn::testing::SharedFtpServer& shared = ftpzn::test::TransferServer(FtpServerKind::Vsftpd);
  EXPECT_TRUE(shared.server) << shared.error;
  return shared.server ? shared.server->Port() : ftpzn::testing::ClosedPort();
}

struct ServerMode {
  FtpServerKind kind;
  FtpTlsMode tls = FtpTlsMode::None;
};

class WorkerTest : public ::testing::TestWithParam<ServerMode> {};

TEST_P(WorkerTest, DownloadAndUploadByteExactWithTheirLines) {
  const FtpTlsMode mode = GetParam().tls;
  ftpzn::testing::SharedFtpServer& shared =
      ftpzn::test::TransferServer(GetParam().kind, {mode, ftpzn::testing::TestCertKind::Trusted});
  ASSERT_TRUE(shared.server) << shared.error;
  Scratch local;
  for (const ftpzn::test::SampleFile& f : ftpzn::test::kSampleFiles) {
    SCOPED_TRACE(f.name);
    const wxString name = wxString::FromUTF8(f.name);
    const std::string original = ReadBytes(shared.root + "/pub/" + f.name);
    // One progress line per block read, the last (empty or short) one too.
    const size_t lines = f.size ? f.size / 4096 + 1 : 0;
    const int size = static_cast<int>(f.size);
    Runner runner;
    const auto tls = static_cast<TlsMode>(mode);
    auto* down = runner.Make<CThreadFtpDownload>(name, "/pub", local.path + "/", shared.server->Port(), tls);
    down->m_dwFileSize = static_cast<uint32_t>(f.size);
    const Outcome d = runner.Finish(down);
    const Outcome u = runner.Finish(runner.Make<CThreadFtpUpload>(name, "/up", local.path, shared.server->Port(), tls));
    EXPECT_EQ(d.result, "\"" + name + "\" successfully downloaded.");
    EXPECT_EQ(u.result, "\"" + name + "\" successfully uploaded.");
    EXPECT_EQ(d.failed, 0);
    EXPECT_EQ(d.end, ftpzn::WM_FTP_DOWNLOAD_DONE);
    EXPECT_EQ(u.end, ftpzn::WM_FTP_UPLOAD_DONE);
    EXPECT_TRUE(ReadBytes(local.path + "/" + f.name) == original);
    EXPECT_TRUE(ReadBytes(shared.root + "/up/" + f.name) == original);
    ASSERT_EQ(d.progress, lines);
    ASSERT_EQ(u.progress, lines);
    ASSERT_EQ(d.lines.size(), lines + 1);
    EXPECT_EQ(d.lines.back(), "Finished");
    EXPECT_EQ(u.lines.back(), "Finished");
    if (lines) {
      EXPECT_EQ(d.lines[lines - 1], wxString::Format("Receiving: %s(%d/%d)", name, size, size));
      EXPECT_EQ(u.lines[lines - 1], wxString::Format("Sending: %s(%d/%d)\n", name, size, size));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Servers, WorkerTest,
                         ::testing::Values(ServerMode{FtpServerKind::Vsftpd},
                                           ServerMode{FtpServerKind::PureFtpd},
                                           ServerMode{FtpServerKind::Proftpd},
                                           ServerMode{FtpServerKind::Vsftpd, FtpTlsMode::Explicit},
                                           ServerMode{FtpServerKind::Vsftpd, FtpTlsMode::Implicit},
                                           ServerMode{FtpServerKind::PureFtpd, FtpTlsMode::Explicit}));

// Workers never ask about a certificate: they take the one the browsing
// connection accepted, and no other that the system does not trust.
TEST(WorkerTls, UntrustedCertificateOnlyTheAcceptedOne) {
  ftpzn::testing::SharedFtpServer& shared = ftpzn::test::TransferServer(
      FtpServerKind::Vsftpd, {FtpTlsMode::Explicit, ftpzn::testing::TestCertKind::SelfSigned});
  ASSERT_TRUE(shared.server) << shared.error;
  struct Accepting : ftpzn::inet::CInternetSession {
    bool OnUntrustedCertificate(const std::wstring&, uint16_t, const ftpzn::inet::TlsPeerInfo&) override {
      return true;
    }
  } browsing;
  const std::string accepted = browsing
                                   .GetFtpConnection(L"127.0.0.1", L"ftpzntest", L"ftpzn-Pa55",
                                                     shared.server->Port(), true, TlsMode::Explicit)
                                   ->GetTlsInfo()
                                   ->fingerprint;
  Scratch local;
  for (const std::string& certificate : {std::string(), std::string(64, 'A'), accepted}) {
    SCOPED_TRACE(certificate);
    Runner runner;
    auto* worker = runner.Make<CThreadFtpDownload>("block.bin", "/pub", local.path + "/",
                                                   shared.server->Port(), TlsMode::Explicit);
    worker->m_strAcceptedCertificate = wxString::FromUTF8(certificate);
    const Outcome o = runner.Finish(worker);
    EXPECT_EQ(o.failed, certificate == accepted ? 0 : 1);
    EXPECT_EQ(o.result, certificate == accepted
                            ? "\"block.bin\" successfully downloaded."
                            : "The server's certificate is not signed by a trusted authority.");
  }
}

// Workers that end without their whole file: what the user reads, attempts
// a pause apart, a cancel before the start, in a pause or in a transfer,
// and what reached the disk (never a name that would leave the directory).
TEST(WorkerFailure, ResultsAttemptsAndCancels) {
  const uint16_t vsftpd = VsftpdPort();
  const fake::Step cut = fake::Transfer("RETR cut.bin", std::string(10000, 'p'), "426 Connection broken\r\n");
  fake::Step slow = fake::Transfer("RETR slow.bin", std::string(400 * 1024, 's'));
  slow.dataPieceSize = 4096;
  slow.dataPieceMs = 10;
  Scratch scratch;
  const std::string& local = scratch.path;
  const wxString l = wxString::FromUTF8(local);
  struct Case {
    bool upload;
    const char* name;
    const char* dir;
    const fake::Step* script;  // else vsftpd, or nobody when there is a retry delay
    int retryDelay;            // with one, three attempts
    int cancelAfterMs;         // -1: before it starts; 0: never
    wxString result;           // a prefix when it ends in '*'
    int failed;                // -1: either
    bool ends;
    double minSeconds;
  } cases[] = {
      {false, "block.bin", "/nowhere", nullptr, 0, 0, "550*", 1, true, 0},
      {false, "missing.bin", "/pub", nullptr, 0, 0, "Internet Exception Error 12003550*", 1, true, 0},
      {false, "../escape.txt", "/pub", nullptr, 0, 0, "Unable to create file " + l + "/../escape.txt", 1, true, 0},
      {false, "a/b", "/pub", nullptr, 0, 0, "Unable to create file " + l + "/a/b", 1, true, 0},
      {false, "..", "/pub", nullptr, 0, 0, "Unable to create file " + l + "/..", 1, true, 0},
      {true, "absent.bin", "/up", nullptr, 0, 0, "Unable to open file " + l + "/absent.bin  ", 1, true, 0},
      {false, "a.txt", "/", nullptr, 1, 0, ErrorText(12029), 1, true, 2.0},
      {false, "a.txt", "/", nullptr, 30, -1, "\\a.txt\\ download cancelled.", -1, true, 0},
      {true, "a.txt", "/", nullptr, 30, -1, "\"a.txt\" upload cancelled.", -1, false, 0},
      {false, "a.txt", "/", nullptr, 30, 300, ErrorText(12029), -1, true, 0},
      {true, "a.txt", "/", nullptr, 30, 300, "Retrying after 30 seconds...", -1, true, 0},
      {false, "cut.bin", "/pub", &cut, 0, 0, "Internet Exception Error 12003426 Connection broken", 1, true, 0},
      {false, "slow.bin", "/pub", &slow, 0, 300, "\"slow.bin\" download cancelled.", 0, true, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::unique_ptr<fake::FakeServer> server;
    if (c.script)
      server = std::make_unique<fake::FakeServer>(fake::Plus(
          fake::Login(), {fake::On("CWD /pub", "250 ok\r\n"), fake::On("TYPE I", "200 ok\r\n"), fake::Epsv(), *c.script}));
    const uint16_t port = server ? server->Port() : c.retryDelay ? ftpzn::testing::ClosedPort() : vsftpd;
    Runner runner;
    CThreadFtp* worker =
        c.upload ? static_cast<CThreadFtp*>(runner.Make<CThreadFtpUpload>(c.name, c.dir, local, port))
                 : runner.Make<CThreadFtpDownload>(c.name, c.dir, local + "/", port);
    worker->m_dwFileSize = 400 * 1024;
    if (c.retryDelay) worker->m_nAttempts = 3;
    worker->m_nRetryDelay = c.retryDelay;
    if (c.cancelAfterMs < 0) worker->m_hEventKill.Set();
    const Outcome out = runner.Finish(worker, [&] {
      if (c.cancelAfterMs <= 0) return;
      std::this_thread::sleep_for(std::chrono::milliseconds(c.cancelAfterMs));
      worker->m_hEventKill.Set();
    });
    if (c.result.EndsWith("*"))
      EXPECT_TRUE(out.result.StartsWith(c.result.BeforeLast('*'))) << out.result;
    else
      EXPECT_EQ(out.result, c.result);
    EXPECT_EQ(out.result.find_first_of("\r\n"), wxString::npos);
    EXPECT_TRUE(c.failed < 0 || out.failed == c.failed) << out.failed;
    EXPECT_EQ(out.end.has_value(), c.ends);
    EXPECT_GE(out.seconds, c.minSeconds);
    EXPECT_LT(out.seconds, c.minSeconds + 3);
    // A break ends at its last block, a cancel with "Finished".
    EXPECT_TRUE(!c.script || (!out.lines.empty() && out.lines.back() == "Finished") == (c.cancelAfterMs > 0));
  }
  // The local file is made before the server is asked for the remote one;
  // what arrived before a break or a cancel stays; nothing else reached the
  // disk, inside the directory or beside it.
  std::set<std::string> made;
  for (const auto& entry : fs::directory_iterator(local)) made.insert(entry.path().filename().string());
  EXPECT_EQ(made, (std::set<std::string>{"cut.bin", "missing.bin", "slow.bin"}));
  EXPECT_FALSE(fs::exists(fs::path(local).parent_path() / "escape.txt"));
  EXPECT_EQ(fs::file_size(local + "/cut.bin"), 10000u);
  EXPECT_GE(fs::file_size(local + "/slow.bin"), 4096u);
  EXPECT_LT(fs::file_size(local + "/slow.bin"), 400u * 1024);
}

// A server that never answers QUIT: the worker hands its connection to the
// pool before it reports its end, so the KillThread the manager calls on
// that end, on the user-interface thread, has no network left to wait for;
// and the pool's goodbye does not wait for the answer either.
TEST(WorkerEnd, GoodbyeBeforeTheEndMessage) {
  ftpzn::inet::EmptyConnectionPool();
  fake::FakeServer server(
      fake::Plus(fake::Login(), {fake::On("CWD /", "250 ok\r\n"), fake::On("TYPE I", "200 ok\r\n"),
                                 fake::Epsv(), fake::Transfer("RETR f.bin", "data"), fake::Silence("QUIT")}));
  Scratch local;
  Runner runner;
  auto* down = runner.Make<CThreadFtpDownload>("f.bin", "/", local.path + "/", server.Port());
  down->ResumeThread();
  EXPECT_TRUE(runner.sink->Wait(15000, [](const ftpzn::test::Posted& p) { return p.end.has_value(); }));
  auto start = Clock::now();
  down->KillThread();
  EXPECT_LT(SecondsSince(start), 0.5);
  EXPECT_EQ(ftpzn::inet::PooledConnectionCount(), 1u);
  start = Clock::now();
  ftpzn::inet::EmptyConnectionPool();
  EXPECT_LT(SecondsSince(start), 0.5);
  server.Finish();
  EXPECT_EQ(server.Problem(), "");
  EXPECT_EQ(ReadBytes(local.path + "/f.bin"), "data");
}

TEST(LocalFile, OneWriterAtATime) {
  Scratch scratch;
  const wxString path = wxString::FromUTF8(scratch.path) + "/one.bin";
  ftpzn::LocalFile first, second, reader;
  ASSERT_TRUE(first.Open(path, ftpzn::LocalFile::modeCreate | ftpzn::LocalFile::modeWrite));
  first.Write("abc", 3);
  ftpzn::CFileException error;
  // Another path to the same file is the same file.
  EXPECT_FALSE(second.Open(
      wxString::FromUTF8(scratch.path + "/../" + fs::path(scratch.path).filename().string() + "/one.bin"),
      ftpzn::LocalFile::modeCreate | ftpzn::LocalFile::modeWrite, &error));
  EXPECT_EQ(error.m_cause, ftpzn::CFileException::sharingViolation);
  EXPECT_FALSE(reader.Open(path, ftpzn::LocalFile::modeRead));
  first.Close();
  ASSERT_TRUE(reader.Open(path, ftpzn::LocalFile::modeRead));
  char buffer[8] = {};
  EXPECT_EQ(reader.Read(buffer, sizeof buffer), 3u);
  EXPECT_EQ(std::string(buffer, 3), "abc");
}

// The scheduler's rule, on workers that fail at once when started (nobody
// listens on their port).
class SchedulerTest : public ::testing::Test {
 protected:
  // Runs `pump` once at the next add's pump, as the window dispatches the
  // messages waiting then.
  struct Queue : ftpzn::TransferQueue {
    std::function<void()> pump;
    void PumpAfterDownloadAdded() override {
      if (auto once = std::exchange(pump, nullptr)) once();
    }
  };
  void Add(int count) {
    ftpzn::TransferArgs args{"127.0.0.1", "u", "p", "f", "/tmp/", "/"};
    args.port = ftpzn::testing::ClosedPort();
    for (int i = 0; i < count; ++i) ASSERT_TRUE(m_queue.AddDownload(args));
  }
  bool Started(size_t row) { return m_queue.GetRow(row).worker->HasStarted(); }
  Queue m_queue;
};

TEST_F(SchedulerTest, StartsOneCountsAQueuedOneAgainAndHolds) {
  m_queue.m_bHold = 1;
  m_queue.m_nTransferMax = 10;
  Add(3);
  EXPECT_FALSE(Started(0));
  EXPECT_EQ(m_queue.m_nTransferMax, 10);  // held: the run did nothing at all
  EXPECT_EQ(m_queue.GetCellText(0, ftpzn::TransferQueue::kColumnStatus), "Queued");
  m_queue.m_bHold = 0;
  m_queue.RunScheduler();
  EXPECT_EQ(m_queue.m_nTransferMax, 1);
  EXPECT_TRUE(Started(0));
  EXPECT_FALSE(Started(1));
  EXPECT_EQ(m_queue.m_nActive, 1);
  // Still "Queued": counted again, which stops the next runs.
  m_queue.RunScheduler();
  EXPECT_EQ(m_queue.m_nActive, 2);
  m_queue.RunScheduler();
  EXPECT_EQ(m_queue.m_nActive, 2);
  EXPECT_FALSE(Started(1));
  // A line lifts the first out of "Queued"; its end lowers the count once,
  // and with one still counted the next queued one starts all the same.
  const uint32_t first = m_queue.GetRow(0).threadId;
  m_queue.OnStatus(first, "Receiving: f(1/2)");
  m_queue.m_bRemoveFailed = 1;
  ASSERT_TRUE(m_queue.GetRow(0).worker->m_hEventDead.Wait(5000));
  m_queue.OnDownloadDone(first);
  EXPECT_EQ(m_queue.GetRowCount(), 2u);
  EXPECT_TRUE(Started(0));
  EXPECT_EQ(m_queue.m_nActive, 2);
}

// A failed download's end, waiting when the next download is added, lists
// it again from inside that add: both rows keep their workers reachable,
// and the new one is started rather than left "Queued".
TEST_F(SchedulerTest, FailedDownloadListedAgainInsideAnAdd) {
  Add(1);
  const uint32_t failed = m_queue.GetRow(0).threadId;
  ASSERT_TRUE(m_queue.GetRow(0).worker->m_hEventDead.Wait(5000));
  m_queue.pump = [&] { m_queue.OnDownloadDone(failed); };
  Add(1);
  ASSERT_EQ(m_queue.GetRowCount(), 2u);
  EXPECT_EQ(m_queue.GetCellText(1, ftpzn::TransferQueue::kColumnStatus), "Failed");
  for (size_t i = 0; i < 2; ++i)
    EXPECT_EQ(m_queue.FindWorker(m_queue.GetRow(i).threadId), m_queue.GetRow(i).worker);
  EXPECT_TRUE(Started(0));
}

TEST_F(SchedulerTest, QueuedRowsAfterFailedOnesStartInOrder) {
  m_queue.m_bHold = 1;
  Add(3);
  for (size_t row : {0, 1}) m_queue.OnStatus(m_queue.GetRow(row).threadId, "Failed");
  m_queue.m_bHold = 0;
  m_queue.RunScheduler();
  EXPECT_FALSE(Started(0));
  EXPECT_FALSE(Started(1));
  EXPECT_TRUE(Started(2));
}

TEST(TransferProgress, Texts) {
  struct Case {
    uint64_t done, total;
    double rate;
    const char* text;
  } cases[] = {
      {0, 0, -1, "0 B"},
      {4096, 10240, -1, "40%  4.00 KB"},
      {440401920, 1073741824, 451000000, "41%  420 MB  430 MB/s  0:02 left"},
      {0, 4000000000u, 100000, "0%  0 B  97.7 KB/s  11:06:40 left"},
      {5000, 4096, -1, "4.88 KB"},  // past a size that wrapped at 4 GiB
      {1024, 2048, 0, "50%  1.00 KB  0 B/s"},
  };
  for (const Case& c : cases) EXPECT_EQ(ftpzn::FormatTransferProgress(c.done, c.total, c.rate), c.text);
}

// --- the tree walks ---

struct RecordingObserver : ftpzn::TreeWalkObserver {
  void Message(const wxString& text) override { messages.push_back(text); }
  void Trace(const wxString& text) override { traces.push_back(text); }
  bool Continue(const wxString& directory, size_t) override {
    directories.push_back(directory);
    return directories.size() <= stopAfter;
  }
  std::vector<wxString> messages, traces, directories;
  size_t stopAfter = 1000;
};

// Sites of queued downloads that nobody serves: the queue holds rows only.
ftpzn::TransferSite Nowhere() {
  ftpzn::TransferSite site{"127.0.0.1", "u", "p"};
  site.port = ftpzn::testing::ClosedPort();
  return site;
}

class RemoteWalk : public ::testing::Test {
 protected:
  void SetUp() override {
    m_connection =
        m_session.GetFtpConnection(L"127.0.0.1", wxString(FtpTestServer::kUser).ToStdWstring(),
                                   wxString(FtpTestServer::kPassword).ToStdWstring(), VsftpdPort(), true);
    ASSERT_TRUE(m_connection);
  }
  std::wstring ServerDirectory() {
    std::wstring dir;
    EXPECT_TRUE(m_connection->GetCurrentDirectory(dir));
    return dir;
  }
  ftpzn::inet::CInternetSession m_session;
  std::unique_ptr<ftpzn::inet::CFtpConnection> m_connection;
  RecordingObserver m_observer;
};

TEST_F(RemoteWalk, EntriesInOrderSizesWrappedAtFourGiBAndCancel) {
  std::vector<TreeEntry> entries;
  EXPECT_EQ(ftpzn::RemoteTreeWalk(m_connection.get(), "/tree", entries, m_observer), 1);
  const std::vector<TreeEntry> expected = {{"/tree", "/", 0},     {"/tree/", "big.bin", 705032704},
                                           {"/tree/x", "/", 0},   {"/tree/x/", "b.bin", 4},
                                           {"/tree/x/y", "/", 0}, {"/tree/x/y/", "c.txt", 2}};
  EXPECT_EQ(entries, expected);
  EXPECT_TRUE(m_observer.messages.empty());
  EXPECT_EQ(ServerDirectory(), L"/");  // set back at the end

  // Cancelled before /tree/x: what came before stays, the directory is set back.
  m_observer.directories.clear();
  m_observer.stopAfter = 1;
  entries.clear();
  bool cancelled = false;
  EXPECT_EQ(ftpzn::RemoteTreeWalk(m_connection.get(), "/tree", entries, m_observer, &cancelled), 0);
  EXPECT_TRUE(cancelled);
  EXPECT_EQ(entries.size(), 2u);
  EXPECT_EQ(ServerDirectory(), L"/");
  // Cancelled, an expansion makes and queues nothing.
  m_observer.directories.clear();
  ftpzn::TransferQueue queue;
  EXPECT_FALSE(ftpzn::DownloadRemoteDirectory(m_connection.get(), queue, {}, "/tree", "/nonexistent/never",
                                              m_observer));
  EXPECT_EQ(queue.GetRowCount(), 0u);
  EXPECT_FALSE(fs::exists("/nonexistent"));
}

TEST_F(RemoteWalk, ExpansionStopsAtAnEmptyFolderAndPassesOverDotDot) {
  Scratch scratch;
  const std::string& local = scratch.path;
  {
    // An empty folder stops the walk; what came before is queued.
    ftpzn::TransferQueue queue;
    EXPECT_TRUE(ftpzn::DownloadRemoteDirectory(m_connection.get(), queue, Nowhere(), "/holes",
                                               wxString::FromUTF8(local) + "/holes", m_observer));
    EXPECT_EQ(m_observer.messages, std::vector<wxString>{"find:/holes/zz/* error:18"});
    ASSERT_EQ(queue.GetRowCount(), 1u);
    EXPECT_EQ(queue.GetRow(0).worker->m_strFileName, "a.txt");
    EXPECT_EQ(queue.GetRow(0).worker->m_strRemoteDir.str(), "/holes/");
    EXPECT_EQ(queue.GetRow(0).worker->m_strLocalDir.str(), wxString::FromUTF8(local) + "/holes/");
    EXPECT_EQ(queue.m_bHold, 0);
    EXPECT_TRUE(fs::is_directory(local + "/holes/zz"));  // the empty one made too
  }
  // stay.txt is queued; q.. (cut to "..") and the file in it are not.
  fs::create_directories(local + "/in");
  ftpzn::TransferQueue queue;
  queue.m_bHold = 1;
  RecordingObserver observer;
  EXPECT_TRUE(ftpzn::DownloadRemoteDirectory(m_connection.get(), queue, Nowhere(), "/q",
                                             wxString::FromUTF8(local) + "/in", observer));
  ASSERT_EQ(queue.GetRowCount(), 1u);
  EXPECT_EQ(queue.GetRow(0).worker->m_strFileName, "stay.txt");
  EXPECT_EQ(observer.traces.size(), 2u);
  EXPECT_EQ(std::distance(fs::directory_iterator(local), fs::directory_iterator()), 2);  // holes, in
}

// A scripted server listing `listing` in `dir`.
std::unique_ptr<fake::FakeServer> ListingServer(const std::string& dir, const std::string& listing) {
  return std::make_unique<fake::FakeServer>(
      fake::Plus(fake::Login(), {fake::On("PWD", "257 \"/\"\r\n"), fake::On("CWD " + dir, "250 ok\r\n"),
                                 fake::On("TYPE A", "200 ok\r\n"), fake::Epsv(),
                                 fake::Transfer("LIST", listing), fake::On("CWD /", "250 ok\r\n")}));
}

// Names that are no file names are skipped with a trace line; control
// characters make a strange file name, but a file name all the same. A link
// is never entered, so a link to its own folder cannot make the walk
// endless (a change into it would be a command the script does not expect).
TEST(HostileListing, OddNamesSkippedAndLinksNotFollowed) {
  auto names = ListingServer("/h",
                             "-rw-r--r-- 1 u g 3 Jan 10  2020 ../x\r\n"
                             "-rw-r--r-- 1 u g 3 Jan 10  2020 a/b\r\n"
                             "drwxr-xr-x 2 u g 0 Jan 10  2020 .\r\n"
                             "-rw-r--r-- 1 u g 3 Jan 10  2020 ok.txt\r\n"
                             "-rw-r--r-- 1 u g 3 Jan 10  2020 esc\x1b[2J\x07"
                             "bell.txt\r\n");
  ftpzn::inet::CInternetSession session;
  auto connection = session.GetFtpConnection(L"127.0.0.1", L"u", L"p", names->Port(), true);
  Scratch local;
  RecordingObserver observer;
  ftpzn::TransferQueue queue;
  EXPECT_TRUE(ftpzn::DownloadRemoteDirectory(connection.get(), queue, Nowhere(), "/h",
                                             wxString::FromUTF8(local.path) + "/h", observer));
  // "." never reaches the walk: the engine drops it from every listing.
  ASSERT_EQ(observer.traces.size(), 2u);
  EXPECT_TRUE(observer.traces[0].Contains("\"../x\""));
  EXPECT_TRUE(observer.traces[1].Contains("\"a/b\""));
  ASSERT_EQ(queue.GetRowCount(), 2u);
  EXPECT_EQ(queue.GetRow(0).worker->m_strFileName, "ok.txt");
  EXPECT_EQ(queue.GetRow(1).worker->m_strFileName,
            "esc\x1b[2J\x07"
            "bell.txt");
  std::vector<std::string> made;
  for (const auto& entry : fs::recursive_directory_iterator(local.path))
    made.push_back(entry.path().string());
  EXPECT_EQ(made, std::vector<std::string>{local.path + "/h"});
  EXPECT_EQ(names->Problem(), "");

  auto links = ListingServer("/l",
                             "lrwxrwxrwx 1 u g 1 Jan 10  2020 self -> .\r\n"
                             "-rw-r--r-- 1 u g 3 Jan 10  2020 f.txt\r\n");
  connection = session.GetFtpConnection(L"127.0.0.1", L"u", L"p", links->Port(), true);
  RecordingObserver walked;
  std::vector<TreeEntry> entries;
  EXPECT_EQ(ftpzn::RemoteTreeWalk(connection.get(), "/l", entries, walked), 1);
  EXPECT_EQ(entries, (std::vector<TreeEntry>{{"/l", "/", 0}, {"/l/", "self", 1}, {"/l/", "f.txt", 3}}));
  EXPECT_EQ(walked.directories, std::vector<wxString>{"/l"});
  EXPECT_EQ(links->Problem(), "");
}

TEST(LocalWalk, SortedDepthFirstAndLinksToFoldersNotFollowed) {
  Scratch scratch;
  const std::string& root = scratch.path;
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
}

TEST(TreeExpansion, TrimsByTheSetOfTheStartsCharacters) {
  const char* cases[][3] = {{"/pub/x", "/pub", "x"},
                            {"/pub/pubs", "/pub", "s"},  // the first letters that occur in the start go too
                            {"/pub/", "/pub", ""},
                            {"/q/q..", "/q", ".."}};
  for (const auto& c : cases) EXPECT_EQ(ftpzn::TrimLeadingCharsOf(c[0], c[1]), c[2]) << c[0];
}

}  // namespace
