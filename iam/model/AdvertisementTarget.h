#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "iam/platform/KeyedArchiver.h"
#include "iam/platform/KeyedUnarchiver.h"

namespace iam {

class Advertisement;

// A place in the host's own screens (a space, such as a list with advertisement rows) where its
// advertisement may appear. Owned by its advertisement, to which it points back weakly. Identity
// is the object. Filled by the parser, then only read.
class AdvertisementTarget final : public Archivable {
 public:
  static constexpr std::string_view kArchiveClassName = "AdvertisementTarget";
  static constexpr std::int64_t kCodingVersion = 1;

  AdvertisementTarget(std::string targetId, std::string spaceKey)
      : targetId_(std::move(targetId)), spaceKey_(std::move(spaceKey)) {}
  AdvertisementTarget() = delete;
  AdvertisementTarget(const AdvertisementTarget&) = delete;
  AdvertisementTarget& operator=(const AdvertisementTarget&) = delete;

  const std::string& targetId() const { return targetId_; }
  void setTargetId(std::string value) { targetId_ = std::move(value); }
  const std::string& spaceKey() const { return spaceKey_; }
  void setSpaceKey(std::string value) { spaceKey_ = std::move(value); }
  const std::optional<std::int64_t>& sectionIndex() const { return sectionIndex_; }
  void setSectionIndex(std::optional<std::int64_t> value) { sectionIndex_ = value; }
  const std::optional<std::int64_t>& sectionRepeatInterval() const { return sectionRepeatInterval_; }
  void setSectionRepeatInterval(std::optional<std::int64_t> value) { sectionRepeatInterval_ = value; }
  const std::optional<std::int64_t>& rowIndex() const { return rowIndex_; }
  void setRowIndex(std::optional<std::int64_t> value) { rowIndex_ = value; }
  const std::optional<std::int64_t>& rowRepeatInterval() const { return rowRepeatInterval_; }
  void setRowRepeatInterval(std::optional<std::int64_t> value) { rowRepeatInterval_ = value; }
  // Name of the view class the host should draw the advertisement with.
  const std::optional<std::string>& customViewClass() const { return customViewClass_; }
  void setCustomViewClass(std::optional<std::string> value) { customViewClass_ = std::move(value); }

  // The owning advertisement while it lives; none for a target made or decoded on its own.
  std::shared_ptr<Advertisement> advertisement() const { return advertisement_.lock(); }
  void setAdvertisement(const std::shared_ptr<Advertisement>& value) { advertisement_ = value; }

  std::string_view archiveClassName() const override { return kArchiveClassName; }
  void encodeWithCoder(KeyedArchiver& coder) const override;
  // None on another "codingVersion" or without string "targetId" and "spaceKey".
  static std::shared_ptr<AdvertisementTarget> initWithCoder(const KeyedUnarchiver& coder);

 private:
  std::string targetId_;
  std::string spaceKey_;
  std::optional<std::int64_t> sectionIndex_;
  std::optional<std::int64_t> sectionRepeatInterval_;
  std::optional<std::int64_t> rowIndex_;
  std::optional<std::int64_t> rowRepeatInterval_;
  std::optional<std::string> customViewClass_;
  std::weak_ptr<Advertisement> advertisement_;
};

using AdvertisementTargetType = AdvertisementTarget;

}  // namespace iam
