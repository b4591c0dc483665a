#include <gtest/gtest.h>

#include "iam/service/AdvertisementsRequestResponse.h"
#include "iam/service/NativeQualityNetworkResponse.h"
#include "model/model_test_support.h"

namespace iam {
namespace {

using testing::archive;
using testing::archivedKeyOrder;
using testing::scripted;
using testing::unarchive;
using Strings = std::vector<std::string>;

std::shared_ptr<AdvertisementsRequestResponse> fullResponse() {
  auto first = std::make_shared<Advertisement>("first");
  auto trigger = std::make_shared<AdvertisementTrigger>("t", "appToForeground");
  trigger->setAdvertisement(first);
  first->setTriggers({trigger});
  first->setDisplayType(ZTIAMAdvertisementDisplayTypeReviewQuestion);
  auto second = std::make_shared<Advertisement>("second");
  auto response = std::make_shared<AdvertisementsRequestResponse>(
      std::vector<std::shared_ptr<Advertisement>>{first, second},
      std::make_shared<OspreyServiceContentInfo>(dateWithTimeIntervalSince1970(5000), true),
      std::make_shared<AppConfig>(90.5, std::map<std::string, std::string>{{"a", "b"}, {"c", ""}}));
  response->setEtag("W/\"42\"");
  return response;
}

TEST(AdvertisementsResponseArchive, RoundTripKeepsEveryArchivedField) {
  auto original = fullResponse();
  const auto bytes = archive(*original);
  EXPECT_EQ(archivedKeyOrder(bytes), (Strings{"codingVersion", "contentInfo", "etag", "advertisements", "appConfig"}));
  auto decoded = unarchive<AdvertisementsRequestResponse>(bytes);
  ASSERT_TRUE(decoded);
  auto ads = decoded->advertisements();
  ASSERT_EQ(ads.size(), 2u);
  EXPECT_EQ(ads[0]->advertisementId(), "first");
  EXPECT_EQ(ads[0]->displayType(), ZTIAMAdvertisementDisplayTypeReviewQuestion);
  ASSERT_EQ(ads[0]->triggers().size(), 1u);
  EXPECT_EQ(ads[0]->triggers().members()[0]->advertisement(), ads[0]);
  EXPECT_EQ(ads[1]->advertisementId(), "second");
  ASSERT_TRUE(decoded->contentInfo());
  EXPECT_EQ(decoded->contentInfo()->localCreatedAt(), dateWithTimeIntervalSince1970(5000));
  EXPECT_TRUE(decoded->contentInfo()->isLocalExpired());
  EXPECT_EQ(decoded->etag(), "W/\"42\"");
  EXPECT_EQ(decoded->maximumAge(), 86400);
  ASSERT_TRUE(decoded->appConfig());
  EXPECT_TRUE(AppConfig(90.5, {{"a", "b"}, {"c", ""}}).isEqual(*decoded->appConfig()));

  original->setEtag(std::nullopt);
  auto noEtag = unarchive<AdvertisementsRequestResponse>(archive(*original));
  ASSERT_TRUE(noEtag);
  EXPECT_EQ(noEtag->etag(), std::nullopt);
}

TEST(AdvertisementsResponseArchive, RefusedUnlessVersionAndRequiredObjectsAreRight) {
  auto response = fullResponse();
  auto info = response->contentInfo();
  auto config = std::dynamic_pointer_cast<AppConfig>(response->appConfig());
  auto ads = response->advertisements();
  auto write = [&](std::int64_t version, bool withInfo, bool withAds, bool withConfig) {
    return scripted<AdvertisementsRequestResponse>([&](KeyedArchiver& c) {
      c.encodeInteger(version, "codingVersion");
      if (withInfo) c.encodeObject(info.get(), "contentInfo");
      c.encodeInteger(5, "etag");
      if (withAds) c.encodeObjectArray(ads, "advertisements");
      if (withConfig) c.encodeObject(config.get(), "appConfig");
    });
  };
  auto fine = write(1, true, true, true);
  ASSERT_TRUE(fine);
  EXPECT_EQ(fine->etag(), std::nullopt);  // not a string
  EXPECT_EQ(fine->advertisements().size(), 2u);
  EXPECT_EQ(write(0, true, true, true), nullptr);
  EXPECT_EQ(write(2, true, true, true), nullptr);
  EXPECT_EQ(write(1, false, true, true), nullptr);
  EXPECT_EQ(write(1, true, false, true), nullptr);
  EXPECT_EQ(write(1, true, true, false), nullptr);

  // One advertisement that cannot be read costs the whole answer.
  testing::ScriptedRecord oldAd("Advertisement", [](KeyedArchiver& c) {
    c.encodeInteger(1, "codingVersion");
    c.encodeString(std::string_view("old"), "advertisementId");
  });
  EXPECT_EQ(scripted<AdvertisementsRequestResponse>([&](KeyedArchiver& c) {
              c.encodeInteger(1, "codingVersion");
              c.encodeObject(info.get(), "contentInfo");
              c.writeKey("advertisements");
              c.beginArray();
              c.writeObject(ads[0].get());
              c.writeObject(&oldAd);
              c.endArray();
              c.encodeObject(config.get(), "appConfig");
            }),
            nullptr);
}

class HostConfig final : public ZTIAMAppConfigType {
 public:
  double minimumPopupImpressionTimeInterval() const override { return 12; }
  std::map<std::string, std::string> attributes() const override { return {{"host", "yes"}}; }
};

TEST(AdvertisementsResponseArchive, AHostsOwnConfigIsArchivedAsTheLibrarysConfig) {
  auto response = std::make_shared<AdvertisementsRequestResponse>(
      std::vector<std::shared_ptr<Advertisement>>{}, std::make_shared<OspreyServiceContentInfo>(Date{}, false),
      std::make_shared<HostConfig>());
  auto decoded = unarchive<AdvertisementsRequestResponse>(archive(*response));
  ASSERT_TRUE(decoded);
  EXPECT_TRUE(AppConfig(12, {{"host", "yes"}}).isEqual(*decoded->appConfig()));
}

TEST(AppConfigArchive, KeysVersionAndDefaults) {
  AppConfig config(45, {{"k", "v"}});
  const auto bytes = archive(config);
  EXPECT_EQ(archivedKeyOrder(bytes), (Strings{"codingVersion", "minimumPopupImpressionTimeInterval", "attributes"}));
  auto decoded = unarchive<AppConfig>(bytes);
  ASSERT_TRUE(decoded);
  EXPECT_TRUE(decoded->isEqual(config));

  auto sparse = scripted<AppConfig>([](KeyedArchiver& c) {
    c.encodeInteger(1, "codingVersion");
    c.encodeString(std::string_view("x"), "attributes");
  });
  ASSERT_TRUE(sparse);
  EXPECT_EQ(sparse->minimumPopupImpressionTimeInterval(), 0);
  EXPECT_TRUE(sparse->allAtributeKeys().empty());

  ::testing::internal::CaptureStdout();
  auto refused = scripted<AppConfig>([](KeyedArchiver& c) {
    c.encodeInteger(2, "codingVersion");
    c.encodeDouble(1, "minimumPopupImpressionTimeInterval");
  });
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "AppConfig: decoded nil\n");
  EXPECT_EQ(refused, nullptr);
}

std::shared_ptr<ZTIAMQualityNetworkRankedApp> rankedApp(const std::string& id) {
  auto app = std::make_shared<ZTIAMQualityNetworkRankedApp>(id);
  auto advertised = std::make_shared<AdvertisedApp>("adv-" + id);
  advertised->setStoreUrl("https://store.example.com/" + id);
  app->setAdvertisedApp(advertised);
  app->setPriority(ZTIAMQualityNetworkPriorityMedium);
  app->setShowFreeBadge(true);
  app->addResource(std::make_shared<ZTIAMResource>("title", "T"));
  app->addResource(std::make_shared<ZTIAMResource>("empty", std::nullopt));
  return app;
}

TEST(QualityNetworkArchive, RankedAppAndResponseRoundTrip) {
  auto original = rankedApp("r1");
  const auto bytes = archive(*original);
  EXPECT_EQ(archivedKeyOrder(bytes),
            (Strings{"_rankedAppId", "_advertisedApp", "_priority", "_showFreeBadge", "_resources"}));
  auto decoded = unarchive<ZTIAMQualityNetworkRankedApp>(bytes);
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->rankedAppId(), "r1");
  ASSERT_TRUE(decoded->advertisedApp());
  EXPECT_EQ(decoded->advertisedApp()->storeUrl(), "https://store.example.com/r1");
  EXPECT_EQ(decoded->priority(), ZTIAMQualityNetworkPriorityMedium);
  EXPECT_TRUE(decoded->showFreeBadge());
  EXPECT_EQ(decoded->getResourceValue("title"), "T");
  EXPECT_EQ(decoded->resources().size(), 2u);

  auto response = std::make_shared<NativeQualityNetworkResponse>(
      std::vector<std::shared_ptr<ZTIAMQualityNetworkRankedApp>>{original, rankedApp("r2")},
      std::make_shared<OspreyServiceContentInfo>(dateWithTimeIntervalSince1970(77), false));
  response->setEtag("e");
  const auto responseBytes = archive(*response);
  EXPECT_EQ(archivedKeyOrder(responseBytes), (Strings{"codingVersion", "contentInfo", "qualityNetworkRankedApps", "etag"}));
  auto decodedResponse = unarchive<NativeQualityNetworkResponse>(responseBytes);
  ASSERT_TRUE(decodedResponse);
  auto apps = decodedResponse->qualityNetworkRankedApps();
  ASSERT_EQ(apps.size(), 2u);
  EXPECT_EQ(apps[0]->rankedAppId(), "r1");
  EXPECT_EQ(apps[1]->rankedAppId(), "r2");
  EXPECT_EQ(decodedResponse->contentInfo()->localCreatedAt(), dateWithTimeIntervalSince1970(77));
  EXPECT_EQ(decodedResponse->etag(), "e");
  EXPECT_EQ(decodedResponse->maximumAge(), 86400);

  auto info = response->contentInfo();
  EXPECT_EQ(scripted<NativeQualityNetworkResponse>([&](KeyedArchiver& c) {
              c.encodeInteger(2, "codingVersion");
              c.encodeObject(info.get(), "contentInfo");
              c.encodeObjectArray(apps, "qualityNetworkRankedApps");
            }),
            nullptr);
  EXPECT_EQ(scripted<NativeQualityNetworkResponse>([&](KeyedArchiver& c) {
              c.encodeInteger(1, "codingVersion");
              c.encodeObjectArray(apps, "qualityNetworkRankedApps");
            }),
            nullptr);
  EXPECT_EQ(scripted<NativeQualityNetworkResponse>([&](KeyedArchiver& c) {
              c.encodeInteger(1, "codingVersion");
              c.encodeObject(info.get(), "contentInfo");
            }),
            nullptr);
}

TEST(QualityNetworkArchive, RankedAppPriorityFallsBackToThreeAndNeedsAnId) {
  auto withPriority = [](std::function<void(KeyedArchiver&)> write) {
    return scripted<ZTIAMQualityNetworkRankedApp>([&](KeyedArchiver& c) {
      c.encodeString(std::string_view("id"), "_rankedAppId");
      write(c);
    });
  };
  EXPECT_EQ(withPriority([](KeyedArchiver& c) { c.encodeInteger(7, "_priority"); })->priority(), 3);
  EXPECT_EQ(withPriority([](KeyedArchiver& c) { c.encodeInteger(0, "_priority"); })->priority(), 3);
  EXPECT_EQ(withPriority([](KeyedArchiver&) {})->priority(), 3);
  EXPECT_EQ(withPriority([](KeyedArchiver& c) { c.encodeInteger(1, "_priority"); })->priority(), 1);
  EXPECT_EQ(withPriority([](KeyedArchiver& c) { c.encodeInteger(2, "_priority"); })->priority(), 2);
  auto sparse = withPriority([](KeyedArchiver& c) {
    c.encodeInteger(1, "_showFreeBadge");
    c.encodeString(std::string_view("x"), "_advertisedApp");
    c.encodeInteger(4, "_resources");
  });
  EXPECT_TRUE(sparse->showFreeBadge());
  EXPECT_EQ(sparse->advertisedApp(), nullptr);
  EXPECT_TRUE(sparse->resources().empty());
  EXPECT_FALSE(withPriority([](KeyedArchiver&) {})->showFreeBadge());
  EXPECT_EQ(scripted<ZTIAMQualityNetworkRankedApp>([](KeyedArchiver& c) { c.encodeInteger(1, "_priority"); }), nullptr);
}

}  // namespace
}  // namespace iam
