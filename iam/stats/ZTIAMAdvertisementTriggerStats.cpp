#include "iam/stats/ZTIAMAdvertisementTriggerStats.h"

#include "iam/platform/Clock.h"

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

std::int64_t ZTIAMAdvertisementTriggerStats::count() const {
  std::lock_guard lock(fieldsMutex());
  return count_;
}

std::optional<Date> ZTIAMAdvertisementTriggerStats::mostRecentOccurrence() const {
  std::lock_guard lock(fieldsMutex());
  return mostRecentOccurrence_;
}

void ZTIAMAdvertisementTriggerStats::incrementCount() {
  std::lock_guard lock(fieldsMutex());
  ++count_;
  mostRecentOccurrence_ = Clock::currentDate();
}

void ZTIAMAdvertisementTriggerStats::encodeWithCoder(KeyedArchiver& coder) const { automatedEncodeWithEncoder(coder); }

std::shared_ptr<ZTIAMAdvertisementTriggerStats> ZTIAMAdvertisementTriggerStats::initWithCoder(
    const KeyedUnarchiver& coder) {
  auto record = std::make_shared<ZTIAMAdvertisementTriggerStats>();
  record->automatedDecodeWithDecoder(coder);
  return record;
}

}  // namespace iam
