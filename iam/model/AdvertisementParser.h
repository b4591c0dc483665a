#pragma once

#include <memory>
#include <string_view>

#include "iam/model/AdvertisedAppParser.h"
#include "iam/model/Advertisement.h"
#include "iam/model/AdvertisementTargetParser.h"
#include "iam/model/AdvertisementTriggerParser.h"
#include "iam/model/ResourceParser.h"
#include "iam/model/ZTIAMParseDiagnostics.h"

namespace simdjson::dom {
class element;
}

namespace iam {

// Turns one advertisement object of the service's answer into an Advertisement with its triggers
// (pointing back to it), targets, resources and advertised app, and validates it. A malformed or
// invalid advertisement gives none; parsing never throws and never logs (a diagnostics sink, when
// given, hears why). Stateless but for its sub-parsers; any thread.
//
// One input stops the program on purpose: an "okAction" id of INT64_MAX or a "dataSource" id of
// INT64_MIN, whose mapping overflows.
class AdvertisementParser {
 public:
  std::shared_ptr<Advertisement> parse(const simdjson::dom::element& data, const ZTIAMParseContext& context = {}) const;
  std::shared_ptr<Advertisement> parse(std::string_view json, ZTIAMParseDiagnostics* diagnostics = nullptr) const;

  const AdvertisedAppParser& advertisedAppParser() const { return advertisedAppParser_; }
  const ResourceParser& resourceParser() const { return resourceParser_; }
  const AdvertisementTriggerParser& triggerParser() const { return triggerParser_; }
  const AdvertisementTargetParser& targetParser() const { return targetParser_; }

 private:
  std::shared_ptr<Advertisement> parseAdvertisement(const simdjson::dom::element& data,
                                                    const ZTIAMParseContext& context) const;

  AdvertisedAppParser advertisedAppParser_;
  ResourceParser resourceParser_;
  AdvertisementTriggerParser triggerParser_;
  AdvertisementTargetParser targetParser_;
};

}  // namespace iam
