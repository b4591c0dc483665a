#include "iam/platform/ZTPopupConductor.h"

#include <algorithm>

#include "iam/platform/LogBridge.h"

namespace iam {
namespace {

constexpr std::string_view kLogFile = "iam/platform/ZTPopupConductor";

std::mutex& defaultMutex() {
  static std::mutex m;
  return m;
}

std::shared_ptr<ZTPopupConductor>& defaultConductor() {
  static std::shared_ptr<ZTPopupConductor> conductor;  // guarded by defaultMutex()
  return conductor;
}

}  // namespace

std::shared_ptr<ZTPopupConductor> ZTPopupConductor::defaultInstance() {
  std::lock_guard lock(defaultMutex());
  auto& conductor = defaultConductor();
  if (!conductor) conductor = std::make_shared<ZTPopupConductor>();
  return conductor;
}

void ZTPopupConductor::setDefaultInstance(std::shared_ptr<ZTPopupConductor> conductor) {
  std::shared_ptr<ZTPopupConductor> previous;  // released outside the lock
  std::lock_guard lock(defaultMutex());
  previous = std::move(defaultConductor());
  defaultConductor() = std::move(conductor);
}

bool ZTPopupConductor::isShowingPopup() const {
  std::lock_guard lock(mutex_);
  return showing_ != nullptr;
}

bool ZTPopupConductor::isShowingPopupFrom(std::int64_t source) const {
  std::lock_guard lock(mutex_);
  return showing_ && showing_->popupSource() == source;
}

bool ZTPopupConductor::isPopupQueuedOrShowing(const ZTPopupPresentable* popup) const {
  if (!popup) return false;
  std::lock_guard lock(mutex_);
  return showing_.get() == popup ||
         std::any_of(waiting_.begin(), waiting_.end(), [&](const auto& p) { return p.get() == popup; });
}

bool ZTPopupConductor::canShowNonUrgentPopups() const {
  std::lock_guard lock(mutex_);
  return canShowNonUrgent_;
}

void ZTPopupConductor::setCanShowNonUrgentPopups(bool value) {
  {
    std::lock_guard lock(mutex_);
    canShowNonUrgent_ = value;
  }
  showNext();
}

void ZTPopupConductor::enqueuePopup(std::shared_ptr<ZTPopupPresentable> popup) {
  if (!popup) return;
  {
    std::lock_guard lock(mutex_);
    waiting_.push_back(std::move(popup));
  }
  showNext();
}

void ZTPopupConductor::popupDidDismiss(const ZTPopupPresentable* popup) {
  std::shared_ptr<ZTPopupPresentable> gone;  // released outside the lock
  {
    std::lock_guard lock(mutex_);
    if (showing_.get() == popup) {
      gone = std::move(showing_);
    } else {
      auto it = std::find_if(waiting_.begin(), waiting_.end(), [&](const auto& p) { return p.get() == popup; });
      if (it == waiting_.end()) return;
      gone = std::move(*it);
      waiting_.erase(it);
    }
  }
  showNext();
}

std::size_t ZTPopupConductor::waitingPopupCount() const {
  std::lock_guard lock(mutex_);
  return waiting_.size();
}

std::shared_ptr<ZTPopupPresentable> ZTPopupConductor::takeNextLocked() {
  if (showing_) return nullptr;
  auto it = std::find_if(waiting_.begin(), waiting_.end(),
                         [&](const auto& p) { return canShowNonUrgent_ || p->isUrgentPopup(); });
  if (it == waiting_.end()) return nullptr;
  showing_ = std::move(*it);
  waiting_.erase(it);
  return showing_;
}

void ZTPopupConductor::showNext() {
  std::shared_ptr<ZTPopupPresentable> next;
  {
    std::lock_guard lock(mutex_);
    next = takeNextLocked();
  }
  if (!next) return;
  ZTPopupPresentResult result = ZTPopupPresentResultCannotPresent;
  try {
    result = next->presentPopup();
  } catch (...) {
    LogBridge::error("IAM: A popup threw while being presented.", kLogFile, __LINE__, "showNext");
  }
  // A popup that could not be shown must not hold the screen for the ones behind it.
  if (result != ZTPopupPresentResultPresented) popupDidDismiss(next.get());
}

}  // namespace iam
