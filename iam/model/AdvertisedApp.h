#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "iam/model/StoreAppInfo.h"
#include "iam/model/ZTIAMResource.h"
#include "iam/platform/KeyedArchiver.h"
#include "iam/platform/KeyedUnarchiver.h"

namespace iam {

// The application an advertisement (or a ranked app of the quality network) promotes. Filled by
// the parser, then only read; not thread-safe for writes. Owns its resources and store info.
class AdvertisedApp final : public Archivable {
 public:
  static constexpr std::string_view kArchiveClassName = "AdvertisedApp";
  static constexpr std::int64_t kCodingVersion = 1;

  explicit AdvertisedApp(std::string appId) : appId_(std::move(appId)) {}
  AdvertisedApp() = delete;

  const std::string& appId() const { return appId_; }
  void setAppId(std::string value) { appId_ = std::move(value); }
  // Tells whether the app is installed.
  const std::optional<std::string>& packageName() const { return packageName_; }
  void setPackageName(std::optional<std::string> value) { packageName_ = std::move(value); }
  const std::optional<std::string>& publisher() const { return publisher_; }
  void setPublisher(std::optional<std::string> value) { publisher_ = std::move(value); }
  const std::optional<std::string>& storeUrl() const { return storeUrl_; }
  void setStoreUrl(std::optional<std::string> value) { storeUrl_ = std::move(value); }
  const std::optional<std::string>& rating() const { return rating_; }
  void setRating(std::optional<std::string> value) { rating_ = std::move(value); }
  bool free() const { return free_; }
  void setFree(bool value) { free_ = value; }
  const ZTIAMResourceMap& resources() const { return resources_; }
  void setResources(ZTIAMResourceMap value) { resources_ = std::move(value); }
  const std::shared_ptr<StoreAppInfoType>& storeInfo() const { return storeInfo_; }
  void setStoreInfo(std::shared_ptr<StoreAppInfoType> value) { storeInfo_ = std::move(value); }

  // The stored review link when it is set and non-empty; otherwise the store's review page built
  // from the store info; none without either. The setter sets the stored link.
  std::optional<std::string> reviewUrl() const;
  void setReviewUrl(std::optional<std::string> value) { storedReviewUrl_ = std::move(value); }
  // The link as received, never derived; this is what is archived.
  const std::optional<std::string>& storedReviewUrl() const { return storedReviewUrl_; }

  // Resources "name", "AppIcons" and "iconTitle".
  std::optional<std::string> name() const { return getResourceValue("name"); }
  std::optional<std::string> iconUrl() const { return getResourceValue("AppIcons"); }
  std::optional<std::string> iconTitle() const { return getResourceValue("iconTitle"); }

  // The value under `key`, an empty one included; none when the key or the value is absent.
  std::optional<std::string> getResourceValue(std::string_view key) const;

  std::string_view archiveClassName() const override { return kArchiveClassName; }
  void encodeWithCoder(KeyedArchiver& coder) const override;
  // None on another "codingVersion" or without a string "appId".
  static std::shared_ptr<AdvertisedApp> initWithCoder(const KeyedUnarchiver& coder);

 private:
  std::string appId_;
  std::optional<std::string> packageName_;
  std::optional<std::string> publisher_;
  std::optional<std::string> storeUrl_;
  std::optional<std::string> rating_;
  bool free_ = false;
  ZTIAMResourceMap resources_;
  std::shared_ptr<StoreAppInfoType> storeInfo_;
  std::optional<std::string> storedReviewUrl_;
};

using AdvertisedAppType = AdvertisedApp;

}  // namespace iam
