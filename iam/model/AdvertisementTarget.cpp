#include "iam/model/AdvertisementTarget.h"

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

void AdvertisementTarget::encodeWithCoder(KeyedArchiver& coder) const {
  coder.encodeInteger(kCodingVersion, "codingVersion");
  coder.encodeString(std::string_view(targetId_), "targetId");
  coder.encodeString(std::string_view(spaceKey_), "spaceKey");
  encodeOptional(coder, sectionIndex_, "sectionIndex");
  encodeOptional(coder, sectionRepeatInterval_, "sectionRepeatInterval");
  encodeOptional(coder, rowIndex_, "rowIndex");
  encodeOptional(coder, rowRepeatInterval_, "rowRepeatInterval");
  coder.encodeString(customViewClass_, "customViewClass");
}

std::shared_ptr<AdvertisementTarget> AdvertisementTarget::initWithCoder(const KeyedUnarchiver& coder) {
  if (coder.decodeIntegerForKey("codingVersion") != kCodingVersion) return nullptr;
  auto targetId = coder.decodeStringForKey("targetId");
  auto spaceKey = coder.decodeStringForKey("spaceKey");
  if (!targetId || !spaceKey) return nullptr;
  auto target = std::make_shared<AdvertisementTarget>(std::move(*targetId), std::move(*spaceKey));
  target->sectionIndex_ = coder.decodeIntegerNumberForKey("sectionIndex");
  target->sectionRepeatInterval_ = coder.decodeIntegerNumberForKey("sectionRepeatInterval");
  target->rowIndex_ = coder.decodeIntegerNumberForKey("rowIndex");
  target->rowRepeatInterval_ = coder.decodeIntegerNumberForKey("rowRepeatInterval");
  target->customViewClass_ = coder.decodeStringForKey("customViewClass");
  return target;
}

}  // namespace iam
