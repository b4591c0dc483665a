#pragma once

#include <memory>

#include "iam/model/Advertisement.h"
#include "iam/model/AdvertisementTarget.h"
#include "iam/model/AdvertisementTrigger.h"
#include "iam/platform/View.h"

namespace iam {

// One display request: which advertisement to show, what caused it (a trigger, a target or
// neither), the view it belongs to, and how to show it. Made on the main thread for each display
// decision and handed to the presenter or the host; holds its references strongly. Not archived.
class AdvertisementConfigurationData {
 public:
  AdvertisementConfigurationData(std::shared_ptr<AdvertisementType> advertisement,
                                 std::shared_ptr<AdvertisementTriggerType> trigger,
                                 std::shared_ptr<AdvertisementTargetType> target, std::shared_ptr<View> view)
      : advertisement_(std::move(advertisement)),
        trigger_(std::move(trigger)),
        target_(std::move(target)),
        view_(std::move(view)) {}
  AdvertisementConfigurationData() = delete;

  const std::shared_ptr<AdvertisementType>& advertisement() const { return advertisement_; }
  const std::shared_ptr<AdvertisementTriggerType>& trigger() const { return trigger_; }
  const std::shared_ptr<AdvertisementTargetType>& target() const { return target_; }
  const std::shared_ptr<View>& view() const { return view_; }

  // Seconds to wait before presenting.
  double delay() const { return delay_; }
  void setDelay(double value) { delay_ = value; }
  bool animated() const { return animated_; }
  void setAnimated(bool value) { animated_ = value; }
  // Show even where the usual checks would refuse.
  bool force() const { return force_; }
  void setForce(bool value) { force_ = value; }

 private:
  // Constant after construction.
  const std::shared_ptr<AdvertisementType> advertisement_;
  const std::shared_ptr<AdvertisementTriggerType> trigger_;
  const std::shared_ptr<AdvertisementTargetType> target_;
  const std::shared_ptr<View> view_;

  double delay_ = 0.0;
  bool animated_ = true;
  bool force_ = false;
};

// The name host code knows it by.
using ZTAdvertisementConfigurationData = AdvertisementConfigurationData;

}  // namespace iam
