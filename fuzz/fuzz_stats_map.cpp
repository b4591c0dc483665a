// The statistics maps as the statistics store loads them from the preferences: the input is the
// stored value under both map keys (each map keeps only the records of its own class). Every loaded
// counter then counts once; a count never goes down, grows by one unless it is at its largest, and
// what the store saves reads back to the same records.
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <span>

#include "FuzzCheck.h"
#include "iam/ArchivableClasses.h"
#include "iam/platform/InMemoryPreferencesStore.h"
#include "iam/platform/KeyedArchiver.h"
#include "iam/platform/LogBridge.h"
#include "iam/stats/ZTIAMStatsHelper.h"

namespace {

using iam::ZTIAMStatsHelper;

bool countedOnce(std::int64_t before, std::int64_t after) {
  return before == std::numeric_limits<std::int64_t>::max() ? after == before : after == before + 1;
}

void countEverything(ZTIAMStatsHelper& stats) {
  for (const auto& [id, record] : stats.advertisementStats()) {
    const auto impressions = record->numberOfImpressions();
    const auto clicks = record->numberOfClicks();
    const auto dismisses = record->numberOfDismisses();
    const auto postpones = record->numberOfPostpones();
    record->handleImpression();
    record->handleClick();
    record->handleDismiss();
    record->handlePostpone();
    FUZZ_CHECK(countedOnce(impressions, record->numberOfImpressions()));
    FUZZ_CHECK(countedOnce(clicks, record->numberOfClicks()));
    FUZZ_CHECK(countedOnce(dismisses, record->numberOfDismisses()));
    FUZZ_CHECK(countedOnce(postpones, record->numberOfPostpones()));
    for (const auto& [triggerId, trigger] : record->triggerStats()) {
      const auto fired = trigger->count();
      auto counted = record->getTriggerStatsWithTriggerId(triggerId);
      counted->incrementCount();
      FUZZ_CHECK(countedOnce(fired, counted->count()));
    }
  }
  stats.saveAdvertisementStats();
  for (const auto& [key, record] : stats.globalAppEventStats()) {
    const auto count = record->count();
    stats.handleAppEventWithKey(key);
    FUZZ_CHECK(countedOnce(count, record->count()));
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  iam::LogBridge::setSink([](const iam::LogRecord&) {});
  iam::registerArchivableClasses();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::span<const std::uint8_t> bytes(data, size);
  auto store = std::make_shared<iam::InMemoryPreferencesStore>();
  store->setData(bytes, ZTIAMStatsHelper::kAdvertisementStatsKey);
  store->setData(bytes, ZTIAMStatsHelper::kGlobalAppEventStatsKey);
  iam::PreferencesStore::setStandard(store);

  iam::Data advertisements, appEvents;
  {
    ZTIAMStatsHelper stats;
    countEverything(stats);
    stats.waitUntilSavesAreFinished();
    advertisements = iam::KeyedArchiver::archivedDataWithRootDictionary(stats.advertisementStats());
    appEvents = iam::KeyedArchiver::archivedDataWithRootDictionary(stats.globalAppEventStats());
  }
  // Nothing counted is lost across a save and a new start.
  ZTIAMStatsHelper reloaded;
  FUZZ_CHECK(iam::KeyedArchiver::archivedDataWithRootDictionary(reloaded.advertisementStats()) == advertisements);
  FUZZ_CHECK(iam::KeyedArchiver::archivedDataWithRootDictionary(reloaded.globalAppEventStats()) == appEvents);
  iam::PreferencesStore::setStandard(nullptr);
  return 0;
}
