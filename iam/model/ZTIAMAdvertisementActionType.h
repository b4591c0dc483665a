#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace iam {

// what the main (ok) button of an advertisement does.
// Values outside the members are carried as they are (any 64-bit value).
enum ZTIAMAdvertisementActionType : std::int64_t {
  ZTIAMAdvertisementActionTypeInvalid = 0,
  ZTIAMAdvertisementActionTypeNoAction = 1,
  ZTIAMAdvertisementActionTypeOpenStore = 2,
  ZTIAMAdvertisementActionTypeOpenAd = 3,
  ZTIAMAdvertisementActionTypeOpenReview = 4,
  ZTIAMAdvertisementActionTypeDismiss = 5,
  ZTIAMAdvertisementActionTypePostpone = 6,
  ZTIAMAdvertisementActionTypeOpenContact = 7,
  ZTIAMAdvertisementActionTypeOpenContactForm = 8,
};

// The fixed descriptive strings of ZTIAMAdvertisementActionType ("ZTIAMAdvertisementActionTypeInvalid", ...), used in logs and
// descriptions. The table is built once, on first use, and may then be read from any thread.
class ZTIAMAdvertisementActionTypeConverter {
 public:
  ZTIAMAdvertisementActionTypeConverter() = delete;

  // Builds the table if it is not built yet; every other operation does so on its own.
  static void initialize();
  // None for a value without a member.
  static std::optional<std::string> stringFromEnum(ZTIAMAdvertisementActionType value);
  // Case-sensitive; an unknown string gives 0, which for some enumerations is no member.
  static ZTIAMAdvertisementActionType enumFromString(std::string_view string);
};

ZTIAMAdvertisementActionType ZTIAMAdvertisementActionTypeFromString(std::string_view string);
std::optional<std::string> StringFromZTIAMAdvertisementActionType(ZTIAMAdvertisementActionType value);

}  // namespace iam
