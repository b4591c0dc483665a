#include "iam/service/QualityNetworkRankedAppParser.h"

#include "iam/model/internal/JsonFields.h"

namespace iam {

namespace {
constexpr std::string_view kDropped = "ranked app dropped";
}  // namespace

std::shared_ptr<ZTIAMQualityNetworkRankedApp> QualityNetworkRankedAppParser::parse(
    const simdjson::dom::element& rankedAppData, const ZTIAMParseContext& context) const {
  try {
    auto o = json::asObject(rankedAppData);
    if (!o) {
      if (context.isReporting()) {
        context.report(fmt::format("is {}, not an object ({})", json::describe(rankedAppData), kDropped));
      }
      return nullptr;
    }
    auto id = json::requiredMember(*o, "id", json::asString, json::kString, context, kDropped);
    if (!id) return nullptr;
    auto priorityId = json::requiredMember(*o, "priorityId", json::asInteger, json::kInteger, context, kDropped);
    if (!priorityId) return nullptr;
    auto priority = ZTIAMQualityNetworkPriorityFromRawValue(*priorityId);
    if (!priority) {
      if (context.isReporting()) {
        context.member("priorityId").report(fmt::format("{} is not 1, 2 or 3 ({})", *priorityId, kDropped));
      }
      return nullptr;
    }
    auto appElement = json::requiredMember(
        *o, "advertisedApp", [](const json::element& e) { return std::optional(e); }, json::kObject, context, kDropped);
    if (!appElement) return nullptr;
    const auto appContext = context.member("advertisedApp");
    auto app = advertisedAppParser_.parse(*appElement, appContext);
    if (!app) {
      if (context.isReporting()) appContext.report(fmt::format("unusable ({})", kDropped));
      return nullptr;
    }

    auto rankedApp = std::make_shared<ZTIAMQualityNetworkRankedApp>(std::string(*id));
    rankedApp->setPriority(*priority);
    rankedApp->setAdvertisedApp(std::move(app));
    if (auto showFree = json::optionalMember(*o, "showFree", json::asBool, json::kBoolean, context)) {
      rankedApp->setShowFreeBadge(*showFree);
    }
    if (auto resources = json::optionalMember(*o, "resources", json::asObject, json::kObject, context)) {
      const auto resourcesContext = context.member("resources");
      for (auto [key, value] : *resources) {
        if (auto resource = resourceParser_.parse(key, value)) {
          rankedApp->addResource(std::move(resource));
        } else if (resourcesContext.isReporting()) {
          resourcesContext.member(key).report(
              fmt::format("is {}, not a string or null (resource dropped)", json::describe(value)));
        }
      }
    }
    return rankedApp;
  } catch (...) {
    return nullptr;
  }
}

std::shared_ptr<ZTIAMQualityNetworkRankedApp> QualityNetworkRankedAppParser::parse(
    std::string_view text, ZTIAMParseDiagnostics* diagnostics) const {
  return json::parseText(text, diagnostics, kDropped, [this](auto& root, auto& context) { return parse(root, context); });
}

}  // namespace iam
