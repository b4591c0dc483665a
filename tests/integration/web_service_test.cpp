#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdlib>

#include "iam/net/OspreyWebService.h"
#include "iam/platform/RunLoop.h"
#include "iam/service/AdvertisementsRequestResponse.h"
#include "iam/service/IAMWebService.h"
#include "iam/service/NativeQualityNetworkResponse.h"
#include "testing/TestEnvironment.h"
#include "tools/refservice/ReferenceMarketingService.h"

namespace iam {
namespace {

using nlohmann::json;
using Result = std::shared_ptr<ZTOspreyServiceRequestResultInterface>;

json advertisement(const std::string& id) {
  return {{"id", id},
          {"lifecycle", json::object()},
          {"display", {{"id", 16}}},
          {"okAction", {{"id", 0}}},
          {"dataSource", {{"id", 1}}},
          {"state", {{"id", 1}}},
          {"ignoreGlobalMinimumPopupTimeInterval", false}};
}

class WebServiceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const json ads = {{"advertisements", {advertisement("b"), advertisement("a")}},
                      {"appConfig", {{"minimumPopupImpressionTimeInterval", 90}}}};
    service_.setAnswer(ReferenceMarketingService::kAdvertisementsMethod, ads.dump());
    service_.setAnswer(ReferenceMarketingService::kNativeQualityNetworkMethod, R"({"rankedApps": [
        {"id": "r1", "priorityId": 2, "advertisedApp": {"id": "app-1", "storeUrl": "https://store.example.com/1"}},
        {"id": "r2", "priorityId": 1, "advertisedApp": {"id": "app-2", "storeUrl": "https://store.example.com/2"}}]})");
    ASSERT_TRUE(service_.start());
    IAMWebService::setDefaultBaseUrl(service_.baseUrl());
  }

  void TearDown() override {
    service_.stop();
    EXPECT_TRUE(RunLoop::main().runUntil([] { return OspreyWebService::runningRequestCountForTesting() == 0; }, 5));
    IAMWebService::setDefaultBaseUrl(std::nullopt);
  }

  enum class Call { Advertisements, NativeQualityNetwork };

  // Makes one call on a fresh client, which finds the service by the default base URL, and runs the main
  // loop until its completion (bounded).
  Result call(Call which, const IAMWebServiceParameters& parameters = {}) {
    IAMWebService client;
    Result result;
    int calls = 0;
    auto completion = [&](const Result& r) { result = r, ++calls; };
    auto ticket = which == Call::Advertisements ? client.getAdvertisementsWithParameters(parameters, completion)
                                                : client.getNativeQualityNetworkWithParameters(parameters, completion);
    EXPECT_TRUE(ticket);
    if (!ticket) return nullptr;
    EXPECT_TRUE(RunLoop::main().runUntil([&] { return calls > 0; }, 15));
    env.settle();
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(ticket->isFinished());
    return result;
  }

  testing::TestEnvironment env{dateWithTimeIntervalSince1970(1'700'000'000)};
  ReferenceMarketingService service_;
};

// Ends with a first call that names a tag the service does not hold, which it answers in full.
TEST_F(WebServiceTest, BothCallsArriveAsParsedResponsesWithTagAndContentInfo) {
  IAMWebServiceParameters stale;
  stale.setEtag("\"old\"");
  auto result = call(Call::Advertisements, stale);
  ASSERT_TRUE(result);
  EXPECT_FALSE(result->failed());
  auto response = result->dataAs<AdvertisementsRequestResponse>();
  ASSERT_TRUE(response);
  const auto ads = response->advertisements();
  ASSERT_EQ(ads.size(), 2u);
  EXPECT_EQ((std::vector{ads[0]->advertisementId(), ads[1]->advertisementId()}), (std::vector<std::string>{"b", "a"}));
  EXPECT_EQ(response->appConfig()->minimumPopupImpressionTimeInterval(), 90);
  EXPECT_EQ(response->etag(), service_.entityTagFor(ReferenceMarketingService::kAdvertisementsMethod));
  ASSERT_TRUE(response->contentInfo());
  EXPECT_EQ(response->contentInfo()->localCreatedAt(), env.clock().now());

  IAMWebServiceParameters bought;
  bought.setHasBoughtAdFreeUpgrade(true);
  result = call(Call::NativeQualityNetwork, bought);
  ASSERT_TRUE(result);
  auto network = result->dataAs<NativeQualityNetworkResponse>();
  ASSERT_TRUE(network);
  const auto apps = network->qualityNetworkRankedApps();
  ASSERT_EQ(apps.size(), 2u);
  EXPECT_EQ((std::vector{apps[0]->rankedAppId(), apps[1]->rankedAppId()}), (std::vector<std::string>{"r1", "r2"}));
  EXPECT_EQ(network->etag(), service_.entityTagFor(ReferenceMarketingService::kNativeQualityNetworkMethod));

  // The tag travels in its header only, never in the body; the service's key is checked by the service.
  const auto requests = service_.requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ((std::vector<std::string>{requests[0].httpMethod, requests[0].path, requests[0].body,
                                      requests[0].contentType.value_or(""), requests[0].ifNoneMatch.value_or(""),
                                      requests[1].path, requests[1].body}),
            (std::vector<std::string>{"POST", "/v1/advertisements", R"({"boughtAdFree":false})", "application/json",
                                      "\"old\"", "/v1/nativeQualityNetwork", R"({"boughtAdFree":true})"}));
  EXPECT_FALSE(requests[1].ifNoneMatch);

  // JSON that is not a campaign: no failure from the transport, but no data either.
  service_.setAnswer(ReferenceMarketingService::kAdvertisementsMethod, R"({"advertisements": 5})");
  result = call(Call::Advertisements);
  ASSERT_TRUE(result);
  EXPECT_FALSE(result->data().has_value());
}

// The default time-out; the fault tests shorten it.
TEST_F(WebServiceTest, AStalledServiceTimesOutAfterFiveSeconds) {
  service_.stallFor(60);
  const auto started = std::chrono::steady_clock::now();
  auto result = call(Call::Advertisements);
  const double waited = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  ASSERT_TRUE(result);
  EXPECT_EQ(result->error(), "the request timed out after 5 seconds");
  EXPECT_GE(waited, 4.5);
  EXPECT_LT(waited, 8.0);
}

TEST_F(WebServiceTest, ANilCompletionStillGivesATicketAndNoRequestNoTicket) {
  IAMWebService client;
  auto ticket = client.getAdvertisementsWithParameters({}, nullptr);
  ASSERT_TRUE(ticket);
  EXPECT_TRUE(RunLoop::main().runUntil([&] { return ticket->isFinished(); }, 10));

  bool called = false;
  IAMWebService broken("not a service address");
  EXPECT_EQ(broken.getAdvertisementsWithParameters({}, [&](const Result&) { called = true; }), nullptr);
  EXPECT_EQ(broken.getNativeQualityNetworkWithParameters({}, [&](const Result&) { called = true; }), nullptr);
  env.settle();
  EXPECT_FALSE(called);
  EXPECT_EQ(service_.requestCount(), 1u);
}

TEST_F(WebServiceTest, TheDefaultBaseUrlComesFromTheHostThenTheEnvironment) {
  ::setenv("IAM_SERVICE_URL", "http://127.0.0.1:1", 1);
  EXPECT_EQ(IAMWebService().baseUrl(), service_.baseUrl());
  IAMWebService::setDefaultBaseUrl(std::nullopt);
  EXPECT_EQ(IAMWebService().baseUrl(), "http://127.0.0.1:1");
  ::unsetenv("IAM_SERVICE_URL");
  EXPECT_EQ(IAMWebService().baseUrl(), IAMWebService::kBuiltInBaseUrl);
}

// A host developer's client may send a list of tags, weak ones or "*".
TEST_F(WebServiceTest, TheReferenceServiceMatchesTagListsWeakTagsAndAnyTag) {
  const auto tag = ReferenceMarketingService::entityTagForBytes("{}");
  service_.setAnswer("advertisements", "{}");
  for (const std::string& header : {"\"x\", " + tag, "W/" + tag, std::string("*")}) {
    IAMWebServiceParameters parameters;
    parameters.setEtag(header);
    auto result = call(Call::Advertisements, parameters);
    ASSERT_TRUE(result);
    EXPECT_TRUE(result->contentIsNotModified()) << header;
  }
}

}  // namespace
}  // namespace iam
