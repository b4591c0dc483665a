#include "iam/model/AdvertisementTrigger.h"

namespace iam {

namespace {
void encodeOptional(KeyedArchiver& coder, const std::optional<std::int64_t>& value, std::string_view key) {
  if (value) {
    coder.encodeInteger(*value, key);
  } else {
    coder.encodeNull(key);
  }
}
}  // namespace

void AdvertisementTrigger::encodeWithCoder(KeyedArchiver& coder) const {
  coder.encodeInteger(kCodingVersion, "codingVersion");
  coder.encodeString(std::string_view(triggerId_), "triggerId");
  coder.encodeString(std::string_view(eventKey_), "eventKey");
  encodeOptional(coder, thresholdCount_, "thresholdCount");
  if (displayDelay_) {
    coder.encodeDouble(*displayDelay_, "displayDelay");
  } else {
    coder.encodeNull("displayDelay");
  }
  encodeOptional(coder, maxFireCount_, "maxFireCount");
  encodeOptional(coder, repeatIntervalCount_, "repeatIntervalCount");
}

std::shared_ptr<AdvertisementTrigger> AdvertisementTrigger::initWithCoder(const KeyedUnarchiver& coder) {
  if (coder.decodeIntegerForKey("codingVersion") != kCodingVersion) return nullptr;
  auto triggerId = coder.decodeStringForKey("triggerId");
  auto eventKey = coder.decodeStringForKey("eventKey");
  if (!triggerId || !eventKey) return nullptr;
  auto trigger = std::make_shared<AdvertisementTrigger>(std::move(*triggerId), std::move(*eventKey));
  trigger->thresholdCount_ = coder.decodeIntegerNumberForKey("thresholdCount");
  trigger->displayDelay_ = coder.decodeDoubleNumberForKey("displayDelay");
  trigger->maxFireCount_ = coder.decodeIntegerNumberForKey("maxFireCount");
  trigger->repeatIntervalCount_ = coder.decodeIntegerNumberForKey("repeatIntervalCount");
  return trigger;
}

}  // namespace iam
