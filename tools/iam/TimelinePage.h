#pragma once

#include <string>
#include <string_view>

namespace iam::tool {

// The simulator's run as one self-contained web page: `lines` is the JSON array of what
// `iam simulate --json` prints, `journey` a JSON array of the steps with the index of the first
// line each caused. Both are embedded as data; the page's script draws them.
std::string timelinePage(std::string_view lines, std::string_view journey);

// JSON text made safe inside a <script> element: nothing in it can close the element or start
// markup, and JavaScript line separators are escaped. The value the JSON holds is unchanged.
std::string scriptSafeJson(std::string_view json);

}  // namespace iam::tool
