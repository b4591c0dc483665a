#include "iam/stats/ZTIAMAppEventStats.h"

#include <utility>

#include "iam/platform/Clock.h"
#include "iam/stats/internal/LegacyBox.h"
#include "iam/platform/internal/SaturatingCount.h"

namespace iam {

const LegacyClass& ZTIAMAppEventStats::legacyClass() {
  using T = ZTIAMAppEventStats;
  static constexpr LegacyIvar kIvars[] = {
      legacyIvar<&T::eventKey_>("_eventKey", "@\"NSString\""),
      legacyIvar<&T::count_>("_count", "q"),
      legacyIvar<&T::mostRecentOccurrence_>("_mostRecentOccurrence", "@\"NSDate\""),
  };
  static const LegacyClass kClass{kArchiveClassName, &LegacyReflectable::legacyClass(), kIvars};
  return kClass;
}

std::string ZTIAMAppEventStats::eventKey() const {
  std::lock_guard lock(fieldsMutex());
  return eventKey_;
}

void ZTIAMAppEventStats::setEventKey(std::string eventKey) {
  std::lock_guard lock(fieldsMutex());
  eventKey_ = std::move(eventKey);
  fieldsDidChange();
}

std::int64_t ZTIAMAppEventStats::count() const { return countMirror_.load(std::memory_order_acquire); }

std::optional<Date> ZTIAMAppEventStats::mostRecentOccurrence() const {
  std::lock_guard lock(fieldsMutex());
  return mostRecentOccurrence_;
}

void ZTIAMAppEventStats::incrementCount() {
  std::lock_guard lock(fieldsMutex());
  countOneMore(count_);
  mostRecentOccurrence_ = Clock::currentDate();
  fieldsDidChange();
}

void ZTIAMAppEventStats::encodeWithCoder(KeyedArchiver& coder) const { automatedEncodeWithEncoder(coder); }

std::shared_ptr<ZTIAMAppEventStats> ZTIAMAppEventStats::initWithCoder(const KeyedUnarchiver& coder) {
  auto record = std::make_shared<ZTIAMAppEventStats>();
  record->automatedDecodeWithDecoder(coder);
  return record;
}

}  // namespace iam
