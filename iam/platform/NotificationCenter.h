#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace iam {

inline constexpr std::string_view UIApplicationWillResignActiveNotification = "UIApplicationWillResignActiveNotification";
inline constexpr std::string_view UIApplicationDidBecomeActiveNotification = "UIApplicationDidBecomeActiveNotification";

struct Notification {
  std::string name;
  const void* object = nullptr;
};

// Named notifications delivered synchronously on the posting thread, in registration order.
// Observers are identified by an address; `removeObserver` takes back all of its observations and,
// once it returns, none of them is running or will run. Thread-safe.
class NotificationCenter {
 public:
  using Handler = std::function<void(const Notification&)>;

  static NotificationCenter& defaultCenter();

  void addObserver(const void* observer, std::string_view name, Handler handler);
  void removeObserver(const void* observer);
  void postNotificationName(std::string_view name, const void* object = nullptr);

 private:
  struct Observation {
    const void* observer;
    std::string name;
    std::shared_ptr<Handler> handler;
  };
  std::recursive_mutex mutex_;
  std::vector<Observation> observations_;  // guarded by mutex_
};

}  // namespace iam
