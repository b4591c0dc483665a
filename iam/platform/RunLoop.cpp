#include "iam/platform/RunLoop.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <string>
#include <utility>

#include "iam/platform/Clock.h"
#include "iam/platform/LogBridge.h"

namespace iam {
namespace {

constexpr std::string_view kLogFile = "iam/platform/RunLoop";

// Repeating timers need a positive step, or the loop would spin on one timer; this is the
// step platforms choose for a non-positive interval. Intervals beyond the cap cannot be added to
// a date without overflow and would never fire anyway.
constexpr TimeInterval kMinimumRepeatInterval = 0.0001;
constexpr TimeInterval kMaximumInterval = 1e9;

TimeInterval clampedInterval(TimeInterval interval, bool repeats) {
  const TimeInterval minimum = repeats ? kMinimumRepeatInterval : 0;
  if (!(interval > minimum)) return minimum;  // also NaN
  return std::min(interval, kMaximumInterval);
}

// The real-time slice between looks at the clock while waiting; keeps a clock replaced while the
// loop waits from stranding it.
constexpr auto kLongestWait = std::chrono::milliseconds(100);

std::chrono::steady_clock::duration realDuration(TimeInterval seconds) {
  if (!(seconds > 0)) return std::chrono::steady_clock::duration::zero();
  seconds = std::min(seconds, kMaximumInterval);
  return std::chrono::duration_cast<std::chrono::steady_clock::duration>(std::chrono::duration<double>(seconds));
}

void runGuarded(const std::function<void()>& body, std::string_view what, int line, std::string_view function) {
  try {
    body();
  } catch (const std::exception& e) {
    LogBridge::error("IAM: " + std::string(what) + " threw: " + e.what(), kLogFile, line, function);
  } catch (...) {
    LogBridge::error("IAM: " + std::string(what) + " threw an unknown exception", kLogFile, line, function);
  }
}

}  // namespace

RunLoop& RunLoop::main() {
  // Never destroyed: background threads may still post while statics are torn down at exit.
  static RunLoop* const loop = new RunLoop();
  return *loop;
}

void RunLoop::post(Task task) {
  if (!task) return;
  std::shared_ptr<const std::function<void()>> wake;
  {
    std::lock_guard lock(mutex_);
    tasks_.push_back(std::move(task));
    wake = wakeHandler_;
  }
  wake_.notify_all();
  if (wake) (*wake)();
}

void RunLoop::setWakeHandler(std::function<void()> handler) {
  std::lock_guard lock(mutex_);
  wakeHandler_ = handler ? std::make_shared<const std::function<void()>>(std::move(handler)) : nullptr;
}

void RunLoop::noteMainThread() {
  std::lock_guard lock(mutex_);
  mainThread_ = std::this_thread::get_id();
}

bool RunLoop::isMainThread() const {
  std::lock_guard lock(mutex_);
  return mainThread_ == std::this_thread::get_id();
}

bool RunLoop::runOneTask() {
  Task task;
  {
    std::lock_guard lock(mutex_);
    if (tasks_.empty()) return false;
    task = std::move(tasks_.front());
    tasks_.pop_front();
  }
  runGuarded(task, "A task on the main run loop", __LINE__, "runUntilIdle");
  // The task (and what it captured) is destroyed here, outside the lock.
  return true;
}

bool RunLoop::runOneDueTimer() {
  const Date now = Clock::currentDate();
  std::shared_ptr<Timer> timer;
  std::uint64_t sequence = 0;
  {
    std::lock_guard lock(mutex_);
    auto it = timers_.begin();
    if (it == timers_.end() || it->first.first > now) return false;
    sequence = it->first.second;
    timer = std::move(it->second);
    timers_.erase(it);
  }
  fire(std::move(timer), sequence);
  return true;
}

void RunLoop::fire(std::shared_ptr<Timer> timer, std::uint64_t sequence) {
  Date fireDate;
  {
    std::lock_guard lock(timer->mutex_);
    if (!timer->valid_) return;
    fireDate = timer->fireDate_;
  }
  runGuarded([&] { timer->block_(*timer); }, "A timer block", __LINE__, "fire");

  if (!timer->repeats_) {
    std::lock_guard lock(timer->mutex_);
    timer->valid_ = false;
    return;
  }
  // The next fire stays on the grid start + n * interval, strictly after now: fires missed while
  // the loop was busy (or the clock jumped) collapse into this one.
  const Date now = Clock::currentDate();
  const auto step = std::max(
      std::chrono::duration_cast<Date::duration>(std::chrono::duration<double>(timer->interval_)), Date::duration(1));
  Date next = fireDate + step;
  if (next <= now) next = fireDate + step * ((now - fireDate) / step + 1);
  while (next <= now) next += step;

  std::lock_guard lock(mutex_);
  std::lock_guard timerLock(timer->mutex_);
  // Invalidated by its own block or by another thread meanwhile. `timer` is released on return,
  // after both locks.
  if (!timer->valid_) return;
  timer->fireDate_ = next;
  timers_.emplace(std::make_pair(next, sequence), timer);
}

std::size_t RunLoop::runUntilIdle() {
  noteMainThread();
  std::size_t ran = 0;
  while (runOneTask() || runOneDueTimer()) ++ran;
  return ran;
}

void RunLoop::waitForWork(std::chrono::steady_clock::duration longest) {
  std::unique_lock lock(mutex_);
  if (!tasks_.empty() || quit_) return;
  auto wait = std::min<std::chrono::steady_clock::duration>(longest, kLongestWait);
  if (!timers_.empty()) {
    const TimeInterval untilDue = timeIntervalBetween(timers_.begin()->first.first, Clock::currentDate());
    wait = std::min(wait, realDuration(untilDue));
  }
  if (wait <= std::chrono::steady_clock::duration::zero()) return;
  // Posts, new timers and `quit` notify; anything else is picked up on the next look.
  wake_.wait_for(lock, wait);
}

void RunLoop::runFor(TimeInterval seconds) {
  noteMainThread();
  if (!(seconds > 0)) seconds = 0;
  seconds = std::min(seconds, kMaximumInterval);
  const auto clock = Clock::currentShared();
  const Date end = dateByAddingTimeInterval(clock->now(), seconds);
  const auto waitRealTime = [this](TimeInterval left) { waitForWork(realDuration(left)); };
  for (;;) {
    runUntilIdle();
    if (clock->now() >= end) break;
    // Timer to timer: a clock that moves only when told fires each at its due time.
    Date until = end;
    if (auto next = nextTimerFireDate(); next && *next < until) until = *next;
    clock->sleepUntil(until, waitRealTime);
  }
}

bool RunLoop::runUntil(const std::function<bool()>& condition, TimeInterval timeoutSeconds) {
  noteMainThread();
  const auto deadline = std::chrono::steady_clock::now() + realDuration(timeoutSeconds);
  // Short slices: a background thread's change may make the condition true without a post.
  constexpr auto kSlice = std::chrono::milliseconds(5);
  for (;;) {
    if (condition()) return true;
    runUntilIdle();
    if (condition()) return true;
    const auto now = std::chrono::steady_clock::now();
    if (now >= deadline) return false;
    waitForWork(std::min<std::chrono::steady_clock::duration>(deadline - now, kSlice));
  }
}

void RunLoop::run() {
  noteMainThread();
  for (;;) {
    {
      std::lock_guard lock(mutex_);
      if (quit_) {
        quit_ = false;
        return;
      }
    }
    if (runOneTask() || runOneDueTimer()) continue;
    waitForWork(kLongestWait);
  }
}

void RunLoop::quit() {
  {
    std::lock_guard lock(mutex_);
    quit_ = true;
  }
  wake_.notify_all();
}

std::optional<Date> RunLoop::nextTimerFireDate() const {
  std::lock_guard lock(mutex_);
  for (const auto& [key, timer] : timers_) {
    std::lock_guard timerLock(timer->mutex_);
    if (timer->valid_) return key.first;
  }
  return std::nullopt;
}

void RunLoop::schedule(const std::shared_ptr<Timer>& timer) {
  std::shared_ptr<const std::function<void()>> wake;
  {
    std::lock_guard lock(mutex_);
    std::lock_guard timerLock(timer->mutex_);
    if (!timer->valid_) return;
    timers_.emplace(std::make_pair(timer->fireDate_, timerSequence_++), timer);
    wake = wakeHandler_;
  }
  wake_.notify_all();
  if (wake) (*wake)();
}

void RunLoop::unschedule(const Timer* timer) {
  std::shared_ptr<Timer> released;  // dropped after the lock: its block may own anything
  std::lock_guard lock(mutex_);
  for (auto it = timers_.begin(); it != timers_.end(); ++it) {
    if (it->second.get() == timer) {
      released = std::move(it->second);
      timers_.erase(it);
      break;
    }
  }
}

Timer::Timer(TimeInterval interval, bool repeats, Block block, Date fireDate)
    : interval_(clampedInterval(interval, repeats)), repeats_(repeats), block_(std::move(block)), fireDate_(fireDate) {
  if (!block_) valid_ = false;
}

std::shared_ptr<Timer> Timer::scheduledTimerWithTimeInterval(TimeInterval interval, bool repeats, Block block) {
  const TimeInterval clamped = clampedInterval(interval, repeats);
  auto timer = std::make_shared<Timer>(clamped, repeats, std::move(block),
                                       dateByAddingTimeInterval(Clock::currentDate(), clamped));
  RunLoop::main().schedule(timer);
  return timer;
}

void Timer::invalidate() {
  {
    std::lock_guard lock(mutex_);
    if (!valid_) return;
    valid_ = false;
  }
  // May drop the loop's reference; the caller holds its own, or this is the last statement.
  RunLoop::main().unschedule(this);
}

bool Timer::isValid() const {
  std::lock_guard lock(mutex_);
  return valid_;
}

Date Timer::fireDate() const {
  std::lock_guard lock(mutex_);
  return fireDate_;
}

}  // namespace iam
