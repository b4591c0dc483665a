#include "iam/platform/PreferencesStore.h"

#include <gtest/gtest.h>

#include <limits>
#include <sqlite3.h>

#include <fstream>

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

TEST_F(PreferencesTest, BothStoresKeepTheContract) {
  InMemoryPreferencesStore memory;
  checkStoreContract(memory);
  auto sqlite = SQLitePreferencesStore::open(dir_.file("contract.sqlite"));
  ASSERT_TRUE(sqlite);
  checkStoreContract(*sqlite);
}

TEST_F(PreferencesTest, SQLiteStoreKeepsValuesAcrossReopenInWALModeAndSharesTheFile) {
  const std::string path = dir_.file("prefs.sqlite");
  {
    auto store = SQLitePreferencesStore::open(path);
    ASSERT_TRUE(store);
    for (const char* key : {"kept", "changed", "removed"}) store->setData(bytes("old"), key);
    store->setData(bytes("new"), "changed");
    store->removeObjectForKey("removed");
  }
  auto store = SQLitePreferencesStore::open(path);
  auto second = SQLitePreferencesStore::open(path);  // a host and the stats tool may hold the file at once
  ASSERT_TRUE(store && second);
  EXPECT_EQ(store->dataForKey("kept"), bytes("old"));
  EXPECT_EQ(store->dataForKey("changed"), bytes("new"));
  EXPECT_EQ(store->allKeys(), (std::vector<std::string>{"changed", "kept"}));
  EXPECT_TRUE(second->setData(bytes("2"), "kept"));
  EXPECT_EQ(store->dataForKey("kept"), bytes("2"));

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
  const std::string garbage = dir_.file("garbage.sqlite");
  std::ofstream(garbage, std::ios::binary) << std::string(4096, '\x5a');
  EXPECT_FALSE(SQLitePreferencesStore::open(garbage));
  EXPECT_FALSE(SQLitePreferencesStore::open(dir_.path().string()));  // a directory

  const auto records = env.log().records();
  ASSERT_EQ(records.size(), 4u);
  for (const auto& r : records) {
    EXPECT_EQ(r.level, LogLevel::Error);
    EXPECT_EQ(r.filename, "iam/platform/SQLitePreferencesStore");
    EXPECT_EQ(r.function, "open");
    EXPECT_EQ(r.message.rfind("IAM: ", 0), 0u) << r.message;
  }
}

TEST_F(PreferencesTest, SettingsKeepRecordsMapsAndLaunchesAndReadDamagedValuesAsAbsent) {
  auto& store = *env.preferences();
  EXPECT_EQ(ZTSettings::getUnarchivedObjectForKey("record"), nullptr);
  EXPECT_TRUE(ZTSettings::getSafeDictionaryFromPreferencesWithKey<Counter>("map").empty());
  EXPECT_TRUE(ZTSettings::saveArchivableObject(Counter(41), "record"));
  const std::map<std::string, std::shared_ptr<Counter>> map{{"a", std::make_shared<Counter>(1)},
                                                             {"b", std::make_shared<Counter>(2)}};
  EXPECT_TRUE(ZTSettings::saveDictionaryToPreferences(map, "map"));
  EXPECT_EQ(std::dynamic_pointer_cast<Counter>(ZTSettings::getUnarchivedObjectForKey("record"))->count, 41);
  EXPECT_EQ(ZTSettings::getUnarchivedObjectOfClassForKey<Counter>("record")->count, 41);
  auto loaded = ZTSettings::getSafeDictionaryFromPreferencesWithKey<Counter>("map");
  ASSERT_EQ(loaded.size(), 2u);
  EXPECT_EQ(loaded["a"]->count + 10 * loaded["b"]->count, 21);
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

  const Bytes good = *store.dataForKey("record");
  store.setData(std::span(good).first(good.size() - 1), "record");  // as by a torn write
  EXPECT_EQ(ZTSettings::getUnarchivedObjectForKey("record"), nullptr);
  store.setData(bytes("not an archive at all"), "record");
  EXPECT_EQ(ZTSettings::getUnarchivedObjectOfClassForKey<Counter>("record"), nullptr);
  store.setData(bytes("\xdf\xff\xff\xff\xff"), "map");
  EXPECT_TRUE(ZTSettings::getSafeDictionaryFromPreferencesWithKey<Counter>("map").empty());
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
