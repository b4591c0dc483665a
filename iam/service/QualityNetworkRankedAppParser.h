#pragma once

#include <memory>
#include <string_view>

#include "iam/model/AdvertisedAppParser.h"
#include "iam/model/ResourceParser.h"
#include "iam/model/ZTIAMParseDiagnostics.h"
#include "iam/service/ZTIAMQualityNetworkRankedApp.h"

namespace simdjson::dom {
class element;
}

namespace iam {

// One entry of the "rankedApps" list. Stateless but for its sub-parsers; any thread. Never throws.
class QualityNetworkRankedAppParser {
 public:
  // None unless the entry has a string "id", a "priorityId" of 1, 2 or 3 and an "advertisedApp"
  // that parses.
  std::shared_ptr<ZTIAMQualityNetworkRankedApp> parse(const simdjson::dom::element& rankedAppData,
                                                      const ZTIAMParseContext& context = {}) const;
  std::shared_ptr<ZTIAMQualityNetworkRankedApp> parse(std::string_view json,
                                                      ZTIAMParseDiagnostics* diagnostics = nullptr) const;

  const AdvertisedAppParser& advertisedAppParser() const { return advertisedAppParser_; }
  const ResourceParser& resourceParser() const { return resourceParser_; }

 private:
  AdvertisedAppParser advertisedAppParser_;
  ResourceParser resourceParser_;
};

}  // namespace iam
