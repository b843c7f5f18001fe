// The engine against real servers: the same test bodies run against
// vsftpd, pure-ftpd and proftpd, which differ in replies, listings and
// features (MLSD, UTF8, EPSV), in clear text and over TLS: vsftpd (explicit
// and implicit, insisting that data connections resume the control
// connection's session) and pure-ftpd (explicit), with certificates of a
// test CA that the process trusts through SSL_CERT_FILE, and certificates
// that are wrong each in their own way.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <map>
#include <random>

#include "ftp_servers.h"
#include "inet/inet.h"
#include "inet/wirename.h"

namespace ftpzn::inet {
namespace {

using testing::FtpServerKind;
using testing::FtpTestServer;
using testing::FtpTlsMode;
using testing::TestCertKind;

std::string RandomBytes(size_t size, unsigned seed) {
  std::mt19937 rng(seed);
  std::string s(size, '\0');
  for (auto& c : s) c = static_cast<char>(rng());
  return s;
}

void WriteLocal(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

std::string LastReply() { return WideToWire(InternetGetLastResponseInfo()); }

// Whole files, byte for byte, with the outcome Close reports checked.
std::string Download(CFtpConnection& c, const std::wstring& name) {
  auto file = c.OpenFile(name, GENERIC_READ, FTP_TRANSFER_TYPE_BINARY);
  std::string data;
  char block[4096];
  for (uint32_t n; data.size() <= 64u << 20 && (n = file->Read(block, sizeof block)) > 0;) data.append(block, n);
  SetLastError(99);
  file->Close();
  EXPECT_EQ(GetLastError(), 0u) << LastReply();
  return data;
}

void Upload(CFtpConnection& c, const std::wstring& name, const std::string& bytes) {
  auto file = c.OpenFile(name, GENERIC_WRITE, FTP_TRANSFER_TYPE_BINARY);
  for (size_t at = 0; at < bytes.size(); at += 4096)
    file->Write(bytes.data() + at, static_cast<uint32_t>(std::min<size_t>(4096, bytes.size() - at)));
  SetLastError(99);
  file->Close();
  EXPECT_EQ(GetLastError(), 0u) << LastReply();
}

// A session with the tests' time-outs that records what it was asked about
// certificates and answers as told.
class TestSession : public CInternetSession {
 public:
  TestSession() : CInternetSession(L"ftpzn-tests") {
    for (uint32_t option : {INTERNET_OPTION_CONNECT_TIMEOUT, INTERNET_OPTION_RECEIVE_TIMEOUT, INTERNET_OPTION_SEND_TIMEOUT})
      SetOption(option, 10000);
  }
  bool OnUntrustedCertificate(const std::wstring&, uint16_t, const TlsPeerInfo& peer) override {
    asked.push_back(peer);
    return accept;
  }
  void OnProtocolTrace(bool out, const std::string& line) override {
    if (out) sent.push_back(line);
  }
  std::unique_ptr<CFtpConnection> Connect(FtpTestServer& server, bool passive = true, TlsMode tls = TlsMode::None,
                                          const std::wstring& password = WireToWide(FtpTestServer::kPassword)) {
    return GetFtpConnection(WireToWide(server.Host()), WireToWide(FtpTestServer::kUser), password, server.Port(), passive, tls);
  }
  bool accept = false;
  std::vector<TlsPeerInfo> asked;
  std::vector<std::string> sent;
};

// One server per kind and TLS mode for the whole binary, over a tree made
// before it starts: each test works in a directory of its own.
void BuildTree(const std::string& root) {
  mkdir((root + "/empty").c_str(), 0755);
  mkdir((root + "/names").c_str(), 0755);
  mkdir((root + "/names/sub dir").c_str(), 0755);
  WriteLocal(root + "/names/with spaces.txt", "spaces");
  WriteLocal(root + "/names/\xc3\xa9t\xc3\xa9 \xe6\x97\xa5\xe6\x9c\xac.txt", "utf8");
}

// Servers by kind, mode and certificate, each started once for the binary.
// The engine reads its trust store with its first TLS connection.
FtpTestServer* Server(FtpServerKind kind, FtpTlsMode mode, TestCertKind cert = TestCertKind::Trusted) {
  std::string error;
  if (!testing::TrustTestCertificates(error)) {
    ADD_FAILURE() << error;
    return nullptr;
  }
  testing::SharedFtpServer& s = testing::SharedServer(kind, "ftpzn-root-", BuildTree, {mode, cert});
  if (!s.server) ADD_FAILURE() << "cannot start " << testing::FtpServerName(kind) << ": " << s.error;
  return s.server.get();
}

// `resumesSessions`: a second control connection resumes the first one's
// TLS session (pure-ftpd hands out no tickets under TLS 1.3).
struct Row { const char* name; FtpServerKind kind; FtpTlsMode mode; bool resumesSessions; };

class ServerTest : public ::testing::TestWithParam<Row> {
 protected:
  void SetUp() override {
    m_server = Server(GetParam().kind, GetParam().mode);
    ASSERT_TRUE(m_server);
    m_root = testing::SharedServer(GetParam().kind, "", nullptr, {GetParam().mode}).root;
    m_tls = GetParam().mode == FtpTlsMode::None ? TlsMode::None : GetParam().mode == FtpTlsMode::Explicit ? TlsMode::Explicit : TlsMode::Implicit;
  }
  std::unique_ptr<CFtpConnection> Connect(bool passive = true) { return m_session.Connect(*m_server, passive, m_tls); }

  // A fresh directory for one test, made by the server's account.
  std::wstring WorkDir(std::unique_ptr<CFtpConnection>& c, const std::wstring& suffix = {}) {
    std::wstring dir = L"/w_" + WireToWide(::testing::UnitTest::GetInstance()->current_test_info()->name()) + suffix;
    std::replace(dir.begin() + 1, dir.end(), L'/', L'_');
    EXPECT_TRUE(c->CreateDirectory(dir)) << LastReply();
    EXPECT_TRUE(c->SetCurrentDirectory(dir)) << LastReply();
    return dir;
  }

  struct Found { uint64_t size; bool dir, hasTime; };
  std::map<std::wstring, Found> List(CFtpConnection& c, bool& ok) {
    std::map<std::wstring, Found> out;
    CFtpFileFind find(&c);
    ok = find.FindFile();
    for (bool more = ok; more && out.size() < 100000;) {
      more = find.FindNextFile();
      uint64_t t = 0;
      out[find.GetFileName()] = {find.GetLength(), find.IsDirectory(), find.GetLastWriteTime(t)};
      EXPECT_FALSE(find.IsDots());
    }
    return out;
  }

  TestSession m_session;
  FtpTestServer* m_server = nullptr;
  std::string m_root;
  TlsMode m_tls = TlsMode::None;
};

// Transfers of every size, passive and active, byte for byte on the
// server's disk and back; over TLS every data connection resumes a session
// (vsftpd refuses those that do not), including after the TLS 1.3 tickets
// that arrive once the handshake is over and after downloads closed early.
// A refusal is 12003 with the server's own reply. Nothing found is no
// failure without a reply: the last response is the server's end of the
// listing. A find, and then a file, hold the connection until done.
TEST_P(ServerTest, ListingsAndTransfers) {
  for (bool passive : {true, false}) {
    SCOPED_TRACE(passive ? "passive" : "active");
    auto c = Connect(passive);
    if (m_tls != TlsMode::None) {
      const TlsPeerInfo* tls = c->GetTlsInfo();
      ASSERT_TRUE(tls);
      EXPECT_EQ(tls->protocol, "TLS 1.3");
      EXPECT_NE(tls->subject.find("CN=localhost"), std::string::npos) << tls->subject;
      EXPECT_EQ(tls->resumed, !passive && GetParam().resumesSessions);
    }
    std::wstring dir;
    ASSERT_TRUE(c->GetCurrentDirectory(dir));
    EXPECT_EQ(dir, L"/");
    const std::wstring base = WorkDir(c, passive ? L"_p" : L"_a");
    for (size_t size : {0, 4096, 4097, 10 << 20}) {
      const std::string bytes = RandomBytes(size, unsigned(size + passive)), name = "u" + std::to_string(size);
      Upload(*c, WireToWide(name), bytes);
      std::ifstream in(m_root + WideToWire(base) + "/" + name, std::ios::binary);
      EXPECT_TRUE(std::string(std::istreambuf_iterator<char>(in), {}) == bytes) << "upload of " << name;
      EXPECT_TRUE(Download(*c, WireToWide(name)) == bytes) << "download of " << name;
    }
    c->OpenFile(L"u4096")->Close();  // unread
    auto file = c->OpenFile(L"u10485760");
    char block[4096];
    EXPECT_EQ(file->Read(block, sizeof block), sizeof block);
    file->Close();
    EXPECT_TRUE(c->Remove(L"u0"));
    EXPECT_FALSE(c->RemoveDirectory(base));  // not empty
    EXPECT_EQ(GetLastError(), 12003u);
    EXPECT_EQ(LastReply().substr(0, 1), "5");

    ASSERT_TRUE(c->SetCurrentDirectory(L"/empty"));
    bool ok = true;
    EXPECT_TRUE(List(*c, ok).empty());
    EXPECT_FALSE(ok);
    EXPECT_EQ(GetLastError(), 18u);
    EXPECT_EQ(LastReply().substr(0, 3), "226");
    ASSERT_TRUE(c->SetCurrentDirectory(L"/names"));
    auto names = List(*c, ok);
    const std::wstring utf8 = L"\u00e9t\u00e9 \u65e5\u672c.txt";
    EXPECT_EQ(names.size(), 3u);
    ASSERT_TRUE(names.count(L"with spaces.txt") && names.count(utf8) && names.count(L"sub dir"));
    EXPECT_EQ(names[utf8].size, 4u);
    EXPECT_TRUE(names[L"sub dir"].dir);
    EXPECT_TRUE(names[L"with spaces.txt"].hasTime);
    EXPECT_EQ(Download(*c, L"with spaces.txt"), "spaces");
    EXPECT_EQ(Download(*c, utf8), "utf8");
    CFtpFileFind find(c.get());
    ASSERT_TRUE(find.FindFile());
    EXPECT_FALSE(c->GetCurrentDirectory(dir));
    EXPECT_EQ(GetLastError(), 12110u);
    for (int guard = 0; guard < 10 && find.FindNextFile(); ++guard) {
    }
    EXPECT_TRUE(c->GetCurrentDirectory(dir));  // the last entry was reached
    find.Close();
    file = c->OpenFile(L"with spaces.txt");
    EXPECT_FALSE(c->SetCurrentDirectory(L"sub dir"));
    EXPECT_EQ(GetLastError(), 12110u);
    EXPECT_THROW(c->OpenFile(L"with spaces.txt"), CInternetException);
    file->Close();
    EXPECT_TRUE(c->GetCurrentDirectory(dir));
    EXPECT_EQ(dir, L"/names");
  }
  EXPECT_TRUE(m_session.asked.empty());
}

TEST_P(ServerTest, Ipv6) {
  std::string root = testing::MakeScratchDir("ftpzn-root6"), error;
  WriteLocal(root + "/six.txt", "over ipv6");
  auto server = FtpTestServer::Start(GetParam().kind, root, error, true, {GetParam().mode});
  if (!server) {
    testing::RemoveTree(root);
    GTEST_SKIP() << GetParam().name << " does not serve IPv6 here: " << error;
  }
  for (bool passive : {true, false}) {
    auto c = m_session.GetFtpConnection(L"::1", WireToWide(FtpTestServer::kUser), WireToWide(FtpTestServer::kPassword), server->Port(), passive, m_tls);
    EXPECT_EQ(Download(*c, L"six.txt"), "over ipv6") << (passive ? "passive" : "active");
  }
  server->Stop();
  testing::RemoveTree(root);
}

// The workers' pool: a closed connection is handed to the next login that
// matches it exactly and behaves as a new one; one the server ended while
// it waited is replaced without a failure; emptying the pool leaves no
// session on the server. A wrong password is refused with the server's 530.
TEST_P(ServerTest, PooledConnectionsHandedOnReplacedAndEmptied) {
  using namespace std::chrono_literals;
  EmptyConnectionPool();
  ASSERT_TRUE(m_server->WaitForSessionCount(0, 5s));
  m_session.EnableConnectionPool();
  auto first = Connect();
  std::wstring base = WorkDir(first);
  Upload(*first, L"one", "1");
  first->Close();
  EXPECT_EQ(PooledConnectionCount(), 1u);

  // Not for another password, nor another port: those log in on their own.
  EXPECT_THROW(m_session.Connect(*m_server, true, m_tls, L"wrong"), CInternetException);
  EXPECT_EQ(GetLastError(), 12014u);
  EXPECT_EQ(LastReply().substr(0, 3), "530");
  EXPECT_THROW(m_session.GetFtpConnection(WireToWide(m_server->Host()), WireToWide(FtpTestServer::kUser), WireToWide(FtpTestServer::kPassword), testing::ClosedPort(), true), CInternetException);
  EXPECT_EQ(PooledConnectionCount(), 1u);

  // Handed on: no new session, and it stands where a new one would.
  auto second = Connect();
  EXPECT_EQ(PooledConnectionCount(), 0u);
  std::wstring dir;
  ASSERT_TRUE(second->GetCurrentDirectory(dir)) << LastReply();
  EXPECT_EQ(dir, L"/");
  ASSERT_TRUE(second->SetCurrentDirectory(base));
  EXPECT_EQ(Download(*second, L"one"), "1");
  second->Close();

  // Ended by the server while it waited: the next transfer still works.
  ASSERT_EQ(PooledConnectionCount(), 1u);
  m_server->EndSessions();
  ASSERT_TRUE(m_server->WaitForSessionCount(0, 5s));
  auto third = Connect();
  ASSERT_TRUE(third->SetCurrentDirectory(base)) << LastReply();
  EXPECT_EQ(Download(*third, L"one"), "1");
  third->Close();

  EmptyConnectionPool();
  EXPECT_EQ(PooledConnectionCount(), 0u);
  EXPECT_TRUE(m_server->WaitForSessionCount(0, 5s)) << m_server->SessionCount() << " sessions left";
}

INSTANTIATE_TEST_SUITE_P(Servers, ServerTest,
                         ::testing::Values(Row{"vsftpd", FtpServerKind::Vsftpd, FtpTlsMode::None, false},
                                           Row{"pureftpd", FtpServerKind::PureFtpd, FtpTlsMode::None, false},
                                           Row{"proftpd", FtpServerKind::Proftpd, FtpTlsMode::None, false},
                                           Row{"vsftpd_explicit", FtpServerKind::Vsftpd, FtpTlsMode::Explicit, true},
                                           Row{"vsftpd_implicit", FtpServerKind::Vsftpd, FtpTlsMode::Implicit, true},
                                           Row{"pureftpd_explicit", FtpServerKind::PureFtpd, FtpTlsMode::Explicit, false}),
                         [](const auto& info) { return std::string(info.param.name); });

// An untrusted certificate is refused with the reason unless the session
// accepts it (asked once, then known to the session), or was told its
// fingerprint beforehand; a data connection's certificate is checked too.
TEST(Certificates, UntrustedIsRefusedAskedOrPinned) {
  const struct { TestCertKind cert; uint32_t error; const char* why; } rows[] = {
      {TestCertKind::SelfSigned, kErrCertUntrusted, "self-signed"},
      {TestCertKind::OtherHost, kErrCertHost, "another host than 127.0.0.1"},
      {TestCertKind::Expired, kErrCertDate, "expired on 2021-01-01"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    FtpTestServer* server = Server(FtpServerKind::Vsftpd, FtpTlsMode::Explicit, row.cert);
    ASSERT_TRUE(server);
    TestSession session;
    try {
      session.Connect(*server, true, TlsMode::Explicit);
      ADD_FAILURE() << "an untrusted certificate was accepted";
    } catch (const CInternetException& e) {
      EXPECT_EQ(e.m_dwError, row.error);
      std::wstring text;
      EXPECT_TRUE(e.GetErrorMessage(text));
      EXPECT_NE(text.find(L"certificate"), std::wstring::npos);
    }
    const std::string response = LastReply();
    EXPECT_NE(response.find(row.why), std::string::npos) << response;
    ASSERT_EQ(session.asked.size(), 1u);
    const TlsPeerInfo peer = session.asked[0];
    EXPECT_EQ(peer.problem, row.error);
    EXPECT_NE(response.find(peer.fingerprint), std::string::npos) << response;
    EXPECT_EQ(peer.fingerprint.size(), 95u);

    session.accept = true;
    auto c = session.Connect(*server, true, TlsMode::Explicit);
    EXPECT_TRUE(CFtpFileFind(c.get()).FindFile()) << LastReply();
    c.reset();
    auto again = session.Connect(*server, true, TlsMode::Explicit);
    EXPECT_EQ(session.asked.size(), 2u);  // the second connection of the session did not ask

    TestSession pinned;
    pinned.TrustCertificate("SHA256:" + peer.fingerprint);
    EXPECT_TRUE(pinned.Connect(*server, true, TlsMode::Explicit));
    EXPECT_TRUE(pinned.asked.empty());
  }
}

// A server without TLS: the connection fails before anything else is sent,
// the password above all.
TEST(Certificates, NoLoginInClearText) {
  FtpTestServer* plain = Server(FtpServerKind::Vsftpd, FtpTlsMode::None);
  ASSERT_TRUE(plain);
  TestSession session;
  try {
    session.Connect(*plain, true, TlsMode::Explicit);
    ADD_FAILURE() << "connected without TLS";
  } catch (const CInternetException& e) {
    EXPECT_EQ(e.m_dwError, kErrSecureChannel);
  }
  EXPECT_EQ(session.sent, std::vector<std::string>{"AUTH TLS"});
  EXPECT_NE(LastReply().find("refused TLS"), std::string::npos) << LastReply();
}

}  // namespace
}  // namespace ftpzn::inet
