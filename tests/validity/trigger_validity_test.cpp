#include "iam/platform/ZTSettings.h"
#include "iam/stats/ZTIAMStatsHelper.h"
#include "iam/validity/ZTIAMAdvertisementEventReservedEvents.h"
#include "iam/validity/ZTIAMAdvertisementValidityHelper.h"

#include "validity/ValidityTestSupport.h"

namespace iam::testing {
namespace {

using Helper = ZTIAMAdvertisementValidityHelper;

std::string refusal(const std::string& eventKey, const std::string& reason) {
  return "IAM: Trigger '" + eventKey + "' for advertisement 'ad' is currently not valid because " + reason;
}
std::string belowThreshold(const std::string& eventKey, int threshold) {
  return refusal(eventKey, "it has not reached its treshold. Current count: [ZTSettings runCount], treshold: " +
                               std::to_string(threshold));
}
std::string belowRepeat(const std::string& eventKey) {
  return refusal(eventKey,
                 "it has not reached its repeat treshold. Current count: [ZTSettings runCount], repeat treshold: "
                 "nextTreshold");
}
std::string tooRecent(const std::string& seconds) {
  return refusal("screenShown", "it is too recent (< " + seconds + " seconds) another has been shown.");
}
const std::string kFireCapLine = refusal("screenShown", "it is has reached its max fire count.");

class TriggerValidityTest : public ValidityTest {
 protected:
  void SetUp() override {
    ValidityTest::SetUp();
    ad_ = makeAdvertisement("ad");
    trigger_ = addTrigger(ad_, "t1", "screenShown");
    advertisements_ = {ad_};
  }
  void expectValid(const AdvertisementTrigger& trigger, bool want, const std::string& line = "",
                   std::shared_ptr<const ZTIAMAppConfigType> config = nullptr) {
    auto evaluate = [&] {
      stats_.lookups.clear();
      return Helper::isAdvertisementTriggerValid(trigger, stats_, advertisements_, config);
    };
    expectVerdict(evaluate, want, line, "isAdvertisementTriggerValid");
  }
  static void setRunCount(std::int64_t count) {
    while (ZTSettings::runCount() < count) ZTSettings::incrementRunCount();
  }

  FakeStatsGetter stats_;
  std::shared_ptr<Advertisement> ad_;
  std::shared_ptr<AdvertisementTrigger> trigger_;
  Helper::Advertisements advertisements_;
};

TEST_F(TriggerValidityTest, ReservedEventsInOrder) {
  EXPECT_EQ(std::vector<std::string_view>(ZTIAMAdvertisementEventReservedEvents.begin(),
                                          ZTIAMAdvertisementEventReservedEvents.end()),
            (std::vector<std::string_view>{"appToForeground", "System - app updated"}));
}

TEST_F(TriggerValidityTest, NoLimitsMeansValidButAnOrphanTriggerNever) {
  expectValid(*trigger_, true);
  AdvertisementTrigger orphan("lost", "screenShown");
  expectValid(orphan, false, "", std::make_shared<FakeAppConfig>(0));
  EXPECT_TRUE(stats_.lookups.empty());
}

TEST_F(TriggerValidityTest, FireCapStopsAtTheCap) {
  struct Case { std::int64_t cap, fired; bool valid; } cases[] = {{0, 0, false}, {1, 0, true}, {1, 1, false}, {2, 1, true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.cap << " " << c.fired);
    trigger_->setMaxFireCount(c.cap);
    stats_.setFireCount(*trigger_, c.fired);
    expectValid(*trigger_, c.valid, c.valid ? "" : kFireCapLine);
  }
}

TEST_F(TriggerValidityTest, ForegroundTriggerCountsLaunchesOtherEventsCountThemselves) {
  // Every other key, the derived update key included, reads its event count.
  struct Case { const char* key; std::int64_t launches, events; bool valid; } cases[] = {
      {"appToForeground", 4, 100, false},     {"appToForeground", 5, 100, true},
      {"screenShown", 100, 4, false},         {"screenShown", 100, 5, true},
      {"System - app updated", 100, 4, false}, {"System - app updated", 100, 5, true},
  };
  for (const auto& c : cases) {
    auto trigger = addTrigger(ad_, std::string("t-") + c.key, c.key);
    trigger->setThresholdCount(5);
    setRunCount(c.launches);
    stats_.setEventCount(c.key, c.events);
    expectValid(*trigger, c.valid, c.valid ? "" : belowThreshold(c.key, 5));
  }
  stats_.appEventStats.clear();  // the launch count alone
  expectValid(*addTrigger(ad_, "fg", "appToForeground"), true);
}

TEST_F(TriggerValidityTest, RepeatThresholdsFollowTheFireCount) {
  trigger_->setThresholdCount(3);
  trigger_->setRepeatIntervalCount(5);
  // Without a threshold the repeats start from 0: 2, 4, 6 after one, two, three firings.
  auto noThreshold = addTrigger(ad_, "t2", "tap");
  noThreshold->setRepeatIntervalCount(2);
  // Threshold 3, then every 5 more events per firing: 3, 8, 13.
  struct Case { AdvertisementTrigger* trigger; std::int64_t fired, events; bool valid; std::string line; } cases[] = {
      {trigger_.get(), 0, 2, false, belowThreshold("screenShown", 3)}, {trigger_.get(), 0, 3, true, ""},
      {trigger_.get(), 1, 7, false, belowRepeat("screenShown")},       {trigger_.get(), 1, 8, true, ""},
      {trigger_.get(), 2, 12, false, belowRepeat("screenShown")},      {trigger_.get(), 2, 13, true, ""},
      {noThreshold.get(), 0, 0, true, ""},                             {noThreshold.get(), 3, 5, false, belowRepeat("tap")},
      {noThreshold.get(), 3, 6, true, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.trigger->eventKey() << " " << c.fired << " " << c.events);
    stats_.setFireCount(*c.trigger, c.fired);
    stats_.setEventCount(c.trigger->eventKey(), c.events);
    expectValid(*c.trigger, c.valid, c.line);
  }
  // Without a repeat interval a trigger past its threshold stays valid.
  trigger_->setRepeatIntervalCount(std::nullopt);
  stats_.setFireCount(*trigger_, 40);
  expectValid(*trigger_, true);
  // A repeat interval too large to reach never overflows into a pass.
  trigger_->setRepeatIntervalCount(INT64_MAX / 2);
  expectValid(*trigger_, false, belowRepeat("screenShown"));
}

TEST_F(TriggerValidityTest, PopupSpacingOverAllAdvertisements) {
  auto other = makeAdvertisement("other", ZTIAMAdvertisementDisplayTypeReviewQuestion);
  advertisements_.push_back(other);
  auto config = std::make_shared<FakeAppConfig>(600);
  stats_.setImpression("other", at(0));
  for (auto [now, valid] : {std::pair{599, false}, {600, false}, {601, true}}) {
    clock_->setNow(at(now));
    expectValid(*trigger_, valid, valid ? "" : tooRecent("600.000000"), config);
  }
  // The trigger's own advertisement counts as well, and the latest impression decides.
  stats_.setImpression("ad", at(300));
  expectValid(*trigger_, false, tooRecent("600.000000"), config);
  EXPECT_EQ(Helper::mostRecentPopupAdvertisementImpressionDateForAdvertisements(advertisements_, stats_), at(300));
  EXPECT_EQ(Helper::mostRecentPopupAdvertisementImpressionDateForAdvertisements({other, ad_}, stats_), at(300));
  // An advertisement that is not in the list does not count; with no list nothing has been seen.
  advertisements_ = {other};
  expectValid(*trigger_, true, "", config);
  advertisements_.clear();
  expectValid(*trigger_, true, "", config);
}

TEST_F(TriggerValidityTest, PopupSpacingExemptions) {
  auto config = std::make_shared<FakeAppConfig>(600);
  auto preload = makeAdvertisement("preload", ZTIAMAdvertisementDisplayTypeDfpInterstitialPreload);
  auto preloadTrigger = addTrigger(preload, "p", "screenShown");
  advertisements_.push_back(preload);

  // Preload impressions never hold back a popup.
  stats_.setImpression("preload", at(-1));
  expectValid(*trigger_, true, "", config);
  EXPECT_EQ(Helper::mostRecentPopupAdvertisementImpressionDateForAdvertisements(advertisements_, stats_), std::nullopt);
  // A preload's trigger is never held back, nor one that ignores the spacing.
  stats_.setImpression("ad", at(-1));
  expectValid(*trigger_, false, tooRecent("600.000000"), config);
  expectValid(*preloadTrigger, true, "", config);
  ad_->setIgnoreGlobalMinimumPopupTimeInterval(true);
  expectValid(*trigger_, true, "", config);

  for (auto type : {ZTIAMAdvertisementDisplayTypeInvalid, ZTIAMAdvertisementDisplayTypeDfpInterstitial,
                    ZTIAMAdvertisementDisplayTypeReviewQuestion, static_cast<ZTIAMAdvertisementDisplayType>(7)}) {
    EXPECT_TRUE(Helper::shouldCheckForImpressionTimeintervalForDisplayType(type)) << type;
  }
  EXPECT_FALSE(Helper::shouldCheckForImpressionTimeintervalForDisplayType(ZTIAMAdvertisementDisplayTypeDfpInterstitialPreload));
}

TEST_F(TriggerValidityTest, MissingConfigMeansZeroSpacing) {
  stats_.setImpression("ad", at(0));
  expectValid(*trigger_, false, tooRecent("0.000000"));  // stamped at this very instant
  clock_->setNow(at(0.001));
  expectValid(*trigger_, true);
  // An impression stamped in the future (clock moved back) holds back.
  stats_.setImpression("ad", at(3600));
  EXPECT_FALSE(Helper::popupImpressionTimeIntervalHasPassed(*trigger_, stats_, advertisements_, 0));
}

TEST_F(TriggerValidityTest, ChecksRunInOrderAndLogOnlyTheFirstRefusal) {
  auto config = std::make_shared<FakeAppConfig>(60);
  trigger_->setMaxFireCount(1);
  trigger_->setThresholdCount(10);
  trigger_->setRepeatIntervalCount(1);
  stats_.setFireCount(*trigger_, 1);
  stats_.setImpression("ad", at(-30));
  expectValid(*trigger_, false, tooRecent("60.000000"), config);
  clock_->advance(31);
  expectValid(*trigger_, false, kFireCapLine, config);
  trigger_->setMaxFireCount(std::nullopt);
  expectValid(*trigger_, false, belowThreshold("screenShown", 10), config);
  trigger_->setThresholdCount(std::nullopt);
  expectValid(*trigger_, false, belowRepeat("screenShown"), config);
}

TEST_F(TriggerValidityTest, EvaluationCreatesRecordsWithoutSavingThem) {
  auto preload = makeAdvertisement("preload", ZTIAMAdvertisementDisplayTypeDfpInterstitialPreload);
  auto review = makeAdvertisement("review", ZTIAMAdvertisementDisplayTypeReviewQuestion);
  advertisements_ = {review, preload, ad_};
  expectValid(*trigger_, true, "", std::make_shared<FakeAppConfig>(10));
  // The trigger's records first, then the spacing walk in list order, skipping the preload.
  EXPECT_EQ(stats_.lookups,
            (std::vector<std::string>{"advertisement:ad", "event:screenShown", "advertisement:review", "advertisement:ad"}));
  EXPECT_EQ(stats_.advertisementStats.count("preload"), 0u);
  EXPECT_EQ(stats_.advertisementStats["ad"]->triggerStats().count("t1"), 1u);
  EXPECT_EQ(stats_.appEventStats.count("screenShown"), 1u);
  {
    ZTIAMStatsHelper store;
    EXPECT_TRUE(Helper::isAdvertisementTriggerValid(*trigger_, store, advertisements_, nullptr));
    EXPECT_EQ(store.advertisementStats().size(), 2u);  // "ad" and "review"
    EXPECT_EQ(store.globalAppEventStats().size(), 1u);
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
