#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>

namespace iam {

// What a popup answers when its turn comes.
enum ZTPopupPresentResult : std::int64_t {
  ZTPopupPresentResultPresented = 0,
  // It has nothing (left) to show; the conductor drops it and gives the next one its turn.
  ZTPopupPresentResultCannotPresent = 1,
};

// A popup that takes its turn through the popup conductor: the library's own or the host's.
// `source` names who shows it (the library's own popups use source 6).
class ZTPopupPresentable {
 public:
  virtual ~ZTPopupPresentable() = default;
  virtual std::int64_t popupSource() const = 0;
  // Urgent popups are shown even while non-urgent ones are held back.
  virtual bool isUrgentPopup() const { return false; }
  // Its turn has come: show it now. When it is gone, it tells the conductor with `popupDidDismiss`.
  virtual ZTPopupPresentResult presentPopup() = 0;
};

// A popup the app's coordinator may take away before the user has answered it (a host's conductor
// does so when something more important comes up). It still ends with `popupDidDismiss`.
class ZTPopupDismissable {
 public:
  virtual ~ZTPopupDismissable() = default;
  virtual void dismissPopup() = 0;
};

// Coordinates the popups of the whole app so that two never cover each other: one popup on screen
// at a time, the others waiting in the order they were enqueued. A host may hold non-urgent
// popups back (during onboarding, say) with `setCanShowNonUrgentPopups(false)`.
//
// The process-wide instance is this class until a host installs a subclass (for example one that
// asks its own coordinator); install it before creating the manager. Thread-safe; popups are
// presented outside the lock, on the thread that made room for them.
class ZTPopupConductor {
 public:
  ZTPopupConductor() = default;
  virtual ~ZTPopupConductor() = default;
  ZTPopupConductor(const ZTPopupConductor&) = delete;
  ZTPopupConductor& operator=(const ZTPopupConductor&) = delete;

  static std::shared_ptr<ZTPopupConductor> defaultInstance();
  // None goes back to a fresh conductor.
  static void setDefaultInstance(std::shared_ptr<ZTPopupConductor> conductor);

  virtual bool isShowingPopup() const;
  virtual bool isShowingPopupFrom(std::int64_t source) const;
  // True while `popup` waits in the queue or is the one on screen.
  virtual bool isPopupQueuedOrShowing(const ZTPopupPresentable* popup) const;
  virtual bool canShowNonUrgentPopups() const;
  virtual void setCanShowNonUrgentPopups(bool value);

  // Shows the popup at once when nothing is on screen and it may be shown; otherwise it waits.
  virtual void enqueuePopup(std::shared_ptr<ZTPopupPresentable> popup);
  // The popup on screen (or a waiting one) is gone; the next that may be shown gets its turn.
  virtual void popupDidDismiss(const ZTPopupPresentable* popup);
  std::size_t waitingPopupCount() const;

 private:
  // Takes the next popup that may be shown, if the screen is free; called with the lock held.
  std::shared_ptr<ZTPopupPresentable> takeNextLocked();
  void showNext();

  mutable std::mutex mutex_;
  std::shared_ptr<ZTPopupPresentable> showing_;          // guarded by mutex_
  std::deque<std::shared_ptr<ZTPopupPresentable>> waiting_;  // guarded by mutex_
  bool canShowNonUrgent_ = true;                          // guarded by mutex_
};

}  // namespace iam
