#include <sqlite3.h>

#include <fmt/format.h>

#include "iam/platform/LogBridge.h"
#include "iam/platform/SQLitePreferencesStore.h"

namespace iam {
namespace {

constexpr std::string_view kLogFile = "iam/platform/SQLitePreferencesStore";

// How long a statement waits for another connection (another process on the same file) to let go.
constexpr int kBusyTimeoutMilliseconds = 5000;

void logSQLiteError(sqlite3* db, std::string_view what, int line, std::string_view function) {
  LogBridge::error(fmt::format("IAM: Preferences store: {} failed: {}", what,
                               db != nullptr ? sqlite3_errmsg(db) : "out of memory"),
                   kLogFile, line, function);
}

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

}  // namespace

struct SQLitePreferencesStore::Impl {
  std::string path;  // constant after construction

  std::mutex mutex;
  sqlite3* db = nullptr;  // the connection and its statements are guarded by mutex
  Statement select;
  Statement upsert;
  Statement remove;
  Statement keys;

  ~Impl() {
    select.reset();
    upsert.reset();
    remove.reset();
    keys.reset();
    if (db != nullptr) sqlite3_close_v2(db);
  }

  bool exec(const char* sql, int line) {
    char* message = nullptr;
    if (sqlite3_exec(db, sql, nullptr, nullptr, &message) == SQLITE_OK) return true;
    LogBridge::error(fmt::format("IAM: Preferences store: '{}' failed for {}: {}", sql, path,
                                 message != nullptr ? message : sqlite3_errmsg(db)),
                     kLogFile, line, "open");
    sqlite3_free(message);
    return false;
  }

  bool prepare(Statement& out, const char* sql, int line) {
    sqlite3_stmt* s = nullptr;
    if (sqlite3_prepare_v3(db, sql, -1, SQLITE_PREPARE_PERSISTENT, &s, nullptr) != SQLITE_OK) {
      logSQLiteError(db, fmt::format("preparing '{}' for {}", sql, path), line, "open");
      return false;
    }
    out.reset(s);
    return true;
  }
};

std::shared_ptr<SQLitePreferencesStore> SQLitePreferencesStore::open(const std::string& path) {
  if (path.empty()) {
    LogBridge::error("IAM: Preferences store: no file path given.", kLogFile, __LINE__, "open");
    return nullptr;
  }
  auto impl = std::make_unique<Impl>();
  impl->path = path;
  // The store serialises access itself, so SQLite's own connection mutex is not needed.
  const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
  if (sqlite3_open_v2(path.c_str(), &impl->db, flags, nullptr) != SQLITE_OK) {
    logSQLiteError(impl->db, fmt::format("opening {}", path), __LINE__, "open");
    return nullptr;
  }
  sqlite3_extended_result_codes(impl->db, 1);
  sqlite3_busy_timeout(impl->db, kBusyTimeoutMilliseconds);
  // journal_mode is the first statement that reads the file: a file that is not a database fails here.
  if (!impl->exec("PRAGMA journal_mode=WAL", __LINE__) || !impl->exec("PRAGMA synchronous=NORMAL", __LINE__) ||
      !impl->exec("CREATE TABLE IF NOT EXISTS preferences (key TEXT PRIMARY KEY NOT NULL, value BLOB NOT NULL)",
                  __LINE__)) {
    return nullptr;
  }
  if (!impl->prepare(impl->select, "SELECT value FROM preferences WHERE key = ?1", __LINE__) ||
      !impl->prepare(impl->upsert, "INSERT INTO preferences (key, value) VALUES (?1, ?2) ON CONFLICT(key) DO UPDATE SET value = excluded.value", __LINE__) ||
      !impl->prepare(impl->remove, "DELETE FROM preferences WHERE key = ?1", __LINE__) ||
      !impl->prepare(impl->keys, "SELECT key FROM preferences ORDER BY key", __LINE__)) {
    return nullptr;
  }
  return std::make_shared<SQLitePreferencesStore>(std::move(impl));
}

SQLitePreferencesStore::SQLitePreferencesStore(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

SQLitePreferencesStore::~SQLitePreferencesStore() = default;

std::optional<std::vector<std::uint8_t>> SQLitePreferencesStore::dataForKey(std::string_view key) const {
  std::lock_guard lock(impl_->mutex);
  sqlite3_stmt* s = impl_->select.get();
  StatementUse use(s);
  if (bindKey(s, key) != SQLITE_OK) {
    logSQLiteError(impl_->db, "binding a key", __LINE__, "dataForKey");
    return std::nullopt;
  }
  const int rc = sqlite3_step(s);
  if (rc == SQLITE_DONE) return std::nullopt;
  if (rc != SQLITE_ROW) {
    logSQLiteError(impl_->db, fmt::format("reading '{}'", key), __LINE__, "dataForKey");
    return std::nullopt;
  }
  const auto* bytes = static_cast<const std::uint8_t*>(sqlite3_column_blob(s, 0));
  const int size = sqlite3_column_bytes(s, 0);
  if (bytes == nullptr || size <= 0) return std::vector<std::uint8_t>();
  return std::vector<std::uint8_t>(bytes, bytes + size);
}

bool SQLitePreferencesStore::setData(std::span<const std::uint8_t> data, std::string_view key) {
  std::lock_guard lock(impl_->mutex);
  sqlite3_stmt* s = impl_->upsert.get();
  StatementUse use(s);
  // An empty blob must still be a blob: binding a null pointer would store NULL.
  const int bound = data.empty() ? sqlite3_bind_zeroblob(s, 2, 0)
                                 : sqlite3_bind_blob64(s, 2, data.data(), data.size(), SQLITE_STATIC);
  if (bindKey(s, key) != SQLITE_OK || bound != SQLITE_OK) {
    logSQLiteError(impl_->db, fmt::format("binding the value of '{}'", key), __LINE__, "setData");
    return false;
  }
  if (sqlite3_step(s) != SQLITE_DONE) {
    logSQLiteError(impl_->db, fmt::format("writing '{}'", key), __LINE__, "setData");
    return false;
  }
  return true;
}

void SQLitePreferencesStore::removeObjectForKey(std::string_view key) {
  std::lock_guard lock(impl_->mutex);
  sqlite3_stmt* s = impl_->remove.get();
  StatementUse use(s);
  if (bindKey(s, key) != SQLITE_OK || sqlite3_step(s) != SQLITE_DONE) {
    logSQLiteError(impl_->db, fmt::format("removing '{}'", key), __LINE__, "removeObjectForKey");
  }
}

std::vector<std::string> SQLitePreferencesStore::allKeys() const {
  std::lock_guard lock(impl_->mutex);
  sqlite3_stmt* s = impl_->keys.get();
  StatementUse use(s);
  std::vector<std::string> out;
  int rc;
  while ((rc = sqlite3_step(s)) == SQLITE_ROW) {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(s, 0));
    out.emplace_back(text != nullptr ? text : "", static_cast<std::size_t>(sqlite3_column_bytes(s, 0)));
  }
  if (rc != SQLITE_DONE) logSQLiteError(impl_->db, "listing keys", __LINE__, "allKeys");
  return out;
}

}  // namespace iam
