#include "iam/platform/NotificationCenter.h"

#include <algorithm>
#include <exception>

#include "iam/platform/LogBridge.h"

namespace iam {
namespace {
constexpr std::string_view kLogFile = "iam/platform/NotificationCenter";
}  // namespace

NotificationCenter& NotificationCenter::defaultCenter() {
  // Never destroyed: observers may remove themselves from static destructors at exit.
  static NotificationCenter* const center = new NotificationCenter();
  return *center;
}

void NotificationCenter::addObserver(const void* observer, std::string_view name, Handler handler) {
  if (!handler) return;
  std::lock_guard lock(mutex_);
  observations_.push_back(Observation{observer, std::string(name), std::make_shared<Handler>(std::move(handler))});
}

void NotificationCenter::removeObserver(const void* observer) {
  std::vector<Observation> removed;  // handlers are destroyed after the lock: they may own anything
  std::lock_guard lock(mutex_);
  // Posts hold the lock while they deliver, so taking it waits for a delivery on another thread to
  // end; a handler removing observers on its own thread goes through (the mutex is recursive).
  auto keep = std::stable_partition(observations_.begin(), observations_.end(),
                                    [observer](const Observation& o) { return o.observer != observer; });
  removed.assign(std::make_move_iterator(keep), std::make_move_iterator(observations_.end()));
  observations_.erase(keep, observations_.end());
}

void NotificationCenter::postNotificationName(std::string_view name, const void* object) {
  const Notification notification{std::string(name), object};
  std::lock_guard lock(mutex_);
  // Handlers may add or remove observations while we deliver: walk a snapshot, and skip any that
  // was removed in the meantime. Observers added during the post wait for the next one.
  std::vector<std::shared_ptr<Handler>> matching;
  for (const auto& o : observations_)
    if (o.name == name) matching.push_back(o.handler);
  for (const auto& handler : matching) {
    const bool stillObserving = std::any_of(observations_.begin(), observations_.end(),
                                            [&](const Observation& o) { return o.handler == handler; });
    if (!stillObserving) continue;
    try {
      (*handler)(notification);
    } catch (const std::exception& e) {
      LogBridge::error(std::string("IAM: An observer of ") + notification.name + " threw: " + e.what(), kLogFile,
                       __LINE__, "postNotificationName");
    } catch (...) {
      LogBridge::error("IAM: An observer of " + notification.name + " threw an unknown exception", kLogFile,
                       __LINE__, "postNotificationName");
    }
  }
}

}  // namespace iam
