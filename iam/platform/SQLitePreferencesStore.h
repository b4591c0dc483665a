#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "iam/platform/PreferencesStore.h"

namespace iam {

// SQLite file with one table (key TEXT PRIMARY KEY, value BLOB), WAL journal, synchronous=NORMAL.
// One connection guarded by a mutex; writes are single transactions, hence atomic.
//
// The store keeps the host running whatever happens to the file. A file SQLite cannot read (not a
// database, damaged pages) is renamed to `<path>.corrupt-<n>` with its -wal and -shm files, never
// deleted; whatever values could still be read go into a new file at `path`. A write that fails
// (read-only file or directory, full disk, I/O error) keeps the value in memory, where reads see
// it, and it is written with the next write that succeeds. Each of these is logged once.
class SQLitePreferencesStore final : public PreferencesStore {
 public:
  enum class Mode {
    ReadWrite,  // creates the file when missing; a file that cannot be written opens read-only
    ReadOnly,   // never writes, creates or renames the file: for tools that inspect a host's file
  };

  // None when the file cannot be opened at all: no path, a directory, a directory that does not
  // exist (the reason is logged).
  static std::shared_ptr<SQLitePreferencesStore> open(const std::string& path, Mode mode = Mode::ReadWrite);
  ~SQLitePreferencesStore() override;

  std::optional<std::vector<std::uint8_t>> dataForKey(std::string_view key) const override;
  // False when the value could not be written to the file; it is kept in memory then.
  bool setData(std::span<const std::uint8_t> data, std::string_view key) override;
  void removeObjectForKey(std::string_view key) override;
  std::vector<std::string> allKeys() const override;

  // Caps the file at `pages` pages, as a full disk would, until the store reopens its file.
  void limitPageCountForTesting(std::int64_t pages);

  struct Impl;
  explicit SQLitePreferencesStore(std::unique_ptr<Impl> impl);

 private:
  std::unique_ptr<Impl> impl_;
};

}  // namespace iam
