#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace iam {

// the publishing state of an advertisement. 0 is no member: a record made without a
// state carries it, and it has no string form.
// Values outside the members are carried as they are (any 64-bit value).
enum ZTIAMAdvertisementStateType : std::int64_t {
  ZTIAMAdvertisementStateTypeLive = 1,
  ZTIAMAdvertisementStateTypeTesting = 2,
  ZTIAMAdvertisementStateTypeDisabled = 3,
};

// The fixed descriptive strings of ZTIAMAdvertisementStateType ("ZTIAMAdvertisementStateTypeLive", ...), used in logs and
// descriptions. The table is built once, on first use, and may then be read from any thread.
class ZTIAMAdvertisementStateTypeConverter {
 public:
  ZTIAMAdvertisementStateTypeConverter() = delete;

  // Builds the table if it is not built yet; every other operation does so on its own.
  static void initialize();
  // None for a value without a member.
  static std::optional<std::string> stringFromEnum(ZTIAMAdvertisementStateType value);
  // Case-sensitive; an unknown string gives 0, which for some enumerations is no member.
  static ZTIAMAdvertisementStateType enumFromString(std::string_view string);
};

ZTIAMAdvertisementStateType ZTIAMAdvertisementStateTypeFromString(std::string_view string);
std::optional<std::string> StringFromZTIAMAdvertisementStateType(ZTIAMAdvertisementStateType value);

}  // namespace iam
