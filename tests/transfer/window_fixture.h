// The GUI transfer tests' fixture: a main window over a fresh local
// directory, with vsftpd serving the shared tree, and its log-in.
#pragma once

#include <gtest/gtest.h>

#include "connection/myinternetsession.h"
#include "gui_harness.h"
#include "mainwnd/dlgftpmainwnd.h"
#include "transfer_support.h"

namespace ftpzn::test {

// Logs the window in to the test server on `port` as its Connect command
// would (one attempt, passive), without the site manager.
inline void LogIn(CDlgFTPMainWnd& window, uint16_t port) {
  window.m_pInetSession = std::make_unique<CMyInternetSession>();
  window.m_pFtpConnection = window.m_pInetSession->GetFtpConnection(
      L"127.0.0.1", wxString(testing::FtpTestServer::kUser).ToStdWstring(),
      wxString(testing::FtpTestServer::kPassword).ToStdWstring(), port, true);
  window.m_strServerName = "127.0.0.1";
  window.m_site.m_strLogin = testing::FtpTestServer::kUser;
  window.m_site.m_strPassword = testing::FtpTestServer::kPassword;
  window.m_site.m_nPort = port;
  window.m_site.m_bPassive = 1;
  window.m_site.m_nRetries = 1;
}

class WindowTest : public ::testing::Test {
 protected:
  void SetUp() override {
    testing::SharedFtpServer& shared = TransferServer(testing::FtpServerKind::Vsftpd);
    ASSERT_TRUE(shared.server) << shared.error;
    m_root = shared.root;
    m_port = shared.server->Port();
    m_local = MakeTempDir("ftpzn-window-");
    m_window = new CDlgFTPMainWnd;
    m_window->m_strLocalDir = wxString::FromUTF8(m_local);
    ASSERT_TRUE(m_window->Create());
    m_window->Show();
    PumpFor(30);
  }
  void TearDown() override {
    DialogScript::VerifyAndClear();
    if (m_window) {
      m_window->Disconnect();
      m_window->Destroy();
    }
    PumpFor(20);
  }

  std::string m_root;
  std::string m_local;
  uint16_t m_port = 0;
  CDlgFTPMainWnd* m_window = nullptr;
};

}  // namespace ftpzn::test
