// One app event over a held answer of n advertisements with one to three triggers each and warm
// statistics: the time the calling thread is held, and the time until the last display request of
// the walk reaches the main loop.

#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <string>

#include "iam/manager/ZTInAppMarketingManager.h"
#include "iam/platform/InMemoryPreferencesStore.h"
#include "iam/platform/LogBridge.h"
#include "iam/platform/ZTDispatchTools.h"
#include "iam/platform/ZTSettings.h"
#include "iam/service/AdvertisementsResponseParser.h"

namespace {

using namespace iam;
using nlohmann::json;
using Clock = std::chrono::steady_clock;

constexpr const char* kEvent = "screen-0";

// Review questions with triggers spread over ten screens (so about a fifth of them listen to the
// event), and at the end an interstitial preload that always fires on it.
json answer(int count) {
  json ads = json::array();
  for (int i = 0; i < count; ++i) {
    const bool last = i == count - 1;
    const std::string id = "advertisement-" + std::to_string(i);
    json triggers = json::array();
    for (int t = 0; t <= i % 3; ++t)
      triggers.push_back({{"id", id + "-" + std::to_string(t)},
                          {"key", last ? kEvent : "screen-" + std::to_string((i + 3 * t) % 10)},
                          {"thresholdCount", 1}});
    ads.push_back({{"id", id}, {"lifecycle", json::object()}, {"display", {{"id", last ? 15 : 16}}},
                   {"okAction", {{"id", 0}}}, {"dataSource", {{"id", 1}}}, {"state", {{"id", 1}}},
                   {"ignoreGlobalMinimumPopupTimeInterval", false},
                   {"resources", {{"dfpInterstitialIdentifier", "/1/x"}}}, {"triggers", triggers}});
  }
  return {{"advertisements", ads}, {"appConfig", {{"minimumPopupImpressionTimeInterval", 300}}}};
}

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

// State 1: recent impressions on every advertisement, so that popup spacing holds the review
// questions back; 0: impressions long ago, so that the first listening one is shown.
void BM_AppEvent(benchmark::State& state) {
  LogBridge::setSink([](const LogRecord&) {});
  PreferencesStore::setStandard(std::make_shared<InMemoryPreferencesStore>());
  const int count = static_cast<int>(state.range(0));
  auto response = AdvertisementsResponseParser().parse(answer(count).dump(), OspreyServiceContentInfo::contentInfoCreatedNow(),
                                                       std::string("\"etag\""));
  ZTSettings::saveArchivableObject(*response, ZTInAppMarketingManagerLogic::kMostRecentAdvertisementResponseKey);
  auto manager = ZTInAppMarketingManager::create();
  auto host = std::make_shared<Host>();
  manager->setAdvertisementHandlerDelegate(host);
  manager->setActive(true);
  for (const auto& ad : manager->advertisements().value_or(AdvertisementList{})) {
    auto record = manager->getAdvertisementStatsByAdvertisementId(ad->advertisementId());
    if (state.range(1) == 1) record->handleImpression();
    for (const auto& trigger : ad->triggers()) record->handleTriggerFired(*trigger);
  }
  for (int key = 0; key < 10; ++key) manager->statsHelper().handleAppEventWithKey("screen-" + std::to_string(key));
  ZTDispatchTools::settleForTesting();

  double callingNs = 0;
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
    callingNs += std::chrono::duration<double, std::nano>(returned - start).count();
    state.PauseTiming();
    ZTDispatchTools::settleForTesting();
    state.ResumeTiming();
  }
  state.counters["callingThreadNs"] = benchmark::Counter(callingNs, benchmark::Counter::kAvgIterations);
  ZTInAppMarketingManager::resetSharedInstanceForTesting();
  manager.reset();
  ZTDispatchTools::settleForTesting();
  PreferencesStore::setStandard(nullptr);
}

BENCHMARK(BM_AppEvent)
    ->ArgsProduct({{10, 100, 1000}, {0, 1}})
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
