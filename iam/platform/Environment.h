#pragma once

#include <optional>
#include <string>

namespace iam {

// The process environment, read in one place so that hosts and tests know every variable the
// library looks at. Thread-safe as long as nobody changes the environment meanwhile.
class Environment {
 public:
  // The variable's value; none when it is not set.
  static std::optional<std::string> variable(const std::string& name);
};

}  // namespace iam
