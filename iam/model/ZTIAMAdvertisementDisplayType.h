#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace iam {

// how an advertisement is shown. There are no members 1 to 13. The two Dfp
// interstitials are drawn by the host, never by the library; they differ only in the lowest bit.
// Values outside the members are carried as they are (any 64-bit value).
enum ZTIAMAdvertisementDisplayType : std::int64_t {
  ZTIAMAdvertisementDisplayTypeInvalid = 0,
  ZTIAMAdvertisementDisplayTypeDfpInterstitialPreload = 14,
  ZTIAMAdvertisementDisplayTypeDfpInterstitial = 15,
  ZTIAMAdvertisementDisplayTypeReviewQuestion = 16,
};

// The fixed descriptive strings of ZTIAMAdvertisementDisplayType ("ZTIAMAdvertisementDisplayTypeInvalid", ...), used in logs and
// descriptions. The table is built once, on first use, and may then be read from any thread.
class ZTIAMAdvertisementDisplayTypeConverter {
 public:
  ZTIAMAdvertisementDisplayTypeConverter() = delete;

  // Builds the table if it is not built yet; every other operation does so on its own.
  static void initialize();
  // None for a value without a member.
  static std::optional<std::string> stringFromEnum(ZTIAMAdvertisementDisplayType value);
  // Case-sensitive; an unknown string gives 0, which for some enumerations is no member.
  static ZTIAMAdvertisementDisplayType enumFromString(std::string_view string);
};

ZTIAMAdvertisementDisplayType ZTIAMAdvertisementDisplayTypeFromString(std::string_view string);
std::optional<std::string> StringFromZTIAMAdvertisementDisplayType(ZTIAMAdvertisementDisplayType value);

}  // namespace iam
