// The GUI transfer tests' fixture: a main window over a fresh local
// directory, logged in to vsftpd serving the shared tree, and what a test
// does with it.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>

#include "connection/myinternetsession.h"
#include "gui_harness.h"
#include "mainwnd/dlgftpmainwnd.h"
#include "transfer/dlgftptransfermanager.h"
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

// The local directory holds folders c (with inside.txt) and Z, b.txt and
// A.txt; the remote pane lists /cmd.
class WindowTest : public ::testing::Test {
 protected:
  void SetUp() override {
    testing::SharedFtpServer& shared = TransferServer(testing::FtpServerKind::Vsftpd);
    ASSERT_TRUE(shared.server) << shared.error;
    m_root = shared.root;
    m_port = shared.server->Port();
    m_local = MakeTempDir("ftpzn-window-");
    std::filesystem::create_directories(m_local + "/Z");
    WriteBytes(m_local + "/b.txt", "bb");
    WriteBytes(m_local + "/A.txt", std::string(3000, 'a'));
    WriteBytes(m_local + "/c/inside.txt", "i");
    m_window = new CDlgFTPMainWnd;
    m_window->m_strLocalDir = Local();
    ASSERT_TRUE(m_window->Create());
    m_window->Show();
    PumpFor(30);
    m_window->SetLocalDirectory(Local());
    LogIn(*m_window, m_port);
    m_window->m_strRemoteDir = "/cmd";
    ASSERT_EQ(m_window->m_ctrlRemote.FillDirectory("/cmd", m_window->m_pFtpConnection.get(), true), 1);
  }
  void TearDown() override {
    DialogScript::VerifyAndClear();
    if (m_window) {
      m_window->Disconnect();
      m_window->Destroy();
    }
    PumpFor(20);
  }

  wxString Local(const std::string& relative = "") const {
    return wxString::FromUTF8(relative.empty() ? m_local : m_local + "/" + relative);
  }
  CDlgFtpTransferManager& Manager() { return *m_window->m_pTransferManager; }
  void Press(int id) {
    wxCommandEvent event(wxEVT_BUTTON, id);
    event.SetEventObject(m_window);
    m_window->ProcessWindowEvent(event);
  }
  static int Row(const CFtpListzn& pane, const wxString& name) {
    for (int row = 0; row < pane.GetItemCount(); ++row)
      if (pane.GetRowName(row) == name) return row;
    return -1;
  }
  // The names of the rows, in order, one blank between.
  static std::string Rows(const CFtpListzn& pane) {
    wxString names;
    for (int row = 0; row < pane.GetItemCount(); ++row) names << (row ? " " : "") << pane.GetRowName(row);
    return names.utf8_string();
  }
  static void Select(CFtpListzn& pane, std::initializer_list<wxString> names) {
    pane.SetItemState(-1, 0, wxLIST_STATE_SELECTED);
    for (const wxString& name : names)
      pane.SetItemState(Row(pane, name), wxLIST_STATE_SELECTED, wxLIST_STATE_SELECTED);
    ASSERT_EQ(pane.GetSelectedItemCount(), static_cast<int>(names.size()));
  }

  std::string m_root;
  std::string m_local;
  uint16_t m_port = 0;
  CDlgFTPMainWnd* m_window = nullptr;
};

}  // namespace ftpzn::test
