// Threads as the module's design uses them: worker objects created
// suspended and resumed later, manual-reset events shared between threads,
// a tick count, and waits that keep the user-interface thread's messages
// flowing. Window-free.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>

namespace ftpzn {

// Milliseconds of a monotonic clock, truncated to 32 bits: it wraps after
// 49.7 days, and arithmetic on it is unsigned.
uint32_t GetTickCount();

// A manual-reset event: once set it stays set until reset, and every wait
// sees it. Events hold one byte each and share one lock and condition, so a
// queue of a hundred thousand workers costs no kernel object per event;
// they are set rarely (a cancel, a thread's end).
class ManualResetEvent {
 public:
  static constexpr uint32_t kInfinite = 0xFFFFFFFF;

  void Set();
  void Reset();
  // Whether it is set now (a wait of zero).
  bool IsSet() const { return m_set.load(std::memory_order_acquire); }
  // True when set within `timeoutMs` (kInfinite: no limit).
  bool Wait(uint32_t timeoutMs = kInfinite) const;

 private:
  std::atomic<bool> m_set{false};
};

// Dispatches every message waiting on the calling thread when it is the
// user-interface thread (one non-blocking pass of the event loop; a pass
// already under way is not entered again); on any other thread there is no
// message queue and it does nothing.
void PumpMessages();

// True when `event` is set within `timeoutMs`, false on time-out. On the
// user-interface thread messages keep being dispatched while it waits. The
// remaining time is the deadline minus the tick count in unsigned 32-bit
// arithmetic, not clamped: a deadline that passes while messages are being
// dispatched wraps to a very long wait, as it always has.
bool WaitWithMessages(const ManualResetEvent& event, uint32_t timeoutMs);

// A thread object whose operating-system thread starts only when it is
// first resumed: it has its identifier from creation, so ten thousand
// queued transfers are ten thousand small objects, not ten thousand
// threads. The thread runs InitInstance; if that returns false,
// ExitInstance; otherwise Run (which here has no message loop and ends at
// once). Delete is called last, on the thread; with m_bAutoDelete it frees
// the object.
class WorkerThread {
 public:
  static constexpr uint32_t kCreateSuspended = 4;
  // What ResumeThread answers when the thread could not be started.
  static constexpr uint32_t kResumeFailed = 0xFFFFFFFF;
  static constexpr int kPriorityNormal = 0;
  static constexpr int kPriorityAboveNormal = 1;

  WorkerThread();
  virtual ~WorkerThread();
  WorkerThread(const WorkerThread&) = delete;
  WorkerThread& operator=(const WorkerThread&) = delete;

  // Prepares the thread, suspended when `flags` has kCreateSuspended
  // (otherwise it starts now). False when it cannot be started.
  bool CreateThread(uint32_t flags = 0);
  // Lowers the suspend count by one and returns the count it had; the
  // thread starts when the count reaches 0. kResumeFailed when the system
  // refused a new thread (the count is then unchanged).
  uint32_t ResumeThread();
  // Recorded, and applied to the running thread where the process may;
  // raising a priority is a no-op where it may not.
  bool SetThreadPriority(int priority);
  // Waits, without time limit, until the thread has ended; returns at once
  // for a thread that never started. Not to be called from the thread.
  void WaitForThread();
  bool IsCreated() const { return m_created; }
  bool HasStarted() const { return m_started; }

  // A process-wide counter, never 0.
  const uint32_t m_nThreadID;
  bool m_bAutoDelete = true;

 protected:
  virtual bool InitInstance() { return false; }
  virtual int Run() { return ExitInstance(); }
  virtual int ExitInstance() { return 0; }
  virtual void Delete();
  // Whether a thread that has never run may do its whole work on the
  // resuming thread instead of a new one: true for work that no longer
  // blocks (a worker cancelled before it started), which spares a system
  // thread per cancelled item.
  virtual bool RunsOnResumingThread() const { return false; }

 private:
  void ThreadMain(bool ownThread);
  void ApplyPriority();

  std::thread m_thread;
  std::atomic<int> m_kernelId{0};  // set by the running thread
  uint32_t m_suspendCount = 0;
  std::atomic<int> m_priority{kPriorityNormal};
  bool m_created = false;
  bool m_started = false;
};

}  // namespace ftpzn
