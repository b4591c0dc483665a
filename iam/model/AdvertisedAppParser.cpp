#include "iam/model/AdvertisedAppParser.h"

#include <charconv>

#include "iam/model/internal/JsonFields.h"

namespace iam {

namespace {

constexpr std::string_view kDropped = "advertised app dropped";
constexpr std::string_view kStoreInfoDropped = "store info dropped";

// The shortest text that reads back to the same float, always with a fractional part ("4.0").
std::string ratingText(float rating) {
  char buffer[64];
  auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, rating);
  if (ec != std::errc()) return {};
  std::string text(buffer, end);
  if (text.find_first_of(".en") == std::string::npos) text += ".0";  // 'e'xponent, i'n'f, 'n'an
  return text;
}

}  // namespace

std::shared_ptr<AdvertisedApp> AdvertisedAppParser::parse(const simdjson::dom::element& data,
                                                          const ZTIAMParseContext& context) const {
  try {
    auto o = json::asObject(data);
    if (!o) {
      if (context.isReporting()) context.report(fmt::format("is {}, not an object ({})", json::describe(data), kDropped));
      return nullptr;
    }
    auto id = json::requiredMember(*o, "id", json::asString, json::kString, context, kDropped);
    if (!id) return nullptr;
    auto app = std::make_shared<AdvertisedApp>(std::string(*id));
    app->setPackageName(json::toString(json::optionalMember(*o, "packageName", json::asString, json::kString, context)));
    app->setPublisher(json::toString(json::optionalMember(*o, "publisher", json::asString, json::kString, context)));
    app->setStoreUrl(json::toString(json::optionalMember(*o, "storeUrl", json::asString, json::kString, context)));
    app->setReviewUrl(json::toString(json::optionalMember(*o, "reviewUrl", json::asString, json::kString, context)));
    if (auto rating = json::optionalMember(*o, "rating", json::asFloat, json::kNumber, context)) {
      app->setRating(ratingText(*rating));
    }
    if (auto free = json::optionalMember(*o, "free", json::asBool, json::kBoolean, context)) app->setFree(*free);

    if (auto resources = json::optionalMember(*o, "resources", json::asObject, json::kObject, context)) {
      app->setResources(resourceParser_.parseMembers(*resources, context.member("resources")));
    }
    if (auto storeInfo = json::member(*o, "storeInfo")) {
      if (storeInfo->type() != json::element_type::NULL_VALUE) {
        app->setStoreInfo(parseStoreInfo(*storeInfo, context.member("storeInfo")));
      }
    }
    return app;
  } catch (...) {
    return nullptr;
  }
}

std::shared_ptr<StoreAppInfo> AdvertisedAppParser::parseStoreInfo(const simdjson::dom::element& data,
                                                                   const ZTIAMParseContext& context) const {
  auto o = json::asObject(data);
  if (!o) {
    if (context.isReporting()) {
      context.report(fmt::format("is {}, not an object ({})", json::describe(data), kStoreInfoDropped));
    }
    return nullptr;
  }
  auto storeId = json::requiredMember(*o, "id", json::asInteger, json::kInteger, context, kStoreInfoDropped);
  if (!storeId) return nullptr;
  auto bundleId = json::requiredMember(*o, "bundleId", json::asString, json::kString, context, kStoreInfoDropped);
  if (!bundleId) return nullptr;
  auto info = std::make_shared<StoreAppInfo>(std::to_string(*storeId));
  info->setBundleIdentifier(std::string(*bundleId));
  info->setName(json::toString(json::optionalMember(*o, "name", json::asString, json::kString, context)));
  info->setIconTitle(json::toString(json::optionalMember(*o, "iconTitle", json::asString, json::kString, context)));
  info->setSubtitle(json::toString(json::optionalMember(*o, "subtitle", json::asString, json::kString, context)));
  if (auto icon = json::optionalMember(*o, "icon", json::asObject, json::kObject, context)) {
    const auto iconContext = context.member("icon");
    info->setIcon60x60Url(json::toString(json::optionalMember(*icon, "60", json::asString, json::kString, iconContext)));
    info->setIcon100x100Url(json::toString(json::optionalMember(*icon, "100", json::asString, json::kString, iconContext)));
    info->setIcon512x512Url(json::toString(json::optionalMember(*icon, "512", json::asString, json::kString, iconContext)));
  }
  return info;
}

std::shared_ptr<AdvertisedApp> AdvertisedAppParser::parse(std::string_view text,
                                                          ZTIAMParseDiagnostics* diagnostics) const {
  return json::parseText(text, diagnostics, kDropped, [this](auto& root, auto& context) { return parse(root, context); });
}

}  // namespace iam
