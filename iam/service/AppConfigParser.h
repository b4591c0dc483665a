#pragma once

#include <memory>
#include <string_view>

#include "iam/model/ZTIAMParseDiagnostics.h"
#include "iam/service/AppConfig.h"

namespace simdjson::dom {
class element;
}

namespace iam {

// The "appConfig" object of an advertisements answer. Stateless; any thread. Never throws.
class AppConfigParser {
 public:
  // None for an empty or non-object value, or without a number "minimumPopupImpressionTimeInterval".
  // "attributes" is used only when it is an object of strings; otherwise the config has none.
  std::shared_ptr<AppConfig> parse(const simdjson::dom::element& data, const ZTIAMParseContext& context = {}) const;
  std::shared_ptr<AppConfig> parse(std::string_view json, ZTIAMParseDiagnostics* diagnostics = nullptr) const;
};

}  // namespace iam
