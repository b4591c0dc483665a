#include "testing/TestEnvironment.h"

#include <gtest/gtest.h>

#include "iam/platform/InfoLogSwitch.h"
#include "iam/platform/RunLoop.h"
#include "iam/platform/ZTDispatchTools.h"
#include "iam/platform/InMemoryPreferencesStore.h"

namespace iam::testing {

TestEnvironment::TestEnvironment(Date start)
    : clock_(std::make_shared<ManualClock>(start)), preferences_(std::make_shared<InMemoryPreferencesStore>()) {
  Clock::setCurrent(clock_);
  PreferencesStore::setStandard(preferences_);
  InfoLogSwitch::setLogInfoEnabled(false);
}

TestEnvironment::~TestEnvironment() {
  EXPECT_TRUE(ZTDispatchTools::settle()) << "background work still running when the test ended";
  InfoLogSwitch::setLogInfoEnabled(false);
  PreferencesStore::setStandard(nullptr);
  Clock::setCurrent(nullptr);
  // The log capture is restored last, as the member destroyed after this body.
}

void TestEnvironment::settle() {
  ASSERT_TRUE(ZTDispatchTools::settle()) << "background work did not settle";
}

void TestEnvironment::advance(TimeInterval seconds) {
  RunLoop::main().runFor(seconds);
  settle();
}

void TestEnvironment::setInfoLogEnabled(bool on) { InfoLogSwitch::setLogInfoEnabled(on); }

}  // namespace iam::testing
