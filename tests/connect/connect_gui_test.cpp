// The main window's Connect, Disconnect and Exit as a user drives them: the
// site manager filled in and confirmed, attempts traced, the pause dialog
// between attempts, the certificate question, and no connection left open
// on the server afterwards.
#include <gtest/gtest.h>
#include <wx/app.h>
#include <wx/choice.h>
#include <wx/textctrl.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
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
using ftpzn::test::ExpectedDialog;
using ftpzn::testing::FtpServerKind;
using ftpzn::testing::FtpTestServer;

ftpzn::testing::SharedFtpServer& ServerFor(FtpServerKind kind, ftpzn::testing::FtpTlsOptions tls = {}) {
  return ftpzn::testing::SharedServer(
      kind, "ftpzn-connect-",
      [](const std::string& root) {
        for (const char* name : {"/pub/a.txt", "/pub/b.bin", "/pub/data/inside.txt", "/pub/empty/"}) {
          std::filesystem::create_directories(std::filesystem::path(root + name).parent_path());
          if (name[std::strlen(name) - 1] != '/') std::ofstream(root + name) << name;
        }
      },
      tls);
}

// What the user types into "FTP Sites" before pressing Connect.
struct SiteInput {
  wxString host = "127.0.0.1";
  int port = 21;
  wxString login = FtpTestServer::kUser;
  wxString password = FtpTestServer::kPassword;
  wxString path = "/pub";
  int retries = 3;
  int delay = 7;
  wxString account;
  int security = -1;  // the encryption choice made after the host is typed; -1: left alone
};

void ExpectSiteManager(const SiteInput& in) {
  ExpectedDialog expected;
  expected.description = "FTP Sites";
  expected.interact = [in](wxDialog* d) {
    ASSERT_NE(dynamic_cast<CDlgConnect*>(d), nullptr);
    const std::pair<int, wxString> fields[] = {
        {CDlgConnect::IDC_HOST, in.host},
        {CDlgConnect::IDC_PORT, wxString::Format("%d", in.port)},
        {CDlgConnect::IDC_LOGIN, in.login},
        {CDlgConnect::IDC_PASSWORD, in.password},
        {CDlgConnect::IDC_INITIAL_PATH, in.path},
        {CDlgConnect::IDC_RETRIES, wxString::Format("%d", in.retries)},
        {CDlgConnect::IDC_ACCOUNT, in.account},
        {CDlgConnect::IDC_RETRY_DELAY, wxString::Format("%d", in.delay)}};
    for (const auto& [id, value] : fields) {
      auto* text = dynamic_cast<wxTextCtrl*>(d->FindWindow(id));
      ASSERT_NE(text, nullptr) << id;
      text->SetValue(value);
    }
    if (in.security >= 0) {
      auto* choice = dynamic_cast<wxChoice*>(d->FindWindow(CDlgConnect::IDC_SECURITY));
      ASSERT_NE(choice, nullptr);
      choice->SetSelection(in.security);
      wxCommandEvent chosen(wxEVT_CHOICE, CDlgConnect::IDC_SECURITY);
      chosen.SetInt(in.security);
      chosen.SetEventObject(choice);
      choice->GetEventHandler()->ProcessEvent(chosen);
    }
    wxCommandEvent click(wxEVT_BUTTON, 1);
    click.SetEventObject(d->FindWindow(1));
    d->FindWindow(1)->GetEventHandler()->ProcessEvent(click);
  };
  DialogScript::Expect(expected);
}

// Sockets of this machine connected to or from `port` (either side).
int EstablishedOn(uint16_t port) {
  const std::string command = "ss -Htn state established '( sport = :" + std::to_string(port) +
                              " or dport = :" + std::to_string(port) + " )'";
  std::unique_ptr<FILE, int (*)(FILE*)> ss(popen(command.c_str(), "r"), pclose);
  int lines = 0;
  for (int c; ss && (c = fgetc(ss.get())) != EOF;) lines += c == '\n';
  return lines;
}

class ConnectTest : public testing::TestWithParam<FtpServerKind> {
 protected:
  void SetUp() override {
    ftpzn::testing::SharedFtpServer& served = ServerFor(GetParam());
    ASSERT_TRUE(served.server) << served.error;
    m_port = served.server->Port();
    // The site manager reads and writes its site file in a scratch folder.
    ftpzn::SetModuleDirectoryForTesting(
        wxString::FromUTF8(ftpzn::test::MakeTempDir("ftpzn-connect-sites-") + "/"));
    m_window = std::make_unique<CDlgFTPMainWnd>();
    ASSERT_TRUE(m_window->Create());
    m_window->Show();
    m_tid = wxString::Format("[%d] ", static_cast<int>(ftpzn::CurrentThreadId()));
  }
  void TearDown() override {
    if (m_window) m_window->Disconnect();
    m_window.reset();
    DialogScript::VerifyAndClear();
  }
  SiteInput Site(int retries = 3, const wxString& password = FtpTestServer::kPassword) const {
    SiteInput in;
    in.port = m_port;
    in.retries = retries;
    in.password = password;
    return in;
  }
  void Menu(int id) {
    wxCommandEvent command(wxEVT_MENU, id);
    command.SetEventObject(m_window.get());
    m_window->ProcessWindowEvent(command);
  }
  // The site manager answered with `in`, and what follows expected before.
  void Connect(const SiteInput& in, const std::function<void()>& expectAfter = {}) {
    ExpectSiteManager(in);
    if (expectAfter) expectAfter();
    Menu(CDlgFTPMainWnd::ID_CONNECT);
  }
  // The trace lines, each behind the thread's number.
  wxString Lines(std::initializer_list<wxString> lines) const {
    wxString text;
    for (const wxString& line : lines) text << m_tid << line << " \n";
    return text;
  }
  wxString Trace() const { return m_window->m_strRemoteTrace; }
  std::vector<wxString> RemoteNames() const {
    std::vector<wxString> names;
    for (int i = 0; i < m_window->m_ctrlRemote.GetItemCount(); ++i)
      names.push_back(m_window->m_ctrlRemote.GetItemText(i));
    return names;
  }
  bool NoConnectionsLeft() const {
    return ftpzn::test::PumpUntil([&] { return EstablishedOn(m_port) == 0; }, 5000);
  }

  uint16_t m_port = 0;
  std::unique_ptr<CDlgFTPMainWnd> m_window;
  wxString m_tid;
};

TEST_P(ConnectTest, ConnectReconnectDisconnectAndExit) {
  SiteInput first = Site();
  first.account = "acct-7";
  Connect(first);
  ASSERT_NE(m_window->m_pFtpConnection, nullptr);
  EXPECT_EQ(Trace(),
            Lines({"Connecting to: 127.0.0.1 (Attempt 1 of 3)", "Successfully connected to:127.0.0.1"}));
  EXPECT_EQ(m_window->m_strServerName, "127.0.0.1");
  EXPECT_EQ(m_window->m_site.m_strHost, "ftp://127.0.0.1/pub") << "the scheme and the path were added";
  EXPECT_EQ(m_window->m_strRemoteDir, "/pub");
  EXPECT_EQ(m_window->m_editRemoteDir->GetValue(), "/pub");
  EXPECT_EQ(m_window->m_site.m_strAccount, "acct-7") << "every text field of the chosen site is taken";
  std::vector<wxString> names = RemoteNames();
  std::sort(names.begin() + 1, names.end());
  EXPECT_EQ(names, (std::vector<wxString>{"..Up", "a.txt", "b.bin", "data", "empty"}));
  EXPECT_TRUE(m_window->CheckConnection());
  EXPECT_EQ(EstablishedOn(m_port), 2) << "one control connection, seen from both ends";

  // Connect while connected closes the old connection first.
  SiteInput again = Site();
  again.path = "\\pub\\data";
  Connect(again);
  const wxString second = Trace().Mid(Trace().Find("Successfully") + 1);
  EXPECT_TRUE(second.Contains(Lines({"Closed Ftp connection", "Close Ftp session"}) + m_tid +
                              "Connecting to: 127.0.0.1 (Attempt 1 of 3)"))
      << Trace();
  EXPECT_EQ(m_window->m_site.m_strInitialPath, "/pub/data") << "backslashes become slashes";
  EXPECT_EQ(m_window->m_site.m_strHost, "ftp://127.0.0.1/pub/data");
  EXPECT_EQ(m_window->m_strRemoteDir, "/pub/data");
  EXPECT_EQ(RemoteNames(), (std::vector<wxString>{"..Up", "inside.txt"}));
  EXPECT_EQ(EstablishedOn(m_port), 2);

  // Disconnect: two trace lines, an empty pane, nothing left on the server.
  size_t before = Trace().length();
  Menu(CDlgFTPMainWnd::ID_DISCONNECT);
  EXPECT_EQ(Trace().Mid(before), Lines({"Closed Ftp connection", "Close Ftp session"}));
  EXPECT_EQ(m_window->m_pFtpConnection, nullptr);
  EXPECT_EQ(m_window->m_ctrlRemote.GetItemCount(), 0);
  EXPECT_TRUE(NoConnectionsLeft());
  EXPECT_FALSE(m_window->CheckConnection());

  // Exit disconnects too, and ends the session.
  Connect(Site());
  ASSERT_NE(m_window->m_pFtpConnection, nullptr);
  before = Trace().length();
  Menu(CDlgFTPMainWnd::ID_EXIT);
  EXPECT_EQ(m_window->m_pFtpConnection, nullptr);
  EXPECT_EQ(m_window->m_pInetSession, nullptr);
  EXPECT_EQ(Trace().Mid(before), Lines({"Closed Ftp connection", "Close Ftp session"}));
  EXPECT_TRUE(NoConnectionsLeft());
}

TEST_P(ConnectTest, ABadPasswordPausesAndCancellingThePauseEndsTheAttempts) {
  Connect(Site(3, "wrong"), [] {
    DialogScript::ExpectModal<CDlgWaitMessage>(2, [](CDlgWaitMessage* pause) {
      EXPECT_EQ(pause->m_nSeconds, 7);
      EXPECT_FALSE(pause->m_strMessage.empty());
    });
  });
  EXPECT_EQ(m_window->m_pFtpConnection, nullptr);
  EXPECT_TRUE(Trace().StartsWith(Lines({"Connecting to: 127.0.0.1 (Attempt 1 of 3)"}) + m_tid + "530"))
      << Trace();
  EXPECT_FALSE(Trace().Contains("Attempt 2")) << "Cancel in the pause ends the attempts";
  EXPECT_TRUE(Trace().EndsWith(Lines({"Failed in connecting to: 127.0.0.1 "}))) << Trace();
  EXPECT_TRUE(DialogScript::MessageBoxTexts().empty()) << "no message box after a cancelled pause";
  EXPECT_EQ(m_window->m_ctrlRemote.GetItemCount(), 0);
  EXPECT_TRUE(NoConnectionsLeft());

  // The last failed attempt shows the reply and the error text.
  Connect(Site(1, "wrong"), [] { DialogScript::ExpectMessageBox(); });
  ASSERT_EQ(DialogScript::MessageBoxTexts().size(), 1u);
  const wxString box = DialogScript::MessageBoxTexts()[0];
  EXPECT_TRUE(box.StartsWith("530")) << box;
  EXPECT_TRUE(box.Contains("\r\nThe request to connect")) << box;
  EXPECT_TRUE(Trace().Contains("Attempt 1 of 1"));
}

// No attempt at all with no retries or a site that is no FTP URL; a
// server nobody serves traces the reason and pauses.
TEST_P(ConnectTest, RefusedSitesAndAnUnreachableServer) {
  Connect(Site(0));
  EXPECT_EQ(Trace(), Lines({"Failed in connecting to: 127.0.0.1 "}));
  EXPECT_EQ(m_window->m_pFtpConnection, nullptr);

  SiteInput web = Site();
  web.host = "http://127.0.0.1";
  web.path = "";
  Connect(web, [] { DialogScript::ExpectMessageBox(); });
  EXPECT_EQ(DialogScript::MessageBoxTexts(), std::vector<wxString>{"Please enter a valid FTP URL"});
  EXPECT_TRUE(Trace().EndsWith(Lines({"Failed in connecting to: 127.0.0.1 "}))) << Trace();
  EXPECT_FALSE(Trace().Contains("Attempt"));

  // Not a URL even with a scheme put in front: the other text, no trace
  // line of the routine's own, the session left open.
  web.host = "[::1";
  Connect(web, [] { DialogScript::ExpectMessageBox(); });
  ASSERT_EQ(DialogScript::MessageBoxTexts().size(), 2u);
  EXPECT_EQ(DialogScript::MessageBoxTexts()[1], "Please enter a valid FTP URL ...\n");
  EXPECT_TRUE(Trace().EndsWith("Failed in connecting to: 127.0.0.1  \n" + Lines({"Close Ftp session"})))
      << Trace();
  EXPECT_NE(m_window->m_pInetSession, nullptr);
  EXPECT_EQ(m_window->m_pFtpConnection, nullptr);

  SiteInput in = Site();
  in.port = ftpzn::testing::ClosedPort();
  Connect(in, [] {
    DialogScript::ExpectModal<CDlgWaitMessage>(2, [](CDlgWaitMessage* pause) {
      EXPECT_EQ(pause->m_strMessage, "The attempt to connect to the server failed.");
    });
  });
  EXPECT_EQ(m_window->m_pFtpConnection, nullptr);
  EXPECT_TRUE(Trace().EndsWith(
      Lines({"Connecting to: 127.0.0.1 (Attempt 1 of 3)",
             wxString::Format("connect to 127.0.0.1 port %d: Connection refused", in.port)}) +
      "The attempt to connect to the server failed. \n" + Lines({"Failed in connecting to: 127.0.0.1 "})))
      << Trace();
  EXPECT_EQ(DialogScript::MessageBoxTexts().size(), 2u);
}

INSTANTIATE_TEST_SUITE_P(Servers, ConnectTest,
                         testing::Values(FtpServerKind::Vsftpd, FtpServerKind::PureFtpd),
                         [](const testing::TestParamInfo<FtpServerKind>& info) {
                           return std::string(ftpzn::testing::FtpServerName(info.param));
                         });

// A server with a self-signed certificate reached by choosing explicit TLS
// in the site manager: the question with each of its answers, what
// "Always trust" keeps, and a kept certificate that no longer matches.
class TlsConnectTest : public ConnectTest {
 protected:
  void SetUp() override {
    ConnectTest::SetUp();
    ftpzn::testing::SharedFtpServer& served =
        ServerFor(FtpServerKind::Vsftpd,
                  {ftpzn::testing::FtpTlsMode::Explicit, ftpzn::testing::TestCertKind::SelfSigned});
    ASSERT_TRUE(served.server) << served.error;
    m_port = served.server->Port();
  }
};

TEST_P(TlsConnectTest, EncryptionChoiceAndEachTrustAnswer) {
  struct Row {
    const char* name;
    int button;
    bool keptBefore;  // another certificate was kept for this host and port
    bool connected;
    bool keptAfter;  // this certificate is kept afterwards
  };
  const Row rows[] = {
      {"cancel", ftpzn::kResultCancel, false, false, false},
      {"once", CDlgCertificate::ID_TRUST_ONCE, false, true, false},
      {"always", CDlgCertificate::ID_TRUST_ALWAYS, false, true, true},
      {"changed", CDlgCertificate::ID_TRUST_ONCE, true, true, false},
  };
  const wxString other = wxString('A', 32 * 3 - 1);
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    ftpzn::KeepCertificate("127.0.0.1", m_port, row.keptBefore ? other : wxString());
    SiteInput in = Site(1);
    in.security = 1;
    Connect(in, [&] {
      DialogScript::ExpectModal<CDlgCertificate>(row.button, [&](CDlgCertificate* d) {
        EXPECT_EQ(d->GetTitle(), row.keptBefore ? "Certificate changed" : "Certificate not trusted");
        auto* why = d->FindWindow(CDlgCertificate::IDC_WHY);
        ASSERT_NE(why, nullptr);
        EXPECT_TRUE(why->GetLabel().Contains("self-signed")) << why->GetLabel();
      });
      if (!row.connected) DialogScript::ExpectMessageBox();
    });
    EXPECT_EQ(m_window->m_site.m_strHost, "ftpes://127.0.0.1/pub") << "the choice wrote the scheme";
    ASSERT_EQ(m_window->m_pFtpConnection != nullptr, row.connected) << Trace();
    wxString fingerprint;
    if (row.connected) {
      EXPECT_TRUE(Trace().Contains(m_tid + "TLS 1.3, TLS_")) << Trace();
      EXPECT_TRUE(m_window->m_tlsIndicator->IsShown());
      EXPECT_TRUE(m_window->m_tlsIndicator->GetToolTipText().Contains("CN=localhost"));
      EXPECT_EQ(RemoteNames().size(), 5u) << "listed over TLS";
      fingerprint = wxString::FromUTF8(m_window->m_pFtpConnection->GetTlsInfo()->fingerprint);
      EXPECT_EQ(wxString::FromUTF8(m_window->m_strAcceptedCertificate), fingerprint) << "for the workers";
    } else {
      EXPECT_TRUE(Trace().Contains("not trusted")) << Trace();
      EXPECT_FALSE(m_window->m_tlsIndicator->IsShown());
    }
    EXPECT_EQ(ftpzn::KnownCertificate("127.0.0.1", m_port), row.keptAfter    ? fingerprint
                                                            : row.keptBefore ? other
                                                                             : wxString());
    DialogScript::VerifyAndClear();
    if (row.keptAfter) {
      Connect(in);  // kept: no question this time
      EXPECT_NE(m_window->m_pFtpConnection, nullptr);
      DialogScript::VerifyAndClear();
    }
    m_window->Disconnect();
    EXPECT_FALSE(m_window->m_tlsIndicator->IsShown());
  }
}

INSTANTIATE_TEST_SUITE_P(Vsftpd, TlsConnectTest, testing::Values(FtpServerKind::Vsftpd));

}  // namespace
