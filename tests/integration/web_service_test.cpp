#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <cstdio>
#include <cstdlib>
#include <fstream>

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

json advertisementsAnswer(std::vector<std::string> ids) {
  json list = json::array();
  for (const auto& id : ids) list.push_back(advertisement(id));
  return {{"advertisements", list}, {"appConfig", {{"minimumPopupImpressionTimeInterval", 90}}}};
}

json qualityNetworkAnswer() {
  return json::parse(R"({"rankedApps": [
      {"id": "r1", "priorityId": 2, "advertisedApp": {"id": "app-1", "storeUrl": "https://store.example.com/1"}},
      {"id": "r2", "priorityId": 1, "advertisedApp": {"id": "app-2", "storeUrl": "https://store.example.com/2"}}]})");
}

bool nothingLeftRunning() {
  return RunLoop::main().runUntil([] { return OspreyWebService::runningRequestCountForTesting() == 0; }, 5);
}

class WebServiceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    service_.setAnswer(ReferenceMarketingService::kAdvertisementsMethod, advertisementsAnswer({"b", "a"}).dump());
    service_.setAnswer(ReferenceMarketingService::kNativeQualityNetworkMethod, qualityNetworkAnswer().dump());
    ASSERT_TRUE(service_.start());
  }

  void TearDown() override {
    service_.stop();
    EXPECT_TRUE(nothingLeftRunning());
    IAMWebService::setDefaultBaseUrl(std::nullopt);
  }

  enum class Call { Advertisements, NativeQualityNetwork };

  // Makes one call on a fresh client and runs the main loop until its completion (bounded).
  Result call(Call which, const IAMWebServiceParameters& parameters = {}, std::optional<std::string> baseUrl = {},
              double bound = 10) {
    IAMWebService client(baseUrl.value_or(service_.baseUrl()));
    Result result;
    int calls = 0;
    auto completion = [&](const Result& r) { result = r, ++calls; };
    auto ticket = which == Call::Advertisements ? client.getAdvertisementsWithParameters(parameters, completion)
                                                : client.getNativeQualityNetworkWithParameters(parameters, completion);
    EXPECT_TRUE(ticket);
    if (!ticket) return nullptr;
    EXPECT_TRUE(RunLoop::main().runUntil([&] { return calls > 0; }, bound));
    env.settle();
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(ticket->isFinished());
    return result;
  }

  testing::TestEnvironment env{dateWithTimeIntervalSince1970(1'700'000'000)};
  ReferenceMarketingService service_;
};

TEST_F(WebServiceTest, BothCallsArriveAsParsedResponsesWithTagAndContentInfo) {
  auto result = call(Call::Advertisements);
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

  const auto requests = service_.requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ((std::vector<std::string>{requests[0].path, requests[0].body, requests[0].serviceKey.value_or(""), requests[1].path,
                                      requests[1].body}),
            (std::vector<std::string>{"/v1/advertisements", R"({"boughtAdFree":false})", std::string(IAMWebService::kServiceKey),
                                      "/v1/nativeQualityNetwork", R"({"boughtAdFree":true})"}));
}

TEST_F(WebServiceTest, ASecondCallWithTheTagIsNotModifiedUntilTheCampaignChanges) {
  auto first = call(Call::Advertisements);
  ASSERT_TRUE(first);
  const auto tag = first->dataAs<AdvertisementsRequestResponse>()->etag();
  ASSERT_TRUE(tag);

  env.clock().advance(3600);
  IAMWebServiceParameters parameters;
  parameters.setEtag(tag);
  auto second = call(Call::Advertisements, parameters);
  ASSERT_TRUE(second);
  EXPECT_TRUE(second->contentIsNotModified());
  EXPECT_EQ(service_.lastRequest()->ifNoneMatch, tag);
  EXPECT_EQ(service_.lastRequest()->body, R"({"boughtAdFree":false})");  // the tag stays out of the body

  service_.setAnswer(ReferenceMarketingService::kAdvertisementsMethod, advertisementsAnswer({"c"}).dump());
  auto changed = call(Call::Advertisements, parameters);
  ASSERT_TRUE(changed);
  auto response = changed->dataAs<AdvertisementsRequestResponse>();
  ASSERT_TRUE(response);
  EXPECT_EQ(response->advertisements().size(), 1u);
  EXPECT_NE(response->etag(), tag);
}

TEST_F(WebServiceTest, FailuresOfEitherCallGiveAFailedResultAndLeaveNothingRunning) {
  // The client's own size limit stops an endless answer.
  const std::vector<std::pair<std::function<void()>, std::string>> faults = {
      {[&] { service_.failWithStatus(500); }, "the service answered with HTTP status 500"},
      {[&] { service_.answerOversized(5 * 1024 * 1024); }, "the service's answer is larger than the limit of"},
  };
  for (const auto& [fault, error] : faults) {
    fault();
    for (Call which : {Call::Advertisements, Call::NativeQualityNetwork}) {
      auto result = call(which);
      ASSERT_TRUE(result && result->error());
      EXPECT_TRUE(result->failed());
      EXPECT_TRUE(result->error()->starts_with(error)) << *result->error();
      EXPECT_TRUE(nothingLeftRunning());
    }
    service_.behaveNormally();
  }

  // JSON that is not a campaign: no failure from the transport, but no data either.
  service_.setAnswer(ReferenceMarketingService::kAdvertisementsMethod, R"({"advertisements": 5})");
  auto result = call(Call::Advertisements);
  ASSERT_TRUE(result);
  EXPECT_FALSE(result->data().has_value());
}

TEST_F(WebServiceTest, AStalledServiceTimesOutAfterFiveSecondsAndARefusedOneAtOnce) {
  service_.stallFor(60);
  const auto started = std::chrono::steady_clock::now();
  auto result = call(Call::Advertisements, {}, std::nullopt, 15);
  const double waited = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  ASSERT_TRUE(result);
  EXPECT_EQ(result->error(), "the request timed out after 5 seconds");
  EXPECT_GE(waited, 4.5);
  EXPECT_LT(waited, 8.0);
  EXPECT_TRUE(nothingLeftRunning());

  ReferenceMarketingService gone;
  ASSERT_TRUE(gone.start());
  const std::string goneUrl = gone.baseUrl();
  gone.stop();
  result = call(Call::NativeQualityNetwork, {}, goneUrl);
  ASSERT_TRUE(result && result->error());
  EXPECT_TRUE(result->failed());
  EXPECT_TRUE(result->error()->starts_with("could not connect to the service")) << *result->error();
}

TEST_F(WebServiceTest, ANilCompletionStillGivesATicketAndNoRequestNoTicket) {
  IAMWebService client(service_.baseUrl());
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
  ::unsetenv("IAM_SERVICE_URL");
  EXPECT_EQ(IAMWebService().baseUrl(), IAMWebService::kBuiltInBaseUrl);
  ::setenv("IAM_SERVICE_URL", "http://127.0.0.1:1", 1);
  EXPECT_EQ(IAMWebService().baseUrl(), "http://127.0.0.1:1");
  IAMWebService::setDefaultBaseUrl(service_.baseUrl());
  IAMWebService client;
  ::unsetenv("IAM_SERVICE_URL");
  EXPECT_EQ(client.baseUrl(), service_.baseUrl());
  Result result;
  client.getNativeQualityNetworkWithParameters({}, [&](const Result& r) { result = r; });
  ASSERT_TRUE(RunLoop::main().runUntil([&] { return result != nullptr; }, 10));
  EXPECT_TRUE(result->dataAs<NativeQualityNetworkResponse>());
}

TEST_F(WebServiceTest, TheReferenceServiceTagsFollowTheBytesAndMatchListsAndWeakTags) {
  const auto tag = ReferenceMarketingService::entityTagForBytes("{}");
  EXPECT_EQ(tag, ReferenceMarketingService::entityTagForBytes("{}"));
  EXPECT_NE(tag, ReferenceMarketingService::entityTagForBytes("{ }"));
  EXPECT_TRUE(tag.size() > 2 && tag.front() == '"' && tag.back() == '"') << tag;

  service_.setAnswer("advertisements", "{}");
  for (const std::string& header : {"\"x\", " + tag, "W/" + tag, std::string("*")}) {
    IAMWebServiceParameters parameters;
    parameters.setEtag(header);
    auto result = call(Call::Advertisements, parameters);
    ASSERT_TRUE(result);
    EXPECT_TRUE(result->contentIsNotModified()) << header;
  }
  EXPECT_FALSE(service_.start());

  const std::string path = ::testing::TempDir() + "refservice_answer.json";
  std::ofstream(path, std::ios::binary) << R"({"rankedApps": []})";
  EXPECT_TRUE(service_.setAnswerFromFile("nativeQualityNetwork", path));
  EXPECT_FALSE(service_.setAnswerFromFile("nativeQualityNetwork", path + ".missing"));  // keeps the answer
  EXPECT_EQ(service_.entityTagFor("nativeQualityNetwork"), ReferenceMarketingService::entityTagForBytes(R"({"rankedApps": []})"));
  std::remove(path.c_str());
}

}  // namespace
}  // namespace iam
