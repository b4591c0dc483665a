#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "iam/model/Advertisement.h"
#include "iam/model/AdvertisementTarget.h"
#include "iam/model/AdvertisementTrigger.h"
#include "iam/model/ZTIAMAdvertisementEventType.h"
#include "iam/platform/Date.h"
#include "iam/platform/KeyedArchiver.h"
#include "iam/platform/KeyedUnarchiver.h"
#include "iam/stats/LegacyReflection.h"

namespace iam {

// Something that happened to a shown advertisement (impression, click, dismissal, postponement),
// as the manager reports it to the statistics store and to its delegates. Made by
// `ZTIAMAdvertisementEventFactory`. Thread-safe.
class ZTIAMAdvertisementEvent final : public LegacyReflectable, public Archivable {
 public:
  static constexpr std::string_view kArchiveClassName = "ZTIAMAdvertisementEvent";

  ZTIAMAdvertisementEvent() = default;

  ZTIAMAdvertisementEventType advertisementEventType() const;
  void setAdvertisementEventType(ZTIAMAdvertisementEventType value);
  Date date() const;
  void setDate(Date value);
  std::shared_ptr<AdvertisementType> advertisement() const;
  void setAdvertisement(std::shared_ptr<AdvertisementType> value);
  std::shared_ptr<AdvertisementTriggerType> trigger() const;
  void setTrigger(std::shared_ptr<AdvertisementTriggerType> value);
  std::shared_ptr<AdvertisementTargetType> target() const;
  void setTarget(std::shared_ptr<AdvertisementTargetType> value);

  // The advertisement's id; none without an advertisement.
  std::optional<std::string> advertisementId() const;

  static const LegacyClass& legacyClass();
  const LegacyClass& legacyReflectedClass() const override { return legacyClass(); }
  std::string_view archiveClassName() const override { return kArchiveClassName; }
  void encodeWithCoder(KeyedArchiver& coder) const override;
  static std::shared_ptr<ZTIAMAdvertisementEvent> initWithCoder(const KeyedUnarchiver& coder);

 private:
  // Guarded by fieldsMutex().
  ZTIAMAdvertisementEventType advertisementEventType_ = ZTIAMAdvertisementEventTypeImpression;
  Date date_{};
  std::shared_ptr<AdvertisementType> advertisement_;
  std::shared_ptr<AdvertisementTargetType> target_;
  std::shared_ptr<AdvertisementTriggerType> trigger_;
};

// What hosts and delegates see of an event.
using ZTIAMAdvertisementEventInterface = const ZTIAMAdvertisementEvent;

// Makes events stamped with the current time.
class ZTIAMAdvertisementEventFactory {
 public:
  ZTIAMAdvertisementEventFactory() = delete;

  // No trigger.
  static std::shared_ptr<ZTIAMAdvertisementEvent> createEventWithType(ZTIAMAdvertisementEventType type,
                                                                      std::shared_ptr<AdvertisementType> advertisement,
                                                                      std::shared_ptr<AdvertisementTargetType> target);
  static std::shared_ptr<ZTIAMAdvertisementEvent> createEventWithType(ZTIAMAdvertisementEventType type,
                                                                      std::shared_ptr<AdvertisementType> advertisement,
                                                                      std::shared_ptr<AdvertisementTriggerType> trigger,
                                                                      std::shared_ptr<AdvertisementTargetType> target);
};

}  // namespace iam
