#pragma once

#include <memory>
#include <string_view>

#include "iam/model/AdvertisementTrigger.h"
#include "iam/model/ZTIAMParseDiagnostics.h"

namespace simdjson::dom {
class element;
}

namespace iam {

// One trigger object of an advertisement. Stateless; any thread. Never throws.
class AdvertisementTriggerParser {
 public:
  // None unless `data` is an object with string "id" and "key". The back reference is left to the
  // advertisement's parser.
  std::shared_ptr<AdvertisementTrigger> parse(const simdjson::dom::element& data,
                                              const ZTIAMParseContext& context = {}) const;
  std::shared_ptr<AdvertisementTrigger> parse(std::string_view json, ZTIAMParseDiagnostics* diagnostics = nullptr) const;
};

}  // namespace iam
