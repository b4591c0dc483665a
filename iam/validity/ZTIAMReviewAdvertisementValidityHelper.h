#pragma once

#include "iam/model/Advertisement.h"
#include "iam/stats/ZTIAMAdvertisementStats.h"

namespace iam {

// Whether a review-question advertisement may be asked again: enough days must have passed since
// it was last shown. Stateless; callable from any thread.
class ZTIAMReviewAdvertisementValidityHelper {
 public:
  ZTIAMReviewAdvertisementValidityHelper() = delete;

  static bool isReviewAdvertisementQuestionValid(const AdvertisementType& advertisement,
                                                 const ZTIAMAdvertisementStats& advertisementStats);

  // Days between two review questions: the "minimumDaysInterval" resource when it reads as a number
  // above 0, otherwise 60.
  static double dayIntervalBetweenReviewQuestionsFor(const AdvertisementType& advertisement);
};

}  // namespace iam
