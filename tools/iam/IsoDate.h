#pragma once

#include <string>

#include "iam/platform/Date.h"

namespace iam::tool {

// "2026-01-01T00:00:00Z" (UTC, whole seconds) for what the tool prints.
std::string isoDate(Date date);

}  // namespace iam::tool
