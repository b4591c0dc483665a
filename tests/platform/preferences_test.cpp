#include "iam/platform/PreferencesStore.h"

#include <gtest/gtest.h>

#include <limits>
#include <sqlite3.h>

#include <filesystem>
#include <fstream>
#include <map>

#include "iam/platform/ArchiveClassRegistry.h"
#include "iam/platform/LogBridge.h"
#include "iam/platform/ZTSettings.h"
#include "iam/platform/InMemoryPreferencesStore.h"
#include "iam/platform/SQLitePreferencesStore.h"
#include "testing/TestEnvironment.h"
#include "platform/ScratchDirectory.h"

namespace iam {
namespace {

using testing::ScratchDirectory;
using Bytes = std::vector<std::uint8_t>;

struct Counter : Archivable {
  static constexpr std::string_view kArchiveClassName = "PreferencesTestCounter";
  std::int64_t count = 0;
  explicit Counter(std::int64_t c = 0) : count(c) {}
  std::string_view archiveClassName() const override { return kArchiveClassName; }
  void encodeWithCoder(KeyedArchiver& c) const override { c.encodeInteger(count, "count"); }
  static std::shared_ptr<Counter> initWithCoder(const KeyedUnarchiver& c) {
    auto n = c.decodeIntegerNumberForKey("count");
    return n ? std::make_shared<Counter>(*n) : nullptr;
  }
};
[[maybe_unused]] const bool kCounterRegistered = (ArchiveClassRegistry::registerClass<Counter>(), true);

Bytes bytes(std::string_view s) { return Bytes(s.begin(), s.end()); }

std::string fileBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// What every store promises, run against each implementation.
void checkStoreContract(PreferencesStore& store) {
  EXPECT_EQ(store.dataForKey("missing"), std::nullopt);
  EXPECT_TRUE(store.allKeys().empty());

  const Bytes binary = bytes(std::string_view("\0\x01\xff\0tail", 8));
  EXPECT_TRUE(store.setData(binary, "b"));
  EXPECT_TRUE(store.setData(Bytes(), "empty"));
  EXPECT_TRUE(store.setData(bytes("first"), "a"));
  EXPECT_TRUE(store.setData(bytes("x"), "\xc3\xa9t\xc3\xa9"));
  EXPECT_EQ(store.dataForKey("b"), binary);
  EXPECT_EQ(store.dataForKey("empty"), Bytes());  // present although empty
  EXPECT_EQ(store.dataForKey("\xc3\xa9t\xc3\xa9"), bytes("x"));

  EXPECT_TRUE(store.setData(bytes("second, longer"), "a"));
  EXPECT_EQ(store.dataForKey("a"), bytes("second, longer"));
  EXPECT_EQ(store.allKeys(), (std::vector<std::string>{"a", "b", "empty", "\xc3\xa9t\xc3\xa9"}));

  store.removeObjectForKey("b");
  store.removeObjectForKey("never there");
  EXPECT_EQ(store.dataForKey("b"), std::nullopt);
  EXPECT_EQ(store.allKeys(), (std::vector<std::string>{"a", "empty", "\xc3\xa9t\xc3\xa9"}));
}

class PreferencesTest : public ::testing::Test {
 protected:
  testing::TestEnvironment env;
  ScratchDirectory dir_;
};

TEST_F(PreferencesTest, BothStoresKeepTheContractAndSQLiteKeepsItAcrossReopenSharingTheFile) {
  InMemoryPreferencesStore memory;
  checkStoreContract(memory);
  const std::string path = dir_.file("prefs.sqlite");
  auto store = SQLitePreferencesStore::open(path);
  ASSERT_TRUE(store);
  checkStoreContract(*store);
  store = SQLitePreferencesStore::open(path);
  auto second = SQLitePreferencesStore::open(path);  // a host and the stats tool may hold the file at once
  ASSERT_TRUE(store && second);
  EXPECT_EQ(store->allKeys(), (std::vector<std::string>{"a", "empty", "\xc3\xa9t\xc3\xa9"}));
  EXPECT_EQ(store->dataForKey("a"), bytes("second, longer"));
  EXPECT_TRUE(second->setData(bytes("2"), "a"));
  EXPECT_EQ(store->dataForKey("a"), bytes("2"));

  // The journal mode is a property of the file: read it with a connection of our own.
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr), SQLITE_OK);
  std::string mode;
  auto readMode = [](void* out, int, char** values, char**) { return *static_cast<std::string*>(out) = values[0], 0; };
  EXPECT_EQ(sqlite3_exec(db, "PRAGMA journal_mode", readMode, &mode, nullptr), SQLITE_OK);
  EXPECT_EQ(mode, "wal");
  sqlite3_close(db);

  PreferencesStore::setStandard(nullptr);  // none: a fresh in-memory store, never a missing one
  EXPECT_TRUE(std::dynamic_pointer_cast<InMemoryPreferencesStore>(PreferencesStore::standard()));
}

TEST_F(PreferencesTest, UnopenableFilesGiveNoneAndAreLogged) {
  EXPECT_FALSE(SQLitePreferencesStore::open(dir_.file("no/such/dir/prefs.sqlite")));
  EXPECT_FALSE(SQLitePreferencesStore::open(""));
  EXPECT_FALSE(SQLitePreferencesStore::open(dir_.path().string()));  // a directory
  // A reader never renames: a damaged file stays where it is.
  const std::string garbage = dir_.file("garbage.sqlite");
  std::ofstream(garbage, std::ios::binary) << std::string(4096, '\x5a');
  EXPECT_FALSE(SQLitePreferencesStore::open(garbage, SQLitePreferencesStore::Mode::ReadOnly));
  EXPECT_EQ(fileBytes(garbage), std::string(4096, '\x5a'));

  const auto records = env.log().records();
  ASSERT_EQ(records.size(), 4u);
  for (const auto& r : records) {
    EXPECT_EQ(r.level, LogLevel::Error);
    EXPECT_EQ(r.filename, "iam/platform/SQLitePreferencesStore");
    EXPECT_EQ(r.function, "open");
    EXPECT_EQ(r.message.rfind("IAM: Preferences store: ", 0), 0u) << r.message;
  }
}

// Ten values of 3 KB each, so that the table spans pages; the connection is closed afterwards
// and the WAL folded into the file.
std::map<std::string, Bytes> writeValues(const std::string& path) {
  std::map<std::string, Bytes> values;
  auto store = SQLitePreferencesStore::open(path);
  for (int i = 0; i < 10; ++i) {
    const std::string key = "key" + std::to_string(i);
    values[key] = Bytes(3000, static_cast<std::uint8_t>('a' + i));
    EXPECT_TRUE(store->setData(values[key], key));
  }
  return values;
}

TEST_F(PreferencesTest, UnreadableFilesAreMovedAsideKeepingWhatCanBeRead) {
  // No database at all, pages overwritten in the middle, a file cut short: each damaged file is moved
  // aside with its journal, never deleted, to the next free name, and every value read is whole or
  // absent, never garbage.
  const std::string path = dir_.file("prefs.sqlite");
  for (int damage = 1; damage <= 3; ++damage) {
    SCOPED_TRACE(damage);
    std::filesystem::remove(path);
    const auto values = writeValues(path);
    if (damage == 1) {
      std::ofstream(path, std::ios::binary) << std::string(8192, '\x5a');
      std::ofstream(path + "-wal", std::ios::binary) << "wal bytes";
    } else if (damage == 2) {
      // The last page, wherever the page size puts it (the header's big-endian bytes 16 and 17).
      const std::string bytes = fileBytes(path);
      const std::size_t pageSize = static_cast<std::size_t>(static_cast<unsigned char>(bytes[16]) << 8 |
                                                            static_cast<unsigned char>(bytes[17]));
      std::fstream f(path, std::ios::binary | std::ios::in | std::ios::out);
      f.seekp(static_cast<std::streamoff>(bytes.size() - pageSize));
      f << std::string(pageSize, '\xa5');
    } else {
      std::filesystem::resize_file(path, std::filesystem::file_size(path) / 2);
    }
    const std::string damaged = fileBytes(path);
    env.log().clear();
    auto store = SQLitePreferencesStore::open(path);
    ASSERT_TRUE(store);
    int kept = 0;
    for (const auto& [key, value] : values) {
      auto read = store->dataForKey(key);
      if (read) {
        EXPECT_TRUE(*read == value) << key;
      }
      kept += read.has_value();
    }
    const std::string aside = path + ".corrupt-" + std::to_string(damage);
    EXPECT_TRUE(fileBytes(aside) == damaged) << "moved, never deleted";
    ASSERT_EQ(env.log().records().size(), 1u);
    EXPECT_NE(env.log().records()[0].message.find("moved it aside to " + aside + " and started a new file"),
              std::string::npos);
    // SQLite refuses a file shorter than its header says as a whole; overwritten pages cost only
    // the rows on them.
    if (damage == 2) {
      EXPECT_GT(kept, 0);
    }
    EXPECT_LT(kept, 10);
    // What could be read is in the new file already, and the new file takes writes.
    EXPECT_TRUE(store->setData(bytes("fresh"), "fresh"));
    store.reset();
    auto reopened = SQLitePreferencesStore::open(path, SQLitePreferencesStore::Mode::ReadOnly);
    ASSERT_TRUE(reopened);
    EXPECT_EQ(reopened->allKeys().size(), kept + 1u);
  }
  EXPECT_EQ(fileBytes(path + ".corrupt-1-wal"), "wal bytes");
}

TEST_F(PreferencesTest, FailedWritesStayInMemoryUntilAWriteSucceeds) {
  const std::string path = dir_.file("prefs.sqlite");
  {
    auto store = SQLitePreferencesStore::open(path);
    ASSERT_TRUE(store->setData(bytes("old"), "kept"));
    ASSERT_TRUE(store->setData(bytes("gone"), "removed"));
    store->limitPageCountForTesting(1);  // as full as the file is now
    const Bytes big(20000, 7);
    EXPECT_FALSE(store->setData(big, "big"));
    EXPECT_FALSE(store->setData(bytes("new"), "kept"));
    store->removeObjectForKey("removed");
    EXPECT_EQ(store->dataForKey("big"), big);
    EXPECT_EQ(store->dataForKey("kept"), bytes("new"));
    EXPECT_EQ(store->dataForKey("removed"), std::nullopt);
    EXPECT_EQ(store->allKeys(), (std::vector<std::string>{"big", "kept"}));
    ASSERT_EQ(env.log().records().size(), 1u);  // once per streak, not per write
    EXPECT_EQ(env.log().records()[0].level, LogLevel::Error);
    EXPECT_NE(env.log().records()[0].message.find("values are kept in memory"), std::string::npos);

    store->limitPageCountForTesting(1 << 20);
    EXPECT_TRUE(store->setData(bytes("1"), "later"));
    ASSERT_EQ(env.log().records().size(), 2u);
    EXPECT_NE(env.log().records()[1].message.find("writing works again; 4 values"), std::string::npos);
  }
  // A read-only store reads the file, keeps its own writes in memory and leaves the file alone.
  {
    auto reader = SQLitePreferencesStore::open(path, SQLitePreferencesStore::Mode::ReadOnly);
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->allKeys(), (std::vector<std::string>{"big", "kept", "later"}));
    EXPECT_EQ(reader->dataForKey("kept"), bytes("new"));
    EXPECT_FALSE(reader->setData(bytes("reader's"), "kept"));
    EXPECT_EQ(reader->dataForKey("kept"), bytes("reader's"));
  }
  EXPECT_EQ(SQLitePreferencesStore::open(path)->dataForKey("kept"), bytes("new"));
}

TEST_F(PreferencesTest, SettingsTellRecordsFromMapsAndKeepALaunchCountThroughDamage) {
  auto& store = *env.preferences();
  EXPECT_TRUE(ZTSettings::saveArchivableObject(Counter(41), "record"));
  EXPECT_TRUE(ZTSettings::saveDictionaryToPreferences(
      std::map<std::string, std::shared_ptr<Counter>>{{"a", std::make_shared<Counter>(1)}}, "map"));
  auto record = std::dynamic_pointer_cast<Counter>(ZTSettings::getUnarchivedObjectForKey("record"));
  ASSERT_TRUE(record);
  EXPECT_EQ(record->count, 41);
  EXPECT_EQ(ZTSettings::getSafeDictionaryFromPreferencesWithKey<Counter>("map").at("a")->count, 1);
  // A record is not a map, and a map is not a record.
  EXPECT_TRUE(ZTSettings::getSafeDictionaryFromPreferencesWithKey<Counter>("record").empty());
  EXPECT_EQ(ZTSettings::getUnarchivedObjectForKey("map"), nullptr);

  EXPECT_EQ(ZTSettings::runCount(), 0);
  EXPECT_EQ(ZTSettings::incrementRunCount(), 1);
  EXPECT_EQ(ZTSettings::incrementRunCount(), 2);
  std::optional<std::int64_t> stored;  // the stored form is an archive whose root is the integer
  EXPECT_TRUE(KeyedUnarchiver::withArchive(*store.dataForKey(ZTSettings::kRunCountKey),
                                           [&](const ArchiveValue& v) { stored = v.integerValue(); }));
  EXPECT_EQ(stored, 2);

  // A damaged launch count starts again rather than failing.
  store.setData(bytes("\xc1"), ZTSettings::kRunCountKey);
  EXPECT_EQ(ZTSettings::runCount(), 0);
  EXPECT_EQ(ZTSettings::incrementRunCount(), 1);
  // One stored at the top of its range stays there.
  KeyedArchiver top;
  top.writeInteger(std::numeric_limits<std::int64_t>::max());
  store.setData(top.takeData(), ZTSettings::kRunCountKey);
  EXPECT_EQ(ZTSettings::incrementRunCount(), std::numeric_limits<std::int64_t>::max());
}

}  // namespace
}  // namespace iam
