#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "iam/manager/ZTInAppMarketingManagerStorageType.h"
#include "iam/platform/PreferencesStore.h"

namespace iam {

// The preferences store as the manager's storage: the last version is one text under
// "InAppMarketingManagerStorageType.lastVersion", archived with the keyed archive. A value that is
// not a text reads as none. Thread-safe as the store is.
class InAppMarketingPreferencesStorage final : public ZTInAppMarketingManagerStorageType {
 public:
  static constexpr std::string_view kLastVersionKey = "InAppMarketingManagerStorageType.lastVersion";

  // None uses the store that is standard when each call is made.
  explicit InAppMarketingPreferencesStorage(std::shared_ptr<PreferencesStore> store = nullptr)
      : store_(std::move(store)) {}

  std::optional<std::string> lastVersion() const override;
  void setLastVersion(std::optional<std::string> value) override;

 private:
  std::shared_ptr<PreferencesStore> store() const { return store_ ? store_ : PreferencesStore::standard(); }

  const std::shared_ptr<PreferencesStore> store_;  // constant after construction
};

}  // namespace iam
