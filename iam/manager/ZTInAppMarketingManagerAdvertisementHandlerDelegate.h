#pragma once

#include <functional>

#include "iam/model/AdvertisementConfigurationData.h"

namespace iam {

class ZTInAppMarketingManager;

// The host's say in who shows a display request: the manager itself, or the host (interstitials
// of an outside ad network can only be shown by the host). Held weakly by the manager; called on
// the main thread.
class ZTInAppMarketingManagerAdvertisementHandlerDelegate {
 public:
  using WillShowCompletion = std::function<void(bool willShow)>;

  virtual ~ZTInAppMarketingManagerAdvertisementHandlerDelegate() = default;

  // True: the manager shows the request itself. False: the host takes it over.
  virtual bool shouldHandleAdvertisementConfiguration(const AdvertisementConfigurationData& configuration,
                                                      ZTInAppMarketingManager& manager) = 0;
  // The host shows the request. When a completion is given, the host calls it once it knows
  // whether it shows the advertisement.
  virtual void handleAdvertisementConfiguration(const AdvertisementConfigurationData& configuration,
                                                ZTInAppMarketingManager& manager,
                                                WillShowCompletion willShowCompletion) = 0;
};

}  // namespace iam
