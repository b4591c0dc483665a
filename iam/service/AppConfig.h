#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "iam/platform/KeyedArchiver.h"
#include "iam/platform/KeyedUnarchiver.h"
#include "iam/service/ZTIAMAppConfigType.h"

namespace iam {

// The app configuration of an advertisements answer. Immutable; shared between threads. Made by
// AppConfigParser and by the archive.
class AppConfig final : public ZTIAMAppConfigType, public Archivable {
 public:
  static constexpr std::string_view kArchiveClassName = "AppConfig";
  static constexpr std::int64_t kCodingVersion = 1;

  AppConfig(double minimumPopupImpressionTimeInterval, std::map<std::string, std::string> attributes)
      : minimumPopupImpressionTimeInterval_(minimumPopupImpressionTimeInterval), attributes_(std::move(attributes)) {}
  AppConfig() = delete;

  double minimumPopupImpressionTimeInterval() const override { return minimumPopupImpressionTimeInterval_; }
  std::map<std::string, std::string> attributes() const override { return attributes_; }
  std::vector<std::string> allAtributeKeys() const override;
  std::optional<std::string> attributeForKey(std::string_view key) const override;

  // Equal when the intervals are exactly equal and both hold the same attributes, whatever their
  // order.
  bool isEqual(const ZTIAMAppConfigType& other) const;
  friend bool operator==(const AppConfig& a, const ZTIAMAppConfigType& b) { return a.isEqual(b); }

  std::string_view archiveClassName() const override { return kArchiveClassName; }
  void encodeWithCoder(KeyedArchiver& coder) const override;
  // None on another "codingVersion" (and "AppConfig: decoded nil" on standard output).
  static std::shared_ptr<AppConfig> initWithCoder(const KeyedUnarchiver& coder);

 private:
  const double minimumPopupImpressionTimeInterval_;
  const std::map<std::string, std::string> attributes_;
};

}  // namespace iam
