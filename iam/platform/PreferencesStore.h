#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace iam {

// The app's key-value preferences: text keys, archive bytes as values. Implementations are
// thread-safe; each write is atomic (a reader sees the old bytes or the new ones, never a mix,
// also after a crash).
class PreferencesStore {
 public:
  virtual ~PreferencesStore() = default;

  virtual std::optional<std::vector<std::uint8_t>> dataForKey(std::string_view key) const = 0;
  // False when the value did not reach lasting storage. The SQLite store keeps it in memory then
  // (reads see it) and writes it with its next write that succeeds.
  virtual bool setData(std::span<const std::uint8_t> data, std::string_view key) = 0;
  virtual void removeObjectForKey(std::string_view key) = 0;
  virtual std::vector<std::string> allKeys() const = 0;

  // The process-wide store the library uses. The host sets it before creating the manager;
  // until then it is an in-memory store. Setting none goes back to a fresh in-memory store.
  static std::shared_ptr<PreferencesStore> standard();
  static void setStandard(std::shared_ptr<PreferencesStore> store);
};

}  // namespace iam
