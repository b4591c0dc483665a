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

// Fires its advertisement once an app event has happened often enough. Owned by its
// advertisement, to which it points back weakly. Identity is the object: two triggers with equal
// fields are still two triggers. Filled by the parser, then only read.
class AdvertisementTrigger final : public Archivable {
 public:
  static constexpr std::string_view kArchiveClassName = "AdvertisementTrigger";
  static constexpr std::int64_t kCodingVersion = 1;

  AdvertisementTrigger(std::string triggerId, std::string eventKey)
      : triggerId_(std::move(triggerId)), eventKey_(std::move(eventKey)) {}
  AdvertisementTrigger() = delete;
  AdvertisementTrigger(const AdvertisementTrigger&) = delete;
  AdvertisementTrigger& operator=(const AdvertisementTrigger&) = delete;

  const std::string& triggerId() const { return triggerId_; }
  void setTriggerId(std::string value) { triggerId_ = std::move(value); }
  // The app event the trigger counts.
  const std::string& eventKey() const { return eventKey_; }
  void setEventKey(std::string value) { eventKey_ = std::move(value); }
  // Occurrences of the event before the trigger first fires.
  const std::optional<std::int64_t>& thresholdCount() const { return thresholdCount_; }
  void setThresholdCount(std::optional<std::int64_t> value) { thresholdCount_ = value; }
  // Seconds between firing and showing.
  const std::optional<double>& displayDelay() const { return displayDelay_; }
  void setDisplayDelay(std::optional<double> value) { displayDelay_ = value; }
  const std::optional<std::int64_t>& maxFireCount() const { return maxFireCount_; }
  void setMaxFireCount(std::optional<std::int64_t> value) { maxFireCount_ = value; }
  // Occurrences between two firings after the first.
  const std::optional<std::int64_t>& repeatIntervalCount() const { return repeatIntervalCount_; }
  void setRepeatIntervalCount(std::optional<std::int64_t> value) { repeatIntervalCount_ = value; }

  // The owning advertisement while it lives; none for a trigger made or decoded on its own.
  std::shared_ptr<Advertisement> advertisement() const { return advertisement_.lock(); }
  void setAdvertisement(const std::shared_ptr<Advertisement>& value) { advertisement_ = value; }

  std::string_view archiveClassName() const override { return kArchiveClassName; }
  void encodeWithCoder(KeyedArchiver& coder) const override;
  // None on another "codingVersion" or without string "triggerId" and "eventKey". The back
  // reference is not archived; the advertisement relinks it.
  static std::shared_ptr<AdvertisementTrigger> initWithCoder(const KeyedUnarchiver& coder);

 private:
  std::string triggerId_;
  std::string eventKey_;
  std::optional<std::int64_t> thresholdCount_;
  std::optional<double> displayDelay_;
  std::optional<std::int64_t> maxFireCount_;
  std::optional<std::int64_t> repeatIntervalCount_;
  std::weak_ptr<Advertisement> advertisement_;
};

using AdvertisementTriggerType = AdvertisementTrigger;

}  // namespace iam
