#pragma once

#include <optional>
#include <string>

#include "iam/platform/Date.h"

namespace iam::tool {

// "2026-01-01T00:00:00Z" (UTC, whole seconds) for what the tool prints.
std::string isoDate(Date date);
// Reads "2026-01-01T00:00:00Z", with optional fractional seconds and a "+hh:mm"/"-hh:mm" offset in
// place of "Z"; none for anything else.
std::optional<Date> parseIsoDate(const std::string& text);

}  // namespace iam::tool
