#include "iam/model/AdvertisementParser.h"

#include <algorithm>
#include <limits>

#include "iam/model/internal/JsonFields.h"
#include "iam/platform/LogBridge.h"

namespace iam {

namespace {

constexpr std::string_view kDropped = "advertisement dropped";

constexpr std::string_view kLogFile = "InAppMarketing/_AdvertisementParser";

// An id whose mapping would wrap around costs only its advertisement: the value comes from the
// network, and stopping the program on it would crash every user of the app on each refresh.
void rejectOverflowingId(std::string_view id, const ZTIAMParseContext& context, std::string_view member,
                         std::int64_t value) {
  LogBridge::error(fmt::format("IAM: Advertisement '{}' dropped: its {}.id {} cannot be mapped.", id, member, value),
                   kLogFile, __LINE__, "parseAdvertisement");
  if (context.isReporting()) {
    context.member(member).member("id").report(fmt::format("{} overflows when mapped ({})", value, kDropped));
  }
}

// JSON display ids 14 and 15 are crossed on purpose: the service's 14 is the interstitial shown at
// once, its 15 the preloaded one.
std::optional<ZTIAMAdvertisementDisplayType> displayTypeFromJsonId(std::int64_t id) {
  switch (id) {
    case 14:
      return ZTIAMAdvertisementDisplayTypeDfpInterstitial;
    case 15:
      return ZTIAMAdvertisementDisplayTypeDfpInterstitialPreload;
    case 16:
      return ZTIAMAdvertisementDisplayTypeReviewQuestion;
    default:
      return std::nullopt;
  }
}

bool isDfpInterstitial(ZTIAMAdvertisementDisplayType type) {
  return (static_cast<std::int64_t>(type) & ~std::int64_t{1}) == 14;
}

bool isNonEmpty(const std::optional<std::string>& text) { return text && !text->empty(); }

// Why a parsed advertisement is refused: the member at fault (relative to the advertisement) and
// what is wrong with it. None when it is valid.
struct Invalidity {
  std::string_view member;
  std::string_view field;
  std::string reason;
};

std::optional<Invalidity> invalidity(const Advertisement& ad) {
  if (isDfpInterstitial(ad.displayType())) {
    if (isNonEmpty(ad.resourceValueFor("dfpInterstitialIdentifier"))) return std::nullopt;
    return Invalidity{"resources", "dfpInterstitialIdentifier", "missing or empty; a DFP interstitial needs it"};
  }
  const auto action = ad.okActionType();
  switch (action) {
    case ZTIAMAdvertisementActionTypeNoAction:
    case ZTIAMAdvertisementActionTypeOpenAd:
    case ZTIAMAdvertisementActionTypeDismiss:
    case ZTIAMAdvertisementActionTypePostpone:
    case ZTIAMAdvertisementActionTypeOpenContact:
    case ZTIAMAdvertisementActionTypeOpenContactForm:
      return std::nullopt;
    case ZTIAMAdvertisementActionTypeOpenStore:
      if (ad.advertisedApp() && isNonEmpty(ad.advertisedApp()->storeUrl())) return std::nullopt;
      return Invalidity{"advertisedApp", "storeUrl", "missing or empty; the OpenStore action (okAction.id 1) needs it"};
    case ZTIAMAdvertisementActionTypeOpenReview:
      if (ad.advertisedApp() && isNonEmpty(ad.advertisedApp()->reviewUrl())) return std::nullopt;
      return Invalidity{"advertisedApp", "reviewUrl",
                        "missing or empty and no storeInfo to derive it; the OpenReview action (okAction.id 3) needs it"};
    default:
      // Invalid (JSON -1), anything below it and anything above OpenContactForm (JSON 7).
      return Invalidity{"okAction", "id",
                        fmt::format("{} is no action from 0 to 7", static_cast<std::int64_t>(action) - 1)};
  }
}

template <class Parser, class Set>
void parseMembers(const json::object& o, std::string_view key, const Parser& parser,
                  const std::shared_ptr<Advertisement>& ad, Set& set, const ZTIAMParseContext& context,
                  std::string_view dropped) {
  auto list = json::optionalMember(o, key, json::asArray, json::kArray, context);
  if (!list) return;
  const auto listContext = context.member(key);
  set.reserve(std::min<std::size_t>(list->size(), 64));
  std::size_t index = 0;
  for (auto element : *list) {
    const auto elementContext = listContext.element(index++);
    if (element.type() != json::element_type::OBJECT) {
      if (elementContext.isReporting()) {
        elementContext.report(fmt::format("is {}, not an object ({})", json::describe(element), dropped));
      }
      continue;
    }
    if (auto member = parser.parse(element, elementContext)) {
      member->setAdvertisement(ad);
      set.insert(std::move(member));
    }
  }
}

}  // namespace

std::shared_ptr<Advertisement> AdvertisementParser::parse(const simdjson::dom::element& data,
                                                          const ZTIAMParseContext& context) const {
  try {
    return parseAdvertisement(data, context);
  } catch (...) {
    return nullptr;
  }
}

std::shared_ptr<Advertisement> AdvertisementParser::parse(std::string_view text,
                                                          ZTIAMParseDiagnostics* diagnostics) const {
  return json::parseText(text, diagnostics, kDropped, [this](auto& root, auto& context) { return parse(root, context); });
}

std::shared_ptr<Advertisement> AdvertisementParser::parseAdvertisement(const simdjson::dom::element& data,
                                                                       const ZTIAMParseContext& context) const {
  auto o = json::asObject(data);
  if (!o) {
    if (context.isReporting()) context.report(fmt::format("is {}, not an object ({})", json::describe(data), kDropped));
    return nullptr;
  }

  // 1. The required members, in order; the first failure rejects.
  auto id = json::requiredMember(*o, "id", json::asString, json::kString, context, kDropped);
  if (!id) return nullptr;
  auto lifecycle = json::requiredMember(*o, "lifecycle", json::asObject, json::kObject, context, kDropped);
  if (!lifecycle) return nullptr;
  auto display = json::requiredMember(*o, "display", json::asObject, json::kObject, context, kDropped);
  if (!display) return nullptr;
  auto okAction = json::requiredMember(*o, "okAction", json::asObject, json::kObject, context, kDropped);
  if (!okAction) return nullptr;
  auto dataSource = json::requiredMember(*o, "dataSource", json::asObject, json::kObject, context, kDropped);
  if (!dataSource) return nullptr;
  auto state = json::requiredMember(*o, "state", json::asObject, json::kObject, context, kDropped);
  if (!state) return nullptr;

  // 2. The ids.
  const auto displayContext = context.member("display");
  auto displayId = json::requiredMember(*display, "id", json::asInteger, json::kInteger, displayContext, kDropped);
  if (!displayId) return nullptr;
  auto displayType = displayTypeFromJsonId(*displayId);
  if (!displayType) {
    if (context.isReporting()) {
      displayContext.member("id").report(fmt::format("{} is not 14, 15 or 16 ({})", *displayId, kDropped));
    }
    return nullptr;
  }
  const auto okActionContext = context.member("okAction");
  auto okActionId = json::requiredMember(*okAction, "id", json::asInteger, json::kInteger, okActionContext, kDropped);
  if (!okActionId) return nullptr;
  auto dataSourceId = json::requiredMember(*dataSource, "id", json::asInteger, json::kInteger,
                                           context.member("dataSource"), kDropped);
  if (!dataSourceId) return nullptr;
  auto stateId = json::requiredMember(*state, "id", json::asInteger, json::kInteger, context.member("state"), kDropped);
  if (!stateId) return nullptr;

  // 3.
  auto ignoreGlobal = json::requiredMember(*o, "ignoreGlobalMinimumPopupTimeInterval", json::asBool, json::kBoolean,
                                           context, kDropped);
  if (!ignoreGlobal) return nullptr;

  // 4. The service counts actions from 0 (NoAction) and data sources from 1.
  std::int64_t okActionType = 0;
  if (__builtin_add_overflow(*okActionId, 1, &okActionType)) {
    rejectOverflowingId(*id, context, "okAction", *okActionId);
    return nullptr;
  }
  std::int64_t dataSourceType = 0;
  if (__builtin_sub_overflow(*dataSourceId, 1, &dataSourceType)) {
    rejectOverflowingId(*id, context, "dataSource", *dataSourceId);
    return nullptr;
  }

  auto ad = std::make_shared<Advertisement>(std::string(*id));
  ad->setDisplayType(*displayType);
  ad->setOkActionType(static_cast<ZTIAMAdvertisementActionType>(okActionType));
  ad->setDataSourceType(static_cast<ZTIAMAdvertisementDataSourceType>(dataSourceType));
  ad->setStateType(static_cast<ZTIAMAdvertisementStateType>(*stateId));
  ad->setIgnoreGlobalMinimumPopupTimeInterval(*ignoreGlobal);

  // 5.
  ad->setName(json::toString(json::optionalMember(*o, "name", json::asString, json::kString, context)));
  const auto lifecycleContext = context.member("lifecycle");
  if (auto start = json::optionalMember(*lifecycle, "startTimestamp", json::asDouble, json::kNumber, lifecycleContext)) {
    ad->setStartDate(json::dateFromTimestamp(*start));
  }
  if (auto end = json::optionalMember(*lifecycle, "endTimestamp", json::asDouble, json::kNumber, lifecycleContext)) {
    ad->setEndDate(json::dateFromTimestamp(*end));
  }
  ad->setMaxImpressionCount(
      json::optionalMember(*lifecycle, "maxImpressionCount", json::asInteger, json::kInteger, lifecycleContext));
  if (auto enabled =
          json::optionalMember(*lifecycle, "postponeEnabled", json::asBool, json::kBoolean, lifecycleContext)) {
    ad->setPostponeEnabled(*enabled);
  }
  ad->setPostponeDelay(json::optionalMember(*lifecycle, "postponeDelay", json::asDouble, json::kNumber, lifecycleContext));

  // 6. The action's parameter, only for the actions that have one.
  switch (ad->okActionType()) {
    case ZTIAMAdvertisementActionTypeOpenStore:
    case ZTIAMAdvertisementActionTypeOpenReview:
      ad->setOkActionMeta(
          json::toString(json::optionalMember(*okAction, "url", json::asString, json::kString, okActionContext)));
      break;
    case ZTIAMAdvertisementActionTypeOpenAd:
      ad->setOkActionMeta(json::toString(
          json::optionalMember(*okAction, "advertisementId", json::asString, json::kString, okActionContext)));
      break;
    default:
      break;
  }

  // 7.
  if (auto app = json::member(*o, "advertisedApp"); app && app->type() != json::element_type::NULL_VALUE) {
    ad->setAdvertisedApp(advertisedAppParser_.parse(*app, context.member("advertisedApp")));
  }
  if (auto resources = json::optionalMember(*o, "resources", json::asObject, json::kObject, context)) {
    // All or nothing: one member of another kind costs the whole map.
    bool usable = true;
    for (auto [key, value] : *resources) {
      const auto type = value.type();
      if (type != json::element_type::STRING && type != json::element_type::NULL_VALUE) {
        if (context.isReporting()) {
          context.member("resources").member(key).report(
              fmt::format("is {}, not a string or null (all resources ignored)", json::describe(value)));
        }
        usable = false;
        break;
      }
    }
    if (usable) ad->setResources(resourceParser_.parseMembers(*resources, ZTIAMParseContext()));
  }
  AdvertisementTriggerSet triggers;
  parseMembers(*o, "triggers", triggerParser_, ad, triggers, context, "trigger dropped");
  ad->setTriggers(std::move(triggers));
  AdvertisementTargetSet targets;
  parseMembers(*o, "targets", targetParser_, ad, targets, context, "target dropped");
  ad->setTargets(std::move(targets));

  // 8.
  if (auto why = invalidity(*ad)) {
    if (context.isReporting()) {
      const auto memberContext = context.member(why->member);
      memberContext.member(why->field).report(fmt::format("{} ({})", why->reason, kDropped));
    }
    return nullptr;
  }
  return ad;
}

}  // namespace iam
