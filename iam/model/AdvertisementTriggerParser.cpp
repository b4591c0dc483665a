#include "iam/model/AdvertisementTriggerParser.h"

#include "iam/model/internal/JsonFields.h"

namespace iam {

namespace {
constexpr std::string_view kDropped = "trigger dropped";
}  // namespace

std::shared_ptr<AdvertisementTrigger> AdvertisementTriggerParser::parse(const simdjson::dom::element& data,
                                                                        const ZTIAMParseContext& context) const {
  try {
    auto o = json::asObject(data);
    if (!o) {
      if (context.isReporting()) context.report(fmt::format("is {}, not an object ({})", json::describe(data), kDropped));
      return nullptr;
    }
    auto id = json::requiredMember(*o, "id", json::asString, json::kString, context, kDropped);
    if (!id) return nullptr;
    auto key = json::requiredMember(*o, "key", json::asString, json::kString, context, kDropped);
    if (!key) return nullptr;
    auto trigger = std::make_shared<AdvertisementTrigger>(std::string(*id), std::string(*key));
    trigger->setThresholdCount(json::optionalMember(*o, "thresholdCount", json::asInteger, json::kInteger, context));
    trigger->setDisplayDelay(json::optionalMember(*o, "displayDelay", json::asDouble, json::kNumber, context));
    trigger->setMaxFireCount(json::optionalMember(*o, "maxFireCount", json::asInteger, json::kInteger, context));
    trigger->setRepeatIntervalCount(json::optionalMember(*o, "repeatIntervalCount", json::asInteger, json::kInteger, context));
    return trigger;
  } catch (...) {
    return nullptr;
  }
}

std::shared_ptr<AdvertisementTrigger> AdvertisementTriggerParser::parse(std::string_view text,
                                                                        ZTIAMParseDiagnostics* diagnostics) const {
  return json::parseText(text, diagnostics, kDropped, [this](auto& root, auto& context) { return parse(root, context); });
}

}  // namespace iam
