// The string forms of the five advertisement enumerations. Each table is a function-local static,
// so it is built exactly once, on first use, and is read-only (thread-safe) afterwards.

#include "iam/model/ZTIAMAdvertisementActionType.h"
#include "iam/model/ZTIAMAdvertisementDataSourceType.h"
#include "iam/model/ZTIAMAdvertisementDisplayType.h"
#include "iam/model/ZTIAMAdvertisementEventType.h"
#include "iam/model/ZTIAMAdvertisementStateType.h"

#include <map>

namespace iam {
namespace {

using Table = std::map<std::int64_t, std::string>;

std::optional<std::string> lookUp(const Table& table, std::int64_t value) {
  auto it = table.find(value);
  if (it == table.end()) return std::nullopt;
  return it->second;
}

// The strings are unique, so the first match is the only one; no match gives 0.
std::int64_t reverseLookUp(const Table& table, std::string_view string) {
  for (const auto& [value, text] : table) {
    if (text == string) return value;
  }
  return 0;
}

}  // namespace

namespace {
const Table& tableZTIAMAdvertisementActionType() {
  static const Table table{
      {ZTIAMAdvertisementActionTypeInvalid, "ZTIAMAdvertisementActionTypeInvalid"},
      {ZTIAMAdvertisementActionTypeNoAction, "ZTIAMAdvertisementActionTypeNoAction"},
      {ZTIAMAdvertisementActionTypeOpenStore, "ZTIAMAdvertisementActionTypeOpenStore"},
      {ZTIAMAdvertisementActionTypeOpenAd, "ZTIAMAdvertisementActionTypeOpenAd"},
      {ZTIAMAdvertisementActionTypeOpenReview, "ZTIAMAdvertisementActionTypeOpenReview"},
      {ZTIAMAdvertisementActionTypeDismiss, "ZTIAMAdvertisementActionTypeDismiss"},
      {ZTIAMAdvertisementActionTypePostpone, "ZTIAMAdvertisementActionTypePostpone"},
      {ZTIAMAdvertisementActionTypeOpenContact, "ZTIAMAdvertisementActionTypeOpenContact"},
      {ZTIAMAdvertisementActionTypeOpenContactForm, "ZTIAMAdvertisementActionTypeOpenContactForm"},
  };
  return table;
}
}  // namespace

void ZTIAMAdvertisementActionTypeConverter::initialize() { (void)tableZTIAMAdvertisementActionType(); }

std::optional<std::string> ZTIAMAdvertisementActionTypeConverter::stringFromEnum(ZTIAMAdvertisementActionType value) {
  return lookUp(tableZTIAMAdvertisementActionType(), value);
}

ZTIAMAdvertisementActionType ZTIAMAdvertisementActionTypeConverter::enumFromString(std::string_view string) {
  return static_cast<ZTIAMAdvertisementActionType>(reverseLookUp(tableZTIAMAdvertisementActionType(), string));
}

ZTIAMAdvertisementActionType ZTIAMAdvertisementActionTypeFromString(std::string_view string) {
  return ZTIAMAdvertisementActionTypeConverter::enumFromString(string);
}

std::optional<std::string> StringFromZTIAMAdvertisementActionType(ZTIAMAdvertisementActionType value) {
  return ZTIAMAdvertisementActionTypeConverter::stringFromEnum(value);
}

namespace {
const Table& tableZTIAMAdvertisementDataSourceType() {
  static const Table table{
      {ZTIAMAdvertisementDataSourceTypeInAppMarketing, "ZTIAMAdvertisementDataSourceTypeInAppMarketing"},
      {ZTIAMAdvertisementDataSourceTypeAdMobNative, "ZTIAMAdvertisementDataSourceTypeAdMobNative"},
  };
  return table;
}
}  // namespace

void ZTIAMAdvertisementDataSourceTypeConverter::initialize() { (void)tableZTIAMAdvertisementDataSourceType(); }

std::optional<std::string> ZTIAMAdvertisementDataSourceTypeConverter::stringFromEnum(ZTIAMAdvertisementDataSourceType value) {
  return lookUp(tableZTIAMAdvertisementDataSourceType(), value);
}

ZTIAMAdvertisementDataSourceType ZTIAMAdvertisementDataSourceTypeConverter::enumFromString(std::string_view string) {
  return static_cast<ZTIAMAdvertisementDataSourceType>(reverseLookUp(tableZTIAMAdvertisementDataSourceType(), string));
}

ZTIAMAdvertisementDataSourceType ZTIAMAdvertisementDataSourceTypeFromString(std::string_view string) {
  return ZTIAMAdvertisementDataSourceTypeConverter::enumFromString(string);
}

std::optional<std::string> StringFromZTIAMAdvertisementDataSourceType(ZTIAMAdvertisementDataSourceType value) {
  return ZTIAMAdvertisementDataSourceTypeConverter::stringFromEnum(value);
}

namespace {
const Table& tableZTIAMAdvertisementDisplayType() {
  static const Table table{
      {ZTIAMAdvertisementDisplayTypeInvalid, "ZTIAMAdvertisementDisplayTypeInvalid"},
      {ZTIAMAdvertisementDisplayTypeDfpInterstitialPreload, "ZTIAMAdvertisementDisplayTypeDfpInterstitialPreload"},
      {ZTIAMAdvertisementDisplayTypeDfpInterstitial, "ZTIAMAdvertisementDisplayTypeDfpInterstitial"},
      {ZTIAMAdvertisementDisplayTypeReviewQuestion, "ZTIAMAdvertisementDisplayTypeReviewQuestion"},
  };
  return table;
}
}  // namespace

void ZTIAMAdvertisementDisplayTypeConverter::initialize() { (void)tableZTIAMAdvertisementDisplayType(); }

std::optional<std::string> ZTIAMAdvertisementDisplayTypeConverter::stringFromEnum(ZTIAMAdvertisementDisplayType value) {
  return lookUp(tableZTIAMAdvertisementDisplayType(), value);
}

ZTIAMAdvertisementDisplayType ZTIAMAdvertisementDisplayTypeConverter::enumFromString(std::string_view string) {
  return static_cast<ZTIAMAdvertisementDisplayType>(reverseLookUp(tableZTIAMAdvertisementDisplayType(), string));
}

ZTIAMAdvertisementDisplayType ZTIAMAdvertisementDisplayTypeFromString(std::string_view string) {
  return ZTIAMAdvertisementDisplayTypeConverter::enumFromString(string);
}

std::optional<std::string> StringFromZTIAMAdvertisementDisplayType(ZTIAMAdvertisementDisplayType value) {
  return ZTIAMAdvertisementDisplayTypeConverter::stringFromEnum(value);
}

namespace {
const Table& tableZTIAMAdvertisementEventType() {
  static const Table table{
      {ZTIAMAdvertisementEventTypeImpression, "ZTIAMAdvertisementEventTypeImpression"},
      {ZTIAMAdvertisementEventTypeClick, "ZTIAMAdvertisementEventTypeClick"},
      {ZTIAMAdvertisementEventTypeDismiss, "ZTIAMAdvertisementEventTypeDismiss"},
      {ZTIAMAdvertisementEventTypePostpone, "ZTIAMAdvertisementEventTypePostpone"},
  };
  return table;
}
}  // namespace

void ZTIAMAdvertisementEventTypeConverter::initialize() { (void)tableZTIAMAdvertisementEventType(); }

std::optional<std::string> ZTIAMAdvertisementEventTypeConverter::stringFromEnum(ZTIAMAdvertisementEventType value) {
  return lookUp(tableZTIAMAdvertisementEventType(), value);
}

ZTIAMAdvertisementEventType ZTIAMAdvertisementEventTypeConverter::enumFromString(std::string_view string) {
  return static_cast<ZTIAMAdvertisementEventType>(reverseLookUp(tableZTIAMAdvertisementEventType(), string));
}

ZTIAMAdvertisementEventType ZTIAMAdvertisementEventTypeFromString(std::string_view string) {
  return ZTIAMAdvertisementEventTypeConverter::enumFromString(string);
}

std::optional<std::string> StringFromZTIAMAdvertisementEventType(ZTIAMAdvertisementEventType value) {
  return ZTIAMAdvertisementEventTypeConverter::stringFromEnum(value);
}

namespace {
const Table& tableZTIAMAdvertisementStateType() {
  static const Table table{
      {ZTIAMAdvertisementStateTypeLive, "ZTIAMAdvertisementStateTypeLive"},
      {ZTIAMAdvertisementStateTypeTesting, "ZTIAMAdvertisementStateTypeTesting"},
      {ZTIAMAdvertisementStateTypeDisabled, "ZTIAMAdvertisementStateTypeDisabled"},
  };
  return table;
}
}  // namespace

void ZTIAMAdvertisementStateTypeConverter::initialize() { (void)tableZTIAMAdvertisementStateType(); }

std::optional<std::string> ZTIAMAdvertisementStateTypeConverter::stringFromEnum(ZTIAMAdvertisementStateType value) {
  return lookUp(tableZTIAMAdvertisementStateType(), value);
}

ZTIAMAdvertisementStateType ZTIAMAdvertisementStateTypeConverter::enumFromString(std::string_view string) {
  return static_cast<ZTIAMAdvertisementStateType>(reverseLookUp(tableZTIAMAdvertisementStateType(), string));
}

ZTIAMAdvertisementStateType ZTIAMAdvertisementStateTypeFromString(std::string_view string) {
  return ZTIAMAdvertisementStateTypeConverter::enumFromString(string);
}

std::optional<std::string> StringFromZTIAMAdvertisementStateType(ZTIAMAdvertisementStateType value) {
  return ZTIAMAdvertisementStateTypeConverter::stringFromEnum(value);
}

}  // namespace iam
