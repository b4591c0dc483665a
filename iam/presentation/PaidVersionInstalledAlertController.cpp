#include "iam/presentation/PaidVersionInstalledAlertController.h"

#include "iam/platform/KeyedArchiver.h"
#include "iam/platform/KeyedUnarchiver.h"
#include "iam/platform/Localization.h"
#include "iam/platform/PreferencesStore.h"
#include "iam/platform/internal/SaturatingCount.h"

namespace iam {
namespace {

// The counter is an archive whose root value is the integer; anything unreadable counts as 0.
std::int64_t readShowCount() {
  auto data = PreferencesStore::standard()->dataForKey(PaidVersionInstalledAlertController::showKey);
  if (!data) return 0;
  std::int64_t count = 0;
  KeyedUnarchiver::withArchive(*data, [&](const ArchiveValue& root) { count = root.integerValue().value_or(0); });
  return count;
}

void writeShowCount(std::int64_t count) {
  KeyedArchiver archiver;
  archiver.writeInteger(count);
  PreferencesStore::standard()->setData(archiver.takeData(), PaidVersionInstalledAlertController::showKey);
}

}  // namespace

PaidVersionInstalledAlertController::PaidVersionInstalledAlertController() : _application(Application::shared()) {}

PresentResult PaidVersionInstalledAlertController::presentIfNecessaryWithPresentingViewController(
    const std::shared_ptr<ViewController>& presentingViewController, const std::optional<URL>& schemeUrl,
    std::string_view appName) {
  auto conductor = ZTPopupConductor::defaultInstance();
  if (conductor->isPopupQueuedOrShowing(this)) return PresentResultAlreadyPresenting;
  if (alert_ && presentingViewController == alert_) return PresentResultAlreadyPresenting;
  if (!schemeUrl) return PresentResultNotPresentable;
  if (!_application || !_application->canOpenURL(*schemeUrl)) return PresentResultNotPresentable;
  // Compared with 1, not maxShowCount: the two agree, and the literal is what decides.
  if (readShowCount() > 1) return PresentResultMaxShowCountReached;
  // The conductor keeps what it queues alive, so it must be handed the owning pointer.
  auto self = weak_from_this().lock();
  if (!self) return PresentResultNotPresentable;

  alert_ = makeAlert(*schemeUrl, appName);
  presentingViewController_ = presentingViewController;
  conductor->enqueuePopup(std::move(self));
  return PresentResultPresented;
}

std::shared_ptr<AlertController> PaidVersionInstalledAlertController::makeAlert(const URL& schemeUrl,
                                                                               std::string_view appName) {
  auto alert = std::make_shared<AlertController>(Localization::PaidVersionInstalledAlertController::title(),
                                                 Localization::PaidVersionInstalledAlertController::messageFormatted(appName));
  std::weak_ptr<PaidVersionInstalledAlertController> weak = weak_from_this();
  alert->addAction(std::make_shared<AlertAction>(Localization::ButtonTitles::cancel(), UIAlertActionStyleCancel,
                                                 [weak](const AlertAction&) {
                                                   auto self = weak.lock();
                                                   if (!self) return;
                                                   self->alert_.reset();
                                                   self->popupEnded();
                                                 }));
  alert->addAction(std::make_shared<AlertAction>(Localization::ButtonTitles::open(), UIAlertActionStyleDefault,
                                                 [weak, schemeUrl](const AlertAction&) {
                                                   auto self = weak.lock();
                                                   if (!self) return;
                                                   self->alert_.reset();
                                                   self->popupEnded();
                                                   if (self->_application) self->_application->openURL(schemeUrl, {}, nullptr);
                                                 }));
  return alert;
}

ZTPopupPresentResult PaidVersionInstalledAlertController::presentPopup() {
  auto presenting = presentingViewController_.lock();
  if (!presenting || !alert_) return ZTPopupPresentResultCannotPresent;
  std::weak_ptr<PaidVersionInstalledAlertController> weak = weak_from_this();
  presenting->presentViewController(alert_, true, [weak] {
    // Counted only once the alert is on screen: an offer the conductor never showed is no showing.
    if (!weak.lock()) return;
    writeShowCount(oneMore(readShowCount()));
  });
  return ZTPopupPresentResultPresented;
}

void PaidVersionInstalledAlertController::dismissPopup() {
  // Cleared first: ending the popup may release the conductor's hold on this object.
  auto alert = std::move(alert_);
  if (!alert) return;
  std::weak_ptr<PaidVersionInstalledAlertController> weak = weak_from_this();
  alert->dismissViewControllerAnimated(true, [weak] {
    if (auto self = weak.lock()) self->popupEnded();
  });
}

void PaidVersionInstalledAlertController::popupEnded() { ZTPopupConductor::defaultInstance()->popupDidDismiss(this); }

}  // namespace iam
