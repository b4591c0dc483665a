#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "iam/platform/URL.h"
#include "iam/platform/ViewController.h"

namespace iam {

enum UIApplicationState : std::int64_t {
  UIApplicationStateActive = 0,
  UIApplicationStateInactive = 1,
  UIApplicationStateBackground = 2,
};

using URLOpenOptions = std::map<std::string, std::string>;

// The running app as the library sees it: its state, its key window and the opening of links.
// The process-wide instance is a `BridgedApplication` until a host installs its own; install it
// before creating the manager. Called on the main thread; `applicationState` from any thread.
class Application {
 public:
  using OpenCompletion = std::function<void(bool success)>;

  virtual ~Application() = default;

  virtual UIApplicationState applicationState() const = 0;
  // None when the app has no window (a host without a UI toolkit).
  virtual std::shared_ptr<Window> keyWindow() const = 0;
  virtual bool canOpenURL(const URL& url) const = 0;
  // The completion (if any) is told whether the link was opened.
  virtual void openURL(const URL& url, const URLOpenOptions& options, OpenCompletion completion) = 0;
  void open(const URL& url) { openURL(url, {}, nullptr); }

  static std::shared_ptr<Application> shared();
  // None goes back to a fresh `BridgedApplication`.
  static void setShared(std::shared_ptr<Application> application);
};

// The default application of a host without a UI toolkit: active, no window, and links handed to
// handlers the host installs. Without an open handler a link is logged and recorded, never opened
// by starting a process; without a can-open handler no link can be opened. The host reports
// foreground changes with `setApplicationState`, which posts the platform's notifications.
// Thread-safe; handlers are called outside the lock, on the caller's thread.
class BridgedApplication final : public Application {
 public:
  using OpenURLHandler = std::function<bool(const URL&, const URLOpenOptions&)>;
  using CanOpenURLHandler = std::function<bool(const URL&)>;

  UIApplicationState applicationState() const override;
  std::shared_ptr<Window> keyWindow() const override;
  bool canOpenURL(const URL& url) const override;
  void openURL(const URL& url, const URLOpenOptions& options, OpenCompletion completion) override;

  // Posts UIApplicationWillResignActiveNotification when leaving the active state (before the
  // change) and UIApplicationDidBecomeActiveNotification when entering it (after). Main thread.
  void setApplicationState(UIApplicationState state);
  void setKeyWindow(std::shared_ptr<Window> window);
  void setOpenURLHandler(OpenURLHandler handler);
  void setCanOpenURLHandler(CanOpenURLHandler handler);
  // Every link given to `openURL`, in order, whether a handler opened it or not.
  std::vector<std::string> openedURLs() const;

 private:
  mutable std::mutex mutex_;
  UIApplicationState state_ = UIApplicationStateActive;  // guarded by mutex_
  std::shared_ptr<Window> keyWindow_;                     // guarded by mutex_
  OpenURLHandler openHandler_;                            // guarded by mutex_
  CanOpenURLHandler canOpenHandler_;                      // guarded by mutex_
  std::vector<std::string> openedURLs_;                   // guarded by mutex_
};

}  // namespace iam
