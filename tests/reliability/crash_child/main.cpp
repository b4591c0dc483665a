// Counts app events through a manager over an SQLite preferences file, in a loop, and writes to a
// file descriptor what it found when it started and each count it has seen saved. A parent kills
// it at random moments and checks that no count it was told about is ever lost.
//
//   crash_child PREFERENCES_FILE REPORT_FD LOOPS [full]
//
// LOOPS 0 reports what was found and exits. With "full" the file cannot grow (a file size limit, as
// on a full disk) from before the launch is counted until the last loop. The store's log lines are
// reported too.
// Lines written: "start EVENTS FIRES LAUNCHES", "saved EVENTS FIRES", "unreadable KEY", "log MESSAGE".

#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string>

#include <nlohmann/json.hpp>

#include "iam/ArchivableClasses.h"
#include "iam/manager/ZTInAppMarketingManager.h"
#include "iam/platform/KeyedUnarchiver.h"
#include "iam/platform/LogBridge.h"
#include "iam/platform/RunLoop.h"
#include "iam/platform/SQLitePreferencesStore.h"
#include "iam/platform/ZTDispatchTools.h"
#include "iam/platform/ZTSettings.h"
#include "iam/service/IAMWebService.h"
#include "iam/stats/ZTIAMStatsHelper.h"
#include "tools/refservice/ReferenceMarketingService.h"

namespace {

using namespace iam;

int reportFd = -1;

void report(const std::string& line) {
  const std::string out = line + "\n";
  // A line is far below PIPE_BUF, so one write puts it in the pipe whole or not at all.
  if (::write(reportFd, out.data(), out.size()) != static_cast<ssize_t>(out.size())) std::_Exit(3);
}

// Every stored value must read back as the library reads it.
bool readable(PreferencesStore& store, const std::string& key) {
  const auto data = store.dataForKey(key);
  if (!data) return false;
  if (key == ZTIAMStatsHelper::kAdvertisementStatsKey)
    return KeyedUnarchiver::unarchivedDictionaryOfClass<ZTIAMAdvertisementStats>(*data).has_value();
  if (key == ZTIAMStatsHelper::kGlobalAppEventStatsKey)
    return KeyedUnarchiver::unarchivedDictionaryOfClass<ZTIAMAppEventStats>(*data).has_value();
  if (key == ZTInAppMarketingManagerLogic::kMostRecentAdvertisementResponseKey ||
      key == ZTInAppMarketingManagerLogic::kMostRecentNativeQualityNetworkResponseKey)
    return ZTSettings::getUnarchivedObjectForKey(key) != nullptr;
  return KeyedUnarchiver::withArchive(*data, [](const ArchiveValue&) {});
}

// One preload advertisement whose trigger fires on every "ev".
std::string answer() {
  const nlohmann::json ad{{"id", "p"}, {"lifecycle", nlohmann::json::object()}, {"display", {{"id", 15}}},
                          {"okAction", {{"id", 0}}}, {"dataSource", {{"id", 1}}}, {"state", {{"id", 1}}},
                          {"ignoreGlobalMinimumPopupTimeInterval", false},
                          {"resources", {{"dfpInterstitialIdentifier", "/1/x"}}},
                          {"triggers", {{{"id", "pt"}, {"key", "ev"}}}}};
  return nlohmann::json{{"advertisements", {ad}}, {"appConfig", {{"minimumPopupImpressionTimeInterval", 0}}}}.dump();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4 && argc != 5) return 2;
  const bool full = argc == 5 && std::string(argv[4]) == "full";
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);  // a write past the limit fails with EFBIG instead
  reportFd = std::atoi(argv[2]);
  const long loops = std::atol(argv[3]);

  RunLoop::main().runUntilIdle();  // this thread is the main thread
  // The parent hears what the store says; the rest (a preload nobody shows) is expected noise.
  LogBridge::setSink([](const LogRecord& r) {
    if (r.filename == "iam/platform/SQLitePreferencesStore") report("log " + r.message);
  });
  registerArchivableClasses();
  auto store = SQLitePreferencesStore::open(argv[1]);
  if (!store) return 2;
  PreferencesStore::setStandard(store);
  for (const auto& key : store->allKeys()) {
    if (!readable(*store, key)) report("unreadable " + key);
  }

  ReferenceMarketingService service;
  service.setAnswer(ReferenceMarketingService::kAdvertisementsMethod, answer());
  if (!service.start()) return 2;
  IAMWebService::setDefaultBaseUrl(service.baseUrl());

  auto limitFileSize = [](rlim_t bytes) {
    const rlimit limit{bytes, RLIM_INFINITY};
    ::setrlimit(RLIMIT_FSIZE, &limit);
  };
  if (full) limitFileSize(1);
  const std::int64_t launches = ZTSettings::incrementRunCount();
  auto manager = ZTInAppMarketingManager::create();
  auto counts = [&] {
    return std::to_string(manager->getAppEventStatsByEventKey("ev")->count()) + " " +
           std::to_string(manager->getAdvertisementStatsByAdvertisementId("p")->getTriggerStatsWithTriggerId("pt")->count());
  };
  report("start " + counts() + " " + std::to_string(launches));
  manager->setActive(true);
  ZTDispatchTools::settle();
  for (long i = 0; i < loops; ++i) {
    if (full && i + 1 == loops) limitFileSize(RLIM_INFINITY);
    manager->handleAppEvent("ev");
    // The count is on the pool; its save is queued behind it on the statistics queue.
    ZTDispatchTools::settle();
    manager->statsHelper().waitUntilSavesAreFinished();
    report("saved " + counts());
  }
  manager->setActive(false);
  ZTDispatchTools::settle();
  return 0;
}
