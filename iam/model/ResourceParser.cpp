#include "iam/model/ResourceParser.h"

#include "iam/model/JsonFields.hpp"

namespace iam {

std::shared_ptr<ZTIAMResource> ResourceParser::parse(std::string_view key, const simdjson::dom::element& value) const {
  if (auto text = json::asString(value)) {
    return std::make_shared<ZTIAMResource>(std::string(key), std::string(*text));
  }
  if (value.is_null()) return std::make_shared<ZTIAMResource>(std::string(key), std::nullopt);
  return nullptr;
}

}  // namespace iam
