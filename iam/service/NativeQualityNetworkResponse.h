#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "iam/net/OspreyServiceContentInfo.h"
#include "iam/platform/KeyedArchiver.h"
#include "iam/platform/KeyedUnarchiver.h"
#include "iam/service/ZTIAMQualityNetworkRankedApp.h"

namespace iam {

// The native quality network answer: the ranked apps in the answer's order, with the content info
// and entity tag of the answer. Shared like the advertisements answer (held on the main thread,
// saved in the background), so every field is guarded by a mutex.
class NativeQualityNetworkResponse final : public Archivable {
 public:
  static constexpr std::string_view kArchiveClassName = "NativeQualityNetworkResponse";
  static constexpr std::int64_t kCodingVersion = 1;

  NativeQualityNetworkResponse(std::vector<std::shared_ptr<ZTIAMQualityNetworkRankedAppType>> rankedApps,
                               std::shared_ptr<OspreyServiceContentInfo> contentInfo);
  NativeQualityNetworkResponse() = delete;
  NativeQualityNetworkResponse(const NativeQualityNetworkResponse&) = delete;
  NativeQualityNetworkResponse& operator=(const NativeQualityNetworkResponse&) = delete;

  std::vector<std::shared_ptr<ZTIAMQualityNetworkRankedAppType>> qualityNetworkRankedApps() const;
  void setQualityNetworkRankedApps(std::vector<std::shared_ptr<ZTIAMQualityNetworkRankedAppType>> value);
  std::shared_ptr<OspreyServiceContentInfo> contentInfo() const;
  void setContentInfo(std::shared_ptr<OspreyServiceContentInfo> value);
  std::optional<std::string> etag() const;
  void setEtag(std::optional<std::string> value);

  double maximumAge() const { return 86400; }
  // The advertisements answer's rule: marked stale, or strictly older than one day.
  bool isExpired() const;

  std::string_view archiveClassName() const override { return kArchiveClassName; }
  void encodeWithCoder(KeyedArchiver& coder) const override;
  // None on another "codingVersion", or unless "contentInfo" and "qualityNetworkRankedApps" are
  // readable.
  static std::shared_ptr<NativeQualityNetworkResponse> initWithCoder(const KeyedUnarchiver& coder);

 private:
  mutable std::mutex mutex_;
  // Guarded by mutex_.
  std::vector<std::shared_ptr<ZTIAMQualityNetworkRankedAppType>> qualityNetworkRankedApps_;
  std::shared_ptr<OspreyServiceContentInfo> contentInfo_;
  std::optional<std::string> etag_;
};

}  // namespace iam
