// The transfer workers: one thread object per file, moving it over a
// session and connection of its own in 4096-byte blocks, reporting each
// block and its end to an owner, and leaving a one-line result. The
// transfer manager creates them suspended (by class), fills them, resumes
// them under its scheduler and deletes each after its end message.
// Window-free: the owner is a sink, so tests and benchmarks own workers
// without a display.
#pragma once

#include <wx/object.h>
#include <wx/string.h>

#include <cstdint>
#include <memory>

#include "inet/inet.h"
#include "platform/sharedtext.h"
#include "platform/workerthread.h"
#include "transfer/localfile.h"

class CThreadFtp;

namespace ftpzn {

// The messages a worker sends its owner, numbered as they always were.
enum TransferMessage : uint32_t {
  WM_FTP_STATUS = 0x400 + 0x82,
  WM_FTP_DOWNLOAD_DONE = 0x400 + 0x83,
  WM_FTP_UPLOAD_DONE = 0x400 + 0x84,
};

// Where a worker's messages go; called on the worker's thread. Lines of
// one worker must reach the user in the order posted.
class TransferSink {
 public:
  virtual ~TransferSink() = default;
  // The progress line of one block: worker.ProgressLine(bytes) is its
  // text. A sink may let a newer progress line of a worker replace one the
  // user has not seen yet.
  virtual void PostProgress(CThreadFtp& worker, uint64_t bytes) = 0;
  // Any other status line ("Finished"): never dropped or replaced.
  virtual void PostStatus(CThreadFtp& worker, const wxString& text) = 0;
  // WM_FTP_DOWNLOAD_DONE or WM_FTP_UPLOAD_DONE: the worker's end.
  virtual void PostEnd(CThreadFtp& worker, TransferMessage message) = 0;
};

}  // namespace ftpzn

// The base of both workers: the transfer's parameters, the connect routine
// with its attempts, and the thread's end.
class CThreadFtp : public wxObject, public ftpzn::WorkerThread {
 public:
  static constexpr uint32_t kBlockSize = 4096;
  static constexpr size_t kMessageChars = 1024;

  CThreadFtp();
  ~CThreadFtp() override;

  // Cancels if need be, waits until the thread has ended and deletes the
  // object. Called on the user-interface thread by the owner.
  void KillThread();
  // The result text: empty while running; afterwards an error text, or the
  // success or cancel sentence.
  virtual wxString GetResult() const { return m_strResult; }
  // The status text of a progress post after `bytes` bytes.
  virtual wxString ProgressLine(uint64_t /*bytes*/) const { return wxString(); }

  int m_bFailed = 0;
  uint32_t m_dwTransferType = ftpzn::inet::FTP_TRANSFER_TYPE_BINARY;
  std::shared_ptr<ftpzn::TransferSink> m_pOwner;
  ftpzn::SharedText m_strPassword;
  ftpzn::SharedText m_strUser;
  ftpzn::SharedText m_strHost;
  uint32_t m_nAttempts = 1;
  uint32_t m_nRetryDelay = 10;
  uint32_t m_nPort = 21;
  int m_bPassive = 0;
  // Connects as the main window did: with TLS or without, and accepting
  // only the certificate the user accepted there, if the system does not
  // trust it.
  ftpzn::inet::TlsMode m_tlsMode = ftpzn::inet::TlsMode::None;
  ftpzn::SharedText m_strAcceptedCertificate;
  uint32_t m_dwTimeout = 3000;
  uint32_t m_dwFileSize = 0;
  ftpzn::ManualResetEvent m_hEventDead;
  ftpzn::ManualResetEvent m_hEventKill;
  // The scratch text the transfer composes its errors in; on failure its
  // address is what is thrown. It exists only while the thread runs.
  std::unique_ptr<wchar_t[]> m_szMessage;
  ftpzn::SharedText m_strLocalDir;
  ftpzn::SharedText m_strRemoteDir = "/";
  wxString m_strFileName = "*";
  // The thread's own session, made when it starts and closed at its end.
  std::unique_ptr<ftpzn::inet::CInternetSession> m_session;
  std::unique_ptr<ftpzn::inet::CFtpConnection> m_pConnection;
  ftpzn::LocalFile m_file;
  wxString m_strResult;

 protected:
  bool InitInstance() override { return true; }
  int ExitInstance() override;
  void Delete() override;
  // A worker cancelled before it ran only writes its result and posts:
  // that needs no thread of its own.
  bool RunsOnResumingThread() const override { return m_hEventKill.IsSet(); }

  // The part both directions share. Each throws the scratch text on
  // failure (a wide-string pointer) or lets the engine's and the file's
  // exceptions pass.
  void SetMessage(const wxString& text);
  [[noreturn]] void ThrowMessage(const wxString& text);
  // Opens the session and sets its time-outs.
  void OpenSession();
  void Connect(bool upload);
  void EnterRemoteDirectory();
  void CloseRemote(ftpzn::inet::CInternetFile& remote);
  // Says the goodbye on the connection and closes it and the session.
  void CloseConnection();
  // Runs `transfer` with the three handlers every worker has; the result
  // is the text of what was caught, or stays empty.
  template <typename Fn>
  void RunTransfer(Fn&& transfer);
  void Post(ftpzn::TransferMessage message);
  void PostStatus(const wxString& text);
  void PostProgress(uint64_t bytes);

 private:
  wxDECLARE_DYNAMIC_CLASS(CThreadFtp);
};

class CThreadFtpDownload : public CThreadFtp {
 public:
  CThreadFtpDownload();
  ~CThreadFtpDownload() override;
  wxString ProgressLine(uint64_t bytes) const override;

 protected:
  bool InitInstance() override;

 private:
  void Transfer(wxString localPath, wxString remotePath);
  wxDECLARE_DYNAMIC_CLASS(CThreadFtpDownload);
};

class CThreadFtpUpload : public CThreadFtp {
 public:
  CThreadFtpUpload();
  ~CThreadFtpUpload() override;
  wxString ProgressLine(uint64_t bytes) const override;

 protected:
  bool InitInstance() override;

 private:
  void Transfer(wxString localPath, wxString remotePath);
  wxDECLARE_DYNAMIC_CLASS(CThreadFtpUpload);
};
