#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>

#include "iam/ArchivableClasses.h"
#include "iam/model/Advertisement.h"
#include "iam/model/AdvertisementTrigger.h"
#include "iam/platform/SQLitePreferencesStore.h"
#include "iam/stats/ZTIAMAdvertisementEvent.h"
#include "iam/stats/ZTIAMStatsHelper.h"
#include "platform/ScratchDirectory.h"
#include "testing/TestEnvironment.h"

namespace iam {
namespace {

constexpr int kEventsPerThread = 10'000;
constexpr int kLookUpEvery = 2'000;

// Two threads count into the same records (as the evaluation thread and the main thread do) while
// saves archive them. Nothing may be lost, in memory or on disk.
TEST(StatsConcurrencyTest, TwoCountingThreadsLoseNothingInMemoryOrOnDisk) {
  testing::TestEnvironment env;
  testing::ScratchDirectory dir;
  PreferencesStore::setStandard(SQLitePreferencesStore::open(dir.file("preferences.sqlite")));
  auto ad = std::make_shared<Advertisement>("ad-shared");
  auto trigger = std::make_shared<AdvertisementTrigger>("trigger-shared", "launch");
  trigger->setAdvertisement(ad);
  auto helper = std::make_unique<ZTIAMStatsHelper>();
  // The store counts by the event's advertisement, whatever the event's type.
  const auto event = ZTIAMAdvertisementEventFactory::createEventWithType(ZTIAMAdvertisementEventTypeClick, ad, nullptr);

  auto count = [&](int seed) {
    for (int i = 0; i < kEventsPerThread; ++i) {
      switch ((i + seed) % 4) {
        case 0: helper->handleAdvertisementImpression(*event); break;
        case 1: helper->handleAdvertisementClick(*event); break;
        case 2: helper->handleTriggerFired(*trigger); break;
        default: helper->handleAppEventWithKey("launch"); break;
      }
      // New records appear while saves walk the maps.
      if (i % kLookUpEvery == 0) helper->getAdvertisementStatsByAdvertisementId(std::to_string(seed * 100'000 + i));
    }
  };
  std::thread evaluation(count, 0);
  std::thread mainThread(count, 1);
  evaluation.join();
  mainThread.join();

  auto check = [&](ZTIAMStatsHelper& h) {
    const std::int64_t perKind = kEventsPerThread * 2 / 4;
    auto record = h.getAdvertisementStatsByAdvertisementId("ad-shared");
    EXPECT_EQ(record->numberOfImpressions(), perKind);
    EXPECT_EQ(record->numberOfClicks(), perKind);
    EXPECT_EQ(record->getTriggerStatsWithTriggerId("trigger-shared")->count(), perKind);
    EXPECT_EQ(h.getAppEventStatsByEventKey("launch")->count(), perKind);
    EXPECT_EQ(h.advertisementStats().size(), 1u + 2 * kEventsPerThread / kLookUpEvery);
  };
  check(*helper);
  helper.reset();  // waits for the queued saves
  PreferencesStore::setStandard(SQLitePreferencesStore::open(dir.file("preferences.sqlite")));
  check(*std::make_unique<ZTIAMStatsHelper>());
  PreferencesStore::setStandard(env.preferences());
}

}  // namespace
}  // namespace iam
