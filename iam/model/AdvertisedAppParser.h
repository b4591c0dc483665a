#pragma once

#include <memory>
#include <string_view>

#include "iam/model/AdvertisedApp.h"
#include "iam/model/ResourceParser.h"
#include "iam/model/ZTIAMParseDiagnostics.h"

namespace simdjson::dom {
class element;
}

namespace iam {

// The "advertisedApp" object of an advertisement or of a ranked app, with its store info and
// resources. Stateless but for its sub-parser; any thread. Never throws.
class AdvertisedAppParser {
 public:
  // None unless `data` is an object with a string "id". Resources are taken member by member; a
  // store info without an integer "id" and a string "bundleId" is left out.
  std::shared_ptr<AdvertisedApp> parse(const simdjson::dom::element& data, const ZTIAMParseContext& context = {}) const;
  std::shared_ptr<AdvertisedApp> parse(std::string_view json, ZTIAMParseDiagnostics* diagnostics = nullptr) const;

  const ResourceParser& resourceParser() const { return resourceParser_; }

 private:
  std::shared_ptr<StoreAppInfo> parseStoreInfo(const simdjson::dom::element& data,
                                               const ZTIAMParseContext& context) const;

  ResourceParser resourceParser_;
};

}  // namespace iam
