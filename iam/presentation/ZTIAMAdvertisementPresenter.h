#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

#include "iam/model/Advertisement.h"
#include "iam/platform/NotificationCenter.h"
#include "iam/platform/RunLoop.h"
#include "iam/platform/ViewController.h"

namespace iam {

// The manager's gate to the screen for what the library shows itself. It refuses while another
// advertisement waits for its delay, over an alert, or when the popup coordinator is busy; it
// draws only the review question (as the platform's store review request) and refuses the host's
// interstitial types. A waiting show is dropped when the app resigns active.
//
// Made with std::make_shared (the delayed show holds it weakly) and owned by the manager. It asks
// whether a popup may be shown through the callback it is made with, since the manager sits above
// it. Presents on the main thread; `isPresentingAdvertisement` may be asked from any thread.
class ZTIAMAdvertisementPresenter : public std::enable_shared_from_this<ZTIAMAdvertisementPresenter> {
 public:
  using CanShowPopup = std::function<bool()>;

  // The popup coordinator's source of the library's own popups.
  static constexpr std::int64_t kPopupSource = 6;
  static constexpr std::string_view kLogFile = "InAppMarketing/source/UI/Advertisement Views/_ZTIAMAdvertisementPresenter";

  explicit ZTIAMAdvertisementPresenter(CanShowPopup canShowPopup);
  ~ZTIAMAdvertisementPresenter();
  ZTIAMAdvertisementPresenter(const ZTIAMAdvertisementPresenter&) = delete;
  ZTIAMAdvertisementPresenter& operator=(const ZTIAMAdvertisementPresenter&) = delete;

  // Shows at once for a delay of 0 or less; otherwise waits `delay` seconds on the main loop.
  void presentAdvertisement(std::shared_ptr<AdvertisementType> advertisement,
                            std::shared_ptr<ViewController> hostViewController, double delay);
  void showReviewQuestionWithAdvertisement(const std::shared_ptr<AdvertisementType>& advertisement,
                                           const std::shared_ptr<ViewController>& hostViewController);
  // True while a delayed show waits or one of the library's popups is on screen.
  bool isPresentingAdvertisement() const;
  bool canShowPopover() const;

  void applicatitionWillResignActiveNotificationReceived(const Notification& notification);

 private:
  void show(const std::shared_ptr<AdvertisementType>& advertisement,
            const std::shared_ptr<ViewController>& hostViewController);

  const CanShowPopup canShowPopup_;  // constant after construction
  mutable std::mutex mutex_;
  std::shared_ptr<Timer> pendingTimer_;  // guarded by mutex_; set while a delayed show waits
};

}  // namespace iam
