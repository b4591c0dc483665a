#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "iam/manager/ZTInAppMarketingManagerDelegate.h"
#include "iam/model/IdentitySet.h"
#include "iam/net/RequestTicketType.h"
#include "iam/net/ZTOspreyServiceRequestResultInterface.h"
#include "iam/platform/NotificationCenter.h"
#include "iam/platform/RunLoop.h"
#include "iam/service/AdvertisementsRequestResponse.h"
#include "iam/service/IAMWebServiceParameters.h"
#include "iam/service/NativeQualityNetworkResponse.h"
#include "iam/stats/ZTIAMStatsHelper.h"
#include "iam/validity/ZTIAMAdvertisementValidityHelper.h"

namespace iam {

// The manager's data and the decisions that need no user interface: the two cached answers of
// the marketing service and their refresh, the statistics store, the refresh timer and the
// activity flags. `ZTInAppMarketingManager` adds what touches the host app.
//
// Made with std::make_shared (callbacks hold it weakly, cache saves strongly). Main thread, except
// where an operation says otherwise. Construction loads the cached answers and the statistics
// synchronously from the standard preferences store; install the store (and the other platform
// services) before.
class ZTInAppMarketingManagerLogic : public std::enable_shared_from_this<ZTInAppMarketingManagerLogic> {
 public:
  static constexpr std::string_view kMostRecentAdvertisementResponseKey =
      "ZTInAppMarketingManager_MostRecentAdvertisementResponse";
  static constexpr std::string_view kMostRecentNativeQualityNetworkResponseKey =
      "ZTInAppMarketingManager_MostRecentNativeQualityNetworkResponse";
  // The refresh timer only asks whether the data has expired this often; it does not fetch.
  static constexpr TimeInterval kAutoUpdateInterval = 30;
  static constexpr std::string_view kLogFile = "InAppMarketing/source/Logic/_ZTInAppMarketingManagerLogic";

  virtual ~ZTInAppMarketingManagerLogic();
  ZTInAppMarketingManagerLogic(const ZTInAppMarketingManagerLogic&) = delete;
  ZTInAppMarketingManagerLogic& operator=(const ZTInAppMarketingManagerLogic&) = delete;

  // Whether info lines are written: the platform's info switch, off unless a host or tool turned
  // it on. Any thread.
  static bool logInfoEnabled();

  // Activation. While inactive the manager neither refreshes nor reacts to app events; turning it
  // on refreshes expired data and starts the refresh timer, unless the app is in the background.
  void setActive(bool value);
  bool active() const { return active_; }

  // Data. Thread-safe: they read the answer held at the time of the call.
  std::optional<AdvertisementList> advertisements() const;
  std::shared_ptr<ZTIAMAppConfigType> appConfiguration() const;
  // The ranked apps of the held answer; never the list stored by `setNativeQualityNetworkRankedApps`.
  std::optional<RankedAppList> nativeQualityNetworkRankedApps() const;
  void setNativeQualityNetworkRankedApps(RankedAppList value) { nativeQualityNetworkRankedApps_ = std::move(value); }
  // The first advertisement of the held answer with this id.
  std::shared_ptr<AdvertisementType> getAdvertisementByAdvertisementId(std::string_view advertisementId) const;
  std::shared_ptr<ZTIAMAdvertisementStats> getAdvertisementStatsByAdvertisementId(const std::string& advertisementId);
  std::shared_ptr<ZTIAMAppEventStats> getAppEventStatsByEventKey(const std::string& eventKey);
  // Whether the popup coordinator lets a popup be shown now. Any thread.
  bool canShowPopup() const;

  // Validity with the held statistics and answer. Any thread; the app event walk calls them in the
  // background.
  bool isAdvertisementValid(const std::shared_ptr<AdvertisementType>& advertisement);
  // Against the advertisements of the held answer.
  bool isAdvertisementTriggerValid(const std::shared_ptr<AdvertisementTriggerType>& trigger);
  bool isAdvertisementTriggerValid(const std::shared_ptr<AdvertisementTriggerType>& trigger,
                                   const AdvertisementList& advertisements);
  // Some valid trigger of the advertisement for the key (which one, when several are, is not
  // defined); none when there is none.
  std::shared_ptr<AdvertisementTriggerType> findValidTriggerForAdvertisement(
      const std::shared_ptr<AdvertisementType>& advertisement, const std::string& eventKey,
      const AdvertisementList& advertisements);

  // Counting, with an info line each. Any thread.
  void updateLogAndStatisticsWithAppEventKey(const std::string& eventKey);
  void updateLogAndStatisticsWithTrigger(const std::shared_ptr<AdvertisementTriggerType>& trigger);
  // Impressions, clicks, dismissals and postponements; other event types are not counted.
  void updateLogAndStatisticsWithEvent(const std::shared_ptr<ZTIAMAdvertisementEventInterface>& event);

  std::shared_ptr<AdvertisementsRequestResponse> mostRecentAdvertisementResponse() const;
  std::shared_ptr<NativeQualityNetworkResponse> mostRecentNativeQualityNetworkResponse() const;
  ZTIAMStatsHelper& statsHelper() const { return *statsHelper_; }
  // Every advertisement that a newer answer replaced. Nothing reads or empties it.
  const IdentitySet<AdvertisementType>& oldAdvertisements() const { return oldAdvertisements_; }
  const std::shared_ptr<Timer>& autoUpdateTimer() const { return autoUpdateTimer_; }
  const std::shared_ptr<RequestTicketType>& activeAdvertisementsRequestTicket() const {
    return activeAdvertisementsRequestTicket_;
  }
  const std::shared_ptr<RequestTicketType>& activeNativeQualityNetworkRequestTicket() const {
    return activeNativeQualityNetworkRequestTicket_;
  }

  bool boughtAdFreeUpgrade() const { return boughtAdFreeUpgrade_; }
  // A changed value fetches the advertisements at once, also while inactive.
  void setBoughtAdFreeUpgrade(bool value);
  bool isNativeQualityNetworkEnabled() const { return nativeQualityNetworkEnabled_; }
  // Turning it on fetches the ranked apps when they are missing or expired, also while inactive.
  void setNativeQualityNetworkEnabled(bool value);

  // Drops the advertisements answer and its cache; ranked apps and statistics stay.
  void reset();
  // Empties the statistics; the answers stay.
  void resetAllStats();

  // Refresh. At most one request of each kind is in flight; a call while one is, is dropped.
  void performAdvertisementUpdateCall();
  void performNativeQualityNetworkUpdateCall();
  IAMWebServiceParameters getDefaultWebServiceParameters() const;
  void updateExpiredDataForced(bool forced);
  void forceRefreshOfData();
  void startAutoUpdateTimer();
  void stopAutoUpdateTimer();
  void autoUpdateTimerFired();
  void appDidBecomeActive(const Notification& notification);
  void appWillResignActive(const Notification& notification);

  // Cache. Saves run on a background thread and write the answer held when they run.
  void saveAdvertisementResponse();
  void saveNativeQualityNetworkResponse();
  void loadAdvertisementResponse();
  void loadNativeQualityNetworkResponse();

 protected:
  // Whether the trigger fires on `eventKey`. Keys often differ only at their end ("screen-1",
  // "screen-2"), so the last character is compared first.
  static bool listensTo(const AdvertisementTriggerType& trigger, const std::string& eventKey) {
    const std::string& key = trigger.eventKey();
    return key.size() == eventKey.size() && (key.empty() || key.back() == eventKey.back()) && key == eventKey;
  }
  // The app event walk's form, over the walk's view of the list with the advertisement at `index`
  // there: the popup spacing of every trigger asked about with one memo is judged by the
  // impressions as they were at its first use.
  std::shared_ptr<AdvertisementTriggerType> findValidTriggerForAdvertisement(
      const AdvertisementType& advertisement, std::size_t index, const std::string& eventKey,
      AdvertisementStatsView& view, const std::shared_ptr<const ZTIAMAppConfigType>& appConfig,
      ZTIAMAdvertisementValidityHelper::PopupImpressionMemo& memo);

  // The two counting calls above without their saves: an app event walk counts as it goes and
  // saves once it ends, so that no save runs beside it. False when nothing was counted.
  void countAppEventKeyUnsaved(const std::string& eventKey);
  bool countTriggerUnsaved(const std::shared_ptr<AdvertisementTriggerType>& trigger);

  // Counts replacements of the held answer; read before the answer, it tells a walk cheaply
  // whether the answer it holds may be out of date.
  std::uint64_t advertisementResponseChanges() const {
    return advertisementResponseChanges_.load(std::memory_order_acquire);
  }

  // Only through std::make_shared (by the manager's factory): saves and callbacks need the owner.
  ZTInAppMarketingManagerLogic();

  // Told after each answer (and each not-modified answer); empty here.
  virtual void receivedAdvertisements() {}
  virtual void receivedNativeQualityNetwork() {}
  virtual void updated(const std::shared_ptr<ZTIAMAppConfigType>& configuration,
                       const std::shared_ptr<ZTIAMAppConfigType>& oldConfiguration) {
    (void)configuration;
    (void)oldConfiguration;
  }

 private:
  void advertisementsRequestCompleted(const ZTOspreyServiceRequestResultInterface& result);
  void nativeQualityNetworkRequestCompleted(const ZTOspreyServiceRequestResultInterface& result);
  void setMostRecentAdvertisementResponse(std::shared_ptr<AdvertisementsRequestResponse> value);
  void setMostRecentNativeQualityNetworkResponse(std::shared_ptr<NativeQualityNetworkResponse> value);

  // Main thread.
  std::shared_ptr<Timer> autoUpdateTimer_;
  // The held answers: replaced on the main thread, read by saves on background threads.
  mutable std::mutex responseMutex_;
  std::shared_ptr<AdvertisementsRequestResponse> mostRecentAdvertisementResponse_;       // guarded by responseMutex_
  std::shared_ptr<NativeQualityNetworkResponse> mostRecentNativeQualityNetworkResponse_;  // guarded by responseMutex_
  std::atomic<std::uint64_t> advertisementResponseChanges_{0};  // written under responseMutex_
  // Constant after construction; shared with the statistics' own save queue.
  std::unique_ptr<ZTIAMStatsHelper> statsHelper_;
  // Main thread.
  IdentitySet<AdvertisementType> oldAdvertisements_;
  std::shared_ptr<RequestTicketType> activeAdvertisementsRequestTicket_;
  std::shared_ptr<RequestTicketType> activeNativeQualityNetworkRequestTicket_;
  bool active_ = false;
  bool boughtAdFreeUpgrade_ = false;
  bool nativeQualityNetworkEnabled_ = false;
  RankedAppList nativeQualityNetworkRankedApps_;
};

}  // namespace iam
