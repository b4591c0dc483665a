#pragma once

#include <atomic>
#include <memory>

#include "iam/platform/Date.h"

namespace iam {

// Where every "now" of the library comes from. The process-wide clock is the system clock until a
// host, a test or the simulator installs another one; install it before creating the manager.
// Thread-safe: `now()` may be called from any thread.
class Clock {
 public:
  virtual ~Clock() = default;
  virtual Date now() const = 0;

  // The process-wide clock. The returned reference stays valid until the next `setCurrent`.
  static Clock& current();
  static Date currentDate() { return currentShared()->now(); }
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
  void setNow(Date date);
  void advance(TimeInterval seconds);

 private:
  std::atomic<Date::rep> ticks_;
};

}  // namespace iam
