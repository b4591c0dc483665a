#pragma once

#include <optional>
#include <string>

namespace simdjson::dom {
class element;
}

namespace iam::tool {

// The path ("advertisements[2].okAction.id") of the first id on which the library's advertisement
// parser stops the program (the id's mapping overflows), so that the tool refuses such an answer
// rather than crash on it; none when there is none or the root holds no advertisements list.
std::optional<std::string> idTheLibraryStopsOn(const simdjson::dom::element& root);

}  // namespace iam::tool
