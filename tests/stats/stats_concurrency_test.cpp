#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "iam/ArchivableClasses.h"
#include "iam/model/Advertisement.h"
#include "iam/model/AdvertisementTrigger.h"
#include "iam/platform/PreferencesStore.h"
#include "iam/stats/ZTIAMAdvertisementEvent.h"
#include "iam/stats/ZTIAMStatsHelper.h"
#include "iam/platform/SQLitePreferencesStore.h"
#include "platform/ScratchDirectory.h"

namespace iam {
namespace {

constexpr int kEventsPerThread = 10'000;
constexpr int kLookUpEvery = 2'000;

// Two threads count into the same records (as the evaluation thread and the main thread do) while
// saves archive them and a third thread reads them as the validity rules do. Nothing may be lost,
// in memory or on disk.
TEST(StatsConcurrencyTest, TwoCountingThreadsLoseNothingInMemoryOrOnDisk) {
  testing::ScratchDirectory dir;
  const std::string path = dir.file("preferences.sqlite");
  auto store = SQLitePreferencesStore::open(path);
  ASSERT_NE(store, nullptr);
  PreferencesStore::setStandard(store);

  auto ad = std::make_shared<Advertisement>("ad-shared");
  auto trigger = std::make_shared<AdvertisementTrigger>("trigger-shared", "launch");
  trigger->setAdvertisement(ad);
  auto helper = std::make_unique<ZTIAMStatsHelper>();

  std::atomic<bool> counting{true};
  auto count = [&](int seed) {
    for (int i = 0; i < kEventsPerThread; ++i) {
      switch ((i + seed) % 4) {
        case 0:
          helper->handleAdvertisementImpression(*ZTIAMAdvertisementEventFactory::createEventWithType(
              ZTIAMAdvertisementEventTypeImpression, ad, trigger, nullptr));
          break;
        case 1:
          helper->handleAdvertisementClick(
              *ZTIAMAdvertisementEventFactory::createEventWithType(ZTIAMAdvertisementEventTypeClick, ad, nullptr));
          break;
        case 2: helper->handleTriggerFired(*trigger); break;
        default: helper->handleAppEventWithKey("launch"); break;
      }
      // New records appear while saves walk the maps.
      if (i % kLookUpEvery == 0) helper->getAdvertisementStatsByAdvertisementId("looked-up-" + std::to_string(seed) + "-" + std::to_string(i));
    }
  };
  std::thread reader([&] {
    std::int64_t lastImpressions = 0;
    while (counting.load()) {
      auto record = helper->getAdvertisementStatsByAdvertisementId("ad-shared");
      const auto impressions = record->numberOfImpressions();
      EXPECT_GE(impressions, lastImpressions);  // counters only grow
      lastImpressions = impressions;
      for (const auto& [id, stats] : record->triggerStats()) EXPECT_GE(stats->count(), 0) << id;
      (void)KeyedArchiver::archivedDataWithRootObject(*record);
      (void)helper->getAppEventStatsByEventKey("launch")->mostRecentOccurrence();
      std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
  });
  std::thread evaluation(count, 0);
  std::thread mainThread(count, 1);
  evaluation.join();
  mainThread.join();
  counting = false;
  reader.join();

  const std::int64_t perKind = kEventsPerThread * 2 / 4;
  auto check = [&](ZTIAMStatsHelper& h, const char* where) {
    SCOPED_TRACE(where);
    auto record = h.getAdvertisementStatsByAdvertisementId("ad-shared");
    EXPECT_EQ(record->numberOfImpressions(), perKind);
    EXPECT_EQ(record->numberOfClicks(), perKind);
    const auto triggers = record->triggerStats();
    ASSERT_EQ(triggers.count("trigger-shared"), 1u);
    EXPECT_EQ(triggers.at("trigger-shared")->count(), perKind);
    EXPECT_EQ(h.getAppEventStatsByEventKey("launch")->count(), perKind);
    EXPECT_EQ(h.advertisementStats().size(), 1u + 2 * kEventsPerThread / kLookUpEvery);
  };
  check(*helper, "in memory");

  helper.reset();  // waits for the queued saves
  PreferencesStore::setStandard(nullptr);
  store.reset();
  auto reopened = SQLitePreferencesStore::open(path);
  ASSERT_NE(reopened, nullptr);
  PreferencesStore::setStandard(reopened);
  ZTIAMStatsHelper restarted;
  check(restarted, "after reopening the store");
  PreferencesStore::setStandard(nullptr);
}

}  // namespace
}  // namespace iam
