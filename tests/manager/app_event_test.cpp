#include "manager/ManagerFixture.h"

namespace iam {
namespace {

TEST_F(AppEventTest, OneOrdinaryPerEventEveryPreloadAndABusyPresenterOrSwitchHoldsThemBack) {
  const json expired = {{"lifecycle", {{"endTimestamp", 1}}}};
  start(json::array({ad("p1", kPreload, triggers({on("p1t", "ev")})),
         ad("x", kInterstitial, merged(triggers({on("xt", "ev")}), expired)),
         ad("a", kInterstitial, triggers({on("a0", "ev", {{"maxFireCount", 0}}), on("a1", "ev"), on("a2", "other")})),
         ad("b", kInterstitial, triggers({on("bt", "ev")})), ad("p2", kPreload, triggers({on("p2t", "ev")})),
         ad("r", 16)}));
  EXPECT_EQ(fire("ev"), (std::vector<std::string>{"p1", "a", "p2"}));
  EXPECT_EQ(fired("a", "a1"), 1);
  for (auto [adId, triggerId] : {std::pair{"a", "a0"}, {"a", "a2"}, {"b", "bt"}, {"x", "xt"}})
    EXPECT_EQ(fired(adId, triggerId), 0) << triggerId;
  EXPECT_EQ(manager_->getAdvertisementStatsByAdvertisementId("a")->numberOfImpressions(), 1);

  // A review question waiting for its delay keeps the presenter busy: preloads only.
  manager_->showReviewWithAdvertisement(manager_->getAdvertisementByAdvertisementId("r"), 100);
  EXPECT_EQ(fire("ev"), (std::vector<std::string>{"p1", "p2"}));
  env_.advance(100);
  EXPECT_EQ(platform_.reviewRequests(), 1u);
  EXPECT_EQ(fire("ev"), (std::vector<std::string>{"p1", "a", "p2"}));

  manager_->disableInterstitials();
  EXPECT_TRUE(fire("ev").empty());
  manager_->forceShowOfAdvertisement(manager_->getAdvertisementByAdvertisementId("b"));
  EXPECT_EQ(host_->shown, std::vector<std::string>{"b"});
  EXPECT_EQ(manager_->getAdvertisementStatsByAdvertisementId("b")->numberOfImpressions(), 0);
  EXPECT_EQ(fired("p1", "p1t"), 3);
  EXPECT_EQ(fired("a", "a1"), 2);

  manager_->setActive(false);
  fire("ev");
  EXPECT_EQ(events("ev"), 4);
}

TEST_F(AppEventTest, ALaunchAfterAnUpdateCountsAsAppUpdatedOnly) {
  start(json::array({ad("u", kPreload, triggers({on("ut", "System - app updated")}))}));
  Bundle::mainBundle().setInfoDictionaryValue("CFBundleShortVersionString", "1.0");
  manager_->storage()->setLastVersion("0.9");
  EXPECT_EQ(fire("appToForeground"), std::vector<std::string>{"u"});
  EXPECT_EQ(events("System - app updated"), 1);
  EXPECT_EQ(events("appToForeground"), 0);
}

TEST_F(AppEventTest, TapsOpenByActionTypeAndAreAlwaysCounted) {
  const json app = {{"advertisedApp", {{"id", "app"}, {"storeUrl", "https://s/app"}, {"reviewUrl", "https://s/r?id=1"}}}};
  auto action = [&](int okAction, int display, json meta = json::object()) {
    json a = ad("", display, app);
    meta["id"] = okAction;
    a["okAction"] = meta;
    return a;
  };
  const json expired = {{"lifecycle", {{"endTimestamp", 1}}}};
  struct Row {
    json ad;
    ZTIAMAdvertisementEventType type;
    std::string opened, shown, logged;
  };
  const Row rows[] = {
      {action(1, 16), ZTIAMAdvertisementEventTypeClick, "https://s/app", "", ""},
      {action(3, 16), ZTIAMAdvertisementEventTypeClick, "https://s/r?id=1&action=write-review", "", ""},
      {action(1, 15), ZTIAMAdvertisementEventTypeClick, "", "", ""},
      {action(0, 16), ZTIAMAdvertisementEventTypeClick, "", "", "IAM: Invalid click action."},
      {action(2, 16, {{"advertisementId", "old"}}), ZTIAMAdvertisementEventTypeClick, "", "old still",
       "IAM: Linked advertisement with id 'old' is not valid but will be shown."},
      {action(2, 14, {{"advertisementId", "gone"}}), ZTIAMAdvertisementEventTypeClick, "", "",
       "IAM: Could not find linked advertisement with id 'gone'"},
      {action(2, 16), ZTIAMAdvertisementEventTypeClick, "", "", ""},
      {action(2, 16, {{"advertisementId", "old"}}), ZTIAMAdvertisementEventTypeDismiss, "", "", ""},
      {action(3, 16), ZTIAMAdvertisementEventTypePostpone, "", "", ""},
  };
  json list = json::array({ad("old", 15, expired)});
  for (std::size_t i = 0; i < std::size(rows); ++i) list.push_back(merged(rows[i].ad, {{"id", std::to_string(i)}}));
  start(list);
  for (std::size_t i = 0; i < std::size(rows); ++i) {
    const auto& row = rows[i];
    const auto before = platform_.application().openedURLs().size();
    host_->shown.clear();
    env_.log().clear();
    auto adv = manager_->getAdvertisementByAdvertisementId(std::to_string(i));
    manager_->handleAdvertisementEvent(ZTIAMAdvertisementEventFactory::createEventWithType(row.type, adv, nullptr, nullptr),
                                       nullptr, nullptr);
    const auto opened = platform_.application().openedURLs();
    EXPECT_EQ(opened.size() - before, row.opened.empty() ? 0u : 1u) << i;
    if (!row.opened.empty() && opened.size() > before) {
      EXPECT_EQ(opened.back(), row.opened) << i;
    }
    EXPECT_EQ(host_->shown, row.shown.empty() ? std::vector<std::string>{} : std::vector<std::string>{row.shown}) << i;
    const auto noticed = env_.log().messages(LogLevel::Warning).size() + env_.log().messages(LogLevel::Error).size();
    EXPECT_EQ(noticed, row.logged.empty() ? 0u : 1u) << i;
    if (!row.logged.empty()) {
      EXPECT_TRUE(env_.log().contains(row.logged)) << i;
    }
    const auto stats = manager_->getAdvertisementStatsByAdvertisementId(std::to_string(i));
    EXPECT_EQ(stats->numberOfClicks() + stats->numberOfDismisses() + stats->numberOfPostpones(), 1) << i;
  }
}

TEST_F(AppEventTest, TargetsBySpaceComeFromValidAdvertisementsOnly) {
  auto targets = [](std::initializer_list<std::string> keys) {
    json list = json::array();
    for (const auto& key : keys) list.push_back({{"id", key + std::to_string(list.size())}, {"key", key}});
    return json{{"targets", list}};
  };
  start(json::array({ad("a", 16, targets({"s", "t"})), ad("b", 16, targets({"s", "s"})),
         ad("old", 16, merged(targets({"s"}), {{"lifecycle", {{"endTimestamp", 1}}}}))}));
  EXPECT_EQ(manager_->getTargetsBySpaceKey("s").size(), 3u);
  EXPECT_EQ(manager_->getTargetsBySpaceKey("S").size(), 0u);
  EXPECT_EQ(manager_->getTargetsBySpaceKey("").size(), 0u);
  auto old = manager_->getAdvertisementByAdvertisementId("old");
  EXPECT_EQ(manager_->getTargetsBySpaceKey("s", old, false).size(), 0u);
  EXPECT_EQ(manager_->getTargetsBySpaceKey("s", old, true).size(), 1u);
  const auto t = manager_->getTargetsBySpaceKey("t");
  ASSERT_EQ(t.size(), 1u);
  EXPECT_EQ(t.members()[0]->advertisement()->advertisementId(), "a");
  manager_->setActive(false);
  EXPECT_EQ(manager_->getTargetsBySpaceKey("s", old, true).size(), 0u);
  EXPECT_EQ(manager_->getTargetsBySpaceKey("s").size(), 0u);
}

}  // namespace
}  // namespace iam
