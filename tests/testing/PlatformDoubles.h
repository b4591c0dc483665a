#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "iam/platform/Application.h"
#include "iam/platform/IdiomTools.h"
#include "iam/platform/SKStoreReviewController.h"
#include "iam/platform/ZTPopupConductor.h"

namespace iam::testing {

// The screen services a test drives, installed for its lifetime and put back to the defaults
// afterwards: an application whose state the test sets (posting the platform's notifications), a
// fresh popup conductor, a split-screen switch and a review handler that counts. Main thread.
class PlatformDoubles {
 public:
  PlatformDoubles()
      : application_(std::make_shared<BridgedApplication>()),
        conductor_(std::make_shared<ZTPopupConductor>()),
        reviews_(std::make_shared<std::atomic<int>>(0)),
        splitScreen_(std::make_shared<std::atomic<bool>>(false)) {
    Application::setShared(application_);
    ZTPopupConductor::setDefaultInstance(conductor_);
    SKStoreReviewController::setRequestReviewHandler([reviews = reviews_] { ++*reviews; });
    IdiomTools::setSplitScreenModeProvider([split = splitScreen_] { return split->load(); });
  }
  ~PlatformDoubles() {
    IdiomTools::setSplitScreenModeProvider(nullptr);
    SKStoreReviewController::setRequestReviewHandler(nullptr);
    ZTPopupConductor::setDefaultInstance(nullptr);
    Application::setShared(nullptr);
  }
  PlatformDoubles(const PlatformDoubles&) = delete;
  PlatformDoubles& operator=(const PlatformDoubles&) = delete;

  BridgedApplication& application() { return *application_; }
  ZTPopupConductor& conductor() { return *conductor_; }
  int reviewRequests() const { return reviews_->load(); }
  void setSplitScreen(bool on) { splitScreen_->store(on); }

 private:
  const std::shared_ptr<BridgedApplication> application_;
  const std::shared_ptr<ZTPopupConductor> conductor_;
  const std::shared_ptr<std::atomic<int>> reviews_;
  const std::shared_ptr<std::atomic<bool>> splitScreen_;
};

// A popup that stays on screen until the test dismisses it.
class TestPopup final : public ZTPopupPresentable {
 public:
  explicit TestPopup(std::int64_t source, bool urgent = false) : source_(source), urgent_(urgent) {}
  std::int64_t popupSource() const override { return source_; }
  bool isUrgentPopup() const override { return urgent_; }
  void presentPopup() override { ++presented; }
  int presented = 0;

 private:
  const std::int64_t source_;
  const bool urgent_;
};

}  // namespace iam::testing
