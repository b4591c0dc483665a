#include "iam/validity/ZTIAMAdvertisementValidityHelper.h"

#include <fmt/format.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <string_view>
#include <type_traits>

#include "iam/platform/Clock.h"
#include "iam/platform/InfoLogSwitch.h"
#include "iam/platform/LogBridge.h"
#include "iam/platform/ZTSettings.h"
#include "iam/validity/ZTIAMAdvertisementEventReservedEvents.h"
#include "iam/validity/ZTIAMReviewAdvertisementValidityHelper.h"

namespace iam {
namespace {

constexpr std::string_view kLogFile = "InAppMarketing/source/Logic/Validity/_ZTIAMAdvertisementValidityHelper";
constexpr std::string_view kIsAdvertisementValid = "isAdvertisementValid";
constexpr std::string_view kIsAdvertisementTriggerValid = "isAdvertisementTriggerValid";

// The integer value of a boxed number, truncated toward zero and held inside the 64-bit range.
template <class Number>
std::int64_t integerValue(Number value) {
  if constexpr (std::is_floating_point_v<Number>) {
    if (std::isnan(value)) return 0;
    if (value >= 9.2233720368547758e18) return std::numeric_limits<std::int64_t>::max();
    if (value <= -9.2233720368547758e18) return std::numeric_limits<std::int64_t>::min();
    return static_cast<std::int64_t>(value);
  } else {
    return static_cast<std::int64_t>(value);
  }
}

// a + b * c without overflow: a count that high is never reached, so saturating is exact enough.
std::int64_t saturatingMultiplyAdd(std::int64_t a, std::int64_t b, std::int64_t c) {
  std::int64_t product = 0;
  std::int64_t sum = 0;
  if (__builtin_mul_overflow(b, c, &product)) {
    return ((b < 0) != (c < 0)) ? std::numeric_limits<std::int64_t>::min() : std::numeric_limits<std::int64_t>::max();
  }
  if (__builtin_add_overflow(a, product, &sum)) {
    return product < 0 ? std::numeric_limits<std::int64_t>::min() : std::numeric_limits<std::int64_t>::max();
  }
  return sum;
}

// The trigger checks once the statistics are fetched; `popupSpacingPassed(minimum)` judges the
// spacing rule, the first check.
template <class PopupSpacingPassed>
bool judgeTrigger(const AdvertisementTriggerType& trigger, const std::string& advertisementId, std::int64_t fireCount,
                  const ZTIAMAppEventStats* appEventStats,
                  const std::shared_ptr<const ZTIAMAppConfigType>& appConfig, PopupSpacingPassed popupSpacingPassed) {
  TimeInterval minimumInterval = appConfig ? appConfig->minimumPopupImpressionTimeInterval() : 0;
  if (!popupSpacingPassed(minimumInterval)) {
    if (InfoLogSwitch::logInfoEnabled()) {
      LogBridge::info(fmt::format("IAM: Trigger '{}' for advertisement '{}' is currently not valid because it is too "
                                  "recent (< {:f} seconds) another has been shown.",
                                  trigger.eventKey(), advertisementId, minimumInterval),
                      kLogFile, __LINE__, kIsAdvertisementTriggerValid);
    }
    return false;
  }

  auto maxFireCount = trigger.maxFireCount();
  if (maxFireCount && fireCount >= *maxFireCount) {
    if (InfoLogSwitch::logInfoEnabled()) {
      LogBridge::info(fmt::format("IAM: Trigger '{}' for advertisement '{}' is currently not valid because it is has "
                                  "reached its max fire count.",
                                  trigger.eventKey(), advertisementId),
                      kLogFile, __LINE__, kIsAdvertisementTriggerValid);
    }
    return false;
  }

  // Foreground triggers count launches: the app may come to the foreground many times per launch.
  std::int64_t currentCount = appEventStats ? appEventStats->count() : 0;
  if (trigger.eventKey() == ZTIAMAdvertisementEventReservedEvents[0]) currentCount = ZTSettings::runCount();

  auto thresholdCount = trigger.thresholdCount();
  if (thresholdCount && currentCount < *thresholdCount) {
    if (InfoLogSwitch::logInfoEnabled()) {
      LogBridge::info(fmt::format("IAM: Trigger '{}' for advertisement '{}' is currently not valid because it has not "
                                  "reached its treshold. Current count: [ZTSettings runCount], treshold: {}",
                                  trigger.eventKey(), advertisementId, *thresholdCount),
                      kLogFile, __LINE__, kIsAdvertisementTriggerValid);
    }
    return false;
  }

  auto repeatIntervalCount = trigger.repeatIntervalCount();
  if (!repeatIntervalCount) return true;
  if (fireCount < 1) return true;
  std::int64_t nextThreshold = saturatingMultiplyAdd(thresholdCount.value_or(0), fireCount, *repeatIntervalCount);
  if (currentCount >= nextThreshold) return true;
  if (InfoLogSwitch::logInfoEnabled()) {
    LogBridge::info(fmt::format("IAM: Trigger '{}' for advertisement '{}' is currently not valid because it has not "
                                "reached its repeat treshold. Current count: [ZTSettings runCount], repeat treshold: "
                                "nextTreshold",
                                trigger.eventKey(), advertisementId),
                    kLogFile, __LINE__, kIsAdvertisementTriggerValid);
  }
  return false;
}

// Elapsed strictly greater than the minimum; an impression stamped in the future holds back.
template <class MostRecent>
bool spacingPassed(const AdvertisementType* advertisement, TimeInterval minimumPopupImpressionTimeInterval,
                   MostRecent mostRecent) {
  if (advertisement && advertisement->ignoreGlobalMinimumPopupTimeInterval()) return true;
  auto displayType = advertisement ? advertisement->displayType() : ZTIAMAdvertisementDisplayTypeInvalid;
  if (!ZTIAMAdvertisementValidityHelper::shouldCheckForImpressionTimeintervalForDisplayType(displayType)) return true;
  const std::optional<Date> date = mostRecent();
  if (!date) return true;
  return timeIntervalBetween(*date, Clock::currentDate()) < -minimumPopupImpressionTimeInterval;
}

// The latest impression over the list's popup advertisements; `recordAt(i)` gives the record of
// the i-th, which it makes if needed.
template <class RecordAt>
std::optional<Date> mostRecentPopupImpression(const ZTIAMAdvertisementValidityHelper::Advertisements& advertisements,
                                              RecordAt recordAt) {
  std::optional<Date> best;
  for (std::size_t i = 0; i < advertisements.size(); ++i) {
    const auto& advertisement = advertisements[i];
    if (!advertisement ||
        !ZTIAMAdvertisementValidityHelper::shouldCheckForImpressionTimeintervalForDisplayType(
            advertisement->displayType()))
      continue;
    const auto& stats = recordAt(i);
    if (!stats) continue;
    auto date = stats->mostRecentImpressionDate();
    if (!date) continue;
    if (!best || *date > *best) best = date;
  }
  return best;
}

}  // namespace

// Messages 7 and 8 below are written without asking the info switch: the two capability refusals
// must show up in a host's log even when info logging is off.
bool ZTIAMAdvertisementValidityHelper::isAdvertisementValid(const AdvertisementType& advertisement,
                                                            const ZTIAMAdvertisementStats& advertisementStats) {
  if (advertisement.displayType() == ZTIAMAdvertisementDisplayTypeInvalid) return false;

  if (!currentDateIsValidForAdvertisement(advertisement)) {
    if (InfoLogSwitch::logInfoEnabled()) {
      LogBridge::info(fmt::format("IAM: Advertisement '{}' is currently not valid because of its start and end date.",
                                  advertisement.advertisementId()),
                      kLogFile, __LINE__, kIsAdvertisementValid);
    }
    return false;
  }
  if (!impressionCountIsValidForAdvertisement(advertisement, advertisementStats)) {
    if (InfoLogSwitch::logInfoEnabled()) {
      LogBridge::info(
          fmt::format("IAM: Advertisement '{}' is currently not valid because of its impression count ({}).",
                      advertisement.advertisementId(), advertisementStats.numberOfImpressions()),
          kLogFile, __LINE__, kIsAdvertisementValid);
    }
    return false;
  }
  if (advertisementIsPostponed(advertisement, advertisementStats)) {
    if (InfoLogSwitch::logInfoEnabled()) {
      LogBridge::info(fmt::format("IAM: Advertisement '{}' is currently not valid because it is postponed.",
                                  advertisement.advertisementId()),
                      kLogFile, __LINE__, kIsAdvertisementValid);
    }
    return false;
  }
  if (advertisementIsDismissed(advertisement, advertisementStats)) {
    if (InfoLogSwitch::logInfoEnabled()) {
      LogBridge::info(fmt::format("IAM: Advertisement '{}' is currently not valid because it is dismissed.",
                                  advertisement.advertisementId()),
                      kLogFile, __LINE__, kIsAdvertisementValid);
    }
    return false;
  }
  if (advertisementIsOpened(advertisement, advertisementStats)) {
    if (InfoLogSwitch::logInfoEnabled()) {
      LogBridge::info(fmt::format("IAM: Advertisement '{}' is currently not valid because it is already opened.",
                                  advertisement.advertisementId()),
                      kLogFile, __LINE__, kIsAdvertisementValid);
    }
    return false;
  }
  if (advertisement.okActionType() == ZTIAMAdvertisementActionTypeOpenContactForm) {
    LogBridge::info(
        fmt::format("IAM: Advertisement '{}' is currently not valid because open contact form is not supported.",
                    advertisement.advertisementId()),
        kLogFile, __LINE__, kIsAdvertisementValid);
    return false;
  }
  if (advertisement.displayType() == ZTIAMAdvertisementDisplayTypeReviewQuestion &&
      !ZTIAMReviewAdvertisementValidityHelper::isReviewAdvertisementQuestionValid(advertisement,
                                                                                   advertisementStats)) {
    LogBridge::info(fmt::format("IAM: Advertisement '{}' is currently not valid because one of it additional "
                                "parameters is invalid.",
                                advertisement.advertisementId()),
                    kLogFile, __LINE__, kIsAdvertisementValid);
    return false;
  }
  return true;
}

bool ZTIAMAdvertisementValidityHelper::currentDateIsValidForAdvertisement(const AdvertisementType& advertisement) {
  const auto& startDate = advertisement.startDate();
  const auto& endDate = advertisement.endDate();
  if (!startDate && !endDate) return true;
  const Date now = Clock::currentDate();
  return !(startDate && now < *startDate) && !(endDate && now > *endDate);
}

bool ZTIAMAdvertisementValidityHelper::impressionCountIsValidForAdvertisement(const AdvertisementType& advertisement,
                                                                              const ZTIAMAdvertisementStats& stats) {
  auto cap = advertisement.maxImpressionCount();
  if (!cap) return true;
  std::int64_t maxImpressions = integerValue(*cap);
  if (maxImpressions < 1) return true;
  return !(stats.numberOfImpressions() > maxImpressions);
}

bool ZTIAMAdvertisementValidityHelper::advertisementIsPostponed(const AdvertisementType& advertisement,
                                                                const ZTIAMAdvertisementStats& stats) {
  if (!advertisement.postponeEnabled()) return false;
  if (stats.numberOfPostpones() == 0) return false;
  auto delay = advertisement.postponeDelay();
  if (!delay) return false;
  std::int64_t delaySeconds = integerValue(*delay);
  if (delaySeconds == 0) return false;
  auto postponedAt = stats.mostRecentPostponeDate();
  if (!postponedAt) return false;
  Date end = dateByAddingTimeInterval(*postponedAt, static_cast<TimeInterval>(delaySeconds));
  return Clock::currentDate() < end;
}

bool ZTIAMAdvertisementValidityHelper::advertisementIsDismissed(const AdvertisementType& advertisement,
                                                                const ZTIAMAdvertisementStats&) {
  // A display type that a dismissal rules out for good gets its own case here.
  switch (advertisement.displayType()) {
    default:
      return false;
  }
}

bool ZTIAMAdvertisementValidityHelper::advertisementIsOpened(const AdvertisementType& advertisement,
                                                             const ZTIAMAdvertisementStats&) {
  // Likewise for a display type that is shown only until it is opened.
  switch (advertisement.displayType()) {
    default:
      return false;
  }
}

bool ZTIAMAdvertisementValidityHelper::isAdvertisementTriggerValid(
    const AdvertisementTriggerType& trigger, ZTIAMStatsGetterHelper& statsGetter, const Advertisements& advertisements,
    const std::shared_ptr<const ZTIAMAppConfigType>& appConfig, PopupImpressionMemo* memo) {
  // A trigger whose advertisement is gone has nothing to be shown for.
  auto advertisement = trigger.advertisement();
  if (!advertisement) return false;

  auto advertisementStats = statsGetter.getAdvertisementStatsByAdvertisementId(advertisement->advertisementId());
  auto triggerStats = advertisementStats ? advertisementStats->getTriggerStatsWithTriggerId(trigger.triggerId()) : nullptr;
  auto appEventStats = statsGetter.getAppEventStatsByEventKey(trigger.eventKey());
  return judgeTrigger(trigger, advertisement->advertisementId(), triggerStats ? triggerStats->count() : 0,
                      appEventStats.get(), appConfig, [&](TimeInterval minimum) {
                        return popupImpressionTimeIntervalHasPassed(trigger, statsGetter, advertisements, minimum,
                                                                    memo);
                      });
}

bool ZTIAMAdvertisementValidityHelper::isAdvertisementTriggerValid(
    const AdvertisementTriggerType& trigger, AdvertisementStatsView& view, std::size_t index,
    const std::shared_ptr<const ZTIAMAppConfigType>& appConfig, PopupImpressionMemo& memo) {
  auto advertisement = trigger.advertisement();
  if (!advertisement) return false;

  const auto& advertisementStats = view.advertisementStats(*advertisement, index);
  auto triggerStats = advertisementStats ? advertisementStats->getTriggerStatsWithTriggerId(trigger.triggerId()) : nullptr;
  const auto& appEventStats = view.appEventStats(trigger.eventKey());
  return judgeTrigger(trigger, advertisement->advertisementId(), triggerStats ? triggerStats->count() : 0,
                      appEventStats.get(), appConfig, [&](TimeInterval minimum) {
                        return spacingPassed(advertisement.get(), minimum, [&] { return memo.get(view); });
                      });
}

bool ZTIAMAdvertisementValidityHelper::shouldCheckForImpressionTimeintervalForDisplayType(
    ZTIAMAdvertisementDisplayType displayType) {
  return displayType != ZTIAMAdvertisementDisplayTypeDfpInterstitialPreload;
}

bool ZTIAMAdvertisementValidityHelper::popupImpressionTimeIntervalHasPassed(
    const AdvertisementTriggerType& trigger, ZTIAMStatsGetterHelper& statsGetter, const Advertisements& advertisements,
    TimeInterval minimumPopupImpressionTimeInterval, PopupImpressionMemo* memo) {
  return spacingPassed(trigger.advertisement().get(), minimumPopupImpressionTimeInterval, [&] {
    return memo ? memo->get(advertisements, statsGetter)
                : mostRecentPopupAdvertisementImpressionDateForAdvertisements(advertisements, statsGetter);
  });
}

std::optional<Date> ZTIAMAdvertisementValidityHelper::mostRecentPopupAdvertisementImpressionDateForAdvertisements(
    const Advertisements& advertisements, ZTIAMStatsGetterHelper& statsGetter) {
  return mostRecentPopupImpression(advertisements, [&](std::size_t i) {
    return statsGetter.getAdvertisementStatsByAdvertisementId(advertisements[i]->advertisementId());
  });
}

std::optional<Date> ZTIAMAdvertisementValidityHelper::mostRecentPopupAdvertisementImpressionDateForAdvertisements(
    AdvertisementStatsView& view) {
  return mostRecentPopupImpression(view.advertisements(),
                                   [&](std::size_t i) -> decltype(auto) { return view.advertisementStats(i); });
}

std::optional<Date> ZTIAMAdvertisementValidityHelper::PopupImpressionMemo::get(const Advertisements& advertisements,
                                                                               ZTIAMStatsGetterHelper& statsGetter) {
  if (!known_) {
    date_ = mostRecentPopupAdvertisementImpressionDateForAdvertisements(advertisements, statsGetter);
    known_ = true;
  }
  return date_;
}

std::optional<Date> ZTIAMAdvertisementValidityHelper::PopupImpressionMemo::get(AdvertisementStatsView& view) {
  if (!known_) {
    date_ = mostRecentPopupAdvertisementImpressionDateForAdvertisements(view);
    known_ = true;
  }
  return date_;
}

}  // namespace iam
