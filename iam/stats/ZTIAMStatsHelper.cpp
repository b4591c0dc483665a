#include "iam/stats/ZTIAMStatsHelper.h"

#include <string>
#include <utility>
#include <vector>

#include "iam/model/Advertisement.h"
#include "iam/platform/InfoLogSwitch.h"
#include "iam/platform/LogBridge.h"
#include "iam/platform/ZTSettings.h"

namespace iam {
namespace {

// Takes the map's entries under the store's lock and writes them outside it: the lock is held for
// a copy of pointers, not for the encoding or the disk. Records are read under their own locks.
template <class Map>
void saveSnapshot(std::mutex& mutex, const Map& map, std::string_view key) {
  std::vector<std::pair<std::string, typename Map::mapped_type>> snapshot;
  {
    std::lock_guard lock(mutex);
    snapshot.reserve(map.size());
    snapshot.assign(map.begin(), map.end());
  }
  ZTSettings::saveDictionaryToPreferences(snapshot, key);
}

}  // namespace

ZTIAMStatsHelper::ZTIAMStatsHelper() : queue_(std::make_unique<LegacyZTBackgroundQueue>(std::string(kQueueUniqueId))) {
  queue_->setMaxConcurrentCount(1);
  loadAdvertisementStats();
  loadGlobalAppEventStats();
}

ZTIAMStatsHelper::~ZTIAMStatsHelper() { waitUntilSavesAreFinished(); }

std::shared_ptr<ZTIAMAdvertisementStats> ZTIAMStatsHelper::getAdvertisementStatsByAdvertisementId(
    const std::string& advertisementId) {
  std::lock_guard lock(mutex_);
  auto it = advertisementStats_.lower_bound(advertisementId);
  if (it != advertisementStats_.end() && it->first == advertisementId) return it->second;
  auto record = std::make_shared<ZTIAMAdvertisementStats>();
  record->setAdvertisementId(advertisementId);
  advertisementStats_.emplace_hint(it, advertisementId, record);
  return record;
}

std::shared_ptr<ZTIAMAppEventStats> ZTIAMStatsHelper::getAppEventStatsByEventKey(const std::string& eventKey) {
  std::lock_guard lock(mutex_);
  auto it = globalAppEventStats_.lower_bound(eventKey);
  if (it != globalAppEventStats_.end() && it->first == eventKey) return it->second;
  auto record = std::make_shared<ZTIAMAppEventStats>();
  record->setEventKey(eventKey);
  globalAppEventStats_.emplace_hint(it, eventKey, record);
  return record;
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
    advertisementStats_.clear();
    globalAppEventStats_.clear();
  }
  saveAdvertisementStats();
  saveGlobalAppEventStats();
}

void ZTIAMStatsHelper::loadAdvertisementStats() {
  auto loaded = ZTSettings::getSafeDictionaryFromPreferencesWithKey<ZTIAMAdvertisementStats>(kAdvertisementStatsKey);
  {
    std::lock_guard lock(mutex_);
    advertisementStats_ = std::move(loaded);
  }
  if (InfoLogSwitch::logInfoEnabled()) {
    LogBridge::info("IAM: Loaded advertisement stats.", kLogFile, __LINE__, "loadAdvertisementStats");
  }
}

void ZTIAMStatsHelper::loadGlobalAppEventStats() {
  auto loaded = ZTSettings::getSafeDictionaryFromPreferencesWithKey<ZTIAMAppEventStats>(kGlobalAppEventStatsKey);
  {
    std::lock_guard lock(mutex_);
    globalAppEventStats_ = std::move(loaded);
  }
  if (InfoLogSwitch::logInfoEnabled()) {
    LogBridge::info("IAM: Loaded global app event stats.", kLogFile, __LINE__, "loadGlobalAppEventStats");
  }
}

void ZTIAMStatsHelper::saveAdvertisementStats() {
  queue_->performNoResultOnBackground([this] { saveSnapshot(mutex_, advertisementStats_, kAdvertisementStatsKey); },
                                      nullptr);
}

void ZTIAMStatsHelper::saveGlobalAppEventStats() {
  queue_->performNoResultOnBackground([this] { saveSnapshot(mutex_, globalAppEventStats_, kGlobalAppEventStatsKey); },
                                      nullptr);
}

ZTIAMStatsHelper::AdvertisementStatsMap ZTIAMStatsHelper::advertisementStats() const {
  std::lock_guard lock(mutex_);
  return advertisementStats_;
}

ZTIAMStatsHelper::AppEventStatsMap ZTIAMStatsHelper::globalAppEventStats() const {
  std::lock_guard lock(mutex_);
  return globalAppEventStats_;
}

void ZTIAMStatsHelper::waitUntilSavesAreFinished() { queue_->waitUntilAllOperationsAreFinished(); }

}  // namespace iam
