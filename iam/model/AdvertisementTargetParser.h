#pragma once

#include <memory>
#include <string_view>

#include "iam/model/AdvertisementTarget.h"
#include "iam/model/ZTIAMParseDiagnostics.h"

namespace simdjson::dom {
class element;
}

namespace iam {

// One target object of an advertisement. Stateless; any thread. Never throws.
class AdvertisementTargetParser {
 public:
  // None unless `data` is an object with string "id" and "key".
  std::shared_ptr<AdvertisementTarget> parse(const simdjson::dom::element& data,
                                             const ZTIAMParseContext& context = {}) const;
  std::shared_ptr<AdvertisementTarget> parse(std::string_view json, ZTIAMParseDiagnostics* diagnostics = nullptr) const;
};

}  // namespace iam
