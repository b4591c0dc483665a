#pragma once

#include <cstdint>
#include <optional>

namespace iam {

// Rank class of an app in the native quality network; 1 ranks first. Only these three exist.
enum ZTIAMQualityNetworkPriority : std::int64_t {
  ZTIAMQualityNetworkPriorityHigh = 1,
  ZTIAMQualityNetworkPriorityMedium = 2,
  ZTIAMQualityNetworkPriorityLow = 3,
};

// None for any value but 1, 2 and 3.
inline std::optional<ZTIAMQualityNetworkPriority> ZTIAMQualityNetworkPriorityFromRawValue(std::int64_t rawValue) {
  if (rawValue < ZTIAMQualityNetworkPriorityHigh || rawValue > ZTIAMQualityNetworkPriorityLow) return std::nullopt;
  return static_cast<ZTIAMQualityNetworkPriority>(rawValue);
}

}  // namespace iam
