#pragma once

#include <chrono>
#include <optional>

namespace iam {

// An absolute point in time. Dates cross the JSON and archive boundaries as seconds since
// 1970-01-01 UTC held in a double; the helpers below keep the fraction both ways.
using Date = std::chrono::system_clock::time_point;

// Seconds, as the system's intervals are expressed.
using TimeInterval = double;

inline Date dateWithTimeIntervalSince1970(TimeInterval seconds) {
  return Date(std::chrono::duration_cast<Date::duration>(std::chrono::duration<double>(seconds)));
}

inline TimeInterval timeIntervalSince1970(Date date) {
  return std::chrono::duration<double>(date.time_since_epoch()).count();
}

// Seconds from `earlier` to `later`; negative when `later` comes first.
inline TimeInterval timeIntervalBetween(Date later, Date earlier) {
  return std::chrono::duration<double>(later - earlier).count();
}

inline Date dateByAddingTimeInterval(Date date, TimeInterval seconds) {
  return date + std::chrono::duration_cast<Date::duration>(std::chrono::duration<double>(seconds));
}

}  // namespace iam
