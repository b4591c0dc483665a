#include "iam/validity/ZTIAMAdvertisementValidityHelper.h"

#include "validity/ValidityTestSupport.h"

namespace iam::testing {
namespace {

using Helper = ZTIAMAdvertisementValidityHelper;
using Seconds = std::optional<double>;

std::string refusal(const std::string& id, const std::string& reason) {
  return "IAM: Advertisement '" + id + "' is currently not valid because " + reason;
}

class AdvertisementValidityTest : public ValidityTest {
 protected:
  void expectValid(const Advertisement& ad, const ZTIAMAdvertisementStats& stats, bool want,
                   const std::string& line = "", bool loggedRegardless = false) {
    expectVerdict([&] { return Helper::isAdvertisementValid(ad, stats); }, want, line, "isAdvertisementValid",
                  loggedRegardless);
  }
  static std::shared_ptr<ZTIAMAdvertisementStats> freshStats(const std::string& id) {
    auto stats = std::make_shared<ZTIAMAdvertisementStats>();
    stats->setAdvertisementId(id);
    return stats;
  }
};

TEST_F(AdvertisementValidityTest, ScheduleIncludesBothEndInstantsToTheFraction) {
  auto ad = makeAdvertisement("sched");
  auto stats = freshStats("sched");
  struct Case { Seconds start, end; bool valid; } cases[] = {
      {1, {}, false}, {0.25, {}, false}, {0, {}, true}, {-0.25, {}, true},
      {{}, 0, true},  {{}, -0.25, false}, {{}, -1, false}, {-1, 1, true},
  };
  for (const auto& c : cases) {
    ad->setStartDate(c.start ? std::optional(at(*c.start)) : std::nullopt);
    ad->setEndDate(c.end ? std::optional(at(*c.end)) : std::nullopt);
    SCOPED_TRACE(::testing::Message() << c.start.value_or(-99) << " " << c.end.value_or(-99));
    EXPECT_EQ(Helper::currentDateIsValidForAdvertisement(*ad), c.valid);
    expectValid(*ad, *stats, c.valid, c.valid ? "" : refusal("sched", "of its start and end date."));
  }
}

TEST_F(AdvertisementValidityTest, ImpressionCapLetsOneMoreImpressionThrough) {
  auto ad = makeAdvertisement("capped");
  auto stats = freshStats("capped");
  // A cap below one, or none, is no cap.
  struct Case { std::optional<std::int64_t> cap; std::int64_t impressions; bool valid; } cases[] = {
      {3, 3, true}, {3, 4, false}, {1, 1, true}, {1, 2, false}, {0, 1000, true}, {-1, 1000, true}, {{}, 1000, true},
  };
  for (const auto& c : cases) {
    ad->setMaxImpressionCount(c.cap);
    stats->setNumberOfImpressions(c.impressions);
    SCOPED_TRACE(::testing::Message() << c.cap.value_or(-99) << " " << c.impressions);
    EXPECT_EQ(Helper::impressionCountIsValidForAdvertisement(*ad, *stats), c.valid);
    expectValid(*ad, *stats, c.valid,
                c.valid ? "" : refusal("capped", "of its impression count (" + std::to_string(c.impressions) + ")."));
  }
}

TEST_F(AdvertisementValidityTest, PostponementEndsAtItsExactEndInWholeSeconds) {
  auto ad = makeAdvertisement("later");
  auto stats = freshStats("later");
  stats->handlePostpone();  // stamped at the clock's start
  struct Case { bool enabled; Seconds delay; double now; bool postponed; } cases[] = {
      {true, 3600, 3599, true},    {true, 3600, 3600, false}, {true, 3600.9, 3599.5, true},
      {true, 3600.9, 3600, false}, {false, 3600, 10, false},  {true, 0.0, 0, false},
      {true, 0.5, 0, false},       {true, {}, 10, false},
  };
  for (const auto& c : cases) {
    ad->setPostponeEnabled(c.enabled);
    ad->setPostponeDelay(c.delay);
    clock_->setNow(at(c.now));
    SCOPED_TRACE(::testing::Message() << c.enabled << " " << c.delay.value_or(-99) << " " << c.now);
    EXPECT_EQ(Helper::advertisementIsPostponed(*ad, *stats), c.postponed);
    expectValid(*ad, *stats, !c.postponed, c.postponed ? refusal("later", "it is postponed.") : "");
  }
  // Without a recorded postpone the delay does not matter; dismissing or opening never rules out.
  ad->setPostponeEnabled(true);
  ad->setPostponeDelay(3600);
  stats = freshStats("later");
  stats->handleDismiss();
  stats->handleClick();
  EXPECT_FALSE(Helper::advertisementIsPostponed(*ad, *stats));
  EXPECT_FALSE(Helper::advertisementIsDismissed(*ad, *stats));
  EXPECT_FALSE(Helper::advertisementIsOpened(*ad, *stats));
}

TEST_F(AdvertisementValidityTest, CapabilityRefusalsAreLoggedRegardlessOfTheSwitch) {
  auto form = makeAdvertisement("form");
  form->setOkActionType(ZTIAMAdvertisementActionTypeOpenContactForm);
  expectValid(*form, *freshStats("form"), false, refusal("form", "open contact form is not supported."), true);

  auto review = makeAdvertisement("review", ZTIAMAdvertisementDisplayTypeReviewQuestion);
  auto stats = freshStats("review");
  stats->setMostRecentImpressionDate(at(-kDay));
  expectValid(*review, *stats, false, refusal("review", "one of it additional parameters is invalid."), true);
  stats->setMostRecentImpressionDate(at(-61 * kDay));
  expectValid(*review, *stats, true);
  // The review rule belongs to review questions alone.
  stats->setMostRecentImpressionDate(at(-1));
  expectValid(*makeAdvertisement("dfp"), *stats, true);

  // An invalid display type is refused before anything is logged.
  form->setDisplayType(ZTIAMAdvertisementDisplayTypeInvalid);
  form->setEndDate(at(-10));
  expectValid(*form, *stats, false);
}

TEST_F(AdvertisementValidityTest, FirstFailingCheckDecidesAndLogsAlone) {
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

  // With info logging off, the earlier refusals never reach the lines written regardless.
  expectValid(*ad, *stats, false, refusal("many", "of its start and end date."));
  ad->setStartDate(std::nullopt);
  expectValid(*ad, *stats, false, refusal("many", "of its impression count (5)."));
  ad->setMaxImpressionCount(std::nullopt);
  expectValid(*ad, *stats, false, refusal("many", "it is postponed."));
  ad->setPostponeEnabled(false);
  expectValid(*ad, *stats, false, refusal("many", "open contact form is not supported."), true);
  ad->setOkActionType(ZTIAMAdvertisementActionTypeOpenReview);
  expectValid(*ad, *stats, false, refusal("many", "one of it additional parameters is invalid."), true);
}

}  // namespace
}  // namespace iam::testing
