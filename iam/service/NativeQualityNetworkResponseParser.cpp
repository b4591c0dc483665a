#include "iam/service/NativeQualityNetworkResponseParser.h"

#include "iam/model/internal/JsonFields.h"

namespace iam {

namespace {
constexpr std::string_view kDropped = "answer dropped";
}  // namespace

std::shared_ptr<NativeQualityNetworkResponse> NativeQualityNetworkResponseParser::parse(
    const simdjson::dom::element& data, std::shared_ptr<OspreyServiceContentInfo> contentInfo,
    std::optional<std::string> etag, ZTIAMParseDiagnostics* diagnostics) const {
  try {
    return parseAnswer(data, std::move(contentInfo), std::move(etag), ZTIAMParseContext(diagnostics));
  } catch (...) {
    return nullptr;
  }
}

std::shared_ptr<NativeQualityNetworkResponse> NativeQualityNetworkResponseParser::parse(
    std::string_view text, std::shared_ptr<OspreyServiceContentInfo> contentInfo, std::optional<std::string> etag,
    ZTIAMParseDiagnostics* diagnostics) const {
  return json::parseText(text, diagnostics, kDropped, [&](auto& root, auto& context) {
    return parseAnswer(root, std::move(contentInfo), std::move(etag), context);
  });
}

std::shared_ptr<NativeQualityNetworkResponse> NativeQualityNetworkResponseParser::parseAnswer(
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
  auto list = json::requiredMember(*o, "rankedApps", json::asArray, json::kArray, context, kDropped);
  if (!list) return nullptr;
  const auto listContext = context.member("rankedApps");
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

  std::vector<std::shared_ptr<ZTIAMQualityNetworkRankedAppType>> rankedApps;
  rankedApps.reserve(list->size());
  index = 0;
  for (auto element : *list) {
    const auto elementContext = listContext.element(index++);
    if (auto app = rankedAppParser_.parse(element, elementContext)) rankedApps.push_back(std::move(app));
  }
  auto response = std::make_shared<NativeQualityNetworkResponse>(std::move(rankedApps), std::move(contentInfo));
  response->setEtag(std::move(etag));
  return response;
}

}  // namespace iam
