#pragma once

#include <cstdlib>

namespace iam::testing {

// CI runs the short form; IAM_RELIABILITY_LONG=1 runs the long one, IAM_RELIABILITY_SEED=N replays.
inline bool reliabilityLongForm() { return std::getenv("IAM_RELIABILITY_LONG") != nullptr; }
inline unsigned reliabilitySeed() {
  const char* s = std::getenv("IAM_RELIABILITY_SEED");
  return s != nullptr ? static_cast<unsigned>(std::strtoul(s, nullptr, 10)) : 20u;
}

}  // namespace iam::testing
