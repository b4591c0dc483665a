#include "iam/service/AdvertisementsRequestResponse.h"

#include "iam/platform/Clock.h"

namespace iam {

bool ZTIAMIsResponseContentExpired(const OspreyServiceContentInfo* contentInfo) {
  // One day, on purpose not the answer's maximumAge: the service must not be able to extend it.
  constexpr TimeInterval kOneDay = 86400;
  if (!contentInfo) return true;
  if (contentInfo->isLocalExpired()) return true;
  return timeIntervalBetween(Clock::currentDate(), contentInfo->localCreatedAt()) > kOneDay;
}

AdvertisementsRequestResponse::AdvertisementsRequestResponse(
    std::vector<std::shared_ptr<AdvertisementType>> advertisements, std::shared_ptr<OspreyServiceContentInfo> contentInfo,
    std::shared_ptr<ZTIAMAppConfigType> appConfig)
    : advertisements_(std::move(advertisements)), contentInfo_(std::move(contentInfo)), appConfig_(std::move(appConfig)) {}

std::vector<std::shared_ptr<AdvertisementType>> AdvertisementsRequestResponse::advertisements() const {
  std::lock_guard lock(mutex_);
  return advertisements_;
}

void AdvertisementsRequestResponse::setAdvertisements(std::vector<std::shared_ptr<AdvertisementType>> value) {
  std::lock_guard lock(mutex_);
  advertisements_ = std::move(value);
}

std::shared_ptr<ZTIAMAppConfigType> AdvertisementsRequestResponse::appConfig() const {
  std::lock_guard lock(mutex_);
  return appConfig_;
}

void AdvertisementsRequestResponse::setAppConfig(std::shared_ptr<ZTIAMAppConfigType> value) {
  std::lock_guard lock(mutex_);
  appConfig_ = std::move(value);
}

std::shared_ptr<OspreyServiceContentInfo> AdvertisementsRequestResponse::contentInfo() const {
  std::lock_guard lock(mutex_);
  return contentInfo_;
}

void AdvertisementsRequestResponse::setContentInfo(std::shared_ptr<OspreyServiceContentInfo> value) {
  std::lock_guard lock(mutex_);
  contentInfo_ = std::move(value);
}

std::optional<std::string> AdvertisementsRequestResponse::etag() const {
  std::lock_guard lock(mutex_);
  return etag_;
}

void AdvertisementsRequestResponse::setEtag(std::optional<std::string> value) {
  std::lock_guard lock(mutex_);
  etag_ = std::move(value);
}

bool AdvertisementsRequestResponse::isExpired() const { return ZTIAMIsResponseContentExpired(contentInfo().get()); }

void AdvertisementsRequestResponse::encodeWithCoder(KeyedArchiver& coder) const {
  std::shared_ptr<OspreyServiceContentInfo> contentInfo;
  std::optional<std::string> etag;
  std::vector<std::shared_ptr<AdvertisementType>> advertisements;
  std::shared_ptr<ZTIAMAppConfigType> appConfig;
  {
    std::lock_guard lock(mutex_);
    contentInfo = contentInfo_;
    etag = etag_;
    advertisements = advertisements_;
    appConfig = appConfig_;
  }
  coder.encodeInteger(kCodingVersion, "codingVersion");
  coder.encodeObject(contentInfo.get(), "contentInfo");
  coder.encodeString(etag, "etag");
  coder.encodeObjectArray(advertisements, "advertisements");
  // A host's own config is kept as the library's, so that it can be read back.
  std::shared_ptr<const AppConfig> archivedConfig = std::dynamic_pointer_cast<const AppConfig>(appConfig);
  if (!archivedConfig && appConfig) {
    archivedConfig =
        std::make_shared<AppConfig>(appConfig->minimumPopupImpressionTimeInterval(), appConfig->attributes());
  }
  coder.encodeObject(archivedConfig.get(), "appConfig");
}

std::shared_ptr<AdvertisementsRequestResponse> AdvertisementsRequestResponse::initWithCoder(
    const KeyedUnarchiver& coder) {
  if (coder.decodeIntegerForKey("codingVersion") != kCodingVersion) return nullptr;
  auto advertisements = coder.decodeArrayOfObjectsOfClassForKey<Advertisement>("advertisements");
  if (!advertisements) return nullptr;
  auto contentInfo = coder.decodeObjectOfClassForKey<OspreyServiceContentInfo>("contentInfo");
  if (!contentInfo) return nullptr;
  auto appConfig = coder.decodeObjectOfClassForKey<AppConfig>("appConfig");
  if (!appConfig) return nullptr;
  auto response = std::make_shared<AdvertisementsRequestResponse>(std::move(*advertisements), std::move(contentInfo),
                                                                   std::move(appConfig));
  response->etag_ = coder.decodeStringForKey("etag");
  return response;
}

}  // namespace iam
