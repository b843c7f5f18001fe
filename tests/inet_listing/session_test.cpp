// The user-interface session over the real engine, logging in to proftpd on
// loopback: the reports arrive, their lines are composed from the engine's
// own information, and a refused login's text is the table's.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "connection/myinternetsession.h"
#include "connection/sessionstatus.h"
#include "platform/threadid.h"
#include "ftp_servers.h"

namespace ftpzn {
namespace {

using testing::FtpServerKind;
using testing::FtpTestServer;

// Watches what the session is told, then lets it do its own work.
class WatchedSession : public CMyInternetSession {
 public:
  WatchedSession() : CMyInternetSession(L"ftpzn", 1, 0, nullptr, nullptr, 0) {}
  void OnStatusCallback(uintptr_t context, uint32_t status, const void* info, uint32_t infoLength) override {
    statuses.push_back(status);
    lines.push_back(ComposeStatusLine(static_cast<long>(CurrentThreadId()), status, info, infoLength).utf8_string());
    CMyInternetSession::OnStatusCallback(context, status, info, infoLength);
  }
  std::vector<uint32_t> statuses;
  std::vector<std::string> lines;
};

class SessionTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    s_root = testing::MakeScratchDir("ftpzn-session");
    std::string error;
    s_server = FtpTestServer::Start(FtpServerKind::Proftpd, s_root, error);
    if (!s_server) s_error = error;
  }
  static void TearDownTestSuite() {
    s_server.reset();
    testing::RemoveTree(s_root);
  }
  void SetUp() override { ASSERT_TRUE(s_server) << s_error; }

  static inline std::string s_root, s_error;
  static inline std::unique_ptr<FtpTestServer> s_server;
};

std::wstring Wide(const char* text) {
  return std::wstring(text, text + std::char_traits<char>::length(text));
}

TEST_F(SessionTest, LoginReportsComposeTheirLines) {
  WatchedSession session;
  session.EnableStatusCallback(true);
  auto connection = session.GetFtpConnection(L"127.0.0.1", Wide(FtpTestServer::kUser),
                                             Wide(FtpTestServer::kPassword), s_server->Port(), true);
  ASSERT_TRUE(connection);
  connection->Close();

  const std::string tid = "[" + std::to_string(CurrentThreadId()) + "] ";
  ASSERT_GE(session.statuses.size(), 4u);
  EXPECT_EQ(session.statuses[0], 10u);
  EXPECT_EQ(session.lines[0], tid + "resolving name for 127.0.0.1");
  EXPECT_EQ(session.statuses[1], 11u);
  EXPECT_EQ(session.lines[1], tid + "resolved name for 127.0.0.1!");
  for (size_t i = 0; i < session.statuses.size(); ++i) {
    // Every report the engine makes has a line of its own, none the
    // unknown-status one.
    EXPECT_EQ(session.lines[i].find("Unknown status"), std::string::npos) << session.lines[i];
    EXPECT_EQ(session.lines[i].rfind(tid, 0), 0u) << session.lines[i];
  }
  auto has = [&](uint32_t status) {
    return std::find(session.statuses.begin(), session.statuses.end(), status) != session.statuses.end();
  };
  EXPECT_TRUE(has(20) && has(21)) << "connecting and connected";
  EXPECT_TRUE(has(30) && has(31) && has(40) && has(41)) << "request and response";
  EXPECT_EQ(session.m_pReportWnd, nullptr);
}

TEST_F(SessionTest, SilentWithoutTheCallbackAndRefusedLoginText) {
  WatchedSession session;
  try {
    session.GetFtpConnection(L"127.0.0.1", Wide(FtpTestServer::kUser), L"wrong password", s_server->Port(),
                             true);
    FAIL() << "login with a wrong password succeeded";
  } catch (const inet::CInternetException& e) {
    EXPECT_TRUE(e.m_dwError == 12014 || e.m_dwError == 12015) << e.m_dwError;
    std::wstring text;
    ASSERT_TRUE(e.GetErrorMessage(text));
    EXPECT_EQ(wxString(text), InternetErrorString(static_cast<int32_t>(e.m_dwError)));
  }
  EXPECT_TRUE(session.statuses.empty());
}

}  // namespace
}  // namespace ftpzn
