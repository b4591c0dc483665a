#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "iam/model/ZTIAMAdvertisementActionType.h"
#include "iam/model/ZTIAMAdvertisementDataSourceType.h"
#include "iam/model/ZTIAMAdvertisementDisplayType.h"
#include "iam/model/ZTIAMAdvertisementEventType.h"
#include "iam/model/ZTIAMAdvertisementStateType.h"

namespace iam {
namespace {

struct Row {
  std::int64_t value;
  std::string text;
};

// Both directions for every member, through the free functions (which must forward to the
// converters) and the converters themselves.
template <class E, class Converter, class ToText, class FromText>
void expectTable(const std::vector<Row>& rows, ToText toText, FromText fromText) {
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(toText(static_cast<E>(row.value)), row.text);
    EXPECT_EQ(fromText(row.text), row.value);
    EXPECT_EQ(Converter::stringFromEnum(static_cast<E>(row.value)), row.text);
    EXPECT_EQ(Converter::enumFromString(row.text), row.value);
  }
}

TEST(EnumConverters, EveryMemberMapsBothWays) {
  expectTable<ZTIAMAdvertisementActionType, ZTIAMAdvertisementActionTypeConverter>(
      {{0, "ZTIAMAdvertisementActionTypeInvalid"},
       {1, "ZTIAMAdvertisementActionTypeNoAction"},
       {2, "ZTIAMAdvertisementActionTypeOpenStore"},
       {3, "ZTIAMAdvertisementActionTypeOpenAd"},
       {4, "ZTIAMAdvertisementActionTypeOpenReview"},
       {5, "ZTIAMAdvertisementActionTypeDismiss"},
       {6, "ZTIAMAdvertisementActionTypePostpone"},
       {7, "ZTIAMAdvertisementActionTypeOpenContact"},
       {8, "ZTIAMAdvertisementActionTypeOpenContactForm"}},
      StringFromZTIAMAdvertisementActionType, ZTIAMAdvertisementActionTypeFromString);
  expectTable<ZTIAMAdvertisementDataSourceType, ZTIAMAdvertisementDataSourceTypeConverter>(
      {{0, "ZTIAMAdvertisementDataSourceTypeInAppMarketing"}, {1, "ZTIAMAdvertisementDataSourceTypeAdMobNative"}},
      StringFromZTIAMAdvertisementDataSourceType, ZTIAMAdvertisementDataSourceTypeFromString);
  expectTable<ZTIAMAdvertisementDisplayType, ZTIAMAdvertisementDisplayTypeConverter>(
      {{0, "ZTIAMAdvertisementDisplayTypeInvalid"},
       {14, "ZTIAMAdvertisementDisplayTypeDfpInterstitialPreload"},
       {15, "ZTIAMAdvertisementDisplayTypeDfpInterstitial"},
       {16, "ZTIAMAdvertisementDisplayTypeReviewQuestion"}},
      StringFromZTIAMAdvertisementDisplayType, ZTIAMAdvertisementDisplayTypeFromString);
  expectTable<ZTIAMAdvertisementEventType, ZTIAMAdvertisementEventTypeConverter>(
      {{0, "ZTIAMAdvertisementEventTypeImpression"},
       {1, "ZTIAMAdvertisementEventTypeClick"},
       {2, "ZTIAMAdvertisementEventTypeDismiss"},
       {3, "ZTIAMAdvertisementEventTypePostpone"}},
      StringFromZTIAMAdvertisementEventType, ZTIAMAdvertisementEventTypeFromString);
  expectTable<ZTIAMAdvertisementStateType, ZTIAMAdvertisementStateTypeConverter>(
      {{1, "ZTIAMAdvertisementStateTypeLive"}, {2, "ZTIAMAdvertisementStateTypeTesting"}, {3, "ZTIAMAdvertisementStateTypeDisabled"}},
      StringFromZTIAMAdvertisementStateType, ZTIAMAdvertisementStateTypeFromString);
}

TEST(EnumConverters, ValuesWithoutMemberHaveNoStringUnknownOrDifferentlyCasedStringsGiveZero) {
  EXPECT_EQ(StringFromZTIAMAdvertisementDisplayType(static_cast<ZTIAMAdvertisementDisplayType>(1)), std::nullopt);
  EXPECT_EQ(StringFromZTIAMAdvertisementDisplayType(static_cast<ZTIAMAdvertisementDisplayType>(13)), std::nullopt);
  EXPECT_EQ(StringFromZTIAMAdvertisementStateType(static_cast<ZTIAMAdvertisementStateType>(0)), std::nullopt);
  EXPECT_EQ(StringFromZTIAMAdvertisementActionType(static_cast<ZTIAMAdvertisementActionType>(9)), std::nullopt);
  EXPECT_EQ(StringFromZTIAMAdvertisementActionType(static_cast<ZTIAMAdvertisementActionType>(-1)), std::nullopt);
  EXPECT_EQ(StringFromZTIAMAdvertisementEventType(static_cast<ZTIAMAdvertisementEventType>(INT64_MIN)), std::nullopt);
  EXPECT_EQ(StringFromZTIAMAdvertisementDataSourceType(static_cast<ZTIAMAdvertisementDataSourceType>(-1)), std::nullopt);

  for (const char* text : {"", "OpenStore", "ztiamadvertisementactiontypeopenstore", "ZTIAMAdvertisementActionTypeOpenStore "}) {
    EXPECT_EQ(ZTIAMAdvertisementActionTypeFromString(text), 0) << text;
  }
  EXPECT_EQ(ZTIAMAdvertisementStateTypeFromString("ZTIAMAdvertisementStateTypeUnknown"), 0);
  // Click in another case must not be found: that would be a case-insensitive table.
  EXPECT_EQ(ZTIAMAdvertisementEventTypeFromString("ZTIAMADVERTISEMENTEVENTTYPECLICK"), 0);
  EXPECT_EQ(ZTIAMAdvertisementDisplayTypeFromString("ZTIAMAdvertisementDisplayTypeDfpinterstitial"), 0);
  EXPECT_EQ(ZTIAMAdvertisementDataSourceTypeFromString("ZTIAMAdvertisementDataSourceTypeAdmobNative"), 0);
}

}  // namespace
}  // namespace iam
