#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <mutex>

#include <fmt/format.h>

#include "iam/platform/LogBridge.h"
#include "iam/platform/SQLitePreferencesStore.h"

namespace iam {
namespace {

constexpr std::string_view kLogFile = "iam/platform/SQLitePreferencesStore";

// How long a statement waits for another connection (another process on the same file) to let go.
constexpr int kBusyTimeoutMilliseconds = 5000;

using Bytes = std::vector<std::uint8_t>;

struct StatementDeleter {
  void operator()(sqlite3_stmt* s) const { sqlite3_finalize(s); }
};
using Statement = std::unique_ptr<sqlite3_stmt, StatementDeleter>;

// Leaves a cached statement ready for its next use however the current one ends.
class StatementUse {
 public:
  explicit StatementUse(sqlite3_stmt* s) : s_(s) {}
  ~StatementUse() {
    sqlite3_reset(s_);
    sqlite3_clear_bindings(s_);
  }
  StatementUse(const StatementUse&) = delete;
  StatementUse& operator=(const StatementUse&) = delete;

 private:
  sqlite3_stmt* s_;
};

int bindKey(sqlite3_stmt* s, std::string_view key) {
  return sqlite3_bind_text64(s, 1, key.data(), key.size(), SQLITE_STATIC, SQLITE_UTF8);
}

// SQLite's word for a file whose bytes it cannot make sense of; any other failure leaves the file
// as it is.
bool isUnreadable(int rc) {
  const int primary = rc & 0xff;
  return primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB;
}

// Failures that say this process may not write the file, as opposed to a file that is damaged.
bool isNotWritable(int rc) {
  const int primary = rc & 0xff;
  return primary == SQLITE_READONLY || primary == SQLITE_CANTOPEN || primary == SQLITE_PERM ||
         primary == SQLITE_AUTH || primary == SQLITE_IOERR;
}

bool exists(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0;
}

std::string textColumn(sqlite3_stmt* s, int column) {
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(s, column));
  return {text != nullptr ? text : "", static_cast<std::size_t>(sqlite3_column_bytes(s, column))};
}

Bytes blobColumn(sqlite3_stmt* s, int column) {
  const auto* bytes = static_cast<const std::uint8_t*>(sqlite3_column_blob(s, column));
  const int size = sqlite3_column_bytes(s, column);
  if (bytes == nullptr || size <= 0) return {};
  return Bytes(bytes, bytes + size);
}

}  // namespace

struct SQLitePreferencesStore::Impl {
  // Constant after construction.
  std::string path;
  bool readOnly = false;

  // Guarded by mutex. `db` is null when no file could be opened after a rename: values live in
  // `pending` alone then.
  std::mutex mutex;
  sqlite3* db = nullptr;
  Statement select, upsert, remove, keys, everything, begin, commit, rollback;
  std::pair<dev_t, ino_t> fileId{};  // which file `db` opened, so that only that one is renamed
  // Values newer than the file's, not yet written (none stands for a removal).
  std::map<std::string, std::optional<Bytes>, std::less<>> pending;
  bool writesFailing = false;  // one log line per streak of failed writes
  bool readFailureLogged = false;

  ~Impl() { disconnect(); }

  void disconnect() {
    for (Statement* s : {&select, &upsert, &remove, &keys, &everything, &begin, &commit, &rollback}) s->reset();
    if (db != nullptr) sqlite3_close_v2(db);
    db = nullptr;
  }

  std::string message() const { return db != nullptr ? sqlite3_errmsg(db) : "out of memory"; }
  int errorCode() const { return db != nullptr ? sqlite3_extended_errcode(db) : SQLITE_NOMEM; }

  void logError(const std::string& what, int line, std::string_view function) const {
    LogBridge::error(fmt::format("IAM: Preferences store: {} ({}).", what, path), kLogFile, line, function);
  }

  int prepare(Statement& out, const char* sql) {
    sqlite3_stmt* s = nullptr;
    const int rc = sqlite3_prepare_v3(db, sql, -1, SQLITE_PREPARE_PERSISTENT, &s, nullptr);
    out.reset(s);
    return rc;
  }

  // Opens the file and readies the statements. On failure the failing step is in `failed`, SQLite's
  // code is returned and the connection is closed, but for an unreadable file (see `moveAside`).
  int connect(std::string& failed) {
    const int flags = (readOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE) |
                      SQLITE_OPEN_NOMUTEX;  // the store serialises access itself
    int rc = sqlite3_open_v2(path.c_str(), &db, flags, nullptr);
    if (rc == SQLITE_OK) {
      sqlite3_extended_result_codes(db, 1);
      sqlite3_busy_timeout(db, kBusyTimeoutMilliseconds);
      struct stat st {};
      if (::stat(path.c_str(), &st) == 0) fileId = {st.st_dev, st.st_ino};
    }
    // journal_mode is the first statement that reads the file: a file that is not a database fails here.
    // The page size only takes for a new file (it reads nothing): the cached answer and the
    // statistics are values of megabytes, which a new start reads a page per system call.
    const char* setup[] = {"PRAGMA page_size=16384", "PRAGMA journal_mode=WAL", "PRAGMA synchronous=NORMAL",
                           "CREATE TABLE IF NOT EXISTS preferences (key TEXT PRIMARY KEY NOT NULL, value BLOB NOT NULL)"};
    for (const char* sql : setup) {
      if (rc != SQLITE_OK || readOnly) break;
      if ((rc = sqlite3_exec(db, sql, nullptr, nullptr, nullptr)) != SQLITE_OK) failed = fmt::format("'{}' failed", sql);
    }
    const std::pair<Statement*, const char*> statements[] = {
        {&select, "SELECT value FROM preferences WHERE key = ?1"},
        {&keys, "SELECT key FROM preferences ORDER BY key"},
        {&everything, "SELECT key, value FROM preferences"},
        {&upsert, "INSERT INTO preferences (key, value) VALUES (?1, ?2) ON CONFLICT(key) DO UPDATE SET value = excluded.value"},
        {&remove, "DELETE FROM preferences WHERE key = ?1"},
        {&begin, "BEGIN IMMEDIATE"},
        {&commit, "COMMIT"},
        {&rollback, "ROLLBACK"}};
    for (const auto& [statement, sql] : statements) {
      if (rc != SQLITE_OK) break;
      if ((rc = prepare(*statement, sql)) != SQLITE_OK) failed = fmt::format("preparing '{}' failed", sql);
    }
    if (rc != SQLITE_OK) {
      if (failed.empty()) failed = "opening the file failed";
      failed += fmt::format(": {}", message());
      rc = errorCode();
      // An unreadable file stays open for `moveAside`: closing the last connection deletes its WAL.
      if (!isUnreadable(rc) || readOnly) disconnect();
    }
    return rc;
  }

  // Whatever can still be read of a damaged file goes to `pending`, behind newer values. The
  // statements are made here when the file failed before they were.
  void salvage() {
    if (db == nullptr) return;
    if (!everything) prepare(everything, "SELECT key, value FROM preferences");
    if (!keys) prepare(keys, "SELECT key FROM preferences ORDER BY key");
    if (!select) prepare(select, "SELECT value FROM preferences WHERE key = ?1");
    if (everything) {
      StatementUse use(everything.get());
      while (sqlite3_step(everything.get()) == SQLITE_ROW) {
        pending.emplace(textColumn(everything.get(), 0), blobColumn(everything.get(), 1));
      }
    }
    // The key index may reach rows that the table scan stopped before.
    std::vector<std::string> listed;
    if (keys) {
      StatementUse use(keys.get());
      while (sqlite3_step(keys.get()) == SQLITE_ROW) listed.push_back(textColumn(keys.get(), 0));
    }
    for (const auto& key : listed) {
      if (pending.contains(key) || !select) continue;
      StatementUse use(select.get());
      if (bindKey(select.get(), key) == SQLITE_OK && sqlite3_step(select.get()) == SQLITE_ROW) {
        pending.emplace(key, blobColumn(select.get(), 0));
      }
    }
  }

  // Renames the unreadable file and its journal files out of the way and starts a new file.
  // `why` is SQLite's description of the damage. The files are renamed while still open: closing
  // the last connection would delete the WAL.
  void moveAside(const std::string& why, int line, std::string_view function) {
    const auto opened = fileId;
    struct stat st {};
    // Another connection may have renamed it already; then `path` is a good file again.
    const bool same = ::stat(path.c_str(), &st) == 0 && std::pair{st.st_dev, st.st_ino} == opened;
    if (same) {
      int n = 1;
      while (exists(fmt::format("{}.corrupt-{}", path, n))) ++n;
      const std::string aside = fmt::format("{}.corrupt-{}", path, n);
      if (std::rename(path.c_str(), aside.c_str()) != 0) {
        logError(fmt::format("the file is unreadable ({}) and could not be moved aside; values are kept in memory", why),
                 line, function);
        disconnect();
        return;
      }
      for (const char* suffix : {"-wal", "-shm"}) {
        const std::string journal = path + suffix;
        if (exists(journal)) std::rename(journal.c_str(), (aside + suffix).c_str());
      }
      logError(fmt::format("the file is unreadable ({}); moved it aside to {} and started a new file", why, aside),
               line, function);
    }
    disconnect();
    std::string failed;
    if (connect(failed) != SQLITE_OK) {
      logError(fmt::format("a new file could not be made ({}); values are kept in memory", failed), line, function);
    }
  }

  // A statement met a damaged file: keep what can be read, then carry on in a new file.
  void recover(int line, std::string_view function) {
    const std::string why = message();
    if (readOnly) {
      if (!readFailureLogged) logError(fmt::format("the file is unreadable ({})", why), line, function);
      readFailureLogged = true;
      return;
    }
    salvage();
    moveAside(why, line, function);
  }

  int writePending() {
    if (db == nullptr) return SQLITE_CANTOPEN;
    if (readOnly) return SQLITE_READONLY;
    auto step = [](sqlite3_stmt* s) {
      StatementUse use(s);
      const int rc = sqlite3_step(s);
      return rc == SQLITE_DONE || rc == SQLITE_ROW ? SQLITE_OK : rc;
    };
    // One value is one statement, atomic by itself; several are written together or not at all.
    const bool several = pending.size() > 1;
    int rc = several ? step(begin.get()) : SQLITE_OK;
    for (auto it = pending.begin(); rc == SQLITE_OK && it != pending.end(); ++it) {
      const auto& [key, value] = *it;
      sqlite3_stmt* s = value ? upsert.get() : remove.get();
      StatementUse use(s);
      rc = bindKey(s, key);
      // An empty blob must still be a blob: binding a null pointer would store NULL.
      if (rc == SQLITE_OK && value) {
        rc = value->empty() ? sqlite3_bind_zeroblob(s, 2, 0)
                            : sqlite3_bind_blob64(s, 2, value->data(), value->size(), SQLITE_STATIC);
      }
      if (rc == SQLITE_OK && sqlite3_step(s) != SQLITE_DONE) rc = errorCode();
    }
    if (several && rc == SQLITE_OK && step(commit.get()) != SQLITE_OK) rc = errorCode();
    if (rc != SQLITE_OK && sqlite3_get_autocommit(db) == 0) step(rollback.get());
    return rc;
  }

  // Writes every pending value; false leaves them pending.
  bool flush(int line, std::string_view function) {
    int rc = writePending();
    if (isUnreadable(rc) && db != nullptr) {
      recover(line, function);
      rc = writePending();
    }
    if (rc == SQLITE_OK) {
      if (writesFailing) {
        LogBridge::warning(fmt::format("IAM: Preferences store: writing works again; {} values kept in memory were "
                                       "written ({}).", pending.size(), path),
                           kLogFile, line, function);
      }
      pending.clear();
      writesFailing = false;
      return true;
    }
    if (!writesFailing) {
      logError(fmt::format("writing failed ({}); values are kept in memory until a write succeeds",
                           db != nullptr ? message() : (readOnly ? "opened read-only" : "no file")),
               line, function);
    }
    writesFailing = true;
    return false;
  }
};

std::shared_ptr<SQLitePreferencesStore> SQLitePreferencesStore::open(const std::string& path, Mode mode) {
  if (path.empty()) {
    LogBridge::error("IAM: Preferences store: no file path given.", kLogFile, __LINE__, "open");
    return nullptr;
  }
  auto impl = std::make_unique<Impl>();
  impl->path = path;
  impl->readOnly = mode == Mode::ReadOnly;
  std::string failed;
  int rc = impl->connect(failed);
  if (isUnreadable(rc) && !impl->readOnly) {
    impl->salvage();
    impl->moveAside(failed, __LINE__, "open");
    if (!impl->pending.empty()) impl->flush(__LINE__, "open");
    rc = SQLITE_OK;
  }
  if (rc != SQLITE_OK && isNotWritable(rc) && !impl->readOnly && exists(path)) {
    impl->readOnly = true;
    std::string readFailed;
    if (impl->connect(readFailed) == SQLITE_OK) {
      impl->logError(fmt::format("{}; opened the file read-only, changes are kept in memory", failed),
                     __LINE__, "open");
      impl->writesFailing = true;
      rc = SQLITE_OK;
    }
  }
  if (rc != SQLITE_OK) {
    impl->logError(failed, __LINE__, "open");
    return nullptr;
  }
  return std::make_shared<SQLitePreferencesStore>(std::move(impl));
}

SQLitePreferencesStore::SQLitePreferencesStore(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

SQLitePreferencesStore::~SQLitePreferencesStore() = default;

std::optional<std::vector<std::uint8_t>> SQLitePreferencesStore::dataForKey(std::string_view key) const {
  std::lock_guard lock(impl_->mutex);
  for (int attempt = 0; attempt < 2; ++attempt) {
    if (auto it = impl_->pending.find(key); it != impl_->pending.end()) return it->second;
    if (impl_->db == nullptr) return std::nullopt;
    int rc;
    {
      sqlite3_stmt* s = impl_->select.get();
      StatementUse use(s);
      rc = bindKey(s, key);
      if (rc == SQLITE_OK) rc = sqlite3_step(s);
      if (rc == SQLITE_DONE) return std::nullopt;
      if (rc == SQLITE_ROW) return blobColumn(s, 0);
    }
    if (!isUnreadable(rc) || attempt > 0) {
      impl_->logError(fmt::format("reading '{}' failed: {}", key, impl_->message()), __LINE__, "dataForKey");
      return std::nullopt;
    }
    impl_->recover(__LINE__, "dataForKey");
    if (impl_->readOnly) return std::nullopt;
    // What could be salvaged is pending now: into the new file with it.
    impl_->flush(__LINE__, "dataForKey");
  }
  return std::nullopt;
}

bool SQLitePreferencesStore::setData(std::span<const std::uint8_t> data, std::string_view key) {
  std::lock_guard lock(impl_->mutex);
  impl_->pending.insert_or_assign(std::string(key), Bytes(data.begin(), data.end()));
  return impl_->flush(__LINE__, "setData");
}

void SQLitePreferencesStore::removeObjectForKey(std::string_view key) {
  std::lock_guard lock(impl_->mutex);
  impl_->pending.insert_or_assign(std::string(key), std::nullopt);
  impl_->flush(__LINE__, "removeObjectForKey");
}

std::vector<std::string> SQLitePreferencesStore::allKeys() const {
  std::lock_guard lock(impl_->mutex);
  std::vector<std::string> out;
  if (impl_->db != nullptr) {
    sqlite3_stmt* s = impl_->keys.get();
    StatementUse use(s);
    int rc;
    while ((rc = sqlite3_step(s)) == SQLITE_ROW) out.push_back(textColumn(s, 0));
    if (rc != SQLITE_DONE) {
      impl_->logError(fmt::format("listing keys failed: {}", impl_->message()), __LINE__, "allKeys");
    }
  }
  // Values kept in memory count as stored.
  for (const auto& [key, value] : impl_->pending) {
    auto at = std::lower_bound(out.begin(), out.end(), key);
    const bool listed = at != out.end() && *at == key;
    if (value && !listed) out.insert(at, key);
    if (!value && listed) out.erase(at);
  }
  return out;
}

void SQLitePreferencesStore::limitPageCountForTesting(std::int64_t pages) {
  std::lock_guard lock(impl_->mutex);
  if (impl_->db == nullptr) return;
  sqlite3_exec(impl_->db, fmt::format("PRAGMA max_page_count={}", pages).c_str(), nullptr, nullptr, nullptr);
}

}  // namespace iam
