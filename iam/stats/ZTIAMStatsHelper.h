#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "iam/model/AdvertisementTrigger.h"
#include "iam/stats/ZTIAMAdvertisementEvent.h"
#include "iam/stats/ZTIAMAdvertisementStats.h"
#include "iam/stats/ZTIAMAppEventStats.h"
#include "iam/stats/ZTIAMStatsGetterHelper.h"
#include "iam/support/LegacyZTBackgroundQueue.h"

namespace iam {

// The statistics store: every advertisement record and app event record, in two maps, loaded from
// the standard preferences store when it is made and written back whole after every change.
//
// Threads: used from the event-evaluation thread and the main thread at once. A counted event is
// in memory when its call returns; the call then queues a save of the whole map on the store's
// own serial queue ("ZTIAMStatsHelper") and does not wait for the disk. Each save reads the map
// as it stands when the save runs; saves run one at a time, in the order they were queued. Look-ups
// add records without saving; the next save of their map persists them. A save encodes only the
// records that changed since the previous one and copies the others' bytes; what it writes is the
// same as encoding the whole map.
//
// Destruction waits for the saves already queued, so nothing counted is lost.
class ZTIAMStatsHelper final : public ZTIAMStatsGetterHelper {
 public:
  static constexpr std::string_view kAdvertisementStatsKey = "ZTInAppMarketingManager_AdvertisementStats";
  static constexpr std::string_view kGlobalAppEventStatsKey = "ZTInAppMarketingManager_GlobalAppEventStats";
  static constexpr std::string_view kQueueUniqueId = "ZTIAMStatsHelper";
  static constexpr std::string_view kLogFile = "InAppMarketing/source/Logic/Stats/_ZTIAMStatsHelper";

  using AdvertisementStatsMap = std::map<std::string, std::shared_ptr<ZTIAMAdvertisementStats>>;
  using AppEventStatsMap = std::map<std::string, std::shared_ptr<ZTIAMAppEventStats>>;

  // Loads both maps (empty when nothing readable is stored).
  ZTIAMStatsHelper();
  ~ZTIAMStatsHelper() override;
  ZTIAMStatsHelper(const ZTIAMStatsHelper&) = delete;
  ZTIAMStatsHelper& operator=(const ZTIAMStatsHelper&) = delete;

  std::shared_ptr<ZTIAMAdvertisementStats> getAdvertisementStatsByAdvertisementId(
      const std::string& advertisementId) override;
  std::shared_ptr<ZTIAMAppEventStats> getAppEventStatsByEventKey(const std::string& eventKey) override;
  // One look under the lock for a whole list; creates nothing.
  std::vector<std::shared_ptr<ZTIAMAdvertisementStats>> findAdvertisementStats(
      const std::vector<std::shared_ptr<AdvertisementType>>& advertisements) override;
  std::uint64_t recordsGeneration() const override { return generation_.load(std::memory_order_acquire); }

  // Count on the record of the event's advertisement, then save the advertisement map. An event
  // without an advertisement is not counted.
  void handleAdvertisementImpression(const ZTIAMAdvertisementEvent& event);
  void handleAdvertisementClick(const ZTIAMAdvertisementEvent& event);
  void handleAdvertisementDismiss(const ZTIAMAdvertisementEvent& event);
  void handleAdvertisementPostpone(const ZTIAMAdvertisementEvent& event);
  // Counts a firing on the record of the trigger's advertisement, then saves the advertisement
  // map. A trigger whose advertisement is gone is not counted.
  void handleTriggerFired(const AdvertisementTriggerType& trigger);
  // Counts the event, then saves the app event map.
  void handleAppEventWithKey(const std::string& eventKey);
  // The two above without their saves, for a caller that counts as it goes and saves once it is
  // done. False when nothing was counted.
  bool countTriggerFired(const AdvertisementTriggerType& trigger);
  void countAppEventWithKey(const std::string& eventKey);
  // Empties both maps and saves them empty.
  void resetAllStats();

  // Replace the in-memory map by the stored one.
  void loadAdvertisementStats();
  void loadGlobalAppEventStats();
  // Queue a save of the whole map.
  void saveAdvertisementStats();
  void saveGlobalAppEventStats();

  // Snapshots of the maps (the records themselves are shared).
  AdvertisementStatsMap advertisementStats() const;
  AppEventStatsMap globalAppEventStats() const;

  // Blocks until every save queued so far has been written.
  void waitUntilSavesAreFinished();

 private:
  void countAdvertisementEvent(const ZTIAMAdvertisementEvent& event, void (ZTIAMAdvertisementStats::*handle)());

  // A map that a save or a snapshot is reading is never changed: adding a record to it, or
  // emptying it, installs a new map, so that a save reads a consistent map without holding the
  // lock while it encodes. Counting changes only the records.
  //
  // Each map has a hashed index beside it for the look-ups: its keys view the map's own keys, so it
  // is rebuilt whenever a map is replaced. The ordered maps stay what saves and snapshots read.
  template <class Map>
  struct Indexed {
    std::shared_ptr<Map> map = std::make_shared<Map>();
    std::unordered_map<std::string_view, typename Map::mapped_type*> index;
    void install(std::shared_ptr<Map> replacement);
  };
  template <class Map, class Make>
  static typename Map::mapped_type getOrCreate(std::mutex& mutex, Indexed<Map>& indexed, const std::string& key,
                                               Make make);

  mutable std::mutex mutex_;
  Indexed<AdvertisementStatsMap> advertisementStats_;  // guarded by mutex_
  Indexed<AppEventStatsMap> globalAppEventStats_;      // guarded by mutex_
  // Raised when a map is replaced by one with other records (load, reset).
  std::atomic<std::uint64_t> generation_{0};
  // What the previous saves encoded, so that the next one encodes only the records that changed;
  // touched only by save tasks, which run one at a time.
  struct SaveState;
  const std::unique_ptr<SaveState> saveState_;
  // Constant after construction. Its tasks use `this`; the destructor drains it first.
  const std::unique_ptr<LegacyZTBackgroundQueue> queue_;
};

}  // namespace iam
