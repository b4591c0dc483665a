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

TEST_F(ReviewValidityTest, IntervalIsExclusiveOnBothSidesOfNow) {
  // An impression in the future counts by its distance too.
  struct Case { std::optional<std::string> parameter; double shownAt; bool valid; } cases[] = {
      {{}, -60 * kDay, false}, {{}, -60 * kDay - 1, true}, {"7", -7 * kDay + 1, false}, {"7", -7 * kDay, false},
      {"7", -7 * kDay - 1, true}, {"7", 7 * kDay, false}, {"7", 10 * kDay, true},
      {"0.5", -12 * 3600, false}, {"0.5", -12 * 3600 - 1, true}, {"not a number", -61 * kDay, true},
  };
  for (const auto& c : cases) {
    ZTIAMAdvertisementStats stats;
    // Never shown is valid whatever the parameter.
    EXPECT_TRUE(Review::isReviewAdvertisementQuestionValid(*reviewQuestion(c.parameter), stats));
    stats.setMostRecentImpressionDate(at(c.shownAt));
    EXPECT_EQ(Review::isReviewAdvertisementQuestionValid(*reviewQuestion(c.parameter), stats), c.valid)
        << c.parameter.value_or("none") << " " << c.shownAt;
  }
}

TEST_F(ReviewValidityTest, ParameterParsingFallsBackToSixtyDays) {
  // Like the host's text-to-number conversion: leading blanks and trailing text are tolerated.
  std::pair<std::optional<std::string>, double> cases[] = {
      {std::nullopt, 60}, {"7", 7}, {"0.5", 0.5}, {" 14 days", 14}, {"0", 60}, {"-3", 60},
      {"abc", 60},        {"", 60}, {"nan", 60},  {"inf", 60},      {".", 60},
  };
  for (const auto& [parameter, days] : cases) {
    EXPECT_DOUBLE_EQ(Review::dayIntervalBetweenReviewQuestionsFor(*reviewQuestion(parameter)), days)
        << parameter.value_or("none");
  }
}

}  // namespace
}  // namespace iam::testing
