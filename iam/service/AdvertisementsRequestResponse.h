#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "iam/model/Advertisement.h"
#include "iam/net/OspreyServiceContentInfo.h"
#include "iam/platform/KeyedArchiver.h"
#include "iam/platform/KeyedUnarchiver.h"
#include "iam/service/AppConfig.h"

namespace iam {

// The marketing service's advertisements answer: the advertisements in the answer's order, the
// app configuration, and what the service layer knew of the answer (content info, entity tag).
// Held by the manager and saved in the background while the main thread may renew its content
// info, so every field is guarded by a mutex; getters return copies of the references.
class AdvertisementsRequestResponse final : public Archivable {
 public:
  static constexpr std::string_view kArchiveClassName = "AdvertisementsRequestResponse";
  static constexpr std::int64_t kCodingVersion = 1;

  AdvertisementsRequestResponse(std::vector<std::shared_ptr<AdvertisementType>> advertisements,
                                std::shared_ptr<OspreyServiceContentInfo> contentInfo,
                                std::shared_ptr<ZTIAMAppConfigType> appConfig);
  AdvertisementsRequestResponse() = delete;
  AdvertisementsRequestResponse(const AdvertisementsRequestResponse&) = delete;
  AdvertisementsRequestResponse& operator=(const AdvertisementsRequestResponse&) = delete;

  std::vector<std::shared_ptr<AdvertisementType>> advertisements() const;
  void setAdvertisements(std::vector<std::shared_ptr<AdvertisementType>> value);
  std::shared_ptr<ZTIAMAppConfigType> appConfig() const;
  void setAppConfig(std::shared_ptr<ZTIAMAppConfigType> value);
  std::shared_ptr<OspreyServiceContentInfo> contentInfo() const;
  void setContentInfo(std::shared_ptr<OspreyServiceContentInfo> value);
  std::optional<std::string> etag() const;
  void setEtag(std::optional<std::string> value);

  // Always one day. Kept for hosts that show it; expiry does not read it.
  double maximumAge() const { return 86400; }
  // Expired when the host marked the content stale or when it is strictly older than one day by
  // Clock::currentDate(). The limit is fixed; the service cannot change it.
  bool isExpired() const;

  std::string_view archiveClassName() const override { return kArchiveClassName; }
  void encodeWithCoder(KeyedArchiver& coder) const override;
  // None on another "codingVersion", or unless "advertisements", "contentInfo" and "appConfig" are
  // all readable.
  static std::shared_ptr<AdvertisementsRequestResponse> initWithCoder(const KeyedUnarchiver& coder);

 private:
  mutable std::mutex mutex_;
  // Guarded by mutex_.
  std::vector<std::shared_ptr<AdvertisementType>> advertisements_;
  std::shared_ptr<OspreyServiceContentInfo> contentInfo_;
  std::shared_ptr<ZTIAMAppConfigType> appConfig_;
  std::optional<std::string> etag_;
};

// The expiry rule shared by both answers of the service.
bool ZTIAMIsResponseContentExpired(const OspreyServiceContentInfo* contentInfo);

}  // namespace iam
