#include "iam/capi/StatsJson.h"

#include <nlohmann/json.hpp>

#include "iam/stats/ZTIAMStatsHelper.h"

namespace iam {

nlohmann::json statsToJson(const ZTIAMStatsHelper& stats, std::int64_t launches) {
  auto advertisements = nlohmann::json::object();
  for (const auto& [id, record] : stats.advertisementStats()) {
    if (!record) continue;
    auto triggers = nlohmann::json::object();
    for (const auto& [triggerId, trigger] : record->triggerStats())
      if (trigger) triggers[triggerId] = trigger->count();
    advertisements[id] = {{"impressions", record->numberOfImpressions()},
                          {"clicks", record->numberOfClicks()},
                          {"dismisses", record->numberOfDismisses()},
                          {"postpones", record->numberOfPostpones()},
                          {"triggers", std::move(triggers)}};
  }
  auto events = nlohmann::json::object();
  for (const auto& [key, record] : stats.globalAppEventStats())
    if (record) events[key] = record->count();
  return {{"advertisements", std::move(advertisements)}, {"events", std::move(events)}, {"launches", launches}};
}

}  // namespace iam
