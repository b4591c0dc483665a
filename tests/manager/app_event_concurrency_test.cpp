#include "manager/ManagerFixture.h"

namespace iam {
namespace {

// App events are walked on the pool while the main thread taps, takes display requests (whose
// impressions the host confirms), switches interstitials off and the statistics queue saves.
TEST_F(AppEventTest, EventsTapsAndImpressionsInterleaveWithExactCounts) {
  start(json::array({ad("p", kPreload, {{"triggers", {on("pt", "ev")}}})}));
  const auto p = manager_->getAdvertisementByAdvertisementId("p");
  auto round = [&] {
    manager_->handleAppEvent("ev");
    manager_->handleAdvertisementEvent(
        ZTIAMAdvertisementEventFactory::createEventWithType(ZTIAMAdvertisementEventTypeClick, p, nullptr, nullptr),
        nullptr, nullptr);
    RunLoop::main().runUntilIdle();
  };
  for (int i = 0; i < 200; ++i) round();
  env_.settle();
  const auto pStats = stats("p");
  EXPECT_EQ(events("ev"), 200);
  EXPECT_EQ(fired("p", "pt"), 200);
  EXPECT_EQ(pStats->numberOfImpressions(), 200);
  EXPECT_EQ(pStats->numberOfClicks(), 200);

  // Switched off while walks are in flight: each walk fires or not, but never half.
  for (int i = 0; i < 100; ++i) {
    if (i == 50) manager_->disableInterstitials();
    round();
  }
  env_.settle();
  EXPECT_EQ(events("ev"), 300);
  EXPECT_EQ(pStats->numberOfClicks(), 300);
  EXPECT_EQ(pStats->numberOfImpressions(), fired("p", "pt"));
  EXPECT_LE(fired("p", "pt"), 250);
  EXPECT_EQ(static_cast<std::int64_t>(host_->shown.size()), fired("p", "pt"));
}

}  // namespace
}  // namespace iam
