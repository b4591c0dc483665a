#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "iam/model/AdvertisedApp.h"
#include "iam/model/Advertisement.h"
#include "model/model_test_support.h"

namespace iam {
namespace {

using Texts = std::vector<std::optional<std::string>>;

ZTIAMResourceMap resources(std::initializer_list<std::pair<std::string, std::optional<std::string>>> entries) {
  ZTIAMResourceMap map;
  for (const auto& [key, value] : entries) map[key] = std::make_shared<ZTIAMResource>(key, value);
  return map;
}

// Each derived property reads its own resource key and falls back when the value is missing or empty.
TEST(AdvertisementRecord, DerivedPropertiesReadTheirOwnResourceKeysOrFallBack) {
  Advertisement ad("ad");
  const Color blue{0, 0, 1, 1};
  ad.setResources(resources({{"title", "T"}, {"body", "B"}, {"bodyImage", "https://img.example.com/body.png"},
                             {"iconImage", "https://img.example.com/icon.png"}, {"video", "https://video.example.com/v.mp4"},
                             {"titleColor", "FF0000"}, {"bodyColor", "00FF00"}, {"okActionTitle", "Get it"},
                             {"postponeTitle", "Not now"}, {"dismissTitle", "Close"}, {"title-a", "a"}, {"title-b", "b"},
                             {"title-c", "c"}, {"title-d", "d"}}));
  EXPECT_EQ((Texts{ad.title(), ad.body(), ad.okActionTitle(), ad.postponeTitle(), ad.dismissTitle()}),
            (Texts{"T", "B", "Get it", "Not now", "Close"}));
  EXPECT_EQ((std::vector{ad.bodyImageUrl(), ad.iconImageUrl(), ad.videoUrl()}),
            (std::vector{URL::URLWithString("https://img.example.com/body.png"),
                         URL::URLWithString("https://img.example.com/icon.png"),
                         URL::URLWithString("https://video.example.com/v.mp4")}));
  EXPECT_EQ((std::vector{ad.titleColor(), ad.bodyColor(), ad.titleColorWithDefaultColor(blue),
                         ad.bodyColorWithDefaultColor(blue)}),
            (std::vector{Color::colorWithHexString("FF0000"), Color::colorWithHexString("00FF00"),
                         Color::colorWithHexString("FF0000"), Color::colorWithHexString("00FF00")}));
  EXPECT_EQ(ad.subtitles(), (std::vector<std::string>{"a", "b", "c", "d"}));

  ad.setResources(resources({{"okActionTitle", ""}, {"title", ""}, {"title-c", "only c"}, {"title-a", std::nullopt},
                             {"bodyImage", "not a url"}}));
  EXPECT_EQ(ad.okActionTitle(), "Open Store");
  ad.setOkActionType(ZTIAMAdvertisementActionTypeOpenAd);
  EXPECT_EQ((Texts{ad.okActionTitle(), ad.postponeTitle(), ad.dismissTitle(), ad.title()}),
            (Texts{"Sure", "Later", std::nullopt, std::nullopt}));
  EXPECT_FALSE(ad.bodyImageUrl() || ad.videoUrl());
  EXPECT_EQ((std::vector{ad.titleColor(), ad.bodyColor(), ad.titleColorWithDefaultColor(blue), ad.bodyColorWithDefaultColor(blue)}),
            (std::vector{Color::colorWithHexString("303030"), Color::colorWithHexString("303030"), blue, blue}));
  EXPECT_EQ(ad.subtitles(), (std::vector<std::string>{"", "", "only c", ""}));
}

TEST(AdvertisementRecord, AdvertisementLookUpsTreatEmptyAsMissingAppLookUpsDoNot) {
  Advertisement ad("ad");
  ad.setResources(resources({{"empty", ""}, {"none", std::nullopt}, {"text", "x"}, {"object", R"({"a": [1, 2], "b": "c"})"},
                             {"array", "[1, 2]"}, {"broken", R"({"a": )"}, {"number", "42"}}));
  EXPECT_EQ((Texts{ad.resourceValueFor("text"), ad.resourceValueFor("empty"), ad.resourceValueFor("text", "d")}),
            (Texts{"x", std::nullopt, "x"}));
  for (const char* key : {"empty", "none", "missing"}) EXPECT_EQ(ad.resourceValueFor(key, "d"), "d") << key;
  EXPECT_EQ(ad.resourceJSONValueFor("object"), nlohmann::json::parse(R"({"a": [1, 2], "b": "c"})"));
  for (const char* key : {"array", "number", "broken", "empty", "missing"}) {
    EXPECT_EQ(ad.resourceJSONValueFor(key), std::nullopt) << key;
  }

  // Unlike an advertisement's look-up, an app's keeps empty values.
  AdvertisedApp app("app");
  app.setResources(resources({{"name", "Calendar"}, {"AppIcons", "https://icons.example.com/c.png"},
                              {"iconUrl", "wrong"}, {"iconTitle", ""}, {"blank", std::nullopt}}));
  EXPECT_EQ((Texts{app.name(), app.iconUrl(), app.iconTitle(), app.getResourceValue("blank"), app.getResourceValue("x")}),
            (Texts{"Calendar", "https://icons.example.com/c.png", "", std::nullopt, std::nullopt}));
}

TEST(AdvertisementRecord, TriggersAndTargetsForAKeyMatchExactlyInOrderAndDoNotOwnIt) {
  auto launch1 = std::make_shared<AdvertisementTrigger>("t1", "appToForeground");
  auto launch2 = std::make_shared<AdvertisementTrigger>("t3", "appToForeground");
  auto list = std::make_shared<AdvertisementTarget>("g1", "list");
  {
    auto ad = std::make_shared<Advertisement>("ad");
    ad->setTriggers({launch1, std::make_shared<AdvertisementTrigger>("t2", "appToForegroundX"), launch2,
                     std::make_shared<AdvertisementTrigger>("t4", "AppToForeground")});
    ad->setTargets({list, std::make_shared<AdvertisementTarget>("g2", "grid")});
    EXPECT_EQ(ad->triggersFor("appToForeground").members(), (std::vector{launch1, launch2}));
    EXPECT_TRUE(ad->triggersFor("appTo").empty());
    EXPECT_EQ(ad->targetsFor("list").members(), std::vector{list});
    EXPECT_TRUE(ad->targetsFor("List").empty());
    launch1->setAdvertisement(ad);
    list->setAdvertisement(ad);
    EXPECT_TRUE(launch1->advertisement() == ad && list->advertisement() == ad);
  }
  // The advertisement is gone once its last owner is: no cycle keeps it alive.
  EXPECT_FALSE(launch1->advertisement() || list->advertisement());
}

TEST(IdentitySetTest, HoldsEachObjectOnceAndEqualLookingObjectsSeparately) {
  IdentitySet<AdvertisementTrigger> set;
  auto a = std::make_shared<AdvertisementTrigger>("same", "key");
  auto b = std::make_shared<AdvertisementTrigger>("same", "key");
  EXPECT_TRUE(set.insert(a));
  EXPECT_FALSE(set.insert(a));
  EXPECT_TRUE(set.insert(b));
  EXPECT_FALSE(set.insert(nullptr));

  // Past the size where an index takes over, membership and order must not change.
  std::vector<std::shared_ptr<AdvertisementTrigger>> many{a, b};
  for (int i = 0; i < 40; ++i) {
    auto t = std::make_shared<AdvertisementTrigger>(std::to_string(i), "key");
    many.push_back(t);
    EXPECT_TRUE(set.insert(t));
  }
  for (const auto& t : many) EXPECT_FALSE(set.insert(t));
  EXPECT_EQ(set.members(), many);
  EXPECT_TRUE(set.contains(many[30]));
  EXPECT_FALSE(set.contains(std::make_shared<AdvertisementTrigger>("0", "key")));
}

// Only a stored link is archived; the derived one is derived again after decoding.
TEST(AdvertisedAppRecord, ReviewUrlIsStoredOrDerivedFromTheStoreId) {
  AdvertisedApp app("app");
  app.setReviewUrl("");
  EXPECT_EQ(app.reviewUrl(), std::nullopt);
  app.setStoreInfo(std::make_shared<StoreAppInfo>("123"));
  const std::string derived = app.reviewUrl().value_or("");
  const std::string tail = "/WebObjects/MZStore.woa/wa/viewContentsUserReviews?type=Purple+Software&id=123";
  EXPECT_EQ(derived.rfind("itms-apps://", 0), 0u) << derived;
  EXPECT_TRUE(derived.size() > tail.size() && derived.substr(derived.size() - tail.size()) == tail) << derived;
  auto decoded = testing::unarchive<AdvertisedApp>(testing::archive(app));
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->storedReviewUrl(), "");  // the empty stored link, not the derived one
  EXPECT_EQ(decoded->reviewUrl(), derived);
  app.setReviewUrl("https://review.example.com/1");  // a stored link wins over the derived one
  EXPECT_EQ(app.reviewUrl(), "https://review.example.com/1");
}

}  // namespace
}  // namespace iam
