#include "iam/platform/ZTSettings.h"
#include "iam/stats/ZTIAMStatsHelper.h"
#include "iam/validity/ZTIAMAdvertisementEventReservedEvents.h"
#include "iam/validity/ZTIAMAdvertisementValidityHelper.h"

#include "validity/ValidityTestSupport.h"

namespace iam::testing {
namespace {

using Helper = ZTIAMAdvertisementValidityHelper;
constexpr const char* kOperation = "isAdvertisementTriggerValid";

std::string refusal(const std::string& eventKey, const std::string& id, const std::string& reason) {
  return "IAM: Trigger '" + eventKey + "' for advertisement '" + id + "' is currently not valid because " + reason;
}

class TriggerValidityTest : public ValidityTest {
 protected:
  void SetUp() override {
    ValidityTest::SetUp();
    ad_ = makeAdvertisement("ad");
    trigger_ = addTrigger(ad_, "t1", "screenShown");
    advertisements_ = {ad_};
  }

  bool valid(const AdvertisementTrigger& trigger, std::shared_ptr<const ZTIAMAppConfigType> config = nullptr) {
    return Helper::isAdvertisementTriggerValid(trigger, stats_, advertisements_, config);
  }
  bool valid() { return valid(*trigger_); }
  static void setRunCount(std::int64_t count) {
    while (ZTSettings::runCount() < count) ZTSettings::incrementRunCount();
  }

  FakeStatsGetter stats_;
  std::shared_ptr<Advertisement> ad_;
  std::shared_ptr<AdvertisementTrigger> trigger_;
  Helper::Advertisements advertisements_;
};

TEST_F(TriggerValidityTest, ReservedEventsInOrder) {
  ASSERT_EQ(ZTIAMAdvertisementEventReservedEvents.size(), 2u);
  EXPECT_EQ(ZTIAMAdvertisementEventReservedEvents[0], "appToForeground");
  EXPECT_EQ(ZTIAMAdvertisementEventReservedEvents[1], "System - app updated");
}

TEST_F(TriggerValidityTest, NoLimitsMeansValidButAnOrphanTriggerNever) {
  EXPECT_TRUE(valid());
  InfoLogSwitch::setLogInfoEnabled(true);
  AdvertisementTrigger orphan("lost", "screenShown");
  stats_.lookups.clear();
  EXPECT_FALSE(valid(orphan, std::make_shared<FakeAppConfig>(0)));
  EXPECT_TRUE(stats_.lookups.empty());
  expectNoLines();
}

TEST_F(TriggerValidityTest, FireCapStopsAtTheCap) {
  InfoLogSwitch::setLogInfoEnabled(true);
  const std::string message = refusal("screenShown", "ad", "it is has reached its max fire count.");
  trigger_->setMaxFireCount(0);
  EXPECT_FALSE(valid());
  expectSingleInfoLine(message, kOperation);

  trigger_->setMaxFireCount(1);
  EXPECT_TRUE(valid());
  stats_.setFireCount(*trigger_, 1);
  EXPECT_FALSE(valid());
  expectSingleInfoLine(message, kOperation);

  trigger_->setMaxFireCount(2);
  EXPECT_TRUE(valid());
  expectNoLines();
}

TEST_F(TriggerValidityTest, ForegroundTriggerCountsLaunchesOtherEventsCountThemselves) {
  InfoLogSwitch::setLogInfoEnabled(true);
  auto foreground = addTrigger(ad_, "fg", "appToForeground");
  foreground->setThresholdCount(5);
  stats_.setEventCount("appToForeground", 100);
  setRunCount(4);
  EXPECT_FALSE(valid(*foreground));
  expectSingleInfoLine(refusal("appToForeground", "ad",
                               "it has not reached its treshold. Current count: [ZTSettings runCount], treshold: 5"),
                       kOperation);
  setRunCount(5);
  EXPECT_TRUE(valid(*foreground));

  // The launch count alone: no foreground events counted at all.
  stats_.appEventStats.clear();
  EXPECT_TRUE(valid(*foreground));

  // Every other key, the derived update key included, reads its event count.
  for (const char* key : {"screenShown", "System - app updated"}) {
    auto other = addTrigger(ad_, std::string("other-") + key, key);
    other->setThresholdCount(5);
    setRunCount(100);
    stats_.setEventCount(key, 4);
    EXPECT_FALSE(valid(*other)) << key;
    expectSingleInfoLine(refusal(key, "ad",
                                 "it has not reached its treshold. Current count: [ZTSettings runCount], treshold: 5"),
                         kOperation);
    stats_.setEventCount(key, 5);
    EXPECT_TRUE(valid(*other)) << key;
  }
  expectNoLines();
}

TEST_F(TriggerValidityTest, RepeatThresholdsFollowTheFireCount) {
  InfoLogSwitch::setLogInfoEnabled(true);
  const std::string repeatMessage = refusal(
      "screenShown", "ad",
      "it has not reached its repeat treshold. Current count: [ZTSettings runCount], repeat treshold: nextTreshold");
  trigger_->setThresholdCount(3);
  trigger_->setRepeatIntervalCount(5);

  // Never fired: below the threshold it is the first-threshold refusal.
  stats_.setEventCount("screenShown", 2);
  EXPECT_FALSE(valid());
  expectSingleInfoLine(refusal("screenShown", "ad",
                               "it has not reached its treshold. Current count: [ZTSettings runCount], treshold: 3"),
                       kOperation);
  stats_.setEventCount("screenShown", 3);
  EXPECT_TRUE(valid());

  stats_.setFireCount(*trigger_, 1);
  stats_.setEventCount("screenShown", 7);
  EXPECT_FALSE(valid());
  expectSingleInfoLine(repeatMessage, kOperation);
  stats_.setEventCount("screenShown", 8);
  EXPECT_TRUE(valid());

  stats_.setFireCount(*trigger_, 2);
  stats_.setEventCount("screenShown", 12);
  EXPECT_FALSE(valid());
  expectSingleInfoLine(repeatMessage, kOperation);
  stats_.setEventCount("screenShown", 13);
  EXPECT_TRUE(valid());

  // Without a threshold the repeats start from 0: 2, 4, 6 after one, two, three firings.
  auto noThreshold = addTrigger(ad_, "t2", "tap");
  noThreshold->setRepeatIntervalCount(2);
  EXPECT_TRUE(valid(*noThreshold));
  stats_.setFireCount(*noThreshold, 3);
  stats_.setEventCount("tap", 5);
  EXPECT_FALSE(valid(*noThreshold));
  expectSingleInfoLine(refusal("tap", "ad",
                               "it has not reached its repeat treshold. Current count: [ZTSettings runCount], "
                               "repeat treshold: nextTreshold"),
                       kOperation);
  stats_.setEventCount("tap", 6);
  EXPECT_TRUE(valid(*noThreshold));

  // Without a repeat interval a trigger past its threshold stays valid.
  trigger_->setRepeatIntervalCount(std::nullopt);
  stats_.setFireCount(*trigger_, 40);
  EXPECT_TRUE(valid());

  // A repeat interval too large to reach never overflows into a pass.
  trigger_->setRepeatIntervalCount(INT64_MAX / 2);
  EXPECT_FALSE(valid());
  expectSingleInfoLine(repeatMessage, kOperation);
}

TEST_F(TriggerValidityTest, PopupSpacingOverAllAdvertisements) {
  InfoLogSwitch::setLogInfoEnabled(true);
  auto other = makeAdvertisement("other", ZTIAMAdvertisementDisplayTypeReviewQuestion);
  advertisements_.push_back(other);
  auto config = std::make_shared<FakeAppConfig>(600);
  const std::string message = refusal(
      "screenShown", "ad", "it is too recent (< 600.000000 seconds) another has been shown.");

  stats_.setImpression("other", at(0));
  clock_->setNow(at(599));
  EXPECT_FALSE(valid(*trigger_, config));
  expectSingleInfoLine(message, kOperation);
  clock_->setNow(at(600));
  EXPECT_FALSE(valid(*trigger_, config));
  expectSingleInfoLine(message, kOperation);
  clock_->setNow(at(601));
  EXPECT_TRUE(valid(*trigger_, config));

  // The trigger's own advertisement counts as well, and the latest impression decides.
  stats_.setImpression("ad", at(300));
  EXPECT_FALSE(valid(*trigger_, config));
  expectSingleInfoLine(message, kOperation);
  EXPECT_EQ(Helper::mostRecentPopupAdvertisementImpressionDateForAdvertisements(advertisements_, stats_), at(300));
  EXPECT_EQ(Helper::mostRecentPopupAdvertisementImpressionDateForAdvertisements({other, ad_}, stats_), at(300));

  // An advertisement that is not in the list does not count.
  advertisements_ = {other};
  EXPECT_TRUE(valid(*trigger_, config));
  // With no list nothing has been seen.
  advertisements_.clear();
  EXPECT_TRUE(valid(*trigger_, config));
  expectNoLines();
}

TEST_F(TriggerValidityTest, PopupSpacingExemptions) {
  auto config = std::make_shared<FakeAppConfig>(600);
  auto preload = makeAdvertisement("preload", ZTIAMAdvertisementDisplayTypeDfpInterstitialPreload);
  auto preloadTrigger = addTrigger(preload, "p", "screenShown");
  advertisements_.push_back(preload);

  // Preload impressions never hold back a popup.
  stats_.setImpression("preload", at(-1));
  EXPECT_TRUE(valid(*trigger_, config));
  EXPECT_EQ(Helper::mostRecentPopupAdvertisementImpressionDateForAdvertisements(advertisements_, stats_), std::nullopt);

  // A preload's trigger is never held back, nor one that ignores the spacing.
  stats_.setImpression("ad", at(-1));
  EXPECT_FALSE(valid(*trigger_, config));
  EXPECT_TRUE(valid(*preloadTrigger, config));
  ad_->setIgnoreGlobalMinimumPopupTimeInterval(true);
  EXPECT_TRUE(valid(*trigger_, config));

  for (auto type : {ZTIAMAdvertisementDisplayTypeInvalid, ZTIAMAdvertisementDisplayTypeDfpInterstitial,
                    ZTIAMAdvertisementDisplayTypeReviewQuestion, static_cast<ZTIAMAdvertisementDisplayType>(7)}) {
    EXPECT_TRUE(Helper::shouldCheckForImpressionTimeintervalForDisplayType(type)) << type;
  }
  EXPECT_FALSE(Helper::shouldCheckForImpressionTimeintervalForDisplayType(ZTIAMAdvertisementDisplayTypeDfpInterstitialPreload));
}

TEST_F(TriggerValidityTest, MissingConfigMeansZeroSpacing) {
  InfoLogSwitch::setLogInfoEnabled(true);
  stats_.setImpression("ad", at(0));
  EXPECT_FALSE(valid());  // stamped at this very instant
  expectSingleInfoLine(refusal("screenShown", "ad", "it is too recent (< 0.000000 seconds) another has been shown."),
                       kOperation);
  clock_->setNow(at(0.001));
  EXPECT_TRUE(valid());
  // An impression stamped in the future (clock moved back) holds back.
  stats_.setImpression("ad", at(3600));
  EXPECT_FALSE(Helper::popupImpressionTimeIntervalHasPassed(*trigger_, stats_, advertisements_, 0));
}

TEST_F(TriggerValidityTest, ChecksRunInOrderAndLogOnlyTheFirstRefusal) {
  InfoLogSwitch::setLogInfoEnabled(true);
  auto config = std::make_shared<FakeAppConfig>(60);
  trigger_->setMaxFireCount(1);
  trigger_->setThresholdCount(10);
  trigger_->setRepeatIntervalCount(1);
  stats_.setFireCount(*trigger_, 1);
  stats_.setImpression("ad", at(-30));

  EXPECT_FALSE(valid(*trigger_, config));
  expectSingleInfoLine(refusal("screenShown", "ad", "it is too recent (< 60.000000 seconds) another has been shown."),
                       kOperation);
  clock_->advance(31);
  EXPECT_FALSE(valid(*trigger_, config));
  expectSingleInfoLine(refusal("screenShown", "ad", "it is has reached its max fire count."), kOperation);
  trigger_->setMaxFireCount(std::nullopt);
  EXPECT_FALSE(valid(*trigger_, config));
  expectSingleInfoLine(refusal("screenShown", "ad",
                               "it has not reached its treshold. Current count: [ZTSettings runCount], treshold: 10"),
                       kOperation);
}

TEST_F(TriggerValidityTest, RefusalsAreSilentWithInfoLoggingOff) {
  auto config = std::make_shared<FakeAppConfig>(60);
  stats_.setImpression("ad", at(-1));
  EXPECT_FALSE(valid(*trigger_, config));
  clock_->advance(100);
  trigger_->setMaxFireCount(0);
  EXPECT_FALSE(valid(*trigger_, config));
  trigger_->setMaxFireCount(std::nullopt);
  trigger_->setThresholdCount(1);
  EXPECT_FALSE(valid(*trigger_, config));
  stats_.setEventCount("screenShown", 1);
  stats_.setFireCount(*trigger_, 1);
  trigger_->setRepeatIntervalCount(1);
  EXPECT_FALSE(valid(*trigger_, config));
  stats_.setEventCount("screenShown", 2);
  EXPECT_TRUE(valid(*trigger_, config));
  expectNoLines();
}

TEST_F(TriggerValidityTest, EvaluationCreatesRecordsForEveryPopupAdvertisement) {
  auto preload = makeAdvertisement("preload", ZTIAMAdvertisementDisplayTypeDfpInterstitialPreload);
  auto review = makeAdvertisement("review", ZTIAMAdvertisementDisplayTypeReviewQuestion);
  advertisements_ = {review, preload, ad_};
  EXPECT_TRUE(valid(*trigger_, std::make_shared<FakeAppConfig>(10)));
  // The trigger's records first, then the spacing walk in list order, skipping the preload.
  EXPECT_EQ(stats_.lookups,
            (std::vector<std::string>{"advertisement:ad", "event:screenShown", "advertisement:review", "advertisement:ad"}));
  EXPECT_EQ(stats_.advertisementStats.count("preload"), 0u);
  ASSERT_EQ(stats_.advertisementStats.count("ad"), 1u);
  EXPECT_EQ(stats_.advertisementStats["ad"]->triggerStats().count("t1"), 1u);
  EXPECT_EQ(stats_.appEventStats.count("screenShown"), 1u);
}

TEST_F(TriggerValidityTest, RecordsCreatedByEvaluationAreNotSaved) {
  auto preload = makeAdvertisement("preload", ZTIAMAdvertisementDisplayTypeDfpInterstitialPreload);
  auto review = makeAdvertisement("review", ZTIAMAdvertisementDisplayTypeReviewQuestion);
  advertisements_ = {review, preload, ad_};
  {
    ZTIAMStatsHelper store;
    EXPECT_TRUE(Helper::isAdvertisementTriggerValid(*trigger_, store, advertisements_, nullptr));
    auto records = store.advertisementStats();
    EXPECT_EQ(records.size(), 2u);
    EXPECT_EQ(records.count("review"), 1u);
    ASSERT_EQ(records.count("ad"), 1u);
    EXPECT_EQ(records["ad"]->triggerStats().count("t1"), 1u);
    EXPECT_EQ(store.globalAppEventStats().count("screenShown"), 1u);
    store.waitUntilSavesAreFinished();
  }
  EXPECT_FALSE(PreferencesStore::standard()->dataForKey(ZTIAMStatsHelper::kAdvertisementStatsKey));
  EXPECT_FALSE(PreferencesStore::standard()->dataForKey(ZTIAMStatsHelper::kGlobalAppEventStatsKey));
  ZTIAMStatsHelper restarted;
  EXPECT_TRUE(restarted.advertisementStats().empty());
  EXPECT_TRUE(restarted.globalAppEventStats().empty());
}

}  // namespace
}  // namespace iam::testing
