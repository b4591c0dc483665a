#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "iam/platform/Date.h"

namespace iam {

class Timer;

// The main thread's loop (never destroyed: threads may post while the process exits): tasks posted from any thread run here in order, and timers fire here when
// they come due on the process clock (`Clock`). The main thread is whichever thread drives the
// loop (`runUntilIdle`, `runFor`, `runUntil`, `run`); a host runs it on its UI thread.
class RunLoop {
 public:
  using Task = std::function<void()>;

  static RunLoop& main();

  // Thread-safe.
  void post(Task task);
  // Called, on the posting thread, after every post and newly scheduled timer: a host that runs its
  // own main loop uses it to schedule a run of this one. None removes it. Thread-safe.
  void setWakeHandler(std::function<void()> handler);

  // Runs ready tasks and due timers until none is left; returns how many ran. Does not wait.
  std::size_t runUntilIdle();
  // Runs for `seconds` of the process clock, letting time pass through `Clock::sleepUntil`: a
  // `ManualClock` moves from timer to timer, each firing at its due time with the clock showing
  // that time, and ends `seconds` later; the system clock waits in real time.
  void runFor(TimeInterval seconds);
  // Runs tasks as they arrive until `condition` holds (true) or `timeoutSeconds` of real time
  // pass (false). For waiting on other threads (network, background work).
  bool runUntil(const std::function<bool()>& condition, TimeInterval timeoutSeconds);
  // Runs until `quit` is called, waiting for work in real time.
  void run();
  void quit();

  // True on the thread that most recently drove the loop; until one has, on no thread.
  bool isMainThread() const;

  // When the next valid timer fires; none when there is no timer.
  std::optional<Date> nextTimerFireDate() const;

 private:
  friend class Timer;
  RunLoop() = default;
  void schedule(const std::shared_ptr<Timer>& timer);
  void unschedule(const Timer* timer);
  bool runOneTask();
  bool runOneDueTimer();
  void fire(std::shared_ptr<Timer> timer, std::uint64_t sequence);
  // Waits for a post, a newly scheduled timer, `quit`, the next timer's due time or `longest`,
  // whichever comes first.
  void waitForWork(std::chrono::steady_clock::duration longest);
  void noteMainThread();

  mutable std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<Task> tasks_;                                           // guarded by mutex_
  // Valid timers by due date, then scheduling order; the loop owns them until they are invalidated.
  std::multimap<std::pair<Date, std::uint64_t>, std::shared_ptr<Timer>> timers_;  // guarded by mutex_
  std::uint64_t timerSequence_ = 0;                                  // guarded by mutex_
  bool quit_ = false;                                                // guarded by mutex_
  std::thread::id mainThread_;                                       // guarded by mutex_
  std::shared_ptr<const std::function<void()>> wakeHandler_;         // guarded by mutex_
};

// A one-shot or repeating timer on the main run loop. It stays scheduled while valid: the loop
// keeps it alive until it is invalidated (one-shot timers invalidate themselves after firing).
// Repeating timers fire at start + n * interval; missed fires collapse into one.
class Timer : public std::enable_shared_from_this<Timer> {
 public:
  using Block = std::function<void(Timer&)>;

  static std::shared_ptr<Timer> scheduledTimerWithTimeInterval(TimeInterval interval, bool repeats, Block block);

  // Thread-safe; a timer invalidated while its block runs does not fire again.
  void invalidate();
  bool isValid() const;
  Date fireDate() const;
  TimeInterval timeInterval() const { return interval_; }

  Timer(TimeInterval interval, bool repeats, Block block, Date fireDate);

 private:
  friend class RunLoop;
  const TimeInterval interval_;
  const bool repeats_;
  Block block_;
  mutable std::mutex mutex_;
  Date fireDate_;     // guarded by mutex_
  bool valid_ = true;  // guarded by mutex_
};

}  // namespace iam
