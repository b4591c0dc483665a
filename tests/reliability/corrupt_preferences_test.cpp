#include <iostream>
#include <random>

#include "iam/platform/KeyedUnarchiver.h"
#include "iam/platform/ZTSettings.h"
#include "iam/stats/ZTIAMStatsHelper.h"
#include "manager/ManagerFixture.h"
#include "reliability/ReliabilityRuns.h"

namespace iam {
namespace {

using Bytes = std::vector<std::uint8_t>;

TEST_F(ManagerTest, DamagedStoredValuesReadAsAbsentAndTheManagerStartsEveryTime) {
  // Something to damage: both answers cached and both statistics maps saved.
  const json trigger = json::array({{{"id", "pt"}, {"key", "ev"}}});
  service_.setAnswer(kAds, adsAnswer({"r"}, 0, json::array({ad("p", 15, {{"triggers", trigger}})})));
  activeManager();
  manager_->setNativeQualityNetworkEnabled(true);
  finishRequests();
  manager_->handleAppEvent("ev");
  env_.settle();
  dropManager();
  auto& store = *env_.preferences();
  const std::string appEvents(ZTIAMStatsHelper::kGlobalAppEventStatsKey);
  const std::vector<std::string> keys{std::string(ZTInAppMarketingManagerLogic::kMostRecentAdvertisementResponseKey),
                                      std::string(ZTInAppMarketingManagerLogic::kMostRecentNativeQualityNetworkResponseKey),
                                      std::string(ZTIAMStatsHelper::kAdvertisementStatsKey), appEvents};
  std::map<std::string, Bytes> good;
  for (const auto& key : keys) {
    auto data = store.dataForKey(key);
    ASSERT_TRUE(data) << key;
    good[key] = *data;
  }

  std::mt19937 random(testing::reliabilitySeed());
  auto below = [&](std::size_t n) { return std::uniform_int_distribution<std::size_t>(0, n - 1)(random); };
  const int rounds = testing::reliabilityLongForm() ? 3000 : 300;
  int flips = 0, truncations = 0, answersLost = 0;
  for (int round = 0; round < rounds; ++round) {
    for (const auto& [key, value] : good) store.setData(value, key);
    const std::string& key = keys[below(keys.size())];
    Bytes damaged = good[key];
    if (below(3) == 0) {
      damaged.resize(below(damaged.size()));
      ++truncations;
    } else {
      for (std::size_t n = 1 + below(4); n > 0; --n) damaged[below(damaged.size())] ^= static_cast<std::uint8_t>(1u << below(8));
      ++flips;
    }
    store.setData(damaged, key);
    const bool answerLost = key == keys[0] && !ZTSettings::getUnarchivedObjectForKey(key);
    answersLost += answerLost;
    const std::size_t requests = service_.requestCount(kAds);

    activeManager();
    // Held: the cached answer, or a fresh one when the cached one could not be read.
    EXPECT_TRUE(manager_->mostRecentAdvertisementResponse()) << "round " << round;
    if (answerLost) {
      EXPECT_GT(service_.requestCount(kAds), requests) << "round " << round;
    }
    // Counting goes on, and what is saved next reads back.
    manager_->handleAppEvent("ev");
    env_.settle();
    auto saved = KeyedUnarchiver::unarchivedDictionaryOfClass<ZTIAMAppEventStats>(*store.dataForKey(appEvents));
    ASSERT_TRUE(saved) << "round " << round;
    ASSERT_TRUE(saved->contains("ev")) << "round " << round;
    EXPECT_GE((*saved)["ev"]->count(), 1) << "round " << round;
    dropManager();
  }
  std::cout << "damaged values: " << rounds << " managers started, " << flips << " with flipped bits, " << truncations
            << " truncated, " << answersLost << " cached answers unreadable and fetched again\n";
}

}  // namespace
}  // namespace iam
