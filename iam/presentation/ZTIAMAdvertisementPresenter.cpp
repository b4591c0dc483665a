#include "iam/presentation/ZTIAMAdvertisementPresenter.h"

#include "iam/platform/AlertController.h"
#include "iam/platform/IdiomTools.h"
#include "iam/platform/LogBridge.h"
#include "iam/platform/SKStoreReviewController.h"
#include "iam/platform/ZTPopupConductor.h"

namespace iam {
namespace {

constexpr std::string_view kPresent = "-[ZTIAMAdvertisementPresenter presentAdvertisement:hostViewController:delay:]";
constexpr std::string_view kShowReview =
    "-[ZTIAMAdvertisementPresenter showReviewQuestionWithAdvertisement:hostViewController:]";

}  // namespace

ZTIAMAdvertisementPresenter::ZTIAMAdvertisementPresenter(CanShowPopup canShowPopup)
    : canShowPopup_(std::move(canShowPopup)) {
  // Removed in the destructor, which waits for a delivery in progress; `this` outlives every call.
  NotificationCenter::defaultCenter().addObserver(
      this, UIApplicationWillResignActiveNotification,
      [this](const Notification& n) { applicatitionWillResignActiveNotificationReceived(n); });
}

ZTIAMAdvertisementPresenter::~ZTIAMAdvertisementPresenter() {
  NotificationCenter::defaultCenter().removeObserver(this);
  std::shared_ptr<Timer> timer;
  {
    std::lock_guard lock(mutex_);
    timer = std::move(pendingTimer_);
  }
  if (timer) timer->invalidate();
}

void ZTIAMAdvertisementPresenter::presentAdvertisement(std::shared_ptr<AdvertisementType> advertisement,
                                                       std::shared_ptr<ViewController> hostViewController,
                                                       double delay) {
  {
    std::lock_guard lock(mutex_);
    if (pendingTimer_) {
      LogBridge::debug("IAM: Currently another advertisement is in the pipeline to be shown. We ignore this present "
                       "request.",
                       kLogFile, 45, kPresent);
      return;
    }
  }
  if (dynamic_cast<const AlertController*>(hostViewController.get())) {
    LogBridge::debug("IAM: Currently showing a UIAlertController so we cannot show any advertisement view controllers.",
                     kLogFile, 52, kPresent);
    return;
  }
  if (!canShowPopover()) {
    LogBridge::warning("IAM: Unable to show advertisement as another popup is already being shown.", kLogFile, 59,
                       kPresent);
    return;
  }
  auto block = [weak = weak_from_this(), advertisement = std::move(advertisement),
                host = std::move(hostViewController)] {
    auto self = weak.lock();
    if (!self) return;
    {
      std::lock_guard lock(self->mutex_);
      self->pendingTimer_.reset();  // it has fired; released, not invalidated
    }
    self->show(advertisement, host);
  };
  if (delay > 0) {
    auto timer = Timer::scheduledTimerWithTimeInterval(delay, false, [block = std::move(block)](Timer&) { block(); });
    std::lock_guard lock(mutex_);
    pendingTimer_ = std::move(timer);
  } else {
    block();
  }
}

void ZTIAMAdvertisementPresenter::show(const std::shared_ptr<AdvertisementType>& advertisement,
                                       const std::shared_ptr<ViewController>& hostViewController) {
  if (!advertisement) return;
  switch (advertisement->displayType()) {
    case ZTIAMAdvertisementDisplayTypeDfpInterstitialPreload:
    case ZTIAMAdvertisementDisplayTypeDfpInterstitial:
      LogBridge::warning("IAM: Not supported via InAppMarketing.", kLogFile, 87, kPresent);
      break;
    case ZTIAMAdvertisementDisplayTypeReviewQuestion:
      showReviewQuestionWithAdvertisement(advertisement, hostViewController);
      break;
    default:
      break;  // the presenter draws no other kind itself
  }
}

void ZTIAMAdvertisementPresenter::showReviewQuestionWithAdvertisement(
    const std::shared_ptr<AdvertisementType>& /*advertisement*/,
    const std::shared_ptr<ViewController>& /*hostViewController*/) {
  if (!canShowPopover()) {
    LogBridge::warning("IAM: Ignored review question, PopupConductor is occupied", kLogFile, 131, kShowReview);
    return;
  }
  if (IdiomTools::splitScreenMode()) {
    LogBridge::warning("IAM: Ignored review question, device is in SplitScreen", kLogFile, 138, kShowReview);
    return;
  }
  SKStoreReviewController::requestReview();
}

bool ZTIAMAdvertisementPresenter::isPresentingAdvertisement() const {
  if (ZTPopupConductor::defaultInstance()->isShowingPopupFrom(kPopupSource)) return true;
  std::lock_guard lock(mutex_);
  return pendingTimer_ != nullptr;
}

bool ZTIAMAdvertisementPresenter::canShowPopover() const { return canShowPopup_ ? canShowPopup_() : false; }

void ZTIAMAdvertisementPresenter::applicatitionWillResignActiveNotificationReceived(const Notification&) {
  std::shared_ptr<Timer> timer;
  {
    std::lock_guard lock(mutex_);
    timer = std::move(pendingTimer_);
  }
  if (timer) timer->invalidate();
}

}  // namespace iam
