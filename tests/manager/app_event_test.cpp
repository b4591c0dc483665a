#include "manager/ManagerFixture.h"

namespace iam {
namespace {

using Ids = std::vector<std::string>;
Ids one(const std::string& s) { return s.empty() ? Ids{} : Ids{s}; }

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
  manager_->setActive(false);
  fire("ev");
  EXPECT_EQ((std::vector<std::int64_t>{events("ev"), fired("p1", "p1t"), fired("a", "a1"), stats("b")->numberOfImpressions()}),
            (std::vector<std::int64_t>{4, 3, 2, 0}));
  ZTIAMStatsHelper saved;  // each walk saves what it counted once it ends
  EXPECT_EQ(saved.getAppEventStatsByEventKey("ev")->count() * 10 +
                saved.getAdvertisementStatsByAdvertisementId("p1")->getTriggerStatsWithTriggerId("p1t")->count(),
            43);
}

// A walk starts from the records the walk before it fetched; a reset or a new answer in between
// must be seen, and each advertisement judged by its own record wherever it now stands.
TEST_F(AppEventTest, WalksJudgeByTheRecordsHeldNowAfterAResetOrANewAnswer) {
  auto capped = [&](const std::string& id) {
    return ad(id, kInterstitial, {{"triggers", {on(id + "t", "ev")}}, {"lifecycle", {{"maxImpressionCount", 1}}}});
  };
  start({capped("a"), capped("b")});
  EXPECT_EQ(fire("ev"), Ids{"a"});
  EXPECT_EQ(fire("ev"), Ids{"a"});  // a cap of 1 allows a second impression
  EXPECT_EQ(fire("ev"), Ids{"b"});
  manager_->resetAllStats();
  EXPECT_EQ(fire("ev"), Ids{"a"});
  EXPECT_EQ(fire("ev"), Ids{"a"});
  service_.setAnswer(kAds, adsAnswer({}, 0, json::array({capped("b"), capped("a")})));
  manager_->forceRefreshOfData();
  finishRequests();
  EXPECT_EQ(fire("ev"), Ids{"b"});
  EXPECT_EQ(fire("ev"), Ids{"b"});
  EXPECT_EQ(fire("ev"), Ids{});
  EXPECT_EQ(stats("a")->numberOfImpressions() * 10 + stats("b")->numberOfImpressions(), 22);
}

TEST_F(AppEventTest, TapsOpenByActionTypeOnlyAllowedSchemesAndAreAlwaysCounted) {
  const auto click = ZTIAMAdvertisementEventTypeClick;
  const std::string refused = "IAM: Not opening url, its scheme ";
  const struct {
    int okAction, display;
    std::string linked;
    ZTIAMAdvertisementEventType type;
    std::string opened, shown, warned, store = "https://s/app";
  } rows[] = {{1, 16, "", click, "https://s/app", "", ""},
              {1, 16, "", click, "", "", refused + "'javascript' is not allowed: javascript://x/%0aalert(1)", "javascript://x/%0aalert(1)"},
              {1, 16, "", click, "", "", refused + "'file' is not allowed: file:///etc/passwd", "file:///etc/passwd"},
              {1, 16, "", click, "", "", refused + "'http' is not allowed: http://s/app", "http://s/app"},
              {1, 16, "", click, "HTTPS://S/app", "", "", "HTTPS://S/app"},
              {1, 16, "", click, "MyApp2://open", "", "", "MyApp2://open"},
              {1, 16, "", click, "market://details?id=x", "", "", "market://details?id=x"},
              {1, 16, "", click, "", "", "IAM: Could not create url from string: javascript:alert(1)", "javascript:alert(1)"},
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
    json action = {{"id", rows[i].okAction}, {"advertisementId", rows[i].linked}};
    const json app = {{"id", "app"}, {"storeUrl", rows[i].store}, {"reviewUrl", "https://s/r?id=1"}};
    list.push_back(ad(std::to_string(i), rows[i].display, {{"okAction", action}, {"advertisedApp", app}}));
  }
  start(list);
  for (const char* notAScheme : {"", "my app", "myapp:", "2app"}) EXPECT_FALSE(manager_->allowURLScheme(notAScheme));
  EXPECT_TRUE(manager_->allowURLScheme("myapp2"));
  for (std::size_t i = 0; i < std::size(rows); ++i) {
    host_->shown.clear();
    env_.log().clear();
    const auto before = platform_.application().openedURLs().size();
    const auto ad = manager_->getAdvertisementByAdvertisementId(std::to_string(i));
    manager_->handleAdvertisementEvent(ZTIAMAdvertisementEventFactory::createEventWithType(rows[i].type, ad, nullptr, nullptr),
                                       nullptr, nullptr);
    auto opened = platform_.application().openedURLs();
    opened.erase(opened.begin(), opened.begin() + static_cast<std::ptrdiff_t>(before));
    auto warned = env_.log().messages(LogLevel::Warning);
    for (auto& error : env_.log().messages(LogLevel::Error)) warned.push_back(error);
    EXPECT_EQ(std::tie(opened, host_->shown, warned), std::tuple(one(rows[i].opened), one(rows[i].shown), one(rows[i].warned))) << i;
    const auto s = stats(ad->advertisementId());
    EXPECT_EQ(s->numberOfClicks() + s->numberOfDismisses() + s->numberOfPostpones(), 1) << i;
  }
}

TEST_F(AppEventTest, TargetsBySpaceComeFromValidAdvertisementsOnly) {
  auto targets = [](Ids keys, json more = json::object()) {
    for (std::size_t i = 0; i < keys.size(); ++i) more["targets"].push_back({{"id", std::to_string(i)}, {"key", keys[i]}});
    return more;
  };
  start({ad("a", 16, targets({"s", "t"})), ad("b", 16, targets({"s", "s"})), ad("old", 16, targets({"s"}, {{"lifecycle", kExpired}}))});
  const auto expired = manager_->getAdvertisementByAdvertisementId("old");
  EXPECT_EQ(manager_->getTargetsBySpaceKey("t").members().at(0)->advertisement()->advertisementId(), "a");
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
