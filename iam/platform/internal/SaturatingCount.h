#pragma once

#include <cstdint>
#include <limits>

namespace iam {

// Counts come back from the preferences file as stored, so one may already sit at the top of its
// range; it stays there rather than wrap.
inline std::int64_t oneMore(std::int64_t count) {
  return count < std::numeric_limits<std::int64_t>::max() ? count + 1 : count;
}
inline void countOneMore(std::int64_t& count) { count = oneMore(count); }

}  // namespace iam
