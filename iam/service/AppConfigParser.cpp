#include "iam/service/AppConfigParser.h"

#include "iam/model/internal/JsonFields.h"

namespace iam {

namespace {
constexpr std::string_view kDropped = "app configuration dropped";
}  // namespace

std::shared_ptr<AppConfig> AppConfigParser::parse(const simdjson::dom::element& data,
                                                  const ZTIAMParseContext& context) const {
  try {
    auto o = json::asObject(data);
    if (!o || o->size() == 0) {
      if (context.isReporting()) {
        context.report(fmt::format("is {}, not a non-empty object ({})", o ? "an empty object" : json::describe(data),
                                   kDropped));
      }
      return nullptr;
    }
    auto interval = json::requiredMember(*o, "minimumPopupImpressionTimeInterval", json::asDouble, json::kNumber,
                                         context, kDropped);
    if (!interval) return nullptr;

    std::map<std::string, std::string> attributes;
    if (auto attributesObject = json::optionalMember(*o, "attributes", json::asObject, json::kObject, context)) {
      for (auto [key, value] : *attributesObject) {
        auto text = json::asString(value);
        if (!text) {
          if (context.isReporting()) {
            const auto attributesContext = context.member("attributes");
            attributesContext.member(key).report(
                fmt::format("is {}, not a string (all attributes ignored)", json::describe(value)));
          }
          attributes.clear();
          break;
        }
        attributes.insert_or_assign(std::string(key), std::string(*text));
      }
    }
    return std::make_shared<AppConfig>(*interval, std::move(attributes));
  } catch (...) {
    return nullptr;
  }
}

std::shared_ptr<AppConfig> AppConfigParser::parse(std::string_view text, ZTIAMParseDiagnostics* diagnostics) const {
  return json::parseText(text, diagnostics, kDropped, [this](auto& root, auto& context) { return parse(root, context); });
}

}  // namespace iam
