#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "iam/model/Advertisement.h"
#include "iam/model/AdvertisementTrigger.h"
#include "iam/platform/InMemoryPreferencesStore.h"
#include "iam/stats/ZTIAMAdvertisementEvent.h"
#include "iam/stats/ZTIAMAdvertisementStats.h"
#include "iam/stats/ZTIAMAdvertisementTriggerStats.h"
#include "iam/stats/ZTIAMStatsHelper.h"
#include "stats/StatsTestSupport.h"

namespace iam {
namespace {

// In-memory preferences that remember which keys were written, in order.
class RecordingStore final : public PreferencesStore {
 public:
  std::optional<Data> dataForKey(std::string_view key) const override { return inner_.dataForKey(key); }
  bool setData(std::span<const std::uint8_t> data, std::string_view key) override {
    {
      std::lock_guard lock(mutex_);
      writes_.emplace_back(key);
    }
    return inner_.setData(data, key);
  }
  void removeObjectForKey(std::string_view key) override { inner_.removeObjectForKey(key); }
  std::vector<std::string> allKeys() const override { return inner_.allKeys(); }
  std::vector<std::string> takeWrites() {
    std::lock_guard lock(mutex_);
    return std::exchange(writes_, {});
  }

 private:
  InMemoryPreferencesStore inner_;
  std::mutex mutex_;
  std::vector<std::string> writes_;  // guarded by mutex_
};

class StatsStoreTest : public testing::StatsTest {
 protected:
  StatsStoreTest() { PreferencesStore::setStandard(recording); }

  // The store counts by the event's advertisement; the event's type is the caller's choice.
  static std::shared_ptr<ZTIAMAdvertisementEvent> eventFor(std::shared_ptr<Advertisement> ad) {
    return ZTIAMAdvertisementEventFactory::createEventWithType(ZTIAMAdvertisementEventTypeClick, ad, nullptr, nullptr);
  }
  // What encoding each whole map in memory gives.
  static std::pair<Data, Data> encoded(const ZTIAMStatsHelper& helper) {
    return {KeyedArchiver::archivedDataWithRootDictionary(helper.advertisementStats()),
            KeyedArchiver::archivedDataWithRootDictionary(helper.globalAppEventStats())};
  }

  const std::string adKey{ZTIAMStatsHelper::kAdvertisementStatsKey};
  const std::string eventKey{ZTIAMStatsHelper::kGlobalAppEventStatsKey};
  const std::shared_ptr<RecordingStore> recording = std::make_shared<RecordingStore>();
  const std::shared_ptr<Advertisement> ad = std::make_shared<Advertisement>("ad-1");
  const std::shared_ptr<ZTIAMAdvertisementEvent> adEvent = eventFor(ad);
};

// Nothing readable stored is a fresh install. Look-ups and events without an advertisement save
// nothing; a counted event is in memory at once and saves its own whole map; a reset saves both
// maps empty, and the next start reads them so.
TEST_F(StatsStoreTest, FromAFreshInstallEachCountedEventSavesItsMapAndAResetSavesBothEmpty) {
  recording->setData(Data{0xc1, 0x00, 0xff}, adKey);
  recording->takeWrites();
  auto helper = std::make_unique<ZTIAMStatsHelper>();
  EXPECT_TRUE(helper->advertisementStats().empty() && helper->globalAppEventStats().empty());
  auto record = helper->getAdvertisementStatsByAdvertisementId("ad-1");
  EXPECT_EQ(record->advertisementId(), "ad-1");
  EXPECT_EQ(helper->getAdvertisementStatsByAdvertisementId("ad-1"), record);
  EXPECT_EQ(helper->getAppEventStatsByEventKey("level"), helper->getAppEventStatsByEventKey("level"));
  EXPECT_EQ(helper->getAppEventStatsByEventKey("level")->eventKey(), "level");
  helper->handleAdvertisementImpression(*eventFor(nullptr));
  auto trigger = std::make_shared<AdvertisementTrigger>("t-1", "level");
  trigger->setAdvertisement(std::make_shared<Advertisement>("gone"));
  helper->handleTriggerFired(*trigger);
  helper->waitUntilSavesAreFinished();
  EXPECT_EQ(helper->advertisementStats().size(), 1u);
  EXPECT_TRUE(recording->takeWrites().empty());

  trigger->setAdvertisement(ad);
  helper->handleAdvertisementImpression(*adEvent);
  helper->handleAdvertisementImpression(*adEvent);
  helper->handleAdvertisementClick(*adEvent);
  helper->handleAdvertisementDismiss(*adEvent);
  helper->handleAdvertisementPostpone(*adEvent);
  helper->handleTriggerFired(*trigger);
  EXPECT_EQ(record->numberOfImpressions() + record->numberOfClicks() + record->numberOfPostpones(), 4);
  EXPECT_EQ(record->triggerStats().at("t-1")->count(), 1);
  helper->waitUntilSavesAreFinished();
  EXPECT_EQ(recording->takeWrites(), std::vector<std::string>(6, adKey));
  helper->handleAppEventWithKey("level");
  EXPECT_EQ(helper->getAppEventStatsByEventKey("level")->count(), 1);
  helper->waitUntilSavesAreFinished();
  EXPECT_EQ(recording->takeWrites(), std::vector<std::string>{eventKey});  // only the app event map

  helper->resetAllStats();
  EXPECT_TRUE(helper->advertisementStats().empty() && helper->globalAppEventStats().empty());
  helper.reset();
  EXPECT_EQ(recording->takeWrites(), (std::vector<std::string>{adKey, eventKey}));
  ZTIAMStatsHelper restarted;
  EXPECT_TRUE(restarted.advertisementStats().empty() && restarted.globalAppEventStats().empty());
}

// Whatever happened since the previous save (counted events, records changed from outside the
// store, trigger records counted directly, resets, reloads, restarts), a save writes the bytes a
// full encoding of the map gives.
TEST_F(StatsStoreTest, SavesWriteWhatAFullEncodingGivesAfterRandomEventsResetsAndReloads) {
  std::mt19937 random(16);
  auto pick = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
  std::vector<std::shared_ptr<Advertisement>> ads;
  for (int i = 0; i < 5; ++i) ads.push_back(std::make_shared<Advertisement>("ad-" + std::to_string(i)));
  auto helper = std::make_unique<ZTIAMStatsHelper>();
  for (int step = 0; step < 600; ++step) {
    clock().advance(pick(3));
    const auto& ad = ads[static_cast<std::size_t>(pick(5))];
    AdvertisementTrigger trigger("t-" + std::to_string(pick(3)), "level");
    trigger.setAdvertisement(ad);
    auto record = [&] { return helper->getAdvertisementStatsByAdvertisementId(ad->advertisementId()); };
    const auto event = eventFor(ad);
    switch (pick(15)) {
      case 0: helper->handleAdvertisementImpression(*event); break;
      case 1: helper->handleAdvertisementDismiss(*event); break;
      case 11: helper->handleAdvertisementClick(*event); break;
      case 12: helper->handleAdvertisementPostpone(*event); break;
      case 2: helper->handleTriggerFired(trigger); break;
      case 3: helper->handleAppEventWithKey("e-" + std::to_string(pick(4))); break;
      case 4: record()->setNumberOfImpressions(pick(300)); break;
      case 5: record()->setMostRecentImpressionDate(clock().now()); break;
      case 6: record()->getTriggerStatsWithTriggerId(trigger.triggerId())->incrementCount(); break;
      case 7: helper->getAppEventStatsByEventKey("looked-up-" + std::to_string(pick(9))); break;
      case 13: record()->getTriggerStatsWithTriggerId("looked-up-" + std::to_string(pick(9))); break;
      case 8: helper->resetAllStats(); break;
      case 9:
        helper->waitUntilSavesAreFinished();
        helper->loadAdvertisementStats();
        helper->loadGlobalAppEventStats();
        break;
      case 10: helper = std::make_unique<ZTIAMStatsHelper>(); break;
    }
    if (pick(3) != 0) continue;  // changes pile up between saves
    helper->saveAdvertisementStats();
    helper->saveGlobalAppEventStats();
    helper->waitUntilSavesAreFinished();
    const auto [adBytes, eventBytes] = encoded(*helper);
    ASSERT_EQ(recording->dataForKey(adKey), adBytes) << "step " << step;
    ASSERT_EQ(recording->dataForKey(eventKey), eventBytes) << "step " << step;
    // The look-up index agrees with the map, and finding creates nothing.
    const auto map = helper->advertisementStats();
    const auto found = helper->findAdvertisementStats(ads);
    ASSERT_EQ(helper->advertisementStats().size(), map.size());
    for (std::size_t i = 0; i < ads.size(); ++i) {
      const auto it = map.find(ads[i]->advertisementId());
      ASSERT_EQ(found[i], it == map.end() ? nullptr : it->second) << "step " << step;
    }
  }
}

// Counts come back from the file as stored; one already at the top of its range stays there when
// counted again (a wrap is undefined, and UBSan stops on it), and the next start reads it back.
TEST_F(StatsStoreTest, CountsLoadedAtTheTopOfTheirRangeSaturate) {
  constexpr auto kMax = std::numeric_limits<std::int64_t>::max();
  // An app event record "k" whose count is the largest there is, as another writer stored it.
  const std::string hex =
      "df00000001a16b92c712015a5449414d4170704576656e745374617473df00000003a95f6576656e744b6579a16ba65f636f756e74cf7f"
      "ffffffffffffffd9214e534f626a6563742b5265666c656374696f6e5f6578636c756465644976617273dd00000000";
  Data appEvents;
  for (std::size_t i = 0; i < hex.size(); i += 2) appEvents.push_back(std::stoi(hex.substr(i, 2), nullptr, 16));
  recording->setData(appEvents, eventKey);
  const std::map<std::string, std::shared_ptr<ZTIAMAdvertisementTriggerStats>> triggers{
      {"t-1", testing::scripted<ZTIAMAdvertisementTriggerStats>([](KeyedArchiver& c) {
         c.encodeString("t-1", "_triggerId");
         c.encodeInteger(kMax, "_count");
       })}};
  const std::map<std::string, std::shared_ptr<ZTIAMAdvertisementStats>> ads{
      {"ad-1", testing::scripted<ZTIAMAdvertisementStats>([&](KeyedArchiver& c) {
         c.encodeString("ad-1", "_advertisementId");
         for (auto key : {"_numberOfImpressions", "_numberOfClicks", "_numberOfDismisses", "_numberOfPostpones"})
           c.encodeInteger(kMax, key);
         c.encodeObjectMap(triggers, "_triggerStats");
       })}};
  recording->setData(KeyedArchiver::archivedDataWithRootDictionary(ads), adKey);

  auto trigger = std::make_shared<AdvertisementTrigger>("t-1", "level");
  trigger->setAdvertisement(ad);
  {
    ZTIAMStatsHelper helper;
    ASSERT_EQ(helper.getAppEventStatsByEventKey("k")->count(), kMax);
    helper.handleAppEventWithKey("k");
    helper.handleAdvertisementImpression(*adEvent);
    helper.handleAdvertisementClick(*adEvent);
    helper.handleAdvertisementDismiss(*adEvent);
    helper.handleAdvertisementPostpone(*adEvent);
    helper.handleTriggerFired(*trigger);
  }
  ZTIAMStatsHelper restarted;
  const auto record = restarted.getAdvertisementStatsByAdvertisementId("ad-1");
  EXPECT_EQ((std::vector<std::int64_t>{restarted.getAppEventStatsByEventKey("k")->count(), record->numberOfImpressions(),
                                       record->numberOfClicks(), record->numberOfDismisses(),
                                       record->numberOfPostpones(), record->triggerStats().at("t-1")->count()}),
            std::vector<std::int64_t>(6, kMax));
}

TEST_F(StatsStoreTest, LoadingLogsOnlyWhenInfoLoggingIsOn) {
  { ZTIAMStatsHelper quiet; }
  EXPECT_TRUE(env.log().records().empty());
  env.setInfoLogEnabled(true);
  { ZTIAMStatsHelper verbose; }
  std::vector<std::string> lines;
  for (const auto& r : env.log().records()) {
    lines.push_back(std::string(logLevelName(r.level)) + " " + r.filename + " " + r.function + ": " + r.message);
  }
  const std::string prefix = std::string(logLevelName(LogLevel::Info)) + " " + std::string(ZTIAMStatsHelper::kLogFile);
  EXPECT_EQ(lines, (std::vector<std::string>{prefix + " loadAdvertisementStats: IAM: Loaded advertisement stats.",
                                             prefix + " loadGlobalAppEventStats: IAM: Loaded global app event "
                                                      "stats."}));
}

}  // namespace
}  // namespace iam
