// One app event over a held answer of n advertisements with one to three triggers each and warm
// statistics: the time the calling thread is held, and the time until the last display request of
// the walk reaches the main loop.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "iam/manager/ZTInAppMarketingManager.h"
#include "iam/platform/InMemoryPreferencesStore.h"
#include "iam/platform/LogBridge.h"
#include "iam/platform/ZTDispatchTools.h"
#include "iam/platform/ZTSettings.h"
#include "iam/service/AdvertisementsResponseParser.h"
#include "tools/refservice/LargeCampaign.h"

namespace {

using namespace iam;
using Clock = std::chrono::steady_clock;

constexpr const char* kEvent = kLargeCampaignAlwaysFiringEvent;

// Takes every request and notes when the preload at the end arrives; shows nothing, so the
// statistics stay as they are apart from the trigger counts.
struct Host : ZTInAppMarketingManagerAdvertisementHandlerDelegate {
  bool shouldHandleAdvertisementConfiguration(const AdvertisementConfigurationData&, ZTInAppMarketingManager&) override {
    return false;
  }
  void handleAdvertisementConfiguration(const AdvertisementConfigurationData& request, ZTInAppMarketingManager&,
                                        WillShowCompletion) override {
    if (request.advertisement()->displayType() == ZTIAMAdvertisementDisplayTypeDfpInterstitialPreload)
      arrived = Clock::now();
  }
  std::optional<Clock::time_point> arrived;
};

// The manager over the answer of `count` advertisements with warm statistics: every trigger fired
// once, and with `recentImpressions` an impression on every advertisement just now (popup spacing
// then holds the interstitials back), otherwise none (the first listening one is shown).
std::shared_ptr<ZTInAppMarketingManager> warmManager(int count, bool recentImpressions,
                                                     const std::shared_ptr<Host>& host) {
  LogBridge::setSink([](const LogRecord&) {});
  PreferencesStore::setStandard(std::make_shared<InMemoryPreferencesStore>());
  auto response = AdvertisementsResponseParser().parse(largeCampaignAnswer(count).dump(), OspreyServiceContentInfo::contentInfoCreatedNow(),
                                                       std::string("\"etag\""));
  ZTSettings::saveArchivableObject(*response, ZTInAppMarketingManagerLogic::kMostRecentAdvertisementResponseKey);
  auto manager = ZTInAppMarketingManager::create();
  manager->setAdvertisementHandlerDelegate(host);
  manager->setActive(true);
  for (const auto& ad : manager->advertisements().value_or(AdvertisementList{})) {
    auto record = manager->getAdvertisementStatsByAdvertisementId(ad->advertisementId());
    if (recentImpressions) record->handleImpression();
    for (const auto& trigger : ad->triggers()) record->handleTriggerFired(*trigger);
  }
  for (int key = 0; key < 10; ++key) manager->statsHelper().handleAppEventWithKey("screen-" + std::to_string(key));
  ZTDispatchTools::settle();
  manager->statsHelper().waitUntilSavesAreFinished();
  return manager;
}

void dropManager(std::shared_ptr<ZTInAppMarketingManager> manager) {
  ZTInAppMarketingManager::resetSharedInstanceForTesting();
  manager.reset();
  ZTDispatchTools::settle();
  PreferencesStore::setStandard(nullptr);
}

// Arguments: the number of advertisements, and 1 for recent impressions. The calling thread's
// time is given as median and 90th percentile: on a busy machine the worker that the event wakes
// may take the caller's core now and then.
void BM_AppEvent(benchmark::State& state) {
  const int count = static_cast<int>(state.range(0));
  auto host = std::make_shared<Host>();
  auto manager = warmManager(count, state.range(1) == 1, host);
  std::vector<double> calling, total, hop;
  for (auto _ : state) {
    host->arrived.reset();
    const auto start = Clock::now();
    manager->handleAppEvent(kEvent);
    const auto returned = Clock::now();
    RunLoop::main().runUntil([&] { return host->arrived.has_value(); }, 10);
    if (!host->arrived) {
      state.SkipWithError("the preload was not requested");
      break;
    }
    state.SetIterationTime(std::chrono::duration<double>(*host->arrived - start).count());
    calling.push_back(std::chrono::duration<double, std::nano>(returned - start).count());
    total.push_back(std::chrono::duration<double, std::nano>(*host->arrived - start).count());
    state.PauseTiming();
    ZTDispatchTools::settle();
    manager->statsHelper().waitUntilSavesAreFinished();  // a save must not eat into the next event
    // The hop alone, to the pool and back to the main loop with nothing done on the way.
    std::optional<Clock::time_point> back;
    const auto hopStart = Clock::now();
    ZTDispatchTools::onBackgroundWithBlock([&] { ZTDispatchTools::onMainWithBlock([&] { back = Clock::now(); }); });
    RunLoop::main().runUntil([&] { return back.has_value(); }, 10);
    if (back) hop.push_back(std::chrono::duration<double, std::nano>(*back - hopStart).count());
    ZTDispatchTools::settle();
    state.ResumeTiming();
  }
  const auto median = [](std::vector<double>& v) {
    std::sort(v.begin(), v.end());
    return v.empty() ? 0.0 : v[v.size() / 2];
  };
  if (!calling.empty()) {
    state.counters["callingMedianNs"] = median(calling);
    state.counters["callingP90Ns"] = calling[calling.size() * 9 / 10];
    // What the walk itself costs per advertisement: the event's time less an empty hop's.
    state.counters["hopMedianNs"] = median(hop);
    state.counters["afterHopPerAdNs"] = (median(total) - median(hop)) / count;
  }
  dropManager(std::move(manager));
}

// The floor of the calling thread's part: handing an empty block to an idle pool, which wakes a
// worker just as an app event does.
void BM_HandOverToIdlePool(benchmark::State& state) {
  std::vector<double> calling;
  for (auto _ : state) {
    const auto start = Clock::now();
    ZTDispatchTools::onBackgroundWithBlock([] {});
    calling.push_back(std::chrono::duration<double, std::nano>(Clock::now() - start).count());
    state.PauseTiming();
    ZTDispatchTools::settle();
    state.ResumeTiming();
  }
  std::sort(calling.begin(), calling.end());
  state.counters["callingMedianNs"] = calling[calling.size() / 2];
  state.counters["callingP90Ns"] = calling[calling.size() * 9 / 10];
}

BENCHMARK(BM_AppEvent)
    ->ArgsProduct({{10, 100, 1000}, {0, 1}})
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_HandOverToIdlePool)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
