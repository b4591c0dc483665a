#include "iam/model/ResourceParser.h"

#include "iam/model/internal/JsonFields.h"

#include <vector>

namespace iam {

std::shared_ptr<ZTIAMResource> ResourceParser::parse(std::string_view key, const simdjson::dom::element& value) const {
  if (auto text = json::asString(value)) {
    return std::make_shared<ZTIAMResource>(std::string(key), std::string(*text));
  }
  if (value.is_null()) return std::make_shared<ZTIAMResource>(std::string(key), std::nullopt);
  return nullptr;
}

ZTIAMResourceMap ResourceParser::parseMembers(const simdjson::dom::object& resources,
                                              const ZTIAMParseContext& context) const {
  ZTIAMResourceMap map;
  auto block = std::make_shared<std::vector<ZTIAMResource>>();
  block->reserve(resources.size());
  for (auto [key, value] : resources) {
    std::optional<std::string> text;
    if (auto s = json::asString(value)) {
      text.emplace(*s);
    } else if (!value.is_null()) {
      if (context.isReporting()) {
        context.member(key).report(fmt::format("is {}, not a string or null (resource dropped)", json::describe(value)));
      }
      continue;
    }
    // Reserved up front, so no element moves and every alias stays valid.
    auto& resource = block->emplace_back(std::string(key), std::move(text));
    map.insert_or_assign(resource.key(), std::shared_ptr<ZTIAMResource>(block, &resource));
  }
  return map;
}

}  // namespace iam
