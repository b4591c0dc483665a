#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "iam/model/Advertisement.h"
#include "iam/service/ZTIAMAppConfigType.h"
#include "iam/service/ZTIAMQualityNetworkRankedApp.h"

namespace iam {

class ZTInAppMarketingManager;

using AdvertisementList = std::vector<std::shared_ptr<AdvertisementType>>;
using RankedAppList = std::vector<std::shared_ptr<ZTIAMQualityNetworkRankedAppType>>;

// An observer of the manager's data, told on the main thread after each answer of the service
// (also when the answer was "not modified"). Override only the members you need (bring the others
// in with `using ZTInAppMarketingManagerDelegate::inAppMarketingManager;`). The manager holds
// observers weakly: one that is gone is skipped.
class ZTInAppMarketingManagerDelegate {
 public:
  virtual ~ZTInAppMarketingManagerDelegate() = default;

  // The current advertisements; none when the manager holds no answer.
  virtual void inAppMarketingManager(ZTInAppMarketingManager& /*manager*/,
                                     const std::optional<AdvertisementList>& /*receivedAdvertisements*/) {}
  // The current ranked apps; none when the manager holds no answer.
  virtual void inAppMarketingManager(ZTInAppMarketingManager& /*manager*/,
                                     const std::optional<RankedAppList>& /*receivedNativeQualityNetworkRankedApps*/) {}
  // Either configuration may be none; both may be the same object.
  virtual void inAppMarketingManager(ZTInAppMarketingManager& /*manager*/,
                                     const std::shared_ptr<ZTIAMAppConfigType>& /*updatedConfiguration*/,
                                     const std::shared_ptr<ZTIAMAppConfigType>& /*oldConfiguration*/) {}
};

}  // namespace iam
