#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include "iam/model/Advertisement.h"
#include "iam/model/AdvertisementTrigger.h"
#include "iam/model/ZTIAMAdvertisementDisplayType.h"
#include "iam/platform/Date.h"
#include "iam/service/ZTIAMAppConfigType.h"
#include "iam/stats/AdvertisementStatsView.h"
#include "iam/stats/ZTIAMAdvertisementStats.h"
#include "iam/stats/ZTIAMStatsGetterHelper.h"

namespace iam {

// The rules that decide whether an advertisement, or one of its triggers, may be shown now, and
// that log why not. Stateless: everything comes in as arguments. Callable from any thread; the
// manager calls it on the thread that evaluates app events.
//
// Reading statistics through a getter creates the records that do not exist yet (advertisement,
// trigger and app event records). Nothing here saves them; the store's next save of that map does.
class ZTIAMAdvertisementValidityHelper {
 public:
  ZTIAMAdvertisementValidityHelper() = delete;

  using Advertisements = std::vector<std::shared_ptr<AdvertisementType>>;

  // The most recent popup impression over one list, found on first use and then kept, so that a
  // walk asking about many triggers over the same list scans it once. Impressions counted after
  // the first use are not seen; use one per walk.
  class PopupImpressionMemo {
   public:
    std::optional<Date> get(const Advertisements& advertisements, ZTIAMStatsGetterHelper& statsGetter);
    std::optional<Date> get(AdvertisementStatsView& view);

   private:
    bool known_ = false;
    std::optional<Date> date_;
  };

  // The advertisement's own verdict: schedule, impression cap, postponement, capabilities, and for a
  // review question the days since it was last asked. Logs the reason for a refusal.
  static bool isAdvertisementValid(const AdvertisementType& advertisement,
                                   const ZTIAMAdvertisementStats& advertisementStats);
  // Inside [startDate, endDate]; a missing side is open.
  static bool currentDateIsValidForAdvertisement(const AdvertisementType& advertisement);
  // A cap of N lets the advertisement be shown N + 1 times; campaigns are tuned to that, so it stays.
  static bool impressionCountIsValidForAdvertisement(const AdvertisementType& advertisement,
                                                     const ZTIAMAdvertisementStats& stats);
  static bool advertisementIsPostponed(const AdvertisementType& advertisement, const ZTIAMAdvertisementStats& stats);
  // Hooks to rule out dismissed or opened advertisements per display type; no display type does yet.
  static bool advertisementIsDismissed(const AdvertisementType& advertisement, const ZTIAMAdvertisementStats& stats);
  static bool advertisementIsOpened(const AdvertisementType& advertisement, const ZTIAMAdvertisementStats& stats);

  // Whether the trigger may fire now: popup spacing over all `advertisements`, fire cap, first
  // threshold, repeat threshold. A trigger of "appToForeground" counts launches, not foreground
  // events. No app configuration means no minimum spacing. Logs the reason for a refusal.
  static bool isAdvertisementTriggerValid(const AdvertisementTriggerType& trigger, ZTIAMStatsGetterHelper& statsGetter,
                                          const Advertisements& advertisements,
                                          const std::shared_ptr<const ZTIAMAppConfigType>& appConfig,
                                          PopupImpressionMemo* memo = nullptr);
  // The same over a walk's view of its list, with the trigger's advertisement at `index` there.
  static bool isAdvertisementTriggerValid(const AdvertisementTriggerType& trigger, AdvertisementStatsView& view,
                                          std::size_t index, const std::shared_ptr<const ZTIAMAppConfigType>& appConfig,
                                          PopupImpressionMemo& memo);
  // Every display type but the interstitial preload counts as a popup.
  static bool shouldCheckForImpressionTimeintervalForDisplayType(ZTIAMAdvertisementDisplayType displayType);
  static bool popupImpressionTimeIntervalHasPassed(const AdvertisementTriggerType& trigger,
                                                   ZTIAMStatsGetterHelper& statsGetter,
                                                   const Advertisements& advertisements,
                                                   TimeInterval minimumPopupImpressionTimeInterval,
                                                   PopupImpressionMemo* memo = nullptr);
  // The latest impression of any popup advertisement in the list; on equal dates the earlier one in
  // the list is taken.
  static std::optional<Date> mostRecentPopupAdvertisementImpressionDateForAdvertisements(
      const Advertisements& advertisements, ZTIAMStatsGetterHelper& statsGetter);
  static std::optional<Date> mostRecentPopupAdvertisementImpressionDateForAdvertisements(AdvertisementStatsView& view);
};

}  // namespace iam
