#include "iam/model/AdvertisedApp.h"

namespace iam {

namespace {
constexpr std::string_view kReviewPagePrefix =
    "itms-apps://itunes.apple.com/WebObjects/MZStore.woa/wa/viewContentsUserReviews?type=Purple+Software&id=";
}  // namespace

std::optional<std::string> AdvertisedApp::reviewUrl() const {
  if (storedReviewUrl_ && !storedReviewUrl_->empty()) return storedReviewUrl_;
  if (storeInfo_) return std::string(kReviewPagePrefix) + storeInfo_->storeId();
  return std::nullopt;
}

std::optional<std::string> AdvertisedApp::getResourceValue(std::string_view key) const {
  auto it = resources_.find(key);
  if (it == resources_.end() || !it->second) return std::nullopt;
  return it->second->value();
}

void AdvertisedApp::encodeWithCoder(KeyedArchiver& coder) const {
  coder.encodeInteger(kCodingVersion, "codingVersion");
  coder.encodeString(std::string_view(appId_), "appId");
  coder.encodeString(packageName_, "packageName");
  coder.encodeString(publisher_, "publisher");
  coder.encodeString(storeUrl_, "storeUrl");
  // The link as received: a derived one would outlive a change of the store info.
  coder.encodeString(storedReviewUrl_, "reviewUrl");
  coder.encodeString(rating_, "rating");
  coder.encodeBool(free_, "free");
  coder.encodeObjectMap(resources_, "resources");
  coder.encodeObject(storeInfo_.get(), "storeInfo");
}

std::shared_ptr<AdvertisedApp> AdvertisedApp::initWithCoder(const KeyedUnarchiver& coder) {
  if (coder.decodeIntegerForKey("codingVersion") != kCodingVersion) return nullptr;
  auto appId = coder.decodeStringForKey("appId");
  if (!appId) return nullptr;
  auto app = std::make_shared<AdvertisedApp>(std::move(*appId));
  app->packageName_ = coder.decodeStringForKey("packageName");
  app->publisher_ = coder.decodeStringForKey("publisher");
  app->storeUrl_ = coder.decodeStringForKey("storeUrl");
  app->storedReviewUrl_ = coder.decodeStringForKey("reviewUrl");
  app->rating_ = coder.decodeStringForKey("rating");
  app->free_ = coder.decodeBoolForKey("free");
  if (auto resources = coder.decodeDictionaryOfObjectsOfClassForKey<ZTIAMResource, std::less<>>("resources")) {
    app->resources_ = std::move(*resources);
  }
  app->storeInfo_ = coder.decodeObjectOfClassForKey<StoreAppInfo>("storeInfo");
  return app;
}

}  // namespace iam
