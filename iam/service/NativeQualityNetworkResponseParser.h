#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "iam/model/ZTIAMParseDiagnostics.h"
#include "iam/net/OspreyServiceContentInfo.h"
#include "iam/service/NativeQualityNetworkResponse.h"
#include "iam/service/QualityNetworkRankedAppParser.h"

namespace simdjson::dom {
class element;
}

namespace iam {

// The native quality network answer. A bad ranked app costs only itself; a missing "rankedApps"
// list, or one holding anything but objects, costs the whole answer. Never throws, never logs.
// Stateless but for its sub-parser; any thread.
class NativeQualityNetworkResponseParser {
 public:
  std::shared_ptr<NativeQualityNetworkResponse> parse(const simdjson::dom::element& data,
                                                      std::shared_ptr<OspreyServiceContentInfo> contentInfo,
                                                      std::optional<std::string> etag,
                                                      ZTIAMParseDiagnostics* diagnostics = nullptr) const;
  std::shared_ptr<NativeQualityNetworkResponse> parse(std::string_view json,
                                                      std::shared_ptr<OspreyServiceContentInfo> contentInfo,
                                                      std::optional<std::string> etag,
                                                      ZTIAMParseDiagnostics* diagnostics = nullptr) const;

  const QualityNetworkRankedAppParser& rankedAppParser() const { return rankedAppParser_; }

 private:
  std::shared_ptr<NativeQualityNetworkResponse> parseAnswer(const simdjson::dom::element& data,
                                                            std::shared_ptr<OspreyServiceContentInfo> contentInfo,
                                                            std::optional<std::string> etag,
                                                            const ZTIAMParseContext& context) const;

  QualityNetworkRankedAppParser rankedAppParser_;
};

}  // namespace iam
