// The engine against real servers: the same test bodies run against
// vsftpd, pure-ftpd and proftpd, which differ in replies, listings and
// features (MLSD, UTF8, EPSV).
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <map>

#include "ftp_servers.h"
#include "inet/inet.h"
#include "inet/wirename.h"
#include "transfers.h"

namespace ftpzn::inet {
namespace {

using testing::FtpServerKind;
using testing::FtpTestServer;

const std::vector<size_t> kSizes = {0, 4096, 4097, 10 * 1024 * 1024};

void WriteLocal(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

std::string ReadLocal(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

void BuildTree(const std::string& root) {
  mkdir((root + "/empty").c_str(), 0755);
  mkdir((root + "/many").c_str(), 0755);
  for (int i = 0; i < 1000; ++i) {
    char name[32];
    snprintf(name, sizeof name, "/many/file%04d.txt", i);
    WriteLocal(root + name, std::string(static_cast<size_t>(i), 'x'));
  }
  mkdir((root + "/names").c_str(), 0755);
  WriteLocal(root + "/names/with spaces.txt", "spaces");
  WriteLocal(root + "/names/\xc3\xa9t\xc3\xa9 \xe6\x97\xa5\xe6\x9c\xac.txt", "utf8");
  mkdir((root + "/names/sub dir").c_str(), 0755);
  mkdir((root + "/down").c_str(), 0755);
  for (size_t size : kSizes) {
    WriteLocal(root + "/down/f" + std::to_string(size), RandomBytes(size, static_cast<unsigned>(size)));
  }
}

// One server per kind for the whole binary, over a tree made before it
// starts: each test works in a directory of its own.
testing::SharedFtpServer& ServerFor(FtpServerKind kind) {
  return testing::SharedServer(kind, "ftpzn-root-", BuildTree);
}

class ServerTest : public ::testing::TestWithParam<FtpServerKind> {
 protected:
  void SetUp() override {
    testing::SharedFtpServer& s = ServerFor(GetParam());
    ASSERT_TRUE(s.server) << "cannot start " << testing::FtpServerName(GetParam()) << ": " << s.error;
    m_server = s.server.get();
    m_root = s.root;
    m_session.SetOption(INTERNET_OPTION_CONNECT_TIMEOUT, 10000);
    m_session.SetOption(INTERNET_OPTION_RECEIVE_TIMEOUT, 10000);
    m_session.SetOption(INTERNET_OPTION_SEND_TIMEOUT, 10000);
  }

  std::unique_ptr<CFtpConnection> Connect(bool passive = true) {
    return m_session.GetFtpConnection(WireToWide(m_server->Host()), WireToWide(FtpTestServer::kUser),
                                      WireToWide(FtpTestServer::kPassword), m_server->Port(), passive);
  }

  // A fresh directory for one test, made by the server's account.
  std::wstring WorkDir(std::unique_ptr<CFtpConnection>& c, const std::wstring& suffix = {}) {
    std::wstring dir =
        L"/w_" + WireToWide(::testing::UnitTest::GetInstance()->current_test_info()->name()) + suffix;
    for (auto& ch : dir) {
      if (ch == L'/' && &ch != &dir[0]) ch = L'_';
    }
    EXPECT_TRUE(c->CreateDirectory(dir)) << WideToWire(InternetGetLastResponseInfo());
    EXPECT_TRUE(c->SetCurrentDirectory(dir)) << WideToWire(InternetGetLastResponseInfo());
    return dir;
  }

  struct Found {
    std::wstring name;
    uint64_t size;
    bool dir;
    bool hasTime;
  };
  std::vector<Found> List(CFtpConnection& c, bool& ok) {
    std::vector<Found> out;
    CFtpFileFind find(&c);
    ok = find.FindFile();
    bool more = ok;
    for (int guard = 0; more && guard < 100000; ++guard) {
      more = find.FindNextFile();
      uint64_t t = 0;
      out.push_back({find.GetFileName(), find.GetLength(), find.IsDirectory(), find.GetLastWriteTime(t)});
      EXPECT_FALSE(find.IsDots());
    }
    find.Close();
    return out;
  }

  CInternetSession m_session{L"ftpzn-tests"};
  FtpTestServer* m_server = nullptr;
  std::string m_root;
};

TEST_P(ServerTest, LoginGoodAndBad) {
  auto c = Connect();
  std::wstring dir;
  ASSERT_TRUE(c->GetCurrentDirectory(dir));
  EXPECT_EQ(dir, L"/");
  c->Close();

  try {
    m_session.GetFtpConnection(WireToWide(m_server->Host()), WireToWide(FtpTestServer::kUser), L"wrong",
                               m_server->Port(), true);
    FAIL() << "a wrong password logged in";
  } catch (const CInternetException& e) {
    EXPECT_EQ(e.m_dwError, 12014u);
    EXPECT_EQ(GetLastError(), 12014u);
    EXPECT_EQ(InternetGetLastResponseInfo().substr(0, 3), L"530");
    std::wstring text;
    EXPECT_TRUE(e.GetErrorMessage(text));
    EXPECT_NE(text.find(L"password is incorrect"), std::wstring::npos);
  }
}

TEST_P(ServerTest, DirectoryCommands) {
  auto c = Connect();
  std::wstring base = WorkDir(c);
  EXPECT_TRUE(c->CreateDirectory(L"sub"));
  EXPECT_FALSE(c->CreateDirectory(L"sub"));  // exists
  EXPECT_EQ(GetLastError(), 12003u);
  ASSERT_TRUE(c->SetCurrentDirectory(L"sub"));
  std::wstring dir;
  ASSERT_TRUE(c->GetCurrentDirectory(dir));
  EXPECT_EQ(dir, base + L"/sub");
  Upload(*c, L"inner.txt", "x");
  ASSERT_TRUE(c->SetCurrentDirectory(L".."));
  EXPECT_FALSE(c->RemoveDirectory(L"sub"));  // not empty
  EXPECT_EQ(GetLastError(), 12003u);
  EXPECT_EQ(InternetGetLastResponseInfo().substr(0, 1), L"5");
  EXPECT_TRUE(c->Remove(L"sub/inner.txt"));
  EXPECT_FALSE(c->Remove(L"sub/inner.txt"));
  EXPECT_EQ(GetLastError(), 12003u);
  EXPECT_TRUE(c->RemoveDirectory(L"sub"));
  EXPECT_FALSE(c->SetCurrentDirectory(L"sub"));
  EXPECT_EQ(GetLastError(), 12003u);
  EXPECT_EQ(InternetGetLastResponseInfo().substr(0, 3), L"550");
  ASSERT_TRUE(c->GetCurrentDirectory(dir));
  EXPECT_EQ(dir, base);
}

TEST_P(ServerTest, ListingEmptyManyAndOddNames) {
  auto c = Connect();
  ASSERT_TRUE(c->SetCurrentDirectory(L"/empty"));
  bool ok = true;
  EXPECT_TRUE(List(*c, ok).empty());
  EXPECT_FALSE(ok);
  EXPECT_EQ(GetLastError(), 18u);
  // Nothing found is no failure without a reply: the last response is the
  // server's end of the listing, not a description of our own.
  EXPECT_EQ(InternetGetLastResponseInfo().substr(0, 3), L"226");

  ASSERT_TRUE(c->SetCurrentDirectory(L"/many"));
  auto many = List(*c, ok);
  ASSERT_TRUE(ok);
  ASSERT_EQ(many.size(), 1000u);
  std::sort(many.begin(), many.end(), [](auto& a, auto& b) { return a.name < b.name; });
  for (int i = 0; i < 1000; ++i) {
    wchar_t name[32];
    swprintf(name, 32, L"file%04d.txt", i);
    EXPECT_EQ(many[i].name, name);
    EXPECT_EQ(many[i].size, static_cast<uint64_t>(i));
    EXPECT_FALSE(many[i].dir);
    EXPECT_TRUE(many[i].hasTime);
  }

  ASSERT_TRUE(c->SetCurrentDirectory(L"/names"));
  auto names = List(*c, ok);
  ASSERT_TRUE(ok);
  std::map<std::wstring, Found> byName;
  for (auto& f : names) byName[f.name] = f;
  EXPECT_EQ(byName.size(), 3u);
  ASSERT_TRUE(byName.count(L"with spaces.txt"));
  EXPECT_EQ(byName[L"with spaces.txt"].size, 6u);
  const std::wstring utf8 = L"\u00e9t\u00e9 \u65e5\u672c.txt";
  ASSERT_TRUE(byName.count(utf8));
  EXPECT_EQ(byName[utf8].size, 4u);
  ASSERT_TRUE(byName.count(L"sub dir"));
  EXPECT_TRUE(byName[L"sub dir"].dir);
  // The names work as arguments too.
  EXPECT_EQ(Download(*c, L"with spaces.txt"), "spaces");
  EXPECT_EQ(Download(*c, utf8), "utf8");
  EXPECT_TRUE(c->SetCurrentDirectory(L"sub dir"));
}

TEST_P(ServerTest, FindHoldsTheConnectionUntilDone) {
  auto c = Connect();
  ASSERT_TRUE(c->SetCurrentDirectory(L"/names"));
  CFtpFileFind find(c.get());
  ASSERT_TRUE(find.FindFile());
  std::wstring dir;
  EXPECT_FALSE(c->GetCurrentDirectory(dir));
  EXPECT_EQ(GetLastError(), 12110u);
  while (find.FindNextFile()) {
  }
  EXPECT_TRUE(c->GetCurrentDirectory(dir));  // the last entry was reached
  find.Close();

  auto file = c->OpenFile(L"with spaces.txt");
  EXPECT_FALSE(c->SetCurrentDirectory(L"/"));
  EXPECT_EQ(GetLastError(), 12110u);
  EXPECT_THROW(c->OpenFile(L"with spaces.txt"), CInternetException);
  file->Close();
  EXPECT_TRUE(c->SetCurrentDirectory(L"/"));
}

TEST_P(ServerTest, DownloadByteExactPassiveAndActive) {
  for (bool passive : {true, false}) {
    SCOPED_TRACE(passive ? "passive" : "active");
    auto c = Connect(passive);
    ASSERT_TRUE(c->SetCurrentDirectory(L"/down"));
    for (size_t size : kSizes) {
      std::string got = Download(*c, L"f" + std::to_wstring(size));
      EXPECT_EQ(got.size(), size);
      EXPECT_TRUE(got == RandomBytes(size, static_cast<unsigned>(size))) << "content of f" << size;
    }
    EXPECT_THROW(c->OpenFile(L"missing"), CInternetException);
    EXPECT_EQ(GetLastError(), 12003u);
    EXPECT_EQ(InternetGetLastResponseInfo().substr(0, 3), L"550");
    // A download closed early leaves the connection usable.
    auto file = c->OpenFile(L"f" + std::to_wstring(kSizes.back()));
    char block[4096];
    EXPECT_EQ(file->Read(block, sizeof block), sizeof block);
    file->Close();
    std::wstring dir;
    EXPECT_TRUE(c->GetCurrentDirectory(dir));
    EXPECT_EQ(dir, L"/down");
  }
}

TEST_P(ServerTest, UploadByteExactPassiveAndActive) {
  for (bool passive : {true, false}) {
    SCOPED_TRACE(passive ? "passive" : "active");
    auto c = Connect(passive);
    std::wstring dir = WorkDir(c, passive ? L"_p" : L"_a");
    for (size_t size : kSizes) {
      std::string bytes = RandomBytes(size, static_cast<unsigned>(size) + 7);
      Upload(*c, L"u" + std::to_wstring(size), bytes);
      std::string onDisk = ReadLocal(m_root + WideToWire(dir) + "/u" + std::to_string(size));
      EXPECT_EQ(onDisk.size(), size);
      EXPECT_TRUE(onDisk == bytes) << "content of u" << size;
    }
  }
}

TEST_P(ServerTest, Ipv6) {
  std::string root = testing::MakeScratchDir("ftpzn-root6");
  WriteLocal(root + "/six.txt", "over ipv6");
  std::string error;
  auto server = FtpTestServer::Start(GetParam(), root, error, true);
  if (!server) {
    testing::RemoveTree(root);
    GTEST_SKIP() << testing::FtpServerName(GetParam()) << " does not serve IPv6 here: " << error;
  }
  for (bool passive : {true, false}) {
    auto c = m_session.GetFtpConnection(L"::1", WireToWide(FtpTestServer::kUser),
                                        WireToWide(FtpTestServer::kPassword), server->Port(), passive);
    EXPECT_EQ(Download(*c, L"six.txt"), "over ipv6") << (passive ? "passive" : "active");
  }
  server->Stop();
  testing::RemoveTree(root);
}

// The workers' pool: a closed connection is handed to the next login that
// matches it exactly and behaves as a new one; one the server ended while
// it waited is replaced without a failure; emptying the pool leaves no
// session on the server.
TEST_P(ServerTest, PooledConnectionsHandedOnReplacedAndEmptied) {
  using namespace std::chrono_literals;
  EmptyConnectionPool();
  ASSERT_TRUE(m_server->WaitForSessionCount(0, 5s));
  CInternetSession pooling(L"ftpzn-tests");
  pooling.EnableConnectionPool();
  auto first = pooling.GetFtpConnection(WireToWide(m_server->Host()), WireToWide(FtpTestServer::kUser),
                                        WireToWide(FtpTestServer::kPassword), m_server->Port(), true);
  std::wstring base = WorkDir(first);
  Upload(*first, L"one", "1");
  first->Close();
  EXPECT_EQ(PooledConnectionCount(), 1u);

  // Not for another password, nor another port: those log in on their own.
  EXPECT_THROW(pooling.GetFtpConnection(WireToWide(m_server->Host()), WireToWide(FtpTestServer::kUser), L"wrong",
                                        m_server->Port(), true),
               CInternetException);
  EXPECT_THROW(pooling.GetFtpConnection(WireToWide(m_server->Host()), WireToWide(FtpTestServer::kUser),
                                        WireToWide(FtpTestServer::kPassword), testing::ClosedPort(), true),
               CInternetException);
  EXPECT_EQ(PooledConnectionCount(), 1u);

  // Handed on: no new session, and it stands where a new one would.
  auto second = pooling.GetFtpConnection(WireToWide(m_server->Host()), WireToWide(FtpTestServer::kUser),
                                         WireToWide(FtpTestServer::kPassword), m_server->Port(), true);
  EXPECT_EQ(PooledConnectionCount(), 0u);
  std::wstring dir;
  ASSERT_TRUE(second->GetCurrentDirectory(dir)) << WideToWire(InternetGetLastResponseInfo());
  EXPECT_EQ(dir, L"/");
  ASSERT_TRUE(second->SetCurrentDirectory(base));
  EXPECT_EQ(Download(*second, L"one"), "1");
  second->Close();

  // Ended by the server while it waited: the next transfer still works.
  ASSERT_EQ(PooledConnectionCount(), 1u);
  m_server->EndSessions();
  ASSERT_TRUE(m_server->WaitForSessionCount(0, 5s));
  auto third = pooling.GetFtpConnection(WireToWide(m_server->Host()), WireToWide(FtpTestServer::kUser),
                                        WireToWide(FtpTestServer::kPassword), m_server->Port(), true);
  ASSERT_TRUE(third->SetCurrentDirectory(base)) << WideToWire(InternetGetLastResponseInfo());
  EXPECT_EQ(Download(*third, L"one"), "1");
  third->Close();

  EmptyConnectionPool();
  EXPECT_EQ(PooledConnectionCount(), 0u);
  EXPECT_TRUE(m_server->WaitForSessionCount(0, 5s)) << m_server->SessionCount() << " sessions left";
}

INSTANTIATE_TEST_SUITE_P(Servers, ServerTest,
                         ::testing::Values(FtpServerKind::Vsftpd, FtpServerKind::PureFtpd,
                                           FtpServerKind::Proftpd),
                         [](const auto& info) { return std::string(testing::FtpServerName(info.param)); });

}  // namespace
}  // namespace ftpzn::inet
