#include "manager/ManagerFixture.h"

namespace iam {
namespace {

using Ids = std::vector<std::string>;

TEST_F(AppEventTest, OneOrdinaryPerEventEveryPreloadAndABusyPresenterOrSwitchHoldsThemBack) {
  start({ad("p1", kPreload, {{"triggers", {on("p1t", "ev")}}}),
         ad("x", kInterstitial, {{"triggers", {on("xt", "ev")}}, {"lifecycle", kExpired}}),
         ad("a", kInterstitial, {{"triggers", {on("a0", "ev", {{"maxFireCount", 0}}), on("a1", "ev"), on("a2", "o")}}}),
         ad("b", kInterstitial, {{"triggers", {on("bt", "ev")}}}), ad("p2", kPreload, {{"triggers", {on("p2t", "ev")}}}),
         ad("r", 16)});
  EXPECT_EQ(fire("ev"), (Ids{"p1", "a", "p2"}));
  EXPECT_EQ(fired("a", "a0") + fired("a", "a2") + fired("b", "bt") + fired("x", "xt"), 0);
  EXPECT_EQ(stats("a")->numberOfImpressions(), 1);

  // A review question waiting for its delay keeps the presenter busy: preloads only.
  manager_->showReviewWithAdvertisement(manager_->getAdvertisementByAdvertisementId("r"), 100);
  EXPECT_EQ(fire("ev"), (Ids{"p1", "p2"}));
  env_.advance(100);
  EXPECT_EQ(platform_.reviewRequests(), 1u);
  EXPECT_EQ(fire("ev"), (Ids{"p1", "a", "p2"}));

  manager_->disableInterstitials();
  EXPECT_EQ(fire("ev"), Ids{});
  manager_->forceShowOfAdvertisement(manager_->getAdvertisementByAdvertisementId("b"));
  EXPECT_EQ(host_->shown, Ids{"b"});
  EXPECT_EQ(stats("b")->numberOfImpressions(), 0);
  EXPECT_EQ(fired("p1", "p1t"), 3);
  EXPECT_EQ(fired("a", "a1"), 2);
  manager_->setActive(false);
  fire("ev");
  EXPECT_EQ(events("ev"), 4);
}

TEST_F(AppEventTest, ALaunchAfterAnUpdateCountsAsAppUpdatedOnly) {
  start(json::array({ad("u", kPreload, {{"triggers", {on("ut", "System - app updated")}}})}));
  Bundle::mainBundle().setInfoDictionaryValue("CFBundleShortVersionString", "1.0");
  manager_->storage()->setLastVersion("0.9");
  EXPECT_EQ(fire("appToForeground"), Ids{"u"});
  EXPECT_EQ(events("System - app updated"), 1);
  EXPECT_EQ(events("appToForeground"), 0);
}

TEST_F(AppEventTest, TapsOpenByActionTypeAndAreAlwaysCounted) {
  const json app = {{"id", "app"}, {"storeUrl", "https://s/app"}, {"reviewUrl", "https://s/r?id=1"}};
  struct Row {
    int okAction, display;
    std::string linked;
    ZTIAMAdvertisementEventType type;
    std::string opened, shown, warned;
  };
  const auto click = ZTIAMAdvertisementEventTypeClick;
  const Row rows[] = {{1, 16, "", click, "https://s/app", "", ""},
                      {3, 16, "", click, "https://s/r?id=1&action=write-review", "", ""},
                      {1, kPreload, "", click, "", "", ""},
                      {0, 16, "", click, "", "", "IAM: Invalid click action."},
                      {2, 16, "old", click, "", "old still", "IAM: Linked advertisement with id 'old' is not valid but will be shown."},
                      {2, kInterstitial, "gone", click, "", "", "IAM: Could not find linked advertisement with id 'gone'"},
                      {2, 16, "", click, "", "", ""},
                      {2, 16, "old", ZTIAMAdvertisementEventTypeDismiss, "", "", ""},
                      {3, 16, "", ZTIAMAdvertisementEventTypePostpone, "", "", ""}};
  json list = {ad("old", kInterstitial, {{"lifecycle", kExpired}})};
  for (std::size_t i = 0; i < std::size(rows); ++i) {
    json action = {{"id", rows[i].okAction}};
    if (!rows[i].linked.empty()) action["advertisementId"] = rows[i].linked;
    list.push_back(ad(std::to_string(i), rows[i].display, {{"okAction", action}, {"advertisedApp", app}}));
  }
  start(list);
  for (std::size_t i = 0; i < std::size(rows); ++i) {
    host_->shown.clear();
    env_.log().clear();
    const auto before = platform_.application().openedURLs();
    manager_->handleAdvertisementEvent(ZTIAMAdvertisementEventFactory::createEventWithType(
                                           rows[i].type, manager_->getAdvertisementByAdvertisementId(std::to_string(i)),
                                           nullptr, nullptr),
                                       nullptr, nullptr);
    auto opened = platform_.application().openedURLs();
    opened.erase(opened.begin(), opened.begin() + static_cast<std::ptrdiff_t>(before.size()));
    EXPECT_EQ(opened, rows[i].opened.empty() ? Ids{} : Ids{rows[i].opened}) << i;
    EXPECT_EQ(host_->shown, rows[i].shown.empty() ? Ids{} : Ids{rows[i].shown}) << i;
    auto warned = env_.log().messages(LogLevel::Warning), errors = env_.log().messages(LogLevel::Error);
    warned.insert(warned.end(), errors.begin(), errors.end());
    EXPECT_EQ(warned, rows[i].warned.empty() ? Ids{} : Ids{rows[i].warned}) << i;
    const auto s = stats(std::to_string(i));
    EXPECT_EQ(s->numberOfClicks() + s->numberOfDismisses() + s->numberOfPostpones(), 1) << i;
  }
}

TEST_F(AppEventTest, TargetsBySpaceComeFromValidAdvertisementsOnly) {
  auto targets = [](Ids keys) {
    json list = json::array();
    for (const auto& key : keys) list.push_back({{"id", key + std::to_string(list.size())}, {"key", key}});
    return json{{"targets", list}};
  };
  json old = targets({"s"});
  old["lifecycle"] = kExpired;
  start({ad("a", 16, targets({"s", "t"})), ad("b", 16, targets({"s", "s"})), ad("old", 16, old)});
  const auto expired = manager_->getAdvertisementByAdvertisementId("old");
  const auto t = manager_->getTargetsBySpaceKey("t");
  ASSERT_EQ(t.size(), 1u);
  EXPECT_EQ(t.members()[0]->advertisement()->advertisementId(), "a");
  for (const bool active : {true, false}) {
    manager_->setActive(active);
    EXPECT_EQ(manager_->getTargetsBySpaceKey("s").size(), active ? 3u : 0u);
    EXPECT_EQ(manager_->getTargetsBySpaceKey("s", expired, true).size(), active ? 1u : 0u);
    EXPECT_EQ(manager_->getTargetsBySpaceKey("s", expired, false).size() + manager_->getTargetsBySpaceKey("").size() +
                  manager_->getTargetsBySpaceKey("S").size(), 0u);
  }
}

}  // namespace
}  // namespace iam
