#include "manager/ManagerFixture.h"

namespace iam {
namespace {

TEST_F(ManagerTest, ActivationFetchesInTheForegroundAndWaitsInTheBackground) {
  env_.setInfoLogEnabled(true);
  activeManager();
  EXPECT_TRUE(env_.log().contains("IAM: Activating the in app marketing manager."));
  EXPECT_EQ(service_.requestCount(kAds), 1u);
  auto timer = manager_->autoUpdateTimer();
  ASSERT_TRUE(timer);
  manager_->setActive(true);  // same value: nothing
  EXPECT_EQ(manager_->autoUpdateTimer(), timer);
  env_.advance(95);  // the timer only asks whether the data expired
  EXPECT_EQ(service_.requestCount(kAds), 1u);
  platform_.application().setApplicationState(UIApplicationStateBackground);
  EXPECT_FALSE(manager_->autoUpdateTimer());

  // A second manager becomes the shared one; activated in the background it waits.
  env_.setInfoLogEnabled(false);
  env_.log().clear();
  auto first = manager_;
  manager_ = ZTInAppMarketingManager::create();
  EXPECT_EQ(ZTInAppMarketingManager::sharedInstance(), manager_);
  first->setActive(false);
  manager_->setActive(true);
  EXPECT_TRUE(env_.log().messages().empty());  // info lines are off
  env_.clock().advance(2 * kDay);
  EXPECT_FALSE(manager_->autoUpdateTimer());
  EXPECT_FALSE(manager_->activeAdvertisementsRequestTicket());
  platform_.application().setApplicationState(UIApplicationStateActive);
  EXPECT_TRUE(manager_->autoUpdateTimer());
  EXPECT_FALSE(first->autoUpdateTimer());  // inactive: becoming active starts nothing
  finishRequests();
  EXPECT_EQ(service_.requestCount(kAds), 2u);
}

TEST_F(ManagerTest, NotModifiedRenewsTheContentInfoAndStillTellsObserversAFailureChangesNothing) {
  activeManager();
  const auto response = manager_->mostRecentAdvertisementResponse();
  const auto etag = response->etag();
  observer_->calls->clear();
  env_.clock().advance(2 * kDay);
  const Date expiredAt = env_.clock().now();
  env_.advance(30);  // the timer finds the data expired
  finishRequests();
  EXPECT_EQ(service_.lastRequest()->ifNoneMatch, etag);
  EXPECT_EQ(service_.lastRequest()->answeredStatus, 304);
  EXPECT_EQ(manager_->mostRecentAdvertisementResponse(), response);
  const Date renewed = response->contentInfo()->localCreatedAt();
  EXPECT_GE(renewed, expiredAt);
  EXPECT_EQ(*observer_->calls, (std::vector<std::string>{"ads:2", "config:same"}));
  // Saved: a new manager reads the renewed content info, and being fresh it asks for nothing.
  env_.setInfoLogEnabled(true);
  auto restarted = ZTInAppMarketingManager::create();
  EXPECT_TRUE(env_.log().contains("IAM: Cached advertisement response found."));
  EXPECT_EQ(restarted->mostRecentAdvertisementResponse()->contentInfo()->localCreatedAt(), renewed);
  restarted->setActive(true);
  EXPECT_FALSE(restarted->activeAdvertisementsRequestTicket());
  restarted->setActive(false);

  const auto cached = env_.preferences()->dataForKey(ZTInAppMarketingManagerLogic::kMostRecentAdvertisementResponseKey);
  observer_->calls->clear();
  service_.failWithStatus(500);
  manager_->performAdvertisementUpdateCall();
  finishRequests();
  const auto errors = env_.log().messages(LogLevel::Error);
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_TRUE(errors[0].starts_with("IAM: Unable to retrieve advertisements: ")) << errors[0];
  EXPECT_EQ(manager_->mostRecentAdvertisementResponse(), response);
  EXPECT_TRUE(manager_->oldAdvertisements().empty());
  EXPECT_TRUE(observer_->calls->empty());
  EXPECT_EQ(env_.preferences()->dataForKey(ZTInAppMarketingManagerLogic::kMostRecentAdvertisementResponseKey), cached);
}

TEST_F(ManagerTest, NewAnswerKeepsTheReplacedAdsAndFetchesRankedAppsOnlyWhenNeeded) {
  activeManager();
  manager_->setActive(false);  // no timer: only the calls below fetch
  EXPECT_EQ(service_.requestCount(kRanked), 0u);  // not enabled
  manager_->setNativeQualityNetworkEnabled(true);    // missing: fetched at once
  finishRequests();
  EXPECT_EQ(service_.requestCount(kRanked), 1u);
  const auto replaced = manager_->advertisements().value();

  observer_->calls->clear();
  service_.setAnswer(kAds, adsAnswer({"c", "a", "c"}, 60));
  manager_->setBoughtAdFreeUpgrade(true);
  finishRequests();
  EXPECT_EQ(*observer_->calls, (std::vector<std::string>{"config:new", "ads:3"}));
  EXPECT_EQ(manager_->getAdvertisementByAdvertisementId("c"), manager_->advertisements()->front());
  EXPECT_EQ(manager_->oldAdvertisements().size(), 2u);
  for (const auto& ad : replaced) EXPECT_TRUE(manager_->oldAdvertisements().contains(ad));
  EXPECT_EQ(service_.requestCount(kRanked), 1u);  // still fresh

  env_.clock().advance(2 * kDay);
  service_.setAnswer(kAds, adsAnswer({"d"}));
  manager_->setBoughtAdFreeUpgrade(false);
  finishRequests();
  EXPECT_EQ(service_.requestCount(kRanked), 2u);  // expired: fetched after the answer
  EXPECT_EQ(observer_->calls->back(), "ranked:1");
  EXPECT_EQ(manager_->oldAdvertisements().size(), 5u);
}

TEST_F(ManagerTest, ResetAndResetAllStatsEachLeaveTheOtherHalfAlone) {
  activeManager();
  manager_->setNativeQualityNetworkEnabled(true);
  finishRequests();
  manager_->statsHelper().handleAppEventWithKey("opened");
  manager_->resetAllStats();
  EXPECT_EQ(manager_->getAppEventStatsByEventKey("opened")->count(), 0);
  EXPECT_EQ(ids(manager_->advertisements()), (std::vector<std::string>{"a", "b"}));

  manager_->statsHelper().handleAppEventWithKey("opened");
  manager_->reset();
  env_.settle();
  EXPECT_FALSE(manager_->advertisements());
  EXPECT_TRUE(manager_->nativeQualityNetworkRankedApps());
  EXPECT_EQ(manager_->getAppEventStatsByEventKey("opened")->count(), 1);
  auto restarted = ZTInAppMarketingManager::create();
  EXPECT_FALSE(restarted->advertisements());
  EXPECT_TRUE(restarted->nativeQualityNetworkRankedApps());
}

TEST_F(ManagerTest, TwoUpdateCallsMakeOneRequestAndAReleasedObserverIsNoLongerCalled) {
  manager_ = ZTInAppMarketingManager::create();
  auto leaving = std::make_shared<RecordingObserver>();
  manager_->addDelegate(observer_);
  manager_->addDelegate(observer_);
  manager_->addDelegate(leaving);
  EXPECT_EQ(manager_->delegates().size(), 2u);
  const auto leavingCalls = leaving->calls;
  manager_->performAdvertisementUpdateCall();
  manager_->performAdvertisementUpdateCall();
  finishRequests();
  EXPECT_EQ(service_.requestCount(kAds), 1u);
  EXPECT_EQ(*leavingCalls, *observer_->calls);
  manager_->forceRefreshOfData();           // inactive: nothing
  manager_->setBoughtAdFreeUpgrade(false);  // unchanged: nothing
  EXPECT_FALSE(manager_->activeAdvertisementsRequestTicket());
  leaving.reset();
  manager_->setBoughtAdFreeUpgrade(true);  // changed: fetches while inactive, with the flag
  finishRequests();
  EXPECT_EQ(json::parse(service_.lastRequest()->body).at("boughtAdFree"), true);
  EXPECT_EQ(observer_->calls->size(), 4u);
  EXPECT_EQ(leavingCalls->size(), 2u);
  EXPECT_EQ(manager_->delegates().size(), 1u);
  manager_->removeDelegate(observer_);
  manager_->setBoughtAdFreeUpgrade(false);
  finishRequests();
  EXPECT_EQ(observer_->calls->size(), 4u);
}

TEST_F(ManagerTest, LaunchAfterAVersionChangeBecomesAppUpdatedOnce) {
  auto storage = std::make_shared<InAppMarketingPreferencesStorage>();
  manager_ = ZTInAppMarketingManager::create(storage);
  struct Step {
    std::optional<std::string> appVersion;
    std::string key, expected;
    std::optional<std::string> stored;
  };
  const std::string launch = "appToForeground", updated = "System - app updated";
  const Step steps[] = {{std::nullopt, launch, launch, std::nullopt},  // no version: nothing stored
                        {"1.0", launch, launch, "1.0"},                // first run
                        {"1.1", updated, updated, "1.0"},              // other keys pass, store nothing
                        {"1.1", "screen", "screen", "1.0"},
                        {"1.1", launch, updated, "1.1"},               // once per change
                        {"1.1", launch, launch, "1.1"},
                        {"1.0", launch, updated, "1.0"},               // a downgrade counts too
                        {"", launch, launch, "1.0"}};
  for (const auto& step : steps) {
    Bundle::mainBundle().setInfoDictionaryValue("CFBundleShortVersionString", step.appVersion);
    EXPECT_EQ(manager_->appLaunchToAppUpdatedIfNeededFor(step.key), step.expected) << step.key;
    EXPECT_EQ(storage->lastVersion(), step.stored) << step.key;
  }
  // Kept in the preferences under its own name; anything but a text there reads as none.
  KeyedArchiver archiver;
  archiver.writeInteger(7);
  EXPECT_TRUE(env_.preferences()->setData(archiver.takeData(), "InAppMarketingManagerStorageType.lastVersion"));
  EXPECT_FALSE(storage->lastVersion());
}

}  // namespace
}  // namespace iam
