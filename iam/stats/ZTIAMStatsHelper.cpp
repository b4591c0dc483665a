#include "iam/stats/ZTIAMStatsHelper.h"

#include <string>
#include <utility>

#include "iam/model/Advertisement.h"
#include "iam/platform/InfoLogSwitch.h"
#include "iam/platform/LogBridge.h"
#include "iam/platform/ZTSettings.h"
#include "iam/stats/StatsArchivableClasses.h"
#include "iam/stats/internal/StatsMapArchiver.h"

namespace iam {
namespace {

// The record under `key`, made by `make` and added to a new copy of the map when there is none.
template <class Map, class Make>
typename Map::mapped_type getOrCreate(std::mutex& mutex, std::shared_ptr<const Map>& map, const std::string& key,
                                      Make make) {
  std::shared_ptr<const Map> replaced;  // freed after the lock is released
  std::lock_guard lock(mutex);
  auto it = map->find(key);
  if (it != map->end()) return it->second;
  auto record = make();
  auto grown = std::make_shared<Map>(*map);
  grown->emplace(key, record);
  replaced = std::exchange(map, std::move(grown));
  return record;
}

// Takes the current map under the store's lock and writes it outside: the lock is held for a
// pointer copy, not for the encoding or the disk. Records are read under their own locks.
template <class Map, class Record>
void saveCurrent(std::mutex& mutex, const std::shared_ptr<const Map>& map, std::string_view key,
                 StatsMapArchiver<Record>& archiver) {
  std::shared_ptr<const Map> current;
  {
    std::lock_guard lock(mutex);
    current = map;
  }
  ZTSettings::saveArchivedData(archiver.archive(*current), key);
}

}  // namespace

struct ZTIAMStatsHelper::SaveState {
  StatsMapArchiver<ZTIAMAdvertisementStats> advertisementStats;
  StatsMapArchiver<ZTIAMAppEventStats> globalAppEventStats;
};

ZTIAMStatsHelper::ZTIAMStatsHelper()
    : advertisementStats_(std::make_shared<const AdvertisementStatsMap>()),
      globalAppEventStats_(std::make_shared<const AppEventStatsMap>()),
      saveState_(std::make_unique<SaveState>()),
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
  auto advertisement = trigger.advertisement();
  if (!advertisement) return;
  getAdvertisementStatsByAdvertisementId(advertisement->advertisementId())->handleTriggerFired(trigger);
  saveAdvertisementStats();
}

void ZTIAMStatsHelper::handleAppEventWithKey(const std::string& eventKey) {
  getAppEventStatsByEventKey(eventKey)->incrementCount();
  saveGlobalAppEventStats();
}

void ZTIAMStatsHelper::resetAllStats() {
  {
    std::lock_guard lock(mutex_);
    advertisementStats_ = std::make_shared<const AdvertisementStatsMap>();
    globalAppEventStats_ = std::make_shared<const AppEventStatsMap>();
  }
  saveAdvertisementStats();
  saveGlobalAppEventStats();
}

void ZTIAMStatsHelper::loadAdvertisementStats() {
  auto loaded = std::make_shared<const AdvertisementStatsMap>(
      ZTSettings::getSafeDictionaryFromPreferencesWithKey<ZTIAMAdvertisementStats>(kAdvertisementStatsKey));
  {
    std::lock_guard lock(mutex_);
    advertisementStats_ = std::move(loaded);
  }
  if (InfoLogSwitch::logInfoEnabled()) {
    LogBridge::info("IAM: Loaded advertisement stats.", kLogFile, __LINE__, "loadAdvertisementStats");
  }
}

void ZTIAMStatsHelper::loadGlobalAppEventStats() {
  auto loaded = std::make_shared<const AppEventStatsMap>(
      ZTSettings::getSafeDictionaryFromPreferencesWithKey<ZTIAMAppEventStats>(kGlobalAppEventStatsKey));
  {
    std::lock_guard lock(mutex_);
    globalAppEventStats_ = std::move(loaded);
  }
  if (InfoLogSwitch::logInfoEnabled()) {
    LogBridge::info("IAM: Loaded global app event stats.", kLogFile, __LINE__, "loadGlobalAppEventStats");
  }
}

void ZTIAMStatsHelper::saveAdvertisementStats() {
  queue_->performNoResultOnBackground(
      [this] { saveCurrent(mutex_, advertisementStats_, kAdvertisementStatsKey, saveState_->advertisementStats); },
      nullptr);
}

void ZTIAMStatsHelper::saveGlobalAppEventStats() {
  queue_->performNoResultOnBackground(
      [this] { saveCurrent(mutex_, globalAppEventStats_, kGlobalAppEventStatsKey, saveState_->globalAppEventStats); },
      nullptr);
}

ZTIAMStatsHelper::AdvertisementStatsMap ZTIAMStatsHelper::advertisementStats() const {
  std::shared_ptr<const AdvertisementStatsMap> current;
  {
    std::lock_guard lock(mutex_);
    current = advertisementStats_;
  }
  return *current;
}

ZTIAMStatsHelper::AppEventStatsMap ZTIAMStatsHelper::globalAppEventStats() const {
  std::shared_ptr<const AppEventStatsMap> current;
  {
    std::lock_guard lock(mutex_);
    current = globalAppEventStats_;
  }
  return *current;
}

void ZTIAMStatsHelper::waitUntilSavesAreFinished() { queue_->waitUntilAllOperationsAreFinished(); }

}  // namespace iam
