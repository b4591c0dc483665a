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

// How often one trigger of an advertisement fired. Owned by its advertisement's record, under the
// trigger's id; the id itself is never filled in (the map key carries it), but the field stays
// part of the archive form. Thread-safe: accessors and archiving share the record's mutex; the
// count is read from a lock-free copy.
class ZTIAMAdvertisementTriggerStats final : public LegacyReflectable, public Archivable {
 public:
  static constexpr std::string_view kArchiveClassName = "ZTIAMAdvertisementTriggerStats";

  // Count 0, no id, no occurrence.
  ZTIAMAdvertisementTriggerStats() = default;

  std::optional<std::string> triggerId() const;
  std::int64_t count() const;
  std::optional<Date> mostRecentOccurrence() const;

  // Count + 1, most recent occurrence = now.
  void incrementCount();

  static const LegacyClass& legacyClass();
  const LegacyClass& legacyReflectedClass() const override { return legacyClass(); }
  std::string_view archiveClassName() const override { return kArchiveClassName; }
  void encodeWithCoder(KeyedArchiver& coder) const override;
  static std::shared_ptr<ZTIAMAdvertisementTriggerStats> initWithCoder(const KeyedUnarchiver& coder);

 private:
  // Guarded by fieldsMutex().
  std::optional<std::string> triggerId_;
  std::int64_t count_ = 0;
  std::optional<Date> mostRecentOccurrence_;
  // count_ for readers that skip the lock (the trigger rules, once per advertisement of a walk);
  // written after each change, under fieldsMutex().
  std::atomic<std::int64_t> countMirror_{0};
  // The change count of the advertisement record that holds this one (its archive form includes
  // this record's); none while no record holds it.
  std::shared_ptr<std::atomic<std::uint64_t>> ownerChanges_;

  friend class ZTIAMAdvertisementStats;
  void setOwnerChanges(std::shared_ptr<std::atomic<std::uint64_t>> changes);
  void fieldsDidChange() override;
};

// What hosts and delegates see of a trigger record.
using ZTIAMAdvertisementTriggerStatsInterface = const ZTIAMAdvertisementTriggerStats;

}  // namespace iam
