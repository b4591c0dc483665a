#pragma once

#include <optional>
#include <string>

namespace iam {

// Where the manager keeps the last app version it saw, to tell an update from an ordinary launch.
// The default keeps it in the preferences store (`InAppMarketingPreferencesStorage`); a host or a
// test may hand its own to `ZTInAppMarketingManager::create`. Called on the main thread.
class ZTInAppMarketingManagerStorageType {
 public:
  virtual ~ZTInAppMarketingManagerStorageType() = default;
  virtual std::optional<std::string> lastVersion() const = 0;
  // None forgets the version.
  virtual void setLastVersion(std::optional<std::string> value) = 0;
};

}  // namespace iam
