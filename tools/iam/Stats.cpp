#include <nlohmann/json.hpp>

#include <array>
#include <cstring>
#include <fstream>
#include <memory>
#include <ostream>
#include <string>

#include "iam/ArchivableClasses.h"
#include "iam/capi/StatsJson.h"
#include "iam/manager/ZTInAppMarketingManagerLogic.h"
#include "iam/platform/PreferencesStore.h"
#include "iam/platform/SQLitePreferencesStore.h"
#include "iam/platform/ZTSettings.h"
#include "iam/service/AdvertisementsRequestResponse.h"
#include "iam/service/NativeQualityNetworkResponse.h"
#include "iam/stats/ZTIAMStatsHelper.h"
#include "tools/iam/Commands.h"
#include "tools/iam/IsoDate.h"

namespace iam::tool {

namespace {

// The store opens read-write and would make an empty or foreign file into a database; only a file
// that already is one is opened, so that looking never writes.
bool isSQLiteFile(const std::string& path) {
  static constexpr char kMagic[16] = "SQLite format 3";  // with its terminating zero: 16 bytes
  std::array<char, 16> head{};
  std::ifstream in(path, std::ios::binary);
  return in.read(head.data(), head.size()) && std::memcmp(head.data(), kMagic, head.size()) == 0;
}

// How many entries a cached answer holds, its entity tag and when it arrived; null without one.
template <class Response, class Count>
nlohmann::json cachedAnswer(std::string_view key, Count count) {
  auto response = ZTSettings::getUnarchivedObjectOfClassForKey<Response>(key);
  if (!response) return nullptr;
  nlohmann::json out = {{"count", count(*response)}, {"etag", nullptr}, {"fetchedAt", nullptr}};
  if (auto etag = response->etag()) out["etag"] = *etag;
  if (auto info = response->contentInfo()) out["fetchedAt"] = isoDate(info->localCreatedAt());
  return out;
}

void printCached(const char* what, const char* noun, const nlohmann::json& answer, std::ostream& out) {
  out << "  " << what << ": ";
  if (answer.is_null()) {
    out << "none\n";
    return;
  }
  out << answer["count"].get<std::size_t>() << ' ' << noun << ", entity tag "
      << (answer["etag"].is_null() ? std::string("none") : answer["etag"].get<std::string>()) << ", fetched "
      << (answer["fetchedAt"].is_null() ? std::string("at an unknown time") : answer["fetchedAt"].get<std::string>())
      << "\n";
}

void printText(const nlohmann::json& stats, std::ostream& out) {
  out << "launches: " << stats["launches"].get<std::int64_t>() << "\n";
  out << "app events:" << (stats["events"].empty() ? " none" : "") << "\n";
  for (const auto& [key, count] : stats["events"].items())
    out << "  " << key << ": " << count.get<std::int64_t>() << "\n";
  out << "advertisements:" << (stats["advertisements"].empty() ? " none" : "") << "\n";
  for (const auto& [id, record] : stats["advertisements"].items()) {
    out << "  " << id << ": " << record["impressions"].get<std::int64_t>() << " impressions, "
        << record["clicks"].get<std::int64_t>() << " clicks, " << record["dismisses"].get<std::int64_t>()
        << " dismisses, " << record["postpones"].get<std::int64_t>() << " postpones\n";
    for (const auto& [trigger, count] : record["triggers"].items())
      out << "    trigger " << trigger << " fired " << count.get<std::int64_t>() << "\n";
  }
  out << "cached answers:\n";
  printCached("advertisements", "advertisements", stats["cache"]["advertisements"], out);
  printCached("ranked apps", "ranked apps", stats["cache"]["rankedApps"], out);
}

}  // namespace

int runStats(const StatsOptions& options, std::ostream& out, std::ostream& err) {
  if (!isSQLiteFile(options.prefs)) {
    err << "iam stats: '" << options.prefs << "' is missing or not an SQLite preferences file\n";
    return 2;
  }
  // Read-only: inspecting a host's file must never write it or move a damaged one aside.
  auto store = SQLitePreferencesStore::open(options.prefs, SQLitePreferencesStore::Mode::ReadOnly);
  if (!store) {
    err << "iam stats: cannot open '" << options.prefs << "'\n";
    return 2;
  }
  registerArchivableClasses();
  const auto previous = PreferencesStore::standard();
  PreferencesStore::setStandard(store);
  nlohmann::json stats;
  {
    const ZTIAMStatsHelper helper;
    stats = statsToJson(helper, ZTSettings::runCount());
  }
  stats["cache"] = {
      {"advertisements",
       cachedAnswer<AdvertisementsRequestResponse>(ZTInAppMarketingManagerLogic::kMostRecentAdvertisementResponseKey,
                                                   [](const auto& r) { return r.advertisements().size(); })},
      {"rankedApps", cachedAnswer<NativeQualityNetworkResponse>(
                         ZTInAppMarketingManagerLogic::kMostRecentNativeQualityNetworkResponseKey,
                         [](const auto& r) { return r.qualityNetworkRankedApps().size(); })}};
  PreferencesStore::setStandard(previous);

  if (options.json)
    // Keys read back from a damaged file may not be UTF-8; print them rather than fail.
    out << stats.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << "\n";
  else
    printText(stats, out);
  return 0;
}

}  // namespace iam::tool
