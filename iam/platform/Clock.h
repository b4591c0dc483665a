#pragma once

#include <atomic>
#include <functional>
#include <memory>

#include "iam/platform/Date.h"

namespace iam {

// Where every "now" of the library comes from. The process-wide clock is the system clock until a
// host, a test or the simulator installs another one; install it before creating the manager.
// Thread-safe: `now()` may be called from any thread. The installed clock is never destroyed
// while the process runs, so threads may read it during exit.
class Clock {
 public:
  virtual ~Clock() = default;
  virtual Date now() const = 0;
  // Lets time pass until `deadline`, for a run loop that has nothing to do before then.
  // `waitRealTime(seconds)` waits on the caller's terms (returning early when work arrives); a
  // clock that runs in real time calls it, a clock that moves only when told moves to `deadline`.
  virtual void sleepUntil(Date deadline, const std::function<void(TimeInterval)>& waitRealTime);

  static Date currentDate();
  // Installs `clock` (none restores the system clock). Shared so that a clock being read on a
  // background thread while it is replaced stays alive.
  static void setCurrent(std::shared_ptr<Clock> clock);
  static std::shared_ptr<Clock> currentShared();
};

class SystemClock final : public Clock {
 public:
  Date now() const override;
};

// A clock that moves only when told to. Tests and `iam simulate` use it together with the main
// run loop, which fires timers that have come due on this clock.
class ManualClock final : public Clock {
 public:
  explicit ManualClock(Date start = dateWithTimeIntervalSince1970(0));
  Date now() const override;
  void sleepUntil(Date deadline, const std::function<void(TimeInterval)>& waitRealTime) override;
  void setNow(Date date);
  void advance(TimeInterval seconds);

 private:
  std::atomic<Date::rep> ticks_;
};

}  // namespace iam
