#pragma once

#include <cstdint>

#include <nlohmann/json_fwd.hpp>

namespace iam {

class ZTIAMStatsHelper;

// The statistics as the C interface, `iam simulate` and `iam stats --json` hand them out:
//   {"advertisements": {id: {"impressions", "clicks", "dismisses", "postpones",
//                            "triggers": {triggerId: count}}},
//    "events": {key: count}, "launches": n}
// Every record the store holds is listed, each advertisement with its whole trigger map.
nlohmann::json statsToJson(const ZTIAMStatsHelper& stats, std::int64_t launches);

}  // namespace iam
