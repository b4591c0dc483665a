#include "iam/stats/LegacyValue.h"

#include <cmath>
#include <limits>

namespace iam {

bool LegacyValue::Number::isUnsigned() const {
  switch (objCType) {
    case 'C':
    case 'S':
    case 'I':
    case 'L':
    case 'Q': return true;
    default: return false;
  }
}

std::int64_t LegacyValue::Number::int64Value() const {
  if (isFloating()) {
    const double d = floatingValue;
    if (std::isnan(d)) return 0;
    if (d <= -9223372036854775808.0) return std::numeric_limits<std::int64_t>::min();
    if (d >= 9223372036854775808.0) return std::numeric_limits<std::int64_t>::max();
    return static_cast<std::int64_t>(d);
  }
  if (isUnsigned()) {
    return unsignedValue > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())
               ? std::numeric_limits<std::int64_t>::max()
               : static_cast<std::int64_t>(unsignedValue);
  }
  return signedValue;
}

std::uint64_t LegacyValue::Number::uint64Value() const {
  if (isFloating()) {
    const double d = floatingValue;
    if (std::isnan(d) || d <= 0) return 0;
    if (d >= 18446744073709551616.0) return std::numeric_limits<std::uint64_t>::max();
    return static_cast<std::uint64_t>(d);
  }
  if (isUnsigned()) return unsignedValue;
  return signedValue < 0 ? 0 : static_cast<std::uint64_t>(signedValue);
}

double LegacyValue::Number::doubleValue() const {
  if (isFloating()) return floatingValue;
  if (isUnsigned()) return static_cast<double>(unsignedValue);
  return static_cast<double>(signedValue);
}

bool LegacyValue::Number::boolValue() const {
  if (isFloating()) return floatingValue != 0;
  if (isUnsigned()) return unsignedValue != 0;
  return signedValue != 0;
}

}  // namespace iam
