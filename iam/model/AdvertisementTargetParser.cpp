#include "iam/model/AdvertisementTargetParser.h"

#include "iam/model/internal/JsonFields.h"

namespace iam {

namespace {
constexpr std::string_view kDropped = "target dropped";
}  // namespace

std::shared_ptr<AdvertisementTarget> AdvertisementTargetParser::parse(const simdjson::dom::element& data,
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
    auto target = std::make_shared<AdvertisementTarget>(std::string(*id), std::string(*key));
    target->setCustomViewClass(json::toString(json::optionalMember(*o, "customViewClass", json::asString, json::kString, context)));
    target->setRowIndex(json::optionalMember(*o, "rowIndex", json::asInteger, json::kInteger, context));
    target->setRowRepeatInterval(json::optionalMember(*o, "rowRepeatInterval", json::asInteger, json::kInteger, context));
    target->setSectionIndex(json::optionalMember(*o, "sectionIndex", json::asInteger, json::kInteger, context));
    target->setSectionRepeatInterval(json::optionalMember(*o, "sectionRepeatInterval", json::asInteger, json::kInteger, context));
    return target;
  } catch (...) {
    return nullptr;
  }
}

std::shared_ptr<AdvertisementTarget> AdvertisementTargetParser::parse(std::string_view text,
                                                                      ZTIAMParseDiagnostics* diagnostics) const {
  return json::parseText(text, diagnostics, kDropped, [this](auto& root, auto& context) { return parse(root, context); });
}

}  // namespace iam
