#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace iam {

// where an advertisement comes from.
// Values outside the members are carried as they are (any 64-bit value).
enum ZTIAMAdvertisementDataSourceType : std::int64_t {
  ZTIAMAdvertisementDataSourceTypeInAppMarketing = 0,
  ZTIAMAdvertisementDataSourceTypeAdMobNative = 1,
};

// The fixed descriptive strings of ZTIAMAdvertisementDataSourceType ("ZTIAMAdvertisementDataSourceTypeInAppMarketing", ...), used in logs and
// descriptions. The table is built once, on first use, and may then be read from any thread.
class ZTIAMAdvertisementDataSourceTypeConverter {
 public:
  ZTIAMAdvertisementDataSourceTypeConverter() = delete;

  // Builds the table if it is not built yet; every other operation does so on its own.
  static void initialize();
  // None for a value without a member.
  static std::optional<std::string> stringFromEnum(ZTIAMAdvertisementDataSourceType value);
  // Case-sensitive; an unknown string gives 0, which for some enumerations is no member.
  static ZTIAMAdvertisementDataSourceType enumFromString(std::string_view string);
};

ZTIAMAdvertisementDataSourceType ZTIAMAdvertisementDataSourceTypeFromString(std::string_view string);
std::optional<std::string> StringFromZTIAMAdvertisementDataSourceType(ZTIAMAdvertisementDataSourceType value);

}  // namespace iam
