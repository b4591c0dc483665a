#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <unordered_set>

#include "iam/platform/Clock.h"
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
  auto response = parse({{"rankedApps", {rankedApp("b", 2), rankedApp("zero", 0), rankedApp("four", 4), noApp, badApp,
                                         rankedApp("text", "1"), rankedApp("flag", true), rankedApp("a", 3)}}});
  ASSERT_TRUE(response);
  EXPECT_EQ(response->etag(), "tag");
  EXPECT_EQ(response->maximumAge(), 86400);
  auto apps = response->qualityNetworkRankedApps();
  ASSERT_EQ(apps.size(), 2u);
  EXPECT_EQ(apps[0]->rankedAppId(), "b");
  EXPECT_EQ(apps[0]->priority(), ZTIAMQualityNetworkPriorityMedium);
  EXPECT_EQ(apps[1]->rankedAppId(), "a");
  EXPECT_EQ(apps[1]->priority(), ZTIAMQualityNetworkPriorityLow);
  const auto& first = *apps[0];
  EXPECT_TRUE(first.showFreeBadge());
  ASSERT_TRUE(first.advertisedApp());
  EXPECT_EQ(first.advertisedApp()->appId(), "app-b");
  EXPECT_EQ(first.getResourceValue("title"), "T");
  ASSERT_EQ(first.resources().count("none"), 1u);
  EXPECT_EQ(first.resources().count("number"), 0u);
}

TEST(QualityNetworkParserTest, OptionalMembersOfTheWrongTypeLeaveDefaults) {
  auto app = rankedApp("x");
  app["showFree"] = "yes";
  app["resources"] = json::array({"title"});
  auto response = parse({{"rankedApps", {app}}});
  ASSERT_TRUE(response);
  ASSERT_EQ(response->qualityNetworkRankedApps().size(), 1u);
  EXPECT_FALSE(response->qualityNetworkRankedApps()[0]->showFreeBadge());
  EXPECT_TRUE(response->qualityNetworkRankedApps()[0]->resources().empty());
}

TEST(QualityNetworkParserTest, TheEnvelopeDecidesAboutTheWholeAnswer) {
  EXPECT_EQ(parse(json::object()), nullptr);
  EXPECT_EQ(parse({{"other", 1}}), nullptr);
  EXPECT_EQ(parse({{"rankedApps", json::object()}}), nullptr);
  EXPECT_EQ(parse({{"rankedApps", {rankedApp("a"), "b"}}}), nullptr);
  auto empty = parse({{"rankedApps", json::array()}});
  ASSERT_TRUE(empty);
  EXPECT_TRUE(empty->qualityNetworkRankedApps().empty());
  auto allBad = parse({{"rankedApps", {rankedApp("a", 9)}}});
  ASSERT_TRUE(allBad);
  EXPECT_TRUE(allBad->qualityNetworkRankedApps().empty());

  ZTIAMCollectingParseDiagnostics diagnostics;
  parse({{"rankedApps", {rankedApp("a"), rankedApp("b", 0)}}}, &diagnostics);
  EXPECT_EQ(diagnostics.lines(), (std::vector<std::string>{
                                     "rankedApps[0].resources.number: is the number 3, not a string or null (resource dropped)",
                                     "rankedApps[1].priorityId: 0 is not 1, 2 or 3 (ranked app dropped)"}));
}

TEST(RankedAppRecord, IdentityIsTheIdAlone) {
  ZTIAMQualityNetworkRankedApp a("same");
  ZTIAMQualityNetworkRankedApp b("same");
  EXPECT_EQ(a.priority(), ZTIAMQualityNetworkPriorityLow);
  b.setPriority(ZTIAMQualityNetworkPriorityHigh);
  b.setShowFreeBadge(true);
  b.addResource(std::make_shared<ZTIAMResource>("k", "v"));
  EXPECT_TRUE(a == b);
  EXPECT_EQ(std::hash<ZTIAMQualityNetworkRankedApp>()(a), std::hash<ZTIAMQualityNetworkRankedApp>()(b));
  EXPECT_FALSE(a == ZTIAMQualityNetworkRankedApp("other"));
  std::unordered_set<ZTIAMQualityNetworkRankedApp> set;
  set.insert(ZTIAMQualityNetworkRankedApp("x"));
  EXPECT_EQ(set.count(ZTIAMQualityNetworkRankedApp("x")), 1u);

  for (int raw : {0, 4, -1}) EXPECT_EQ(ZTIAMQualityNetworkPriorityFromRawValue(raw), std::nullopt) << raw;
  EXPECT_EQ(ZTIAMQualityNetworkPriorityFromRawValue(2), ZTIAMQualityNetworkPriorityMedium);
}

TEST(RankedAppRecord, ResourcesAreKeptByTheirOwnKey) {
  ZTIAMQualityNetworkRankedApp app("r");
  app.addResource(std::make_shared<ZTIAMResource>("title", "first"));
  app.addResource(std::make_shared<ZTIAMResource>("title", "second"));
  app.addResource(std::make_shared<ZTIAMResource>("blank", std::nullopt));
  EXPECT_EQ(app.resources().size(), 2u);
  EXPECT_EQ(app.getResourceValue("title", "d"), "second");
  EXPECT_EQ(app.getResourceValue("missing"), std::nullopt);
  EXPECT_EQ(app.getResourceValue("missing", "d"), "d");
  EXPECT_EQ(app.getResourceValue("blank", "d"), "d");
}

TEST(QualityNetworkExpiry, SameRuleAsTheAdvertisementsAnswer) {
  auto clock = std::make_shared<ManualClock>(dateWithTimeIntervalSince1970(500'000));
  Clock::setCurrent(clock);
  NativeQualityNetworkResponse response({}, std::make_shared<OspreyServiceContentInfo>(clock->now(), false));
  clock->advance(86400);
  EXPECT_FALSE(response.isExpired());
  clock->advance(1);
  EXPECT_TRUE(response.isExpired());
  response.setContentInfo(std::make_shared<OspreyServiceContentInfo>(clock->now(), true));
  EXPECT_TRUE(response.isExpired());
  Clock::setCurrent(nullptr);
}

}  // namespace
}  // namespace iam
