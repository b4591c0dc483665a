#include "iam/validity/ZTIAMReviewAdvertisementValidityHelper.h"

#include "validity/ValidityTestSupport.h"

namespace iam::testing {
namespace {

using Review = ZTIAMReviewAdvertisementValidityHelper;

class ReviewValidityTest : public ValidityTest {
 protected:
  std::shared_ptr<Advertisement> reviewQuestion(std::optional<std::string> minimumDaysInterval) {
    auto ad = makeAdvertisement("review", ZTIAMAdvertisementDisplayTypeReviewQuestion);
    if (minimumDaysInterval) {
      ZTIAMResourceMap resources;
      resources["minimumDaysInterval"] = std::make_shared<ZTIAMResource>("minimumDaysInterval", *minimumDaysInterval);
      ad->setResources(std::move(resources));
    }
    return ad;
  }
  bool validShownAt(const Advertisement& ad, Date shown) {
    ZTIAMAdvertisementStats stats;
    stats.setMostRecentImpressionDate(shown);
    return Review::isReviewAdvertisementQuestionValid(ad, stats);
  }
};

TEST_F(ReviewValidityTest, NeverShownIsValidWhateverTheParameter) {
  for (auto parameter : {std::optional<std::string>(), std::optional<std::string>("100000"),
                         std::optional<std::string>("not a number")}) {
    ZTIAMAdvertisementStats stats;
    EXPECT_TRUE(Review::isReviewAdvertisementQuestionValid(*reviewQuestion(parameter), stats));
  }
}

TEST_F(ReviewValidityTest, DefaultIntervalIsSixtyDaysExclusive) {
  auto ad = reviewQuestion(std::nullopt);
  EXPECT_DOUBLE_EQ(Review::dayIntervalBetweenReviewQuestionsFor(*ad), 60.0);
  EXPECT_FALSE(validShownAt(*ad, at(-59.9 * kDay)));
  EXPECT_FALSE(validShownAt(*ad, at(-60 * kDay)));
  EXPECT_TRUE(validShownAt(*ad, at(-60 * kDay - 1)));
  EXPECT_TRUE(validShownAt(*ad, at(-60.1 * kDay)));
}

TEST_F(ReviewValidityTest, ParameterSetsTheIntervalExclusive) {
  auto ad = reviewQuestion("7");
  EXPECT_DOUBLE_EQ(Review::dayIntervalBetweenReviewQuestionsFor(*ad), 7.0);
  EXPECT_FALSE(validShownAt(*ad, at(-7 * kDay + 1)));
  EXPECT_FALSE(validShownAt(*ad, at(-7 * kDay)));
  EXPECT_TRUE(validShownAt(*ad, at(-7 * kDay - 1)));

  auto fractional = reviewQuestion("0.5");
  EXPECT_DOUBLE_EQ(Review::dayIntervalBetweenReviewQuestionsFor(*fractional), 0.5);
  EXPECT_FALSE(validShownAt(*fractional, at(-12 * 3600)));
  EXPECT_TRUE(validShownAt(*fractional, at(-12 * 3600 - 1)));
}

TEST_F(ReviewValidityTest, UnusableParameterFallsBackToSixtyDays) {
  for (const char* parameter : {"0", "-3", "abc", "", "nan", "inf", "."}) {
    EXPECT_DOUBLE_EQ(Review::dayIntervalBetweenReviewQuestionsFor(*reviewQuestion(parameter)), 60.0) << parameter;
  }
  // Like the host's text-to-number conversion: leading blanks and trailing text are tolerated.
  EXPECT_DOUBLE_EQ(Review::dayIntervalBetweenReviewQuestionsFor(*reviewQuestion(" 14 days")), 14.0);
}

TEST_F(ReviewValidityTest, FutureImpressionCountsByDistance) {
  auto ad = reviewQuestion("7");
  EXPECT_TRUE(validShownAt(*ad, at(10 * kDay)));
  EXPECT_FALSE(validShownAt(*ad, at(7 * kDay)));
  EXPECT_FALSE(validShownAt(*ad, at(6 * kDay)));
}

}  // namespace
}  // namespace iam::testing
