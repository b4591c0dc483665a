#include "manager/ManagerFixture.h"

namespace iam {
namespace {

// App events are walked on the pool while the main thread taps, takes the display requests (whose
// impressions the host confirms) and switches interstitials off, and the statistics queue saves.
TEST_F(AppEventTest, EventsTapsAndImpressionsInterleaveWithExactCounts) {
  start(json::array({ad("p", kPreload, {{"triggers", {on("pt", "ev")}}})}));
  const auto p = manager_->getAdvertisementByAdvertisementId("p");
  const auto counts = stats("p");
  for (int i = 0; i < 300; ++i) {
    if (i == 250) manager_->disableInterstitials();  // walks in flight fire or not, never half
    manager_->handleAppEvent("ev");
    manager_->handleAdvertisementEvent(
        ZTIAMAdvertisementEventFactory::createEventWithType(ZTIAMAdvertisementEventTypeClick, p, nullptr, nullptr),
        nullptr, nullptr);
    RunLoop::main().runUntilIdle();
    if (i == 199) {
      env_.settle();
      EXPECT_EQ(counts->numberOfImpressions() + fired("p", "pt") + events("ev"), 600);  // 200 each
    }
  }
  env_.settle();
  EXPECT_EQ(events("ev") + counts->numberOfClicks(), 600);
  EXPECT_EQ(counts->numberOfImpressions() * 2, fired("p", "pt") + static_cast<std::int64_t>(host_->shown.size()));
  EXPECT_LE(fired("p", "pt"), 250);
}

}  // namespace
}  // namespace iam
