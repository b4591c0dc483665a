#pragma once

#include <memory>

#include "iam/platform/Clock.h"
#include "iam/platform/Date.h"
#include "iam/platform/PreferencesStore.h"
#include "iam/platform/InMemoryPreferencesStore.h"
#include "testing/CapturingLogSink.h"

namespace iam::testing {

// The process-wide services a test runs on, installed for the test's lifetime: a manual clock,
// an empty in-memory preferences store, log capture and info logging off. Make it the first
// member of a fixture so that it is destroyed last: the destructor settles the background pool
// and the main loop (work the test started ends while the test's objects are gone or going),
// then restores every global it replaced. Main thread only.
class TestEnvironment {
 public:
  static constexpr double kDefaultStart = 1'600'000'000.25;

  explicit TestEnvironment(Date start = dateWithTimeIntervalSince1970(kDefaultStart));
  ~TestEnvironment();
  TestEnvironment(const TestEnvironment&) = delete;
  TestEnvironment& operator=(const TestEnvironment&) = delete;

  ManualClock& clock() { return *clock_; }
  const std::shared_ptr<InMemoryPreferencesStore>& preferences() { return preferences_; }
  CapturingLogSink& log() { return log_; }

  // Runs the main loop and waits for background work until neither has anything left to do.
  // Fails the test when that takes longer than a few seconds of real time.
  void settle();
  // Lets `seconds` pass on the manual clock, firing timers at their due times, then settles.
  void advance(TimeInterval seconds);
  void setInfoLogEnabled(bool on);

 private:
  const std::shared_ptr<ManualClock> clock_;
  const std::shared_ptr<InMemoryPreferencesStore> preferences_;
  CapturingLogSink log_;
};

}  // namespace iam::testing
