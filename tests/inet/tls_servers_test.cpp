// The test servers over TLS, with curl as the client: what TLS tests of the
// engine lean on has to hold, or they would pass against a server that
// never asked for TLS, never demanded session reuse, or showed some other
// certificate. And each test certificate fails verification for its own
// reason only.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>
#include <stdio.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <random>

#include "ftp_servers.h"

namespace ftpzn::testing {
namespace {

using namespace std::chrono_literals;

std::string ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

void WriteAll(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

struct CurlRun {
  int rc = -1;
  std::string output;  // stdout and stderr
};

// Bounded by curl's --max-time.
CurlRun Curl(const std::string& args) {
  CurlRun run;
  FILE* pipe = popen(("curl -sS --max-time 20 " + args + " 2>&1").c_str(), "r");
  if (!pipe) return run;
  char buf[4096];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, pipe)) > 0) run.output.append(buf, n);
  int status = pclose(pipe);
  run.rc = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return run;
}

std::string Quoted(const std::string& s) { return "'" + s + "'"; }

TEST(TestCertificates, EachKindFailsVerificationForItsOwnReason) {
  std::string error;
  const TestCertificates* certs = SharedTestCertificates(error);
  ASSERT_TRUE(certs) << error;
  struct Row {
    TestCertKind kind;
    int verifyError;
    bool loopbackNames;  // 127.0.0.1, ::1 and localhost
    bool otherExample;
  };
  const Row rows[] = {
      {TestCertKind::Trusted, X509_V_OK, true, false},
      {TestCertKind::SelfSigned, X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT, true, false},
      {TestCertKind::OtherHost, X509_V_OK, false, true},
      {TestCertKind::Expired, X509_V_ERR_CERT_HAS_EXPIRED, true, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(TestCertName(row.kind));
    X509_STORE* store = X509_STORE_new();
    ASSERT_EQ(X509_STORE_load_file(store, certs->caFile.c_str()), 1);
    FILE* f = fopen(certs->CertFile(row.kind).c_str(), "r");
    ASSERT_TRUE(f);
    X509* cert = PEM_read_X509(f, nullptr, nullptr, nullptr);
    fclose(f);
    f = fopen(certs->KeyFile(row.kind).c_str(), "r");
    ASSERT_TRUE(f);
    EVP_PKEY* key = PEM_read_PrivateKey(f, nullptr, nullptr, nullptr);
    fclose(f);
    ASSERT_TRUE(cert && key);
    EXPECT_EQ(X509_check_private_key(cert, key), 1);
    X509_STORE_CTX* ctx = X509_STORE_CTX_new();
    X509_STORE_CTX_init(ctx, store, cert, nullptr);
    X509_verify_cert(ctx);
    EXPECT_EQ(X509_STORE_CTX_get_error(ctx), row.verifyError)
        << X509_verify_cert_error_string(X509_STORE_CTX_get_error(ctx));
    EXPECT_EQ(X509_check_ip_asc(cert, "127.0.0.1", 0) == 1, row.loopbackNames);
    EXPECT_EQ(X509_check_ip_asc(cert, "::1", 0) == 1, row.loopbackNames);
    EXPECT_EQ(X509_check_host(cert, "localhost", 0, 0, nullptr) == 1, row.loopbackNames);
    EXPECT_EQ(X509_check_host(cert, "other.example", 0, 0, nullptr) == 1, row.otherExample);
    X509_STORE_CTX_free(ctx);
    EVP_PKEY_free(key);
    X509_free(cert);
    X509_STORE_free(store);
  }
}

TEST(TlsServers, StartRefusesWhatTheServerCannotServe) {
  for (auto [kind, mode] : {std::pair{FtpServerKind::PureFtpd, FtpTlsMode::Implicit},
                            std::pair{FtpServerKind::Proftpd, FtpTlsMode::Explicit}}) {
    std::string error;
    EXPECT_FALSE(FtpTestServer::Start(kind, "/nonexistent", error, false, {mode, TestCertKind::Trusted}))
        << FtpServerName(kind) << " " << FtpTlsModeName(mode);
    EXPECT_NE(error.find("cannot serve"), std::string::npos) << error;
  }
}

// A session lives as long as its connection: counted while a bare TCP
// connection is open (no login, no TLS handshake), gone after it closes.
TEST(FtpTestServer, SessionCountFollowsAConnection) {
  std::string root = MakeScratchDir("ftpzn-sessions");
  for (auto [kind, mode] : {std::pair{FtpServerKind::Vsftpd, FtpTlsMode::None},
                            std::pair{FtpServerKind::PureFtpd, FtpTlsMode::None},
                            std::pair{FtpServerKind::Proftpd, FtpTlsMode::None},
                            std::pair{FtpServerKind::Vsftpd, FtpTlsMode::Implicit}}) {
    SCOPED_TRACE(std::string(FtpServerName(kind)) + " " + FtpTlsModeName(mode));
    std::string error;
    auto server = FtpTestServer::Start(kind, root, error, false, {mode, TestCertKind::Trusted});
    ASSERT_TRUE(server) << error;
    // The start-up probe's own session may still be ending.
    EXPECT_TRUE(server->WaitForSessionCount(0, 5s)) << server->SessionCount();
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_GE(fd, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(server->Port());
    inet_pton(AF_INET, "127.0.0.1", &a.sin_addr);
    EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a), 0);
    EXPECT_TRUE(server->WaitForSessionCount(1, 5s)) << server->SessionCount();
    close(fd);
    EXPECT_TRUE(server->WaitForSessionCount(0, 5s)) << server->SessionCount();
    server->Stop();
    EXPECT_EQ(server->SessionCount(), -1);
  }
  RemoveTree(root);
}

struct TlsCase {
  FtpServerKind kind;
  FtpTlsMode mode;
  bool requiresSessionReuse;
};

class TlsServerTest : public ::testing::TestWithParam<TlsCase> {
 protected:
  void SetUp() override {
    std::string error;
    const TestCertificates* certs = SharedTestCertificates(error);
    ASSERT_TRUE(certs) << error;
    m_ca = certs->caFile;
    m_root = MakeScratchDir("ftpzn-tls-root");
    m_local = MakeScratchDir("ftpzn-tls-local");
    mkdir((m_root + "/up").c_str(), 0755);
    WriteAll(m_root + "/a.txt", "over tls\n");
    std::mt19937 rng(7);
    m_big.resize(300000);
    for (char& c : m_big) c = static_cast<char>(rng());
    WriteAll(m_root + "/b.bin", m_big);
  }
  void TearDown() override {
    if (m_server) m_server->Stop();
    RemoveTree(m_root);
    RemoveTree(m_local);
  }
  void StartServer(TestCertKind cert) {
    std::string error;
    m_server = FtpTestServer::Start(GetParam().kind, m_root, error, false, {GetParam().mode, cert});
    ASSERT_TRUE(m_server) << error;
  }
  std::string Url(const std::string& path) const { return Quoted(m_server->Url() + path); }
  std::string Tls() const { return "--ssl-reqd --cacert " + Quoted(m_ca) + " "; }

  std::string m_ca, m_root, m_local, m_big;
  std::unique_ptr<FtpTestServer> m_server;
};

TEST_P(TlsServerTest, TransfersOnlyOverTlsWithTheTrustedCertificate) {
  ASSERT_NO_FATAL_FAILURE(StartServer(TestCertKind::Trusted));
  // Two transfers on one control connection: the second data connection
  // is where a server that wants session reuse checks for it.
  for (const char* version : {"--tlsv1.3", "--tls-max 1.2"}) {
    SCOPED_TRACE(version);
    std::remove((m_local + "/a").c_str());
    std::remove((m_local + "/b").c_str());
    CurlRun run = Curl(Tls() + version + " " + Url("/a.txt") + " -o " + Quoted(m_local + "/a") + " " +
                       Url("/b.bin") + " -o " + Quoted(m_local + "/b"));
    EXPECT_EQ(run.rc, 0) << run.output;
    EXPECT_EQ(ReadAll(m_local + "/a"), "over tls\n");
    EXPECT_TRUE(ReadAll(m_local + "/b") == m_big) << "b.bin differs";
  }
  // TLS 1.2 only: over TLS 1.3, vsftpd sends a session ticket on the data
  // connection that curl 7.88 leaves unread, and an upload intermittently
  // loses its tail ("426 Failure reading network stream").
  WriteAll(m_local + "/up.bin", m_big);
  CurlRun up = Curl(Tls() + "--tls-max 1.2 -T " + Quoted(m_local + "/up.bin") + " " + Url("/up/1.bin") +
                    " -T " + Quoted(m_local + "/up.bin") + " " + Url("/up/2.bin"));
  EXPECT_EQ(up.rc, 0) << up.output;
  EXPECT_TRUE(ReadAll(m_root + "/up/1.bin") == m_big) << "up/1.bin differs";
  EXPECT_TRUE(ReadAll(m_root + "/up/2.bin") == m_big) << "up/2.bin differs";

  // A protected login with clear data: RETR is refused (curl's 19).
  CurlRun clearData = Curl("--ftp-ssl-control --cacert " + Quoted(m_ca) + " " + Url("/a.txt"));
  EXPECT_EQ(clearData.rc, 19) << clearData.output;
  if (GetParam().mode == FtpTlsMode::Explicit) {
    CurlRun plain = Curl(Url("/a.txt"));
    EXPECT_NE(plain.rc, 0) << plain.output;
    EXPECT_EQ(plain.output.find("over tls"), std::string::npos) << plain.output;
  }
  // Without curl's session cache every data connection is a full handshake.
  CurlRun fresh = Curl(Tls() + "--no-sessionid " + Url("/a.txt"));
  if (GetParam().requiresSessionReuse) {
    EXPECT_NE(fresh.rc, 0) << fresh.output;
    EXPECT_EQ(fresh.output.find("over tls"), std::string::npos) << fresh.output;
  } else {
    EXPECT_EQ(fresh.rc, 0) << fresh.output;
    EXPECT_EQ(fresh.output, "over tls\n");
  }
}

TEST_P(TlsServerTest, PresentsTheChosenCertificate) {
  struct Row {
    TestCertKind kind;
    const char* complaint;  // curl's, after "SSL"
  };
  for (const Row& row : {Row{TestCertKind::Expired, "certificate has expired"},
                         Row{TestCertKind::OtherHost, "no alternative certificate subject name matches"}}) {
    SCOPED_TRACE(TestCertName(row.kind));
    ASSERT_NO_FATAL_FAILURE(StartServer(row.kind));
    CurlRun checked = Curl(Tls() + Url("/a.txt"));
    EXPECT_EQ(checked.rc, 60) << checked.output;
    EXPECT_NE(checked.output.find(row.complaint), std::string::npos) << checked.output;
    // The same server with verification off: the refusal was the certificate.
    CurlRun unchecked = Curl(Tls() + "--insecure " + Url("/a.txt"));
    EXPECT_EQ(unchecked.rc, 0) << unchecked.output;
    EXPECT_EQ(unchecked.output, "over tls\n");
    m_server->Stop();
  }
}

INSTANTIATE_TEST_SUITE_P(Servers, TlsServerTest,
                         ::testing::Values(TlsCase{FtpServerKind::Vsftpd, FtpTlsMode::Explicit, true},
                                           TlsCase{FtpServerKind::Vsftpd, FtpTlsMode::Implicit, true},
                                           TlsCase{FtpServerKind::PureFtpd, FtpTlsMode::Explicit, false}),
                         [](const auto& info) {
                           return std::string(FtpServerName(info.param.kind)) + "_" +
                                  FtpTlsModeName(info.param.mode);
                         });

}  // namespace
}  // namespace ftpzn::testing
