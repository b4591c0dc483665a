// Start-up cost of the keyed archive: the cached statistics map is decoded on every launch.
#include <benchmark/benchmark.h>

#include <map>
#include <memory>
#include <string>

#include "iam/platform/KeyedArchiver.h"
#include "iam/platform/KeyedUnarchiver.h"

namespace {

using namespace iam;

// Shaped like a statistics record: counters, dates and a map of nested records.
struct Trigger : Archivable {
  static constexpr std::string_view kArchiveClassName = "BenchTrigger";
  std::string triggerId;
  std::int64_t count = 0;
  Date last;
  std::string_view archiveClassName() const override { return kArchiveClassName; }
  void encodeWithCoder(KeyedArchiver& c) const override {
    c.encodeString(triggerId, "_triggerId");
    c.encodeInteger(count, "_count");
    c.encodeDate(last, "_mostRecentOccurrence");
  }
  static std::shared_ptr<Trigger> initWithCoder(const KeyedUnarchiver& c) {
    auto t = std::make_shared<Trigger>();
    t->triggerId = c.decodeStringForKey("_triggerId").value_or("");
    t->count = c.decodeIntegerForKey("_count");
    t->last = c.decodeDateForKey("_mostRecentOccurrence").value_or(Date());
    return t;
  }
};

struct Stats : Archivable {
  static constexpr std::string_view kArchiveClassName = "BenchStats";
  std::string advertisementId;
  std::int64_t impressions = 0, clicks = 0, dismissals = 0, postpones = 0;
  Date firstImpression, lastImpression;
  std::map<std::string, std::shared_ptr<Trigger>> triggers;
  std::string_view archiveClassName() const override { return kArchiveClassName; }
  void encodeWithCoder(KeyedArchiver& c) const override {
    c.encodeString(advertisementId, "_advertisementId");
    c.encodeInteger(impressions, "_numberOfImpressions");
    c.encodeInteger(clicks, "_numberOfClicks");
    c.encodeInteger(dismissals, "_numberOfDismissals");
    c.encodeInteger(postpones, "_numberOfPostpones");
    c.encodeDate(firstImpression, "_firstImpressionDate");
    c.encodeDate(lastImpression, "_lastImpressionDate");
    c.encodeObjectMap(triggers, "_triggerStats");
  }
  static std::shared_ptr<Stats> initWithCoder(const KeyedUnarchiver& c) {
    auto s = std::make_shared<Stats>();
    s->advertisementId = c.decodeStringForKey("_advertisementId").value_or("");
    s->impressions = c.decodeIntegerForKey("_numberOfImpressions");
    s->clicks = c.decodeIntegerForKey("_numberOfClicks");
    s->dismissals = c.decodeIntegerForKey("_numberOfDismissals");
    s->postpones = c.decodeIntegerForKey("_numberOfPostpones");
    s->firstImpression = c.decodeDateForKey("_firstImpressionDate").value_or(Date());
    s->lastImpression = c.decodeDateForKey("_lastImpressionDate").value_or(Date());
    s->triggers = c.decodeDictionaryOfObjectsOfClassForKey<Trigger>("_triggerStats", false).value_or(s->triggers);
    return s;
  }
};

std::map<std::string, std::shared_ptr<Stats>> makeStats(int records) {
  std::map<std::string, std::shared_ptr<Stats>> map;
  for (int i = 0; i < records; ++i) {
    auto s = std::make_shared<Stats>();
    s->advertisementId = "advertisement-" + std::to_string(i);
    s->impressions = i;
    s->lastImpression = dateWithTimeIntervalSince1970(1.7e9 + i + 0.25);
    for (int t = 0; t < 3; ++t) {
      auto trig = std::make_shared<Trigger>();
      trig->triggerId = "trigger-" + std::to_string(t);
      trig->count = t;
      trig->last = s->lastImpression;
      s->triggers.emplace(trig->triggerId, trig);
    }
    map.emplace(s->advertisementId, s);
  }
  return map;
}

void BM_EncodeStatsMap(benchmark::State& state) {
  const auto map = makeStats(static_cast<int>(state.range(0)));
  std::size_t size = 0;
  for (auto _ : state) {
    Data d = KeyedArchiver::archivedDataWithRootDictionary(map);
    size = d.size();
    benchmark::DoNotOptimize(d.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * size));
  state.counters["bytes"] = static_cast<double>(size);
}
BENCHMARK(BM_EncodeStatsMap)->Arg(1000);

// Unpacking alone: shape check plus arena, every string left in place.
void BM_UnpackOnly(benchmark::State& state) {
  const Data d = KeyedArchiver::archivedDataWithRootDictionary(makeStats(static_cast<int>(state.range(0))));
  for (auto _ : state) {
    std::size_t n = 0;
    KeyedUnarchiver::withArchive(d, [&](const ArchiveValue& root) { n = root.size(); });
    benchmark::DoNotOptimize(n);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * d.size()));
}
BENCHMARK(BM_UnpackOnly)->Arg(1000);

// What a launch pays: the bytes back into records.
void BM_DecodeStatsMap(benchmark::State& state) {
  const Data d = KeyedArchiver::archivedDataWithRootDictionary(makeStats(static_cast<int>(state.range(0))));
  for (auto _ : state) {
    auto map = KeyedUnarchiver::unarchivedDictionaryOfClass<Stats>(d);
    benchmark::DoNotOptimize(map);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * d.size()));
}
BENCHMARK(BM_DecodeStatsMap)->Arg(1000);

}  // namespace

BENCHMARK_MAIN();
