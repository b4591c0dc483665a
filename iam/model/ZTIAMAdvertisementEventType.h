#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace iam {

// what happened to a shown advertisement.
// Values outside the members are carried as they are (any 64-bit value).
enum ZTIAMAdvertisementEventType : std::int64_t {
  ZTIAMAdvertisementEventTypeImpression = 0,
  ZTIAMAdvertisementEventTypeClick = 1,
  ZTIAMAdvertisementEventTypeDismiss = 2,
  ZTIAMAdvertisementEventTypePostpone = 3,
};

// The fixed descriptive strings of ZTIAMAdvertisementEventType ("ZTIAMAdvertisementEventTypeImpression", ...), used in logs and
// descriptions. The table is built once, on first use, and may then be read from any thread.
class ZTIAMAdvertisementEventTypeConverter {
 public:
  ZTIAMAdvertisementEventTypeConverter() = delete;

  // Builds the table if it is not built yet; every other operation does so on its own.
  static void initialize();
  // None for a value without a member.
  static std::optional<std::string> stringFromEnum(ZTIAMAdvertisementEventType value);
  // Case-sensitive; an unknown string gives 0, which for some enumerations is no member.
  static ZTIAMAdvertisementEventType enumFromString(std::string_view string);
};

ZTIAMAdvertisementEventType ZTIAMAdvertisementEventTypeFromString(std::string_view string);
std::optional<std::string> StringFromZTIAMAdvertisementEventType(ZTIAMAdvertisementEventType value);

}  // namespace iam
