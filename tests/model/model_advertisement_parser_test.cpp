#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <simdjson.h>

#include "iam/model/AdvertisementParser.h"

namespace iam {
namespace {

using nlohmann::json;

json validAdvertisement() {
  return json::parse(R"({
    "id": "ad-1",
    "name": "Spring",
    "lifecycle": {"startTimestamp": 1700000000.5, "endTimestamp": 1800000000, "maxImpressionCount": 3,
                  "postponeEnabled": true, "postponeDelay": 7200},
    "display": {"id": 16},
    "okAction": {"id": 1, "url": "https://store.example.com/app", "advertisementId": "other"},
    "dataSource": {"id": 1},
    "state": {"id": 2},
    "ignoreGlobalMinimumPopupTimeInterval": true,
    "advertisedApp": {"id": "app-1", "packageName": "com.example.app", "publisher": "Example",
                      "storeUrl": "https://store.example.com/app", "rating": 4, "free": true,
                      "resources": {"name": "App", "AppIcons": "https://i.example.com/a.png"},
                      "storeInfo": {"id": 123456, "bundleId": "com.example.app", "name": "App", "subtitle": "Sub",
                                    "iconTitle": "A", "icon": {"60": "u60", "100": "u100", "512": "u512"}}},
    "resources": {"title": "Hello", "body": null},
    "triggers": [{"id": "t1", "key": "appToForeground", "thresholdCount": 3, "displayDelay": 1.5,
                  "maxFireCount": 2, "repeatIntervalCount": 5},
                 {"id": "t2", "key": "settings"}],
    "targets": [{"id": "g1", "key": "feed", "customViewClass": "Cell", "rowIndex": 2, "rowRepeatInterval": 10,
                 "sectionIndex": 0, "sectionRepeatInterval": 1}]
  })");
}

std::shared_ptr<Advertisement> parse(const json& j, ZTIAMParseDiagnostics* diagnostics = nullptr) {
  return AdvertisementParser().parse(j.dump(), diagnostics);
}

json with(json j, const json::json_pointer& pointer, json value) {
  j[pointer] = std::move(value);
  return j;
}

json without(json j, const json::json_pointer& pointer) {
  j[pointer.parent_pointer()].erase(pointer.back());
  return j;
}

TEST(AdvertisementParserTest, MapsEveryMemberOfAValidAdvertisement) {
  auto ad = parse(validAdvertisement());
  ASSERT_TRUE(ad);
  EXPECT_EQ(ad->advertisementId(), "ad-1");
  EXPECT_EQ(ad->name(), "Spring");
  EXPECT_EQ(ad->startDate(), dateWithTimeIntervalSince1970(1700000000.5));
  EXPECT_EQ(ad->endDate(), dateWithTimeIntervalSince1970(1800000000));
  EXPECT_EQ(ad->maxImpressionCount(), 3);
  EXPECT_TRUE(ad->postponeEnabled());
  EXPECT_EQ(ad->postponeDelay(), 7200.0);
  EXPECT_EQ(ad->displayType(), ZTIAMAdvertisementDisplayTypeReviewQuestion);
  EXPECT_EQ(ad->okActionType(), ZTIAMAdvertisementActionTypeOpenStore);
  EXPECT_EQ(ad->okActionMeta(), "https://store.example.com/app");
  EXPECT_EQ(ad->dataSourceType(), ZTIAMAdvertisementDataSourceTypeInAppMarketing);
  EXPECT_EQ(ad->stateType(), ZTIAMAdvertisementStateTypeTesting);
  EXPECT_TRUE(ad->ignoreGlobalMinimumPopupTimeInterval());

  ASSERT_EQ(ad->resources().size(), 2u);
  EXPECT_EQ(ad->resources().at("title")->value(), "Hello");
  EXPECT_EQ(ad->resources().at("body")->key(), "body");
  EXPECT_EQ(ad->resources().at("body")->value(), std::nullopt);

  const auto& app = ad->advertisedApp();
  ASSERT_TRUE(app);
  EXPECT_EQ(app->appId(), "app-1");
  EXPECT_EQ(app->packageName(), "com.example.app");
  EXPECT_EQ(app->publisher(), "Example");
  EXPECT_EQ(app->storeUrl(), "https://store.example.com/app");
  EXPECT_EQ(app->storedReviewUrl(), std::nullopt);
  EXPECT_EQ(app->rating(), "4.0");
  EXPECT_TRUE(app->free());
  EXPECT_EQ(app->name(), "App");
  EXPECT_EQ(app->iconUrl(), "https://i.example.com/a.png");
  ASSERT_TRUE(app->storeInfo());
  EXPECT_EQ(app->storeInfo()->storeId(), "123456");
  EXPECT_EQ(app->storeInfo()->bundleIdentifier(), "com.example.app");
  EXPECT_EQ(app->storeInfo()->name(), "App");
  EXPECT_EQ(app->storeInfo()->subtitle(), "Sub");
  EXPECT_EQ(app->storeInfo()->iconTitle(), "A");
  EXPECT_EQ(app->storeInfo()->icon60x60Url(), "u60");
  EXPECT_EQ(app->storeInfo()->icon100x100Url(), "u100");
  EXPECT_EQ(app->storeInfo()->icon512x512Url(), "u512");

  ASSERT_EQ(ad->triggers().size(), 2u);
  const auto& t1 = ad->triggers().members()[0];
  EXPECT_EQ(t1->triggerId(), "t1");
  EXPECT_EQ(t1->eventKey(), "appToForeground");
  EXPECT_EQ(t1->thresholdCount(), 3);
  EXPECT_EQ(t1->displayDelay(), 1.5);
  EXPECT_EQ(t1->maxFireCount(), 2);
  EXPECT_EQ(t1->repeatIntervalCount(), 5);
  EXPECT_EQ(ad->triggers().members()[1]->triggerId(), "t2");
  for (const auto& t : ad->triggers()) EXPECT_EQ(t->advertisement(), ad);

  ASSERT_EQ(ad->targets().size(), 1u);
  const auto& g = ad->targets().members()[0];
  EXPECT_EQ(g->targetId(), "g1");
  EXPECT_EQ(g->spaceKey(), "feed");
  EXPECT_EQ(g->customViewClass(), "Cell");
  EXPECT_EQ(g->rowIndex(), 2);
  EXPECT_EQ(g->rowRepeatInterval(), 10);
  EXPECT_EQ(g->sectionIndex(), 0);
  EXPECT_EQ(g->sectionRepeatInterval(), 1);
  EXPECT_EQ(g->advertisement(), ad);
}

TEST(AdvertisementParserTest, DisplayIdsAreCrossedAndBoundedAndStrictlyIntegers) {
  auto base = with(validAdvertisement(), "/resources/dfpInterstitialIdentifier"_json_pointer, "/123/unit");
  EXPECT_EQ(parse(with(base, "/display/id"_json_pointer, 14))->displayType(), ZTIAMAdvertisementDisplayTypeDfpInterstitial);
  EXPECT_EQ(parse(with(base, "/display/id"_json_pointer, 15))->displayType(),
            ZTIAMAdvertisementDisplayTypeDfpInterstitialPreload);
  EXPECT_EQ(parse(with(base, "/display/id"_json_pointer, 16))->displayType(), ZTIAMAdvertisementDisplayTypeReviewQuestion);
  for (const json& bad : {json(13), json(17), json(0), json(-14), json("16"), json(true), json(16.5), json(nullptr)}) {
    EXPECT_EQ(parse(with(base, "/display/id"_json_pointer, bad)), nullptr) << bad;
  }
}

TEST(AdvertisementParserTest, ActionAndDataSourceIdsAreShiftedStateIsKept) {
  auto ad = validAdvertisement();
  // JSON action ids count from 0 (NoAction).
  const std::pair<int, ZTIAMAdvertisementActionType> actions[] = {
      {0, ZTIAMAdvertisementActionTypeNoAction},   {2, ZTIAMAdvertisementActionTypeOpenAd},
      {4, ZTIAMAdvertisementActionTypeDismiss},    {5, ZTIAMAdvertisementActionTypePostpone},
      {6, ZTIAMAdvertisementActionTypeOpenContact}, {7, ZTIAMAdvertisementActionTypeOpenContactForm}};
  for (const auto& [jsonId, type] : actions) {
    auto parsed = parse(with(ad, "/okAction/id"_json_pointer, jsonId));
    ASSERT_TRUE(parsed) << jsonId;
    EXPECT_EQ(parsed->okActionType(), type);
  }
  auto zero = parse(with(ad, "/dataSource/id"_json_pointer, 0));
  ASSERT_TRUE(zero);
  EXPECT_EQ(zero->dataSourceType(), -1);
  EXPECT_EQ(parse(with(ad, "/dataSource/id"_json_pointer, 2))->dataSourceType(), ZTIAMAdvertisementDataSourceTypeAdMobNative);
  EXPECT_EQ(parse(with(ad, "/state/id"_json_pointer, 7))->stateType(), 7);
  EXPECT_EQ(parse(with(ad, "/state/id"_json_pointer, 3))->stateType(), ZTIAMAdvertisementStateTypeDisabled);
  // Beyond the known actions, or below them: refused by validation.
  EXPECT_EQ(parse(with(ad, "/okAction/id"_json_pointer, 8)), nullptr);
  EXPECT_EQ(parse(with(ad, "/okAction/id"_json_pointer, -1)), nullptr);
  EXPECT_EQ(parse(with(ad, "/okAction/id"_json_pointer, -5)), nullptr);
  EXPECT_EQ(parse(with(ad, "/okAction/id"_json_pointer, false)), nullptr);
  EXPECT_EQ(parse(with(ad, "/dataSource/id"_json_pointer, "1")), nullptr);
  EXPECT_EQ(parse(with(ad, "/state/id"_json_pointer, 1.5)), nullptr);
}

TEST(AdvertisementParserTest, RequiredMembersRejectWhenMissingOrMistyped) {
  const auto ad = validAdvertisement();
  for (const char* key : {"/id", "/lifecycle", "/display", "/okAction", "/dataSource", "/state",
                          "/ignoreGlobalMinimumPopupTimeInterval", "/display/id", "/okAction/id", "/dataSource/id",
                          "/state/id"}) {
    EXPECT_EQ(parse(without(ad, json::json_pointer(key))), nullptr) << key;
  }
  EXPECT_EQ(parse(with(ad, "/id"_json_pointer, 12)), nullptr);
  EXPECT_EQ(parse(with(ad, "/lifecycle"_json_pointer, json::array())), nullptr);
  EXPECT_EQ(parse(with(ad, "/ignoreGlobalMinimumPopupTimeInterval"_json_pointer, 1)), nullptr);
  EXPECT_EQ(parse(with(ad, "/ignoreGlobalMinimumPopupTimeInterval"_json_pointer, "true")), nullptr);
  EXPECT_EQ(AdvertisementParser().parse("[]"), nullptr);
  EXPECT_EQ(AdvertisementParser().parse("not json"), nullptr);
  // An empty lifecycle is enough.
  auto bare = parse(with(ad, "/lifecycle"_json_pointer, json::object()));
  ASSERT_TRUE(bare);
  EXPECT_EQ(bare->startDate(), std::nullopt);
  EXPECT_FALSE(bare->postponeEnabled());
}

TEST(AdvertisementParserTest, OptionalMembersOfTheWrongTypeAreSkipped) {
  auto ad = validAdvertisement();
  ad["name"] = 5;
  ad["lifecycle"] = {{"startTimestamp", "1700000000"},
                     {"endTimestamp", true},
                     {"maxImpressionCount", 2.5},
                     {"postponeEnabled", 1},
                     {"postponeDelay", "60"}};
  ad["triggers"] = {{{"id", "t"}, {"key", "k"}, {"thresholdCount", "3"}, {"displayDelay", false}}};
  ad["targets"] = {{{"id", "g"}, {"key", "s"}, {"customViewClass", 4}, {"rowIndex", true}}};
  auto parsed = parse(ad);
  ASSERT_TRUE(parsed);
  EXPECT_EQ(parsed->name(), std::nullopt);
  EXPECT_EQ(parsed->startDate(), std::nullopt);
  EXPECT_EQ(parsed->endDate(), std::nullopt);
  EXPECT_EQ(parsed->maxImpressionCount(), std::nullopt);
  EXPECT_FALSE(parsed->postponeEnabled());
  EXPECT_EQ(parsed->postponeDelay(), std::nullopt);
  ASSERT_EQ(parsed->triggers().size(), 1u);
  EXPECT_EQ(parsed->triggers().members()[0]->thresholdCount(), std::nullopt);
  EXPECT_EQ(parsed->triggers().members()[0]->displayDelay(), std::nullopt);
  ASSERT_EQ(parsed->targets().size(), 1u);
  EXPECT_EQ(parsed->targets().members()[0]->customViewClass(), std::nullopt);
  EXPECT_EQ(parsed->targets().members()[0]->rowIndex(), std::nullopt);

  auto epoch = parse(with(validAdvertisement(), "/lifecycle/startTimestamp"_json_pointer, 0));
  ASSERT_TRUE(epoch);
  EXPECT_EQ(epoch->startDate(), dateWithTimeIntervalSince1970(0));
  // Integral numbers are integers whichever way they are written; a delay may be an integer.
  auto written = parse(with(with(validAdvertisement(), "/lifecycle/maxImpressionCount"_json_pointer, 4.0),
                            "/lifecycle/postponeDelay"_json_pointer, 30));
  ASSERT_TRUE(written);
  EXPECT_EQ(written->maxImpressionCount(), 4);
  EXPECT_EQ(written->postponeDelay(), 30.0);
}

TEST(AdvertisementParserTest, ActionParameterIsReadOnlyForTheActionsThatHaveOne) {
  auto ad = validAdvertisement();
  auto openAd = parse(with(ad, "/okAction/id"_json_pointer, 2));
  ASSERT_TRUE(openAd);
  EXPECT_EQ(openAd->okActionMeta(), "other");
  auto openAdWithout = parse(without(with(ad, "/okAction/id"_json_pointer, 2), "/okAction/advertisementId"_json_pointer));
  ASSERT_TRUE(openAdWithout);
  EXPECT_EQ(openAdWithout->okActionMeta(), std::nullopt);

  auto review = parse(with(ad, "/okAction/id"_json_pointer, 3));
  ASSERT_TRUE(review);  // the review link is derived from the store info
  EXPECT_EQ(review->okActionMeta(), "https://store.example.com/app");
  auto storeWithNumber = parse(with(ad, "/okAction/url"_json_pointer, 7));
  ASSERT_TRUE(storeWithNumber);
  EXPECT_EQ(storeWithNumber->okActionMeta(), std::nullopt);

  for (int id : {0, 4, 5, 6, 7}) {
    auto other = parse(with(ad, "/okAction/id"_json_pointer, id));
    ASSERT_TRUE(other) << id;
    EXPECT_EQ(other->okActionMeta(), std::nullopt) << id;
  }
}

TEST(AdvertisementParserTest, ValidationDependsOnDisplayAndAction) {
  auto ad = validAdvertisement();
  // OpenStore needs a non-empty store URL of the advertised app.
  EXPECT_EQ(parse(with(ad, "/advertisedApp/storeUrl"_json_pointer, "")), nullptr);
  EXPECT_EQ(parse(without(ad, "/advertisedApp/storeUrl"_json_pointer)), nullptr);
  EXPECT_EQ(parse(without(ad, "/advertisedApp"_json_pointer)), nullptr);
  EXPECT_EQ(parse(without(ad, "/advertisedApp/id"_json_pointer)), nullptr);

  // OpenReview needs a stored or derived review link.
  auto review = with(ad, "/okAction/id"_json_pointer, 3);
  EXPECT_TRUE(parse(review));
  EXPECT_EQ(parse(without(review, "/advertisedApp/storeInfo"_json_pointer)), nullptr);
  EXPECT_TRUE(parse(with(without(review, "/advertisedApp/storeInfo"_json_pointer), "/advertisedApp/reviewUrl"_json_pointer,
                         "https://store.example.com/review")));
  EXPECT_EQ(parse(with(without(review, "/advertisedApp/storeInfo"_json_pointer), "/advertisedApp/reviewUrl"_json_pointer, "")),
            nullptr);

  // Actions without a parameter need nothing else.
  EXPECT_TRUE(parse(without(with(ad, "/okAction/id"_json_pointer, 0), "/advertisedApp"_json_pointer)));

  // DFP interstitials need their identifier, whatever the action.
  auto dfp = with(with(ad, "/display/id"_json_pointer, 14), "/okAction/id"_json_pointer, -1);
  EXPECT_EQ(parse(dfp), nullptr);
  EXPECT_EQ(parse(with(dfp, "/resources/dfpInterstitialIdentifier"_json_pointer, "")), nullptr);
  EXPECT_EQ(parse(with(dfp, "/resources/dfpInterstitialIdentifier"_json_pointer, nullptr)), nullptr);
  auto withId = parse(with(dfp, "/resources/dfpInterstitialIdentifier"_json_pointer, "/1/unit"));
  ASSERT_TRUE(withId);
  EXPECT_EQ(withId->okActionType(), ZTIAMAdvertisementActionTypeInvalid);
  EXPECT_TRUE(parse(with(with(dfp, "/display/id"_json_pointer, 15), "/resources/dfpInterstitialIdentifier"_json_pointer, "u")));
}

TEST(AdvertisementParserTest, AdvertisementResourcesAreAllOrNothingAppResourcesMemberByMember) {
  auto ad = with(validAdvertisement(), "/resources/count"_json_pointer, 3);
  ad["advertisedApp"]["resources"]["count"] = 3;
  ad["advertisedApp"]["resources"]["list"] = json::array();
  ad["advertisedApp"]["resources"]["nothing"] = nullptr;
  auto parsed = parse(ad);
  ASSERT_TRUE(parsed);
  EXPECT_TRUE(parsed->resources().empty());
  const auto& appResources = parsed->advertisedApp()->resources();
  EXPECT_EQ(appResources.size(), 3u);
  EXPECT_EQ(appResources.count("count"), 0u);
  EXPECT_EQ(appResources.count("list"), 0u);
  ASSERT_EQ(appResources.count("nothing"), 1u);
  EXPECT_EQ(appResources.at("nothing")->value(), std::nullopt);

  auto notAnObject = parse(with(validAdvertisement(), "/resources"_json_pointer, json::array({"title"})));
  ASSERT_TRUE(notAnObject);
  EXPECT_TRUE(notAnObject->resources().empty());
}

TEST(AdvertisementParserTest, RatingIsTheShortestFloatTextWithAFraction) {
  const std::pair<json, std::optional<std::string>> cases[] = {
      {4, "4.0"},    {4.5, "4.5"},         {4.7, "4.7"},        {0, "0.0"},       {3.14159265358979, "3.1415927"},
      {0.1, "0.1"},  {"4.5", std::nullopt}, {true, std::nullopt}, {1e300, std::nullopt}};
  for (const auto& [value, text] : cases) {
    auto ad = parse(with(validAdvertisement(), "/advertisedApp/rating"_json_pointer, value));
    ASSERT_TRUE(ad) << value;
    EXPECT_EQ(ad->advertisedApp()->rating(), text) << value;
  }
}

TEST(AdvertisementParserTest, StoreInfoNeedsAnIntegerIdAndABundleId) {
  auto ad = validAdvertisement();
  EXPECT_EQ(parse(with(ad, "/advertisedApp/storeInfo/id"_json_pointer, "123456"))->advertisedApp()->storeInfo(), nullptr);
  EXPECT_EQ(parse(without(ad, "/advertisedApp/storeInfo/bundleId"_json_pointer))->advertisedApp()->storeInfo(), nullptr);
  EXPECT_EQ(parse(with(ad, "/advertisedApp/storeInfo"_json_pointer, "x"))->advertisedApp()->storeInfo(), nullptr);
  auto noIcon = parse(without(ad, "/advertisedApp/storeInfo/icon"_json_pointer));
  ASSERT_TRUE(noIcon->advertisedApp()->storeInfo());
  EXPECT_EQ(noIcon->advertisedApp()->storeInfo()->icon60x60Url(), std::nullopt);
  auto big = parse(with(ad, "/advertisedApp/storeInfo/id"_json_pointer, std::int64_t{9007199254740993}));
  EXPECT_EQ(big->advertisedApp()->storeInfo()->storeId(), "9007199254740993");
}

TEST(AdvertisementParserTest, BadTriggersAndTargetsAreDroppedAloneInOrder) {
  auto ad = validAdvertisement();
  ad["triggers"] = json::parse(R"([{"id": "a", "key": "k1"}, {"id": "b"}, 7, {"key": "k"}, {"id": 3, "key": "k"},
                                   {"id": "c", "key": "k2"}, null, {"id": "a", "key": "k1"}])");
  ad["targets"] = json::parse(R"([{"id": "x"}, {"id": "y", "key": "s"}, "z"])");
  auto parsed = parse(ad);
  ASSERT_TRUE(parsed);
  ASSERT_EQ(parsed->triggers().size(), 3u);
  EXPECT_EQ(parsed->triggers().members()[0]->triggerId(), "a");
  EXPECT_EQ(parsed->triggers().members()[1]->triggerId(), "c");
  EXPECT_EQ(parsed->triggers().members()[2]->triggerId(), "a");  // equal fields, another object
  ASSERT_EQ(parsed->targets().size(), 1u);
  EXPECT_EQ(parsed->targets().members()[0]->targetId(), "y");

  auto empty = parse(with(with(ad, "/triggers"_json_pointer, json::array()), "/targets"_json_pointer, json::object()));
  ASSERT_TRUE(empty);
  EXPECT_TRUE(empty->triggers().empty());
  EXPECT_TRUE(empty->targets().empty());
}

TEST(AdvertisementParserTest, DomAndTextInputsGiveTheSameRecord) {
  simdjson::dom::parser parser;
  const auto text = validAdvertisement().dump();
  auto root = parser.parse(text);
  ASSERT_FALSE(root.error());
  auto fromDom = AdvertisementParser().parse(root.value_unsafe());
  ASSERT_TRUE(fromDom);
  EXPECT_EQ(fromDom->advertisementId(), "ad-1");
  EXPECT_EQ(fromDom->triggers().size(), 2u);
  EXPECT_EQ(fromDom->advertisedApp()->storeInfo()->storeId(), "123456");
}

TEST(AdvertisementParserTest, DiagnosticsNameThePathAndTheReason) {
  ZTIAMCollectingParseDiagnostics diagnostics;
  EXPECT_EQ(parse(with(validAdvertisement(), "/display/id"_json_pointer, 13), &diagnostics), nullptr);
  ASSERT_EQ(diagnostics.lines(), std::vector<std::string>{"display.id: 13 is not 14, 15 or 16 (advertisement dropped)"});

  ZTIAMCollectingParseDiagnostics more;
  auto ad = validAdvertisement();
  ad["triggers"] = json::parse(R"([{"id": "a", "key": "k"}, {"id": "b"}])");
  ad["lifecycle"]["startTimestamp"] = "soon";
  ad["advertisedApp"]["resources"]["n"] = 1;
  ASSERT_TRUE(parse(ad, &more));
  EXPECT_EQ(more.lines(), (std::vector<std::string>{
                              "lifecycle.startTimestamp: is a string, not a number (ignored)",
                              "advertisedApp.resources.n: is the number 1, not a string or null (resource dropped)",
                              "triggers[1].key: missing (trigger dropped)"}));

  ZTIAMCollectingParseDiagnostics invalid;
  EXPECT_EQ(parse(with(validAdvertisement(), "/advertisedApp/storeUrl"_json_pointer, ""), &invalid), nullptr);
  ASSERT_EQ(invalid.entries().size(), 1u);
  EXPECT_EQ(invalid.entries()[0].path, "advertisedApp.storeUrl");
}

TEST(AdvertisementParserDeathTest, MappedIdOverflowStopsTheProgram) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto maxAction = with(validAdvertisement(), "/okAction/id"_json_pointer, std::numeric_limits<std::int64_t>::max());
  EXPECT_DEATH(parse(maxAction), "overflow");
  const auto minSource = with(validAdvertisement(), "/dataSource/id"_json_pointer, std::numeric_limits<std::int64_t>::min());
  EXPECT_DEATH(parse(minSource), "overflow");
  // The other ends are fine.
  EXPECT_EQ(parse(with(validAdvertisement(), "/okAction/id"_json_pointer, std::numeric_limits<std::int64_t>::min())), nullptr);
  auto max = parse(with(validAdvertisement(), "/dataSource/id"_json_pointer, std::numeric_limits<std::int64_t>::max()));
  ASSERT_TRUE(max);
  EXPECT_EQ(max->dataSourceType(), std::numeric_limits<std::int64_t>::max() - 1);
}

}  // namespace
}  // namespace iam
