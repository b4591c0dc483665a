#include "iam/validity/ZTIAMAdvertisementValidityHelper.h"

#include "validity/ValidityTestSupport.h"

namespace iam::testing {
namespace {

using Helper = ZTIAMAdvertisementValidityHelper;
constexpr const char* kOperation = "isAdvertisementValid";

std::string refusal(const std::string& id, const std::string& reason) {
  return "IAM: Advertisement '" + id + "' is currently not valid because " + reason;
}

class AdvertisementValidityTest : public ValidityTest {
 protected:
  std::shared_ptr<ZTIAMAdvertisementStats> freshStats(const std::string& id = "ad") {
    auto stats = std::make_shared<ZTIAMAdvertisementStats>();
    stats->setAdvertisementId(id);
    return stats;
  }
};

TEST_F(AdvertisementValidityTest, InvalidDisplayTypeIsRefusedWithoutAnyLine) {
  InfoLogSwitch::setLogInfoEnabled(true);
  auto ad = makeAdvertisement("ad", ZTIAMAdvertisementDisplayTypeInvalid);
  auto stats = freshStats();
  // Even with refusals further down that would log regardless of the switch.
  ad->setEndDate(at(-10));
  ad->setOkActionType(ZTIAMAdvertisementActionTypeOpenContactForm);
  EXPECT_FALSE(Helper::isAdvertisementValid(*ad, *stats));
  expectNoLines();

  ad->setDisplayType(ZTIAMAdvertisementDisplayTypeDfpInterstitial);
  ad->setEndDate(std::nullopt);
  ad->setOkActionType(ZTIAMAdvertisementActionTypeOpenStore);
  EXPECT_TRUE(Helper::isAdvertisementValid(*ad, *stats));
  expectNoLines();
}

TEST_F(AdvertisementValidityTest, ScheduleIncludesBothEndInstants) {
  InfoLogSwitch::setLogInfoEnabled(true);
  auto ad = makeAdvertisement("sched");
  auto stats = freshStats("sched");
  const std::string message = refusal("sched", "of its start and end date.");

  ad->setStartDate(at(1));
  EXPECT_FALSE(Helper::isAdvertisementValid(*ad, *stats));
  expectSingleInfoLine(message, kOperation);
  ad->setStartDate(at(0));
  EXPECT_TRUE(Helper::isAdvertisementValid(*ad, *stats));

  ad->setStartDate(std::nullopt);
  ad->setEndDate(at(0));
  EXPECT_TRUE(Helper::isAdvertisementValid(*ad, *stats));
  clock_->advance(1);
  EXPECT_FALSE(Helper::isAdvertisementValid(*ad, *stats));
  expectSingleInfoLine(message, kOperation);
  EXPECT_FALSE(Helper::currentDateIsValidForAdvertisement(*ad));

  // A quarter second either side still counts.
  ad->setEndDate(dateWithTimeIntervalSince1970(kStart + 0.75));
  EXPECT_FALSE(Helper::currentDateIsValidForAdvertisement(*ad));
  ad->setEndDate(std::nullopt);
  ad->setStartDate(dateWithTimeIntervalSince1970(kStart + 1.25));
  EXPECT_FALSE(Helper::currentDateIsValidForAdvertisement(*ad));
  ad->setStartDate(dateWithTimeIntervalSince1970(kStart + 0.75));
  EXPECT_TRUE(Helper::currentDateIsValidForAdvertisement(*ad));
  expectNoLines();
}

TEST_F(AdvertisementValidityTest, ImpressionCapLetsOneMoreImpressionThrough) {
  InfoLogSwitch::setLogInfoEnabled(true);
  auto ad = makeAdvertisement("capped");
  auto stats = freshStats("capped");
  ad->setMaxImpressionCount(3);
  stats->setNumberOfImpressions(3);
  EXPECT_TRUE(Helper::isAdvertisementValid(*ad, *stats));
  stats->setNumberOfImpressions(4);
  EXPECT_FALSE(Helper::isAdvertisementValid(*ad, *stats));
  expectSingleInfoLine(refusal("capped", "of its impression count (4)."), kOperation);

  ad->setMaxImpressionCount(1);
  stats->setNumberOfImpressions(1);
  EXPECT_TRUE(Helper::impressionCountIsValidForAdvertisement(*ad, *stats));
  stats->setNumberOfImpressions(2);
  EXPECT_FALSE(Helper::impressionCountIsValidForAdvertisement(*ad, *stats));

  // A cap below one is no cap.
  stats->setNumberOfImpressions(1000);
  for (std::int64_t cap : {0, -1}) {
    ad->setMaxImpressionCount(cap);
    EXPECT_TRUE(Helper::isAdvertisementValid(*ad, *stats)) << cap;
  }
  ad->setMaxImpressionCount(std::nullopt);
  EXPECT_TRUE(Helper::isAdvertisementValid(*ad, *stats));
  expectNoLines();
}

TEST_F(AdvertisementValidityTest, PostponementEndsAtItsExactEnd) {
  InfoLogSwitch::setLogInfoEnabled(true);
  auto ad = makeAdvertisement("later");
  auto stats = freshStats("later");
  ad->setPostponeEnabled(true);
  ad->setPostponeDelay(3600);
  stats->handlePostpone();  // stamped at the clock's start

  clock_->advance(3599);
  EXPECT_FALSE(Helper::isAdvertisementValid(*ad, *stats));
  expectSingleInfoLine(refusal("later", "it is postponed."), kOperation);
  clock_->advance(1);
  EXPECT_TRUE(Helper::isAdvertisementValid(*ad, *stats));

  // The delay counts in whole seconds: 3600.9 ends at 3600 too.
  ad->setPostponeDelay(3600.9);
  EXPECT_FALSE(Helper::advertisementIsPostponed(*ad, *stats));
  clock_->setNow(at(3599.5));
  EXPECT_TRUE(Helper::advertisementIsPostponed(*ad, *stats));

  // Switched off, zero, or no delay: never postponed.
  ad->setPostponeEnabled(false);
  EXPECT_FALSE(Helper::advertisementIsPostponed(*ad, *stats));
  ad->setPostponeEnabled(true);
  for (std::optional<double> delay : {std::optional<double>(0.0), std::optional<double>(0.5), std::optional<double>()}) {
    ad->setPostponeDelay(delay);
    EXPECT_FALSE(Helper::advertisementIsPostponed(*ad, *stats));
  }
  // Without a recorded postpone the delay does not matter.
  ad->setPostponeDelay(3600);
  EXPECT_FALSE(Helper::advertisementIsPostponed(*ad, *freshStats()));
  expectNoLines();
}

TEST_F(AdvertisementValidityTest, DismissedAndOpenedNeverRuleOut) {
  auto stats = freshStats();
  stats->handleDismiss();
  stats->handleClick();
  for (auto type : {ZTIAMAdvertisementDisplayTypeInvalid, ZTIAMAdvertisementDisplayTypeDfpInterstitialPreload,
                    ZTIAMAdvertisementDisplayTypeDfpInterstitial, ZTIAMAdvertisementDisplayTypeReviewQuestion}) {
    auto ad = makeAdvertisement("ad", type);
    EXPECT_FALSE(Helper::advertisementIsDismissed(*ad, *stats));
    EXPECT_FALSE(Helper::advertisementIsOpened(*ad, *stats));
  }
}

TEST_F(AdvertisementValidityTest, InfoSwitchHoldsBackScheduleCapAndPostponeLines) {
  auto ad = makeAdvertisement("quiet");
  auto stats = freshStats("quiet");
  ad->setEndDate(at(-1));
  EXPECT_FALSE(Helper::isAdvertisementValid(*ad, *stats));
  ad->setEndDate(std::nullopt);
  ad->setMaxImpressionCount(1);
  stats->setNumberOfImpressions(2);
  EXPECT_FALSE(Helper::isAdvertisementValid(*ad, *stats));
  ad->setMaxImpressionCount(std::nullopt);
  ad->setPostponeEnabled(true);
  ad->setPostponeDelay(60);
  stats->handlePostpone();
  EXPECT_FALSE(Helper::isAdvertisementValid(*ad, *stats));
  expectNoLines();
}

TEST_F(AdvertisementValidityTest, CapabilityRefusalsAreLoggedRegardlessOfTheSwitch) {
  // Info logging stays off throughout.
  auto form = makeAdvertisement("form");
  form->setOkActionType(ZTIAMAdvertisementActionTypeOpenContactForm);
  EXPECT_FALSE(Helper::isAdvertisementValid(*form, *freshStats("form")));
  expectSingleInfoLine(refusal("form", "open contact form is not supported."), kOperation);

  auto review = makeAdvertisement("review", ZTIAMAdvertisementDisplayTypeReviewQuestion);
  auto reviewStats = freshStats("review");
  reviewStats->setMostRecentImpressionDate(at(-kDay));
  EXPECT_FALSE(Helper::isAdvertisementValid(*review, *reviewStats));
  expectSingleInfoLine(refusal("review", "one of it additional parameters is invalid."), kOperation);
  reviewStats->setMostRecentImpressionDate(at(-61 * kDay));
  EXPECT_TRUE(Helper::isAdvertisementValid(*review, *reviewStats));

  // The review rule belongs to review questions alone.
  auto interstitial = makeAdvertisement("dfp", ZTIAMAdvertisementDisplayTypeDfpInterstitial);
  reviewStats->setMostRecentImpressionDate(at(-1));
  EXPECT_TRUE(Helper::isAdvertisementValid(*interstitial, *reviewStats));
  expectNoLines();
}

TEST_F(AdvertisementValidityTest, FirstFailingCheckDecidesAndLogsAlone) {
  InfoLogSwitch::setLogInfoEnabled(true);
  auto ad = makeAdvertisement("many", ZTIAMAdvertisementDisplayTypeReviewQuestion);
  auto stats = freshStats("many");
  ad->setOkActionType(ZTIAMAdvertisementActionTypeOpenContactForm);
  stats->setMostRecentImpressionDate(at(-1));  // the review interval fails too
  ad->setPostponeEnabled(true);
  ad->setPostponeDelay(600);
  stats->handlePostpone();
  ad->setMaxImpressionCount(1);
  stats->setNumberOfImpressions(5);
  ad->setStartDate(at(10));

  EXPECT_FALSE(Helper::isAdvertisementValid(*ad, *stats));
  expectSingleInfoLine(refusal("many", "of its start and end date."), kOperation);
  ad->setStartDate(std::nullopt);
  EXPECT_FALSE(Helper::isAdvertisementValid(*ad, *stats));
  expectSingleInfoLine(refusal("many", "of its impression count (5)."), kOperation);
  ad->setMaxImpressionCount(std::nullopt);
  EXPECT_FALSE(Helper::isAdvertisementValid(*ad, *stats));
  expectSingleInfoLine(refusal("many", "it is postponed."), kOperation);
  ad->setPostponeEnabled(false);
  EXPECT_FALSE(Helper::isAdvertisementValid(*ad, *stats));
  expectSingleInfoLine(refusal("many", "open contact form is not supported."), kOperation);
  ad->setOkActionType(ZTIAMAdvertisementActionTypeOpenReview);
  EXPECT_FALSE(Helper::isAdvertisementValid(*ad, *stats));
  expectSingleInfoLine(refusal("many", "one of it additional parameters is invalid."), kOperation);

  // Refused by its dates with info logging off, it never reaches the lines written regardless.
  InfoLogSwitch::setLogInfoEnabled(false);
  ad->setOkActionType(ZTIAMAdvertisementActionTypeOpenContactForm);
  ad->setEndDate(at(-1));
  EXPECT_FALSE(Helper::isAdvertisementValid(*ad, *stats));
  expectNoLines();
}

}  // namespace
}  // namespace iam::testing
