// Exercises the platform layer end to end on a manual clock and prints what happened when.
// Exits 0 when every check held.

#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "iam/platform/Clock.h"
#include "iam/platform/KeyedArchiver.h"
#include "iam/platform/KeyedUnarchiver.h"
#include "iam/platform/LogBridge.h"
#include "iam/platform/NotificationCenter.h"
#include "iam/platform/PreferencesStore.h"
#include "iam/platform/RunLoop.h"
#include "iam/platform/ZTDispatchTools.h"
#include "iam/platform/ZTSettings.h"
#include "iam/platform/SQLitePreferencesStore.h"

namespace {

using namespace iam;

// A small archivable record, as the library's records are.
class DemoRecord final : public Archivable {
 public:
  static constexpr std::string_view kArchiveClassName = "DemoRecord";

  DemoRecord(std::string name, std::int64_t count, Date seen, std::vector<std::string> tags)
      : name_(std::move(name)), count_(count), seen_(seen), tags_(std::move(tags)) {}

  static std::shared_ptr<DemoRecord> initWithCoder(const KeyedUnarchiver& coder) {
    auto name = coder.decodeStringForKey("name");
    auto seen = coder.decodeDateForKey("seen");
    auto tags = coder.decodeStringArrayForKey("tags");
    if (!name || !seen || !tags) return nullptr;
    return std::make_shared<DemoRecord>(*name, coder.decodeIntegerForKey("count"), *seen, *tags);
  }
  std::string_view archiveClassName() const override { return kArchiveClassName; }
  void encodeWithCoder(KeyedArchiver& coder) const override {
    coder.encodeString(name_, "name");
    coder.encodeInteger(count_, "count");
    coder.encodeDate(seen_, "seen");
    coder.encodeStringArray(tags_, "tags");
  }

  bool operator==(const DemoRecord& o) const {
    return name_ == o.name_ && count_ == o.count_ && seen_ == o.seen_ && tags_ == o.tags_;
  }

 private:
  std::string name_;
  std::int64_t count_;
  Date seen_;
  std::vector<std::string> tags_;
};

class Timeline {
 public:
  explicit Timeline(Date start) : start_(start) {}

  void note(const std::string& what) {
    std::printf("[+%7.3fs] %s\n", timeIntervalBetween(Clock::currentDate(), start_), what.c_str());
  }
  void check(bool ok, const std::string& what) {
    if (ok) {
      note("ok: " + what);
    } else {
      ++failures_;
      note("FAILED: " + what);
    }
  }
  int failures() const { return failures_; }

 private:
  const Date start_;
  int failures_ = 0;
};

void removeStoreFiles(const std::filesystem::path& path) {
  std::error_code ignored;
  for (const char* suffix : {"", "-wal", "-shm", "-journal"})
    std::filesystem::remove(path.string() + suffix, ignored);
}

int runDemo(const std::filesystem::path& storePath) {
  // 2024-01-01 00:00:00 UTC.
  const Date start = dateWithTimeIntervalSince1970(1'704'067'200);
  auto clock = std::make_shared<ManualClock>(start);
  Clock::setCurrent(clock);
  Timeline timeline(start);
  auto& loop = RunLoop::main();

  // Preferences and the launch count survive closing and reopening the store.
  auto store = SQLitePreferencesStore::open(storePath.string());
  if (!store) {
    timeline.check(false, "open the SQLite preferences store at " + storePath.string());
    return timeline.failures();
  }
  PreferencesStore::setStandard(store);
  store.reset();
  timeline.check(ZTSettings::runCount() == 0, "a fresh store has run count 0");
  ZTSettings::incrementRunCount();
  timeline.check(ZTSettings::incrementRunCount() == 2, "two launches raise the run count to 2");
  PreferencesStore::setStandard(SQLitePreferencesStore::open(storePath.string()));
  timeline.check(ZTSettings::runCount() == 2, "the run count is 2 after reopening the store");

  // Timers fire on the manual clock in due order.
  std::vector<std::pair<std::string, double>> fired;
  auto record = [&](const std::string& name) {
    fired.emplace_back(name, timeIntervalBetween(Clock::currentDate(), start));
    timeline.note("timer " + name + " fired");
  };
  auto refresh = Timer::scheduledTimerWithTimeInterval(30, true, [&](Timer&) { record("refresh (every 30 s)"); });
  Timer::scheduledTimerWithTimeInterval(45, false, [&](Timer&) { record("delayed show (once at 45 s)"); });
  auto cancelled = Timer::scheduledTimerWithTimeInterval(50, false, [&](Timer&) { record("cancelled"); });
  timeline.note("scheduled: refresh every 30 s, a show at 45 s, a cancelled one at 50 s");
  cancelled->invalidate();
  loop.runFor(100);
  refresh->invalidate();
  const std::vector<std::pair<std::string, double>> expectedFires{
      {"refresh (every 30 s)", 30}, {"delayed show (once at 45 s)", 45}, {"refresh (every 30 s)", 60},
      {"refresh (every 30 s)", 90}};
  timeline.check(fired == expectedFires, "timers fired at 30, 45, 60 and 90 s; the cancelled one did not");
  timeline.check(timeIntervalBetween(Clock::currentDate(), start) == 100, "the clock stands at +100 s");

  // Work hops to the background pool and back to the main loop.
  const auto mainThread = std::this_thread::get_id();
  std::atomic<bool> ranInBackground{false};
  std::optional<long> result;
  bool resultOnMain = false;
  timeline.note("handing a sum to the background pool");
  ZTDispatchTools::onBackgroundWithBlock([&] {
    ranInBackground = std::this_thread::get_id() != mainThread;
    long sum = 0;
    for (long i = 1; i <= 1000; ++i) sum += i;
    ZTDispatchTools::onMainWithBlock([&, sum] {
      result = sum;
      resultOnMain = loop.isMainThread();
    });
  });
  const bool arrived = loop.runUntil([&] { return result.has_value(); }, 10);
  timeline.check(arrived && ranInBackground && resultOnMain && result == 500500,
                 "the sum 500500 came back from a pool thread to the main loop");

  // Notifications reach their observer until it is removed.
  int activations = 0;
  const int observer = 0;
  NotificationCenter::defaultCenter().addObserver(&observer, UIApplicationDidBecomeActiveNotification,
                                                  [&](const Notification&) { ++activations; });
  NotificationCenter::defaultCenter().postNotificationName(UIApplicationDidBecomeActiveNotification);
  NotificationCenter::defaultCenter().removeObserver(&observer);
  NotificationCenter::defaultCenter().postNotificationName(UIApplicationDidBecomeActiveNotification);
  timeline.check(activations == 1, "the did-become-active observer was called once, then removed");

  // A record and a map of records are archived into the preferences and read back.
  const DemoRecord saved("welcome", 3, Clock::currentDate(), {"promo", "review"});
  timeline.check(ZTSettings::saveArchivableObject(saved, "demo.record"), "archived a record");
  auto loaded = ZTSettings::getUnarchivedObjectOfClassForKey<DemoRecord>("demo.record");
  timeline.check(loaded && *loaded == saved, "the record read back equals the one saved");
  std::map<std::string, std::shared_ptr<DemoRecord>> map{
      {"a", std::make_shared<DemoRecord>("a", 1, start, std::vector<std::string>{})},
      {"b", std::make_shared<DemoRecord>("b", 2, Clock::currentDate(), std::vector<std::string>{"x"})}};
  timeline.check(ZTSettings::saveDictionaryToPreferences(map, "demo.map"), "archived a map of two records");
  auto loadedMap = ZTSettings::getSafeDictionaryFromPreferencesWithKey<DemoRecord>("demo.map");
  timeline.check(loadedMap.size() == 2 && loadedMap.count("b") && *loadedMap["b"] == *map["b"],
                 "the map read back holds both records");
  const std::vector<std::uint8_t> garbage{0xc1, 0xff, 0x00};
  PreferencesStore::standard()->setData(garbage, "demo.garbage");
  timeline.check(!ZTSettings::getUnarchivedObjectOfClassForKey<DemoRecord>("demo.garbage") &&
                     ZTSettings::getSafeDictionaryFromPreferencesWithKey<DemoRecord>("demo.garbage").empty(),
                 "unreadable bytes read as absent");

  timeline.check(ZTDispatchTools::settleForTesting(), "background pool and main loop are quiet");
  return timeline.failures();
}

}  // namespace

int main() {
  const auto storePath =
      std::filesystem::temp_directory_path() / ("iam_demo_" + std::to_string(::getpid()) + ".sqlite");
  removeStoreFiles(storePath);
  int failures = 0;
  try {
    failures = runDemo(storePath);
  } catch (const std::exception& e) {
    std::printf("FAILED: unexpected exception: %s\n", e.what());
    failures = 1;
  }
  PreferencesStore::setStandard(nullptr);  // closes the SQLite file
  Clock::setCurrent(nullptr);
  removeStoreFiles(storePath);
  std::printf(failures == 0 ? "demo: all checks passed\n" : "demo: %d check(s) failed\n", failures);
  return failures == 0 ? 0 : 1;
}
