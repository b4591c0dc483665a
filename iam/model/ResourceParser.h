#pragma once

#include <memory>
#include <string_view>

#include "iam/model/ZTIAMParseDiagnostics.h"
#include "iam/model/ZTIAMResource.h"

namespace simdjson::dom {
class element;
class object;
}

namespace iam {

// Makes one resource from a member of a JSON "resources" object. Stateless; any thread.
class ResourceParser {
 public:
  // A string gives a resource with that value, null one without a value; any other JSON value
  // gives none (the caller decides whether that costs the member or the whole map).
  std::shared_ptr<ZTIAMResource> parse(std::string_view key, const simdjson::dom::element& value) const;

  // Every member of `resources` that `parse` accepts, keyed by its name (the last of equal names
  // wins); the others are reported to `context` and left out. The resources of one object share
  // one allocation, as they live and die together.
  ZTIAMResourceMap parseMembers(const simdjson::dom::object& resources, const ZTIAMParseContext& context) const;
};

}  // namespace iam
