// Writes the seed corpora: fuzz_make_seeds SOURCE_DIR OUT_DIR makes OUT_DIR/{advertisements,
// quality_network,archive,stats}. The JSON seeds are the examples and the tests' data; the archive
// and statistics seeds are what the library itself stores for them, plus the records at the edge
// of the counters (a count of INT64_MAX, a negative count).
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <memory>
#include <string>

#include "iam/ArchivableClasses.h"
#include "iam/platform/InMemoryPreferencesStore.h"
#include "iam/platform/KeyedArchiver.h"
#include "iam/platform/LogBridge.h"
#include "iam/service/AdvertisementsResponseParser.h"
#include "iam/service/NativeQualityNetworkResponseParser.h"
#include "iam/stats/ZTIAMStatsHelper.h"

namespace fs = std::filesystem;

namespace {

std::string readText(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void write(const fs::path& path, const void* data, std::size_t size) {
  std::ofstream(path, std::ios::binary).write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
}
void write(const fs::path& path, const iam::Data& data) { write(path, data.data(), data.size()); }

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: fuzz_make_seeds SOURCE_DIR OUT_DIR\n");
    return 2;
  }
  iam::LogBridge::setSink([](const iam::LogRecord&) {});
  iam::registerArchivableClasses();
  const fs::path source = argv[1], out = argv[2];
  for (const char* corpus : {"advertisements", "quality_network", "archive", "stats"})
    fs::create_directories(out / corpus);

  auto contentInfo = std::make_shared<iam::OspreyServiceContentInfo>(iam::Date{std::chrono::seconds(1700000000)}, false);
  const iam::AdvertisementsResponseParser answers;
  const iam::NativeQualityNetworkResponseParser ranked;
  std::shared_ptr<iam::AdvertisementsRequestResponse> campaign;

  const fs::path jsonSeeds[] = {source / "examples/campaign.json", source / "examples/ranked.json",
                                source / "tests/tools/data/campaign_good.json",
                                source / "tests/tools/data/campaign_bad.json", source / "tests/tools/data/ranked.json"};
  for (const auto& path : jsonSeeds) {
    const std::string text = readText(path);
    const std::string name = path.parent_path().filename().string() + "-" + path.filename().string();
    const bool isRanked = path.filename().string().starts_with("ranked");
    write(out / (isRanked ? "quality_network" : "advertisements") / name, text.data(), text.size());
    if (isRanked) {
      if (auto r = ranked.parse(text, contentInfo, std::string("\"e\""))) {
        write(out / "archive" / (name + ".archive"), iam::KeyedArchiver::archivedDataWithRootObject(*r));
      }
    } else if (auto r = answers.parse(text, contentInfo, std::string("\"e\""))) {
      write(out / "archive" / (name + ".archive"), iam::KeyedArchiver::archivedDataWithRootObject(*r));
      if (!campaign) campaign = r;
    }
  }
  // Malformed JSON of every kind, for both answer parsers.
  for (const auto& entry : fs::directory_iterator(source / "tests/corpus/jsontestsuite/test_parsing")) {
    for (const char* corpus : {"advertisements", "quality_network"})
      fs::copy_file(entry.path(), out / corpus / entry.path().filename(), fs::copy_options::overwrite_existing);
  }

  // The maps as the statistics store saves them after a few days of use of the example campaign.
  auto store = std::make_shared<iam::InMemoryPreferencesStore>();
  iam::PreferencesStore::setStandard(store);
  {
    iam::ZTIAMStatsHelper stats;
    for (const char* key : {"levelComplete", "levelComplete", "openShop"}) stats.handleAppEventWithKey(key);
    if (campaign) {
      for (const auto& advertisement : campaign->advertisements()) {
        auto record = stats.getAdvertisementStatsByAdvertisementId(advertisement->advertisementId());
        record->handleImpression();
        record->handleClick();
        for (const auto& trigger : advertisement->triggers()) stats.handleTriggerFired(*trigger);
      }
    }
    auto edge = stats.getAdvertisementStatsByAdvertisementId("at-the-edge");
    edge->setNumberOfImpressions(std::numeric_limits<std::int64_t>::max());
    stats.saveAdvertisementStats();
    stats.waitUntilSavesAreFinished();
  }
  write(out / "stats/advertisements", *store->dataForKey(iam::ZTIAMStatsHelper::kAdvertisementStatsKey));
  write(out / "stats/app-events", *store->dataForKey(iam::ZTIAMStatsHelper::kGlobalAppEventStatsKey));
  // An app event record whose count is INT64_MAX, as the store writes it.
  static const char kMaxCountRecord[] =
      "df00000001a16b92c712015a5449414d4170704576656e745374617473df00000003a95f6576656e744b6579a16ba65f636f756e74cf"
      "7fffffffffffffffd9214e534f626a6563742b5265666c656374696f6e5f6578636c756465644976617273dd00000000";
  iam::Data record;
  for (std::size_t i = 0; kMaxCountRecord[i] != 0; i += 2)
    record.push_back(static_cast<std::uint8_t>(std::stoi(std::string(kMaxCountRecord + i, 2), nullptr, 16)));
  write(out / "stats/app-event-max-count", record);
  iam::PreferencesStore::setStandard(nullptr);
  return 0;
}
