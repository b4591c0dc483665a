#include <gtest/gtest.h>

#include "iam/model/Advertisement.h"
#include "model/model_test_support.h"

namespace iam {
namespace {

using testing::archive;
using testing::archivedKeyOrder;
using testing::scripted;
using testing::unarchive;
using Strings = std::vector<std::string>;

std::shared_ptr<AdvertisedApp> fullApp() {
  auto info = std::make_shared<StoreAppInfo>("987654");
  info->setBundleIdentifier("com.example.calendar");
  info->setName("Calendar");
  info->setSubtitle("Plan your days");
  info->setIconTitle("Cal");
  info->setIcon60x60Url("https://icons.example.com/60.png");
  info->setIcon100x100Url("https://icons.example.com/100.png");
  info->setIcon512x512Url("https://icons.example.com/512.png");
  auto app = std::make_shared<AdvertisedApp>("app-1");
  app->setPackageName("com.example.calendar");
  app->setPublisher("Example");
  app->setStoreUrl("https://store.example.com/app");
  app->setReviewUrl("https://store.example.com/review");
  app->setRating("4.5");
  app->setFree(true);
  ZTIAMResourceMap resources;
  resources["name"] = std::make_shared<ZTIAMResource>("name", "Calendar Pro");
  resources["nothing"] = std::make_shared<ZTIAMResource>("nothing", std::nullopt);
  app->setResources(resources);
  app->setStoreInfo(info);
  return app;
}

std::shared_ptr<Advertisement> fullAdvertisement() {
  auto ad = std::make_shared<Advertisement>("ad-7");
  ad->setName("Spring promotion");
  ad->setStartDate(dateWithTimeIntervalSince1970(1700000000.25));
  ad->setEndDate(dateWithTimeIntervalSince1970(1800000000));
  ad->setMaxImpressionCount(5);
  ad->setPostponeEnabled(true);
  ad->setPostponeDelay(3600.5);
  ad->setIgnoreGlobalMinimumPopupTimeInterval(true);
  ad->setStateType(ZTIAMAdvertisementStateTypeTesting);
  ad->setDisplayType(ZTIAMAdvertisementDisplayTypeReviewQuestion);
  ad->setOkActionType(ZTIAMAdvertisementActionTypeOpenReview);
  ad->setDataSourceType(ZTIAMAdvertisementDataSourceTypeAdMobNative);
  ad->setOkActionMeta("https://store.example.com/review");
  auto trigger = std::make_shared<AdvertisementTrigger>("tr-1", "appToForeground");
  trigger->setThresholdCount(3);
  trigger->setDisplayDelay(1.5);
  trigger->setMaxFireCount(2);
  trigger->setRepeatIntervalCount(10);
  auto second = std::make_shared<AdvertisementTrigger>("tr-2", "settingsOpened");
  auto target = std::make_shared<AdvertisementTarget>("tg-1", "feed");
  target->setSectionIndex(1);
  target->setSectionRepeatInterval(4);
  target->setRowIndex(2);
  target->setRowRepeatInterval(8);
  target->setCustomViewClass("PromoCell");
  for (const auto& t : {trigger, second}) t->setAdvertisement(ad);
  target->setAdvertisement(ad);
  ad->setTriggers({trigger, second});
  ad->setTargets({target});
  ZTIAMResourceMap resources;
  resources["title"] = std::make_shared<ZTIAMResource>("title", "Hello");
  resources["dismissTitle"] = std::make_shared<ZTIAMResource>("dismissTitle", std::nullopt);
  ad->setResources(resources);
  ad->setAdvertisedApp(fullApp());
  return ad;
}

void expectSameApp(const AdvertisedApp& a, const AdvertisedApp& b) {
  EXPECT_EQ(a.appId(), b.appId());
  EXPECT_EQ(a.packageName(), b.packageName());
  EXPECT_EQ(a.publisher(), b.publisher());
  EXPECT_EQ(a.storeUrl(), b.storeUrl());
  EXPECT_EQ(a.storedReviewUrl(), b.storedReviewUrl());
  EXPECT_EQ(a.rating(), b.rating());
  EXPECT_EQ(a.free(), b.free());
  ASSERT_EQ(a.resources().size(), b.resources().size());
  for (const auto& [key, r] : a.resources()) {
    ASSERT_TRUE(b.resources().count(key)) << key;
    EXPECT_EQ(b.resources().at(key)->key(), r->key());
    EXPECT_EQ(b.resources().at(key)->value(), r->value());
  }
  ASSERT_EQ(a.storeInfo() == nullptr, b.storeInfo() == nullptr);
  if (a.storeInfo()) {
    const auto &x = *a.storeInfo(), &y = *b.storeInfo();
    EXPECT_EQ(x.storeId(), y.storeId());
    EXPECT_EQ(x.bundleIdentifier(), y.bundleIdentifier());
    EXPECT_EQ(x.name(), y.name());
    EXPECT_EQ(x.subtitle(), y.subtitle());
    EXPECT_EQ(x.iconTitle(), y.iconTitle());
    EXPECT_EQ(x.icon60x60Url(), y.icon60x60Url());
    EXPECT_EQ(x.icon100x100Url(), y.icon100x100Url());
    EXPECT_EQ(x.icon512x512Url(), y.icon512x512Url());
  }
}

TEST(AdvertisementArchive, RoundTripKeepsEverythingButTheActionMetaAndRelinksBackReferences) {
  auto original = fullAdvertisement();
  auto decoded = unarchive<Advertisement>(archive(*original));
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->advertisementId(), "ad-7");
  EXPECT_EQ(decoded->name(), "Spring promotion");
  EXPECT_EQ(decoded->startDate(), original->startDate());
  EXPECT_EQ(decoded->endDate(), original->endDate());
  EXPECT_EQ(decoded->maxImpressionCount(), 5);
  EXPECT_TRUE(decoded->postponeEnabled());
  EXPECT_EQ(decoded->postponeDelay(), 3600.5);
  EXPECT_TRUE(decoded->ignoreGlobalMinimumPopupTimeInterval());
  EXPECT_EQ(decoded->stateType(), ZTIAMAdvertisementStateTypeTesting);
  EXPECT_EQ(decoded->displayType(), ZTIAMAdvertisementDisplayTypeReviewQuestion);
  EXPECT_EQ(decoded->okActionType(), ZTIAMAdvertisementActionTypeOpenReview);
  EXPECT_EQ(decoded->dataSourceType(), ZTIAMAdvertisementDataSourceTypeAdMobNative);
  EXPECT_EQ(decoded->okActionMeta(), std::nullopt);  // written, never read

  ASSERT_EQ(decoded->triggers().size(), 2u);
  const auto& trigger = decoded->triggers().members()[0];
  EXPECT_EQ(trigger->triggerId(), "tr-1");
  EXPECT_EQ(trigger->eventKey(), "appToForeground");
  EXPECT_EQ(trigger->thresholdCount(), 3);
  EXPECT_EQ(trigger->displayDelay(), 1.5);
  EXPECT_EQ(trigger->maxFireCount(), 2);
  EXPECT_EQ(trigger->repeatIntervalCount(), 10);
  EXPECT_EQ(decoded->triggers().members()[1]->triggerId(), "tr-2");
  EXPECT_EQ(decoded->triggers().members()[1]->thresholdCount(), std::nullopt);
  for (const auto& t : decoded->triggers()) EXPECT_EQ(t->advertisement(), decoded);

  ASSERT_EQ(decoded->targets().size(), 1u);
  const auto& target = decoded->targets().members()[0];
  EXPECT_EQ(target->targetId(), "tg-1");
  EXPECT_EQ(target->spaceKey(), "feed");
  EXPECT_EQ(target->sectionIndex(), 1);
  EXPECT_EQ(target->sectionRepeatInterval(), 4);
  EXPECT_EQ(target->rowIndex(), 2);
  EXPECT_EQ(target->rowRepeatInterval(), 8);
  EXPECT_EQ(target->customViewClass(), "PromoCell");
  EXPECT_EQ(target->advertisement(), decoded);

  ASSERT_EQ(decoded->resources().size(), 2u);
  EXPECT_EQ(decoded->resources().at("title")->value(), "Hello");
  EXPECT_EQ(decoded->resources().at("dismissTitle")->value(), std::nullopt);
  ASSERT_TRUE(decoded->advertisedApp());
  expectSameApp(*original->advertisedApp(), *decoded->advertisedApp());
}

TEST(AdvertisementArchive, KeysAreWrittenInTheirFixedOrder) {
  EXPECT_EQ(archivedKeyOrder(archive(*fullAdvertisement())),
            (Strings{"codingVersion", "advertisementId", "name", "startDate", "endDate", "maxImpressionCount",
                     "postponeEnabled", "postponeDelay", "ignoreGlobalMinimumPopupTimeInterval", "stateType",
                     "displayType", "okActionType", "dataSourceType", "okActionMeta", "triggers", "targets",
                     "resources", "advertisedApp"}));
  EXPECT_EQ(archivedKeyOrder(archive(*fullApp())),
            (Strings{"codingVersion", "appId", "packageName", "publisher", "storeUrl", "reviewUrl", "rating", "free",
                     "resources", "storeInfo"}));
  EXPECT_EQ(archivedKeyOrder(archive(*fullApp()->storeInfo())),
            (Strings{"_storeId", "_bundleIdentifier", "_subtitle", "_name", "_iconTitle", "_icon60x60Url",
                     "_icon100x100Url", "_icon512x512Url"}));
  EXPECT_EQ(archivedKeyOrder(archive(ZTIAMResource("k", "v"))), (Strings{"_key", "_value"}));
  EXPECT_EQ(archivedKeyOrder(archive(AdvertisementTrigger("t", "e"))),
            (Strings{"codingVersion", "triggerId", "eventKey", "thresholdCount", "displayDelay", "maxFireCount",
                     "repeatIntervalCount"}));
  EXPECT_EQ(archivedKeyOrder(archive(AdvertisementTarget("t", "s"))),
            (Strings{"codingVersion", "targetId", "spaceKey", "sectionIndex", "sectionRepeatInterval", "rowIndex",
                     "rowRepeatInterval", "customViewClass"}));
}

// An archive written key by key, as a writer that follows the format makes it: proves the decoder
// reads the format's keys, not merely its own.
TEST(AdvertisementArchive, DecodesTheFormatsKeysWrittenByAnotherWriter) {
  auto trigger = std::make_shared<AdvertisementTrigger>("tr", "launch");
  auto target = std::make_shared<AdvertisementTarget>("tg", "feed");
  auto app = fullApp();
  ZTIAMResource title("title", "Hi");
  auto ad = scripted<Advertisement>([&](KeyedArchiver& c) {
    c.encodeInteger(2, "codingVersion");
    c.encodeString(std::string_view("x"), "advertisementId");
    c.encodeString(std::string_view("named"), "name");
    c.encodeDate(dateWithTimeIntervalSince1970(10), "startDate");
    c.encodeDate(dateWithTimeIntervalSince1970(20), "endDate");
    c.encodeInteger(9, "maxImpressionCount");
    c.encodeBool(true, "postponeEnabled");
    c.encodeDouble(60, "postponeDelay");
    c.encodeBool(true, "ignoreGlobalMinimumPopupTimeInterval");
    c.encodeInteger(3, "stateType");
    c.encodeInteger(15, "displayType");
    c.encodeInteger(7, "okActionType");
    c.encodeInteger(1, "dataSourceType");
    c.encodeString(std::string_view("meta"), "okActionMeta");
    c.writeKey("triggers");
    c.beginArray();
    c.writeObject(trigger.get());
    c.endArray();
    c.writeKey("targets");
    c.beginArray();
    c.writeObject(target.get());
    c.endArray();
    c.writeKey("resources");
    c.beginMap();
    c.writeKey("title");
    c.writeObject(&title);
    c.endMap();
    c.encodeObject(app.get(), "advertisedApp");
  });
  ASSERT_TRUE(ad);
  EXPECT_EQ(ad->advertisementId(), "x");
  EXPECT_EQ(ad->name(), "named");
  EXPECT_EQ(ad->startDate(), dateWithTimeIntervalSince1970(10));
  EXPECT_EQ(ad->endDate(), dateWithTimeIntervalSince1970(20));
  EXPECT_EQ(ad->maxImpressionCount(), 9);
  EXPECT_TRUE(ad->postponeEnabled());
  EXPECT_EQ(ad->postponeDelay(), 60.0);
  EXPECT_TRUE(ad->ignoreGlobalMinimumPopupTimeInterval());
  EXPECT_EQ(ad->stateType(), ZTIAMAdvertisementStateTypeDisabled);
  EXPECT_EQ(ad->displayType(), ZTIAMAdvertisementDisplayTypeDfpInterstitial);
  EXPECT_EQ(ad->okActionType(), ZTIAMAdvertisementActionTypeOpenContact);
  EXPECT_EQ(ad->dataSourceType(), ZTIAMAdvertisementDataSourceTypeAdMobNative);
  EXPECT_EQ(ad->okActionMeta(), std::nullopt);
  ASSERT_EQ(ad->triggers().size(), 1u);
  EXPECT_EQ(ad->triggers().members()[0]->eventKey(), "launch");
  EXPECT_EQ(ad->triggers().members()[0]->advertisement(), ad);
  ASSERT_EQ(ad->targets().size(), 1u);
  EXPECT_EQ(ad->targets().members()[0]->advertisement(), ad);
  EXPECT_EQ(ad->title(), "Hi");
  ASSERT_TRUE(ad->advertisedApp());
  expectSameApp(*app, *ad->advertisedApp());
}

TEST(AdvertisementArchive, WrongVersionOrMissingIdRefusesTheWholeRecord) {
  for (std::int64_t version : {1, 3, 0, -2}) {
    EXPECT_EQ(scripted<Advertisement>([&](KeyedArchiver& c) {
                c.encodeInteger(version, "codingVersion");
                c.encodeString(std::string_view("x"), "advertisementId");
              }),
              nullptr)
        << version;
  }
  EXPECT_EQ(scripted<Advertisement>([](KeyedArchiver& c) { c.encodeInteger(2, "codingVersion"); }), nullptr);
  EXPECT_EQ(scripted<Advertisement>([](KeyedArchiver& c) {
              c.encodeInteger(2, "codingVersion");
              c.encodeInteger(7, "advertisementId");
            }),
            nullptr);

  EXPECT_EQ(scripted<AdvertisementTrigger>([](KeyedArchiver& c) {
              c.encodeInteger(2, "codingVersion");
              c.encodeString(std::string_view("t"), "triggerId");
              c.encodeString(std::string_view("e"), "eventKey");
            }),
            nullptr);
  EXPECT_EQ(scripted<AdvertisementTrigger>([](KeyedArchiver& c) {
              c.encodeInteger(1, "codingVersion");
              c.encodeString(std::string_view("t"), "triggerId");
            }),
            nullptr);
  EXPECT_EQ(scripted<AdvertisementTarget>([](KeyedArchiver& c) {
              c.encodeInteger(0, "codingVersion");
              c.encodeString(std::string_view("t"), "targetId");
              c.encodeString(std::string_view("s"), "spaceKey");
            }),
            nullptr);
  EXPECT_EQ(scripted<AdvertisementTarget>([](KeyedArchiver& c) {
              c.encodeInteger(1, "codingVersion");
              c.encodeNull("targetId");
              c.encodeString(std::string_view("s"), "spaceKey");
            }),
            nullptr);
  EXPECT_EQ(scripted<AdvertisedApp>([](KeyedArchiver& c) {
              c.encodeInteger(2, "codingVersion");
              c.encodeString(std::string_view("a"), "appId");
            }),
            nullptr);
  EXPECT_EQ(scripted<AdvertisedApp>([](KeyedArchiver& c) { c.encodeInteger(1, "codingVersion"); }), nullptr);
  EXPECT_EQ(scripted<StoreAppInfo>([](KeyedArchiver& c) { c.encodeInteger(5, "_storeId"); }), nullptr);
  EXPECT_EQ(scripted<ZTIAMResource>([](KeyedArchiver& c) { c.encodeString(std::string_view("v"), "_value"); }), nullptr);
}

TEST(AdvertisementArchive, MissingOrMistypedKeysLeaveDefaults) {
  auto ad = scripted<Advertisement>([](KeyedArchiver& c) {
    c.encodeInteger(2, "codingVersion");
    c.encodeString(std::string_view("x"), "advertisementId");
    c.encodeInteger(1, "name");
    c.encodeString(std::string_view("soon"), "startDate");
    c.encodeString(std::string_view("5"), "maxImpressionCount");
    c.encodeInteger(1, "postponeEnabled");
    c.encodeString(std::string_view("16"), "displayType");
    c.encodeString(std::string_view("x"), "triggers");
    c.encodeInteger(3, "resources");
    c.encodeString(std::string_view("app"), "advertisedApp");
  });
  ASSERT_TRUE(ad);
  EXPECT_EQ(ad->name(), std::nullopt);
  EXPECT_EQ(ad->startDate(), std::nullopt);
  EXPECT_EQ(ad->endDate(), std::nullopt);
  EXPECT_EQ(ad->maxImpressionCount(), std::nullopt);
  EXPECT_FALSE(ad->postponeEnabled());
  EXPECT_EQ(ad->postponeDelay(), std::nullopt);
  EXPECT_EQ(ad->displayType(), 0);
  // Integers that are missing read as 0, even where a new record would say otherwise.
  EXPECT_EQ(ad->stateType(), 0);
  EXPECT_EQ(ad->okActionType(), 0);
  EXPECT_TRUE(ad->triggers().empty());
  EXPECT_TRUE(ad->targets().empty());
  EXPECT_TRUE(ad->resources().empty());
  EXPECT_EQ(ad->advertisedApp(), nullptr);

  auto target = scripted<AdvertisementTarget>([](KeyedArchiver& c) {
    c.encodeInteger(1, "codingVersion");
    c.encodeString(std::string_view("t"), "targetId");
    c.encodeString(std::string_view("s"), "spaceKey");
    c.encodeString(std::string_view("3"), "rowIndex");
  });
  ASSERT_TRUE(target);
  EXPECT_EQ(target->customViewClass(), std::nullopt);
  EXPECT_EQ(target->rowIndex(), std::nullopt);
  EXPECT_EQ(target->advertisement(), nullptr);
}

TEST(AdvertisementArchive, TriggerDecodedAloneHasNoAdvertisement) {
  auto original = fullAdvertisement();
  auto trigger = unarchive<AdvertisementTrigger>(archive(*original->triggers().members()[0]));
  ASSERT_TRUE(trigger);
  EXPECT_EQ(trigger->triggerId(), "tr-1");
  EXPECT_EQ(trigger->advertisement(), nullptr);
}

TEST(AdvertisedAppArchive, ArchivesTheStoredReviewUrlNotTheDerivedOne) {
  auto app = std::make_shared<AdvertisedApp>("app");
  app->setStoreInfo(std::make_shared<StoreAppInfo>("123"));
  ASSERT_TRUE(app->reviewUrl());
  auto decoded = unarchive<AdvertisedApp>(archive(*app));
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->storedReviewUrl(), std::nullopt);
  EXPECT_EQ(decoded->reviewUrl(), app->reviewUrl());
  auto rewritten = archive(*decoded);
  const auto kind = testing::archivedKind(rewritten, "reviewUrl");
  EXPECT_TRUE(kind == ArchiveValue::Kind::Null || kind == ArchiveValue::Kind::Absent);
}

TEST(StoreAppInfoArchive, NameAndSubtitleKeepTheirOwnValues) {
  // "_subtitle" is written before "_name"; a decoder that mixed up the two would swap them.
  auto info = scripted<StoreAppInfo>([](KeyedArchiver& c) {
    c.encodeString(std::string_view("42"), "_storeId");
    c.encodeString(std::string_view("sub"), "_subtitle");
    c.encodeString(std::string_view("nm"), "_name");
  });
  ASSERT_TRUE(info);
  EXPECT_EQ(info->storeId(), "42");
  EXPECT_EQ(info->name(), "nm");
  EXPECT_EQ(info->subtitle(), "sub");
  EXPECT_EQ(info->bundleIdentifier(), std::nullopt);
}

}  // namespace
}  // namespace iam
