// The sink through which workers reach a window: every message becomes an
// event queued to that window, in the order posted, with its own event
// type and the message's number as its id, naming the worker by thread
// identifier. A worker moving a gigabyte a second must not flood the
// user-interface thread: its progress lines go out at most every
// kProgressIntervalMs, a newer one replacing one the window has not taken
// yet, while every other line and the end always arrive, after the
// progress before them. Once invalidated (the window is going) every post
// is dropped. Window-free (wx base only).
#pragma once

#include <wx/event.h>

#include <chrono>
#include <cstdint>
#include <mutex>
#include <unordered_map>

#include "transfer/threadftp.h"

namespace ftpzn {

// int: 1 for a progress line (its bytes are taken with TakeProgress), 0
// for a line in the string; extra long: the worker's thread identifier.
wxDECLARE_EVENT(EVT_FTP_STATUS, wxThreadEvent);
wxDECLARE_EVENT(EVT_FTP_DOWNLOAD_DONE, wxThreadEvent);
wxDECLARE_EVENT(EVT_FTP_UPLOAD_DONE, wxThreadEvent);

class TransferPostBox : public TransferSink {
 public:
  static constexpr int kProgressIntervalMs = 50;

  explicit TransferPostBox(wxEvtHandler* target) : m_target(target) {}

  void PostProgress(CThreadFtp& worker, uint64_t bytes) override;
  void PostStatus(CThreadFtp& worker, const wxString& text) override;
  void PostEnd(CThreadFtp& worker, TransferMessage message) override;

  // On the window's thread. The bytes of the newest progress of a worker
  // whose event has come; false when there is none (already taken).
  bool TakeProgress(uint32_t threadId, uint64_t& bytes);
  // Sends on progress held back longer than the interval, so a transfer
  // that stalls still shows where it stands.
  void FlushHeldProgress();
  // After a worker's end: nothing more will come from it.
  void Forget(uint32_t threadId);
  void Invalidate();

 private:
  using Clock = std::chrono::steady_clock;
  struct Slot {
    uint64_t bytes = 0;
    bool eventQueued = false;
    bool held = false;
    Clock::time_point lastQueued;
  };
  void QueueProgress(uint32_t threadId, Slot& slot, Clock::time_point now);
  void Queue(wxEventType type, int message, uint32_t threadId, const wxString& text = wxString());
  void QueueHeld(uint32_t threadId);

  std::mutex m_mutex;
  wxEvtHandler* m_target;
  std::unordered_map<uint32_t, Slot> m_slots;
};

}  // namespace ftpzn
