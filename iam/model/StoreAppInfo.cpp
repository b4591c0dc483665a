#include "iam/model/StoreAppInfo.h"

namespace iam {

// "_subtitle" is written before "_name" but read after it; the order of the keys is part of the
// format and kept as it is.
void StoreAppInfo::encodeWithCoder(KeyedArchiver& coder) const {
  coder.encodeString(std::string_view(storeId_), "_storeId");
  coder.encodeString(bundleIdentifier_, "_bundleIdentifier");
  coder.encodeString(subtitle_, "_subtitle");
  coder.encodeString(name_, "_name");
  coder.encodeString(iconTitle_, "_iconTitle");
  coder.encodeString(icon60x60Url_, "_icon60x60Url");
  coder.encodeString(icon100x100Url_, "_icon100x100Url");
  coder.encodeString(icon512x512Url_, "_icon512x512Url");
}

std::shared_ptr<StoreAppInfo> StoreAppInfo::initWithCoder(const KeyedUnarchiver& coder) {
  auto storeId = coder.decodeStringForKey("_storeId");
  if (!storeId) return nullptr;
  auto info = std::make_shared<StoreAppInfo>(std::move(*storeId));
  info->bundleIdentifier_ = coder.decodeStringForKey("_bundleIdentifier");
  info->name_ = coder.decodeStringForKey("_name");
  info->subtitle_ = coder.decodeStringForKey("_subtitle");
  info->iconTitle_ = coder.decodeStringForKey("_iconTitle");
  info->icon60x60Url_ = coder.decodeStringForKey("_icon60x60Url");
  info->icon100x100Url_ = coder.decodeStringForKey("_icon100x100Url");
  info->icon512x512Url_ = coder.decodeStringForKey("_icon512x512Url");
  return info;
}

}  // namespace iam
