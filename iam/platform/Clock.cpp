#include "iam/platform/Clock.h"

#include <cstdint>
#include <mutex>

namespace iam {
namespace {

struct Installed {
  std::mutex mutex;
  std::shared_ptr<Clock> clock = std::make_shared<SystemClock>();  // guarded by mutex
  std::atomic<std::uint64_t> generation{1};  // counts installs, after the clock is in place
};

Installed& installed() {
  static Installed* const state = new Installed();  // never destroyed
  return *state;
}

}  // namespace

std::shared_ptr<Clock> Clock::currentShared() {
  auto& state = installed();
  std::lock_guard lock(state.mutex);
  return state.clock;
}

// Each thread keeps the clock it read last: the rules ask for the date several times per
// advertisement, and reading the installed clock costs a lock and two reference counts.
Date Clock::currentDate() {
  thread_local std::shared_ptr<Clock> cached;
  thread_local std::uint64_t seen = 0;
  auto& state = installed();
  if (const auto generation = state.generation.load(std::memory_order_acquire); generation != seen) {
    cached = currentShared();
    seen = generation;
  }
  return cached->now();
}

void Clock::setCurrent(std::shared_ptr<Clock> clock) {
  auto next = clock ? std::move(clock) : std::make_shared<SystemClock>();
  auto& state = installed();
  {
    std::lock_guard lock(state.mutex);
    std::swap(state.clock, next);
    state.generation.fetch_add(1, std::memory_order_release);
  }
}

void Clock::sleepUntil(Date deadline, const std::function<void(TimeInterval)>& waitRealTime) {
  const TimeInterval left = timeIntervalBetween(deadline, now());
  if (left > 0) waitRealTime(left);
}

Date SystemClock::now() const { return std::chrono::system_clock::now(); }

ManualClock::ManualClock(Date start) : ticks_(start.time_since_epoch().count()) {}

Date ManualClock::now() const { return Date(Date::duration(ticks_.load(std::memory_order_acquire))); }

void ManualClock::sleepUntil(Date deadline, const std::function<void(TimeInterval)>&) {
  if (deadline > now()) setNow(deadline);
}

void ManualClock::setNow(Date date) { ticks_.store(date.time_since_epoch().count(), std::memory_order_release); }

void ManualClock::advance(TimeInterval seconds) {
  auto delta = std::chrono::duration_cast<Date::duration>(std::chrono::duration<double>(seconds));
  ticks_.fetch_add(delta.count(), std::memory_order_acq_rel);
}

}  // namespace iam
