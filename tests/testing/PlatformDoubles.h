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
// fresh popup conductor and a split-screen switch; review requests are counted from its start.
// Main thread.
class PlatformDoubles {
 public:
  PlatformDoubles()
      : application_(std::make_shared<BridgedApplication>()),
        conductor_(std::make_shared<ZTPopupConductor>()),
        reviewsBefore_(SKStoreReviewController::requestCount()),
        splitScreen_(std::make_shared<std::atomic<bool>>(false)) {
    Application::setShared(application_);
    ZTPopupConductor::setDefaultInstance(conductor_);
    IdiomTools::setSplitScreenModeProvider([split = splitScreen_] { return split->load(); });
  }
  ~PlatformDoubles() {
    IdiomTools::setSplitScreenModeProvider(nullptr);
    ZTPopupConductor::setDefaultInstance(nullptr);
    Application::setShared(nullptr);
  }
  PlatformDoubles(const PlatformDoubles&) = delete;
  PlatformDoubles& operator=(const PlatformDoubles&) = delete;

  BridgedApplication& application() { return *application_; }
  ZTPopupConductor& conductor() { return *conductor_; }
  std::uint64_t reviewRequests() const { return SKStoreReviewController::requestCount() - reviewsBefore_; }
  void setSplitScreen(bool on) { splitScreen_->store(on); }

 private:
  const std::shared_ptr<BridgedApplication> application_;
  const std::shared_ptr<ZTPopupConductor> conductor_;
  const std::uint64_t reviewsBefore_;
  const std::shared_ptr<std::atomic<bool>> splitScreen_;
};

// A popup that stays on screen until the test dismisses it.
class TestPopup final : public ZTPopupPresentable {
 public:
  explicit TestPopup(std::int64_t source, bool urgent = false) : source_(source), urgent_(urgent) {}
  std::int64_t popupSource() const override { return source_; }
  bool isUrgentPopup() const override { return urgent_; }
  ZTPopupPresentResult presentPopup() override {
    ++presented;
    return ZTPopupPresentResultPresented;
  }
  int presented = 0;

 private:
  const std::int64_t source_;
  const bool urgent_;
};

}  // namespace iam::testing
