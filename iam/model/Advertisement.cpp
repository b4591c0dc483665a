#include "iam/model/Advertisement.h"

#include <nlohmann/json.hpp>

namespace iam {

namespace {

constexpr std::string_view kDefaultTextColor = "303030";

template <class T>
void encodeObjectSet(KeyedArchiver& coder, const IdentitySet<T>& set, std::string_view key) {
  coder.writeKey(key);
  coder.beginArray();
  for (const auto& member : set) coder.writeObject(member.get());
  coder.endArray();
}

template <class T>
IdentitySet<T> decodeObjectSet(const KeyedUnarchiver& coder, std::string_view key) {
  IdentitySet<T> set;
  if (auto members = coder.decodeArrayOfObjectsOfClassForKey<T>(key)) {
    for (auto& m : *members) set.insert(std::move(m));
  }
  return set;
}

}  // namespace

std::optional<std::string> Advertisement::resourceValueFor(std::string_view key,
                                                            std::optional<std::string> defaultValue) const {
  auto it = resources_.find(key);
  if (it != resources_.end() && it->second) {
    const auto& value = it->second->value();
    if (value && !value->empty()) return value;
  }
  return defaultValue;
}

std::optional<nlohmann::json> Advertisement::resourceJSONValueFor(std::string_view key) const {
  auto text = resourceValueFor(key);
  if (!text) return std::nullopt;
  try {
    auto json = nlohmann::json::parse(*text, nullptr, /*allow_exceptions=*/false);
    if (json.is_discarded() || !json.is_object()) return std::nullopt;
    return json;
  } catch (...) {
    return std::nullopt;
  }
}

std::optional<URL> Advertisement::urlFor(std::string_view key) const {
  auto text = resourceValueFor(key);
  if (!text) return std::nullopt;
  return URL::URLWithString(*text);
}

Color Advertisement::titleColor() const {
  return Color::colorWithHexString(*resourceValueFor("titleColor", std::string(kDefaultTextColor)));
}

Color Advertisement::bodyColor() const {
  return Color::colorWithHexString(*resourceValueFor("bodyColor", std::string(kDefaultTextColor)));
}

Color Advertisement::titleColorWithDefaultColor(Color defaultColor) const {
  auto text = resourceValueFor("titleColor");
  return text ? Color::colorWithHexString(*text) : defaultColor;
}

Color Advertisement::bodyColorWithDefaultColor(Color defaultColor) const {
  auto text = resourceValueFor("bodyColor");
  return text ? Color::colorWithHexString(*text) : defaultColor;
}

std::string Advertisement::okActionTitle() const {
  return *resourceValueFor("okActionTitle",
                           okActionType_ == ZTIAMAdvertisementActionTypeOpenStore ? "Open Store" : "Sure");
}

std::string Advertisement::postponeTitle() const { return *resourceValueFor("postponeTitle", "Later"); }

std::vector<std::string> Advertisement::subtitles() const {
  std::vector<std::string> texts;
  texts.reserve(4);
  for (std::string_view key : {"title-a", "title-b", "title-c", "title-d"}) {
    texts.push_back(resourceValueFor(key).value_or(std::string()));
  }
  return texts;
}

AdvertisementTargetSet Advertisement::targetsFor(std::string_view spaceKey) const {
  AdvertisementTargetSet found;
  for (const auto& target : targets_) {
    if (target->spaceKey() == spaceKey) found.insert(target);
  }
  return found;
}

AdvertisementTriggerSet Advertisement::triggersFor(std::string_view eventKey) const {
  AdvertisementTriggerSet found;
  for (const auto& trigger : triggers_) {
    if (trigger->eventKey() == eventKey) found.insert(trigger);
  }
  return found;
}

void Advertisement::encodeWithCoder(KeyedArchiver& coder) const {
  coder.encodeInteger(kCodingVersion, "codingVersion");
  coder.encodeString(std::string_view(advertisementId_), "advertisementId");
  coder.encodeString(name_, "name");
  coder.encodeDate(startDate_, "startDate");
  coder.encodeDate(endDate_, "endDate");
  if (maxImpressionCount_) {
    coder.encodeInteger(*maxImpressionCount_, "maxImpressionCount");
  } else {
    coder.encodeNull("maxImpressionCount");
  }
  coder.encodeBool(postponeEnabled_, "postponeEnabled");
  if (postponeDelay_) {
    coder.encodeDouble(*postponeDelay_, "postponeDelay");
  } else {
    coder.encodeNull("postponeDelay");
  }
  coder.encodeBool(ignoreGlobalMinimumPopupTimeInterval_, "ignoreGlobalMinimumPopupTimeInterval");
  coder.encodeInteger(stateType_, "stateType");
  coder.encodeInteger(displayType_, "displayType");
  coder.encodeInteger(okActionType_, "okActionType");
  coder.encodeInteger(dataSourceType_, "dataSourceType");
  // Written, and never read back: archives in the field carry it, decoders have always ignored it.
  coder.encodeString(okActionMeta_, "okActionMeta");
  encodeObjectSet(coder, triggers_, "triggers");
  encodeObjectSet(coder, targets_, "targets");
  coder.encodeObjectMap(resources_, "resources");
  coder.encodeObject(advertisedApp_.get(), "advertisedApp");
}

std::shared_ptr<Advertisement> Advertisement::initWithCoder(const KeyedUnarchiver& coder) {
  if (coder.decodeIntegerForKey("codingVersion") != kCodingVersion) return nullptr;
  auto advertisementId = coder.decodeStringForKey("advertisementId");
  if (!advertisementId) return nullptr;
  auto ad = std::make_shared<Advertisement>(std::move(*advertisementId));
  ad->displayType_ = static_cast<ZTIAMAdvertisementDisplayType>(coder.decodeIntegerForKey("displayType"));
  ad->okActionType_ = static_cast<ZTIAMAdvertisementActionType>(coder.decodeIntegerForKey("okActionType"));
  ad->name_ = coder.decodeStringForKey("name");
  ad->startDate_ = coder.decodeDateForKey("startDate");
  ad->endDate_ = coder.decodeDateForKey("endDate");
  ad->maxImpressionCount_ = coder.decodeIntegerNumberForKey("maxImpressionCount");
  ad->postponeEnabled_ = coder.decodeBoolForKey("postponeEnabled");
  ad->postponeDelay_ = coder.decodeDoubleNumberForKey("postponeDelay");
  ad->ignoreGlobalMinimumPopupTimeInterval_ = coder.decodeBoolForKey("ignoreGlobalMinimumPopupTimeInterval");
  ad->stateType_ = static_cast<ZTIAMAdvertisementStateType>(coder.decodeIntegerForKey("stateType"));
  ad->dataSourceType_ = static_cast<ZTIAMAdvertisementDataSourceType>(coder.decodeIntegerForKey("dataSourceType"));
  ad->triggers_ = decodeObjectSet<AdvertisementTrigger>(coder, "triggers");
  ad->targets_ = decodeObjectSet<AdvertisementTarget>(coder, "targets");
  if (auto resources = coder.decodeDictionaryOfObjectsOfClassForKey<ZTIAMResource, std::less<>>("resources")) {
    ad->resources_ = std::move(*resources);
  }
  ad->advertisedApp_ = coder.decodeObjectOfClassForKey<AdvertisedApp>("advertisedApp");
  for (const auto& trigger : ad->triggers_) trigger->setAdvertisement(ad);
  for (const auto& target : ad->targets_) target->setAdvertisement(ad);
  return ad;
}

}  // namespace iam
