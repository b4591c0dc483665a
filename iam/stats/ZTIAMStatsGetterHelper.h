#pragma once

#include <memory>
#include <string>

#include "iam/stats/ZTIAMAdvertisementStats.h"
#include "iam/stats/ZTIAMAppEventStats.h"

namespace iam {

// What the trigger rules need of the statistics: records by advertisement id and by app event key,
// created empty when there is none. `ZTIAMStatsHelper` is the implementation; tests supply fakes.
class ZTIAMStatsGetterHelper {
 public:
  virtual ~ZTIAMStatsGetterHelper() = default;

  // Never none.
  virtual std::shared_ptr<ZTIAMAdvertisementStats> getAdvertisementStatsByAdvertisementId(
      const std::string& advertisementId) = 0;
  // Never none.
  virtual std::shared_ptr<ZTIAMAppEventStats> getAppEventStatsByEventKey(const std::string& eventKey) = 0;
};

}  // namespace iam
