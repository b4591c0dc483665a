#pragma once

#include <cstdint>

#include <nlohmann/json_fwd.hpp>

namespace iam {
class ZTIAMStatsHelper;
}

namespace iam::tool {

// The statistics as `iam simulate` and `iam stats --json` print them:
//   {"advertisements": {id: {"impressions", "clicks", "dismisses", "postpones",
//                            "triggers": {triggerId: count}}},
//    "events": {key: count}, "launches": n}
// Every record the store holds is listed, each advertisement with its whole trigger map.
nlohmann::json statsToJson(const ZTIAMStatsHelper& stats, std::int64_t launches);

}  // namespace iam::tool
