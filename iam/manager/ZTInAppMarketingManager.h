#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "iam/manager/ZTInAppMarketingManagerAdvertisementHandlerDelegate.h"
#include "iam/manager/ZTInAppMarketingManagerDelegate.h"
#include "iam/manager/ZTInAppMarketingManagerLogic.h"
#include "iam/manager/ZTInAppMarketingManagerStorageType.h"
#include "iam/model/ZTIAMAdvertisementDisplayType.h"
#include "iam/platform/View.h"
#include "iam/platform/ViewController.h"
#include "iam/presentation/ZTIAMAdvertisementPresenter.h"
#include "iam/stats/AdvertisementStatsView.h"
#include "iam/stats/ZTIAMAdvertisementEvent.h"

namespace iam {

// The host's analytics manager, kept by the manager for the host; the library never calls it.
class ZTAnalyticsManager {
 public:
  virtual ~ZTAnalyticsManager() = default;
};

// The library's public entry: the shared manager that owns the data, the statistics and the
// presenter, and tells its observers about new data.
//
// Every manager made becomes the shared one (a host or a test installs its own that way); the
// shared one lives until another replaces it. Before creating it, install the platform services
// (clock, preferences, application, popup conductor, review handler) and the service's address.
// Main thread, except where the base class says otherwise.
class ZTInAppMarketingManager : public ZTInAppMarketingManagerLogic {
  struct Passkey {};

 public:
  static constexpr std::string_view kLogFile = "InAppMarketing/source/UI/ZTInAppMarketingManager/_ZTInAppMarketingManager";

  // The shared manager; made over the standard preferences store if there is none yet.
  static std::shared_ptr<ZTInAppMarketingManager> sharedInstance();
  // A manager over the standard preferences store, which becomes the shared one.
  static std::shared_ptr<ZTInAppMarketingManager> create();
  // A manager keeping the last app version in `storage`, which becomes the shared one.
  static std::shared_ptr<ZTInAppMarketingManager> create(std::shared_ptr<ZTInAppMarketingManagerStorageType> storage);
  // Drops the shared manager (it ends once no one else holds it), so that a test ends its own.
  static void resetSharedInstanceForTesting();

  ZTInAppMarketingManager(Passkey, std::shared_ptr<ZTInAppMarketingManagerStorageType> storage);
  ~ZTInAppMarketingManager() override;

  // Observers, held weakly. Adding one twice keeps one entry.
  void addDelegate(const std::shared_ptr<ZTInAppMarketingManagerDelegate>& delegate);
  void removeDelegate(const std::shared_ptr<ZTInAppMarketingManagerDelegate>& delegate);
  // The observers still alive, in the order they were added.
  std::vector<std::shared_ptr<ZTInAppMarketingManagerDelegate>> delegates() const;

  std::shared_ptr<ZTInAppMarketingManagerAdvertisementHandlerDelegate> advertisementHandlerDelegate() const {
    return advertisementHandlerDelegate_.lock();
  }
  void setAdvertisementHandlerDelegate(const std::shared_ptr<ZTInAppMarketingManagerAdvertisementHandlerDelegate>& value) {
    advertisementHandlerDelegate_ = value;
  }
  const std::shared_ptr<ZTAnalyticsManager>& analyticsManager() const { return analyticsManager_; }
  void setAnalyticsManager(std::shared_ptr<ZTAnalyticsManager> value) { analyticsManager_ = std::move(value); }

  const std::shared_ptr<ZTIAMAdvertisementPresenter>& advertisementPresenter() const { return advertisementPresenter_; }
  const std::shared_ptr<ZTInAppMarketingManagerStorageType>& storage() const { return storage_; }
  // A copy: the app event walk reads the set on a background thread. Any thread.
  std::set<ZTIAMAdvertisementDisplayType> disabledDisplayTypes() const;

  // Keeps both interstitial types of the outside ad network from being triggered by app events,
  // for good.
  void disableInterstitials();
  // Exists so that hosts can call it; shows nothing.
  void showDebugPanel() {}

  // App events and display. While inactive an app event is neither counted nor acted on. The
  // event is counted and the advertisements are walked on a background thread; at most one
  // advertisement that is not an interstitial preload is shown per event (the first in the
  // answer's order that is enabled, valid and has a valid trigger for the key, unless the presenter
  // is busy), every qualifying preload is passed on. Display requests come back to the main loop.
  void handleAppEvent(const std::string& eventKey);
  // Hands the request to the handler delegate or shows it; counts the impression either way it is
  // shown.
  void showAdvertisementWith(const std::shared_ptr<AdvertisementConfigurationData>& configuration);
  // Shows without counting and without any activity, switch, validity or presenter check.
  void forceShowOfAdvertisement(const std::shared_ptr<AdvertisementType>& advertisement);

  // Advertisement actions: the one entry for impressions, clicks, dismissals and postponements.
  // The action runs first, then the event is counted.
  void handleAdvertisementEvent(const std::shared_ptr<ZTIAMAdvertisementEventInterface>& event,
                                const std::shared_ptr<View>& sourceView,
                                const std::shared_ptr<ViewController>& sourceViewController);
  virtual void handleAdvertisementImpression(const std::shared_ptr<ZTIAMAdvertisementEventInterface>& event,
                                             const std::shared_ptr<View>& sourceView,
                                             const std::shared_ptr<ViewController>& sourceViewController);
  // Routes a tap by the advertisement's OK action type.
  virtual void handleAdvertisementClick(const std::shared_ptr<ZTIAMAdvertisementEventInterface>& event,
                                        const std::shared_ptr<View>& sourceView,
                                        const std::shared_ptr<ViewController>& sourceViewController);
  virtual void handleAdvertisementDismiss(const std::shared_ptr<ZTIAMAdvertisementEventInterface>& event,
                                          const std::shared_ptr<View>& sourceView,
                                          const std::shared_ptr<ViewController>& sourceViewController);
  virtual void handleAdvertisementPostpone(const std::shared_ptr<ZTIAMAdvertisementEventInterface>& event,
                                           const std::shared_ptr<View>& sourceView,
                                           const std::shared_ptr<ViewController>& sourceViewController);
  // Only a review question opens the store or review page here; other display types open their
  // links in the view that shows them.
  virtual void processOpenStoreClick(const std::shared_ptr<ZTIAMAdvertisementEventInterface>& event,
                                     const std::shared_ptr<View>& sourceView,
                                     const std::shared_ptr<ViewController>& sourceViewController);
  virtual void processOpenReviewClick(const std::shared_ptr<ZTIAMAdvertisementEventInterface>& event,
                                      const std::shared_ptr<View>& sourceView,
                                      const std::shared_ptr<ViewController>& sourceViewController);
  // Shows the linked advertisement, valid or not, when the tapped one is an interstitial or a
  // review question.
  virtual void processOpenAdClick(const std::shared_ptr<ZTIAMAdvertisementEventInterface>& event,
                                  const std::shared_ptr<View>& sourceView,
                                  const std::shared_ptr<ViewController>& sourceViewController);
  virtual void handleAdvertisementOpenStore(const std::shared_ptr<ZTIAMAdvertisementEventInterface>& event,
                                            const std::shared_ptr<View>& sourceView,
                                            const std::shared_ptr<ViewController>& sourceViewController);
  virtual void handleAdvertisementOpenReview(const std::shared_ptr<ZTIAMAdvertisementEventInterface>& event,
                                             const std::shared_ptr<View>& sourceView,
                                             const std::shared_ptr<ViewController>& sourceViewController);
  // Links from the service are opened only for allowed schemes: "https" and the store schemes
  // ("itms-apps", "itms-appss", "market") from the start, plus the app's own schemes added here.
  // Any other link is refused with a warning; the tap is still counted. Schemes compare without
  // regard to case. False (nothing added) when `scheme` is not a scheme name. Main thread.
  bool allowURLScheme(std::string_view scheme);

  // Presents over the top presented screen of the key window, after `delay` seconds.
  void showReviewWithAdvertisement(const std::shared_ptr<AdvertisementType>& advertisement, double delay);

  // The targets for the space of every valid advertisement (unordered); empty while inactive or for
  // an empty key. Nothing is counted.
  AdvertisementTargetSet getTargetsBySpaceKey(const std::string& spaceKey);
  // The advertisement's targets for the space; `ignoreIsValid` skips its validity check.
  AdvertisementTargetSet getTargetsBySpaceKey(const std::string& spaceKey,
                                              const std::shared_ptr<AdvertisementType>& advertisement,
                                              bool ignoreIsValid);

  // The event key to count for `eventKey`: the first foreground event after the app's version
  // changed becomes "System - app updated", and the new version is kept. Any other key is
  // returned as it is.
  std::string appLaunchToAppUpdatedIfNeededFor(const std::string& eventKey);

 protected:
  void receivedAdvertisements() override;
  void receivedNativeQualityNetwork() override;
  void updated(const std::shared_ptr<ZTIAMAppConfigType>& configuration,
               const std::shared_ptr<ZTIAMAppConfigType>& oldConfiguration) override;

 private:
  // Main thread. Observers that are gone are skipped and dropped at the next walk.
  std::vector<std::weak_ptr<ZTInAppMarketingManagerDelegate>> delegates_;
  std::shared_ptr<ZTIAMAdvertisementPresenter> advertisementPresenter_;
  std::shared_ptr<ZTInAppMarketingManagerStorageType> storage_;
  // Changed on the main thread, read by the app event walk.
  mutable std::mutex disabledDisplayTypesMutex_;
  std::set<ZTIAMAdvertisementDisplayType> disabledDisplayTypes_;  // guarded by disabledDisplayTypesMutex_
  std::shared_ptr<ZTAnalyticsManager> analyticsManager_;
  std::weak_ptr<ZTInAppMarketingManagerAdvertisementHandlerDelegate> advertisementHandlerDelegate_;
  // Main thread. Lower case.
  std::set<std::string, std::less<>> allowedURLSchemes_{"https", "itms-apps", "itms-appss", "market"};
  // The statistics records the last app event walk fetched, and the answer it walked: the next walk
  // over the same answer starts from them instead of looking every record up again.
  std::mutex walkStatsMutex_;
  std::weak_ptr<AdvertisementsRequestResponse> walkStatsResponse_;  // guarded by walkStatsMutex_
  AdvertisementStatsView::Kept walkStats_;                          // guarded by walkStatsMutex_
};

}  // namespace iam
