// The main window's Connect and Disconnect: the site manager's choice
// becomes the current site, the host address becomes a server name, and the
// login is tried a fixed number of times with a pause dialog between tries.
#include <wx/utils.h>

#include <new>

#include "connection/myinternetsession.h"
#include "inet/inet.h"
#include "mainwnd/dlgftpmainwnd.h"
#include "platform/threadid.h"
#include "sites/dlgconnect.h"
#include "ui/dialogs.h"
#include "ui/dlgcertificate.h"
#include "ui/dlgwaitmessage.h"

using ftpzn::inet::CFtpConnection;
using ftpzn::inet::CInternetException;

namespace {

// The first platform read these texts into fixed buffers of 255 characters.
wxString Clip255(const wxString& text) { return text.length() > 254 ? text.Left(254) : text; }

}  // namespace

void CDlgFTPMainWnd::OnConnect(wxCommandEvent&) {
  CDlgConnect dialog(this);
  if (dialog.ShowModal() != ftpzn::kResultOk) return;
  dialog.CopyChosenSiteInto(m_site);
  // The account is one of the site's text fields too; it is kept, not sent.
  m_site.m_strAccount = dialog.m_strAccount;
  if (!m_site.m_strInitialPath.empty()) {
    m_site.m_strInitialPath.Replace("\\", "/");
    wxString relative = m_site.m_strInitialPath;
    while (relative.StartsWith("/")) relative.Remove(0, 1);
    m_site.m_strHost += "/" + relative;
  }
  m_strRemoteDir = m_site.m_strInitialPath;
  Disconnect();
  ConnectRoutine();
  // Listed whatever the outcome: without a connection the pane shows nothing.
  m_ctrlRemote.FillDirectory(m_site.m_strInitialPath, m_pFtpConnection.get(), true);
}

void CDlgFTPMainWnd::ConnectRoutine() {
  wxBusyCursor wait;
  m_pInetSession.reset(new (std::nothrow) ftpzn::CMyInternetSession(L"ftpzn", 1, 0, nullptr, nullptr, 0));
  if (!m_pInetSession) {
    AddTrace(0, 0, "Open internet session failed");
    return;
  }
  m_pInetSession->m_pReportWnd = this;
  m_pInetSession->m_askTrust = [this](const ftpzn::TrustQuestion& question) {
    return CDlgCertificate::Ask(this, question);
  };
  m_pInetSession->EnableStatusCallback(true);

  uint32_t service = 0;
  std::wstring server, object;
  uint16_t port = 0;
  const wxString host = m_site.m_strHost;
  bool parsed = ftpzn::inet::ParseURL(host.ToStdWstring(), service, server, object, port);
  for (const wxString scheme : {"ftp://", "http://"}) {
    if (parsed) break;
    if (ftpzn::inet::ParseURL((scheme + host).ToStdWstring(), service, server, object, port)) {
      parsed = true;
      m_site.m_strHost = scheme + host;
    }
  }
  if (!parsed) {
    ftpzn::MessageBox("Please enter a valid FTP URL ...\n", 0, this);
    return;
  }
  m_strServerName = server;
  const unsigned long tid = ftpzn::CurrentThreadId();
  // "ftpes://" and "ftps://" are FTP over TLS, explicit and implicit.
  m_tlsMode = ftpzn::inet::TlsModeForService(service);
  const bool ftp = service == ftpzn::inet::AFX_INET_SERVICE_FTP || m_tlsMode != ftpzn::inet::TlsMode::None;
  if (!ftp || m_strServerName.empty()) {
    ftpzn::MessageBox("Please enter a valid FTP URL", 0, this);
  } else {
    const int attempts = m_site.m_nRetries;
    int remaining = attempts;
    while (remaining >= 1) {
      --remaining;
      AddTrace(0, 0,
               wxString::Format("[%d] Connecting to: %s (Attempt %d of %d)", static_cast<int>(tid),
                                m_strServerName, attempts - remaining, attempts));
      try {
        m_pFtpConnection = m_pInetSession->GetFtpConnection(
            m_strServerName.ToStdWstring(), m_site.m_strLogin.ToStdWstring(),
            m_site.m_strPassword.ToStdWstring(), static_cast<uint16_t>(m_site.m_nPort), m_site.m_bPassive != 0,
            m_tlsMode);
        break;
      } catch (const CInternetException& e) {
        const wxString response = Clip255(ftpzn::inet::InternetGetLastResponseInfo());
        // An attempt that left no reply text is passed over without a word.
        if (response.empty()) continue;
        AddTrace(0, 0, wxString::Format("[%d] %s", static_cast<int>(tid), response));
        std::wstring text;
        e.GetErrorMessage(text);
        const wxString error = Clip255(text);
        if (!error.empty()) {
          AddTrace(0, 0, error);
          if (remaining == 0) {
            ftpzn::MessageBox(response + "\r\n" + error, 0, this);
          } else {
            CDlgWaitMessage pause(this);
            pause.m_nSeconds = m_site.m_nRetryDelay;
            pause.m_strMessage = error;
            if (pause.ShowModal() != ftpzn::kResultOk) remaining = 0;
          }
        } else {
          remaining = 0;
          ftpzn::MessageBox("An exception occurred when attempting to create an FTP connection", 0, this);
        }
        m_pFtpConnection.reset();
      }
    }
  }
  if (m_pFtpConnection) {
    AddTrace(0, 0, wxString::Format("[%d] Successfully connected to:%s", static_cast<int>(tid), m_strServerName));
    if (const ftpzn::inet::TlsPeerInfo* tls = m_pFtpConnection->GetTlsInfo()) {
      AddTrace(0, 0, wxString::Format("[%d] %s, %s", static_cast<int>(tid), tls->protocol, tls->cipher));
      // Workers accept this certificate too, and no other the system does
      // not trust.
      if (tls->problem != 0) m_strAcceptedCertificate = tls->fingerprint;
    }
    ShowEncryption();
  } else
    AddTrace(0, 0, wxString::Format("[%d] Failed in connecting to: %s ", static_cast<int>(tid), m_strServerName));
}

void CDlgFTPMainWnd::Disconnect() {
  const unsigned long tid = ftpzn::CurrentThreadId();
  // The workers' connections kept for the next transfer go too: a
  // disconnect, a new site and Exit all leave nothing open on the server.
  ftpzn::inet::EmptyConnectionPool();
  if (m_pFtpConnection) {
    // The pane holds the connection without owning it.
    if (m_ctrlRemote.m_pConnection == m_pFtpConnection.get()) m_ctrlRemote.m_pConnection = nullptr;
    m_pFtpConnection->Close();
    m_pFtpConnection.reset();
    AddTrace(0, tid, "Closed Ftp connection");
  }
  if (m_pInetSession) {
    m_pInetSession->Close();
    m_pInetSession.reset();
    AddTrace(0, tid, "Close Ftp session");
  }
  if (m_ctrlRemote.GetHandle()) m_ctrlRemote.DeleteAllItems();
  m_strAcceptedCertificate.clear();
  if (m_tlsIndicator) ShowEncryption();
}

bool CDlgFTPMainWnd::CheckConnection() {
  if (!m_pFtpConnection) return false;
  std::wstring directory;
  if (m_pFtpConnection->GetCurrentDirectory(directory)) return true;
  if (m_ctrlRemote.m_pConnection == m_pFtpConnection.get()) m_ctrlRemote.m_pConnection = nullptr;
  m_pFtpConnection->Close();
  m_pFtpConnection.reset();
  ShowEncryption();
  return false;
}
