#include "iam/platform/ZTSettings.h"
#include "iam/stats/ZTIAMStatsHelper.h"
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
  return refusal(eventKey, "it has not reached its repeat treshold. Current count: [ZTSettings runCount], repeat "
                           "treshold: nextTreshold");
}
std::string tooRecent(const std::string& seconds) {
  return refusal("screenShown", "it is too recent (< " + seconds + " seconds) another has been shown.");
}
const std::string kFireCapLine = refusal("screenShown", "it is has reached its max fire count.");

class TriggerValidityTest : public ValidityTest {
 protected:
  static std::shared_ptr<AdvertisementTrigger> addTrigger(const std::shared_ptr<Advertisement>& advertisement,
                                                          const std::string& triggerId, const std::string& eventKey) {
    auto trigger = std::make_shared<AdvertisementTrigger>(triggerId, eventKey);
    trigger->setAdvertisement(advertisement);
    return trigger;
  }
  void SetUp() override {
    ad_ = makeAdvertisement("ad");
    trigger_ = addTrigger(ad_, "t1", "screenShown");
    advertisements_ = {ad_};
  }
  void expectValid(const AdvertisementTrigger& trigger, bool want, const std::string& line = "",
                   std::shared_ptr<const ZTIAMAppConfigType> config = nullptr) {
    expectVerdict([&] { return Helper::isAdvertisementTriggerValid(trigger, stats_, advertisements_, config); }, want,
                  line, "isAdvertisementTriggerValid");
  }
  // Counts only grow, so these raise a count to the value asked for.
  static void setRunCount(std::int64_t count) {
    while (ZTSettings::runCount() < count) ZTSettings::incrementRunCount();
  }
  void setEventCount(const std::string& eventKey, std::int64_t count) {
    auto record = stats_.getAppEventStatsByEventKey(eventKey);
    while (record->count() < count) record->incrementCount();
  }
  void setFireCount(const AdvertisementTrigger& trigger, std::int64_t count) {
    auto record = stats_.getAdvertisementStatsByAdvertisementId(trigger.advertisement()->advertisementId())
                      ->getTriggerStatsWithTriggerId(trigger.triggerId());
    while (record->count() < count) record->incrementCount();
  }
  void setImpression(const std::string& advertisementId, Date date) {
    stats_.getAdvertisementStatsByAdvertisementId(advertisementId)->setMostRecentImpressionDate(date);
  }

  ZTIAMStatsHelper stats_;
  std::shared_ptr<Advertisement> ad_;
  std::shared_ptr<AdvertisementTrigger> trigger_;
  Helper::Advertisements advertisements_;
};

TEST_F(TriggerValidityTest, NoLimitsMeansValidButAnOrphanTriggerNever) {
  AdvertisementTrigger orphan("lost", "screenShown");
  expectValid(orphan, false, "", config(0));
  EXPECT_TRUE(stats_.advertisementStats().empty() && stats_.globalAppEventStats().empty());
  expectValid(*trigger_, true);
}

TEST_F(TriggerValidityTest, FireCapStopsAtTheCap) {
  struct Case { std::int64_t cap, fired; bool valid; } cases[] = {{0, 0, false}, {1, 0, true}, {1, 1, false}, {2, 1, true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.cap << " " << c.fired);
    trigger_->setMaxFireCount(c.cap);
    setFireCount(*trigger_, c.fired);
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
    setEventCount(c.key, c.events);
    expectValid(*trigger, c.valid, c.valid ? "" : belowThreshold(c.key, 5));
  }
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
    setFireCount(*c.trigger, c.fired);
    setEventCount(c.trigger->eventKey(), c.events);
    expectValid(*c.trigger, c.valid, c.line);
  }
  // Without a repeat interval a trigger past its threshold stays valid.
  trigger_->setRepeatIntervalCount(std::nullopt);
  setFireCount(*trigger_, 40);
  expectValid(*trigger_, true);
  // A repeat interval too large to reach never overflows into a pass.
  trigger_->setRepeatIntervalCount(INT64_MAX / 2);
  expectValid(*trigger_, false, belowRepeat("screenShown"));
}

// Elapsed time since the latest popup impression of any listed advertisement, the trigger's own
// included, must exceed the minimum; without a configuration the minimum is 0.
TEST_F(TriggerValidityTest, PopupSpacingOverAllListedAdvertisements) {
  auto other = makeAdvertisement("other", ZTIAMAdvertisementDisplayTypeReviewQuestion);
  advertisements_.push_back(other);
  setImpression("other", at(0));
  expectValid(*trigger_, false, tooRecent("0.000000"));  // stamped at this very instant
  env_.clock().setNow(at(0.001));
  expectValid(*trigger_, true);
  for (auto [now, valid] : {std::pair{599, false}, {600, false}, {601, true}}) {
    env_.clock().setNow(at(now));
    expectValid(*trigger_, valid, valid ? "" : tooRecent("600.000000"), config(600));
  }
  setImpression("ad", at(300));
  expectValid(*trigger_, false, tooRecent("600.000000"), config(600));
  EXPECT_EQ(Helper::mostRecentPopupAdvertisementImpressionDateForAdvertisements({other, ad_}, stats_), at(300));
  // An impression stamped in the future (clock moved back) holds back.
  setImpression("other", at(3600));
  EXPECT_FALSE(Helper::popupImpressionTimeIntervalHasPassed(*trigger_, stats_, {other}, 0));
  // An advertisement that is not in the list does not count; with no list nothing has been seen.
  advertisements_ = {makeAdvertisement("unseen")};
  expectValid(*trigger_, true, "", config(600));
  advertisements_.clear();
  expectValid(*trigger_, true, "", config(600));
}

TEST_F(TriggerValidityTest, PopupSpacingExemptions) {
  auto preload = makeAdvertisement("preload", ZTIAMAdvertisementDisplayTypeDfpInterstitialPreload);
  auto preloadTrigger = addTrigger(preload, "p", "screenShown");
  advertisements_.push_back(preload);
  // Preload impressions never hold back a popup.
  setImpression("preload", at(-1));
  expectValid(*trigger_, true, "", config(600));
  EXPECT_EQ(Helper::mostRecentPopupAdvertisementImpressionDateForAdvertisements(advertisements_, stats_), std::nullopt);
  // A preload's trigger is never held back, nor one that ignores the spacing.
  setImpression("ad", at(-1));
  expectValid(*trigger_, false, tooRecent("600.000000"), config(600));
  expectValid(*preloadTrigger, true, "", config(600));
  ad_->setIgnoreGlobalMinimumPopupTimeInterval(true);
  expectValid(*trigger_, true, "", config(600));
  // Every other type counts, unknown ones included.
  for (auto type : {ZTIAMAdvertisementDisplayTypeInvalid, ZTIAMAdvertisementDisplayTypeDfpInterstitial,
                    ZTIAMAdvertisementDisplayTypeReviewQuestion, static_cast<ZTIAMAdvertisementDisplayType>(7)}) {
    EXPECT_TRUE(Helper::shouldCheckForImpressionTimeintervalForDisplayType(type)) << type;
  }
}

TEST_F(TriggerValidityTest, ChecksRunInOrderAndLogOnlyTheFirstRefusal) {
  trigger_->setMaxFireCount(1);
  trigger_->setThresholdCount(10);
  trigger_->setRepeatIntervalCount(1);
  setFireCount(*trigger_, 1);
  setImpression("ad", at(-30));
  expectValid(*trigger_, false, tooRecent("60.000000"), config(60));
  env_.clock().advance(31);
  expectValid(*trigger_, false, kFireCapLine, config(60));
  trigger_->setMaxFireCount(std::nullopt);
  expectValid(*trigger_, false, belowThreshold("screenShown", 10), config(60));
  trigger_->setThresholdCount(std::nullopt);
  expectValid(*trigger_, false, belowRepeat("screenShown"), config(60));
}

TEST_F(TriggerValidityTest, EvaluationCreatesRecordsWithoutSavingThem) {
  auto preload = makeAdvertisement("preload", ZTIAMAdvertisementDisplayTypeDfpInterstitialPreload);
  advertisements_ = {makeAdvertisement("review", ZTIAMAdvertisementDisplayTypeReviewQuestion), preload, ad_};
  expectValid(*trigger_, true, "", config(10));
  // The trigger's own records, and those of the spacing walk, which skips the preload.
  const auto created = stats_.advertisementStats();
  EXPECT_EQ(created.size(), 2u);
  EXPECT_EQ(created.count("review"), 1u);
  EXPECT_EQ(created.at("ad")->triggerStats().count("t1"), 1u);
  EXPECT_EQ(stats_.globalAppEventStats().count("screenShown"), 1u);
  env_.settle();
  EXPECT_FALSE(env_.preferences()->dataForKey(ZTIAMStatsHelper::kAdvertisementStatsKey));
  EXPECT_FALSE(env_.preferences()->dataForKey(ZTIAMStatsHelper::kGlobalAppEventStatsKey));
}

}  // namespace
}  // namespace iam::testing
