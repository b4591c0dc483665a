#include "tools/iam/AnswerChecks.h"

#include <simdjson.h>

#include <cstdint>
#include <limits>

namespace iam::tool {

std::optional<std::string> idTheLibraryStopsOn(const simdjson::dom::element& root) {
  simdjson::dom::array list;
  if (root["advertisements"].get(list) != simdjson::SUCCESS) return std::nullopt;
  std::size_t index = 0;
  for (auto element : list) {
    const std::string path = "advertisements[" + std::to_string(index++) + "]";
    std::int64_t id = 0;
    if (element["okAction"]["id"].get(id) == simdjson::SUCCESS && id == std::numeric_limits<std::int64_t>::max())
      return path + ".okAction.id";
    if (element["dataSource"]["id"].get(id) == simdjson::SUCCESS && id == std::numeric_limits<std::int64_t>::min())
      return path + ".dataSource.id";
  }
  return std::nullopt;
}

}  // namespace iam::tool
