#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "iam/model/Advertisement.h"
#include "iam/model/AdvertisementTrigger.h"
#include "iam/platform/ZTSettings.h"
#include "iam/stats/ZTIAMAdvertisementEvent.h"
#include "iam/stats/ZTIAMStatsHelper.h"
#include "iam/platform/InMemoryPreferencesStore.h"
#include "stats/StatsTestSupport.h"

namespace iam {
namespace {

// An in-memory store that remembers which keys were written, in order.
class RecordingStore final : public PreferencesStore {
 public:
  std::optional<std::vector<std::uint8_t>> dataForKey(std::string_view key) const override {
    return inner_.dataForKey(key);
  }
  bool setData(std::span<const std::uint8_t> data, std::string_view key) override {
    {
      std::lock_guard lock(mutex_);
      writes_.emplace_back(key);
    }
    return inner_.setData(data, key);
  }
  void removeObjectForKey(std::string_view key) override { inner_.removeObjectForKey(key); }
  std::vector<std::string> allKeys() const override { return inner_.allKeys(); }

  std::vector<std::string> writes() const {
    std::lock_guard lock(mutex_);
    return writes_;
  }
  void clearWrites() {
    std::lock_guard lock(mutex_);
    writes_.clear();
  }

 private:
  InMemoryPreferencesStore inner_;
  mutable std::mutex mutex_;
  std::vector<std::string> writes_;  // guarded by mutex_
};

class StatsStoreTest : public testing::StatsTest {
 protected:
  void SetUp() override {
    testing::StatsTest::SetUp();
    recording = std::make_shared<RecordingStore>();
    PreferencesStore::setStandard(recording);
  }

  static std::shared_ptr<ZTIAMAdvertisementEvent> eventFor(const std::shared_ptr<Advertisement>& ad,
                                                           ZTIAMAdvertisementEventType type) {
    return ZTIAMAdvertisementEventFactory::createEventWithType(type, ad, nullptr, nullptr);
  }

  const std::string adKey{ZTIAMStatsHelper::kAdvertisementStatsKey};
  const std::string eventKey{ZTIAMStatsHelper::kGlobalAppEventStatsKey};
  std::shared_ptr<RecordingStore> recording;
};

TEST_F(StatsStoreTest, AFreshInstallStartsEmptyAndLookUpsCreateWithoutSaving) {
  ZTIAMStatsHelper helper;
  EXPECT_TRUE(helper.advertisementStats().empty());
  EXPECT_TRUE(helper.globalAppEventStats().empty());
  auto record = helper.getAdvertisementStatsByAdvertisementId("ad-1");
  EXPECT_EQ(record->advertisementId(), "ad-1");
  EXPECT_EQ(helper.getAdvertisementStatsByAdvertisementId("ad-1"), record);
  auto event = helper.getAppEventStatsByEventKey("level");
  EXPECT_EQ(event->eventKey(), "level");
  EXPECT_EQ(helper.getAppEventStatsByEventKey("level"), event);
  helper.waitUntilSavesAreFinished();
  EXPECT_TRUE(recording->writes().empty());
}

TEST_F(StatsStoreTest, EveryCountedEventIsInMemoryAtOnceAndSavesItsWholeMap) {
  auto ad = std::make_shared<Advertisement>("ad-1");
  auto trigger = std::make_shared<AdvertisementTrigger>("t-1", "level");
  trigger->setAdvertisement(ad);
  ZTIAMStatsHelper helper;

  helper.handleAdvertisementImpression(*eventFor(ad, ZTIAMAdvertisementEventTypeImpression));
  clock->advance(3);
  helper.handleAdvertisementImpression(*eventFor(ad, ZTIAMAdvertisementEventTypeImpression));
  auto record = helper.getAdvertisementStatsByAdvertisementId("ad-1");
  EXPECT_EQ(record->numberOfImpressions(), 2);
  EXPECT_EQ(record->mostRecentImpressionDate(), clock->now());
  helper.waitUntilSavesAreFinished();
  EXPECT_EQ(recording->writes(), (std::vector<std::string>{adKey, adKey}));

  recording->clearWrites();
  helper.handleAdvertisementClick(*eventFor(ad, ZTIAMAdvertisementEventTypeClick));
  helper.handleAdvertisementDismiss(*eventFor(ad, ZTIAMAdvertisementEventTypeDismiss));
  helper.handleAdvertisementPostpone(*eventFor(ad, ZTIAMAdvertisementEventTypePostpone));
  helper.handleTriggerFired(*trigger);
  EXPECT_EQ(record->numberOfClicks(), 1);
  EXPECT_EQ(record->numberOfDismisses(), 1);
  EXPECT_EQ(record->numberOfPostpones(), 1);
  EXPECT_EQ(record->triggerStats().at("t-1")->count(), 1);
  helper.waitUntilSavesAreFinished();
  EXPECT_EQ(recording->writes(), std::vector<std::string>(4, adKey));

  recording->clearWrites();
  helper.handleAppEventWithKey("level");
  EXPECT_EQ(helper.getAppEventStatsByEventKey("level")->count(), 1);
  helper.waitUntilSavesAreFinished();
  EXPECT_EQ(recording->writes(), std::vector<std::string>{eventKey});  // only the app event map

  // What was stored is what is in memory.
  auto stored = ZTSettings::getSafeDictionaryFromPreferencesWithKey<ZTIAMAdvertisementStats>(adKey);
  ASSERT_EQ(stored.size(), 1u);
  EXPECT_EQ(stored.at("ad-1")->numberOfImpressions(), 2);
  EXPECT_EQ(stored.at("ad-1")->numberOfPostpones(), 1);
  EXPECT_EQ(stored.at("ad-1")->triggerStats().at("t-1")->count(), 1);
}

TEST_F(StatsStoreTest, EventsWithoutAnAdvertisementAreNotCounted) {
  ZTIAMStatsHelper helper;
  helper.handleAdvertisementImpression(*eventFor(nullptr, ZTIAMAdvertisementEventTypeImpression));
  auto trigger = std::make_shared<AdvertisementTrigger>("t-1", "level");
  {
    auto gone = std::make_shared<Advertisement>("gone");
    trigger->setAdvertisement(gone);
  }
  helper.handleTriggerFired(*trigger);
  helper.waitUntilSavesAreFinished();
  EXPECT_TRUE(helper.advertisementStats().empty());
  EXPECT_TRUE(recording->writes().empty());
}

TEST_F(StatsStoreTest, OnlySavedRecordsSurviveARestart) {
  auto counted = std::make_shared<Advertisement>("counted");
  {
    ZTIAMStatsHelper helper;
    helper.getAdvertisementStatsByAdvertisementId("looked-up-before");
    helper.handleAdvertisementImpression(*eventFor(counted, ZTIAMAdvertisementEventTypeImpression));
    helper.handleAppEventWithKey("launch");
    helper.waitUntilSavesAreFinished();
    helper.getAdvertisementStatsByAdvertisementId("looked-up-after");
    helper.getAppEventStatsByEventKey("never counted");
  }
  ZTIAMStatsHelper restarted;
  const auto ads = restarted.advertisementStats();
  ASSERT_EQ(ads.size(), 2u);
  EXPECT_EQ(ads.at("counted")->numberOfImpressions(), 1);
  EXPECT_EQ(ads.at("counted")->advertisementId(), "counted");
  EXPECT_EQ(ads.at("looked-up-before")->numberOfImpressions(), 0);  // persisted by the next save
  const auto events = restarted.globalAppEventStats();
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events.at("launch")->count(), 1);
}

TEST_F(StatsStoreTest, DestructionWaitsForQueuedSaves) {
  auto ad = std::make_shared<Advertisement>("ad-1");
  {
    ZTIAMStatsHelper helper;
    for (int i = 0; i < 50; ++i) helper.handleAdvertisementClick(*eventFor(ad, ZTIAMAdvertisementEventTypeClick));
  }
  EXPECT_EQ(recording->writes().size(), 50u);
  ZTIAMStatsHelper restarted;
  EXPECT_EQ(restarted.getAdvertisementStatsByAdvertisementId("ad-1")->numberOfClicks(), 50);
}

TEST_F(StatsStoreTest, ResetPersistsEmptyMaps) {
  auto ad = std::make_shared<Advertisement>("ad-1");
  {
    ZTIAMStatsHelper helper;
    helper.handleAdvertisementImpression(*eventFor(ad, ZTIAMAdvertisementEventTypeImpression));
    helper.handleAppEventWithKey("launch");
    helper.waitUntilSavesAreFinished();
    recording->clearWrites();
    helper.resetAllStats();
    EXPECT_TRUE(helper.advertisementStats().empty());
    EXPECT_TRUE(helper.globalAppEventStats().empty());
  }
  EXPECT_EQ(recording->writes(), (std::vector<std::string>{adKey, eventKey}));
  for (const auto& key : {adKey, eventKey}) {
    auto data = recording->dataForKey(key);
    ASSERT_TRUE(data);
    auto map = KeyedUnarchiver::unarchivedDictionaryOfClass<ZTIAMAdvertisementStats>(*data);
    ASSERT_TRUE(map) << key;
    EXPECT_TRUE(map->empty());
  }
  ZTIAMStatsHelper restarted;
  EXPECT_TRUE(restarted.advertisementStats().empty());
  EXPECT_EQ(restarted.getAdvertisementStatsByAdvertisementId("ad-1")->numberOfImpressions(), 0);
  EXPECT_EQ(restarted.getAppEventStatsByEventKey("launch")->count(), 0);
}

TEST_F(StatsStoreTest, UnreadableStoredStatisticsStartEmpty) {
  const std::vector<std::uint8_t> garbage = {0xc1, 0x00, 0xff};
  recording->setData(garbage, adKey);
  recording->setData(garbage, eventKey);
  ZTIAMStatsHelper helper;
  EXPECT_TRUE(helper.advertisementStats().empty());
  EXPECT_TRUE(helper.globalAppEventStats().empty());
  helper.handleAppEventWithKey("launch");
  helper.waitUntilSavesAreFinished();
  ZTIAMStatsHelper restarted;
  EXPECT_EQ(restarted.getAppEventStatsByEventKey("launch")->count(), 1);
}

TEST_F(StatsStoreTest, LoadingLogsOnlyWhenInfoLoggingIsOn) {
  { ZTIAMStatsHelper quiet; }
  EXPECT_TRUE(log->messages(LogLevel::Info).empty());
  InfoLogSwitch::setLogInfoEnabled(true);
  { ZTIAMStatsHelper verbose; }
  const auto records = log->records();
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].message, "IAM: Loaded advertisement stats.");
  EXPECT_EQ(records[0].function, "loadAdvertisementStats");
  EXPECT_EQ(records[1].message, "IAM: Loaded global app event stats.");
  EXPECT_EQ(records[1].function, "loadGlobalAppEventStats");
  for (const auto& r : records) {
    EXPECT_EQ(r.level, LogLevel::Info);
    EXPECT_EQ(r.filename, "InAppMarketing/source/Logic/Stats/_ZTIAMStatsHelper");
  }
}

}  // namespace
}  // namespace iam
