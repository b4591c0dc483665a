#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "iam/model/AdvertisedApp.h"
#include "iam/model/ZTIAMResource.h"
#include "iam/platform/KeyedArchiver.h"
#include "iam/platform/KeyedUnarchiver.h"
#include "iam/service/ZTIAMQualityNetworkPriority.h"

namespace iam {

// One app of the native quality network, which the host shows in its own views. Its identity is
// its id alone: equality and hash ignore everything else. Filled by the parser, then only read.
class ZTIAMQualityNetworkRankedApp final : public Archivable {
 public:
  static constexpr std::string_view kArchiveClassName = "ZTIAMQualityNetworkRankedApp";

  explicit ZTIAMQualityNetworkRankedApp(std::string rankedAppId) : rankedAppId_(std::move(rankedAppId)) {}
  ZTIAMQualityNetworkRankedApp() = delete;

  const std::string& rankedAppId() const { return rankedAppId_; }
  void setRankedAppId(std::string value) { rankedAppId_ = std::move(value); }
  const std::shared_ptr<AdvertisedAppType>& advertisedApp() const { return advertisedApp_; }
  void setAdvertisedApp(std::shared_ptr<AdvertisedAppType> value) { advertisedApp_ = std::move(value); }
  ZTIAMQualityNetworkPriority priority() const { return priority_; }
  void setPriority(ZTIAMQualityNetworkPriority value) { priority_ = value; }
  bool showFreeBadge() const { return showFreeBadge_; }
  void setShowFreeBadge(bool value) { showFreeBadge_ = value; }
  const ZTIAMResourceMap& resources() const { return resources_; }
  void setResources(ZTIAMResourceMap value) { resources_ = std::move(value); }

  // Stores `resource` under its own key, replacing an earlier one.
  void addResource(std::shared_ptr<ZTIAMResourceType> resource);
  // The value of the resource under `key`; none when there is none or it has no value.
  std::optional<std::string> getResourceValue(std::string_view key) const;
  std::string getResourceValue(std::string_view key, std::string defaultValue) const;

  friend bool operator==(const ZTIAMQualityNetworkRankedApp& a, const ZTIAMQualityNetworkRankedApp& b) {
    return a.rankedAppId_ == b.rankedAppId_;
  }
  std::size_t hash() const { return std::hash<std::string>()(rankedAppId_); }

  std::string_view archiveClassName() const override { return kArchiveClassName; }
  void encodeWithCoder(KeyedArchiver& coder) const override;
  // None without a string "_rankedAppId".
  static std::shared_ptr<ZTIAMQualityNetworkRankedApp> initWithCoder(const KeyedUnarchiver& coder);

 private:
  std::string rankedAppId_;
  std::shared_ptr<AdvertisedAppType> advertisedApp_;
  ZTIAMQualityNetworkPriority priority_ = ZTIAMQualityNetworkPriorityLow;
  bool showFreeBadge_ = false;
  ZTIAMResourceMap resources_;
};

using ZTIAMQualityNetworkRankedAppType = ZTIAMQualityNetworkRankedApp;

}  // namespace iam

template <>
struct std::hash<iam::ZTIAMQualityNetworkRankedApp> {
  std::size_t operator()(const iam::ZTIAMQualityNetworkRankedApp& app) const { return app.hash(); }
};
