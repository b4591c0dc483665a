#include "iam/service/AdvertisementsResponseParser.h"

#include "iam/model/internal/JsonFields.h"

namespace iam {

namespace {
constexpr std::string_view kDropped = "answer dropped";
}  // namespace

std::shared_ptr<AdvertisementsRequestResponse> AdvertisementsResponseParser::parse(
    const simdjson::dom::element& data, std::shared_ptr<OspreyServiceContentInfo> contentInfo,
    std::optional<std::string> etag, ZTIAMParseDiagnostics* diagnostics) const {
  try {
    return parseAnswer(data, std::move(contentInfo), std::move(etag), ZTIAMParseContext(diagnostics));
  } catch (...) {
    return nullptr;
  }
}

std::shared_ptr<AdvertisementsRequestResponse> AdvertisementsResponseParser::parse(
    std::string_view text, std::shared_ptr<OspreyServiceContentInfo> contentInfo, std::optional<std::string> etag,
    ZTIAMParseDiagnostics* diagnostics) const {
  return json::parseText(text, diagnostics, kDropped, [&](auto& root, auto& context) {
    return parseAnswer(root, std::move(contentInfo), std::move(etag), context);
  });
}

std::shared_ptr<AdvertisementsRequestResponse> AdvertisementsResponseParser::parseAnswer(
    const simdjson::dom::element& data, std::shared_ptr<OspreyServiceContentInfo> contentInfo,
    std::optional<std::string> etag, const ZTIAMParseContext& context) const {
  auto o = json::asObject(data);
  if (!o || o->size() == 0) {
    if (context.isReporting()) {
      context.report(
          fmt::format("is {}, not a non-empty object ({})", o ? "an empty object" : json::describe(data), kDropped));
    }
    return nullptr;
  }
  auto list = json::requiredMember(*o, "advertisements", json::asArray, json::kArray, context, kDropped);
  if (!list) return nullptr;
  // The list must hold objects only; one stray value refuses the answer, as a bad appConfig does.
  const auto listContext = context.member("advertisements");
  std::size_t index = 0;
  for (auto element : *list) {
    if (element.type() != json::element_type::OBJECT) {
      if (context.isReporting()) {
        listContext.element(index).report(fmt::format("is {}, not an object ({})", json::describe(element), kDropped));
      }
      return nullptr;
    }
    ++index;
  }
  auto appConfigElement = json::requiredMember(
      *o, "appConfig", [](const json::element& e) { return json::asObject(e).has_value() ? std::optional(e) : std::nullopt; },
      json::kObject, context, kDropped);
  if (!appConfigElement) return nullptr;
  const auto appConfigContext = context.member("appConfig");
  auto appConfig = appConfigParser_.parse(*appConfigElement, appConfigContext);
  if (!appConfig) {
    if (context.isReporting()) appConfigContext.report(fmt::format("unusable ({})", kDropped));
    return nullptr;
  }

  std::vector<std::shared_ptr<AdvertisementType>> advertisements;
  advertisements.reserve(list->size());
  index = 0;
  for (auto element : *list) {
    const auto elementContext = listContext.element(index++);
    if (auto ad = advertisementParser_.parse(element, elementContext)) advertisements.push_back(std::move(ad));
  }
  auto response = std::make_shared<AdvertisementsRequestResponse>(std::move(advertisements), std::move(contentInfo),
                                                                  std::move(appConfig));
  response->setEtag(std::move(etag));
  return response;
}

}  // namespace iam
