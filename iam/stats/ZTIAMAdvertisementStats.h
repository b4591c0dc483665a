#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "iam/model/AdvertisementTrigger.h"
#include "iam/platform/Date.h"
#include "iam/platform/KeyedArchiver.h"
#include "iam/platform/KeyedUnarchiver.h"
#include "iam/stats/LegacyReflection.h"
#include "iam/stats/ZTIAMAdvertisementTriggerStats.h"

namespace iam {

// What the user did with one advertisement: impressions, clicks, dismissals, postponements with
// the time of the last of each, and how often each of its triggers fired. Owned by the statistics
// store, shared with the validity rules; counters only grow. Thread-safe: accessors, the counting
// operations and archiving share the record's mutex, so a save may archive the record while the
// evaluation thread and the main thread count into it; the counts the rules read and the
// impression date are read from lock-free copies.
class ZTIAMAdvertisementStats final : public LegacyReflectable, public Archivable {
 public:
  static constexpr std::string_view kArchiveClassName = "ZTIAMAdvertisementStats";
  using TriggerStatsMap = std::map<std::string, std::shared_ptr<ZTIAMAdvertisementTriggerStats>>;

  // Created now, counters 0, no dates, no trigger records; the store sets the id right after.
  ZTIAMAdvertisementStats();

  // A snapshot of the trigger records by trigger id.
  std::map<std::string, std::shared_ptr<ZTIAMAdvertisementTriggerStatsInterface>> triggerStats() const;
  // None only for a record read from an archive that lacked it.
  std::optional<Date> createdDate() const;
  std::string advertisementId() const;
  void setAdvertisementId(std::string advertisementId);
  std::int64_t numberOfImpressions() const;
  void setNumberOfImpressions(std::int64_t value);
  std::int64_t numberOfClicks() const;
  std::int64_t numberOfDismisses() const;
  std::int64_t numberOfPostpones() const;
  std::optional<Date> mostRecentImpressionDate() const;
  void setMostRecentImpressionDate(std::optional<Date> value);
  std::optional<Date> mostRecentClickDate() const;
  std::optional<Date> mostRecentDismissDate() const;
  std::optional<Date> mostRecentPostponeDate() const;

  // Each adds 1 to its counter and stamps its most recent date with now.
  void handleImpression();
  void handleClick();
  void handleDismiss();
  void handlePostpone();
  // Counts a firing on the record of the trigger's id (made if needed).
  void handleTriggerFired(const AdvertisementTriggerType& trigger);
  // The record under the id, made and stored if there is none.
  std::shared_ptr<ZTIAMAdvertisementTriggerStats> getTriggerStatsWithTriggerId(const std::string& triggerId);

  // Grows with every change of the archive form, its trigger records' included, so that a save
  // re-encodes only what changed.
  std::uint64_t changeCount() const { return changes_->load(std::memory_order_acquire); }

  static const LegacyClass& legacyClass();
  const LegacyClass& legacyReflectedClass() const override { return legacyClass(); }
  std::string_view archiveClassName() const override { return kArchiveClassName; }
  void encodeWithCoder(KeyedArchiver& coder) const override;
  // Does not stamp a creation date: a record from an archive without one has none.
  static std::shared_ptr<ZTIAMAdvertisementStats> initWithCoder(const KeyedUnarchiver& coder);

 private:
  struct Undated {};
  explicit ZTIAMAdvertisementStats(Undated) {}

  // Links decoded trigger records to this record's change count.
  void fieldsDidChange() override;
  void changed() { changes_->fetch_add(1, std::memory_order_release); }
  // Copies what the rules read on every advertisement of a walk to the lock-free mirrors; under
  // fieldsMutex(), after each change.
  void publish();

  // Guarded by fieldsMutex().
  TriggerStatsMap triggerStats_;
  std::optional<Date> createdDate_;
  std::string advertisementId_;
  std::int64_t numberOfImpressions_ = 0;
  std::int64_t numberOfClicks_ = 0;
  std::int64_t numberOfDismisses_ = 0;
  std::int64_t numberOfPostpones_ = 0;
  std::optional<Date> mostRecentImpressionDate_;
  std::optional<Date> mostRecentClickDate_;
  std::optional<Date> mostRecentDismissDate_;
  std::optional<Date> mostRecentPostponeDate_;
  // Lock-free mirrors of the counts and the impression date. The time is stored before the flag
  // is raised, so a reader that sees the flag reads that time or a later one.
  std::atomic<std::int64_t> impressionsMirror_{0};
  std::atomic<std::int64_t> postponesMirror_{0};
  std::atomic<bool> hasImpressionDate_{false};
  std::atomic<Date::rep> impressionDateTicks_{0};
  // Raised after each change, under fieldsMutex(); shared with the trigger records held.
  const std::shared_ptr<std::atomic<std::uint64_t>> changes_ = std::make_shared<std::atomic<std::uint64_t>>(0);
};

// What hosts and delegates see of an advertisement record.
using ZTIAMAdvertisementStatsInterface = const ZTIAMAdvertisementStats;

}  // namespace iam
