#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "iam/platform/KeyedArchiver.h"
#include "iam/platform/KeyedUnarchiver.h"

namespace iam {

// What the platform store knows of an advertised app. Filled by the parser, then only read; not
// thread-safe for writes.
class StoreAppInfo final : public Archivable {
 public:
  static constexpr std::string_view kArchiveClassName = "StoreAppInfo";

  explicit StoreAppInfo(std::string storeId) : storeId_(std::move(storeId)) {}
  StoreAppInfo() = delete;

  // The store's numeric identifier of the app, as decimal text.
  const std::string& storeId() const { return storeId_; }
  void setStoreId(std::string value) { storeId_ = std::move(value); }
  const std::optional<std::string>& bundleIdentifier() const { return bundleIdentifier_; }
  void setBundleIdentifier(std::optional<std::string> value) { bundleIdentifier_ = std::move(value); }
  const std::optional<std::string>& name() const { return name_; }
  void setName(std::optional<std::string> value) { name_ = std::move(value); }
  const std::optional<std::string>& subtitle() const { return subtitle_; }
  void setSubtitle(std::optional<std::string> value) { subtitle_ = std::move(value); }
  const std::optional<std::string>& iconTitle() const { return iconTitle_; }
  void setIconTitle(std::optional<std::string> value) { iconTitle_ = std::move(value); }
  const std::optional<std::string>& icon60x60Url() const { return icon60x60Url_; }
  void setIcon60x60Url(std::optional<std::string> value) { icon60x60Url_ = std::move(value); }
  const std::optional<std::string>& icon100x100Url() const { return icon100x100Url_; }
  void setIcon100x100Url(std::optional<std::string> value) { icon100x100Url_ = std::move(value); }
  const std::optional<std::string>& icon512x512Url() const { return icon512x512Url_; }
  void setIcon512x512Url(std::optional<std::string> value) { icon512x512Url_ = std::move(value); }

  std::string_view archiveClassName() const override { return kArchiveClassName; }
  void encodeWithCoder(KeyedArchiver& coder) const override;
  // None without a string "_storeId".
  static std::shared_ptr<StoreAppInfo> initWithCoder(const KeyedUnarchiver& coder);

 private:
  std::string storeId_;
  std::optional<std::string> bundleIdentifier_;
  std::optional<std::string> name_;
  std::optional<std::string> subtitle_;
  std::optional<std::string> iconTitle_;
  std::optional<std::string> icon60x60Url_;
  std::optional<std::string> icon100x100Url_;
  std::optional<std::string> icon512x512Url_;
};

using StoreAppInfoType = StoreAppInfo;

}  // namespace iam
