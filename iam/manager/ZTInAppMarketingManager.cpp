#include "iam/manager/ZTInAppMarketingManager.h"

#include <algorithm>
#include <mutex>

#include "iam/manager/InAppMarketingPreferencesStorage.h"
#include "iam/platform/Bundle.h"
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
  disabledDisplayTypes_.insert(ZTIAMAdvertisementDisplayTypeDfpInterstitial);
  disabledDisplayTypes_.insert(ZTIAMAdvertisementDisplayTypeDfpInterstitialPreload);
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
