#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "iam/model/AdvertisementParser.h"
#include "iam/model/ZTIAMParseDiagnostics.h"
#include "iam/net/OspreyServiceContentInfo.h"
#include "iam/service/AdvertisementsRequestResponse.h"
#include "iam/service/AppConfigParser.h"

namespace simdjson::dom {
class element;
}

namespace iam {

// The advertisements answer of the marketing service. A bad advertisement costs only itself; a
// missing or bad "advertisements" list or "appConfig" costs the whole answer (none). Never throws
// and never logs; a diagnostics sink, when given, hears every drop. Stateless but for its
// sub-parsers; any thread.
class AdvertisementsResponseParser {
 public:
  std::shared_ptr<AdvertisementsRequestResponse> parse(const simdjson::dom::element& data,
                                                       std::shared_ptr<OspreyServiceContentInfo> contentInfo,
                                                       std::optional<std::string> etag,
                                                       ZTIAMParseDiagnostics* diagnostics = nullptr) const;
  std::shared_ptr<AdvertisementsRequestResponse> parse(std::string_view json,
                                                       std::shared_ptr<OspreyServiceContentInfo> contentInfo,
                                                       std::optional<std::string> etag,
                                                       ZTIAMParseDiagnostics* diagnostics = nullptr) const;

  const AdvertisementParser& advertisementParser() const { return advertisementParser_; }
  const AppConfigParser& appConfigParser() const { return appConfigParser_; }

 private:
  std::shared_ptr<AdvertisementsRequestResponse> parseAnswer(const simdjson::dom::element& data,
                                                             std::shared_ptr<OspreyServiceContentInfo> contentInfo,
                                                             std::optional<std::string> etag,
                                                             const ZTIAMParseContext& context) const;

  AdvertisementParser advertisementParser_;
  AppConfigParser appConfigParser_;
};

}  // namespace iam
