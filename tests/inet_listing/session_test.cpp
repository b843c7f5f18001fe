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
#include "ftp_servers.h"
#include "platform/threadid.h"

namespace ftpzn {
namespace {

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
  bool Has(uint32_t status) const { return std::find(statuses.begin(), statuses.end(), status) != statuses.end(); }
  std::vector<uint32_t> statuses;
  std::vector<std::string> lines;
};

std::wstring Wide(const char* text) { return std::wstring(text, text + std::char_traits<char>::length(text)); }

TEST(Session, LoginReportsAndRefusedLoginText) {
  const std::string root = testing::MakeScratchDir("ftpzn-session");
  std::string error;
  std::unique_ptr<FtpTestServer> server = FtpTestServer::Start(testing::FtpServerKind::Proftpd, root, error);
  ASSERT_TRUE(server) << error;

  WatchedSession session;
  session.EnableStatusCallback(true);
  auto connection = session.GetFtpConnection(L"127.0.0.1", Wide(FtpTestServer::kUser),
                                             Wide(FtpTestServer::kPassword), server->Port(), true);
  ASSERT_TRUE(connection);
  connection->Close();
  const std::string tid = "[" + std::to_string(CurrentThreadId()) + "] ";
  ASSERT_GE(session.statuses.size(), 4u);
  EXPECT_EQ(session.statuses[0], 10u);
  EXPECT_EQ(session.lines[0], tid + "resolving name for 127.0.0.1");
  EXPECT_EQ(session.statuses[1], 11u);
  EXPECT_EQ(session.lines[1], tid + "resolved name for 127.0.0.1!");
  // Every report the engine makes has a line of its own, none the
  // unknown-status one.
  for (const std::string& line : session.lines) {
    EXPECT_EQ(line.find("Unknown status"), std::string::npos) << line;
    EXPECT_EQ(line.rfind(tid, 0), 0u) << line;
  }
  for (uint32_t status : {20, 21, 30, 31, 40, 41}) EXPECT_TRUE(session.Has(status)) << status;
  EXPECT_EQ(session.m_pReportWnd, nullptr);

  // Without the callback nothing is reported.
  WatchedSession quiet;
  try {
    quiet.GetFtpConnection(L"127.0.0.1", Wide(FtpTestServer::kUser), L"wrong password", server->Port(), true);
    FAIL() << "login with a wrong password succeeded";
  } catch (const inet::CInternetException& e) {
    EXPECT_TRUE(e.m_dwError == 12014 || e.m_dwError == 12015) << e.m_dwError;
    std::wstring text;
    ASSERT_TRUE(e.GetErrorMessage(text));
    EXPECT_EQ(wxString(text), InternetErrorString(static_cast<int32_t>(e.m_dwError)));
  }
  EXPECT_TRUE(quiet.statuses.empty());
  server.reset();
  testing::RemoveTree(root);
}

}  // namespace
}  // namespace ftpzn
