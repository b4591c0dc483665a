#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <unordered_set>

#include "iam/service/NativeQualityNetworkResponseParser.h"

namespace iam {
namespace {

using nlohmann::json;

json rankedApp(const std::string& id, json priority = 1) {
  return {{"id", id},
          {"priorityId", std::move(priority)},
          {"advertisedApp", {{"id", "app-" + id}, {"storeUrl", "https://store.example.com/" + id}}},
          {"showFree", true},
          {"resources", {{"title", "T"}, {"none", nullptr}, {"number", 3}}}};
}

std::shared_ptr<NativeQualityNetworkResponse> parse(const json& j, ZTIAMParseDiagnostics* diagnostics = nullptr) {
  return NativeQualityNetworkResponseParser().parse(
      j.dump(), std::make_shared<OspreyServiceContentInfo>(dateWithTimeIntervalSince1970(0), false), "tag", diagnostics);
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
  auto response = parse({{"rankedApps", {rankedApp("b", 2), rankedApp("zero", 0), rankedApp("four", 4), noApp, badApp,
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
    EXPECT_EQ(parse(doc), nullptr) << doc;
  }
  for (const json& apps : {json::array(), json::array({rankedApp("a", 9)})}) {
    auto empty = parse({{"rankedApps", apps}});
    ASSERT_TRUE(empty) << apps;
    EXPECT_TRUE(empty->qualityNetworkRankedApps().empty());
  }
  ZTIAMCollectingParseDiagnostics diagnostics;
  parse({{"rankedApps", {rankedApp("a"), rankedApp("b", 0)}}}, &diagnostics);
  EXPECT_EQ(diagnostics.lines(), (std::vector<std::string>{
                                     "rankedApps[0].resources.number: is the number 3, not a string or null (resource dropped)",
                                     "rankedApps[1].priorityId: 0 is not 1, 2 or 3 (ranked app dropped)"}));
}

TEST(RankedAppRecord, IdentityIsTheIdAloneResourcesAreKeptByTheirOwnKey) {
  ZTIAMQualityNetworkRankedApp a("same");
  ZTIAMQualityNetworkRankedApp b("same");
  EXPECT_EQ(a.priority(), ZTIAMQualityNetworkPriorityLow);
  b.setPriority(ZTIAMQualityNetworkPriorityHigh);
  b.setShowFreeBadge(true);
  b.addResource(std::make_shared<ZTIAMResource>("title", "first"));
  b.addResource(std::make_shared<ZTIAMResource>("title", "second"));
  b.addResource(std::make_shared<ZTIAMResource>("blank", std::nullopt));
  EXPECT_TRUE(a == b);
  EXPECT_FALSE(a == ZTIAMQualityNetworkRankedApp("other"));
  std::unordered_set<ZTIAMQualityNetworkRankedApp> set;
  set.insert(b);
  EXPECT_EQ(set.count(a), 1u);

  EXPECT_EQ(b.resources().size(), 2u);
  EXPECT_EQ((std::vector<std::optional<std::string>>{b.getResourceValue("title", "d"), b.getResourceValue("missing"),
                                                     b.getResourceValue("missing", "d"), b.getResourceValue("blank", "d")}),
            (std::vector<std::optional<std::string>>{"second", std::nullopt, "d", "d"}));

}

}  // namespace
}  // namespace iam
