#include "iam/stats/ZTIAMAdvertisementEvent.h"

#include <utility>

#include "iam/platform/Clock.h"
#include "iam/stats/internal/LegacyBox.h"

namespace iam {

const LegacyClass& ZTIAMAdvertisementEvent::legacyClass() {
  using T = ZTIAMAdvertisementEvent;
  static constexpr LegacyIvar kIvars[] = {
      legacyIvar<&T::advertisementEventType_>("_advertisementEventType", "q"),
      legacyIvar<&T::date_>("_date", "@\"NSDate\""),
      legacyIvar<&T::advertisement_>("_advertisement", "@\"<AdvertisementType>\""),
      legacyIvar<&T::target_>("_target", "@\"<AdvertisementTargetType>\""),
      legacyIvar<&T::trigger_>("_trigger", "@\"<AdvertisementTriggerType>\""),
  };
  static const LegacyClass kClass{kArchiveClassName, &LegacyReflectable::legacyClass(), kIvars};
  return kClass;
}

ZTIAMAdvertisementEventType ZTIAMAdvertisementEvent::advertisementEventType() const {
  std::lock_guard lock(fieldsMutex());
  return advertisementEventType_;
}

void ZTIAMAdvertisementEvent::setAdvertisementEventType(ZTIAMAdvertisementEventType value) {
  std::lock_guard lock(fieldsMutex());
  advertisementEventType_ = value;
}

Date ZTIAMAdvertisementEvent::date() const {
  std::lock_guard lock(fieldsMutex());
  return date_;
}

void ZTIAMAdvertisementEvent::setDate(Date value) {
  std::lock_guard lock(fieldsMutex());
  date_ = value;
}

std::shared_ptr<AdvertisementType> ZTIAMAdvertisementEvent::advertisement() const {
  std::lock_guard lock(fieldsMutex());
  return advertisement_;
}

void ZTIAMAdvertisementEvent::setAdvertisement(std::shared_ptr<AdvertisementType> value) {
  std::lock_guard lock(fieldsMutex());
  advertisement_ = std::move(value);
}

std::shared_ptr<AdvertisementTriggerType> ZTIAMAdvertisementEvent::trigger() const {
  std::lock_guard lock(fieldsMutex());
  return trigger_;
}

void ZTIAMAdvertisementEvent::setTrigger(std::shared_ptr<AdvertisementTriggerType> value) {
  std::lock_guard lock(fieldsMutex());
  trigger_ = std::move(value);
}

std::shared_ptr<AdvertisementTargetType> ZTIAMAdvertisementEvent::target() const {
  std::lock_guard lock(fieldsMutex());
  return target_;
}

void ZTIAMAdvertisementEvent::setTarget(std::shared_ptr<AdvertisementTargetType> value) {
  std::lock_guard lock(fieldsMutex());
  target_ = std::move(value);
}

std::optional<std::string> ZTIAMAdvertisementEvent::advertisementId() const {
  auto ad = advertisement();
  if (!ad) return std::nullopt;
  return ad->advertisementId();
}

void ZTIAMAdvertisementEvent::encodeWithCoder(KeyedArchiver& coder) const { automatedEncodeWithEncoder(coder); }

std::shared_ptr<ZTIAMAdvertisementEvent> ZTIAMAdvertisementEvent::initWithCoder(const KeyedUnarchiver& coder) {
  auto event = std::make_shared<ZTIAMAdvertisementEvent>();
  event->automatedDecodeWithDecoder(coder);
  return event;
}

std::shared_ptr<ZTIAMAdvertisementEvent> ZTIAMAdvertisementEventFactory::createEventWithType(
    ZTIAMAdvertisementEventType type, std::shared_ptr<AdvertisementType> advertisement,
    std::shared_ptr<AdvertisementTargetType> target) {
  auto event = std::make_shared<ZTIAMAdvertisementEvent>();
  event->setDate(Clock::currentDate());
  event->setAdvertisementEventType(type);
  event->setAdvertisement(std::move(advertisement));
  event->setTarget(std::move(target));
  return event;
}

std::shared_ptr<ZTIAMAdvertisementEvent> ZTIAMAdvertisementEventFactory::createEventWithType(
    ZTIAMAdvertisementEventType type, std::shared_ptr<AdvertisementType> advertisement,
    std::shared_ptr<AdvertisementTriggerType> trigger, std::shared_ptr<AdvertisementTargetType> target) {
  auto event = std::make_shared<ZTIAMAdvertisementEvent>();
  event->setDate(Clock::currentDate());
  event->setAdvertisementEventType(type);
  event->setAdvertisement(std::move(advertisement));
  event->setTrigger(std::move(trigger));
  event->setTarget(std::move(target));
  return event;
}

}  // namespace iam
