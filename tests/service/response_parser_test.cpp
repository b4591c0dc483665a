#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <string>
#include <unordered_set>

#include "iam/service/AdvertisementsResponseParser.h"
#include "iam/service/NativeQualityNetworkResponse.h"
#include "iam/service/NativeQualityNetworkResponseParser.h"
#include "model/model_test_support.h"
#include "testing/TestEnvironment.h"

namespace iam {
namespace {

using nlohmann::json;

json advertisement(const std::string& id) {
  return {{"id", id},
          {"lifecycle", json::object()},
          {"display", {{"id", 16}}},
          {"okAction", {{"id", 0}}},
          {"dataSource", {{"id", 1}}},
          {"state", {{"id", 1}}},
          {"ignoreGlobalMinimumPopupTimeInterval", false}};
}

json answer(json advertisements) {
  return {{"advertisements", std::move(advertisements)},
          {"appConfig", {{"minimumPopupImpressionTimeInterval", 120}, {"attributes", {{"k", "v"}}}}}};
}

std::shared_ptr<OspreyServiceContentInfo> contentInfo() {
  return std::make_shared<OspreyServiceContentInfo>(dateWithTimeIntervalSince1970(1000), false);
}

std::shared_ptr<AdvertisementsRequestResponse> parse(const json& j) {
  return AdvertisementsResponseParser().parse(j.dump(), contentInfo(), std::nullopt);
}

TEST(AdvertisementsResponseParserTest, KeepsAnswerOrderAndDropsOnlyBadAdvertisements) {
  auto bad = advertisement("bad");
  bad["display"]["id"] = 3;
  auto info = contentInfo();
  auto response = AdvertisementsResponseParser().parse(
      answer({advertisement("c"), bad, advertisement("a"), advertisement("b")}).dump(), info, "\"etag-1\"");
  ASSERT_TRUE(response);
  std::vector<std::string> ids;
  for (const auto& ad : response->advertisements()) ids.push_back(ad->advertisementId());
  EXPECT_EQ(ids, (std::vector<std::string>{"c", "a", "b"}));
  EXPECT_EQ(response->contentInfo(), info);
  EXPECT_EQ(response->etag(), "\"etag-1\"");
  EXPECT_EQ(response->maximumAge(), 86400);
  ASSERT_TRUE(response->appConfig());
  EXPECT_TRUE(AppConfig(120, {{"k", "v"}}).isEqual(*response->appConfig()));

  auto allBad = parse(answer({bad, bad}));
  ASSERT_TRUE(allBad);
  EXPECT_TRUE(allBad->advertisements().empty());
  EXPECT_EQ(allBad->etag(), std::nullopt);
}

TEST(AdvertisementsResponseParserTest, TheWholeAnswerFailsOnItsEnvelope) {
  auto noList = answer(json::array());
  noList.erase("advertisements");
  auto noConfig = answer(json::array());
  noConfig.erase("appConfig");
  // One stray value in the list costs the answer, not only itself.
  for (const json& doc : {json::object(), json::array(), json("text"), noList, noConfig, answer(nullptr),
                          answer(json::object()), answer({advertisement("a"), 5}), answer({advertisement("a"), nullptr})}) {
    EXPECT_EQ(parse(doc), nullptr) << doc;
  }
  for (const json& config : {json::object(), json(nullptr), json::array(), json({{"attributes", json::object()}}),
                             json({{"minimumPopupImpressionTimeInterval", "60"}}),
                             json({{"minimumPopupImpressionTimeInterval", nullptr}})}) {
    auto a = answer(json::array());
    a["appConfig"] = config;
    EXPECT_EQ(parse(a), nullptr) << config;
  }
}

// A host's own configuration type.
class HostConfig final : public ZTIAMAppConfigType {
 public:
  double minimumPopupImpressionTimeInterval() const override { return 60.5; }
  std::map<std::string, std::string> attributes() const override { return {{"y", "2"}, {"z", "3"}, {"x", "1"}}; }
};

// Attributes are taken only when every value is a string; equality ignores key order but no value.
TEST(AppConfigParserTest, AttributesAreAllOrNothingAndEqualityWeighsEveryValue) {
  AppConfigParser parser;
  auto a = parser.parse(R"({"minimumPopupImpressionTimeInterval": 60.5, "attributes": {"x": "1", "y": "2", "z": "3"}})");
  auto b = parser.parse(R"({"attributes": {"z": "3", "x": "1", "y": "2"}, "minimumPopupImpressionTimeInterval": 60.50})");
  ASSERT_TRUE(a && b);
  EXPECT_TRUE(a->isEqual(*b) && *a == *b && a->isEqual(HostConfig()));
  EXPECT_EQ(a->attributeForKey("y"), "2");
  EXPECT_EQ(a->attributeForKey("c"), std::nullopt);
  for (std::string attributes : {R"(, "attributes": {"a": "1", "n": 2})", R"(, "attributes": {"a": null})",
                                 R"(, "attributes": ["a"])", R"(, "attributes": "a")", ""}) {
    auto c = parser.parse(R"({"minimumPopupImpressionTimeInterval": 1)" + attributes + "}");
    ASSERT_TRUE(c) << attributes;
    EXPECT_TRUE(AppConfig(1, {}).isEqual(*c)) << attributes;
  }
  using Map = std::map<std::string, std::string>;
  for (const AppConfig& other : {AppConfig(60.500001, Map{{"x", "1"}, {"y", "2"}, {"z", "3"}}),
                                 AppConfig(60.5, Map{{"x", "1"}, {"y", "2"}, {"z", "3"}, {"w", "4"}}),
                                 AppConfig(60.5, Map{{"x", "1"}, {"y", "2"}}), AppConfig(60.5, Map{{"x", "1"}, {"y", "2"}, {"z", "4"}}),
                                 AppConfig(60.5, Map{{"x", "1"}, {"y", "2"}, {"q", "3"}})}) {
    EXPECT_FALSE(a->isEqual(other) || other.isEqual(*a));
  }
}

// Both held answers share one rule: one day, on purpose not the answer's maximum age.
TEST(ResponseExpiry, ExpiresStrictlyAfterOneDayOrWhenMarkedStale) {
  testing::TestEnvironment env;
  const auto created = env.clock().now();
  auto info = std::make_shared<OspreyServiceContentInfo>(created, false);
  AdvertisementsRequestResponse response({}, info, std::make_shared<AppConfig>(0, std::map<std::string, std::string>{}));
  NativeQualityNetworkResponse ranked({}, info);
  for (const auto& [age, expired] : {std::pair{0.0, false}, {86400.0, false}, {86400.001, true}, {86401.0, true}}) {
    env.clock().setNow(dateByAddingTimeInterval(created, age));
    EXPECT_EQ(response.isExpired(), expired) << age;
    EXPECT_EQ(ranked.isExpired(), expired) << age;
  }
  // A renewed content info makes it fresh again; a stale mark expires it at any age.
  response.setContentInfo(std::make_shared<OspreyServiceContentInfo>(env.clock().now(), false));
  EXPECT_FALSE(response.isExpired());
  response.setContentInfo(std::make_shared<OspreyServiceContentInfo>(env.clock().now(), true));
  ranked.setContentInfo(response.contentInfo());
  EXPECT_TRUE(response.isExpired() && ranked.isExpired());
  // From the future (a clock set back): young, not expired.
  response.setContentInfo(std::make_shared<OspreyServiceContentInfo>(dateByAddingTimeInterval(env.clock().now(), 5000), false));
  EXPECT_FALSE(response.isExpired());
}

json rankedApp(const std::string& id, json priority = 1) {
  return {{"id", id},
          {"priorityId", std::move(priority)},
          {"advertisedApp", {{"id", "app-" + id}, {"storeUrl", "https://store.example.com/" + id}}},
          {"showFree", true},
          {"resources", {{"title", "T"}, {"none", nullptr}, {"number", 3}}}};
}

std::shared_ptr<NativeQualityNetworkResponse> parseRanked(const json& j, ZTIAMParseDiagnostics* diagnostics = nullptr) {
  return NativeQualityNetworkResponseParser().parse(j.dump(), contentInfo(), "tag", diagnostics);
}

TEST(QualityNetworkParserTest, MapsRankedAppsInOrderAndDropsBadOnes) {
  auto noApp = rankedApp("no-app");
  noApp.erase("advertisedApp");
  auto badApp = rankedApp("bad-app");
  badApp["advertisedApp"] = {{"storeUrl", "x"}};
  // Optional members of the wrong type leave their defaults.
  auto sparse = rankedApp("sparse", 3);
  sparse["showFree"] = "yes";
  sparse["resources"] = json::array({"title"});
  auto response = parseRanked({{"rankedApps", {rankedApp("b", 2), rankedApp("zero", 0), rankedApp("four", 4), noApp, badApp,
                                         rankedApp("text", "1"), rankedApp("flag", true), sparse}}});
  ASSERT_TRUE(response);
  EXPECT_EQ(response->etag(), "tag");
  EXPECT_EQ(response->maximumAge(), 86400);
  auto apps = response->qualityNetworkRankedApps();
  ASSERT_EQ(apps.size(), 2u);
  EXPECT_EQ((std::pair{apps[0]->rankedAppId(), apps[1]->rankedAppId()}), (std::pair<std::string, std::string>{"b", "sparse"}));
  EXPECT_EQ((std::pair{apps[0]->priority(), apps[1]->priority()}),
            (std::pair{ZTIAMQualityNetworkPriorityMedium, ZTIAMQualityNetworkPriorityLow}));
  const auto& first = *apps[0];
  EXPECT_TRUE(first.showFreeBadge());
  ASSERT_TRUE(first.advertisedApp());
  EXPECT_EQ(first.advertisedApp()->appId(), "app-b");
  EXPECT_EQ(first.getResourceValue("title"), "T");
  EXPECT_EQ(first.resources().count("none"), 1u);
  EXPECT_EQ(first.resources().count("number"), 0u);
  EXPECT_FALSE(apps[1]->showFreeBadge());
  EXPECT_TRUE(apps[1]->resources().empty());
}

TEST(QualityNetworkParserTest, TheEnvelopeDecidesAboutTheWholeAnswer) {
  for (const json& doc : {json::object(), json({{"other", 1}}), json({{"rankedApps", json::object()}}),
                          json({{"rankedApps", {rankedApp("a"), "b"}}})}) {
    EXPECT_EQ(parseRanked(doc), nullptr) << doc;
  }
  for (const json& apps : {json::array(), json::array({rankedApp("a", 9)})}) {
    auto empty = parseRanked({{"rankedApps", apps}});
    ASSERT_TRUE(empty) << apps;
    EXPECT_TRUE(empty->qualityNetworkRankedApps().empty());
  }
  ZTIAMCollectingParseDiagnostics diagnostics;
  parseRanked({{"rankedApps", {rankedApp("a"), rankedApp("b", 0)}}}, &diagnostics);
  EXPECT_EQ(diagnostics.lines(), (std::vector<std::string>{
                                     "rankedApps[0].resources.number: is the number 3, not a string or null (resource dropped)",
                                     "rankedApps[1].priorityId: 0 is not 1, 2 or 3 (ranked app dropped)"}));
}

// Hosts keep ranked apps in sets, so identity is the id alone; a resource replaces the one of its key.
TEST(RankedAppRecord, IdentityIsTheIdAloneResourcesAreKeptByTheirOwnKey) {
  ZTIAMQualityNetworkRankedApp a("same");
  ZTIAMQualityNetworkRankedApp b("same");
  b.setPriority(ZTIAMQualityNetworkPriorityHigh);
  b.addResource(std::make_shared<ZTIAMResource>("title", "first"));
  b.addResource(std::make_shared<ZTIAMResource>("title", "second"));
  b.addResource(std::make_shared<ZTIAMResource>("blank", std::nullopt));
  EXPECT_TRUE(a == b);
  EXPECT_FALSE(a == ZTIAMQualityNetworkRankedApp("other"));
  EXPECT_EQ(std::unordered_set<ZTIAMQualityNetworkRankedApp>{b}.count(a), 1u);
  EXPECT_EQ(b.resources().size(), 2u);
  EXPECT_EQ((std::vector<std::optional<std::string>>{b.getResourceValue("title", "d"), b.getResourceValue("missing"),
                                                     b.getResourceValue("missing", "d"), b.getResourceValue("blank", "d")}),
            (std::vector<std::optional<std::string>>{"second", std::nullopt, "d", "d"}));
}

// Each corpus document as a whole answer, as the app configuration, as the advertisements list and
// as a ranked app.
TEST(ServiceParsersCorpus, EveryCorpusFileIsRefusedOrParsedWithoutThrowing) {
  AdvertisementsResponseParser responses;
  NativeQualityNetworkResponseParser qualityNetwork;
  auto info = std::make_shared<OspreyServiceContentInfo>(Date{}, false);
  const auto files = testing::jsonCorpus();
  ASSERT_GT(files.size(), 300u);
  for (const auto& [name, bytes] : files) {
    SCOPED_TRACE(name);
    ZTIAMCollectingParseDiagnostics sink;
    EXPECT_NO_THROW({
      EXPECT_EQ(responses.parse(bytes, info, std::nullopt, &sink), nullptr);
      EXPECT_EQ(qualityNetwork.parse(bytes, info, std::nullopt, &sink), nullptr);
      (void)responses.parse(bytes, info, std::nullopt);
      (void)qualityNetwork.parse(bytes, info, std::nullopt);
      (void)responses.appConfigParser().parse(bytes);
      (void)qualityNetwork.rankedAppParser().parse(bytes, &sink);
      if (name.rfind("y_", 0) == 0) {
        const std::string config = R"({"minimumPopupImpressionTimeInterval": 1})";
        (void)responses.parse(R"({"advertisements": [], "appConfig": )" + bytes + "}", info, std::nullopt, &sink);
        (void)responses.parse(R"({"appConfig": )" + config + R"(, "advertisements": )" + bytes + "}", info, "e", &sink);
        (void)responses.parse(R"({"appConfig": )" + config + R"(, "advertisements": [)" + bytes + "]}", info, "e", &sink);
        (void)responses.parse(R"({"appConfig": {"minimumPopupImpressionTimeInterval": 1, "attributes": )" + bytes + "}}",
                              info, "e", &sink);
        (void)qualityNetwork.parse(R"({"rankedApps": [)" + bytes + "]}", info, std::nullopt, &sink);
        (void)qualityNetwork.parse(R"({"rankedApps": [{"id": "a", "priorityId": 1, "advertisedApp": )" + bytes + "}]}",
                                   info, std::nullopt, &sink);
      }
    });
    EXPECT_FALSE(sink.entries().empty());
  }
}

}  // namespace
}  // namespace iam
