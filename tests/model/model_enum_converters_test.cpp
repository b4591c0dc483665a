#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

#include "iam/model/ZTIAMAdvertisementActionType.h"
#include "iam/model/ZTIAMAdvertisementDataSourceType.h"
#include "iam/model/ZTIAMAdvertisementDisplayType.h"
#include "iam/model/ZTIAMAdvertisementEventType.h"
#include "iam/model/ZTIAMAdvertisementStateType.h"

namespace iam {
namespace {

// Each member's text names its type and reads back as that member; the free functions agree with
// the converters; values between members, and far outside, have no text.
template <class Converter, class E>
void expectRoundTrips(std::optional<std::string> (*toText)(E), E (*fromText)(std::string_view), std::string_view type,
                      int members) {
  int named = 0;
  for (std::int64_t raw = -2; raw <= 20; ++raw) {
    const auto value = static_cast<E>(raw);
    const auto text = toText(value);
    EXPECT_EQ(Converter::stringFromEnum(value), text) << raw;
    if (!text) continue;
    ++named;
    EXPECT_EQ(text->rfind(type, 0), 0u) << *text;
    EXPECT_EQ(fromText(*text), value) << *text;
    EXPECT_EQ(Converter::enumFromString(*text), value) << *text;
  }
  EXPECT_EQ(named, members) << type;
  EXPECT_EQ(toText(static_cast<E>(std::numeric_limits<std::int64_t>::min())), std::nullopt) << type;
}

TEST(EnumConverters, MembersMapBothWaysUnknownTextsGiveZero) {
  expectRoundTrips<ZTIAMAdvertisementActionTypeConverter>(
      StringFromZTIAMAdvertisementActionType, ZTIAMAdvertisementActionTypeFromString, "ZTIAMAdvertisementActionType", 9);
  expectRoundTrips<ZTIAMAdvertisementDataSourceTypeConverter>(StringFromZTIAMAdvertisementDataSourceType,
                                                              ZTIAMAdvertisementDataSourceTypeFromString,
                                                              "ZTIAMAdvertisementDataSourceType", 2);
  expectRoundTrips<ZTIAMAdvertisementDisplayTypeConverter>(
      StringFromZTIAMAdvertisementDisplayType, ZTIAMAdvertisementDisplayTypeFromString, "ZTIAMAdvertisementDisplayType", 4);
  expectRoundTrips<ZTIAMAdvertisementEventTypeConverter>(
      StringFromZTIAMAdvertisementEventType, ZTIAMAdvertisementEventTypeFromString, "ZTIAMAdvertisementEventType", 4);
  expectRoundTrips<ZTIAMAdvertisementStateTypeConverter>(
      StringFromZTIAMAdvertisementStateType, ZTIAMAdvertisementStateTypeFromString, "ZTIAMAdvertisementStateType", 3);
  EXPECT_EQ(StringFromZTIAMAdvertisementDisplayType(ZTIAMAdvertisementDisplayTypeReviewQuestion),
            "ZTIAMAdvertisementDisplayTypeReviewQuestion");

  // Texts match exactly: no trimming, no case folding.
  for (const char* text : {"", "OpenStore", "ztiamadvertisementactiontypeopenstore", "ZTIAMAdvertisementActionTypeOpenStore "}) {
    EXPECT_EQ(ZTIAMAdvertisementActionTypeFromString(text), 0) << text;
  }
}

}  // namespace
}  // namespace iam
