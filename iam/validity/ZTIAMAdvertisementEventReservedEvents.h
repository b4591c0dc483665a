#pragma once

#include <array>
#include <string_view>

namespace iam {

// App event keys the library gives a meaning of its own, in this order: the app coming to the
// foreground (trigger rules count launches for it instead of events) and the launch after an update
// (derived by the manager from the first).
inline constexpr std::array<std::string_view, 2> ZTIAMAdvertisementEventReservedEvents = {
    "appToForeground",
    "System - app updated",
};

}  // namespace iam
