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
};

// Schedule ends are inclusive to the fraction; a cap below one, or none, is no cap and lets one
// more impression through; a postponement ends at its start plus the whole seconds of its delay.
TEST_F(AdvertisementValidityTest, ScheduleImpressionCapAndPostponementBoundaries) {
  const std::string kDate = "of its start and end date.", kPostponed = "it is postponed.";
  struct Case {
    Seconds start{}, end{};
    std::optional<std::int64_t> cap{};
    std::int64_t impressions = 0;
    bool postponeEnabled = false;
    Seconds delay{};
    double now = 0;
    std::string line{};
  } cases[] = {
      {.start = 0.25, .line = kDate}, {.start = 0}, {.end = 0}, {.end = -0.25, .line = kDate}, {.start = -1, .end = 1},
      {.cap = 1, .impressions = 1}, {.cap = 1, .impressions = 2, .line = "of its impression count (2)."},
      {.cap = 0, .impressions = 1000}, {.cap = -1, .impressions = 1000}, {.impressions = 1000},
      {.postponeEnabled = true, .delay = 3600, .now = 3599, .line = kPostponed},
      {.postponeEnabled = true, .delay = 3600, .now = 3600},
      {.postponeEnabled = true, .delay = 3600.9, .now = 3599.5, .line = kPostponed},
      {.postponeEnabled = true, .delay = 3600.9, .now = 3600}, {.postponeEnabled = false, .delay = 3600, .now = 10},
      {.postponeEnabled = true, .now = 10},
  };
  for (const auto& c : cases) {
    auto ad = makeAdvertisement("ad");
    ad->setStartDate(c.start ? std::optional(at(*c.start)) : std::nullopt);
    ad->setEndDate(c.end ? std::optional(at(*c.end)) : std::nullopt);
    ad->setMaxImpressionCount(c.cap);
    ad->setPostponeEnabled(c.postponeEnabled);
    ad->setPostponeDelay(c.delay);
    env_.clock().setNow(at(0));
    ZTIAMAdvertisementStats stats;
    stats.setNumberOfImpressions(c.impressions);
    stats.handlePostpone();
    env_.clock().setNow(at(c.now));
    SCOPED_TRACE(::testing::Message() << c.start.value_or(-99) << " " << c.end.value_or(-99) << " " << c.cap.value_or(-99)
                                      << " " << c.impressions << " " << c.delay.value_or(-99) << " " << c.now);
    expectValid(*ad, stats, c.line.empty(), c.line.empty() ? "" : refusal("ad", c.line));
  }
  // Without a recorded postpone the delay does not matter; dismissing or opening never rules out.
  auto ad = makeAdvertisement("ad");
  ad->setPostponeEnabled(true);
  ad->setPostponeDelay(3600);
  ZTIAMAdvertisementStats stats;
  stats.handleDismiss();
  stats.handleClick();
  expectValid(*ad, stats, true);
}

TEST_F(AdvertisementValidityTest, CapabilityRefusalsAreLoggedRegardlessOfTheSwitch) {
  auto form = makeAdvertisement("form");
  form->setOkActionType(ZTIAMAdvertisementActionTypeOpenContactForm);
  ZTIAMAdvertisementStats stats;
  expectValid(*form, stats, false, refusal("form", "open contact form is not supported."), true);

  auto review = makeAdvertisement("review", ZTIAMAdvertisementDisplayTypeReviewQuestion);
  stats.setMostRecentImpressionDate(at(-kDay));
  expectValid(*review, stats, false, refusal("review", "one of it additional parameters is invalid."), true);
  stats.setMostRecentImpressionDate(at(-61 * kDay));
  expectValid(*review, stats, true);
  // The review rule belongs to review questions alone.
  stats.setMostRecentImpressionDate(at(-1));
  expectValid(*makeAdvertisement("dfp"), stats, true);

  // An invalid display type is refused before anything is logged.
  form->setDisplayType(ZTIAMAdvertisementDisplayTypeInvalid);
  form->setEndDate(at(-10));
  expectValid(*form, stats, false);
}

TEST_F(AdvertisementValidityTest, FirstFailingCheckDecidesAndLogsAlone) {
  auto ad = makeAdvertisement("many", ZTIAMAdvertisementDisplayTypeReviewQuestion);
  ZTIAMAdvertisementStats stats;
  ad->setOkActionType(ZTIAMAdvertisementActionTypeOpenContactForm);
  stats.setMostRecentImpressionDate(at(-1));  // the review interval fails too
  ad->setPostponeEnabled(true);
  ad->setPostponeDelay(600);
  stats.handlePostpone();
  ad->setMaxImpressionCount(1);
  stats.setNumberOfImpressions(5);
  ad->setStartDate(at(10));

  // With info logging off, the earlier refusals never reach the lines written regardless.
  expectValid(*ad, stats, false, refusal("many", "of its start and end date."));
  ad->setStartDate(std::nullopt);
  expectValid(*ad, stats, false, refusal("many", "of its impression count (5)."));
  ad->setMaxImpressionCount(std::nullopt);
  expectValid(*ad, stats, false, refusal("many", "it is postponed."));
  ad->setPostponeEnabled(false);
  expectValid(*ad, stats, false, refusal("many", "open contact form is not supported."), true);
  ad->setOkActionType(ZTIAMAdvertisementActionTypeOpenReview);
  expectValid(*ad, stats, false, refusal("many", "one of it additional parameters is invalid."), true);
}

}  // namespace
}  // namespace iam::testing
