#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
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
  // False when the write failed (the store keeps the previous value then).
  virtual bool setData(std::span<const std::uint8_t> data, std::string_view key) = 0;
  virtual void removeObjectForKey(std::string_view key) = 0;
  virtual std::vector<std::string> allKeys() const = 0;

  // The process-wide store the library uses. The host sets it before creating the manager;
  // until then it is an in-memory store. Setting none goes back to a fresh in-memory store.
  static std::shared_ptr<PreferencesStore> standard();
  static void setStandard(std::shared_ptr<PreferencesStore> store);
};

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

// SQLite file with one table (key TEXT PRIMARY KEY, value BLOB), WAL journal, synchronous=NORMAL.
// One connection guarded by a mutex; writes are single statements, hence atomic.
class SQLitePreferencesStore final : public PreferencesStore {
 public:
  // None when the file cannot be opened or initialised (the reason is logged).
  static std::shared_ptr<SQLitePreferencesStore> open(const std::string& path);
  ~SQLitePreferencesStore() override;

  std::optional<std::vector<std::uint8_t>> dataForKey(std::string_view key) const override;
  bool setData(std::span<const std::uint8_t> data, std::string_view key) override;
  void removeObjectForKey(std::string_view key) override;
  std::vector<std::string> allKeys() const override;

  struct Impl;
  explicit SQLitePreferencesStore(std::unique_ptr<Impl> impl);

 private:
  std::unique_ptr<Impl> impl_;
};

}  // namespace iam
