#include "iam/platform/Clock.h"

#include <mutex>

namespace iam {
namespace {

std::mutex& clockMutex() {
  static std::mutex m;
  return m;
}

std::shared_ptr<Clock>& installedClock() {
  static std::shared_ptr<Clock> clock = std::make_shared<SystemClock>();
  return clock;
}

}  // namespace

Clock& Clock::current() { return *currentShared(); }

std::shared_ptr<Clock> Clock::currentShared() {
  std::lock_guard lock(clockMutex());
  return installedClock();
}

void Clock::setCurrent(std::shared_ptr<Clock> clock) {
  std::lock_guard lock(clockMutex());
  installedClock() = clock ? std::move(clock) : std::make_shared<SystemClock>();
}

Date SystemClock::now() const { return std::chrono::system_clock::now(); }

ManualClock::ManualClock(Date start) : ticks_(start.time_since_epoch().count()) {}

Date ManualClock::now() const { return Date(Date::duration(ticks_.load(std::memory_order_acquire))); }

void ManualClock::setNow(Date date) { ticks_.store(date.time_since_epoch().count(), std::memory_order_release); }

void ManualClock::advance(TimeInterval seconds) {
  auto delta = std::chrono::duration_cast<Date::duration>(std::chrono::duration<double>(seconds));
  ticks_.fetch_add(delta.count(), std::memory_order_acq_rel);
}

}  // namespace iam
