#include "iam/stats/ZTIAMStatsHelper.h"

#include <string>
#include <utility>
#include <vector>

#include "iam/model/Advertisement.h"
#include "iam/platform/InfoLogSwitch.h"
#include "iam/platform/LogBridge.h"
#include "iam/platform/ZTSettings.h"
#include "iam/stats/StatsArchivableClasses.h"
#include "iam/stats/internal/StatsMapArchiver.h"

namespace iam {
namespace {

// The map as it is now, read without the store's lock; while held, adding a record copies the map.
template <class Map>
class ReadMap {
 public:
  ReadMap(std::mutex& mutex, const std::shared_ptr<Map>& map) : mutex_(mutex) {
    std::lock_guard lock(mutex_);
    map_ = map;
  }
  ~ReadMap() {
    std::lock_guard lock(mutex_);
    map_.reset();
  }
  ReadMap(const ReadMap&) = delete;
  ReadMap& operator=(const ReadMap&) = delete;
  const Map& operator*() const { return *map_; }

 private:
  std::mutex& mutex_;
  std::shared_ptr<const Map> map_;
};

// Writes the current map; the lock is held for a pointer copy, not for the encoding or the disk.
// Records are read under their own locks.
template <class Map, class Record>
void saveCurrent(std::mutex& mutex, const std::shared_ptr<Map>& map, std::string_view key,
                 StatsMapArchiver<Record>& archiver) {
  ReadMap<Map> current(mutex, map);
  ZTSettings::saveArchivedData(archiver.archive(*current), key);
}

}  // namespace

template <class Map>
void ZTIAMStatsHelper::Indexed<Map>::install(std::shared_ptr<Map> replacement) {
  map = std::move(replacement);
  index.clear();
  index.reserve(map->size());
  for (auto& [key, record] : *map) index.emplace(key, &record);
}

// The record under `key`, made by `make` and added when there is none. A map someone reads
// outside the lock is not changed: the record goes into a copy that replaces it. Every reader lets
// go of its map under the lock (`ReadMap`), so the count seen here is exact; a map no one reads
// grows in place, and adding n new records costs n insertions rather than n copies of the map.
template <class Map, class Make>
typename Map::mapped_type ZTIAMStatsHelper::getOrCreate(std::mutex& mutex, Indexed<Map>& indexed,
                                                        const std::string& key, Make make) {
  std::shared_ptr<Map> replaced;  // freed after the lock is released
  std::lock_guard lock(mutex);
  if (auto it = indexed.index.find(key); it != indexed.index.end()) return *it->second;
  auto record = make();
  if (indexed.map.use_count() != 1) {
    replaced = indexed.map;
    indexed.install(std::make_shared<Map>(*replaced));
  }
  auto [it, added] = indexed.map->emplace(key, record);
  indexed.index.emplace(it->first, &it->second);
  return record;
}

struct ZTIAMStatsHelper::SaveState {
  StatsMapArchiver<ZTIAMAdvertisementStats> advertisementStats;
  StatsMapArchiver<ZTIAMAppEventStats> globalAppEventStats;
};

ZTIAMStatsHelper::ZTIAMStatsHelper()
    : saveState_(std::make_unique<SaveState>()),
      queue_(std::make_unique<LegacyZTBackgroundQueue>(std::string(kQueueUniqueId))) {
  queue_->setMaxConcurrentCount(1);
  // Trigger records load untyped inside their advertisement's record; an unregistered class would
  // drop them and their counts.
  registerStatsArchivableClasses();
  loadAdvertisementStats();
  loadGlobalAppEventStats();
}

ZTIAMStatsHelper::~ZTIAMStatsHelper() { waitUntilSavesAreFinished(); }

std::shared_ptr<ZTIAMAdvertisementStats> ZTIAMStatsHelper::getAdvertisementStatsByAdvertisementId(
    const std::string& advertisementId) {
  return getOrCreate(mutex_, advertisementStats_, advertisementId, [&] {
    auto record = std::make_shared<ZTIAMAdvertisementStats>();
    record->setAdvertisementId(advertisementId);
    return record;
  });
}

std::shared_ptr<ZTIAMAppEventStats> ZTIAMStatsHelper::getAppEventStatsByEventKey(const std::string& eventKey) {
  return getOrCreate(mutex_, globalAppEventStats_, eventKey, [&] {
    auto record = std::make_shared<ZTIAMAppEventStats>();
    record->setEventKey(eventKey);
    return record;
  });
}

std::vector<std::shared_ptr<ZTIAMAdvertisementStats>> ZTIAMStatsHelper::findAdvertisementStats(
    const std::vector<std::shared_ptr<AdvertisementType>>& advertisements) {
  std::vector<std::shared_ptr<ZTIAMAdvertisementStats>> found(advertisements.size());
  std::lock_guard lock(mutex_);
  const auto& index = advertisementStats_.index;
  for (std::size_t i = 0; i < advertisements.size(); ++i) {
    if (!advertisements[i]) continue;
    if (auto it = index.find(advertisements[i]->advertisementId()); it != index.end()) found[i] = *it->second;
  }
  return found;
}

void ZTIAMStatsHelper::countAdvertisementEvent(const ZTIAMAdvertisementEvent& event,
                                               void (ZTIAMAdvertisementStats::*handle)()) {
  auto advertisement = event.advertisement();
  if (!advertisement) return;
  (getAdvertisementStatsByAdvertisementId(advertisement->advertisementId()).get()->*handle)();
  saveAdvertisementStats();
}

void ZTIAMStatsHelper::handleAdvertisementImpression(const ZTIAMAdvertisementEvent& event) {
  countAdvertisementEvent(event, &ZTIAMAdvertisementStats::handleImpression);
}

void ZTIAMStatsHelper::handleAdvertisementClick(const ZTIAMAdvertisementEvent& event) {
  countAdvertisementEvent(event, &ZTIAMAdvertisementStats::handleClick);
}

void ZTIAMStatsHelper::handleAdvertisementDismiss(const ZTIAMAdvertisementEvent& event) {
  countAdvertisementEvent(event, &ZTIAMAdvertisementStats::handleDismiss);
}

void ZTIAMStatsHelper::handleAdvertisementPostpone(const ZTIAMAdvertisementEvent& event) {
  countAdvertisementEvent(event, &ZTIAMAdvertisementStats::handlePostpone);
}

void ZTIAMStatsHelper::handleTriggerFired(const AdvertisementTriggerType& trigger) {
  if (countTriggerFired(trigger)) saveAdvertisementStats();
}

void ZTIAMStatsHelper::handleAppEventWithKey(const std::string& eventKey) {
  countAppEventWithKey(eventKey);
  saveGlobalAppEventStats();
}

bool ZTIAMStatsHelper::countTriggerFired(const AdvertisementTriggerType& trigger) {
  auto advertisement = trigger.advertisement();
  if (!advertisement) return false;
  getAdvertisementStatsByAdvertisementId(advertisement->advertisementId())->handleTriggerFired(trigger);
  return true;
}

void ZTIAMStatsHelper::countAppEventWithKey(const std::string& eventKey) {
  getAppEventStatsByEventKey(eventKey)->incrementCount();
}

void ZTIAMStatsHelper::resetAllStats() {
  {
    std::lock_guard lock(mutex_);
    advertisementStats_.install(std::make_shared<AdvertisementStatsMap>());
    globalAppEventStats_.install(std::make_shared<AppEventStatsMap>());
    generation_.fetch_add(1, std::memory_order_release);
  }
  saveAdvertisementStats();
  saveGlobalAppEventStats();
}

void ZTIAMStatsHelper::loadAdvertisementStats() {
  auto loaded = std::make_shared<AdvertisementStatsMap>(
      ZTSettings::getSafeDictionaryFromPreferencesWithKey<ZTIAMAdvertisementStats>(kAdvertisementStatsKey));
  {
    std::lock_guard lock(mutex_);
    advertisementStats_.install(std::move(loaded));
    generation_.fetch_add(1, std::memory_order_release);
  }
  if (InfoLogSwitch::logInfoEnabled()) {
    LogBridge::info("IAM: Loaded advertisement stats.", kLogFile, __LINE__, "loadAdvertisementStats");
  }
}

void ZTIAMStatsHelper::loadGlobalAppEventStats() {
  auto loaded = std::make_shared<AppEventStatsMap>(
      ZTSettings::getSafeDictionaryFromPreferencesWithKey<ZTIAMAppEventStats>(kGlobalAppEventStatsKey));
  {
    std::lock_guard lock(mutex_);
    globalAppEventStats_.install(std::move(loaded));
    generation_.fetch_add(1, std::memory_order_release);
  }
  if (InfoLogSwitch::logInfoEnabled()) {
    LogBridge::info("IAM: Loaded global app event stats.", kLogFile, __LINE__, "loadGlobalAppEventStats");
  }
}

void ZTIAMStatsHelper::saveAdvertisementStats() {
  queue_->performNoResultOnBackground(
      [this] { saveCurrent(mutex_, advertisementStats_.map, kAdvertisementStatsKey, saveState_->advertisementStats); },
      nullptr);
}

void ZTIAMStatsHelper::saveGlobalAppEventStats() {
  queue_->performNoResultOnBackground(
      [this] { saveCurrent(mutex_, globalAppEventStats_.map, kGlobalAppEventStatsKey, saveState_->globalAppEventStats); },
      nullptr);
}

ZTIAMStatsHelper::AdvertisementStatsMap ZTIAMStatsHelper::advertisementStats() const {
  return *ReadMap<AdvertisementStatsMap>(mutex_, advertisementStats_.map);
}

ZTIAMStatsHelper::AppEventStatsMap ZTIAMStatsHelper::globalAppEventStats() const {
  return *ReadMap<AppEventStatsMap>(mutex_, globalAppEventStats_.map);
}

void ZTIAMStatsHelper::waitUntilSavesAreFinished() { queue_->waitUntilAllOperationsAreFinished(); }

}  // namespace iam
