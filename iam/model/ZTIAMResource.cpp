#include "iam/model/ZTIAMResource.h"

namespace iam {

void ZTIAMResource::encodeWithCoder(KeyedArchiver& coder) const {
  coder.encodeString(std::string_view(key_), "_key");
  coder.encodeString(value_, "_value");
}

std::shared_ptr<ZTIAMResource> ZTIAMResource::initWithCoder(const KeyedUnarchiver& coder) {
  auto key = coder.decodeStringForKey("_key");
  if (!key) return nullptr;
  return std::make_shared<ZTIAMResource>(std::move(*key), coder.decodeStringForKey("_value"));
}

}  // namespace iam
