#pragma once

#include <memory>
#include <string>

#include "iam/platform/PreferencesStore.h"

namespace iam {

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
