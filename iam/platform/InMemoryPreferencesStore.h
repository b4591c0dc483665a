#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "iam/platform/PreferencesStore.h"

namespace iam {

// Preferences that live as long as the process: the standard store until a host sets one, and
// the store of tests. Thread-safe.
class InMemoryPreferencesStore final : public PreferencesStore {
 public:
  std::optional<std::vector<std::uint8_t>> dataForKey(std::string_view key) const override;
  bool setData(std::span<const std::uint8_t> data, std::string_view key) override;
  void removeObjectForKey(std::string_view key) override;
  std::vector<std::string> allKeys() const override;

 private:
  mutable std::mutex mutex_;
  std::map<std::string, std::vector<std::uint8_t>, std::less<>> values_;  // guarded by mutex_
};

}  // namespace iam
