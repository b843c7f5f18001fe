#include "platform/workerthread.h"

#include <sys/resource.h>
#include <wx/app.h>
#include <wx/thread.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <system_error>

#include "platform/threadid.h"

namespace ftpzn {
namespace {

std::mutex& EventMutex() {
  static std::mutex mutex;
  return mutex;
}

std::condition_variable& EventCondition() {
  static std::condition_variable condition;
  return condition;
}

std::atomic<uint32_t> g_nextThreadId{1};

uint32_t NewThreadId() {
  uint32_t id = g_nextThreadId.fetch_add(1, std::memory_order_relaxed);
  while (id == 0) id = g_nextThreadId.fetch_add(1, std::memory_order_relaxed);
  return id;
}

// How often a wait on the user-interface thread looks for messages: there
// is no single call here that wakes on either an event or window input.
constexpr uint32_t kPumpSliceMs = 10;

}  // namespace

uint32_t GetTickCount() {
  const auto since = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(since).count());
}

void ManualResetEvent::Set() {
  {
    std::lock_guard lock(EventMutex());
    m_set.store(true, std::memory_order_release);
  }
  EventCondition().notify_all();
}

void ManualResetEvent::Reset() {
  std::lock_guard lock(EventMutex());
  m_set.store(false, std::memory_order_release);
}

bool ManualResetEvent::Wait(uint32_t timeoutMs) const {
  if (IsSet()) return true;
  std::unique_lock lock(EventMutex());
  auto isSet = [this] { return m_set.load(std::memory_order_acquire); };
  if (timeoutMs == kInfinite) {
    EventCondition().wait(lock, isSet);
    return true;
  }
  return EventCondition().wait_for(lock, std::chrono::milliseconds(timeoutMs), isSet);
}

void PumpMessages() {
  wxAppConsole* app = wxAppConsole::GetInstance();
  if (!app || !wxThread::IsMain()) return;
  app->Yield(true);
}

bool WaitWithMessages(const ManualResetEvent& event, uint32_t timeoutMs) {
  const uint32_t deadline = GetTickCount() + timeoutMs;
  uint32_t remaining = timeoutMs;
  const bool pumping = wxThread::IsMain() && wxAppConsole::GetInstance();
  for (;;) {
    const uint32_t slice = pumping ? std::min(remaining, kPumpSliceMs) : remaining;
    if (event.Wait(slice)) return true;
    if (slice == remaining) return false;
    PumpMessages();
    remaining = deadline - GetTickCount();
  }
}

WorkerThread::WorkerThread() : m_nThreadID(NewThreadId()) {}

WorkerThread::~WorkerThread() {
  if (m_thread.joinable()) {
    if (m_thread.get_id() == std::this_thread::get_id())
      m_thread.detach();
    else
      m_thread.join();
  }
}

bool WorkerThread::CreateThread(uint32_t flags) {
  if (m_created) return false;
  m_created = true;
  m_suspendCount = 1;
  if (flags & kCreateSuspended) return true;
  return ResumeThread() != kResumeFailed;
}

uint32_t WorkerThread::ResumeThread() {
  if (!m_created) return kResumeFailed;
  const uint32_t previous = m_suspendCount;
  if (previous == 0) return 0;
  m_suspendCount = previous - 1;
  if (m_suspendCount > 0 || m_started) return previous;
  m_started = true;
  if (RunsOnResumingThread()) {
    ThreadMain(false);
    return previous;
  }
  try {
    std::thread thread([this] { ThreadMain(true); });
    // An auto-deleting object frees itself on its thread: nothing may touch
    // it, nor join that thread, from here on.
    if (m_bAutoDelete)
      thread.detach();
    else
      m_thread = std::move(thread);
  } catch (const std::system_error&) {
    m_started = false;
    m_suspendCount = previous;
    return kResumeFailed;
  }
  return previous;
}

bool WorkerThread::SetThreadPriority(int priority) {
  m_priority.store(priority, std::memory_order_relaxed);
  ApplyPriority();
  return true;
}

void WorkerThread::ApplyPriority() {
  const int id = m_kernelId.load(std::memory_order_acquire);
  // A nice value per thread; a process without the right to raise it keeps
  // the thread where it is.
  if (id != 0) setpriority(PRIO_PROCESS, static_cast<id_t>(id), -m_priority.load(std::memory_order_relaxed));
}

void WorkerThread::WaitForThread() {
  if (m_thread.joinable() && m_thread.get_id() != std::this_thread::get_id()) m_thread.join();
}

void WorkerThread::Delete() {
  if (m_bAutoDelete) delete this;
}

void WorkerThread::ThreadMain(bool ownThread) {
  if (ownThread) {
    m_kernelId.store(static_cast<int>(CurrentThreadId()), std::memory_order_release);
    if (m_priority.load(std::memory_order_relaxed) != kPriorityNormal) ApplyPriority();
  }
  // Nothing a thread meets may end the host's process.
  try {
    if (!InitInstance())
      ExitInstance();
    else
      Run();
  } catch (...) {
  }
  if (ownThread) m_kernelId.store(0, std::memory_order_release);
  Delete();
}

}  // namespace ftpzn
