// The workers and the queue without a window: transfers against vsftpd,
// pure-ftpd and proftpd started on loopback, with their lines, sentences,
// attempts, cancels and refusals; a scripted server for a transfer that
// lasts or breaks midway; the scheduler's rule.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <thread>
#include <utility>

#include "fake_server.h"
#include "ftp_servers.h"
#include "inet/inet.h"
#include "transfer/transferqueue.h"
#include "transfer_support.h"

namespace {

namespace fs = std::filesystem;
namespace fake = ftpzn::inet::fake;
using ftpzn::test::ReadBytes;
using ftpzn::test::RecordingSink;
using ftpzn::testing::FtpServerKind;
using ftpzn::testing::FtpTestServer;
using ftpzn::testing::FtpTlsMode;
using Clock = std::chrono::steady_clock;

// What a worker left behind once it ended.
struct Outcome {
  wxString result;
  int failed = 0;
  std::vector<wxString> lines;
  size_t progress = 0;
  std::optional<ftpzn::TransferMessage> end;
  double seconds = 0;
};

// Fills a worker, runs it to its end (bounded) and disposes of it.
class Runner {
 public:
  template <typename Worker>
  Worker* Make(const wxString& name, const wxString& remoteDir, const wxString& localDir) {
    auto* worker = new Worker;
    worker->m_strHost = "127.0.0.1";
    worker->m_strUser = FtpTestServer::kUser;
    worker->m_strPassword = FtpTestServer::kPassword;
    worker->m_bPassive = 1;
    worker->m_dwTimeout = 10000;
    worker->m_strFileName = name;
    worker->m_strRemoteDir = remoteDir;
    worker->m_strLocalDir = localDir;
    worker->m_pOwner = m_sink = std::make_shared<RecordingSink>();
    worker->CreateThread(ftpzn::WorkerThread::kCreateSuspended);
    return worker;
  }

  // `during` runs on this thread once the worker has been resumed.
  Outcome Finish(CThreadFtp* worker, const std::function<void()>& during = {}) {
    const auto start = Clock::now();
    worker->ResumeThread();
    if (during) during();
    EXPECT_TRUE(worker->m_hEventDead.Wait(30000)) << "the worker never ended";
    Outcome out{worker->GetResult(), worker->m_bFailed, m_sink->Lines(), m_sink->ProgressCount(),
                m_sink->End()};
    out.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    worker->KillThread();
    return out;
  }
  RecordingSink& Sink() { return *m_sink; }

 private:
  std::shared_ptr<RecordingSink> m_sink;
};

// A server and how the workers reach it.
struct ServerMode {
  FtpServerKind kind;
  FtpTlsMode tls = FtpTlsMode::None;
};

ftpzn::inet::TlsMode EngineMode(FtpTlsMode mode) {
  return mode == FtpTlsMode::None       ? ftpzn::inet::TlsMode::None
         : mode == FtpTlsMode::Explicit ? ftpzn::inet::TlsMode::Explicit
                                        : ftpzn::inet::TlsMode::Implicit;
}

class WorkerTest : public ::testing::TestWithParam<ServerMode> {
 protected:
  void SetUp() override {
    ftpzn::testing::SharedFtpServer& shared =
        ftpzn::test::TransferServer(GetParam().kind, {GetParam().tls, ftpzn::testing::TestCertKind::Trusted});
    ASSERT_TRUE(shared.server) << shared.error;
    m_port = shared.server->Port();
    m_root = shared.root;
    m_local = ftpzn::testing::MakeScratchDir("ftpzn-local-");
  }
  void TearDown() override { ftpzn::testing::RemoveTree(m_local); }

  template <typename Worker>
  Worker* Make(const wxString& name, const wxString& remoteDir, const wxString& localDir) {
    Worker* worker = m_runner.Make<Worker>(name, remoteDir, localDir);
    worker->m_nPort = m_port;
    worker->m_tlsMode = EngineMode(GetParam().tls);
    return worker;
  }

  Runner m_runner;
  uint16_t m_port = 0;
  std::string m_root;
  std::string m_local;
};

std::string KindName(const ::testing::TestParamInfo<ServerMode>& info) {
  std::string name = ftpzn::testing::FtpServerName(info.param.kind);
  if (info.param.tls != FtpTlsMode::None) name += std::string("_") + ftpzn::testing::FtpTlsModeName(info.param.tls);
  for (char& c : name)
    if (!isalnum(static_cast<unsigned char>(c))) c = '_';
  return name;
}

TEST_P(WorkerTest, DownloadAndUploadByteExactWithTheirLines) {
  for (const ftpzn::test::SampleFile& f : ftpzn::test::kSampleFiles) {
    const wxString name = wxString::FromUTF8(f.name);
    SCOPED_TRACE(f.name);
    const std::string original = ReadBytes(m_root + "/pub/" + f.name);
    // One progress line per block read, the last (empty or short) one too.
    const size_t lines = f.size ? f.size / 4096 + 1 : 0;
    const int size = static_cast<int>(f.size);

    auto* down = Make<CThreadFtpDownload>(name, "/pub", wxString::FromUTF8(m_local) + "/");
    down->m_dwFileSize = static_cast<uint32_t>(f.size);
    const Outcome d = m_runner.Finish(down);
    EXPECT_EQ(d.result, "\"" + name + "\" successfully downloaded.");
    EXPECT_EQ(d.failed, 0);
    EXPECT_EQ(d.end, ftpzn::WM_FTP_DOWNLOAD_DONE);
    EXPECT_TRUE(ReadBytes(m_local + "/" + f.name) == original);
    ASSERT_EQ(d.progress, lines);
    ASSERT_EQ(d.lines.size(), lines + 1);
    EXPECT_EQ(d.lines.back(), "Finished");
    if (lines) {
      EXPECT_EQ(d.lines[lines - 1], wxString::Format("Receiving: %s(%d/%d)", name, size, size));
    }

    auto* up = Make<CThreadFtpUpload>(name, "/up", wxString::FromUTF8(m_local));
    const Outcome u = m_runner.Finish(up);
    EXPECT_EQ(u.result, "\"" + name + "\" successfully uploaded.");
    EXPECT_EQ(u.end, ftpzn::WM_FTP_UPLOAD_DONE);
    EXPECT_TRUE(ReadBytes(m_root + "/up/" + f.name) == original);
    ASSERT_EQ(u.progress, lines);
    EXPECT_EQ(u.lines.back(), "Finished");
    if (lines) {
      EXPECT_EQ(u.lines[lines - 1], wxString::Format("Sending: %s(%d/%d)\n", name, size, size));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Servers, WorkerTest,
                         ::testing::Values(ServerMode{FtpServerKind::Vsftpd}, ServerMode{FtpServerKind::PureFtpd},
                                           ServerMode{FtpServerKind::Proftpd},
                                           ServerMode{FtpServerKind::Vsftpd, FtpTlsMode::Explicit},
                                           ServerMode{FtpServerKind::Vsftpd, FtpTlsMode::Implicit},
                                           ServerMode{FtpServerKind::PureFtpd, FtpTlsMode::Explicit}),
                         KindName);

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
  const std::string accepted =
      browsing.GetFtpConnection(L"127.0.0.1", L"ftpzntest", L"ftpzn-Pa55", shared.server->Port(), true,
                                ftpzn::inet::TlsMode::Explicit)
          ->GetTlsInfo()
          ->fingerprint;
  const std::string local = ftpzn::testing::MakeScratchDir("ftpzn-local-");
  for (const std::string& certificate : {std::string(), std::string(64, 'A'), accepted}) {
    SCOPED_TRACE(certificate.empty() ? "none accepted" : certificate);
    Runner runner;
    auto* worker = runner.Make<CThreadFtpDownload>("block.bin", "/pub", wxString::FromUTF8(local) + "/");
    worker->m_nPort = shared.server->Port();
    worker->m_tlsMode = ftpzn::inet::TlsMode::Explicit;
    worker->m_strAcceptedCertificate = wxString::FromUTF8(certificate);
    const Outcome o = runner.Finish(worker);
    if (certificate == accepted) {
      EXPECT_EQ(o.result, "\"block.bin\" successfully downloaded.");
    } else {
      EXPECT_EQ(o.failed, 1);
      EXPECT_EQ(o.result, "The server's certificate is not signed by a trusted authority.");
    }
  }
  ftpzn::testing::RemoveTree(local);
}

// Refusals against one real server: what the user reads, and that a name
// which would leave the local directory never reaches the disk.
class RefusalTest : public WorkerTest {};

TEST_P(RefusalTest, ResultTexts) {
  const wxString local = wxString::FromUTF8(m_local);
  const wxString parent = wxString::FromUTF8(fs::path(m_local).parent_path().string());
  struct Case {
    bool upload;
    const char* name;
    const char* remoteDir;
    wxString expected;  // a prefix when it ends in '*'
  } cases[] = {
      {false, "block.bin", "/nowhere", "550*"},
      {false, "missing.bin", "/pub", "Internet Exception Error 12003550*"},
      {false, "../escape.txt", "/pub", "Unable to create file " + local + "/../escape.txt"},
      {false, "a/b", "/pub", "Unable to create file " + local + "/a/b"},
      {false, "..", "/pub", "Unable to create file " + local + "/.."},
      {true, "absent.bin", "/up", "Unable to open file " + local + "/absent.bin  "},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    CThreadFtp* worker = c.upload
                             ? static_cast<CThreadFtp*>(Make<CThreadFtpUpload>(c.name, c.remoteDir, local))
                             : Make<CThreadFtpDownload>(c.name, c.remoteDir, local + "/");
    const Outcome out = m_runner.Finish(worker);
    EXPECT_EQ(out.failed, 1);
    if (c.expected.EndsWith("*"))
      EXPECT_TRUE(out.result.StartsWith(c.expected.BeforeLast('*'))) << out.result;
    else
      EXPECT_EQ(out.result, c.expected);
    EXPECT_EQ(out.result.find_first_of("\r\n"), wxString::npos);
  }
  // The local file is made before the server is asked for the remote one;
  // nothing else reached the disk, inside the directory or beside it.
  std::vector<std::string> made;
  for (const auto& entry : fs::directory_iterator(m_local)) made.push_back(entry.path().filename().string());
  EXPECT_EQ(made, std::vector<std::string>{"missing.bin"});
  EXPECT_FALSE(fs::exists(fs::path(m_local).parent_path() / "escape.txt")) << parent;
}

INSTANTIATE_TEST_SUITE_P(Vsftpd, RefusalTest, ::testing::Values(ServerMode{FtpServerKind::Vsftpd}), KindName);

// A server that refuses every connection, tried three times a second apart.
TEST(WorkerAttempts, ThreeAttemptsEndWithTheLastError) {
  Runner runner;
  auto* down = runner.Make<CThreadFtpDownload>("a.txt", "/", "/tmp/");
  down->m_nPort = ftpzn::testing::ClosedPort();
  down->m_nAttempts = 3;
  down->m_nRetryDelay = 1;
  const Outcome out = runner.Finish(down);
  std::wstring refused;
  ftpzn::inet::CInternetException(12029).GetErrorMessage(refused);
  EXPECT_EQ(out.result, wxString(refused));
  EXPECT_EQ(out.failed, 1);
  EXPECT_GE(out.seconds, 2.0);  // two pauses between three attempts
  EXPECT_LT(out.seconds, 4.0);
}

TEST(WorkerCancel, BeforeStartDuringRetryWaitAndMidway) {
  std::wstring refusedText;
  ftpzn::inet::CInternetException(12029).GetErrorMessage(refusedText);
  struct Case {
    const char* what;
    bool upload;
    int cancelAfterMs;  // -1: before it starts
    wxString result;
    bool ends;
  } cases[] = {
      {"queued download", false, -1, "\\a.txt\\ download cancelled.", true},
      {"queued upload", true, -1, "\"a.txt\" upload cancelled.", false},
      {"download waiting to retry", false, 300, refusedText, true},
      {"upload waiting to retry", true, 300, "Retrying after 30 seconds...", true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Runner runner;
    CThreadFtp* worker = c.upload
                             ? static_cast<CThreadFtp*>(runner.Make<CThreadFtpUpload>("a.txt", "/", "/tmp"))
                             : runner.Make<CThreadFtpDownload>("a.txt", "/", "/tmp/");
    worker->m_nPort = ftpzn::testing::ClosedPort();
    worker->m_nAttempts = 3;
    worker->m_nRetryDelay = 30;
    if (c.cancelAfterMs < 0) worker->m_hEventKill.Set();
    const Outcome out = runner.Finish(worker, [&] {
      if (c.cancelAfterMs < 0) return;
      std::this_thread::sleep_for(std::chrono::milliseconds(c.cancelAfterMs));
      worker->m_hEventKill.Set();
    });
    EXPECT_EQ(out.result, c.result);
    EXPECT_EQ(out.end.has_value(), c.ends);
    EXPECT_LT(out.seconds, 5.0);
  }

  // Midway: the server trickles the file; what arrived stays on disk.
  fake::Step trickle = fake::Transfer("RETR slow.bin", std::string(400 * 1024, 's'));
  trickle.dataPieceSize = 4096;
  trickle.dataPieceMs = 10;
  fake::FakeServer server(fake::Plus(
      fake::Login(),
      {fake::On("CWD /pub", "250 ok\r\n"), fake::On("TYPE I", "200 ok\r\n"), fake::Epsv(), trickle}));
  const std::string local = ftpzn::testing::MakeScratchDir("ftpzn-cancel-");
  Runner runner;
  auto* down = runner.Make<CThreadFtpDownload>("slow.bin", "/pub", wxString::FromUTF8(local) + "/");
  down->m_nPort = server.Port();
  down->m_dwFileSize = 400 * 1024;
  const Outcome out = runner.Finish(down, [&] {
    EXPECT_TRUE(runner.Sink().WaitProgress(5000));
    down->m_hEventKill.Set();
  });
  EXPECT_EQ(out.result, "\"slow.bin\" download cancelled.");
  EXPECT_EQ(out.failed, 0);
  EXPECT_EQ(out.lines.back(), "Finished");
  const size_t kept = ReadBytes(local + "/slow.bin").size();
  EXPECT_GE(kept, 4096u);
  EXPECT_LT(kept, 400u * 1024);
  ftpzn::testing::RemoveTree(local);
}

TEST(WorkerFailure, BrokenDownloadKeepsWhatArrived) {
  fake::FakeServer server(
      fake::Plus(fake::Login(),
                 {fake::On("CWD /", "250 ok\r\n"), fake::On("TYPE I", "200 ok\r\n"), fake::Epsv(),
                  fake::Transfer("RETR part.bin", std::string(10000, 'p'), "426 Connection broken\r\n")}));
  const std::string local = ftpzn::testing::MakeScratchDir("ftpzn-broken-");
  Runner runner;
  auto* down = runner.Make<CThreadFtpDownload>("part.bin", "/", wxString::FromUTF8(local) + "/");
  down->m_nPort = server.Port();
  const Outcome out = runner.Finish(down);
  EXPECT_EQ(out.result, "Internet Exception Error 12003426 Connection broken");
  EXPECT_EQ(out.failed, 1);
  EXPECT_EQ(ReadBytes(local + "/part.bin"), std::string(10000, 'p'));
  ftpzn::testing::RemoveTree(local);
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
  const std::string local = ftpzn::testing::MakeScratchDir("ftpzn-quit-");
  Runner runner;
  auto* down = runner.Make<CThreadFtpDownload>("f.bin", "/", wxString::FromUTF8(local) + "/");
  down->m_nPort = server.Port();
  down->ResumeThread();
  EXPECT_TRUE(runner.Sink().WaitEnd(15000));
  const auto start = Clock::now();
  down->KillThread();
  EXPECT_LT(std::chrono::duration<double>(Clock::now() - start).count(), 0.5);
  // The connection waits in the pool; emptying it says goodbye without
  // waiting for an answer either.
  EXPECT_EQ(ftpzn::inet::PooledConnectionCount(), 1u);
  const auto emptied = Clock::now();
  ftpzn::inet::EmptyConnectionPool();
  EXPECT_LT(std::chrono::duration<double>(Clock::now() - emptied).count(), 0.5);
  server.Finish();
  EXPECT_EQ(server.Problem(), "");
  EXPECT_EQ(ReadBytes(local + "/f.bin"), "data");
  ftpzn::testing::RemoveTree(local);
}

TEST(LocalFile, OneWriterAtATime) {
  const std::string dir = ftpzn::testing::MakeScratchDir("ftpzn-lf-");
  const wxString path = wxString::FromUTF8(dir) + "/one.bin";
  ftpzn::LocalFile first, second, reader;
  ASSERT_TRUE(first.Open(path, ftpzn::LocalFile::modeCreate | ftpzn::LocalFile::modeWrite));
  first.Write("abc", 3);
  ftpzn::CFileException error;
  // Another path to the same file is the same file.
  EXPECT_FALSE(second.Open(wxString::FromUTF8(dir) + "/../" + fs::path(dir).filename().string() + "/one.bin",
                           ftpzn::LocalFile::modeCreate | ftpzn::LocalFile::modeWrite, &error));
  EXPECT_EQ(error.m_cause, ftpzn::CFileException::sharingViolation);
  EXPECT_FALSE(reader.Open(path, ftpzn::LocalFile::modeRead));
  first.Close();
  ASSERT_TRUE(reader.Open(path, ftpzn::LocalFile::modeRead));
  char buffer[8] = {};
  EXPECT_EQ(reader.Read(buffer, sizeof buffer), 3u);
  EXPECT_EQ(std::string(buffer, 3), "abc");
  ftpzn::testing::RemoveTree(dir);
}

// The scheduler's rule, on workers that fail at once when started (nobody
// listens on their port).
class SchedulerTest : public ::testing::Test {
 protected:
  // Runs `pump` once at the next add's pump, as the window dispatches the
  // messages waiting then.
  class Queue : public ftpzn::TransferQueue {
   public:
    std::function<void()> pump;

   protected:
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
  m_queue.OnStatus(m_queue.GetRow(0).threadId, "Failed");
  m_queue.OnStatus(m_queue.GetRow(1).threadId, "Failed");
  m_queue.m_bHold = 0;
  m_queue.RunScheduler();
  EXPECT_FALSE(Started(0));
  EXPECT_FALSE(Started(1));
  EXPECT_TRUE(Started(2));
}

}  // namespace

namespace {

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

}  // namespace
