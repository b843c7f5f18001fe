#include "transfer/threadftp.h"

#include <wx/utils.h>

#include <algorithm>
#include <cwchar>
#include <exception>

#include "panes/localfs.h"

namespace inet = ftpzn::inet;
using ftpzn::TransferMessage;

wxIMPLEMENT_DYNAMIC_CLASS(CThreadFtp, wxObject);
wxIMPLEMENT_DYNAMIC_CLASS(CThreadFtpDownload, CThreadFtp);
wxIMPLEMENT_DYNAMIC_CLASS(CThreadFtpUpload, CThreadFtp);

namespace {

wxString Quoted(const wxString& name) { return "\"" + name + "\""; }

constexpr uintptr_t kFileContext = 1;

}  // namespace

// ---- CThreadFtp

CThreadFtp::CThreadFtp() : m_strLocalDir(wxGetHomeDir() + "/") {}

CThreadFtp::~CThreadFtp() = default;

void CThreadFtp::KillThread() {
  m_hEventKill.Set();
  // A thread never started runs now and takes its cancelled path.
  uint32_t previous = 0;
  do {
    previous = ResumeThread();
  } while (previous > 1 && previous != kResumeFailed);
  if (HasStarted()) {
    SetThreadPriority(kPriorityAboveNormal);
    m_hEventDead.Wait();
    WaitForThread();
  }
  delete this;
}

int CThreadFtp::ExitInstance() {
  CloseConnection();
  m_szMessage.reset();
  return WorkerThread::ExitInstance();
}

void CThreadFtp::CloseConnection() {
  if (m_pConnection) {
    m_pConnection->Close();
    m_pConnection.reset();
  }
  if (m_session) m_session->Close();
  m_session.reset();
}

void CThreadFtp::Delete() {
  WorkerThread::Delete();
  m_hEventDead.Set();
}

void CThreadFtp::SetMessage(const wxString& text) {
  if (!m_szMessage) m_szMessage.reset(new wchar_t[kMessageChars]);
  const std::wstring wide = text.ToStdWstring();
  const size_t n = std::min(wide.size(), kMessageChars - 1);
  std::wmemcpy(m_szMessage.get(), wide.data(), n);
  m_szMessage[n] = L'\0';
}

void CThreadFtp::ThrowMessage(const wxString& text) {
  SetMessage(text);
  throw static_cast<const wchar_t*>(m_szMessage.get());
}

void CThreadFtp::OpenSession() {
  m_session = std::make_unique<inet::CInternetSession>(nullptr, 1, inet::INTERNET_OPEN_TYPE_PRECONFIG);
  // One login serves a folder of files: the next worker to the same server
  // takes this one's connection.
  m_session->EnableConnectionPool();
  if (!m_strAcceptedCertificate.empty()) m_session->TrustCertificate(m_strAcceptedCertificate.str().utf8_string());
  if (m_dwTimeout == 0) return;
  m_session->SetOption(inet::INTERNET_OPTION_CONNECT_TIMEOUT, m_dwTimeout);
  m_session->SetOption(inet::INTERNET_OPTION_RECEIVE_TIMEOUT, m_dwTimeout);
  m_session->SetOption(inet::INTERNET_OPTION_SEND_TIMEOUT, m_dwTimeout);
}

void CThreadFtp::Connect(bool upload) {
  // No attempt at all would leave no connection to work on: at least one.
  const uint32_t attempts = std::max<uint32_t>(m_nAttempts, 1);
  for (uint32_t remaining = attempts - 1;; --remaining) {
    try {
      m_pConnection = m_session->GetFtpConnection(
          m_strHost.str().ToStdWstring(), m_strUser.str().ToStdWstring(), m_strPassword.str().ToStdWstring(),
          static_cast<uint16_t>(m_nPort), m_bPassive != 0, m_tlsMode);
      return;
    } catch (const inet::CInternetException& e) {
      m_pConnection.reset();
      std::wstring text;
      if (!e.GetErrorMessage(text))
        text = wxString::Format("Internet Exception Error %d", static_cast<int>(e.m_dwError)).ToStdWstring();
      SetMessage(text);
      if (remaining < 1) throw static_cast<const wchar_t*>(m_szMessage.get());
      if (upload)
        SetMessage(wxString::Format("Retrying after %d seconds...", static_cast<int>(m_nRetryDelay)));
    }
    // A cancel during the pause ends with what the scratch text says now:
    // the last error for a download, the retry sentence for an upload.
    if (ftpzn::WaitWithMessages(m_hEventKill, m_nRetryDelay * 1000)) {
      throw static_cast<const wchar_t*>(m_szMessage.get());
    }
  }
}

void CThreadFtp::EnterRemoteDirectory() {
  if (m_pConnection->SetCurrentDirectory(m_strRemoteDir.str().ToStdWstring())) return;
  wxString response = wxString(inet::InternetGetLastResponseInfo()).Left(255);
  response.Replace("\n", "");
  response.Replace("\r", "");
  ThrowMessage(response);
}

template <typename Fn>
void CThreadFtp::RunTransfer(Fn&& transfer) {
  try {
    transfer();
  } catch (const wchar_t* text) {
    m_strResult = text;
  } catch (const ftpzn::CFileException& e) {
    m_strResult = wxString::Format("File Error %d %s", e.m_cause, e.m_strFileName);
  } catch (const inet::CInternetException& e) {
    m_strResult = wxString::Format("Internet Exception Error %d", static_cast<int>(e.m_dwError));
    if (e.m_dwError == 12003)
      m_strResult += wxString(inet::InternetGetLastResponseInfo()).Left(kMessageChars - 1);
  } catch (const std::exception& e) {
    // Nothing may end the host's process; out of memory is the one
    // failure left that the transfer itself does not report.
    m_strResult = wxString::FromUTF8(e.what());
  }
  // What arrived is on disk, and the file free for others, before the end
  // is reported.
  m_file.Abort();
  // So is the connection (handed to the pool, or closed without waiting
  // for the server's goodbye): the manager's KillThread on the end message
  // runs on the user-interface thread and must find nothing left to wait
  // for.
  try {
    CloseConnection();
  } catch (const std::exception&) {
    // A goodbye that fails changes nothing the transfer did; only the end
    // message must still go.
  }
}

void CThreadFtp::Post(TransferMessage message) {
  if (m_pOwner) m_pOwner->PostEnd(*this, message);
}

void CThreadFtp::PostStatus(const wxString& text) {
  if (m_pOwner) m_pOwner->PostStatus(*this, text);
}

void CThreadFtp::PostProgress(uint64_t bytes) {
  if (m_pOwner) m_pOwner->PostProgress(*this, bytes);
}

void CThreadFtp::CloseRemote(inet::CInternetFile& remote) {
  remote.Close();
  // The server's verdict comes with the transfer's end: a refusal there (a
  // full disk, a download broken after its last bytes) is a failure, not a
  // success. A cancelled transfer ends early on purpose.
  if (m_hEventKill.IsSet()) return;
  if (const uint32_t error = inet::GetLastError()) throw inet::CInternetException(error);
}

// ---- CThreadFtpDownload

CThreadFtpDownload::CThreadFtpDownload() { m_bAutoDelete = false; }

CThreadFtpDownload::~CThreadFtpDownload() = default;

wxString CThreadFtpDownload::ProgressLine(uint64_t bytes) const {
  return wxString::Format("Receiving: %s(%d/%d)", m_strFileName,
                          static_cast<int>(static_cast<uint32_t>(bytes)), static_cast<int>(m_dwFileSize));
}

bool CThreadFtpDownload::InitInstance() {
  if (m_hEventKill.IsSet()) {
    // Between backslashes, unlike every other sentence: so it always read.
    m_strResult = "\\" + m_strFileName + "\\ download cancelled.";
    Post(ftpzn::WM_FTP_DOWNLOAD_DONE);
    return false;
  }
  const wxString remotePath = ftpzn::CollapseSeparators(m_strRemoteDir.str() + "/" + m_strFileName);
  // The directory ends in its separator; none is put in between.
  const wxString localPath = ftpzn::CollapseSeparators(m_strLocalDir.str() + m_strFileName);
  RunTransfer([&] {
    OpenSession();
    Transfer(localPath, remotePath);
  });
  if (!m_strResult.empty()) {
    m_bFailed = 1;
    Post(ftpzn::WM_FTP_DOWNLOAD_DONE);
    return false;
  }
  m_strResult =
      Quoted(m_strFileName) + (m_hEventKill.IsSet() ? " download cancelled." : " successfully downloaded.");
  Post(ftpzn::WM_FTP_DOWNLOAD_DONE);
  return false;
}

void CThreadFtpDownload::Transfer(wxString localPath, wxString remotePath) {
  if (remotePath.EndsWith("/") || localPath.EndsWith("/")) return;
  remotePath = ftpzn::WithoutTrailingSeparators(remotePath);
  // Leading separators stay: here they begin an absolute path.
  localPath = ftpzn::WithoutTrailingSeparators(localPath);
  Connect(false);
  EnterRemoteDirectory();
  SetMessage(localPath);
  // A name from a server that would leave the local directory never
  // reaches the disk.
  if (!ftpzn::IsSafeEntryName(m_strFileName) ||
      !m_file.Open(localPath, ftpzn::LocalFile::modeCreate | ftpzn::LocalFile::modeWrite))
    ThrowMessage(wxString::Format("Unable to create file %s", localPath));
  std::unique_ptr<inet::CInternetFile> remote = m_pConnection->OpenFile(
      m_strFileName.ToStdWstring(), inet::GENERIC_READ, m_dwTransferType, kFileContext);
  // Each block is read straight into the local file's buffer: the same
  // 4096-byte reads and writes, without a copy between them.
  uint64_t received = 0;
  for (;;) {
    if (m_hEventKill.IsSet()) break;
    const uint32_t n = remote->Read(m_file.WriteRoom(kBlockSize), kBlockSize);
    m_file.Commit(n);
    received += n;
    if (m_dwFileSize != 0) PostProgress(received);
    if (n < kBlockSize) break;
  }
  m_file.Close();
  CloseRemote(*remote);
  remote.reset();
  PostStatus("Finished");
}

// ---- CThreadFtpUpload

CThreadFtpUpload::CThreadFtpUpload() { m_bAutoDelete = false; }

CThreadFtpUpload::~CThreadFtpUpload() = default;

wxString CThreadFtpUpload::ProgressLine(uint64_t bytes) const {
  return wxString::Format("Sending: %s(%d/%d)\n", m_strFileName,
                          static_cast<int>(static_cast<uint32_t>(bytes)), static_cast<int>(m_dwFileSize));
}

bool CThreadFtpUpload::InitInstance() {
  if (m_hEventKill.IsSet()) {
    // Unlike a download, a cancelled upload that never ran tells nobody.
    m_strResult = Quoted(m_strFileName) + " upload cancelled.";
    return false;
  }
  const wxString localPath = ftpzn::CollapseSeparators(m_strLocalDir.str() + "/" + m_strFileName);
  // Not collapsed: an upload into the root opens "//name", as it always did.
  const wxString remotePath = m_strRemoteDir.str() + "/" + m_strFileName;
  RunTransfer([&] {
    OpenSession();
    Transfer(localPath, remotePath);
  });
  m_strResult.Replace("\n", " ");
  m_strResult.Replace("\r", "");
  if (m_strResult.empty())
    m_strResult =
        Quoted(m_strFileName) + (m_hEventKill.IsSet() ? " upload cancelled." : " successfully uploaded.");
  else
    m_bFailed = 1;
  Post(ftpzn::WM_FTP_UPLOAD_DONE);
  return false;
}

void CThreadFtpUpload::Transfer(wxString localPath, wxString remotePath) {
  if (localPath.EndsWith("/") || remotePath.EndsWith("/")) return;
  localPath = ftpzn::WithoutTrailingSeparators(localPath);
  remotePath = ftpzn::WithoutTrailingSeparators(remotePath);
  Connect(true);
  EnterRemoteDirectory();
  SetMessage(localPath);
  if (!ftpzn::IsSafeEntryName(m_strFileName))
    ThrowMessage(wxString::Format("Unable to create file %s", localPath));
  if (!m_file.Open(localPath, ftpzn::LocalFile::modeRead))
    ThrowMessage(wxString::Format("Unable to open file %s \n", localPath));
  std::unique_ptr<inet::CInternetFile> remote = m_pConnection->OpenFile(
      remotePath.ToStdWstring(), inet::GENERIC_WRITE, inet::FTP_TRANSFER_TYPE_BINARY, kFileContext);
  m_dwFileSize = static_cast<uint32_t>(m_file.GetLength());
  uint64_t sent = 0;
  for (;;) {
    if (m_hEventKill.IsSet()) break;
    uint32_t n = 0;
    const char* block = m_file.ReadInPlace(kBlockSize, n);
    if (n > 0) remote->Write(block, n);
    sent += n;
    if (m_dwFileSize != 0) PostProgress(sent);
    if (n < kBlockSize) break;
  }
  m_file.Close();
  CloseRemote(*remote);
  remote.reset();
  PostStatus("Finished");
}
