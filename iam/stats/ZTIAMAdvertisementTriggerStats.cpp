#include "iam/stats/ZTIAMAdvertisementTriggerStats.h"

#include <utility>

#include "iam/platform/Clock.h"
#include "iam/stats/internal/LegacyBox.h"
#include "iam/platform/internal/SaturatingCount.h"

namespace iam {

const LegacyClass& ZTIAMAdvertisementTriggerStats::legacyClass() {
  using T = ZTIAMAdvertisementTriggerStats;
  static constexpr LegacyIvar kIvars[] = {
      legacyIvar<&T::triggerId_>("_triggerId", "@\"NSString\""),
      legacyIvar<&T::count_>("_count", "q"),
      legacyIvar<&T::mostRecentOccurrence_>("_mostRecentOccurrence", "@\"NSDate\""),
  };
  static const LegacyClass kClass{kArchiveClassName, &LegacyReflectable::legacyClass(), kIvars};
  return kClass;
}

std::optional<std::string> ZTIAMAdvertisementTriggerStats::triggerId() const {
  std::lock_guard lock(fieldsMutex());
  return triggerId_;
}

std::int64_t ZTIAMAdvertisementTriggerStats::count() const { return countMirror_.load(std::memory_order_acquire); }

std::optional<Date> ZTIAMAdvertisementTriggerStats::mostRecentOccurrence() const {
  std::lock_guard lock(fieldsMutex());
  return mostRecentOccurrence_;
}

void ZTIAMAdvertisementTriggerStats::incrementCount() {
  std::lock_guard lock(fieldsMutex());
  countOneMore(count_);
  mostRecentOccurrence_ = Clock::currentDate();
  fieldsDidChange();
}

void ZTIAMAdvertisementTriggerStats::setOwnerChanges(std::shared_ptr<std::atomic<std::uint64_t>> changes) {
  std::lock_guard lock(fieldsMutex());
  ownerChanges_ = std::move(changes);
}

void ZTIAMAdvertisementTriggerStats::fieldsDidChange() {
  countMirror_.store(count_, std::memory_order_release);
  if (ownerChanges_) ownerChanges_->fetch_add(1, std::memory_order_release);
}

void ZTIAMAdvertisementTriggerStats::encodeWithCoder(KeyedArchiver& coder) const { automatedEncodeWithEncoder(coder); }

std::shared_ptr<ZTIAMAdvertisementTriggerStats> ZTIAMAdvertisementTriggerStats::initWithCoder(
    const KeyedUnarchiver& coder) {
  auto record = std::make_shared<ZTIAMAdvertisementTriggerStats>();
  record->automatedDecodeWithDecoder(coder);
  return record;
}

}  // namespace iam
