#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "iam/platform/Date.h"
#include "iam/platform/KeyedArchiver.h"
#include "iam/platform/KeyedUnarchiver.h"
#include "iam/stats/LegacyReflection.h"

namespace iam {

// How often the host reported one app event. Owned by the statistics store; shared with the
// validity rules. Thread-safe: accessors and archiving share the record's mutex; the count is read
// from a lock-free copy.
class ZTIAMAppEventStats final : public LegacyReflectable, public Archivable {
 public:
  static constexpr std::string_view kArchiveClassName = "ZTIAMAppEventStats";

  // Count 0, empty key, no occurrence; the store sets the key right after.
  ZTIAMAppEventStats() = default;

  std::string eventKey() const;
  void setEventKey(std::string eventKey);
  std::int64_t count() const;
  std::optional<Date> mostRecentOccurrence() const;

  // Count + 1, most recent occurrence = now.
  void incrementCount();

  // Grows with every change of the archive form, so that a save re-encodes only what changed.
  std::uint64_t changeCount() const { return changes_.load(std::memory_order_acquire); }

  static const LegacyClass& legacyClass();
  const LegacyClass& legacyReflectedClass() const override { return legacyClass(); }
  std::string_view archiveClassName() const override { return kArchiveClassName; }
  void encodeWithCoder(KeyedArchiver& coder) const override;
  static std::shared_ptr<ZTIAMAppEventStats> initWithCoder(const KeyedUnarchiver& coder);

 private:
  // Guarded by fieldsMutex().
  std::string eventKey_;
  std::int64_t count_ = 0;
  std::optional<Date> mostRecentOccurrence_;
  // Raised after each change, under fieldsMutex().
  std::atomic<std::uint64_t> changes_{0};
  // count_ for readers that skip the lock (the trigger rules); written after each change.
  std::atomic<std::int64_t> countMirror_{0};

  void fieldsDidChange() override {
    countMirror_.store(count_, std::memory_order_release);
    changes_.fetch_add(1, std::memory_order_release);
  }
};

// What hosts and delegates see of an app event record.
using ZTIAMAppEventStatsInterface = const ZTIAMAppEventStats;

}  // namespace iam
