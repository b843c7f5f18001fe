#include "transfer/transferqueue.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <type_traits>

#include "panes/localfs.h"

namespace ftpzn {
namespace {

const SharedText& QueuedText() {
  static const SharedText text("Queued");
  return text;
}

const SharedText& FailedText() {
  static const SharedText text("Failed");
  return text;
}

wxString FormatDuration(uint64_t seconds) {
  if (seconds >= 3600)
    return wxString::Format("%llu:%02llu:%02llu", static_cast<unsigned long long>(seconds / 3600),
                            static_cast<unsigned long long>(seconds / 60 % 60),
                            static_cast<unsigned long long>(seconds % 60));
  return wxString::Format("%llu:%02llu", static_cast<unsigned long long>(seconds / 60),
                          static_cast<unsigned long long>(seconds % 60));
}

}  // namespace

wxString FormatByteCount(uint64_t bytes) {
  if (bytes < 1024) return wxString::Format("%llu B", static_cast<unsigned long long>(bytes));
  const char* const units[] = {"KB", "MB", "GB", "TB"};
  double value = static_cast<double>(bytes) / 1024;
  size_t unit = 0;
  while (value >= 1024 && unit + 1 < std::size(units)) {
    value /= 1024;
    ++unit;
  }
  // Three significant digits: the column is narrow.
  const char* format = value < 10 ? "%.2f %s" : value < 100 ? "%.1f %s" : "%.0f %s";
  return wxString::Format(format, value, units[unit]);
}

wxString FormatTransferProgress(uint64_t done, uint64_t total, double bytesPerSecond) {
  const bool sized = total != 0 && done <= total;
  wxString text;
  if (sized) text << static_cast<int>(done * 100 / total) << "%  ";
  text << FormatByteCount(done);
  if (bytesPerSecond >= 0) {
    text << "  " << FormatByteCount(static_cast<uint64_t>(bytesPerSecond)) << "/s";
    if (sized && bytesPerSecond > 0) {
      const double left = static_cast<double>(total - done) / bytesPerSecond;
      text << "  " << FormatDuration(static_cast<uint64_t>(std::ceil(left))) << " left";
    }
  }
  return text;
}

wxString EndReasonText(const wxString& result, bool cancelled) {
  if (cancelled) return "Cancelled";
  // A server's reply may span lines; a cell shows one.
  wxString text = result;
  text.Replace("\r", "");
  text.Replace("\n", " ");
  return text.Trim();
}

TransferQueue::~TransferQueue() { KillAll(); }

bool TransferQueue::AddDownload(const TransferArgs& args) { return Add<CThreadFtpDownload>(args, false); }

bool TransferQueue::AddUpload(const TransferArgs& args) { return Add<CThreadFtpUpload>(args, true); }

template <typename Worker>
bool TransferQueue::Add(const TransferArgs& args, bool upload) {
  std::unique_ptr<Worker> worker;
  uint32_t id = 0;
  // Out of memory is the one way making a worker fails here; it lists
  // nothing and leaves the queue as it was.
  try {
    // Made by class, as every worker always was.
    worker.reset(dynamic_cast<Worker*>(wxCLASSINFO(Worker)->CreateObject()));
    if (!worker || !worker->CreateThread(WorkerThread::kCreateSuspended)) return false;
    // Filled before it is listed, so that the row shows its texts at once;
    // nothing else reads them until the scheduler resumes it.
    worker->m_strHost = SharedText::Reuse(m_lastHost, args.host);
    worker->m_strUser = SharedText::Reuse(m_lastUser, args.user);
    worker->m_strPassword = SharedText::Reuse(m_lastPassword, args.password);
    worker->m_strLocalDir = SharedText::Reuse(m_lastLocalDir, args.localDir);
    worker->m_strRemoteDir = SharedText::Reuse(m_lastRemoteDir, args.remoteDir);
    worker->m_strFileName = args.fileName;
    worker->m_dwFileSize = args.fileSize;
    worker->m_dwTransferType = args.transferType;
    worker->m_nAttempts = args.attempts;
    worker->m_nRetryDelay = args.retryDelay;
    worker->m_nPort = args.port;
    worker->m_bPassive = args.passive ? 1 : 0;
    worker->m_tlsMode = args.tls;
    worker->m_strAcceptedCertificate = SharedText::Reuse(m_lastCertificate, args.acceptedCertificate);
    worker->m_pOwner = GetSink();
    worker->m_dwTimeout = static_cast<uint32_t>(m_nConnectionTimeout) * 1000;
    id = worker->m_nThreadID;
    m_rows.push_back({id, upload, worker.get(), args.failed ? FailedText() : QueuedText(), args.endReason});
    if (!args.failed) m_queued.push_back(id);
    worker->SetThreadPriority(WorkerThread::kPriorityNormal);
    // Listed before the pump below: a failed download's end dispatched
    // there lists it again, and a worker appended after that nested one
    // would break the ascending order the lists are searched in.
    if constexpr (std::is_same_v<Worker, CThreadFtpDownload>)
      m_listDownloads.Append(std::move(worker));
    else
      m_listUploads.Append(std::move(worker));
  } catch (const std::bad_alloc&) {
    if (!m_rows.empty() && m_rows.back().threadId == id) m_rows.pop_back();
    if (!m_queued.empty() && m_queued.back() == id) m_queued.pop_back();
    return false;
  }
  OnRowAppended();
  if (!upload) PumpAfterDownloadAdded();
  RunScheduler();
  return true;
}

void TransferQueue::StartQueued(uint32_t threadId) {
  if (CThreadFtpDownload* download = m_listDownloads.Find(threadId)) {
    ++m_nActive;
    download->ResumeThread();
  }
  if (CThreadFtpUpload* upload = m_listUploads.Find(threadId)) {
    ++m_nActive;
    upload->ResumeThread();
  }
}

bool TransferQueue::IsQueuedRow(long index) const {
  return index >= 0 && m_rows[static_cast<size_t>(index)].status == QueuedText().str();
}

// The rule, kept as it always was: the limit is overwritten with 1 on every
// run, the run stops only when *more* than one transfer is counted, and
// every item from the first that reads "Queued" is resumed and counted
// until the count reaches the limit. An item reads "Queued" until its worker
// posts its first line, so a running worker can be counted twice; only the
// end messages lower the count.
void TransferQueue::RunScheduler() {
  if (m_bHold) return;
  m_nTransferMax = 1;
  if (m_nActive > 1 || m_rows.empty()) return;
  // The walk over every item stops after the first one or after a queued
  // one: items between queued ones change nothing, so only the first item
  // and the queued ones are visited.
  const uint32_t first = m_rows.front().threadId;
  if (IsQueuedRow(0)) StartQueued(first);
  if (LimitReached()) return;
  for (size_t i = 0; i < m_queued.size();) {
    const uint32_t id = m_queued[i];
    if (!IsQueuedRow(FindRow(id))) {
      if (i == 0)
        m_queued.pop_front();
      else
        ++i;
      continue;
    }
    ++i;
    if (id == first) continue;
    StartQueued(id);
    if (LimitReached()) return;
  }
}

long TransferQueue::FindRow(uint32_t threadId) const {
  const auto it = std::lower_bound(m_rows.begin(), m_rows.end(), threadId,
                                   [](const TransferRow& row, uint32_t id) { return row.threadId < id; });
  if (it == m_rows.end() || it->threadId != threadId) return -1;
  return static_cast<long>(it - m_rows.begin());
}

CThreadFtp* TransferQueue::FindWorker(uint32_t threadId) const {
  if (CThreadFtp* download = m_listDownloads.Find(threadId)) return download;
  return m_listUploads.Find(threadId);
}

wxString TransferQueue::GetCellText(size_t index, int column) const {
  if (index >= m_rows.size()) return wxString();
  const TransferRow& row = m_rows[index];
  const CThreadFtp& w = *row.worker;
  switch (column) {
    case kColumnFilename:
      return w.m_strFileName;
    case kColumnHost:
      return w.m_strHost;
    case kColumnFrom:
      // Directories for a download, whole paths for an upload, as always.
      return row.upload ? CollapseSeparators(w.m_strLocalDir.str() + "/" + w.m_strFileName)
                        : w.m_strRemoteDir.str();
    case kColumnTo:
      return row.upload ? CollapseSeparators(w.m_strRemoteDir.str() + "/" + w.m_strFileName)
                        : w.m_strLocalDir.str();
    case kColumnStatus:
      return row.status;
    case kColumnProgress: {
      const auto meter = m_meters.find(row.threadId);
      return meter == m_meters.end() ? row.endReason : meter->second.text;
    }
    default:
      return wxString();
  }
}

void TransferQueue::SetStatus(size_t index, const SharedText& status) {
  TransferRow& row = m_rows[index];
  const bool wasQueued = row.status == QueuedText().str();
  row.status = status;
  // No worker says "Queued"; should a line ever read so, the row is
  // queued again, in its place.
  if (!wasQueued && status == QueuedText().str()) {
    const auto at = std::lower_bound(m_queued.begin(), m_queued.end(), row.threadId);
    if (at == m_queued.end() || *at != row.threadId) m_queued.insert(at, row.threadId);
  }
}

void TransferQueue::RemoveRow(size_t index) {
  const uint32_t id = m_rows[index].threadId;
  m_meters.erase(id);
  m_rows.erase(m_rows.begin() + static_cast<std::ptrdiff_t>(index));
  OnRowRemoved(index);
}

void TransferQueue::OnStatus(uint32_t threadId, const wxString& text) {
  ShowStatusText(text);
  const long index = FindRow(threadId);
  if (index < 0) return;
  SetStatus(static_cast<size_t>(index), text);
  OnRowChanged(static_cast<size_t>(index));
}

void TransferQueue::OnProgress(uint32_t threadId, uint64_t bytes, uint64_t nowMs) {
  const CThreadFtp* worker = FindWorker(threadId);
  if (!worker) return;
  ProgressMeter& meter = m_meters[threadId];
  if (!meter.shown || nowMs - meter.shownMs >= kProgressRefreshMs) {
    double rate = -1;
    if (!meter.shown) {
      meter.startMs = nowMs;
    } else if (nowMs > meter.shownMs) {
      rate =
          static_cast<double>(bytes - meter.shownBytes) * 1000.0 / static_cast<double>(nowMs - meter.shownMs);
    }
    meter.text = FormatTransferProgress(bytes, worker->m_dwFileSize, rate);
    meter.shown = true;
    meter.shownMs = nowMs;
    meter.shownBytes = bytes;
  }
  OnStatus(threadId, worker->ProgressLine(bytes));
}

void TransferQueue::OnDownloadDone(uint32_t threadId) { OnEnd(m_listDownloads, threadId, false); }

void TransferQueue::OnUploadDone(uint32_t threadId) { OnEnd(m_listUploads, threadId, true); }

template <typename Worker>
void TransferQueue::OnEnd(WorkerList<Worker>& list, uint32_t threadId, bool upload) {
  if (!list.Find(threadId)) return;
  if (const long index = FindRow(threadId); index >= 0) RemoveRow(static_cast<size_t>(index));
  std::unique_ptr<Worker> worker = list.Remove(threadId);
  --m_nActive;
  if (worker->m_bFailed && m_bRemoveFailed == 0) {
    TransferArgs again{worker->m_strHost,     worker->m_strUser,     worker->m_strPassword,
                       worker->m_strFileName, worker->m_strLocalDir, worker->m_strRemoteDir};
    again.tls = worker->m_tlsMode;
    again.acceptedCertificate = worker->m_strAcceptedCertificate;
    again.endReason = EndReasonText(worker->GetResult(), worker->m_hEventKill.IsSet());
    if (upload) {
      // Listed again with its settings one place early, and queued rather
      // than failed: so it has always been, and so it stays.
      again.fileSize = worker->m_dwTransferType;
      again.transferType = worker->m_nAttempts;
      again.attempts = worker->m_nRetryDelay;
      again.retryDelay = worker->m_nPort;
      again.port = static_cast<uint32_t>(worker->m_bPassive);
      again.passive = true;
      again.failed = false;
      AddUpload(again);
    } else {
      again.fileSize = worker->m_dwFileSize;
      again.transferType = worker->m_dwTransferType;
      again.attempts = worker->m_nAttempts;
      again.retryDelay = worker->m_nRetryDelay;
      again.port = worker->m_nPort;
      again.passive = worker->m_bPassive != 0;
      again.failed = true;
      AddDownload(again);
    }
  }
  // The next transfer starts first: it then connects while this thread
  // winds down and the pane is listed again.
  RunScheduler();
  worker.release()->KillThread();
  RefreshPane(upload);
}

void TransferQueue::CancelRows(const std::vector<long>& rows) {
  auto cancel = [](CThreadFtp& worker) {
    worker.m_hEventKill.Set();
    uint32_t previous = 0;
    do {
      previous = worker.ResumeThread();
    } while (previous > 1 && previous != WorkerThread::kResumeFailed);
  };
  for (const long index : rows) {
    if (index < 0 || static_cast<size_t>(index) >= m_rows.size()) continue;
    const uint32_t id = m_rows[static_cast<size_t>(index)].threadId;
    if (CThreadFtpDownload* download = m_listDownloads.Find(id)) cancel(*download);
    if (CThreadFtpUpload* upload = m_listUploads.Find(id)) cancel(*upload);
  }
}

void TransferQueue::ResubmitRows(const std::vector<long>& rows) {
  for (const long index : rows) {
    if (index < 0 || static_cast<size_t>(index) >= m_rows.size()) continue;
    const TransferRow& row = m_rows[static_cast<size_t>(index)];
    if (row.status != QueuedText().str() && row.status != FailedText().str()) continue;
    // Downloads only: uploads are not resubmitted.
    CThreadFtpDownload* download = m_listDownloads.Find(row.threadId);
    if (!download) continue;
    ++m_nActive;
    download->ResumeThread();
  }
}

void TransferQueue::KillAll() {
  // Every running worker hears the cancel at once and stops in parallel;
  // each is then awaited in turn.
  for (const auto& worker : m_listDownloads) worker->m_hEventKill.Set();
  for (const auto& worker : m_listUploads) worker->m_hEventKill.Set();
  while (!m_listDownloads.empty()) m_listDownloads.RemoveHead().release()->KillThread();
  while (!m_listUploads.empty()) m_listUploads.RemoveHead().release()->KillThread();
  m_rows.clear();
  m_queued.clear();
  m_meters.clear();
}

}  // namespace ftpzn
