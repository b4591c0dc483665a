#include "iam/service/ZTIAMQualityNetworkRankedApp.h"

namespace iam {

void ZTIAMQualityNetworkRankedApp::addResource(std::shared_ptr<ZTIAMResourceType> resource) {
  if (!resource) return;
  auto key = resource->key();
  resources_.insert_or_assign(std::move(key), std::move(resource));
}

std::optional<std::string> ZTIAMQualityNetworkRankedApp::getResourceValue(std::string_view key) const {
  auto it = resources_.find(key);
  if (it == resources_.end() || !it->second) return std::nullopt;
  return it->second->value();
}

std::string ZTIAMQualityNetworkRankedApp::getResourceValue(std::string_view key, std::string defaultValue) const {
  auto value = getResourceValue(key);
  return value ? std::move(*value) : std::move(defaultValue);
}

void ZTIAMQualityNetworkRankedApp::encodeWithCoder(KeyedArchiver& coder) const {
  coder.encodeString(std::string_view(rankedAppId_), "_rankedAppId");
  coder.encodeObject(advertisedApp_.get(), "_advertisedApp");
  coder.encodeInteger(priority_, "_priority");
  coder.encodeBool(showFreeBadge_, "_showFreeBadge");
  coder.encodeObjectMap(resources_, "_resources");
}

std::shared_ptr<ZTIAMQualityNetworkRankedApp> ZTIAMQualityNetworkRankedApp::initWithCoder(
    const KeyedUnarchiver& coder) {
  auto rankedAppId = coder.decodeStringForKey("_rankedAppId");
  if (!rankedAppId) return nullptr;
  auto app = std::make_shared<ZTIAMQualityNetworkRankedApp>(std::move(*rankedAppId));
  app->advertisedApp_ = coder.decodeObjectOfClassForKey<AdvertisedApp>("_advertisedApp");
  // 1 and 2 are kept; anything else, a missing value included, is the lowest class.
  const auto priority = coder.decodeDoubleNumberForKey("_priority");
  if (priority == 1.0) {
    app->priority_ = ZTIAMQualityNetworkPriorityHigh;
  } else if (priority == 2.0) {
    app->priority_ = ZTIAMQualityNetworkPriorityMedium;
  } else {
    app->priority_ = ZTIAMQualityNetworkPriorityLow;
  }
  // Any number is taken by its truth value, not only a boolean.
  const auto badge = coder.valueForKey("_showFreeBadge");
  if (auto b = badge.boolValue()) {
    app->showFreeBadge_ = *b;
  } else if (auto d = badge.doubleValue()) {
    app->showFreeBadge_ = *d != 0;
  }
  if (auto resources = coder.decodeDictionaryOfObjectsOfClassForKey<ZTIAMResource, std::less<>>("_resources")) {
    app->resources_ = std::move(*resources);
  }
  return app;
}

}  // namespace iam
