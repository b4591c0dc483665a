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

// A host's own configuration type: archived as the library's.
class HostConfig final : public ZTIAMAppConfigType {
 public:
  double minimumPopupImpressionTimeInterval() const override { return 12; }
  std::map<std::string, std::string> attributes() const override { return {{"host", "yes"}}; }
};

std::shared_ptr<AdvertisementsRequestResponse> fullResponse() {
  auto first = std::make_shared<Advertisement>("first");
  first->setDisplayType(ZTIAMAdvertisementDisplayTypeReviewQuestion);
  auto second = std::make_shared<Advertisement>("second");
  auto response = std::make_shared<AdvertisementsRequestResponse>(
      std::vector<std::shared_ptr<Advertisement>>{first, second},
      std::make_shared<OspreyServiceContentInfo>(dateWithTimeIntervalSince1970(5000), true),
      std::make_shared<HostConfig>());
  response->setEtag("W/\"42\"");
  return response;
}

TEST(AdvertisementsResponseArchive, RoundTripKeepsEveryArchivedField) {
  auto original = fullResponse();
  const auto bytes = archive(*original);
  EXPECT_EQ(archivedKeyOrder(bytes), (Strings{"codingVersion", "contentInfo", "etag", "advertisements", "appConfig"}));
  auto decoded = unarchive<AdvertisementsRequestResponse>(bytes);
  ASSERT_TRUE(decoded);
  EXPECT_EQ(archive(*decoded), bytes);  // nothing lost or altered, the host's configuration included
}

TEST(AdvertisementsResponseArchive, RefusedUnlessVersionAndRequiredObjectsAreRight) {
  auto response = fullResponse();
  auto info = response->contentInfo();
  auto config = std::make_shared<AppConfig>(1, std::map<std::string, std::string>{});
  auto ads = response->advertisements();
  testing::ScriptedRecord oldAd("Advertisement", [](KeyedArchiver& c) {
    c.encodeInteger(1, "codingVersion");
    c.encodeString(std::string_view("old"), "advertisementId");
  });
  auto write = [&](std::int64_t version, bool withInfo, bool withAds, bool withConfig, bool withOldAd = false) {
    return scripted<AdvertisementsRequestResponse>([&](KeyedArchiver& c) {
      c.encodeInteger(version, "codingVersion");
      if (withInfo) c.encodeObject(info.get(), "contentInfo");
      c.encodeInteger(5, "etag");
      if (withAds) {
        c.writeKey("advertisements");
        c.beginArray();
        for (const auto& ad : ads) c.writeObject(ad.get());
        if (withOldAd) c.writeObject(&oldAd);
        c.endArray();
      }
      if (withConfig) c.encodeObject(config.get(), "appConfig");
    });
  };
  auto fine = write(1, true, true, true);
  ASSERT_TRUE(fine);
  EXPECT_EQ(fine->etag(), std::nullopt);  // not a string
  EXPECT_EQ(fine->advertisements().size(), 2u);
  // One unreadable advertisement costs the whole answer.
  EXPECT_FALSE(write(0, true, true, true) || write(2, true, true, true) || write(1, false, true, true) ||
               write(1, true, false, true) || write(1, true, true, false) || write(1, true, true, true, true));
}

// Its round trip is the answer's above.
TEST(AppConfigArchive, KeysVersionAndDefaults) {
  EXPECT_EQ(archivedKeyOrder(archive(AppConfig(45, {{"k", "v"}}))),
            (Strings{"codingVersion", "minimumPopupImpressionTimeInterval", "attributes"}));

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
  app->setAdvertisedApp(std::make_shared<AdvertisedApp>("adv-" + id));
  app->setPriority(ZTIAMQualityNetworkPriorityMedium);
  app->setShowFreeBadge(true);
  app->addResource(std::make_shared<ZTIAMResource>("title", "T"));
  app->addResource(std::make_shared<ZTIAMResource>("empty", std::nullopt));
  return app;
}

TEST(QualityNetworkArchive, RankedAppAndResponseRoundTrip) {
  auto original = rankedApp("r1");
  EXPECT_EQ(archivedKeyOrder(archive(*original)),
            (Strings{"_rankedAppId", "_advertisedApp", "_priority", "_showFreeBadge", "_resources"}));
  // The answer's bytes hold its ranked apps': one byte-for-byte round trip covers both.
  auto response = std::make_shared<NativeQualityNetworkResponse>(
      std::vector<std::shared_ptr<ZTIAMQualityNetworkRankedApp>>{original, rankedApp("r2")},
      std::make_shared<OspreyServiceContentInfo>(dateWithTimeIntervalSince1970(77), false));
  response->setEtag("e");
  const auto responseBytes = archive(*response);
  EXPECT_EQ(archivedKeyOrder(responseBytes), (Strings{"codingVersion", "contentInfo", "qualityNetworkRankedApps", "etag"}));
  auto decodedResponse = unarchive<NativeQualityNetworkResponse>(responseBytes);
  ASSERT_TRUE(decodedResponse);
  EXPECT_EQ(archive(*decodedResponse), responseBytes);

  auto info = response->contentInfo();
  auto apps = response->qualityNetworkRankedApps();
  auto write = [&](std::int64_t version, bool withInfo, bool withApps) {
    return scripted<NativeQualityNetworkResponse>([&](KeyedArchiver& c) {
      c.encodeInteger(version, "codingVersion");
      if (withInfo) c.encodeObject(info.get(), "contentInfo");
      if (withApps) c.encodeObjectArray(apps, "qualityNetworkRankedApps");
    });
  };
  EXPECT_TRUE(write(1, true, true));
  EXPECT_FALSE(write(2, true, true) || write(1, false, true) || write(1, true, false));
}

TEST(QualityNetworkArchive, RankedAppPriorityFallsBackToThreeAndNeedsAnId) {
  auto decode = [](std::function<void(KeyedArchiver&)> write) {
    return scripted<ZTIAMQualityNetworkRankedApp>([&](KeyedArchiver& c) {
      c.encodeString(std::string_view("id"), "_rankedAppId");
      write(c);
    });
  };
  for (const auto& [raw, priority] : {std::pair<std::int64_t, std::int64_t>{7, 3}, {0, 3}, {1, 1}, {2, 2}}) {
    EXPECT_EQ(decode([&](KeyedArchiver& c) { c.encodeInteger(raw, "_priority"); })->priority(), priority) << raw;
  }
  auto bare = decode([](KeyedArchiver&) {});
  EXPECT_EQ(bare->priority(), 3);
  EXPECT_FALSE(bare->showFreeBadge());
  auto mistyped = decode([](KeyedArchiver& c) {
    c.encodeInteger(1, "_showFreeBadge");
    c.encodeString(std::string_view("x"), "_advertisedApp");
    c.encodeInteger(4, "_resources");
  });
  EXPECT_TRUE(mistyped->showFreeBadge());
  EXPECT_FALSE(mistyped->advertisedApp() || !mistyped->resources().empty());
  EXPECT_FALSE(scripted<ZTIAMQualityNetworkRankedApp>([](KeyedArchiver& c) { c.encodeInteger(1, "_priority"); }));
}

}  // namespace
}  // namespace iam
