// Cost of counting: one counted event with its queued save of the whole advertisement map into
// SQLite, beside writing the same bytes to SQLite directly; what the counting thread itself pays;
// and one save of a 300-record map (snapshot, encode, commit).
#include <benchmark/benchmark.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "iam/ArchivableClasses.h"
#include "iam/model/Advertisement.h"
#include "iam/model/AdvertisementTrigger.h"
#include "iam/platform/KeyedArchiver.h"
#include "iam/platform/PreferencesStore.h"
#include "iam/platform/ZTSettings.h"
#include "iam/stats/ZTIAMAdvertisementEvent.h"
#include "iam/stats/ZTIAMStatsHelper.h"
#include "iam/platform/SQLitePreferencesStore.h"

namespace {

using namespace iam;

double threadCpuSeconds() {
  timespec ts{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

// A statistics store over a fresh SQLite file holding `records` advertisement records shaped as in
// use: counters, dates and two trigger records each.
class Fixture {
 public:
  explicit Fixture(int records) {
    dir_ = std::filesystem::temp_directory_path() /
           ("iam-stats-bench-" + std::to_string(::getpid()) + "-" + std::to_string(records) + "-" +
            std::to_string(std::chrono::steady_clock::now().time_since_epoch().count()));
    std::filesystem::create_directories(dir_);
    store_ = SQLitePreferencesStore::open((dir_ / "preferences.sqlite").string());
    PreferencesStore::setStandard(store_);
    helper_ = std::make_unique<ZTIAMStatsHelper>();
    for (int i = 0; i < records; ++i) {
      char id[16];
      std::snprintf(id, sizeof id, "ad-%06d", i);
      auto record = helper_->getAdvertisementStatsByAdvertisementId(id);
      record->handleImpression();
      record->handleClick();
      record->getTriggerStatsWithTriggerId(std::string(id) + "-launch")->incrementCount();
      record->getTriggerStatsWithTriggerId(std::string(id) + "-level")->incrementCount();
    }
    advertisement_ = std::make_shared<Advertisement>("ad-000000");
    trigger_ = std::make_shared<AdvertisementTrigger>("ad-000000-launch", "appToForeground");
    trigger_->setAdvertisement(advertisement_);
    event_ = ZTIAMAdvertisementEventFactory::createEventWithType(ZTIAMAdvertisementEventTypeImpression, advertisement_,
                                                                 trigger_, nullptr);
    helper_->saveAdvertisementStats();
    helper_->waitUntilSavesAreFinished();
  }
  ~Fixture() {
    helper_.reset();
    PreferencesStore::setStandard(nullptr);
    store_.reset();
    std::error_code ignored;
    std::filesystem::remove_all(dir_, ignored);
  }

  ZTIAMStatsHelper& helper() { return *helper_; }
  PreferencesStore& store() { return *store_; }
  const ZTIAMAdvertisementEvent& event() const { return *event_; }
  Data archivedMap() const { return KeyedArchiver::archivedDataWithRootDictionary(helper_->advertisementStats()); }

 private:
  std::filesystem::path dir_;
  std::shared_ptr<SQLitePreferencesStore> store_;
  std::unique_ptr<ZTIAMStatsHelper> helper_;
  std::shared_ptr<Advertisement> advertisement_;
  std::shared_ptr<AdvertisementTrigger> trigger_;
  std::shared_ptr<ZTIAMAdvertisementEvent> event_;
};

// One counted event and its save, run to the end: what the event costs the process.
void BM_CountedEventWithQueuedSave(benchmark::State& state) {
  Fixture f(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    f.helper().handleAdvertisementImpression(f.event());
    f.helper().waitUntilSavesAreFinished();
  }
  state.counters["map_bytes"] = static_cast<double>(f.archivedMap().size());
}
BENCHMARK(BM_CountedEventWithQueuedSave)->Arg(10)->Arg(100)->Arg(1000)->Unit(benchmark::kMicrosecond)->UseRealTime();

// The same bytes written straight into the store, for comparison.
void BM_DirectSQLiteWriteOfTheSameBytes(benchmark::State& state) {
  Fixture f(static_cast<int>(state.range(0)));
  const Data bytes = f.archivedMap();
  for (auto _ : state) {
    benchmark::DoNotOptimize(f.store().setData(bytes, ZTIAMStatsHelper::kAdvertisementStatsKey));
  }
  state.counters["map_bytes"] = static_cast<double>(bytes.size());
}
BENCHMARK(BM_DirectSQLiteWriteOfTheSameBytes)
    ->Arg(10)
    ->Arg(100)
    ->Arg(1000)
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime();

// What the counting thread spends per event while the saves run on the store's queue. Events
// come in bursts of 64; the queue drains between bursts, outside the measured time.
void BM_CallingThreadPerCountedEvent(benchmark::State& state) {
  Fixture f(static_cast<int>(state.range(0)));
  constexpr int kBurst = 64;
  std::vector<double> perCall;
  perCall.reserve(static_cast<std::size_t>(kBurst) * 256);
  double cpuSeconds = 0;
  std::int64_t events = 0;
  for (auto _ : state) {
    const double cpuBegin = threadCpuSeconds();
    double wall = 0;
    for (int i = 0; i < kBurst; ++i) {
      const auto begin = std::chrono::steady_clock::now();
      f.helper().handleAdvertisementImpression(f.event());
      const double call = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
      wall += call;
      perCall.push_back(call);
    }
    cpuSeconds += threadCpuSeconds() - cpuBegin;
    events += kBurst;
    state.SetIterationTime(wall / kBurst);
    f.helper().waitUntilSavesAreFinished();
  }
  // On a loaded machine the mean carries the odd preemption of this thread; the median and the
  // thread's own CPU time show what the call costs.
  std::sort(perCall.begin(), perCall.end());
  state.counters["median_ns"] = perCall[perCall.size() / 2] * 1e9;
  state.counters["p99_ns"] = perCall[perCall.size() * 99 / 100] * 1e9;
  state.counters["cpu_ns"] = cpuSeconds / static_cast<double>(events) * 1e9;
}
// Measured time is only the calls; a fixed count keeps the untimed draining bounded.
BENCHMARK(BM_CallingThreadPerCountedEvent)
    ->Arg(10)
    ->Arg(100)
    ->Arg(1000)
    ->UseManualTime()
    ->Iterations(200)
    ->Unit(benchmark::kNanosecond);

// One save of a 300-record map as the save task does it, on this thread: encode into the previous
// archive's memory, then commit.
void BM_SaveOf300RecordMap(benchmark::State& state) {
  Fixture f(300);
  const auto map = f.helper().advertisementStats();
  Data storage;
  for (auto _ : state) {
    KeyedArchiver archiver(std::move(storage));
    archiver.writeObjectMap(map);
    storage = archiver.takeData();
    benchmark::DoNotOptimize(ZTSettings::saveArchivedData(storage, ZTIAMStatsHelper::kAdvertisementStatsKey));
  }
}
BENCHMARK(BM_SaveOf300RecordMap)->Unit(benchmark::kMicrosecond)->UseRealTime();

// Its two halves.
void BM_EncodeOf300RecordMap(benchmark::State& state) {
  Fixture f(300);
  const auto map = f.helper().advertisementStats();
  Data storage;
  for (auto _ : state) {
    KeyedArchiver archiver(std::move(storage));
    archiver.writeObjectMap(map);
    storage = archiver.takeData();
    benchmark::DoNotOptimize(storage.data());
  }
  state.counters["map_bytes"] = static_cast<double>(storage.size());
}
BENCHMARK(BM_EncodeOf300RecordMap)->Unit(benchmark::kMicrosecond)->UseRealTime();

void BM_CommitOf300RecordMap(benchmark::State& state) {
  Fixture f(300);
  const Data bytes = f.archivedMap();
  for (auto _ : state) {
    benchmark::DoNotOptimize(f.store().setData(bytes, ZTIAMStatsHelper::kAdvertisementStatsKey));
  }
  state.counters["map_bytes"] = static_cast<double>(bytes.size());
}
BENCHMARK(BM_CommitOf300RecordMap)->Unit(benchmark::kMicrosecond)->UseRealTime();

// The same save through the store's queue, hand-off to its thread included.
void BM_QueuedSaveOf300RecordMap(benchmark::State& state) {
  Fixture f(300);
  for (auto _ : state) {
    f.helper().saveAdvertisementStats();
    f.helper().waitUntilSavesAreFinished();
  }
}
BENCHMARK(BM_QueuedSaveOf300RecordMap)->Unit(benchmark::kMicrosecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
