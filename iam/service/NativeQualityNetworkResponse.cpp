#include "iam/service/NativeQualityNetworkResponse.h"

#include "iam/service/AdvertisementsRequestResponse.h"

namespace iam {

NativeQualityNetworkResponse::NativeQualityNetworkResponse(
    std::vector<std::shared_ptr<ZTIAMQualityNetworkRankedAppType>> rankedApps,
    std::shared_ptr<OspreyServiceContentInfo> contentInfo)
    : qualityNetworkRankedApps_(std::move(rankedApps)), contentInfo_(std::move(contentInfo)) {}

std::vector<std::shared_ptr<ZTIAMQualityNetworkRankedAppType>> NativeQualityNetworkResponse::qualityNetworkRankedApps()
    const {
  std::lock_guard lock(mutex_);
  return qualityNetworkRankedApps_;
}

void NativeQualityNetworkResponse::setQualityNetworkRankedApps(
    std::vector<std::shared_ptr<ZTIAMQualityNetworkRankedAppType>> value) {
  std::lock_guard lock(mutex_);
  qualityNetworkRankedApps_ = std::move(value);
}

std::shared_ptr<OspreyServiceContentInfo> NativeQualityNetworkResponse::contentInfo() const {
  std::lock_guard lock(mutex_);
  return contentInfo_;
}

void NativeQualityNetworkResponse::setContentInfo(std::shared_ptr<OspreyServiceContentInfo> value) {
  std::lock_guard lock(mutex_);
  contentInfo_ = std::move(value);
}

std::optional<std::string> NativeQualityNetworkResponse::etag() const {
  std::lock_guard lock(mutex_);
  return etag_;
}

void NativeQualityNetworkResponse::setEtag(std::optional<std::string> value) {
  std::lock_guard lock(mutex_);
  etag_ = std::move(value);
}

bool NativeQualityNetworkResponse::isExpired() const { return ZTIAMIsResponseContentExpired(contentInfo().get()); }

void NativeQualityNetworkResponse::encodeWithCoder(KeyedArchiver& coder) const {
  std::shared_ptr<OspreyServiceContentInfo> contentInfo;
  std::vector<std::shared_ptr<ZTIAMQualityNetworkRankedAppType>> rankedApps;
  std::optional<std::string> etag;
  {
    std::lock_guard lock(mutex_);
    contentInfo = contentInfo_;
    rankedApps = qualityNetworkRankedApps_;
    etag = etag_;
  }
  coder.encodeInteger(kCodingVersion, "codingVersion");
  coder.encodeObject(contentInfo.get(), "contentInfo");
  coder.encodeObjectArray(rankedApps, "qualityNetworkRankedApps");
  coder.encodeString(etag, "etag");
}

std::shared_ptr<NativeQualityNetworkResponse> NativeQualityNetworkResponse::initWithCoder(
    const KeyedUnarchiver& coder) {
  if (coder.decodeIntegerForKey("codingVersion") != kCodingVersion) return nullptr;
  auto contentInfo = coder.decodeObjectOfClassForKey<OspreyServiceContentInfo>("contentInfo");
  if (!contentInfo) return nullptr;
  auto rankedApps = coder.decodeArrayOfObjectsOfClassForKey<ZTIAMQualityNetworkRankedApp>("qualityNetworkRankedApps");
  if (!rankedApps) return nullptr;
  auto response = std::make_shared<NativeQualityNetworkResponse>(std::move(*rankedApps), std::move(contentInfo));
  response->etag_ = coder.decodeStringForKey("etag");
  return response;
}

}  // namespace iam
