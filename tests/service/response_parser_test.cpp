#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "iam/service/AdvertisementsResponseParser.h"
#include "iam/service/NativeQualityNetworkResponse.h"
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

std::shared_ptr<AdvertisementsRequestResponse> parse(const json& j, std::optional<std::string> etag = std::nullopt,
                                                     ZTIAMParseDiagnostics* diagnostics = nullptr) {
  return AdvertisementsResponseParser().parse(j.dump(), contentInfo(), std::move(etag), diagnostics);
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

TEST(AppConfigParserTest, AttributesAreTakenOnlyWhenEveryValueIsAString) {
  AppConfigParser parser;
  auto config = parser.parse(R"({"minimumPopupImpressionTimeInterval": 30.5, "attributes": {"a": "1", "b": "2"}})");
  ASSERT_TRUE(config);
  EXPECT_TRUE(AppConfig(30.5, {{"a", "1"}, {"b", "2"}}).isEqual(*config));
  EXPECT_EQ(config->attributeForKey("b"), "2");
  EXPECT_EQ(config->attributeForKey("c"), std::nullopt);
  for (std::string attributes : {R"(, "attributes": {"a": "1", "n": 2})", R"(, "attributes": {"a": null})",
                                 R"(, "attributes": ["a"])", R"(, "attributes": "a")", ""}) {
    auto c = parser.parse(R"({"minimumPopupImpressionTimeInterval": 1)" + attributes + "}");
    ASSERT_TRUE(c) << attributes;
    EXPECT_TRUE(AppConfig(1, {}).isEqual(*c)) << attributes;
  }
}

// A host's own configuration type.
class HostConfig final : public ZTIAMAppConfigType {
 public:
  double minimumPopupImpressionTimeInterval() const override { return 60; }
  std::map<std::string, std::string> attributes() const override { return {{"y", "2"}, {"z", "3"}, {"x", "1"}}; }
};

TEST(AppConfigEquality, IndependentOfKeyOrderSensitiveToEveryValue) {
  AppConfigParser parser;
  auto a = parser.parse(R"({"minimumPopupImpressionTimeInterval": 60, "attributes": {"x": "1", "y": "2", "z": "3"}})");
  auto b = parser.parse(R"({"attributes": {"z": "3", "x": "1", "y": "2"}, "minimumPopupImpressionTimeInterval": 60.0})");
  ASSERT_TRUE(a && b);
  EXPECT_TRUE(a->isEqual(*b) && *a == *b && a->isEqual(HostConfig()));
  using Map = std::map<std::string, std::string>;
  for (const AppConfig& other : {AppConfig(60.000001, Map{{"x", "1"}, {"y", "2"}, {"z", "3"}}),
                                 AppConfig(60, Map{{"x", "1"}, {"y", "2"}, {"z", "3"}, {"w", "4"}}),
                                 AppConfig(60, Map{{"x", "1"}, {"y", "2"}}), AppConfig(60, Map{{"x", "1"}, {"y", "2"}, {"z", "4"}}),
                                 AppConfig(60, Map{{"x", "1"}, {"y", "2"}, {"q", "3"}})}) {
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

TEST(AdvertisementsResponseDiagnostics, ReportsEachDropWithItsPathInTheAnswer) {
  auto bad = advertisement("x");
  bad["display"]["id"] = 13;
  auto badTrigger = advertisement("y");
  badTrigger["triggers"] = json::parse(R"([{"id": "t", "key": "k"}, {"key": "k"}])");
  ZTIAMCollectingParseDiagnostics diagnostics;
  auto response = parse(answer({advertisement("a"), advertisement("b"), badTrigger, bad}), std::nullopt, &diagnostics);
  ASSERT_TRUE(response);
  EXPECT_EQ(response->advertisements().size(), 3u);
  EXPECT_EQ(diagnostics.lines(), (std::vector<std::string>{
                                     "advertisements[2].triggers[1].id: missing (trigger dropped)",
                                     "advertisements[3].display.id: 13 is not 14, 15 or 16 (advertisement dropped)"}));

  ZTIAMCollectingParseDiagnostics envelope;
  auto a = answer(json::array());
  a["appConfig"] = {{"minimumPopupImpressionTimeInterval", "1"}};
  EXPECT_EQ(parse(a, std::nullopt, &envelope), nullptr);
  ASSERT_FALSE(envelope.entries().empty());
  EXPECT_EQ(envelope.entries()[0].path, "appConfig.minimumPopupImpressionTimeInterval");

  ZTIAMCollectingParseDiagnostics notJson;
  EXPECT_EQ(AdvertisementsResponseParser().parse("{\"advertisements\": [", contentInfo(), std::nullopt, &notJson), nullptr);
  ASSERT_EQ(notJson.entries().size(), 1u);
  EXPECT_EQ(notJson.entries()[0].path, "");
}

}  // namespace
}  // namespace iam
