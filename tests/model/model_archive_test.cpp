#include <gtest/gtest.h>

#include "iam/model/Advertisement.h"
#include "iam/model/AdvertisementParser.h"
#include "model/model_test_support.h"

namespace iam {
namespace {

using testing::archive;
using testing::archivedKeyOrder;
using testing::scripted;
using testing::unarchive;
using Strings = std::vector<std::string>;

// Every field away from its default, so a field the decoder skips shows up.
std::shared_ptr<Advertisement> fullAdvertisement() {
  auto ad = AdvertisementParser().parse(testing::validAdvertisement().dump());
  if (ad) ad->advertisedApp()->setReviewUrl("https://store.example.com/review");
  return ad;
}

// Writes the version (when given) and each key as a string, nothing else.
template <class T>
bool decodes(std::optional<std::int64_t> version, std::initializer_list<const char*> keys) {
  return scripted<T>([&](KeyedArchiver& c) {
           if (version) c.encodeInteger(*version, "codingVersion");
           for (const char* key : keys) c.encodeString(std::string_view("x"), key);
         }) != nullptr;
}

// Keys are written in their fixed order; decoding keeps everything but the action meta and links the
// triggers and targets back to the advertisement.
TEST(AdvertisementArchive, RoundTripInFixedKeyOrderKeepsEverythingButTheActionMeta) {
  auto original = fullAdvertisement();
  ASSERT_TRUE(original);
  auto decoded = unarchive<Advertisement>(archive(*original));
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->okActionMeta(), std::nullopt);  // written, never read
  for (const auto& t : decoded->triggers()) EXPECT_EQ(t->advertisement(), decoded);
  for (const auto& g : decoded->targets()) EXPECT_EQ(g->advertisement(), decoded);
  // Written again, the decoded record gives the same bytes: no field was lost or altered.
  decoded->setOkActionMeta(original->okActionMeta());
  EXPECT_EQ(archive(*decoded), archive(*original));

  EXPECT_EQ(archivedKeyOrder(archive(*original)),
            (Strings{"codingVersion", "advertisementId", "name", "startDate", "endDate", "maxImpressionCount",
                     "postponeEnabled", "postponeDelay", "ignoreGlobalMinimumPopupTimeInterval", "stateType",
                     "displayType", "okActionType", "dataSourceType", "okActionMeta", "triggers", "targets",
                     "resources", "advertisedApp"}));
  EXPECT_EQ(archivedKeyOrder(archive(*original->advertisedApp())),
            (Strings{"codingVersion", "appId", "packageName", "publisher", "storeUrl", "reviewUrl", "rating", "free",
                     "resources", "storeInfo"}));
  EXPECT_EQ(archivedKeyOrder(archive(*original->advertisedApp()->storeInfo())),
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

TEST(AdvertisementArchive, WrongVersionOrMissingIdRefusesTheWholeRecord) {
  for (std::int64_t version : {1, 3, 0, -2}) EXPECT_FALSE(decodes<Advertisement>(version, {"advertisementId"})) << version;
  EXPECT_TRUE(decodes<Advertisement>(2, {"advertisementId"}));
  EXPECT_FALSE(decodes<Advertisement>(2, {}));
  EXPECT_FALSE(scripted<Advertisement>([](KeyedArchiver& c) {
    c.encodeInteger(2, "codingVersion");
    c.encodeInteger(7, "advertisementId");
  }));
  EXPECT_TRUE(decodes<AdvertisementTrigger>(1, {"triggerId", "eventKey"}) &&
              !decodes<AdvertisementTrigger>(2, {"triggerId", "eventKey"}) && !decodes<AdvertisementTrigger>(1, {"triggerId"}));
  EXPECT_TRUE(decodes<AdvertisementTarget>(1, {"targetId", "spaceKey"}) &&
              !decodes<AdvertisementTarget>(0, {"targetId", "spaceKey"}) && !decodes<AdvertisementTarget>(1, {"spaceKey"}));
  EXPECT_TRUE(decodes<AdvertisedApp>(1, {"appId"}) && !decodes<AdvertisedApp>(2, {"appId"}) && !decodes<AdvertisedApp>(1, {}));
  EXPECT_TRUE(decodes<ZTIAMResource>(std::nullopt, {"_key"}) && !decodes<ZTIAMResource>(std::nullopt, {"_value"}));
  EXPECT_TRUE(decodes<StoreAppInfo>(std::nullopt, {"_storeId"}));
  EXPECT_FALSE(scripted<StoreAppInfo>([](KeyedArchiver& c) { c.encodeInteger(5, "_storeId"); }));
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
  EXPECT_FALSE(ad->name() || ad->startDate() || ad->maxImpressionCount() || ad->postponeEnabled() || ad->advertisedApp());
  EXPECT_TRUE(ad->triggers().empty() && ad->resources().empty());
  // Integers that are missing read as 0, even where a new record would say otherwise.
  EXPECT_EQ((std::vector<std::int64_t>{ad->displayType(), ad->stateType(), ad->okActionType()}),
            (std::vector<std::int64_t>{0, 0, 0}));
}

}  // namespace
}  // namespace iam
