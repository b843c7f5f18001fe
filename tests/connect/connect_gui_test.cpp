// The main window's Connect, Disconnect and Exit as a user drives them: the
// site manager filled in and confirmed, attempts traced, the pause dialog
// between attempts, the certificate question, and no session left open on
// the server afterwards.
#include <gtest/gtest.h>
#include <wx/choice.h>
#include <wx/textctrl.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>

#include "connection/certtrust.h"
#include "ftp_servers.h"
#include "gui_harness.h"
#include "mainwnd/dlgftpmainwnd.h"
#include "platform/threadid.h"
#include "sites/dlgconnect.h"
#include "sites/sitefile.h"
#include "ui/dlgcertificate.h"
#include "ui/dlgwaitmessage.h"

namespace {

using ftpzn::test::DialogScript;
using ftpzn::testing::FtpServerKind;
using ftpzn::testing::FtpTestServer;
using C = CDlgConnect;
using Fields = std::map<int, wxString>;  // the site manager's controls by id and what is typed or chosen

class ConnectTest : public testing::TestWithParam<FtpServerKind> {
 protected:
  void SetUp() override {
    using namespace ftpzn::testing;
    SharedFtpServer& served = SharedServer(
        m_tls ? FtpServerKind::Vsftpd : GetParam(), "ftpzn-connect-",
        [](const std::string& root) {
          for (const std::string name : {"pub/a.txt", "pub/b.bin", "pub/data/inside.txt", "pub/empty/"}) {
            std::filesystem::create_directories(std::filesystem::path(root + "/" + name).parent_path());
            if (!name.ends_with('/')) std::ofstream(root + "/" + name) << name;
          }
        },
        m_tls ? FtpTlsOptions{FtpTlsMode::Explicit, TestCertKind::SelfSigned} : FtpTlsOptions{});
    ASSERT_TRUE(served.server) << served.error;
    m_server = served.server.get();
    // The site manager reads and writes its site file in a scratch folder.
    ftpzn::SetModuleDirectoryForTesting(wxString::FromUTF8(ftpzn::test::MakeTempDir("ftpzn-connect-sites-") + "/"));
    m_window = std::make_unique<CDlgFTPMainWnd>();
    ASSERT_TRUE(m_window->Create() && m_window->Show());
    m_tid = wxString::Format("[%d] ", static_cast<int>(ftpzn::CurrentThreadId()));
  }
  void TearDown() override {
    if (m_window) m_window->Disconnect();
    m_window.reset();
    DialogScript::VerifyAndClear();
  }
  // What the user types into "FTP Sites": this server's site with `changes`.
  Fields Site(const Fields& changes = {}) const {
    Fields site = {{C::IDC_HOST, "127.0.0.1"},     {C::IDC_PORT, wxString::Format("%d", m_server->Port())},
                   {C::IDC_LOGIN, FtpTestServer::kUser}, {C::IDC_PASSWORD, FtpTestServer::kPassword},
                   {C::IDC_INITIAL_PATH, "/pub"},  {C::IDC_RETRIES, "3"},
                   {C::IDC_ACCOUNT, ""},           {C::IDC_RETRY_DELAY, "7"}};
    for (const auto& [id, value] : changes) site[id] = value;
    return site;
  }
  // Runs a menu command; returns the trace lines it added.
  wxString Menu(int id) {
    const size_t before = m_window->m_strRemoteTrace.length();
    wxCommandEvent command(wxEVT_MENU, id);
    m_window->ProcessWindowEvent(command);
    return m_window->m_strRemoteTrace.Mid(before);
  }
  // Connect, the site manager shown for real and filled in with `site`
  // (the encryption chosen after the host), then the dialogs `expectAfter`
  // expects.
  wxString Connect(const Fields& site, const std::function<void()>& expectAfter = {}) {
    DialogScript::Expect({.description = "FTP Sites", .answer = {}, .interact = [site](wxDialog* d) {
                            ASSERT_NE(dynamic_cast<CDlgConnect*>(d), nullptr);
                            for (const auto& [id, value] : site) {
                              auto* choice = dynamic_cast<wxChoice*>(d->FindWindow(id));
                              auto* text = dynamic_cast<wxTextCtrl*>(d->FindWindow(id));
                              ASSERT_TRUE(text || choice) << "no control " << id;
                              if (text) text->SetValue(value);
                              if (!choice) continue;
                              wxCommandEvent chosen(wxEVT_CHOICE, id);
                              chosen.SetInt(wxAtoi(value));
                              choice->SetSelection(wxAtoi(value));
                              choice->ProcessWindowEvent(chosen);
                            }
                            wxCommandEvent click(wxEVT_BUTTON, ftpzn::kResultOk);
                            d->FindWindow(ftpzn::kResultOk)->ProcessWindowEvent(click);
                          }});
    if (expectAfter) expectAfter();
    return Menu(CDlgFTPMainWnd::ID_CONNECT);
  }
  // Trace lines (split by '|'), each behind the thread's number.
  wxString Lines(const wxString& lines) const {
    wxString text;
    for (const wxString& line : wxSplit(lines, '|', 0)) text << m_tid << line << " \n";
    return text;
  }
  // What the window holds of the connection: server, site address, account,
  // remote folder (kept and in the path box), whether connected, and the
  // pane's rows (after the first, sorted: the servers' orders differ).
  std::string State() const {
    CDlgFTPMainWnd& w = *m_window;
    std::vector<wxString> names;
    for (int i = 0; i < w.m_ctrlRemote.GetItemCount(); ++i) names.push_back(w.m_ctrlRemote.GetItemText(i));
    std::sort(names.begin() + std::min<size_t>(1, names.size()), names.end());
    wxString state = w.m_strServerName + " " + w.m_site.m_strHost + " " + w.m_site.m_strAccount + " " +
                     w.m_strRemoteDir + " " + w.m_editRemoteDir->GetValue() + (w.m_pFtpConnection ? " on |" : " off |");
    for (const wxString& name : names) state << " " << name;
    return state.utf8_string();
  }
  bool Sessions(int count) const { return m_server->WaitForSessionCount(count, std::chrono::seconds(5)); }

  bool m_tls = false;
  FtpTestServer* m_server = nullptr;
  std::unique_ptr<CDlgFTPMainWnd> m_window;
  wxString m_tid;
};

TEST_P(ConnectTest, ConnectReconnectDisconnectAndExit) {
  const wxString connected = "Connecting to: 127.0.0.1 (Attempt 1 of 3)|Successfully connected to:127.0.0.1",
                 closed = "Closed Ftp connection|Close Ftp session";
  // The account is kept with the site, not sent.
  EXPECT_EQ(Connect(Site({{C::IDC_ACCOUNT, "acct-7"}})), Lines(connected));
  EXPECT_EQ(State(), "127.0.0.1 ftp://127.0.0.1/pub acct-7 /pub /pub on | ..Up a.txt b.bin data empty");
  EXPECT_TRUE(m_window->CheckConnection());
  EXPECT_TRUE(Sessions(1));
  // Connect while connected closes the old connection first; backslashes
  // in the path become slashes.
  EXPECT_EQ(Connect(Site({{C::IDC_INITIAL_PATH, "\\pub\\data"}})), Lines(closed + "|" + connected));
  EXPECT_EQ(State(), "127.0.0.1 ftp://127.0.0.1/pub/data  /pub/data /pub/data on | ..Up inside.txt");
  EXPECT_TRUE(Sessions(1));
  // Disconnect and Exit each close the connection and the session, empty
  // the pane and leave nothing open on the server.
  for (int id : {CDlgFTPMainWnd::ID_DISCONNECT, CDlgFTPMainWnd::ID_EXIT}) {
    if (id == CDlgFTPMainWnd::ID_EXIT) Connect(Site());
    EXPECT_EQ(Menu(id), Lines(closed)) << id;
    EXPECT_EQ(m_window->m_pInetSession, nullptr);
    EXPECT_TRUE(State().ends_with(" off |")) << State();
    EXPECT_FALSE(m_window->CheckConnection());
    EXPECT_TRUE(Sessions(0));
  }
}

// Sites that get no connection: the pause between attempts (cancelled),
// the message box, and the trace from the attempt on. "*" stands for the
// server's own words and the refused port.
TEST_P(ConnectTest, FailedConnections) {
  struct Row {
    const char* name;
    Fields changes;
    const char *pause, *box;  // their texts, "" for none
    wxString trace;           // lines split by '|'
  };
  const wxString failed = "Failed in connecting to: 127.0.0.1 ", attempt = "Connecting to: 127.0.0.1 (Attempt 1 of ",
                 closedPort = wxString::Format("%d", ftpzn::testing::ClosedPort());
  const char* why = "The attempt to connect to the server failed.";
  const Row rows[] = {
      {"no retries", {{C::IDC_RETRIES, "0"}}, "", "", failed},
      {"no FTP URL", {{C::IDC_HOST, "http://127.0.0.1"}}, "", "Please enter a valid FTP URL", failed},
      {"no URL", {{C::IDC_HOST, "[::1"}}, "", "Please enter a valid FTP URL ...\n", ""},
      {"refused", {{C::IDC_PORT, closedPort}}, why, "",
       attempt + "3)|connect to 127.0.0.1 port *: Connection refused \n" + why + "|" + failed},
      {"bad password", {{C::IDC_PASSWORD, "wrong"}}, "?*", "", attempt + "3)|530 *|" + failed},
      {"last attempt", {{C::IDC_PASSWORD, "wrong"}, {C::IDC_RETRIES, "1"}}, "", "530 *\r\nThe request to connect*",
       attempt + "1)|530 *|" + failed},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    Fields site = Site(row.changes);
    site[C::IDC_INITIAL_PATH] = "";
    const wxString trace = Connect(site, [&] {
      if (*row.pause)
        DialogScript::ExpectModal<CDlgWaitMessage>(ftpzn::kResultCancel, [&](CDlgWaitMessage* pause) {
          EXPECT_EQ(pause->m_nSeconds, 7);
          EXPECT_TRUE(pause->m_strMessage.Matches(row.pause)) << pause->m_strMessage;
        });
      if (*row.box) DialogScript::ExpectMessageBox();
    });
    EXPECT_TRUE(trace.Matches(Lines(row.trace))) << trace;
    wxString boxes;
    for (const wxString& box : DialogScript::MessageBoxTexts()) boxes << box;
    EXPECT_TRUE(boxes.Matches(row.box)) << boxes;
    EXPECT_TRUE(State().ends_with(" off |")) << State();
    DialogScript::VerifyAndClear();
    EXPECT_TRUE(Sessions(0));
    m_window->Disconnect();
  }
}

INSTANTIATE_TEST_SUITE_P(Servers, ConnectTest, testing::Values(FtpServerKind::Vsftpd, FtpServerKind::PureFtpd),
                         [](const auto& info) { return std::string(ftpzn::testing::FtpServerName(info.param)); });

// A vsftpd with a self-signed certificate reached by choosing explicit TLS
// in the site manager: the question with each answer, what "Always trust"
// keeps, and a kept certificate that no longer matches.
class TlsConnectTest : public ConnectTest {
  void SetUp() override { m_tls = true, ConnectTest::SetUp(); }
};

TEST_P(TlsConnectTest, EncryptionChoiceAndEachTrustAnswer) {
  // keptBefore: another certificate was kept for this host and port;
  // keptAfter: this certificate is kept afterwards.
  const struct {
    const char* name;
    int button;
    bool keptBefore, connected, keptAfter;
  } rows[] = {
      {"cancel", ftpzn::kResultCancel, false, false, false},
      {"once", CDlgCertificate::ID_TRUST_ONCE, false, true, false},
      {"always", CDlgCertificate::ID_TRUST_ALWAYS, false, true, true},
      {"changed", CDlgCertificate::ID_TRUST_ONCE, true, true, false},
  };
  const wxString other = wxString('A', 32 * 3 - 1);
  const Fields site = Site({{C::IDC_RETRIES, "1"}, {C::IDC_SECURITY, "1"}});
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    ftpzn::KeepCertificate("127.0.0.1", m_server->Port(), row.keptBefore ? other : wxString());
    const wxString trace = Connect(site, [&] {
      DialogScript::ExpectModal<CDlgCertificate>(row.button, [&](CDlgCertificate* d) {
        EXPECT_EQ(d->GetTitle(), row.keptBefore ? "Certificate changed" : "Certificate not trusted");
        auto* why = d->FindWindow(CDlgCertificate::IDC_WHY);
        ASSERT_NE(why, nullptr);
        EXPECT_TRUE(why->GetLabel().Contains("self-signed")) << why->GetLabel();
      });
      if (!row.connected) DialogScript::ExpectMessageBox();
    });
    EXPECT_EQ(m_window->m_site.m_strHost, "ftpes://127.0.0.1/pub") << "the choice wrote the scheme";
    ASSERT_EQ(m_window->m_pFtpConnection != nullptr, row.connected) << trace;
    EXPECT_EQ(m_window->m_tlsIndicator->IsShown(), row.connected);
    EXPECT_TRUE(trace.Contains(row.connected ? m_tid + "TLS 1.3, TLS_" : "not trusted")) << trace;
    wxString fingerprint;
    if (row.connected) {
      EXPECT_TRUE(m_window->m_tlsIndicator->GetToolTipText().Contains("CN=localhost"));
      EXPECT_EQ(m_window->m_ctrlRemote.GetItemCount(), 5) << "listed over TLS";
      fingerprint = wxString::FromUTF8(m_window->m_pFtpConnection->GetTlsInfo()->fingerprint);
      EXPECT_EQ(wxString::FromUTF8(m_window->m_strAcceptedCertificate), fingerprint) << "for the workers";
    }
    EXPECT_EQ(ftpzn::KnownCertificate("127.0.0.1", m_server->Port()),
              row.keptAfter ? fingerprint : row.keptBefore ? other : wxString());
    DialogScript::VerifyAndClear();
    if (row.keptAfter) {
      Connect(site);  // kept: no question this time
      EXPECT_NE(m_window->m_pFtpConnection, nullptr);
      DialogScript::VerifyAndClear();
    }
    m_window->Disconnect();
    EXPECT_FALSE(m_window->m_tlsIndicator->IsShown());
  }
}

INSTANTIATE_TEST_SUITE_P(Vsftpd, TlsConnectTest, testing::Values(FtpServerKind::Vsftpd));

}  // namespace
