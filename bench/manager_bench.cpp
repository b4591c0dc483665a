// Cold start of the manager: from its construction over SQLite preferences that hold a cached
// answer and its statistics until its getters answer, against the floor of reading the same
// stored bytes from SQLite and unpacking them as MessagePack alone.

#include <benchmark/benchmark.h>
#include <msgpack.hpp>
#include <nlohmann/json.hpp>

#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>

#include "iam/manager/ZTInAppMarketingManager.h"
#include "iam/platform/LogBridge.h"
#include "iam/platform/SQLitePreferencesStore.h"
#include "iam/platform/ZTSettings.h"
#include "iam/service/AdvertisementsResponseParser.h"
#include "iam/stats/ZTIAMStatsHelper.h"

namespace {

using namespace iam;
using nlohmann::json;

// Shaped like a campaign item of the service: texts and images as resources, triggers, targets,
// the advertised app with its store data.
json advertisement(int i) {
  const std::string id = "advertisement-" + std::to_string(i);
  json resources = json::object();
  for (int r = 0; r < 14; ++r)
    resources["resource-" + std::to_string(r)] =
        r % 3 == 0 ? "https://cdn.example.com/campaigns/" + id + "/image-" + std::to_string(r) + ".png"
                   : "Plan your week with ease, premium widgets synced across devices " + std::to_string(r);
  json triggers = json::array();
  for (int t = 0; t < 2; ++t)
    triggers.push_back({{"id", id + "-trigger-" + std::to_string(t)},
                        {"key", t == 0 ? "appToForeground" : "screen - settings"},
                        {"thresholdCount", 1 + t},
                        {"displayDelay", 0.5},
                        {"maxFireCount", 3},
                        {"repeatIntervalCount", 5}});
  json targets = json::array({{{"id", id + "-target"}, {"key", "feed"}, {"customViewClass", "PromoCell"},
                               {"rowIndex", 2}, {"rowRepeatInterval", 10}, {"sectionIndex", 0},
                               {"sectionRepeatInterval", 1}}});
  const std::string storeUrl = "https://apps.example.com/app/id" + std::to_string(300000000 + i);
  return {{"id", id},
          {"name", "Campaign " + std::to_string(i)},
          {"lifecycle", {{"startTimestamp", 1.7e9}, {"endTimestamp", 1.8e9}, {"maxImpressionCount", 5},
                         {"postponeEnabled", true}, {"postponeDelay", 7200.0}}},
          {"display", {{"id", 16}}},
          {"okAction", {{"id", 2}, {"url", storeUrl}}},
          {"dataSource", {{"id", 1}}},
          {"state", {{"id", 1}}},
          {"ignoreGlobalMinimumPopupTimeInterval", false},
          {"advertisedApp",
           {{"id", "app-" + std::to_string(i)},
            {"packageName", "com.example.app" + std::to_string(i)},
            {"publisher", "Example Apps GmbH"},
            {"storeUrl", storeUrl},
            {"rating", 4.5},
            {"free", true},
            {"resources", {{"name", "Calendar " + std::to_string(i)}}},
            {"storeInfo", {{"id", 300000000 + i}, {"bundleId", "com.example.app" + std::to_string(i)},
                           {"name", "Calendar"}, {"subtitle", "Plan your week"},
                           {"icon", {{"60", "https://is1.example.com/" + id + "/60.png"},
                                     {"512", "https://is1.example.com/" + id + "/512.png"}}}}}}},
          {"resources", resources},
          {"triggers", triggers},
          {"targets", targets}};
}

// A SQLite file per size holding the answer and statistics for every advertisement, as a host
// has them after a while.
class StoredState {
 public:
  explicit StoredState(int count)
      : path_(std::filesystem::temp_directory_path() /
              ("iam-manager-bench-" + std::to_string(::getpid()) + "-" + std::to_string(count) + ".sqlite")) {
    std::filesystem::remove(path_);
    store_ = SQLitePreferencesStore::open(path_.string());
    PreferencesStore::setStandard(store_);
    json ads = json::array();
    for (int i = 0; i < count; ++i) ads.push_back(advertisement(i));
    const json answer = {{"advertisements", ads}, {"appConfig", {{"minimumPopupImpressionTimeInterval", 300}}}};
    auto response = AdvertisementsResponseParser().parse(answer.dump(), OspreyServiceContentInfo::contentInfoCreatedNow(),
                                                         std::string("\"etag\""));
    ZTSettings::saveArchivableObject(*response, ZTInAppMarketingManagerLogic::kMostRecentAdvertisementResponseKey);
    {
      ZTIAMStatsHelper stats;
      // Counted on the records, then saved once: a save per count would write the map n times.
      for (const auto& ad : response->advertisements()) {
        auto record = stats.getAdvertisementStatsByAdvertisementId(ad->advertisementId());
        record->handleImpression();
        for (const auto& trigger : ad->triggers()) record->handleTriggerFired(*trigger);
      }
      stats.saveAdvertisementStats();
      for (int key = 0; key < 20; ++key) stats.handleAppEventWithKey("screen-" + std::to_string(key));
      stats.waitUntilSavesAreFinished();
    }
    // Opened again, as at the next start: closing the last connection moves the journal into the file.
    PreferencesStore::setStandard(nullptr);
    store_.reset();
    store_ = SQLitePreferencesStore::open(path_.string());
    PreferencesStore::setStandard(store_);
    for (auto key : {ZTInAppMarketingManagerLogic::kMostRecentAdvertisementResponseKey,
                     ZTIAMStatsHelper::kAdvertisementStatsKey, ZTIAMStatsHelper::kGlobalAppEventStatsKey})
      bytes_ += store_->dataForKey(key)->size();
  }
  ~StoredState() {
    PreferencesStore::setStandard(nullptr);
    store_.reset();
    std::filesystem::remove(path_);
  }
  std::size_t bytes() const { return bytes_; }
  PreferencesStore& store() { return *store_; }
  void install() { PreferencesStore::setStandard(store_); }

 private:
  std::filesystem::path path_;
  std::shared_ptr<SQLitePreferencesStore> store_;
  std::size_t bytes_ = 0;
};

StoredState& stored(int count) {
  static std::map<int, std::unique_ptr<StoredState>> states;
  auto& state = states[count];
  if (!state) state = std::make_unique<StoredState>(count);
  state->install();
  return *state;
}

void BM_ManagerColdStart(benchmark::State& state) {
  LogBridge::setSink([](const LogRecord&) {});
  auto& data = stored(static_cast<int>(state.range(0)));
  std::size_t ads = 0;
  for (auto _ : state) {
    auto manager = ZTInAppMarketingManager::create();
    ads = manager->advertisements().value_or(AdvertisementList{}).size();
    benchmark::DoNotOptimize(manager->getAdvertisementStatsByAdvertisementId("advertisement-0"));
    state.PauseTiming();
    ZTInAppMarketingManager::resetSharedInstanceForTesting();
    manager.reset();
    state.ResumeTiming();
  }
  if (ads != static_cast<std::size_t>(state.range(0))) state.SkipWithError("the cached answer was not loaded");
  state.counters["storedBytes"] = static_cast<double>(data.bytes());
}

// The parts of a cold start: the cached answer alone, and the statistics store alone.
void BM_LoadCachedAnswer(benchmark::State& state) {
  stored(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    auto response = ZTSettings::getUnarchivedObjectOfClassForKey<AdvertisementsRequestResponse>(
        ZTInAppMarketingManagerLogic::kMostRecentAdvertisementResponseKey);
    benchmark::DoNotOptimize(response);
    state.PauseTiming();
    response.reset();
    state.ResumeTiming();
  }
}

void BM_LoadStatistics(benchmark::State& state) {
  stored(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    auto stats = std::make_unique<ZTIAMStatsHelper>();
    benchmark::DoNotOptimize(stats);
    state.PauseTiming();
    stats.reset();
    state.ResumeTiming();
  }
}

// The floor: the same three values read from the same store and unpacked, nothing built from them.
void BM_ReadAndUnpackBaseline(benchmark::State& state) {
  auto& data = stored(static_cast<int>(state.range(0)));
  std::size_t read = 0;
  for (auto _ : state) {
    read = 0;
    for (auto key : {ZTInAppMarketingManagerLogic::kMostRecentAdvertisementResponseKey,
                     ZTIAMStatsHelper::kAdvertisementStatsKey, ZTIAMStatsHelper::kGlobalAppEventStatsKey}) {
      auto bytes = data.store().dataForKey(key);
      msgpack::object_handle handle = msgpack::unpack(reinterpret_cast<const char*>(bytes->data()), bytes->size());
      benchmark::DoNotOptimize(handle.get());
      read += bytes->size();
    }
  }
  state.counters["storedBytes"] = static_cast<double>(read);
}

BENCHMARK(BM_ManagerColdStart)->Arg(100)->Arg(1000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_LoadCachedAnswer)->Arg(1000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_LoadStatistics)->Arg(1000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ReadAndUnpackBaseline)->Arg(100)->Arg(1000)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
