#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>

#include "iam/model/AdvertisementParser.h"
#include "model/model_test_support.h"
#include "testing/CapturingLogSink.h"

namespace iam {
namespace {

using nlohmann::json;
using testing::validAdvertisement;
using Texts = std::vector<std::optional<std::string>>;
using Ints = std::vector<std::int64_t>;
using OptInts = std::vector<std::optional<std::int64_t>>;

std::shared_ptr<Advertisement> parse(const json& j, ZTIAMParseDiagnostics* diagnostics = nullptr) {
  return AdvertisementParser().parse(j.dump(), diagnostics);
}

json with(json j, const std::string& pointer, json value) {
  j[json::json_pointer(pointer)] = std::move(value);
  return j;
}

json without(json j, const std::string& pointer) {
  const json::json_pointer p(pointer);
  j[p.parent_pointer()].erase(p.back());
  return j;
}

TEST(AdvertisementParserTest, MapsEveryMemberOfAValidAdvertisement) {
  auto ad = parse(validAdvertisement());
  ASSERT_TRUE(ad && ad->advertisedApp() && ad->advertisedApp()->storeInfo());
  const auto& app = *ad->advertisedApp();
  const auto& info = *app.storeInfo();
  EXPECT_EQ((Texts{ad->advertisementId(), ad->name(), ad->okActionMeta(), app.appId(), app.packageName(), app.publisher(),
                   app.storeUrl(), app.storedReviewUrl(), app.rating(), app.name(), app.iconUrl(), info.storeId(),
                   info.bundleIdentifier(), info.name(), info.subtitle(), info.iconTitle(), info.icon60x60Url(),
                   info.icon100x100Url(), info.icon512x512Url()}),
            (Texts{"ad-1", "Spring", "https://store.example.com/app", "app-1", "com.example.app", "Example",
                   "https://store.example.com/app", std::nullopt, "4.0", "App", "https://i.example.com/a.png", "123456",
                   "com.example.bundle", "Store App", "Sub", "A", "u60", "u100", "u512"}));
  EXPECT_EQ(ad->startDate(), dateWithTimeIntervalSince1970(1700000000.5));
  EXPECT_EQ(ad->endDate(), dateWithTimeIntervalSince1970(1800000000));
  EXPECT_EQ(ad->postponeDelay(), 7200.0);
  EXPECT_TRUE(ad->postponeEnabled() && ad->ignoreGlobalMinimumPopupTimeInterval() && app.free());
  EXPECT_EQ((Ints{ad->maxImpressionCount().value_or(-1), ad->displayType(), ad->okActionType(), ad->dataSourceType(),
                  ad->stateType()}),
            (Ints{3, ZTIAMAdvertisementDisplayTypeReviewQuestion, ZTIAMAdvertisementActionTypeOpenStore,
                  ZTIAMAdvertisementDataSourceTypeAdMobNative, ZTIAMAdvertisementStateTypeTesting}));
  ASSERT_EQ(ad->resources().size(), 2u);
  EXPECT_EQ(ad->resources().at("title")->value(), "Hello");
  EXPECT_EQ(ad->resources().at("body")->value(), std::nullopt);

  ASSERT_EQ(ad->triggers().size(), 2u);
  ASSERT_EQ(ad->targets().size(), 1u);
  const auto& t1 = *ad->triggers().members()[0];
  const auto& g = *ad->targets().members()[0];
  EXPECT_EQ((Texts{t1.triggerId(), t1.eventKey(), ad->triggers().members()[1]->triggerId(), g.targetId(), g.spaceKey(),
                   g.customViewClass()}),
            (Texts{"t1", "appToForeground", "t2", "g1", "feed", "Cell"}));
  EXPECT_EQ((OptInts{t1.thresholdCount(), t1.maxFireCount(), t1.repeatIntervalCount(), g.rowIndex(),
                     g.rowRepeatInterval(), g.sectionIndex(), g.sectionRepeatInterval()}),
            (OptInts{3, 2, 5, 2, 10, 0, 1}));
  EXPECT_EQ(t1.displayDelay(), 1.5);
  for (const auto& t : ad->triggers()) EXPECT_EQ(t->advertisement(), ad);
  EXPECT_EQ(g.advertisement(), ad);
}

TEST(AdvertisementParserTest, IdsAreMappedRequiredMembersRefuseTheAdvertisement) {
  const auto base = with(validAdvertisement(), "/resources/dfpInterstitialIdentifier", "/123/unit");
  // Display ids are crossed; JSON action ids count from 0 (NoAction), data sources too; states are kept.
  const char* members[] = {"/display/id", "/okAction/id", "/dataSource/id", "/state/id"};
  const std::tuple<int, int, std::int64_t> mapped[] = {
      {0, 14, ZTIAMAdvertisementDisplayTypeDfpInterstitial}, {0, 15, ZTIAMAdvertisementDisplayTypeDfpInterstitialPreload},
      {0, 16, ZTIAMAdvertisementDisplayTypeReviewQuestion},  {1, 0, ZTIAMAdvertisementActionTypeNoAction},
      {1, 2, ZTIAMAdvertisementActionTypeOpenAd},            {1, 4, ZTIAMAdvertisementActionTypeDismiss},
      {1, 5, ZTIAMAdvertisementActionTypePostpone},          {1, 6, ZTIAMAdvertisementActionTypeOpenContact},
      {1, 7, ZTIAMAdvertisementActionTypeOpenContactForm},   {2, 0, -1},
      {2, 2, ZTIAMAdvertisementDataSourceTypeAdMobNative},   {3, 3, ZTIAMAdvertisementStateTypeDisabled}, {3, 7, 7}};
  for (const auto& [member, jsonId, expected] : mapped) {
    auto a = parse(with(base, members[member], jsonId));
    ASSERT_TRUE(a) << members[member] << " " << jsonId;
    EXPECT_EQ((Ints{a->displayType(), a->okActionType(), a->dataSourceType(), a->stateType()})[member], expected)
        << members[member] << " " << jsonId;
  }
  // Out of range, or not of the required type (a boolean is not an integer): refused as a whole.
  const std::pair<const char*, json> refused[] = {
      {"/display/id", 13},     {"/display/id", 17},   {"/display/id", -14},     {"/display/id", "16"},
      {"/display/id", true},   {"/display/id", 16.5}, {"/display/id", nullptr}, {"/okAction/id", 8},
      {"/okAction/id", -1},    {"/okAction/id", false}, {"/dataSource/id", "1"}, {"/state/id", 1.5},
      {"/id", 12},             {"/lifecycle", json::array()}, {"/ignoreGlobalMinimumPopupTimeInterval", 1}};
  for (const auto& [pointer, value] : refused) {
    EXPECT_EQ(parse(with(base, pointer, value)), nullptr) << pointer << " " << value;
  }
  for (const char* key : {"/id", "/lifecycle", "/display", "/okAction", "/dataSource", "/state",
                          "/ignoreGlobalMinimumPopupTimeInterval", "/display/id", "/okAction/id", "/dataSource/id",
                          "/state/id"}) {
    EXPECT_EQ(parse(without(base, key)), nullptr) << key;
  }
  EXPECT_TRUE(parse(with(base, "/lifecycle", json::object())));  // an empty lifecycle is enough
}

TEST(AdvertisementParserTest, OptionalMembersOfTheWrongTypeAreSkipped) {
  auto ad = validAdvertisement();
  ad["name"] = 5;
  ad["lifecycle"] = {{"startTimestamp", "1700000000"}, {"endTimestamp", true}, {"maxImpressionCount", 2.5},
                     {"postponeEnabled", 1},           {"postponeDelay", "60"}};
  ad["triggers"] = {{{"id", "t"}, {"key", "k"}, {"thresholdCount", "3"}, {"displayDelay", false}}};
  ad["targets"] = {{{"id", "g"}, {"key", "s"}, {"customViewClass", 4}, {"rowIndex", true}}};
  auto parsed = parse(ad);
  ASSERT_TRUE(parsed && parsed->triggers().size() == 1 && parsed->targets().size() == 1);
  const auto& trigger = *parsed->triggers().members()[0];
  const auto& target = *parsed->targets().members()[0];
  EXPECT_FALSE(parsed->name() || target.customViewClass() || parsed->maxImpressionCount() || trigger.thresholdCount() ||
               target.rowIndex() || parsed->postponeEnabled());
  EXPECT_FALSE(parsed->startDate() || parsed->endDate() || parsed->postponeDelay() || trigger.displayDelay());

  // The epoch is a date; integral numbers are integers whichever way they are written; a delay may
  // be an integer.
  ad["lifecycle"] = {{"startTimestamp", 0}, {"maxImpressionCount", 4.0}, {"postponeDelay", 30}};
  parsed = parse(ad);
  ASSERT_TRUE(parsed);
  EXPECT_EQ(parsed->startDate(), dateWithTimeIntervalSince1970(0));
  EXPECT_EQ(parsed->maxImpressionCount(), 4);
  EXPECT_EQ(parsed->postponeDelay(), 30.0);
}

TEST(AdvertisementParserTest, ActionParameterIsReadOnlyForTheActionsThatHaveOne) {
  const std::string url = "https://u.example.com/x";
  std::vector<std::pair<json, std::optional<std::string>>> cases = {
      {{{"id", 2}, {"url", url}, {"advertisementId", "other"}}, "other"},
      {{{"id", 2}, {"url", url}}, std::nullopt},
      {{{"id", 3}, {"url", url}, {"advertisementId", "other"}}, url},  // passes on the derived review link
      {{{"id", 1}, {"url", 7}, {"advertisementId", "other"}}, std::nullopt}};
  for (int id : {0, 4, 5, 6, 7}) cases.push_back({{{"id", id}, {"url", url}, {"advertisementId", "other"}}, std::nullopt});
  for (const auto& [action, meta] : cases) {
    auto parsed = parse(with(validAdvertisement(), "/okAction", action));
    ASSERT_TRUE(parsed) << action;
    EXPECT_EQ(parsed->okActionMeta(), meta) << action;
  }
}

TEST(AdvertisementParserTest, ValidationDependsOnDisplayAndAction) {
  const auto ad = validAdvertisement();
  const auto review = with(ad, "/okAction/id", 3);
  const auto reviewNoInfo = without(review, "/advertisedApp/storeInfo");
  const auto dfp = with(with(ad, "/display/id", 14), "/okAction/id", -1);
  const auto dfpId = "/resources/dfpInterstitialIdentifier";
  const std::tuple<const char*, json, bool> cases[] = {
      // OpenStore needs a non-empty store URL of the advertised app.
      {"store url empty", with(ad, "/advertisedApp/storeUrl", ""), false},
      {"store url missing", without(ad, "/advertisedApp/storeUrl"), false},
      {"no advertised app", without(ad, "/advertisedApp"), false},
      {"advertised app without id", without(ad, "/advertisedApp/id"), false},
      // OpenReview needs a stored or derived review link.
      {"review derived", review, true},
      {"review without store info", reviewNoInfo, false},
      {"review stored", with(reviewNoInfo, "/advertisedApp/reviewUrl", "https://r.example.com"), true},
      {"review stored empty", with(reviewNoInfo, "/advertisedApp/reviewUrl", ""), false},
      // Actions without a parameter need nothing else.
      {"no action, no app", without(with(ad, "/okAction/id", 0), "/advertisedApp"), true},
      // DFP interstitials need their identifier, whatever the action.
      {"dfp without id", dfp, false},
      {"dfp empty id", with(dfp, dfpId, ""), false},
      {"dfp null id", with(dfp, dfpId, nullptr), false},
      {"dfp with id", with(dfp, dfpId, "/1/unit"), true},
      {"dfp preload with id", with(with(dfp, "/display/id", 15), dfpId, "u"), true}};
  for (const auto& [name, doc, accepted] : cases) EXPECT_EQ(parse(doc) != nullptr, accepted) << name;
  auto invalidAction = parse(with(dfp, dfpId, "/1/unit"));
  ASSERT_TRUE(invalidAction);
  EXPECT_EQ(invalidAction->okActionType(), ZTIAMAdvertisementActionTypeInvalid);
}

TEST(AdvertisementParserTest, AdvertisementResourcesAreAllOrNothingAppResourcesMemberByMember) {
  auto ad = with(validAdvertisement(), "/resources/count", 3);
  ad["advertisedApp"]["resources"].update({{"count", 3}, {"list", json::array()}, {"nothing", nullptr}});
  auto parsed = parse(ad);
  ASSERT_TRUE(parsed);
  EXPECT_TRUE(parsed->resources().empty());
  std::vector<std::string> keys;
  for (const auto& [key, resource] : parsed->advertisedApp()->resources()) keys.push_back(key);
  EXPECT_EQ(keys, (std::vector<std::string>{"AppIcons", "name", "nothing"}));
  EXPECT_EQ(parsed->advertisedApp()->resources().at("nothing")->value(), std::nullopt);

  auto notAnObject = parse(with(validAdvertisement(), "/resources", json::array({"title"})));
  ASSERT_TRUE(notAnObject);
  EXPECT_TRUE(notAnObject->resources().empty());
}

// The rating is the shortest float text with a fraction; store information needs an integer id and a
// bundle id.
TEST(AdvertisementParserTest, AppRatingAndStoreInfo) {
  const std::pair<json, std::optional<std::string>> cases[] = {
      {4, "4.0"},    {4.5, "4.5"},         {4.7, "4.7"},        {0, "0.0"},       {3.14159265358979, "3.1415927"},
      {0.1, "0.1"},  {"4.5", std::nullopt}, {true, std::nullopt}, {1e300, std::nullopt}};
  for (const auto& [value, text] : cases) {
    auto ad = parse(with(validAdvertisement(), "/advertisedApp/rating", value));
    ASSERT_TRUE(ad) << value;
    EXPECT_EQ(ad->advertisedApp()->rating(), text) << value;
  }
  auto storeInfoOf = [](const json& doc) {
    auto parsed = parse(doc);
    return parsed && parsed->advertisedApp() ? parsed->advertisedApp()->storeInfo() : nullptr;
  };
  const auto ad = validAdvertisement();
  EXPECT_FALSE(storeInfoOf(with(ad, "/advertisedApp/storeInfo/id", "123456")) ||
               storeInfoOf(without(ad, "/advertisedApp/storeInfo/bundleId")) ||
               storeInfoOf(with(ad, "/advertisedApp/storeInfo", "x")));
  auto noIcon = storeInfoOf(without(ad, "/advertisedApp/storeInfo/icon"));
  ASSERT_TRUE(noIcon);
  EXPECT_EQ(noIcon->icon60x60Url(), std::nullopt);
  auto big = storeInfoOf(with(ad, "/advertisedApp/storeInfo/id", std::int64_t{9007199254740993}));
  ASSERT_TRUE(big);
  EXPECT_EQ(big->storeId(), "9007199254740993");  // not through a double
}

TEST(AdvertisementParserTest, BadTriggersAndTargetsAreDroppedAloneInOrder) {
  auto ad = validAdvertisement();
  ad["triggers"] = json::parse(R"([{"id": "a", "key": "k1"}, {"id": "b"}, 7, {"key": "k"}, {"id": 3, "key": "k"},
                                   {"id": "c", "key": "k2"}, null, {"id": "a", "key": "k1"}])");
  ad["targets"] = json::parse(R"([{"id": "x"}, {"id": "y", "key": "s"}, "z"])");
  auto parsed = parse(ad);
  ASSERT_TRUE(parsed);
  Texts ids;
  for (const auto& t : parsed->triggers()) ids.push_back(t->triggerId());
  EXPECT_EQ(ids, (Texts{"a", "c", "a"}));  // the second "a": equal fields, another object
  ASSERT_EQ(parsed->targets().size(), 1u);
  EXPECT_EQ(parsed->targets().members()[0]->targetId(), "y");

  auto empty = parse(with(with(ad, "/triggers", json::array()), "/targets", json::object()));
  ASSERT_TRUE(empty);
  EXPECT_TRUE(empty->triggers().empty());
  EXPECT_TRUE(empty->targets().empty());
}

TEST(AdvertisementParserTest, DiagnosticsNameThePathAndTheReason) {
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

  // Too deep is said as such, not as broken JSON. The advertisement is level 1, each array one more.
  const auto nested = [](int arrays) {
    return json::parse(validAdvertisement().dump().insert(1, "\"deep\":" + std::string(arrays, '[') + std::string(arrays, ']') + ","));
  };
  EXPECT_TRUE(parse(nested(63)));
  ZTIAMCollectingParseDiagnostics deep;
  EXPECT_EQ(parse(nested(64), &deep), nullptr);
  EXPECT_EQ(deep.lines(), std::vector<std::string>{"nested deeper than 64 levels (advertisement dropped)"});

  ZTIAMCollectingParseDiagnostics invalid;
  EXPECT_EQ(parse(with(validAdvertisement(), "/advertisedApp/storeUrl", ""), &invalid), nullptr);
  ASSERT_EQ(invalid.entries().size(), 1u);
  EXPECT_EQ(invalid.entries()[0].path, "advertisedApp.storeUrl");
}

// An id from the network whose mapping would wrap around costs that advertisement only, with an
// error line and a report; the process goes on.
TEST(AdvertisementParserTest, MappedIdOverflowDropsTheAdvertisement) {
  testing::CapturingLogSink log;
  ZTIAMCollectingParseDiagnostics diagnostics;
  EXPECT_EQ(parse(with(validAdvertisement(), "/okAction/id", std::numeric_limits<std::int64_t>::max()), &diagnostics),
            nullptr);
  EXPECT_EQ(parse(with(validAdvertisement(), "/dataSource/id", std::numeric_limits<std::int64_t>::min()), &diagnostics),
            nullptr);
  EXPECT_EQ(diagnostics.lines(),
            (std::vector<std::string>{"okAction.id: 9223372036854775807 overflows when mapped (advertisement dropped)",
                                      "dataSource.id: -9223372036854775808 overflows when mapped (advertisement dropped)"}));
  const auto errors = log.messages(LogLevel::Error);
  ASSERT_EQ(errors.size(), 2u);
  EXPECT_EQ(errors[0], "IAM: Advertisement 'ad-1' dropped: its okAction.id 9223372036854775807 cannot be mapped.");
  // The other ends are fine.
  EXPECT_EQ(parse(with(validAdvertisement(), "/okAction/id", std::numeric_limits<std::int64_t>::min())), nullptr);
  auto max = parse(with(validAdvertisement(), "/dataSource/id", std::numeric_limits<std::int64_t>::max()));
  ASSERT_TRUE(max);
  EXPECT_EQ(max->dataSourceType(), std::numeric_limits<std::int64_t>::max() - 1);
  EXPECT_EQ(log.messages(LogLevel::Error).size(), 2u);
}

}  // namespace
}  // namespace iam
