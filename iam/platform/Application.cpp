#include "iam/platform/Application.h"

#include <exception>

#include "iam/platform/LogBridge.h"
#include "iam/platform/NotificationCenter.h"

namespace iam {
namespace {

constexpr std::string_view kLogFile = "iam/platform/Application";

std::mutex& sharedMutex() {
  static std::mutex m;
  return m;
}

std::shared_ptr<Application>& sharedApplication() {
  static std::shared_ptr<Application> application;  // guarded by sharedMutex()
  return application;
}

}  // namespace

std::shared_ptr<Application> Application::shared() {
  std::lock_guard lock(sharedMutex());
  auto& application = sharedApplication();
  if (!application) application = std::make_shared<BridgedApplication>();
  return application;
}

void Application::setShared(std::shared_ptr<Application> application) {
  std::shared_ptr<Application> previous;  // released outside the lock
  std::lock_guard lock(sharedMutex());
  previous = std::move(sharedApplication());
  sharedApplication() = std::move(application);
}

UIApplicationState BridgedApplication::applicationState() const {
  std::lock_guard lock(mutex_);
  return state_;
}

std::shared_ptr<Window> BridgedApplication::keyWindow() const {
  std::lock_guard lock(mutex_);
  return keyWindow_;
}

bool BridgedApplication::canOpenURL(const URL& url) const {
  CanOpenURLHandler handler;
  {
    std::lock_guard lock(mutex_);
    handler = canOpenHandler_;
  }
  if (!handler) return false;
  try {
    return handler(url);
  } catch (...) {
    LogBridge::error("IAM: The can-open handler threw for " + url.absoluteString(), kLogFile, __LINE__, "canOpenURL");
    return false;
  }
}

void BridgedApplication::openURL(const URL& url, const URLOpenOptions& options, OpenCompletion completion) {
  OpenURLHandler handler;
  {
    std::lock_guard lock(mutex_);
    openedURLs_.push_back(url.absoluteString());
    handler = openHandler_;
  }
  bool opened = false;
  if (!handler) {
    LogBridge::debug("IAM: No URL handler is installed; not opening " + url.absoluteString(), kLogFile, __LINE__,
                     "openURL");
  } else {
    try {
      opened = handler(url, options);
    } catch (...) {
      LogBridge::error("IAM: The URL handler threw for " + url.absoluteString(), kLogFile, __LINE__, "openURL");
    }
  }
  if (completion) completion(opened);
}

void BridgedApplication::setApplicationState(UIApplicationState state) {
  UIApplicationState previous;
  {
    std::lock_guard lock(mutex_);
    previous = state_;
  }
  if (previous == state) return;
  const bool resigns = previous == UIApplicationStateActive;
  if (resigns) NotificationCenter::defaultCenter().postNotificationName(UIApplicationWillResignActiveNotification, this);
  {
    std::lock_guard lock(mutex_);
    state_ = state;
  }
  if (state == UIApplicationStateActive)
    NotificationCenter::defaultCenter().postNotificationName(UIApplicationDidBecomeActiveNotification, this);
}

void BridgedApplication::setKeyWindow(std::shared_ptr<Window> window) {
  std::lock_guard lock(mutex_);
  keyWindow_ = std::move(window);
}

void BridgedApplication::setOpenURLHandler(OpenURLHandler handler) {
  std::lock_guard lock(mutex_);
  openHandler_ = std::move(handler);
}

void BridgedApplication::setCanOpenURLHandler(CanOpenURLHandler handler) {
  std::lock_guard lock(mutex_);
  canOpenHandler_ = std::move(handler);
}

std::vector<std::string> BridgedApplication::openedURLs() const {
  std::lock_guard lock(mutex_);
  return openedURLs_;
}

}  // namespace iam
