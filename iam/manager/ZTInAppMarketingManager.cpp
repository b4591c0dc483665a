#include "iam/manager/ZTInAppMarketingManager.h"

#include <algorithm>
#include <mutex>
#include <optional>

#include <fmt/format.h>

#include "iam/manager/InAppMarketingPreferencesStorage.h"
#include "iam/platform/Application.h"
#include "iam/platform/Bundle.h"
#include "iam/platform/LogBridge.h"
#include "iam/platform/URL.h"
#include "iam/platform/ZTDispatchTools.h"
#include "iam/stats/AdvertisementStatsView.h"
#include "iam/validity/ZTIAMAdvertisementEventReservedEvents.h"

namespace iam {
namespace {

std::mutex& sharedMutex() {
  static std::mutex m;
  return m;
}

// Never destroyed by the library: the shared manager lives as long as the app.
std::shared_ptr<ZTInAppMarketingManager>& sharedManager() {
  static auto* manager = new std::shared_ptr<ZTInAppMarketingManager>();  // guarded by sharedMutex()
  return *manager;
}

void storeShared(std::shared_ptr<ZTInAppMarketingManager> manager) {
  std::shared_ptr<ZTInAppMarketingManager> previous;  // released outside the lock
  std::lock_guard lock(sharedMutex());
  previous = std::move(sharedManager());
  sharedManager() = std::move(manager);
}

bool isMissing(const std::optional<std::string>& text) { return !text || text->empty(); }

constexpr std::string_view kBlockedWarning =
    "IAM: ZTInAppMarketingManager: An interstitial won't be shown, because it is blocked by the app, or another popup.";

bool isInterstitial(ZTIAMAdvertisementDisplayType type) {
  return type == ZTIAMAdvertisementDisplayTypeDfpInterstitialPreload || type == ZTIAMAdvertisementDisplayTypeDfpInterstitial;
}

bool isSchemeCharacter(char c, bool first) {
  const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
  return letter || (!first && ((c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.'));
}

// The scheme as the text itself spells it, in lower case; empty when it does not start with one.
// Read from the text rather than from a parser, so that the check sees exactly what is opened.
std::string schemeOf(std::string_view text) {
  const auto colon = text.find(':');
  if (colon == 0 || colon == std::string_view::npos) return {};
  std::string scheme;
  for (std::size_t i = 0; i < colon; ++i) {
    if (!isSchemeCharacter(text[i], i == 0)) return {};
    scheme.push_back(static_cast<char>(text[i] >= 'A' && text[i] <= 'Z' ? text[i] - 'A' + 'a' : text[i]));
  }
  return scheme;
}

// Opens `text` through the running app if its scheme is allowed; `function` names the caller in
// the log. A link from the service could otherwise run script in a browser or reach local files.
void openURLString(const std::string& text, const std::set<std::string, std::less<>>& allowedSchemes,
                   const char* function) {
  auto url = URL::URLWithString(text);
  if (!url) {
    LogBridge::error(fmt::format("IAM: Could not create url from string: {}", text), ZTInAppMarketingManager::kLogFile,
                     __LINE__, function);
    return;
  }
  const auto scheme = schemeOf(text);
  if (!allowedSchemes.contains(scheme)) {
    LogBridge::warning(fmt::format("IAM: Not opening url, its scheme '{}' is not allowed: {}", scheme, text),
                       ZTInAppMarketingManager::kLogFile, __LINE__, function);
    return;
  }
  Application::shared()->open(*url);
}

}  // namespace

std::shared_ptr<ZTInAppMarketingManager> ZTInAppMarketingManager::sharedInstance() {
  {
    std::lock_guard lock(sharedMutex());
    if (sharedManager()) return sharedManager();
  }
  // Construction loads from the preferences and must not hold the lock; if two threads race
  // here, the later manager wins as any newly made one does.
  return create();
}

std::shared_ptr<ZTInAppMarketingManager> ZTInAppMarketingManager::create() {
  return create(std::make_shared<InAppMarketingPreferencesStorage>());
}

std::shared_ptr<ZTInAppMarketingManager> ZTInAppMarketingManager::create(
    std::shared_ptr<ZTInAppMarketingManagerStorageType> storage) {
  auto manager = std::make_shared<ZTInAppMarketingManager>(Passkey{}, std::move(storage));
  storeShared(manager);
  return manager;
}

void ZTInAppMarketingManager::resetSharedInstanceForTesting() { storeShared(nullptr); }

ZTInAppMarketingManager::ZTInAppMarketingManager(Passkey, std::shared_ptr<ZTInAppMarketingManagerStorageType> storage)
    : storage_(std::move(storage)) {
  // The presenter sits below the manager; it asks the shared manager through this callback.
  advertisementPresenter_ =
      std::make_shared<ZTIAMAdvertisementPresenter>([] { return ZTInAppMarketingManager::sharedInstance()->canShowPopup(); });
}

ZTInAppMarketingManager::~ZTInAppMarketingManager() = default;

void ZTInAppMarketingManager::addDelegate(const std::shared_ptr<ZTInAppMarketingManagerDelegate>& delegate) {
  if (!delegate) return;
  const bool member = std::any_of(delegates_.begin(), delegates_.end(),
                                  [&](const auto& weak) { return weak.lock() == delegate; });
  if (!member) delegates_.push_back(delegate);
}

void ZTInAppMarketingManager::removeDelegate(const std::shared_ptr<ZTInAppMarketingManagerDelegate>& delegate) {
  std::erase_if(delegates_, [&](const auto& weak) { return weak.lock() == delegate || weak.expired(); });
}

std::vector<std::shared_ptr<ZTInAppMarketingManagerDelegate>> ZTInAppMarketingManager::delegates() const {
  std::vector<std::shared_ptr<ZTInAppMarketingManagerDelegate>> alive;
  for (const auto& weak : delegates_) {
    if (auto delegate = weak.lock()) alive.push_back(std::move(delegate));
  }
  return alive;
}

void ZTInAppMarketingManager::disableInterstitials() {
  std::lock_guard lock(disabledDisplayTypesMutex_);
  disabledDisplayTypes_.insert(ZTIAMAdvertisementDisplayTypeDfpInterstitial);
  disabledDisplayTypes_.insert(ZTIAMAdvertisementDisplayTypeDfpInterstitialPreload);
}

std::set<ZTIAMAdvertisementDisplayType> ZTInAppMarketingManager::disabledDisplayTypes() const {
  std::lock_guard lock(disabledDisplayTypesMutex_);
  return disabledDisplayTypes_;
}

// Observers are walked as they are when the walk starts; one that adds or removes observers
// changes the next walk.
void ZTInAppMarketingManager::receivedAdvertisements() {
  ZTInAppMarketingManagerLogic::receivedAdvertisements();
  for (const auto& delegate : delegates()) delegate->inAppMarketingManager(*this, advertisements());
  std::erase_if(delegates_, [](const auto& weak) { return weak.expired(); });
}

void ZTInAppMarketingManager::receivedNativeQualityNetwork() {
  ZTInAppMarketingManagerLogic::receivedNativeQualityNetwork();
  for (const auto& delegate : delegates()) delegate->inAppMarketingManager(*this, nativeQualityNetworkRankedApps());
  std::erase_if(delegates_, [](const auto& weak) { return weak.expired(); });
}

void ZTInAppMarketingManager::updated(const std::shared_ptr<ZTIAMAppConfigType>& configuration,
                                      const std::shared_ptr<ZTIAMAppConfigType>& oldConfiguration) {
  for (const auto& delegate : delegates()) delegate->inAppMarketingManager(*this, configuration, oldConfiguration);
  ZTInAppMarketingManagerLogic::updated(configuration, oldConfiguration);
}

void ZTInAppMarketingManager::handleAppEvent(const std::string& eventKey) {
  if (!active()) return;
  auto key = appLaunchToAppUpdatedIfNeededFor(eventKey);
  auto self = std::static_pointer_cast<ZTInAppMarketingManager>(shared_from_this());
  ZTDispatchTools::onBackgroundWithBlock([self = std::move(self), key = std::move(key)] {
    // Saved once the walk ends, whatever way it ends: a save running beside the walk would slow it.
    bool triggerCounted = false;
    struct SaveAtEnd {
      ZTInAppMarketingManager& manager;
      const bool& triggerCounted;
      ~SaveAtEnd() {
        try {
          manager.statsHelper().saveGlobalAppEventStats();
          if (triggerCounted) manager.statsHelper().saveAdvertisementStats();
        } catch (...) {  // out of memory: the counts stay, and the next save writes them
        }
      }
    } saveAtEnd{*self, triggerCounted};
    self->countAppEventKeyUnsaved(key);
    const auto disabled = self->disabledDisplayTypes();
    // The walk keeps to the list it started with; a newer answer changes the next event.
    auto seenChanges = self->advertisementResponseChanges();
    const auto walked = self->mostRecentAdvertisementResponse();
    const auto snapshot = walked ? walked->advertisements() : AdvertisementList{};
    // Each advertisement's statistics are fetched once, all at once where they exist, and kept for
    // the next walk over the same answer.
    AdvertisementStatsView::Kept kept;
    {
      std::lock_guard lock(self->walkStatsMutex_);
      if (walked && self->walkStatsResponse_.lock() == walked) kept = std::move(self->walkStats_);
    }
    AdvertisementStatsView view(self->statsHelper(), snapshot, std::move(kept));
    // The trigger rules see the advertisements held at each step. Copied only when the answer was
    // replaced during the walk, so that a long list is not copied once per advertisement.
    // One popup spacing memo per list: the rule scans the whole list, once per walk, not per trigger.
    std::shared_ptr<AdvertisementsRequestResponse> currentResponse = walked;
    std::shared_ptr<const ZTIAMAppConfigType> appConfig = walked ? walked->appConfig() : nullptr;
    AdvertisementList replacedList;
    std::optional<AdvertisementStatsView> replacedView;
    ZTIAMAdvertisementValidityHelper::PopupImpressionMemo memo;
    auto currentView = [&]() -> AdvertisementStatsView& {
      if (const auto changes = self->advertisementResponseChanges(); changes != seenChanges) {
        seenChanges = changes;
        auto held = self->mostRecentAdvertisementResponse();
        if (held != currentResponse) {
          if (held != walked) {
            replacedView.reset();
            replacedList = held ? held->advertisements() : AdvertisementList{};
            replacedView.emplace(self->statsHelper(), replacedList);
          }
          currentResponse = std::move(held);
          appConfig = currentResponse ? currentResponse->appConfig() : nullptr;
          memo = {};
        }
      }
      return currentResponse == walked ? view : *replacedView;
    };
    bool shown = false;
    for (std::size_t index = 0; index < snapshot.size(); ++index) {
      const auto& advertisement = snapshot[index];
      if (!advertisement) continue;
      view.refresh();
      if (replacedView) replacedView->refresh();
      const auto displayType = advertisement->displayType();
      if (disabled.count(displayType) != 0) continue;
      if (!ZTIAMAdvertisementValidityHelper::isAdvertisementValid(*advertisement, *view.advertisementStats(index)))
        continue;
      const auto& triggers = advertisement->triggers();
      if (std::none_of(triggers.begin(), triggers.end(), [&](const auto& t) { return listensTo(*t, key); }))
        continue;
      auto& rulesView = currentView();
      auto trigger = self->findValidTriggerForAdvertisement(*advertisement, index, key, rulesView, appConfig, memo);
      if (!trigger) continue;
      const bool preload = displayType == ZTIAMAdvertisementDisplayTypeDfpInterstitialPreload;
      if (!preload) {
        if (shown) continue;
        if (self->advertisementPresenter()->isPresentingAdvertisement()) continue;
      }
      triggerCounted = self->countTriggerUnsaved(trigger) || triggerCounted;
      ZTDispatchTools::onMainWithBlock([self, advertisement, trigger] {
        self->showAdvertisementWith(
            std::make_shared<AdvertisementConfigurationData>(advertisement, trigger, nullptr, nullptr));
      });
      if (!preload) shown = true;
    }
    std::lock_guard lock(self->walkStatsMutex_);
    self->walkStatsResponse_ = walked;
    self->walkStats_ = std::move(view).keep();
  });
}

void ZTInAppMarketingManager::showAdvertisementWith(const std::shared_ptr<AdvertisementConfigurationData>& configuration) {
  if (!configuration) return;
  const auto& advertisement = configuration->advertisement();
  std::shared_ptr<ZTIAMAdvertisementEventInterface> impression = ZTIAMAdvertisementEventFactory::createEventWithType(
      ZTIAMAdvertisementEventTypeImpression, advertisement, configuration->trigger(), configuration->target());
  if (auto delegate = advertisementHandlerDelegate();
      delegate && !delegate->shouldHandleAdvertisementConfiguration(*configuration, *this)) {
    if (canShowPopup()) {
      auto weak = std::weak_ptr<ZTInAppMarketingManager>(
          std::static_pointer_cast<ZTInAppMarketingManager>(shared_from_this()));
      delegate->handleAdvertisementConfiguration(*configuration, *this, [weak, impression](bool willShow) {
        if (!willShow) return;
        if (auto self = weak.lock()) self->handleAdvertisementEvent(impression, nullptr, nullptr);
      });
    } else {
      LogBridge::warning(std::string(kBlockedWarning), kLogFile, __LINE__,
                         "-[ZTInAppMarketingManager showAdvertisementWith:]");
    }
    return;
  }
  // Counted before anything is shown, also for types the manager cannot show itself.
  handleAdvertisementEvent(impression, nullptr, nullptr);
  if (!advertisement) return;
  const auto displayType = advertisement->displayType();
  if (isInterstitial(displayType)) {
    LogBridge::error("IAM: DFP Interstitial calls need to be handled via the `advertisementHandlerDelegate`", kLogFile,
                     __LINE__, "-[ZTInAppMarketingManager showAdvertisementWith:]");
  } else if (displayType == ZTIAMAdvertisementDisplayTypeReviewQuestion) {
    showReviewWithAdvertisement(advertisement, configuration->delay());
  }
}

void ZTInAppMarketingManager::forceShowOfAdvertisement(const std::shared_ptr<AdvertisementType>& advertisement) {
  if (!advertisement) return;
  AdvertisementConfigurationData configuration(advertisement, nullptr, nullptr, nullptr);
  if (auto delegate = advertisementHandlerDelegate();
      delegate && !delegate->shouldHandleAdvertisementConfiguration(configuration, *this)) {
    if (canShowPopup()) {
      delegate->handleAdvertisementConfiguration(configuration, *this, nullptr);
    } else {
      LogBridge::warning(std::string(kBlockedWarning), kLogFile, __LINE__,
                         "-[ZTInAppMarketingManager forceShowOfAdvertisement:]");
    }
    return;
  }
  if (advertisement->displayType() == ZTIAMAdvertisementDisplayTypeReviewQuestion)
    showReviewWithAdvertisement(advertisement, 0);
}

void ZTInAppMarketingManager::handleAdvertisementEvent(const std::shared_ptr<ZTIAMAdvertisementEventInterface>& event,
                                                       const std::shared_ptr<View>& sourceView,
                                                       const std::shared_ptr<ViewController>& sourceViewController) {
  if (!event) return;
  switch (event->advertisementEventType()) {
    case ZTIAMAdvertisementEventTypeImpression:
      handleAdvertisementImpression(event, sourceView, sourceViewController);
      break;
    case ZTIAMAdvertisementEventTypeClick:
      handleAdvertisementClick(event, sourceView, sourceViewController);
      break;
    case ZTIAMAdvertisementEventTypeDismiss:
      handleAdvertisementDismiss(event, sourceView, sourceViewController);
      break;
    case ZTIAMAdvertisementEventTypePostpone:
      handleAdvertisementPostpone(event, sourceView, sourceViewController);
      break;
    default:
      break;
  }
  updateLogAndStatisticsWithEvent(event);
}

void ZTInAppMarketingManager::handleAdvertisementImpression(const std::shared_ptr<ZTIAMAdvertisementEventInterface>&,
                                                            const std::shared_ptr<View>&,
                                                            const std::shared_ptr<ViewController>&) {}

void ZTInAppMarketingManager::handleAdvertisementDismiss(const std::shared_ptr<ZTIAMAdvertisementEventInterface>&,
                                                         const std::shared_ptr<View>&,
                                                         const std::shared_ptr<ViewController>&) {}

void ZTInAppMarketingManager::handleAdvertisementPostpone(const std::shared_ptr<ZTIAMAdvertisementEventInterface>&,
                                                          const std::shared_ptr<View>&,
                                                          const std::shared_ptr<ViewController>&) {}

void ZTInAppMarketingManager::handleAdvertisementClick(const std::shared_ptr<ZTIAMAdvertisementEventInterface>& event,
                                                       const std::shared_ptr<View>& sourceView,
                                                       const std::shared_ptr<ViewController>& sourceViewController) {
  auto advertisement = event->advertisement();
  if (!advertisement) return;
  switch (advertisement->okActionType()) {
    case ZTIAMAdvertisementActionTypeOpenStore:
      processOpenStoreClick(event, sourceView, sourceViewController);
      break;
    case ZTIAMAdvertisementActionTypeOpenAd:
      processOpenAdClick(event, sourceView, sourceViewController);
      break;
    case ZTIAMAdvertisementActionTypeOpenReview:
      processOpenReviewClick(event, sourceView, sourceViewController);
      break;
    case ZTIAMAdvertisementActionTypeInvalid:
    case ZTIAMAdvertisementActionTypeNoAction:
    case ZTIAMAdvertisementActionTypeDismiss:
    case ZTIAMAdvertisementActionTypePostpone:
    case ZTIAMAdvertisementActionTypeOpenContact:
    case ZTIAMAdvertisementActionTypeOpenContactForm:
      LogBridge::warning("IAM: Invalid click action.", kLogFile, __LINE__,
                         "-[ZTInAppMarketingManager handleAdvertisementClick:sourceView:sourceViewController:]");
      break;
    default:
      break;
  }
}

void ZTInAppMarketingManager::processOpenStoreClick(const std::shared_ptr<ZTIAMAdvertisementEventInterface>& event,
                                                    const std::shared_ptr<View>& sourceView,
                                                    const std::shared_ptr<ViewController>& sourceViewController) {
  auto advertisement = event->advertisement();
  if (advertisement && advertisement->displayType() == ZTIAMAdvertisementDisplayTypeReviewQuestion)
    handleAdvertisementOpenStore(event, sourceView, sourceViewController);
}

void ZTInAppMarketingManager::processOpenReviewClick(const std::shared_ptr<ZTIAMAdvertisementEventInterface>& event,
                                                     const std::shared_ptr<View>& sourceView,
                                                     const std::shared_ptr<ViewController>& sourceViewController) {
  auto advertisement = event->advertisement();
  if (advertisement && advertisement->displayType() == ZTIAMAdvertisementDisplayTypeReviewQuestion)
    handleAdvertisementOpenReview(event, sourceView, sourceViewController);
}

void ZTInAppMarketingManager::handleAdvertisementOpenStore(const std::shared_ptr<ZTIAMAdvertisementEventInterface>& event,
                                                           const std::shared_ptr<View>&,
                                                           const std::shared_ptr<ViewController>&) {
  constexpr const char* kFunction = "-[ZTInAppMarketingManager handleAdvertisementOpenStore:sourceView:sourceViewController:]";
  auto advertisement = event->advertisement();
  if (!advertisement || !advertisement->advertisedApp()) return;
  const auto& storeUrl = advertisement->advertisedApp()->storeUrl();
  if (isMissing(storeUrl)) {
    LogBridge::warning("IAM: Advertisement has no app store url", kLogFile, __LINE__, kFunction);
    return;
  }
  openURLString(*storeUrl, allowedURLSchemes_, kFunction);
}

void ZTInAppMarketingManager::handleAdvertisementOpenReview(
    const std::shared_ptr<ZTIAMAdvertisementEventInterface>& event, const std::shared_ptr<View>&,
    const std::shared_ptr<ViewController>&) {
  constexpr const char* kFunction =
      "-[ZTInAppMarketingManager handleAdvertisementOpenReview:sourceView:sourceViewController:]";
  auto advertisement = event->advertisement();
  std::optional<std::string> reviewUrl;
  if (advertisement && advertisement->advertisedApp()) reviewUrl = advertisement->advertisedApp()->reviewUrl();
  if (isMissing(reviewUrl)) {
    LogBridge::warning("IAM: Advertisement has no review url", kLogFile, __LINE__, kFunction);
    return;
  }
  // The review address already carries its query.
  openURLString(*reviewUrl + "&action=write-review", allowedURLSchemes_, kFunction);
}

bool ZTInAppMarketingManager::allowURLScheme(std::string_view scheme) {
  if (scheme.find(':') != std::string_view::npos) return false;
  auto lower = schemeOf(std::string(scheme) + ":");
  if (lower.empty()) return false;
  allowedURLSchemes_.insert(std::move(lower));
  return true;
}

void ZTInAppMarketingManager::processOpenAdClick(const std::shared_ptr<ZTIAMAdvertisementEventInterface>& event,
                                                 const std::shared_ptr<View>&, const std::shared_ptr<ViewController>&) {
  constexpr const char* kFunction = "-[ZTInAppMarketingManager processOpenAdClick:sourceView:sourceViewController:]";
  auto advertisement = event->advertisement();
  if (!advertisement) return;
  const auto& linkedId = advertisement->okActionMeta();
  if (isMissing(linkedId)) return;
  auto linked = getAdvertisementByAdvertisementId(*linkedId);
  if (!linked) {
    LogBridge::error(fmt::format("IAM: Could not find linked advertisement with id '{}'", *linkedId), kLogFile,
                     __LINE__, kFunction);
    return;
  }
  // Shown even when invalid: the campaign chose to link it.
  if (!isAdvertisementValid(linked))
    LogBridge::warning(fmt::format("IAM: Linked advertisement with id '{}' is not valid but will be shown.", *linkedId),
                       kLogFile, __LINE__, kFunction);
  const auto displayType = advertisement->displayType();
  if (!isInterstitial(displayType) && displayType != ZTIAMAdvertisementDisplayTypeReviewQuestion) return;
  auto configuration = std::make_shared<AdvertisementConfigurationData>(linked, nullptr, nullptr, nullptr);
  configuration->setAnimated(false);
  showAdvertisementWith(configuration);
}

void ZTInAppMarketingManager::showReviewWithAdvertisement(const std::shared_ptr<AdvertisementType>& advertisement,
                                                          double delay) {
  std::shared_ptr<ViewController> host;
  if (auto window = Application::shared()->keyWindow()) {
    if (const auto& root = window->rootViewController()) host = root->topPresentedViewController();
  }
  advertisementPresenter_->presentAdvertisement(advertisement, std::move(host), delay);
}

AdvertisementTargetSet ZTInAppMarketingManager::getTargetsBySpaceKey(const std::string& spaceKey) {
  AdvertisementTargetSet targets;
  if (!active() || spaceKey.empty()) return targets;
  auto response = mostRecentAdvertisementResponse();
  if (!response) return targets;
  for (const auto& advertisement : response->advertisements()) {
    for (const auto& target : getTargetsBySpaceKey(spaceKey, advertisement, false)) targets.insert(target);
  }
  return targets;
}

AdvertisementTargetSet ZTInAppMarketingManager::getTargetsBySpaceKey(
    const std::string& spaceKey, const std::shared_ptr<AdvertisementType>& advertisement, bool ignoreIsValid) {
  if (!active() || spaceKey.empty() || !advertisement) return {};
  if (!ignoreIsValid && !isAdvertisementValid(advertisement)) return {};
  return advertisement->targetsFor(spaceKey);
}

std::string ZTInAppMarketingManager::appLaunchToAppUpdatedIfNeededFor(const std::string& eventKey) {
  const std::string launch(ZTIAMAdvertisementEventReservedEvents[0]);
  if (eventKey != launch) return eventKey;
  const auto appVersion = Bundle::mainBundle().objectForInfoDictionaryKey("CFBundleShortVersionString");
  if (isMissing(appVersion)) return launch;
  const auto lastVersion = storage_ ? storage_->lastVersion() : std::nullopt;
  if (isMissing(lastVersion)) {
    if (storage_) storage_->setLastVersion(appVersion);
    return launch;
  }
  if (*appVersion != *lastVersion) {
    if (storage_) storage_->setLastVersion(appVersion);
    return std::string(ZTIAMAdvertisementEventReservedEvents[1]);
  }
  return launch;
}

}  // namespace iam
