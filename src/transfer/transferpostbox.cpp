#include "transfer/transferpostbox.h"

namespace ftpzn {

wxDEFINE_EVENT(EVT_FTP_STATUS, wxThreadEvent);
wxDEFINE_EVENT(EVT_FTP_DOWNLOAD_DONE, wxThreadEvent);
wxDEFINE_EVENT(EVT_FTP_UPLOAD_DONE, wxThreadEvent);

void TransferPostBox::Queue(wxEventType type, int message, uint32_t threadId, const wxString& text) {
  auto* event = new wxThreadEvent(type, message);
  event->SetExtraLong(static_cast<long>(threadId));
  event->SetInt(0);
  event->SetString(text);
  wxQueueEvent(m_target, event);
}

void TransferPostBox::QueueProgress(uint32_t threadId, Slot& slot, Clock::time_point now) {
  auto* event = new wxThreadEvent(EVT_FTP_STATUS, WM_FTP_STATUS);
  event->SetExtraLong(static_cast<long>(threadId));
  event->SetInt(1);
  wxQueueEvent(m_target, event);
  slot.eventQueued = true;
  slot.held = false;
  slot.lastQueued = now;
}

void TransferPostBox::QueueHeld(uint32_t threadId) {
  const auto found = m_slots.find(threadId);
  if (found != m_slots.end() && found->second.held && !found->second.eventQueued)
    QueueProgress(threadId, found->second, Clock::now());
}

void TransferPostBox::PostProgress(CThreadFtp& worker, uint64_t bytes) {
  std::lock_guard lock(m_mutex);
  if (!m_target) return;
  Slot& slot = m_slots[worker.m_nThreadID];
  slot.bytes = bytes;
  if (slot.eventQueued) return;
  const Clock::time_point now = Clock::now();
  if (now - slot.lastQueued < std::chrono::milliseconds(kProgressIntervalMs)) {
    slot.held = true;
    return;
  }
  QueueProgress(worker.m_nThreadID, slot, now);
}

void TransferPostBox::PostStatus(CThreadFtp& worker, const wxString& text) {
  std::lock_guard lock(m_mutex);
  if (!m_target) return;
  QueueHeld(worker.m_nThreadID);
  Queue(EVT_FTP_STATUS, WM_FTP_STATUS, worker.m_nThreadID, text);
}

void TransferPostBox::PostEnd(CThreadFtp& worker, TransferMessage message) {
  std::lock_guard lock(m_mutex);
  if (!m_target) return;
  QueueHeld(worker.m_nThreadID);
  Queue(message == WM_FTP_UPLOAD_DONE ? EVT_FTP_UPLOAD_DONE : EVT_FTP_DOWNLOAD_DONE, message,
        worker.m_nThreadID);
}

bool TransferPostBox::TakeProgress(uint32_t threadId, uint64_t& bytes) {
  std::lock_guard lock(m_mutex);
  const auto found = m_slots.find(threadId);
  if (found == m_slots.end() || !found->second.eventQueued) return false;
  bytes = found->second.bytes;
  found->second.eventQueued = false;
  return true;
}

void TransferPostBox::FlushHeldProgress() {
  std::lock_guard lock(m_mutex);
  if (!m_target) return;
  const Clock::time_point now = Clock::now();
  for (auto& [id, slot] : m_slots) {
    if (slot.held && !slot.eventQueued &&
        now - slot.lastQueued >= std::chrono::milliseconds(kProgressIntervalMs))
      QueueProgress(id, slot, now);
  }
}

void TransferPostBox::Forget(uint32_t threadId) {
  std::lock_guard lock(m_mutex);
  m_slots.erase(threadId);
}

void TransferPostBox::Invalidate() {
  std::lock_guard lock(m_mutex);
  m_target = nullptr;
  m_slots.clear();
}

}  // namespace ftpzn
