#include "iam/platform/Environment.h"

#include <cstdlib>

namespace iam {

std::optional<std::string> Environment::variable(const std::string& name) {
  if (const char* value = std::getenv(name.c_str())) return std::string(value);
  return std::nullopt;
}

}  // namespace iam
