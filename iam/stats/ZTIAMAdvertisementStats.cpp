#include "iam/stats/ZTIAMAdvertisementStats.h"

#include <utility>

#include "iam/platform/Clock.h"
#include "iam/stats/internal/LegacyBox.h"
#include "iam/platform/internal/SaturatingCount.h"

namespace iam {

const LegacyClass& ZTIAMAdvertisementStats::legacyClass() {
  using T = ZTIAMAdvertisementStats;
  static constexpr LegacyIvar kIvars[] = {
      legacyIvar<&T::triggerStats_>("_triggerStats", "@\"NSMutableDictionary\""),
      legacyIvar<&T::createdDate_>("_createdDate", "@\"NSDate\""),
      legacyIvar<&T::advertisementId_>("_advertisementId", "@\"NSString\""),
      legacyIvar<&T::numberOfImpressions_>("_numberOfImpressions", "q"),
      legacyIvar<&T::numberOfClicks_>("_numberOfClicks", "q"),
      legacyIvar<&T::numberOfDismisses_>("_numberOfDismisses", "q"),
      legacyIvar<&T::numberOfPostpones_>("_numberOfPostpones", "q"),
      legacyIvar<&T::mostRecentImpressionDate_>("_mostRecentImpressionDate", "@\"NSDate\""),
      legacyIvar<&T::mostRecentClickDate_>("_mostRecentClickDate", "@\"NSDate\""),
      legacyIvar<&T::mostRecentDismissDate_>("_mostRecentDismissDate", "@\"NSDate\""),
      legacyIvar<&T::mostRecentPostponeDate_>("_mostRecentPostponeDate", "@\"NSDate\""),
  };
  static const LegacyClass kClass{kArchiveClassName, &LegacyReflectable::legacyClass(), kIvars};
  return kClass;
}

ZTIAMAdvertisementStats::ZTIAMAdvertisementStats() : createdDate_(Clock::currentDate()) {}

std::map<std::string, std::shared_ptr<ZTIAMAdvertisementTriggerStatsInterface>> ZTIAMAdvertisementStats::triggerStats()
    const {
  std::lock_guard lock(fieldsMutex());
  return {triggerStats_.begin(), triggerStats_.end()};
}

std::optional<Date> ZTIAMAdvertisementStats::createdDate() const {
  std::lock_guard lock(fieldsMutex());
  return createdDate_;
}

std::string ZTIAMAdvertisementStats::advertisementId() const {
  std::lock_guard lock(fieldsMutex());
  return advertisementId_;
}

void ZTIAMAdvertisementStats::setAdvertisementId(std::string advertisementId) {
  std::lock_guard lock(fieldsMutex());
  advertisementId_ = std::move(advertisementId);
  changed();
}

std::int64_t ZTIAMAdvertisementStats::numberOfImpressions() const {
  return impressionsMirror_.load(std::memory_order_acquire);
}

void ZTIAMAdvertisementStats::setNumberOfImpressions(std::int64_t value) {
  std::lock_guard lock(fieldsMutex());
  numberOfImpressions_ = value;
  publish();
  changed();
}

std::int64_t ZTIAMAdvertisementStats::numberOfClicks() const {
  std::lock_guard lock(fieldsMutex());
  return numberOfClicks_;
}

std::int64_t ZTIAMAdvertisementStats::numberOfDismisses() const {
  std::lock_guard lock(fieldsMutex());
  return numberOfDismisses_;
}

std::int64_t ZTIAMAdvertisementStats::numberOfPostpones() const {
  return postponesMirror_.load(std::memory_order_acquire);
}

std::optional<Date> ZTIAMAdvertisementStats::mostRecentImpressionDate() const {
  if (!hasImpressionDate_.load(std::memory_order_acquire)) return std::nullopt;
  return Date(Date::duration(impressionDateTicks_.load(std::memory_order_acquire)));
}

void ZTIAMAdvertisementStats::setMostRecentImpressionDate(std::optional<Date> value) {
  std::lock_guard lock(fieldsMutex());
  mostRecentImpressionDate_ = value;
  publish();
  changed();
}

void ZTIAMAdvertisementStats::publish() {
  impressionsMirror_.store(numberOfImpressions_, std::memory_order_release);
  postponesMirror_.store(numberOfPostpones_, std::memory_order_release);
  if (!mostRecentImpressionDate_) {
    hasImpressionDate_.store(false, std::memory_order_release);
    return;
  }
  impressionDateTicks_.store(mostRecentImpressionDate_->time_since_epoch().count(), std::memory_order_release);
  hasImpressionDate_.store(true, std::memory_order_release);
}

std::optional<Date> ZTIAMAdvertisementStats::mostRecentClickDate() const {
  std::lock_guard lock(fieldsMutex());
  return mostRecentClickDate_;
}

std::optional<Date> ZTIAMAdvertisementStats::mostRecentDismissDate() const {
  std::lock_guard lock(fieldsMutex());
  return mostRecentDismissDate_;
}

std::optional<Date> ZTIAMAdvertisementStats::mostRecentPostponeDate() const {
  std::lock_guard lock(fieldsMutex());
  return mostRecentPostponeDate_;
}

void ZTIAMAdvertisementStats::handleImpression() {
  std::lock_guard lock(fieldsMutex());
  countOneMore(numberOfImpressions_);
  mostRecentImpressionDate_ = Clock::currentDate();
  publish();
  changed();
}

void ZTIAMAdvertisementStats::handleClick() {
  std::lock_guard lock(fieldsMutex());
  countOneMore(numberOfClicks_);
  mostRecentClickDate_ = Clock::currentDate();
  changed();
}

void ZTIAMAdvertisementStats::handleDismiss() {
  std::lock_guard lock(fieldsMutex());
  countOneMore(numberOfDismisses_);
  mostRecentDismissDate_ = Clock::currentDate();
  changed();
}

void ZTIAMAdvertisementStats::handlePostpone() {
  std::lock_guard lock(fieldsMutex());
  countOneMore(numberOfPostpones_);
  mostRecentPostponeDate_ = Clock::currentDate();
  publish();
  changed();
}

void ZTIAMAdvertisementStats::handleTriggerFired(const AdvertisementTriggerType& trigger) {
  getTriggerStatsWithTriggerId(trigger.triggerId())->incrementCount();
}

std::shared_ptr<ZTIAMAdvertisementTriggerStats> ZTIAMAdvertisementStats::getTriggerStatsWithTriggerId(
    const std::string& triggerId) {
  std::lock_guard lock(fieldsMutex());
  auto& record = triggerStats_[triggerId];
  if (!record) {
    record = std::make_shared<ZTIAMAdvertisementTriggerStats>();
    record->setOwnerChanges(changes_);
    changed();
  }
  return record;
}

void ZTIAMAdvertisementStats::fieldsDidChange() {
  for (const auto& [id, record] : triggerStats_) {
    if (record) record->setOwnerChanges(changes_);
  }
  publish();
  changed();
}

void ZTIAMAdvertisementStats::encodeWithCoder(KeyedArchiver& coder) const { automatedEncodeWithEncoder(coder); }

std::shared_ptr<ZTIAMAdvertisementStats> ZTIAMAdvertisementStats::initWithCoder(const KeyedUnarchiver& coder) {
  std::shared_ptr<ZTIAMAdvertisementStats> record(new ZTIAMAdvertisementStats(Undated{}));
  record->automatedDecodeWithDecoder(coder);
  // A map absent from the archive decodes as an empty one already.
  return record;
}

}  // namespace iam
