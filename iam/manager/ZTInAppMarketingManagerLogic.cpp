#include "iam/manager/ZTInAppMarketingManagerLogic.h"

#include <fmt/format.h>

#include "iam/ArchivableClasses.h"
#include "iam/platform/Application.h"
#include "iam/platform/InfoLogSwitch.h"
#include "iam/platform/KeyedArchiver.h"
#include "iam/platform/KeyedUnarchiver.h"
#include "iam/platform/LogBridge.h"
#include "iam/platform/internal/OfferedWork.h"
#include "iam/platform/ZTDispatchTools.h"
#include "iam/platform/ZTPopupConductor.h"
#include "iam/platform/ZTSettings.h"
#include "iam/service/IAMWebService.h"
#include "iam/validity/ZTIAMAdvertisementValidityHelper.h"

namespace iam {
namespace {

std::string describe(const AdvertisementsRequestResponse& response) {
  std::string ids;
  for (const auto& advertisement : response.advertisements()) {
    if (!ids.empty()) ids += ", ";
    ids += advertisement->advertisementId();
  }
  return fmt::format("AdvertisementsRequestResponse etag: {}, advertisements: [{}]", response.etag().value_or("none"),
                     ids);
}

std::string describe(const NativeQualityNetworkResponse& response) {
  return fmt::format("NativeQualityNetworkResponse etag: {}, ranked apps: {}", response.etag().value_or("none"),
                     response.qualityNetworkRankedApps().size());
}

std::string describe(const AdvertisementTriggerType& trigger) {
  auto advertisement = trigger.advertisement();
  return fmt::format("AdvertisementTrigger triggerId: {}, eventKey: {}, advertisement: {}", trigger.triggerId(),
                     trigger.eventKey(), advertisement ? advertisement->advertisementId() : "none");
}

std::string describe(const ZTIAMAdvertisementEvent& event) {
  auto trigger = event.trigger();
  auto target = event.target();
  return fmt::format("ZTIAMAdvertisementEvent type: {}, date: {:f}, advertisement: {}, trigger: {}, target: {}",
                     StringFromZTIAMAdvertisementEventType(event.advertisementEventType()).value_or("unknown"),
                     timeIntervalSince1970(event.date()), event.advertisementId().value_or("none"),
                     trigger ? trigger->triggerId() : "none", target ? target->targetId() : "none");
}

// Writes the answer, or "none" when there is none, so that a dropped answer is not read back.
void saveResponse(const Archivable* response, std::string_view key) {
  bool saved = false;
  if (response) {
    saved = ZTSettings::saveArchivableObject(*response, key);
  } else {
    KeyedArchiver archiver;
    archiver.writeNull();
    saved = ZTSettings::saveArchivedData(archiver.takeData(), key);
  }
  if (!saved) {
    LogBridge::warning(fmt::format("IAM: Could not save {}.", key), ZTInAppMarketingManagerLogic::kLogFile, __LINE__,
                       "-[ZTInAppMarketingManagerLogic saveResponse]");
  }
}

}  // namespace

ZTInAppMarketingManagerLogic::ZTInAppMarketingManagerLogic() {
  // Hosts read the cached records back untyped through the settings, too.
  registerArchivableClasses();
  // The statistics load beside the cached answers: with many advertisements each takes milliseconds.
  std::unique_ptr<ZTIAMStatsHelper> stats;
  OfferedWork loadingStats([&stats] { stats = std::make_unique<ZTIAMStatsHelper>(); });
  loadAdvertisementResponse();
  loadNativeQualityNetworkResponse();
  loadingStats.finish();
  statsHelper_ = std::move(stats);
  boughtAdFreeUpgrade_ = false;
  // Removed in the destructor, which waits for a delivery in progress; `this` outlives every call.
  auto& center = NotificationCenter::defaultCenter();
  center.addObserver(this, UIApplicationWillResignActiveNotification,
                     [this](const Notification& n) { appWillResignActive(n); });
  center.addObserver(this, UIApplicationDidBecomeActiveNotification,
                     [this](const Notification& n) { appDidBecomeActive(n); });
}

ZTInAppMarketingManagerLogic::~ZTInAppMarketingManagerLogic() {
  NotificationCenter::defaultCenter().removeObserver(this);
  if (autoUpdateTimer_) autoUpdateTimer_->invalidate();
}

bool ZTInAppMarketingManagerLogic::logInfoEnabled() { return InfoLogSwitch::logInfoEnabled(); }

void ZTInAppMarketingManagerLogic::setActive(bool value) {
  if (value == active_) return;
  active_ = value;
  if (value) {
    if (logInfoEnabled())
      LogBridge::info("IAM: Activating the in app marketing manager.", kLogFile, __LINE__,
                      "-[ZTInAppMarketingManagerLogic setActive:]");
    // In the background the next did-become-active notification refreshes and starts the timer.
    if (Application::shared()->applicationState() == UIApplicationStateBackground) return;
    updateExpiredDataForced(false);
    startAutoUpdateTimer();
  } else {
    if (logInfoEnabled())
      LogBridge::info("IAM: Deactivating the in app marketing manager.", kLogFile, __LINE__,
                      "-[ZTInAppMarketingManagerLogic setActive:]");
    stopAutoUpdateTimer();
  }
}

std::shared_ptr<AdvertisementsRequestResponse> ZTInAppMarketingManagerLogic::mostRecentAdvertisementResponse() const {
  std::lock_guard lock(responseMutex_);
  return mostRecentAdvertisementResponse_;
}

std::shared_ptr<NativeQualityNetworkResponse> ZTInAppMarketingManagerLogic::mostRecentNativeQualityNetworkResponse()
    const {
  std::lock_guard lock(responseMutex_);
  return mostRecentNativeQualityNetworkResponse_;
}

void ZTInAppMarketingManagerLogic::setMostRecentAdvertisementResponse(
    std::shared_ptr<AdvertisementsRequestResponse> value) {
  std::lock_guard lock(responseMutex_);
  mostRecentAdvertisementResponse_.swap(value);
  advertisementResponseChanges_.fetch_add(1, std::memory_order_release);
}

void ZTInAppMarketingManagerLogic::setMostRecentNativeQualityNetworkResponse(
    std::shared_ptr<NativeQualityNetworkResponse> value) {
  std::lock_guard lock(responseMutex_);
  mostRecentNativeQualityNetworkResponse_.swap(value);
}

std::optional<AdvertisementList> ZTInAppMarketingManagerLogic::advertisements() const {
  auto response = mostRecentAdvertisementResponse();
  if (!response) return std::nullopt;
  return response->advertisements();
}

std::shared_ptr<ZTIAMAppConfigType> ZTInAppMarketingManagerLogic::appConfiguration() const {
  auto response = mostRecentAdvertisementResponse();
  return response ? response->appConfig() : nullptr;
}

std::optional<RankedAppList> ZTInAppMarketingManagerLogic::nativeQualityNetworkRankedApps() const {
  auto response = mostRecentNativeQualityNetworkResponse();
  if (!response) return std::nullopt;
  return response->qualityNetworkRankedApps();
}

std::shared_ptr<AdvertisementType> ZTInAppMarketingManagerLogic::getAdvertisementByAdvertisementId(
    std::string_view advertisementId) const {
  auto response = mostRecentAdvertisementResponse();
  if (!response) return nullptr;
  for (auto& advertisement : response->advertisements()) {
    if (advertisement && advertisement->advertisementId() == advertisementId) return advertisement;
  }
  return nullptr;
}

std::shared_ptr<ZTIAMAdvertisementStats> ZTInAppMarketingManagerLogic::getAdvertisementStatsByAdvertisementId(
    const std::string& advertisementId) {
  return statsHelper_->getAdvertisementStatsByAdvertisementId(advertisementId);
}

std::shared_ptr<ZTIAMAppEventStats> ZTInAppMarketingManagerLogic::getAppEventStatsByEventKey(
    const std::string& eventKey) {
  return statsHelper_->getAppEventStatsByEventKey(eventKey);
}

bool ZTInAppMarketingManagerLogic::canShowPopup() const {
  auto conductor = ZTPopupConductor::defaultInstance();
  if (conductor->isShowingPopup()) return false;
  return conductor->canShowNonUrgentPopups();
}

bool ZTInAppMarketingManagerLogic::isAdvertisementValid(const std::shared_ptr<AdvertisementType>& advertisement) {
  if (!advertisement) return false;
  auto stats = statsHelper_->getAdvertisementStatsByAdvertisementId(advertisement->advertisementId());
  if (!stats) return false;
  return ZTIAMAdvertisementValidityHelper::isAdvertisementValid(*advertisement, *stats);
}

bool ZTInAppMarketingManagerLogic::isAdvertisementTriggerValid(const std::shared_ptr<AdvertisementTriggerType>& trigger) {
  auto response = mostRecentAdvertisementResponse();
  return isAdvertisementTriggerValid(trigger, response ? response->advertisements() : AdvertisementList{});
}

bool ZTInAppMarketingManagerLogic::isAdvertisementTriggerValid(const std::shared_ptr<AdvertisementTriggerType>& trigger,
                                                               const AdvertisementList& advertisements) {
  if (!trigger) return false;
  return ZTIAMAdvertisementValidityHelper::isAdvertisementTriggerValid(*trigger, *statsHelper_, advertisements,
                                                                       appConfiguration());
}

std::shared_ptr<AdvertisementTriggerType> ZTInAppMarketingManagerLogic::findValidTriggerForAdvertisement(
    const std::shared_ptr<AdvertisementType>& advertisement, const std::string& eventKey,
    const AdvertisementList& advertisements) {
  if (!advertisement) return nullptr;
  const auto triggers = advertisement->triggersFor(eventKey);
  if (triggers.empty()) return nullptr;
  const auto appConfig = appConfiguration();
  ZTIAMAdvertisementValidityHelper::PopupImpressionMemo memo;
  for (const auto& trigger : triggers) {
    if (ZTIAMAdvertisementValidityHelper::isAdvertisementTriggerValid(*trigger, *statsHelper_, advertisements, appConfig,
                                                                      &memo))
      return trigger;
  }
  return nullptr;
}

// The advertisement's triggers for the key, in the order `triggersFor:` gives them, without
// building the set.
std::shared_ptr<AdvertisementTriggerType> ZTInAppMarketingManagerLogic::findValidTriggerForAdvertisement(
    const AdvertisementType& advertisement, std::size_t index, const std::string& eventKey,
    AdvertisementStatsView& view, const std::shared_ptr<const ZTIAMAppConfigType>& appConfig,
    ZTIAMAdvertisementValidityHelper::PopupImpressionMemo& memo) {
  for (const auto& trigger : advertisement.triggers()) {
    if (!listensTo(*trigger, eventKey)) continue;
    if (ZTIAMAdvertisementValidityHelper::isAdvertisementTriggerValid(*trigger, view, index, appConfig, memo))
      return trigger;
  }
  return nullptr;
}

void ZTInAppMarketingManagerLogic::updateLogAndStatisticsWithAppEventKey(const std::string& eventKey) {
  countAppEventKeyUnsaved(eventKey);
  statsHelper_->saveGlobalAppEventStats();
}

void ZTInAppMarketingManagerLogic::updateLogAndStatisticsWithTrigger(
    const std::shared_ptr<AdvertisementTriggerType>& trigger) {
  if (countTriggerUnsaved(trigger)) statsHelper_->saveAdvertisementStats();
}

void ZTInAppMarketingManagerLogic::countAppEventKeyUnsaved(const std::string& eventKey) {
  if (logInfoEnabled())
    LogBridge::info(fmt::format("IAM: Registering app event:\r{}", eventKey), kLogFile, __LINE__,
                    "-[ZTInAppMarketingManagerLogic updateLogAndStatisticsWithAppEventKey:]");
  statsHelper_->countAppEventWithKey(eventKey);
}

bool ZTInAppMarketingManagerLogic::countTriggerUnsaved(const std::shared_ptr<AdvertisementTriggerType>& trigger) {
  if (!trigger) return false;
  if (logInfoEnabled())
    LogBridge::info(fmt::format("IAM: Registering trigger:\r{}", describe(*trigger)), kLogFile, __LINE__,
                    "-[ZTInAppMarketingManagerLogic updateLogAndStatisticsWithTrigger:]");
  return statsHelper_->countTriggerFired(*trigger);
}

void ZTInAppMarketingManagerLogic::updateLogAndStatisticsWithEvent(
    const std::shared_ptr<ZTIAMAdvertisementEventInterface>& event) {
  if (!event) return;
  if (logInfoEnabled())
    LogBridge::info(fmt::format("IAM: Registering event:\r{}", describe(*event)), kLogFile, __LINE__,
                    "-[ZTInAppMarketingManagerLogic updateLogAndStatisticsWithEvent:]");
  switch (event->advertisementEventType()) {
    case ZTIAMAdvertisementEventTypeImpression:
      statsHelper_->handleAdvertisementImpression(*event);
      break;
    case ZTIAMAdvertisementEventTypeClick:
      statsHelper_->handleAdvertisementClick(*event);
      break;
    case ZTIAMAdvertisementEventTypeDismiss:
      statsHelper_->handleAdvertisementDismiss(*event);
      break;
    case ZTIAMAdvertisementEventTypePostpone:
      statsHelper_->handleAdvertisementPostpone(*event);
      break;
    default:
      break;
  }
}

void ZTInAppMarketingManagerLogic::setBoughtAdFreeUpgrade(bool value) {
  const bool previous = boughtAdFreeUpgrade_;
  boughtAdFreeUpgrade_ = value;
  if (previous != value) performAdvertisementUpdateCall();
}

void ZTInAppMarketingManagerLogic::setNativeQualityNetworkEnabled(bool value) {
  nativeQualityNetworkEnabled_ = value;
  if (!value) return;
  auto response = mostRecentNativeQualityNetworkResponse();
  if (!response || response->isExpired()) performNativeQualityNetworkUpdateCall();
}

void ZTInAppMarketingManagerLogic::reset() {
  setMostRecentAdvertisementResponse(nullptr);
  saveAdvertisementResponse();
}

void ZTInAppMarketingManagerLogic::resetAllStats() { statsHelper_->resetAllStats(); }

IAMWebServiceParameters ZTInAppMarketingManagerLogic::getDefaultWebServiceParameters() const {
  IAMWebServiceParameters parameters;
  parameters.setHasBoughtAdFreeUpgrade(boughtAdFreeUpgrade_);
  return parameters;
}

void ZTInAppMarketingManagerLogic::performAdvertisementUpdateCall() {
  if (activeAdvertisementsRequestTicket_ && !activeAdvertisementsRequestTicket_->isFinished()) return;
  IAMWebService webService;
  auto parameters = getDefaultWebServiceParameters();
  auto response = mostRecentAdvertisementResponse();
  parameters.setEtag(response ? response->etag() : std::nullopt);
  activeAdvertisementsRequestTicket_ = webService.getAdvertisementsWithParameters(
      parameters, [weak = weak_from_this()](const std::shared_ptr<ZTOspreyServiceRequestResultInterface>& result) {
        auto self = weak.lock();
        if (!self || !result) return;
        self->advertisementsRequestCompleted(*result);
      });
}

void ZTInAppMarketingManagerLogic::advertisementsRequestCompleted(const ZTOspreyServiceRequestResultInterface& result) {
  activeAdvertisementsRequestTicket_.reset();
  auto response = mostRecentAdvertisementResponse();
  auto oldConfiguration = response ? response->appConfig() : nullptr;

  if (result.contentIsNotModified()) {
    if (response) response->setContentInfo(result.contentInfo());
    saveAdvertisementResponse();
    receivedAdvertisements();
    updated(appConfiguration(), oldConfiguration);
    return;
  }
  auto data = result.dataAs<AdvertisementsRequestResponse>();
  if (result.failed() || !data) {
    LogBridge::error(fmt::format("IAM: Unable to retrieve advertisements: {}", result.error().value_or("(null)")),
                     kLogFile, __LINE__, "-[ZTInAppMarketingManagerLogic performAdvertisementUpdateCall]");
    return;
  }
  if (logInfoEnabled())
    LogBridge::info(fmt::format("IAM: Received advertisements:\n{}", describe(*data)), kLogFile, __LINE__,
                    "-[ZTInAppMarketingManagerLogic performAdvertisementUpdateCall]");
  if (response) {
    for (auto& advertisement : response->advertisements()) oldAdvertisements_.insert(advertisement);
  }
  setMostRecentAdvertisementResponse(data);
  updated(appConfiguration(), oldConfiguration);
  saveAdvertisementResponse();
  receivedAdvertisements();
  auto qualityNetwork = mostRecentNativeQualityNetworkResponse();
  if (!qualityNetwork || qualityNetwork->isExpired()) performNativeQualityNetworkUpdateCall();
}

void ZTInAppMarketingManagerLogic::performNativeQualityNetworkUpdateCall() {
  if (!nativeQualityNetworkEnabled_) return;
  if (activeNativeQualityNetworkRequestTicket_ && !activeNativeQualityNetworkRequestTicket_->isFinished()) return;
  IAMWebService webService;
  auto parameters = getDefaultWebServiceParameters();
  auto response = mostRecentNativeQualityNetworkResponse();
  parameters.setEtag(response ? response->etag() : std::nullopt);
  activeNativeQualityNetworkRequestTicket_ = webService.getNativeQualityNetworkWithParameters(
      parameters, [weak = weak_from_this()](const std::shared_ptr<ZTOspreyServiceRequestResultInterface>& result) {
        auto self = weak.lock();
        if (!self || !result) return;
        self->nativeQualityNetworkRequestCompleted(*result);
      });
}

void ZTInAppMarketingManagerLogic::nativeQualityNetworkRequestCompleted(
    const ZTOspreyServiceRequestResultInterface& result) {
  activeNativeQualityNetworkRequestTicket_.reset();
  if (result.contentIsNotModified()) {
    if (auto response = mostRecentNativeQualityNetworkResponse()) response->setContentInfo(result.contentInfo());
    saveNativeQualityNetworkResponse();
    receivedNativeQualityNetwork();
    return;
  }
  auto data = result.dataAs<NativeQualityNetworkResponse>();
  if (result.failed() || !data) {
    LogBridge::error(fmt::format("Unable to retrieve native quality network: {}", result.error().value_or("(null)")),
                     kLogFile, __LINE__,
                     "-[ZTInAppMarketingManagerLogic performNativeQualityNetworkUpdateCall]");
    return;
  }
  if (logInfoEnabled())
    LogBridge::info(fmt::format("IAM: Received native quality network:\n{}", describe(*data)), kLogFile, __LINE__,
                    "-[ZTInAppMarketingManagerLogic performNativeQualityNetworkUpdateCall]");
  setMostRecentNativeQualityNetworkResponse(std::move(data));
  saveNativeQualityNetworkResponse();
  receivedNativeQualityNetwork();
}

void ZTInAppMarketingManagerLogic::saveAdvertisementResponse() {
  // The block keeps the manager, and reads the answer only when it runs: two quick saves may both
  // write the newest answer.
  ZTDispatchTools::onBackgroundWithBlock([self = shared_from_this()] {
    auto response = self->mostRecentAdvertisementResponse();
    saveResponse(response.get(), kMostRecentAdvertisementResponseKey);
  });
}

void ZTInAppMarketingManagerLogic::saveNativeQualityNetworkResponse() {
  ZTDispatchTools::onBackgroundWithBlock([self = shared_from_this()] {
    auto response = self->mostRecentNativeQualityNetworkResponse();
    saveResponse(response.get(), kMostRecentNativeQualityNetworkResponseKey);
  });
}

void ZTInAppMarketingManagerLogic::loadAdvertisementResponse() {
  auto response =
      ZTSettings::getUnarchivedObjectOfClassForKey<AdvertisementsRequestResponse>(kMostRecentAdvertisementResponseKey);
  const bool found = response != nullptr;
  setMostRecentAdvertisementResponse(std::move(response));
  if (found && logInfoEnabled())
    LogBridge::info("IAM: Cached advertisement response found.", kLogFile, __LINE__,
                    "-[ZTInAppMarketingManagerLogic loadAdvertisementResponse]");
}

void ZTInAppMarketingManagerLogic::loadNativeQualityNetworkResponse() {
  auto response = ZTSettings::getUnarchivedObjectOfClassForKey<NativeQualityNetworkResponse>(
      kMostRecentNativeQualityNetworkResponseKey);
  const bool found = response != nullptr;
  setMostRecentNativeQualityNetworkResponse(std::move(response));
  if (found && logInfoEnabled())
    LogBridge::info("IAM: Cached native quality network response found.", kLogFile, __LINE__,
                    "-[ZTInAppMarketingManagerLogic loadNativeQualityNetworkResponse]");
}

void ZTInAppMarketingManagerLogic::updateExpiredDataForced(bool forced) {
  if (!active_) return;
  if (forced) {
    performAdvertisementUpdateCall();
    performNativeQualityNetworkUpdateCall();
    return;
  }
  auto advertisementsResponse = mostRecentAdvertisementResponse();
  if (!advertisementsResponse || advertisementsResponse->isExpired()) performAdvertisementUpdateCall();
  auto qualityNetwork = mostRecentNativeQualityNetworkResponse();
  if (!qualityNetwork || qualityNetwork->isExpired()) performNativeQualityNetworkUpdateCall();
}

void ZTInAppMarketingManagerLogic::forceRefreshOfData() { updateExpiredDataForced(true); }

void ZTInAppMarketingManagerLogic::startAutoUpdateTimer() {
  if (autoUpdateTimer_) return;
  autoUpdateTimer_ = Timer::scheduledTimerWithTimeInterval(kAutoUpdateInterval, true, [weak = weak_from_this()](Timer&) {
    if (auto self = weak.lock()) self->autoUpdateTimerFired();
  });
}

void ZTInAppMarketingManagerLogic::stopAutoUpdateTimer() {
  if (autoUpdateTimer_) autoUpdateTimer_->invalidate();
  autoUpdateTimer_.reset();
}

void ZTInAppMarketingManagerLogic::autoUpdateTimerFired() { updateExpiredDataForced(false); }

void ZTInAppMarketingManagerLogic::appWillResignActive(const Notification&) { stopAutoUpdateTimer(); }

void ZTInAppMarketingManagerLogic::appDidBecomeActive(const Notification&) {
  if (!active_) return;
  updateExpiredDataForced(false);
  startAutoUpdateTimer();
}

}  // namespace iam
