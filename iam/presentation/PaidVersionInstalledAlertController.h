#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "iam/platform/AlertController.h"
#include "iam/platform/Application.h"
#include "iam/platform/URL.h"
#include "iam/platform/ViewController.h"
#include "iam/platform/ZTPopupConductor.h"

namespace iam {

enum PresentResult : std::int64_t {
  // No scheme URL, or the full edition cannot be opened through it.
  PresentResultNotPresentable = 0,
  // The alert was made and handed to the popup conductor, which shows it when it is its turn.
  PresentResultPresented = 1,
  PresentResultMaxShowCountReached = 2,
  // This alert is already queued or on screen.
  PresentResultAlreadyPresenting = 3,
};

// Offers the user of a free edition to switch to the full edition installed beside it, at most
// twice per installation (counted in the standard preferences store when the alert is actually on
// screen). The host calls it directly; the rest of the library does not use it.
//
// Made with std::make_shared: the popup conductor holds it while it is queued or shown, and the
// alert's buttons hold it weakly. Takes `Application::shared()` when made, so install the host's
// application first. Main thread only: it presents view controllers.
class PaidVersionInstalledAlertController final
    : public ZTPopupPresentable,
      public ZTPopupDismissable,
      public std::enable_shared_from_this<PaidVersionInstalledAlertController> {
 public:
  static constexpr std::string_view showKey = "paidVersionInstalledAlertControllerShow";
  static constexpr std::int64_t maxShowCount = 2;
  // The popup conductor's source of the library's own popups.
  static constexpr std::int64_t kPopupSource = 6;

  PaidVersionInstalledAlertController();
  PaidVersionInstalledAlertController(const PaidVersionInstalledAlertController&) = delete;
  PaidVersionInstalledAlertController& operator=(const PaidVersionInstalledAlertController&) = delete;

  // `schemeUrl` opens the full edition; `appName` is its display name, shown in the message.
  PresentResult presentIfNecessaryWithPresentingViewController(
      const std::shared_ptr<ViewController>& presentingViewController, const std::optional<URL>& schemeUrl,
      std::string_view appName);

  std::int64_t popupSource() const override { return kPopupSource; }
  ZTPopupPresentResult presentPopup() override;
  void dismissPopup() override;

  // The alert while it is offered or on screen.
  const std::shared_ptr<AlertController>& alert() const { return alert_; }

 private:
  std::shared_ptr<AlertController> makeAlert(const URL& schemeUrl, std::string_view appName);
  void popupEnded();

  const std::shared_ptr<Application> _application;  // constant after construction
  std::shared_ptr<AlertController> alert_;
  std::weak_ptr<ViewController> presentingViewController_;
};

}  // namespace iam
