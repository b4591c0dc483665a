#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "iam/model/AdvertisedApp.h"
#include "iam/model/AdvertisementTarget.h"
#include "iam/model/AdvertisementTrigger.h"
#include "iam/model/IdentitySet.h"
#include "iam/model/ZTIAMAdvertisementActionType.h"
#include "iam/model/ZTIAMAdvertisementDataSourceType.h"
#include "iam/model/ZTIAMAdvertisementDisplayType.h"
#include "iam/model/ZTIAMAdvertisementStateType.h"
#include "iam/model/ZTIAMResource.h"
#include "iam/platform/Color.h"
#include "iam/platform/Date.h"
#include "iam/platform/KeyedArchiver.h"
#include "iam/platform/KeyedUnarchiver.h"
#include "iam/platform/URL.h"

namespace iam {

using AdvertisementTriggerSet = IdentitySet<AdvertisementTrigger>;
using AdvertisementTargetSet = IdentitySet<AdvertisementTarget>;

// One campaign item of the marketing service: an interstitial or a review question, with its texts,
// images and colours as named resources, the action of its main button, its lifetime and limits,
// and the triggers and targets that may show it.
//
// Made with std::make_shared (triggers and targets point back to it weakly), filled by the parser
// or the archive, and afterwards only read, from any thread. It owns its triggers, targets,
// resources and advertised app.
class Advertisement final : public Archivable {
 public:
  static constexpr std::string_view kArchiveClassName = "Advertisement";
  static constexpr std::int64_t kCodingVersion = 2;

  explicit Advertisement(std::string advertisementId) : advertisementId_(std::move(advertisementId)) {}
  Advertisement() = delete;
  Advertisement(const Advertisement&) = delete;
  Advertisement& operator=(const Advertisement&) = delete;

  const std::string& advertisementId() const { return advertisementId_; }
  void setAdvertisementId(std::string value) { advertisementId_ = std::move(value); }
  const std::optional<std::string>& name() const { return name_; }
  void setName(std::optional<std::string> value) { name_ = std::move(value); }
  const std::optional<Date>& startDate() const { return startDate_; }
  void setStartDate(std::optional<Date> value) { startDate_ = value; }
  const std::optional<Date>& endDate() const { return endDate_; }
  void setEndDate(std::optional<Date> value) { endDate_ = value; }
  const std::optional<std::int64_t>& maxImpressionCount() const { return maxImpressionCount_; }
  void setMaxImpressionCount(std::optional<std::int64_t> value) { maxImpressionCount_ = value; }
  bool postponeEnabled() const { return postponeEnabled_; }
  void setPostponeEnabled(bool value) { postponeEnabled_ = value; }
  // Seconds a postponement lasts.
  const std::optional<double>& postponeDelay() const { return postponeDelay_; }
  void setPostponeDelay(std::optional<double> value) { postponeDelay_ = value; }
  bool ignoreGlobalMinimumPopupTimeInterval() const { return ignoreGlobalMinimumPopupTimeInterval_; }
  void setIgnoreGlobalMinimumPopupTimeInterval(bool value) { ignoreGlobalMinimumPopupTimeInterval_ = value; }
  ZTIAMAdvertisementStateType stateType() const { return stateType_; }
  void setStateType(ZTIAMAdvertisementStateType value) { stateType_ = value; }
  ZTIAMAdvertisementDisplayType displayType() const { return displayType_; }
  void setDisplayType(ZTIAMAdvertisementDisplayType value) { displayType_ = value; }
  ZTIAMAdvertisementActionType okActionType() const { return okActionType_; }
  void setOkActionType(ZTIAMAdvertisementActionType value) { okActionType_ = value; }
  ZTIAMAdvertisementDataSourceType dataSourceType() const { return dataSourceType_; }
  void setDataSourceType(ZTIAMAdvertisementDataSourceType value) { dataSourceType_ = value; }
  // The action's parameter: a URL for OpenStore and OpenReview, the linked advertisement's id for
  // OpenAd. Not kept by the archive.
  const std::optional<std::string>& okActionMeta() const { return okActionMeta_; }
  void setOkActionMeta(std::optional<std::string> value) { okActionMeta_ = std::move(value); }
  const AdvertisementTriggerSet& triggers() const { return triggers_; }
  void setTriggers(AdvertisementTriggerSet value) { triggers_ = std::move(value); }
  const AdvertisementTargetSet& targets() const { return targets_; }
  void setTargets(AdvertisementTargetSet value) { targets_ = std::move(value); }
  const ZTIAMResourceMap& resources() const { return resources_; }
  void setResources(ZTIAMResourceMap value) { resources_ = std::move(value); }
  const std::shared_ptr<AdvertisedAppType>& advertisedApp() const { return advertisedApp_; }
  void setAdvertisedApp(std::shared_ptr<AdvertisedAppType> value) { advertisedApp_ = std::move(value); }

  // Derived from the resources on every call.
  std::optional<std::string> title() const { return resourceValueFor("title"); }
  std::optional<std::string> body() const { return resourceValueFor("body"); }
  std::optional<URL> bodyImageUrl() const { return urlFor("bodyImage"); }
  std::optional<URL> iconImageUrl() const { return urlFor("iconImage"); }
  std::optional<URL> videoUrl() const { return urlFor("video"); }
  Color titleColor() const;  // "303030" when unset
  Color bodyColor() const;   // "303030" when unset
  Color titleColorWithDefaultColor(Color defaultColor) const;
  Color bodyColorWithDefaultColor(Color defaultColor) const;
  std::string okActionTitle() const;  // "Open Store" for OpenStore, otherwise "Sure", when unset
  std::string postponeTitle() const;  // "Later" when unset
  std::optional<std::string> dismissTitle() const { return resourceValueFor("dismissTitle"); }
  // Always four texts, from "title-a" to "title-d"; a missing one is the empty text.
  std::vector<std::string> subtitles() const;

  // The value under `key` when present and non-empty; otherwise `defaultValue`.
  std::optional<std::string> resourceValueFor(std::string_view key) const { return resourceValueFor(key, std::nullopt); }
  std::optional<std::string> resourceValueFor(std::string_view key, std::optional<std::string> defaultValue) const;
  // The value under `key` parsed as a JSON object; none when missing or empty, not JSON, or not an
  // object. The caller includes <nlohmann/json.hpp> to use the result.
  std::optional<nlohmann::json> resourceJSONValueFor(std::string_view key) const;

  AdvertisementTargetSet targetsFor(std::string_view spaceKey) const;
  AdvertisementTriggerSet triggersFor(std::string_view eventKey) const;

  std::string_view archiveClassName() const override { return kArchiveClassName; }
  void encodeWithCoder(KeyedArchiver& coder) const override;
  // None on another "codingVersion" or without a string "advertisementId". Decoded triggers and
  // targets point back to the decoded advertisement.
  static std::shared_ptr<Advertisement> initWithCoder(const KeyedUnarchiver& coder);

 private:
  std::optional<URL> urlFor(std::string_view key) const;

  std::string advertisementId_;
  std::optional<std::string> name_;
  std::optional<Date> startDate_;
  std::optional<Date> endDate_;
  std::optional<std::int64_t> maxImpressionCount_;
  bool postponeEnabled_ = false;
  std::optional<double> postponeDelay_;
  bool ignoreGlobalMinimumPopupTimeInterval_ = false;
  ZTIAMAdvertisementStateType stateType_ = ZTIAMAdvertisementStateTypeLive;
  ZTIAMAdvertisementDisplayType displayType_ = ZTIAMAdvertisementDisplayTypeInvalid;
  ZTIAMAdvertisementActionType okActionType_ = ZTIAMAdvertisementActionTypeOpenStore;
  ZTIAMAdvertisementDataSourceType dataSourceType_ = ZTIAMAdvertisementDataSourceTypeInAppMarketing;
  std::optional<std::string> okActionMeta_;
  AdvertisementTriggerSet triggers_;
  AdvertisementTargetSet targets_;
  ZTIAMResourceMap resources_;
  std::shared_ptr<AdvertisedAppType> advertisedApp_;
};

using AdvertisementType = Advertisement;

}  // namespace iam
