// App events from the host as fast as it can fire them, over a large campaign, while another thread
// taps and dismisses and the statistics save: afterwards every count is exact, in memory and in a
// new manager over the same file. Sized by IAM_LOAD_EVENTS and IAM_LOAD_ADS; the defaults take
// seconds, also under ThreadSanitizer. Prints the time, the walks still queued when the host stopped
// firing, and the peak resident memory.

#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <thread>

#include "iam/platform/ZTDispatchTools.h"
#include "iam/platform/ZTSettings.h"
#include "iam/service/AdvertisementsResponseParser.h"
#include "manager/ManagerFixture.h"
#include "tools/refservice/LargeCampaign.h"

namespace iam {
namespace {

constexpr int kEventKeys = 10;      // "screen-0" to "screen-9", as the campaign listens to them
constexpr int kEventsPerTap = 10;   // the other thread's taps and dismissals, per app event
constexpr int kEventsPerRun = 100;  // the host runs its main loop and time passes after as many
constexpr double kRunSeconds = 3600;  // of the clock, all events; held answers last a day
constexpr const char* kInvalidClick = "IAM: Invalid click action.";  // the campaign's taps do nothing

int sizeFromEnvironment(const char* name, int fallback) {
  const char* text = std::getenv(name);
  const int value = text ? std::atoi(text) : 0;
  return value > 0 ? value : fallback;
}

using Counts = std::map<std::string, std::int64_t>;

class LoadTest : public ManagerTest {
 protected:
  // Every count the manager holds that is not 0.
  Counts counted() {
    Counts out;
    auto add = [&](const std::string& name, std::int64_t n) { if (n != 0) out[name] += n; };
    for (const auto& [key, record] : manager_->statsHelper().globalAppEventStats()) add(key + " events", record->count());
    for (const auto& [id, record] : manager_->statsHelper().advertisementStats()) {
      add(id + " impressions", record->numberOfImpressions());
      add(id + " clicks", record->numberOfClicks());
      add(id + " dismisses", record->numberOfDismisses());
      for (const auto& [trigger, fired] : record->triggerStats()) add(id + " fired", fired->count());
    }
    return out;
  }
};

TEST_F(LoadTest, HostEventsTapsAndSavesKeepExactCountsAcrossARestart) {
  const int events = sizeFromEnvironment("IAM_LOAD_EVENTS", 2000);
  const int adCount = sizeFromEnvironment("IAM_LOAD_ADS", 50);
  testing::ScratchDirectory dir;
  PreferencesStore::setStandard(SQLitePreferencesStore::open(dir.file("preferences.sqlite")));
  // Held as a fresh answer, not fetched: the service would compress a large answer with brotli at
  // its slowest setting, past the request's time-out on a busy machine.
  const auto answer = AdvertisementsResponseParser().parse(
      largeCampaignAnswer(adCount).dump(), OspreyServiceContentInfo::contentInfoCreatedNow(), std::string("\"etag\""));
  ASSERT_TRUE(answer);
  ZTSettings::saveArchivableObject(*answer, ZTInAppMarketingManagerLogic::kMostRecentAdvertisementResponseKey);
  activeManager();
  auto host = std::make_shared<ShowingHost>();  // confirms every display it is asked for
  manager_->setAdvertisementHandlerDelegate(host);
  const auto ads = manager_->advertisements().value_or(AdvertisementList{});
  ASSERT_EQ(ads.size(), static_cast<std::size_t>(adCount));
  // Kept to counts: a million lines would be the largest thing in memory.
  auto unexpectedLines = std::make_shared<std::atomic<int>>(0);
  LogBridge::setSink([unexpectedLines](const LogRecord& r) {
    if (r.level >= LogLevel::Warning && r.message != kInvalidClick) ++*unexpectedLines;
  });

  Counts expected;
  Counts tapped;  // the tapping thread's until it is joined
  std::thread tapping([&, manager = manager_] {
    for (int i = 0; i < events / kEventsPerTap; ++i) {
      const auto& ad = ads[static_cast<std::size_t>(i) % ads.size()];
      const bool click = i % 2 == 0;
      ++tapped[ad->advertisementId() + (click ? " clicks" : " dismisses")];
      auto event = ZTIAMAdvertisementEventFactory::createEventWithType(
          click ? ZTIAMAdvertisementEventTypeClick : ZTIAMAdvertisementEventTypeDismiss, ad, nullptr, nullptr);
      ZTDispatchTools::onMainWithBlock([manager, event] { manager->handleAdvertisementEvent(event, nullptr, nullptr); });
    }
  });
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < events; ++i) {
    const auto key = "screen-" + std::to_string(i % kEventKeys);
    manager_->handleAppEvent(key);
    ++expected[key + " events"];
    if (i % kEventsPerRun == kEventsPerRun - 1) {
      env_.clock().advance(kRunSeconds * kEventsPerRun / events);
      RunLoop::main().runUntilIdle();
    }
  }
  std::int64_t walked = 0;
  for (const auto& [key, record] : manager_->statsHelper().globalAppEventStats()) walked += record->count();
  const std::int64_t queued = events - walked;
  tapping.join();
  // The host keeps running its loop while the walks drain, as an app does.
  ASSERT_TRUE(RunLoop::main().runUntil([] { return ZTDispatchTools::waitForBackgroundIdle(0); }, 3600));
  env_.settle();
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;

  for (const auto& id : host->shown) {
    ++expected[id + " fired"];
    ++expected[id + " impressions"];
  }
  const auto preload = ads.back()->advertisementId();
  EXPECT_EQ(expected[preload + " fired"], expected[std::string(kLargeCampaignAlwaysFiringEvent) + " events"]);
  std::int64_t interstitials = -expected[preload + " fired"];
  for (const auto& ad : ads)
    if (auto it = expected.find(ad->advertisementId() + " fired"); it != expected.end()) interstitials += it->second;
  EXPECT_GT(interstitials, 0);
  for (const auto& [name, n] : tapped) expected[name] += n;
  EXPECT_EQ(counted(), expected);
  EXPECT_EQ(unexpectedLines->load(), 0);

  dropManager();  // waits for its saves
  PreferencesStore::setStandard(SQLitePreferencesStore::open(dir.file("preferences.sqlite")));
  manager_ = ZTInAppMarketingManager::create();
  EXPECT_EQ(counted(), expected);
  dropManager();
  PreferencesStore::setStandard(env_.preferences());

  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  std::printf("load: %d app events over %d advertisements, %d taps, in %.1f s (%.0f events/s); %lld "
              "interstitials requested; %lld walks queued when the host stopped firing; peak RSS %.1f MiB\n",
              events, adCount, events / kEventsPerTap, took.count(), events / took.count(),
              static_cast<long long>(interstitials), static_cast<long long>(queued), static_cast<double>(usage.ru_maxrss) / 1024);
}

}  // namespace
}  // namespace iam
