// The engine over TLS against real servers: vsftpd (explicit and implicit,
// insisting that data connections resume the control connection's session)
// and pure-ftpd (explicit), with certificates of a test CA that the process
// trusts through SSL_CERT_FILE, and certificates that are wrong each in
// their own way.
#include <gtest/gtest.h>

#include <cstdlib>

#include "ftp_servers.h"
#include "inet/inet.h"
#include "inet/wirename.h"
#include "transfers.h"

namespace ftpzn::inet {
namespace {

using testing::FtpServerKind;
using testing::FtpTestServer;
using testing::FtpTlsMode;
using testing::TestCertKind;

// A session that records what it was asked and answers as told.
class AskingSession : public CInternetSession {
 public:
  AskingSession() : CInternetSession(L"ftpzn-tests") {
    for (uint32_t option : {INTERNET_OPTION_CONNECT_TIMEOUT, INTERNET_OPTION_RECEIVE_TIMEOUT,
                            INTERNET_OPTION_SEND_TIMEOUT})
      SetOption(option, 10000);
  }
  bool OnUntrustedCertificate(const std::wstring&, uint16_t, const TlsPeerInfo& peer) override {
    asked.push_back(peer);
    return accept;
  }
  bool accept = false;
  std::vector<TlsPeerInfo> asked;
};

// Servers by kind, mode and certificate, each started once for the binary.
FtpTestServer* TlsServer(FtpServerKind kind, FtpTlsMode mode, TestCertKind cert) {
  std::string error;
  if (!testing::TrustTestCertificates(error)) {
    ADD_FAILURE() << error;
    return nullptr;
  }
  testing::SharedFtpServer& s = testing::SharedServer(kind, "ftpzn-tls-", nullptr, {mode, cert});
  if (!s.server) ADD_FAILURE() << "cannot start " << testing::FtpServerName(kind) << ": " << s.error;
  return s.server.get();
}

TlsMode EngineMode(FtpTlsMode mode) { return mode == FtpTlsMode::Implicit ? TlsMode::Implicit : TlsMode::Explicit; }

std::unique_ptr<CFtpConnection> Connect(CInternetSession& session, FtpTestServer& server, FtpTlsMode mode,
                                        bool passive = true) {
  return session.GetFtpConnection(WireToWide(server.Host()), WireToWide(FtpTestServer::kUser),
                                  WireToWide(FtpTestServer::kPassword), server.Port(), passive, EngineMode(mode));
}

struct ServerRow {
  const char* name;
  FtpServerKind kind;
  FtpTlsMode mode;
  bool resumesSessions;
};

const ServerRow kServers[] = {
    {"vsftpd_explicit", FtpServerKind::Vsftpd, FtpTlsMode::Explicit, true},
    {"vsftpd_implicit", FtpServerKind::Vsftpd, FtpTlsMode::Implicit, true},
    {"pureftpd_explicit", FtpServerKind::PureFtpd, FtpTlsMode::Explicit, false},
};

class TlsServerTest : public ::testing::TestWithParam<ServerRow> {};

// Uploads and downloads of every size one after another on one control
// connection, passive and active: every data connection resumes a session
// (vsftpd refuses those that do not), including after the TLS 1.3 tickets
// that arrive once the handshake is over.
TEST_P(TlsServerTest, TransfersInARowAreByteExact) {
  const ServerRow& row = GetParam();
  FtpTestServer* server = TlsServer(row.kind, row.mode, TestCertKind::Trusted);
  ASSERT_TRUE(server);
  AskingSession session;
  for (const bool passive : {true, false}) {
    SCOPED_TRACE(passive ? "passive" : "active");
    auto c = Connect(session, *server, row.mode, passive);
    const TlsPeerInfo* tls = c->GetTlsInfo();
    ASSERT_TRUE(tls);
    EXPECT_EQ(tls->protocol, "TLS 1.3");
    EXPECT_FALSE(tls->cipher.empty());
    EXPECT_EQ(tls->problem, 0u);
    EXPECT_NE(tls->subject.find("CN=localhost"), std::string::npos) << tls->subject;
    // The second control connection resumes the first one's session where
    // the server hands out tickets (pure-ftpd gives none under TLS 1.3).
    EXPECT_EQ(tls->resumed, !passive && row.resumesSessions);
    const std::wstring dir = passive ? L"/tls_passive" : L"/tls_active";
    c->CreateDirectory(dir);
    ASSERT_TRUE(c->SetCurrentDirectory(dir)) << WideToWire(InternetGetLastResponseInfo());
    const size_t sizes[] = {0, 4096, 10 * 1024 * 1024};
    for (size_t size : sizes) Upload(*c, L"f" + std::to_wstring(size), RandomBytes(size, unsigned(size)));
    CFtpFileFind find(c.get());
    ASSERT_TRUE(find.FindFile()) << WideToWire(InternetGetLastResponseInfo());
    size_t listed = 0;
    for (bool more = true; more && listed < 10; ++listed) more = find.FindNextFile();
    find.Close();
    EXPECT_EQ(listed, 3u);
    for (size_t size : sizes) {
      EXPECT_TRUE(Download(*c, L"f" + std::to_wstring(size)) == RandomBytes(size, unsigned(size))) << size;
    }
    c->Close();
  }
  EXPECT_TRUE(session.asked.empty());
}

INSTANTIATE_TEST_SUITE_P(Servers, TlsServerTest, ::testing::ValuesIn(kServers),
                         [](const auto& info) { return std::string(info.param.name); });

struct CertRow {
  const char* name;
  TestCertKind cert;
  uint32_t error;
  const char* why;
};

const CertRow kCertificates[] = {
    {"self_signed", TestCertKind::SelfSigned, kErrCertUntrusted, "self-signed"},
    {"other_host", TestCertKind::OtherHost, kErrCertHost, "another host than 127.0.0.1"},
    {"expired", TestCertKind::Expired, kErrCertDate, "expired on 2021-01-01"},
};

class CertificateTest : public ::testing::TestWithParam<CertRow> {};

// Refused with the reason unless the session accepts it (asked once, then
// known to the session), or was told its fingerprint beforehand.
TEST_P(CertificateTest, UntrustedIsRefusedAskedOrPinned) {
  const CertRow& row = GetParam();
  FtpTestServer* server = TlsServer(FtpServerKind::Vsftpd, FtpTlsMode::Explicit, row.cert);
  ASSERT_TRUE(server);
  AskingSession session;
  try {
    Connect(session, *server, FtpTlsMode::Explicit);
    FAIL() << "an untrusted certificate was accepted";
  } catch (const CInternetException& e) {
    EXPECT_EQ(e.m_dwError, row.error);
    std::wstring text;
    EXPECT_TRUE(e.GetErrorMessage(text));
    EXPECT_NE(text.find(L"certificate"), std::wstring::npos);
  }
  const std::string response = WideToWire(InternetGetLastResponseInfo());
  EXPECT_NE(response.find(row.why), std::string::npos) << response;
  ASSERT_EQ(session.asked.size(), 1u);
  const TlsPeerInfo peer = session.asked[0];
  EXPECT_EQ(peer.problem, row.error);
  EXPECT_NE(response.find(peer.fingerprint), std::string::npos) << response;
  EXPECT_EQ(peer.fingerprint.size(), 95u);

  session.accept = true;
  auto c = Connect(session, *server, FtpTlsMode::Explicit);
  CFtpFileFind find(c.get());  // a data connection: its certificate is checked too
  EXPECT_FALSE(find.FindFile());
  EXPECT_EQ(GetLastError(), kErrNoMoreFiles);
  find.Close();
  c.reset();
  auto again = Connect(session, *server, FtpTlsMode::Explicit);
  EXPECT_EQ(session.asked.size(), 2u);  // the second connection of the session did not ask

  AskingSession pinned;
  pinned.TrustCertificate("SHA256:" + peer.fingerprint);
  EXPECT_TRUE(Connect(pinned, *server, FtpTlsMode::Explicit));
  EXPECT_TRUE(pinned.asked.empty());
}

INSTANTIATE_TEST_SUITE_P(Certificates, CertificateTest, ::testing::ValuesIn(kCertificates),
                         [](const auto& info) { return std::string(info.param.name); });

// A server without TLS: the connection fails before anything else is sent,
// the password above all.
TEST(TlsRefused, NoLoginInClearText) {
  const std::string root = testing::MakeScratchDir("ftpzn-tls-plain-");
  std::string error;
  auto plain = FtpTestServer::Start(FtpServerKind::Vsftpd, root, error);
  ASSERT_TRUE(plain) << error;
  struct Recording : AskingSession {
    std::vector<std::string> sent;
    void OnProtocolTrace(bool out, const std::string& line) override {
      if (out) sent.push_back(line);
    }
  } session;
  try {
    Connect(session, *plain, FtpTlsMode::Explicit);
    FAIL() << "connected without TLS";
  } catch (const CInternetException& e) {
    EXPECT_EQ(e.m_dwError, kErrSecureChannel);
  }
  EXPECT_EQ(session.sent, std::vector<std::string>{"AUTH TLS"});
  const std::string response = WideToWire(InternetGetLastResponseInfo());
  EXPECT_NE(response.find("refused TLS"), std::string::npos) << response;
  plain->Stop();
  testing::RemoveTree(root);
}

}  // namespace
}  // namespace ftpzn::inet
