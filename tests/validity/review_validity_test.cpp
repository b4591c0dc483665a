#include "iam/validity/ZTIAMReviewAdvertisementValidityHelper.h"

#include "validity/ValidityTestSupport.h"

namespace iam::testing {
namespace {

using Review = ZTIAMReviewAdvertisementValidityHelper;

class ReviewValidityTest : public ValidityTest {
 protected:
  static std::shared_ptr<Advertisement> reviewQuestion(std::optional<std::string> minimumDaysInterval) {
    auto ad = makeAdvertisement("review", ZTIAMAdvertisementDisplayTypeReviewQuestion);
    if (minimumDaysInterval) {
      ZTIAMResourceMap resources;
      resources["minimumDaysInterval"] = std::make_shared<ZTIAMResource>("minimumDaysInterval", *minimumDaysInterval);
      ad->setResources(std::move(resources));
    }
    return ad;
  }
};

// The interval is exclusive on both sides of now: an impression in the future counts by its distance
// too. The parameter reads like the host's text-to-number conversion (leading blanks and trailing
// text tolerated); anything not a positive number falls back to sixty days.
TEST_F(ReviewValidityTest, IntervalParsedFromTheParameterIsExclusiveOnBothSidesOfNow) {
  std::pair<std::optional<std::string>, double> cases[] = {
      {std::nullopt, 60}, {"7", 7}, {"0.5", 0.5}, {" 14 days", 14}, {"0", 60}, {"-3", 60},
      {"abc", 60},        {"", 60}, {"nan", 60},  {"inf", 60},      {".", 60},
  };
  for (const auto& [parameter, days] : cases) {
    SCOPED_TRACE(parameter.value_or("none"));
    const auto ad = reviewQuestion(parameter);
    EXPECT_DOUBLE_EQ(Review::dayIntervalBetweenReviewQuestionsFor(*ad), days);
    ZTIAMAdvertisementStats stats;
    EXPECT_TRUE(Review::isReviewAdvertisementQuestionValid(*ad, stats));  // never shown
    for (auto [shownAt, valid] : {std::pair{-days * kDay + 1, false}, {-days * kDay, false}, {-days * kDay - 1, true},
                                  {days * kDay, false}, {days * kDay + 1, true}}) {
      stats.setMostRecentImpressionDate(at(shownAt));
      EXPECT_EQ(Review::isReviewAdvertisementQuestionValid(*ad, stats), valid) << shownAt;
    }
  }
}

}  // namespace
}  // namespace iam::testing
