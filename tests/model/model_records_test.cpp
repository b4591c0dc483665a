#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <type_traits>

#include "iam/model/AdvertisedApp.h"
#include "iam/model/Advertisement.h"
#include "iam/model/AdvertisementConfigurationData.h"

namespace iam {
namespace {

std::shared_ptr<ZTIAMResource> resource(std::string key, std::optional<std::string> value) {
  return std::make_shared<ZTIAMResource>(std::move(key), std::move(value));
}

ZTIAMResourceMap resources(std::initializer_list<std::pair<std::string, std::optional<std::string>>> entries) {
  ZTIAMResourceMap map;
  for (const auto& [key, value] : entries) map[key] = resource(key, value);
  return map;
}

// Unavailable initialisers must not compile.
static_assert(!std::is_default_constructible_v<Advertisement>);
static_assert(!std::is_default_constructible_v<AdvertisedApp>);
static_assert(!std::is_default_constructible_v<StoreAppInfo>);
static_assert(!std::is_default_constructible_v<ZTIAMResource>);
static_assert(!std::is_default_constructible_v<AdvertisementTrigger>);
static_assert(!std::is_default_constructible_v<AdvertisementTarget>);
static_assert(!std::is_default_constructible_v<AdvertisementConfigurationData>);
static_assert(std::is_same_v<ZTAdvertisementConfigurationData, AdvertisementConfigurationData>);

TEST(AdvertisementRecord, NewAdvertisementHasTheDocumentedDefaults) {
  Advertisement ad("ad-1");
  EXPECT_EQ(ad.advertisementId(), "ad-1");
  EXPECT_EQ(ad.name(), std::nullopt);
  EXPECT_EQ(ad.startDate(), std::nullopt);
  EXPECT_EQ(ad.endDate(), std::nullopt);
  EXPECT_EQ(ad.maxImpressionCount(), std::nullopt);
  EXPECT_FALSE(ad.postponeEnabled());
  EXPECT_EQ(ad.postponeDelay(), std::nullopt);
  EXPECT_FALSE(ad.ignoreGlobalMinimumPopupTimeInterval());
  EXPECT_EQ(ad.stateType(), ZTIAMAdvertisementStateTypeLive);
  EXPECT_EQ(ad.displayType(), ZTIAMAdvertisementDisplayTypeInvalid);
  EXPECT_EQ(ad.okActionType(), ZTIAMAdvertisementActionTypeOpenStore);
  EXPECT_EQ(ad.dataSourceType(), ZTIAMAdvertisementDataSourceTypeInAppMarketing);
  EXPECT_EQ(ad.okActionMeta(), std::nullopt);
  EXPECT_TRUE(ad.triggers().empty());
  EXPECT_TRUE(ad.targets().empty());
  EXPECT_TRUE(ad.resources().empty());
  EXPECT_EQ(ad.advertisedApp(), nullptr);
}

TEST(AdvertisementRecord, DerivedPropertiesReadTheirOwnResourceKeys) {
  Advertisement ad("ad");
  ad.setResources(resources({{"title", "T"},
                             {"body", "B"},
                             {"bodyImage", "https://img.example.com/body.png"},
                             {"iconImage", "https://img.example.com/icon.png"},
                             {"video", "https://video.example.com/v.mp4"},
                             {"titleColor", "FF0000"},
                             {"bodyColor", "00FF00"},
                             {"okActionTitle", "Get it"},
                             {"postponeTitle", "Not now"},
                             {"dismissTitle", "Close"},
                             {"title-a", "a"},
                             {"title-b", "b"},
                             {"title-c", "c"},
                             {"title-d", "d"}}));
  EXPECT_EQ(ad.title(), "T");
  EXPECT_EQ(ad.body(), "B");
  ASSERT_TRUE(ad.bodyImageUrl());
  EXPECT_EQ(ad.bodyImageUrl()->absoluteString(), "https://img.example.com/body.png");
  ASSERT_TRUE(ad.iconImageUrl());
  EXPECT_EQ(ad.iconImageUrl()->absoluteString(), "https://img.example.com/icon.png");
  ASSERT_TRUE(ad.videoUrl());
  EXPECT_EQ(ad.videoUrl()->absoluteString(), "https://video.example.com/v.mp4");
  EXPECT_EQ(ad.titleColor(), Color::colorWithHexString("FF0000"));
  EXPECT_EQ(ad.bodyColor(), Color::colorWithHexString("00FF00"));
  EXPECT_EQ(ad.titleColorWithDefaultColor(Color{0, 0, 1, 1}), Color::colorWithHexString("FF0000"));
  EXPECT_EQ(ad.bodyColorWithDefaultColor(Color{0, 0, 1, 1}), Color::colorWithHexString("00FF00"));
  EXPECT_EQ(ad.okActionTitle(), "Get it");
  EXPECT_EQ(ad.postponeTitle(), "Not now");
  EXPECT_EQ(ad.dismissTitle(), "Close");
  EXPECT_EQ(ad.subtitles(), (std::vector<std::string>{"a", "b", "c", "d"}));
}

TEST(AdvertisementRecord, DerivedPropertiesFallBackWhenMissingOrEmpty) {
  Advertisement ad("ad");
  ad.setResources(resources({{"okActionTitle", ""}, {"title", ""}, {"title-c", "only c"}, {"title-a", std::nullopt},
                             {"bodyImage", "not a url"}}));
  EXPECT_EQ(ad.okActionTitle(), "Open Store");
  ad.setOkActionType(ZTIAMAdvertisementActionTypeOpenAd);
  EXPECT_EQ(ad.okActionTitle(), "Sure");
  EXPECT_EQ(ad.postponeTitle(), "Later");
  EXPECT_EQ(ad.dismissTitle(), std::nullopt);
  EXPECT_EQ(ad.title(), std::nullopt);
  EXPECT_EQ(ad.bodyImageUrl(), std::nullopt);
  EXPECT_EQ(ad.videoUrl(), std::nullopt);
  EXPECT_EQ(ad.titleColor(), Color::colorWithHexString("303030"));
  EXPECT_EQ(ad.bodyColor(), Color::colorWithHexString("303030"));
  EXPECT_NE(ad.titleColor(), Color::colorWithHexString("000000"));
  const Color blue{0, 0, 1, 1};
  EXPECT_EQ(ad.titleColorWithDefaultColor(blue), blue);
  EXPECT_EQ(ad.bodyColorWithDefaultColor(blue), blue);
  EXPECT_EQ(ad.subtitles(), (std::vector<std::string>{"", "", "only c", ""}));
}

TEST(AdvertisementRecord, ResourceLookUpsTreatEmptyAsMissing) {
  Advertisement ad("ad");
  ad.setResources(resources({{"empty", ""},
                             {"none", std::nullopt},
                             {"text", "x"},
                             {"object", R"({"a": [1, 2], "b": "c"})"},
                             {"array", "[1, 2]"},
                             {"broken", R"({"a": )"},
                             {"number", "42"}}));
  EXPECT_EQ(ad.resourceValueFor("text"), "x");
  EXPECT_EQ(ad.resourceValueFor("empty"), std::nullopt);
  EXPECT_EQ(ad.resourceValueFor("empty", "d"), "d");
  EXPECT_EQ(ad.resourceValueFor("none", "d"), "d");
  EXPECT_EQ(ad.resourceValueFor("missing", "d"), "d");
  EXPECT_EQ(ad.resourceValueFor("text", "d"), "x");

  auto object = ad.resourceJSONValueFor("object");
  ASSERT_TRUE(object);
  EXPECT_EQ((*object)["b"], "c");
  EXPECT_EQ((*object)["a"].size(), 2u);
  EXPECT_EQ(ad.resourceJSONValueFor("array"), std::nullopt);
  EXPECT_EQ(ad.resourceJSONValueFor("number"), std::nullopt);
  EXPECT_EQ(ad.resourceJSONValueFor("broken"), std::nullopt);
  EXPECT_EQ(ad.resourceJSONValueFor("empty"), std::nullopt);
  EXPECT_EQ(ad.resourceJSONValueFor("missing"), std::nullopt);
}

TEST(AdvertisementRecord, TriggersAndTargetsForAKeyMatchExactlyInInsertionOrder) {
  auto ad = std::make_shared<Advertisement>("ad");
  auto launch1 = std::make_shared<AdvertisementTrigger>("t1", "appToForeground");
  auto other = std::make_shared<AdvertisementTrigger>("t2", "appToForegroundX");
  auto launch2 = std::make_shared<AdvertisementTrigger>("t3", "appToForeground");
  auto upper = std::make_shared<AdvertisementTrigger>("t4", "AppToForeground");
  ad->setTriggers({launch1, other, launch2, upper});
  auto found = ad->triggersFor("appToForeground");
  ASSERT_EQ(found.size(), 2u);
  EXPECT_EQ(found.members()[0], launch1);
  EXPECT_EQ(found.members()[1], launch2);
  EXPECT_TRUE(ad->triggersFor("appTo").empty());

  auto list = std::make_shared<AdvertisementTarget>("g1", "list");
  auto grid = std::make_shared<AdvertisementTarget>("g2", "grid");
  ad->setTargets({list, grid});
  auto inList = ad->targetsFor("list");
  ASSERT_EQ(inList.size(), 1u);
  EXPECT_EQ(inList.members()[0], list);
  EXPECT_TRUE(ad->targetsFor("List").empty());
}

TEST(IdentitySetTest, HoldsEachObjectOnceAndEqualLookingObjectsSeparately) {
  IdentitySet<AdvertisementTrigger> set;
  auto a = std::make_shared<AdvertisementTrigger>("same", "key");
  auto b = std::make_shared<AdvertisementTrigger>("same", "key");
  EXPECT_TRUE(set.insert(a));
  EXPECT_FALSE(set.insert(a));
  EXPECT_TRUE(set.insert(b));
  EXPECT_FALSE(set.insert(nullptr));
  EXPECT_EQ(set.size(), 2u);

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

TEST(TriggerAndTargetRecords, BackReferencesDoNotOwnTheAdvertisement) {
  auto trigger = std::make_shared<AdvertisementTrigger>("t", "e");
  auto target = std::make_shared<AdvertisementTarget>("g", "s");
  EXPECT_EQ(trigger->thresholdCount(), std::nullopt);
  EXPECT_EQ(trigger->displayDelay(), std::nullopt);
  EXPECT_EQ(trigger->maxFireCount(), std::nullopt);
  EXPECT_EQ(trigger->repeatIntervalCount(), std::nullopt);
  EXPECT_EQ(target->sectionIndex(), std::nullopt);
  EXPECT_EQ(target->customViewClass(), std::nullopt);
  {
    auto ad = std::make_shared<Advertisement>("ad");
    trigger->setAdvertisement(ad);
    target->setAdvertisement(ad);
    ad->setTriggers({trigger});
    ad->setTargets({target});
    EXPECT_EQ(trigger->advertisement(), ad);
    EXPECT_EQ(target->advertisement(), ad);
  }
  // The advertisement is gone once its last owner is: no cycle keeps it alive.
  EXPECT_EQ(trigger->advertisement(), nullptr);
  EXPECT_EQ(target->advertisement(), nullptr);
}

TEST(AdvertisedAppRecord, ReviewUrlIsStoredOrDerivedFromTheStoreId) {
  AdvertisedApp app("app");
  EXPECT_EQ(app.reviewUrl(), std::nullopt);

  app.setReviewUrl("");
  EXPECT_EQ(app.reviewUrl(), std::nullopt);
  app.setStoreInfo(std::make_shared<StoreAppInfo>("123"));
  auto derived = app.reviewUrl();
  ASSERT_TRUE(derived);
  EXPECT_EQ(derived->rfind("itms-apps://", 0), 0u);
  EXPECT_NE(derived->find("/WebObjects/MZStore.woa/wa/viewContentsUserReviews?type=Purple+Software&id=123"),
            std::string::npos);
  EXPECT_EQ(derived->substr(derived->size() - 7), "&id=123");
  EXPECT_EQ(app.storedReviewUrl(), "");

  app.setReviewUrl("https://review.example.com/1");
  EXPECT_EQ(app.reviewUrl(), "https://review.example.com/1");
}

TEST(AdvertisedAppRecord, DerivedTextsReadNamedResourcesAndKeepEmptyValues) {
  AdvertisedApp app("app");
  EXPECT_FALSE(app.free());
  EXPECT_EQ(app.storeInfo(), nullptr);
  app.setResources(resources({{"name", "Calendar"},
                              {"AppIcons", "https://icons.example.com/c.png"},
                              {"iconUrl", "wrong"},
                              {"iconTitle", ""},
                              {"blank", std::nullopt}}));
  EXPECT_EQ(app.name(), "Calendar");
  EXPECT_EQ(app.iconUrl(), "https://icons.example.com/c.png");
  EXPECT_EQ(app.iconTitle(), "");  // unlike an advertisement's look-up, empty is a value here
  EXPECT_EQ(app.getResourceValue("blank"), std::nullopt);
  EXPECT_EQ(app.getResourceValue("missing"), std::nullopt);
}

TEST(DisplayRequest, MadeFromAnAdvertisementAloneHasTheDefaults) {
  auto ad = std::make_shared<Advertisement>("ad");
  ZTAdvertisementConfigurationData request(ad, nullptr, nullptr, nullptr);
  EXPECT_EQ(request.advertisement(), ad);
  EXPECT_EQ(request.trigger(), nullptr);
  EXPECT_EQ(request.target(), nullptr);
  EXPECT_EQ(request.view(), nullptr);
  EXPECT_EQ(request.delay(), 0.0);
  EXPECT_TRUE(request.animated());
  EXPECT_FALSE(request.force());
  request.setDelay(2.5);
  request.setAnimated(false);
  request.setForce(true);
  EXPECT_EQ(request.delay(), 2.5);
  EXPECT_FALSE(request.animated());
  EXPECT_TRUE(request.force());
}

}  // namespace
}  // namespace iam
