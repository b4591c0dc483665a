#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "iam/model/Advertisement.h"

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

  // The records of a list of advertisements in list order, none where a look-up would have to
  // create one: nothing is created. Lets a walk over the list fetch every record at once; a getter
  // without a faster way finds none, and the caller looks them up one by one.
  virtual std::vector<std::shared_ptr<ZTIAMAdvertisementStats>> findAdvertisementStats(
      const std::vector<std::shared_ptr<AdvertisementType>>& advertisements) {
    return std::vector<std::shared_ptr<ZTIAMAdvertisementStats>>(advertisements.size());
  }
  // Changes whenever a record obtained earlier may no longer be the one a look-up gives (the
  // records were reloaded or reset), so that a holder of records knows to look again.
  virtual std::uint64_t recordsGeneration() const { return 0; }
};

}  // namespace iam
