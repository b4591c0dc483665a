#pragma once

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

#include "iam/manager/InAppMarketingPreferencesStorage.h"
#include "iam/manager/ZTInAppMarketingManager.h"
#include "iam/platform/Bundle.h"
#include "iam/platform/SQLitePreferencesStore.h"
#include "iam/service/IAMWebService.h"
#include "platform/ScratchDirectory.h"
#include "testing/PlatformDoubles.h"
#include "testing/TestEnvironment.h"
#include "tools/refservice/ReferenceMarketingService.h"

namespace iam {
namespace {

using nlohmann::json;
constexpr const char* kAds = ReferenceMarketingService::kAdvertisementsMethod;
constexpr const char* kRanked = ReferenceMarketingService::kNativeQualityNetworkMethod;
constexpr double kDay = 86400;

// One advertisement as the service sends it; `extra` adds or replaces members. Interstitials carry
// the identifier they need.
json ad(const std::string& id, int display, json extra = json::object()) {
  json a{{"id", id}, {"lifecycle", json::object()}, {"display", {{"id", display}}}, {"okAction", {{"id", 0}}},
         {"dataSource", {{"id", 1}}}, {"state", {{"id", 1}}}, {"ignoreGlobalMinimumPopupTimeInterval", false},
         {"resources", {{"dfpInterstitialIdentifier", "/1/x"}}}};
  a.update(extra);
  return a;
}

// Review questions named `ids` after the advertisements of `list`.
std::string adsAnswer(const std::vector<std::string>& ids, int interval = 90, json list = json::array()) {
  for (const auto& id : ids) list.push_back(ad(id, 16));
  return json{{"advertisements", list}, {"appConfig", {{"minimumPopupImpressionTimeInterval", interval}}}}.dump();
}

std::vector<std::string> ids(const std::optional<AdvertisementList>& ads) {
  std::vector<std::string> out;
  for (const auto& ad : ads.value_or(AdvertisementList{})) out.push_back(ad->advertisementId());
  return out;
}

// Writes down, in order, what the manager told it.
struct RecordingObserver : ZTInAppMarketingManagerDelegate {
  void inAppMarketingManager(ZTInAppMarketingManager&, const std::optional<AdvertisementList>& ads) override {
    calls->push_back("ads:" + std::to_string(ids(ads).size()));
  }
  void inAppMarketingManager(ZTInAppMarketingManager&, const std::optional<RankedAppList>& apps) override {
    calls->push_back("ranked:" + std::to_string(apps ? apps->size() : 0));
  }
  void inAppMarketingManager(ZTInAppMarketingManager&, const std::shared_ptr<ZTIAMAppConfigType>& now,
                             const std::shared_ptr<ZTIAMAppConfigType>& old) override {
    calls->push_back(now == old ? "config:same" : "config:new");
  }
  // Outlives the observer, so that a test can see that a released one is not called.
  std::shared_ptr<std::vector<std::string>> calls = std::make_shared<std::vector<std::string>>();
};

class ManagerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    service_.setAnswer(kAds, adsAnswer({"a", "b"}));
    service_.setAnswer(kRanked, R"({"rankedApps":[{"id":"r1","priorityId":1,"advertisedApp":{"id":"x"}}]})");
    ASSERT_TRUE(service_.start());
    IAMWebService::setDefaultBaseUrl(service_.baseUrl());
  }
  void TearDown() override {
    dropManager();
    IAMWebService::setDefaultBaseUrl(std::nullopt);
    Bundle::mainBundle().setInfoDictionaryValue("CFBundleShortVersionString", std::nullopt);
  }

  // Lets the manager go as an app that ends does: its saves finish first.
  void dropManager() {
    ZTInAppMarketingManager::resetSharedInstanceForTesting();
    manager_.reset();
    env_.settle();
  }
  // Runs the main loop until no request of the manager is in flight, then lets saves finish.
  void finishRequests() {
    ASSERT_TRUE(RunLoop::main().runUntil(
        [&] { return !manager_->activeAdvertisementsRequestTicket() && !manager_->activeNativeQualityNetworkRequestTicket(); },
        10));
    env_.settle();
  }
  void activeManager() {
    manager_ = ZTInAppMarketingManager::create();
    manager_->addDelegate(observer_);
    manager_->setActive(true);
    finishRequests();
  }

  testing::TestEnvironment env_;
  testing::PlatformDoubles platform_;
  ReferenceMarketingService service_;
  std::shared_ptr<RecordingObserver> observer_ = std::make_shared<RecordingObserver>();
  std::shared_ptr<ZTInAppMarketingManager> manager_;
};

// A host that takes every request, writes down its advertisement (" still" when not animated)
// and confirms that it shows it.
struct ShowingHost : ZTInAppMarketingManagerAdvertisementHandlerDelegate {
  bool shouldHandleAdvertisementConfiguration(const AdvertisementConfigurationData&, ZTInAppMarketingManager&) override {
    return false;
  }
  void handleAdvertisementConfiguration(const AdvertisementConfigurationData& r, ZTInAppMarketingManager&,
                                        WillShowCompletion completion) override {
    shown.push_back(r.advertisement()->advertisementId() + (r.animated() ? "" : " still"));
    if (completion) completion(true);
  }
  std::vector<std::string> shown;
};

class AppEventTest : public ManagerTest {
 protected:
  // The service's ids of the two interstitial display types.
  static constexpr int kInterstitial = 14, kPreload = 15;
  static inline const json kExpired = {{"endTimestamp", 1}};

  // Active over `list` (popups spaced by no more than a clock second) with the showing host.
  void start(const json& list) {
    service_.setAnswer(kAds, adsAnswer({}, 0, list));
    activeManager();
    manager_->setAdvertisementHandlerDelegate(host_);
  }
  // Fires `key` a second after the last event; what the host was given for it.
  std::vector<std::string> fire(const std::string& key) {
    host_->shown.clear();
    env_.clock().advance(1);
    manager_->handleAppEvent(key);
    env_.settle();
    return host_->shown;
  }
  std::shared_ptr<ZTIAMAdvertisementStats> stats(const std::string& id) { return manager_->getAdvertisementStatsByAdvertisementId(id); }
  std::int64_t fired(const std::string& id, const std::string& trigger) {
    return stats(id)->getTriggerStatsWithTriggerId(trigger)->count();
  }
  std::int64_t events(const std::string& key) { return manager_->getAppEventStatsByEventKey(key)->count(); }
  static json on(const std::string& id, const std::string& key, json trigger = json::object()) {
    trigger.update({{"id", id}, {"key", key}});
    return trigger;
  }
  std::shared_ptr<ShowingHost> host_ = std::make_shared<ShowingHost>();
};

}  // namespace
}  // namespace iam
