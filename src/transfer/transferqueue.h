// What the transfer manager keeps and decides, without its window: the
// workers, one row per transfer, the scheduler that starts queued workers,
// and what happens when a worker reports a line or its end. The window
// shows the rows and turns its commands and events into these calls.
#pragma once

#include <wx/string.h>

#include <algorithm>
#include <cstdint>
#include <deque>
#include <memory>
#include <unordered_map>
#include <vector>

#include "platform/sharedtext.h"
#include "transfer/threadftp.h"

namespace ftpzn {

// One transfer as the list shows it. Rows stand in the order their workers
// were made, which is the order of their thread identifiers.
struct TransferRow {
  uint32_t threadId = 0;
  bool upload = false;
  CThreadFtp* worker = nullptr;  // owned by the worker lists, as long as the row stands
  SharedText status;
  // Why the transfer this row lists again ended: shown under "Progress"
  // until the new worker reports progress of its own.
  wxString endReason;
};

// What one transfer is given, in the order the add operations take it.
struct TransferArgs {
  wxString host;
  wxString user;
  wxString password;
  wxString fileName;
  wxString localDir;
  wxString remoteDir;
  uint32_t fileSize = 0;
  uint32_t transferType = 2;
  uint32_t attempts = 1;
  uint32_t retryDelay = 10;
  uint32_t port = 21;
  bool passive = false;
  bool failed = false;
  inet::TlsMode tls = inet::TlsMode::None;
  // A certificate the user accepted although the system does not trust it.
  wxString acceptedCertificate = wxString();
  // For a transfer listed again: how the previous one ended.
  wxString endReason = wxString();
};

// The site transfers go to, as the add operations take it.
struct TransferSite {
  wxString server;
  wxString login;
  wxString password;
  uint32_t retries = 1;
  uint32_t retryDelay = 10;
  uint32_t port = 21;
  bool passive = false;
  inet::TlsMode tls = inet::TlsMode::None;
  wxString acceptedCertificate = wxString();

  // One file's transfer to or from this site, not failed.
  TransferArgs ArgsFor(const wxString& fileName, const wxString& localDir, const wxString& remoteDir,
                       uint32_t fileSize, uint32_t transferType) const {
    TransferArgs args{server, login, password, fileName, localDir, remoteDir};
    args.fileSize = fileSize;
    args.transferType = transferType;
    args.attempts = retries;
    args.retryDelay = retryDelay;
    args.port = port;
    args.passive = passive;
    args.tls = tls;
    args.acceptedCertificate = acceptedCertificate;
    return args;
  }
};

// "42%  430 MB  430 MB/s  0:02 left": how far a transfer of `total`
// bytes is after `done`, at `bytesPerSecond` (negative: not known yet).
// Without a size, or once `done` is past it, only the bytes and the rate.
wxString FormatTransferProgress(uint64_t done, uint64_t total, double bytesPerSecond);
// 1023 B, 4.00 KB, 43.1 MB, 430 MB, 1.50 GB: units of 1024, three digits.
wxString FormatByteCount(uint64_t bytes);
// How an ended transfer that failed is described on its new row: "Cancelled"
// when the user cancelled it, otherwise the worker's result on one line.
wxString EndReasonText(const wxString& result, bool cancelled);

// Workers of one direction in order of creation, found by thread
// identifier (which grows with creation) without a walk: so each must be
// appended in the order it was made.
template <typename Worker>
class WorkerList {
 public:
  Worker* Find(uint32_t threadId) const {
    const auto it = Lower(threadId);
    return it != m_workers.end() && (*it)->m_nThreadID == threadId ? it->get() : nullptr;
  }
  void Append(std::unique_ptr<Worker> worker) { m_workers.push_back(std::move(worker)); }
  std::unique_ptr<Worker> Remove(uint32_t threadId) {
    const auto it = Lower(threadId);
    if (it == m_workers.end() || (*it)->m_nThreadID != threadId) return nullptr;
    std::unique_ptr<Worker> worker = std::move(*it);
    m_workers.erase(it);
    return worker;
  }
  std::unique_ptr<Worker> RemoveHead() {
    std::unique_ptr<Worker> worker = std::move(m_workers.front());
    m_workers.pop_front();
    return worker;
  }
  bool empty() const { return m_workers.empty(); }
  size_t size() const { return m_workers.size(); }
  auto begin() const { return m_workers.begin(); }
  auto end() const { return m_workers.end(); }

 private:
  auto Lower(uint32_t threadId) const { return LowerIn(m_workers, threadId); }
  auto Lower(uint32_t threadId) { return LowerIn(m_workers, threadId); }
  template <typename Workers>
  static auto LowerIn(Workers& workers, uint32_t threadId) {
    return std::lower_bound(
        workers.begin(), workers.end(), threadId,
        [](const std::unique_ptr<Worker>& w, uint32_t id) { return w->m_nThreadID < id; });
  }
  std::deque<std::unique_ptr<Worker>> m_workers;
};

class TransferQueue {
 public:
  enum Column { kColumnFilename, kColumnHost, kColumnFrom, kColumnTo, kColumnStatus, kColumnProgress };
  static constexpr int kColumnCount = 6;
  // The progress column changes at most this often.
  static constexpr uint64_t kProgressRefreshMs = 250;

  TransferQueue() = default;
  virtual ~TransferQueue();
  TransferQueue(const TransferQueue&) = delete;
  TransferQueue& operator=(const TransferQueue&) = delete;

  // A new worker, suspended, listed as "Queued" ("Failed" when the args
  // say so), then the scheduler runs once. False, with nothing listed, when
  // no worker could be made.
  bool AddDownload(const TransferArgs& args);
  bool AddUpload(const TransferArgs& args);

  // Starts queued workers under the limit (see the definition for its
  // rule, which is kept exactly as it has always behaved).
  void RunScheduler();

  // A worker's status line, or its progress after `bytes` bytes.
  void OnStatus(uint32_t threadId, const wxString& text);
  void OnProgress(uint32_t threadId, uint64_t bytes, uint64_t nowMs);
  // A worker's end message: the row goes, a failed transfer is listed
  // again (unless failed ones are removed), the worker is deleted.
  void OnDownloadDone(uint32_t threadId);
  void OnUploadDone(uint32_t threadId);

  // The Cancel and Resubmit commands on rows (indexes into the list).
  void CancelRows(const std::vector<long>& rows);
  void ResubmitRows(const std::vector<long>& rows);
  // Cancels every worker and waits for each: downloads, then uploads.
  void KillAll();

  size_t GetRowCount() const { return m_rows.size(); }
  const TransferRow& GetRow(size_t index) const { return m_rows[index]; }
  // The row of a worker, or -1.
  long FindRow(uint32_t threadId) const;
  wxString GetCellText(size_t index, int column) const;
  CThreadFtp* FindWorker(uint32_t threadId) const;

  // Workers not yet disposed of, in order of creation (thread identifiers
  // grow), each in the list of its direction.
  WorkerList<CThreadFtpDownload> m_listDownloads;
  WorkerList<CThreadFtpUpload> m_listUploads;
  int m_nTransferMax = 0;
  int m_nConnectionTimeout = 0;  // seconds
  int m_bRemoveFailed = 0;
  int m_bHold = 0;  // while set, the scheduler starts nothing
  int m_nActive = 0;

 protected:
  // Where new workers post; null: nowhere.
  virtual std::shared_ptr<TransferSink> GetSink() { return nullptr; }
  virtual void OnRowAppended() {}
  virtual void OnRowRemoved(size_t /*index*/) {}
  virtual void OnRowChanged(size_t /*index*/) {}
  // After a download's row is listed: dispatch the waiting messages once.
  virtual void PumpAfterDownloadAdded() {}
  // Every status line also goes to the main window's status text.
  virtual void ShowStatusText(const wxString& /*text*/) {}
  // After a transfer ended: the side it wrote to is listed anew.
  virtual void RefreshPane(bool /*upload*/) {}

 private:
  struct ProgressMeter {
    uint64_t startMs = 0;
    uint64_t shownMs = 0;
    uint64_t shownBytes = 0;
    bool shown = false;
    wxString text;
  };
  template <typename Worker>
  bool Add(const TransferArgs& args, bool upload);
  void SetStatus(size_t index, const SharedText& status);
  void RemoveRow(size_t index);
  template <typename Worker>
  void OnEnd(WorkerList<Worker>& list, uint32_t threadId, bool upload);
  void StartQueued(uint32_t threadId);
  bool IsQueuedRow(long index) const;
  bool LimitReached() const { return m_nActive >= m_nTransferMax && m_nTransferMax != 0; }

  std::deque<TransferRow> m_rows;
  // The thread identifiers of rows that read "Queued", ascending: the
  // scheduler visits these alone, so its tick costs the same for ten rows
  // or 100,000. A row that stops reading "Queued" (its first line, its end)
  // leaves its identifier behind, dropped when the scheduler meets it.
  std::deque<uint32_t> m_queued;
  std::unordered_map<uint32_t, ProgressMeter> m_meters;
  // The last texts given to a worker: a folder's files share one copy.
  SharedText m_lastHost, m_lastUser, m_lastPassword, m_lastLocalDir, m_lastRemoteDir, m_lastCertificate;
};

}  // namespace ftpzn
