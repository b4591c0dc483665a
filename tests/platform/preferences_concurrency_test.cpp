#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "iam/platform/PreferencesStore.h"
#include "iam/platform/ZTSettings.h"
#include "iam/platform/InMemoryPreferencesStore.h"
#include "iam/platform/SQLitePreferencesStore.h"
#include "platform/ScratchDirectory.h"
#include "testing/TestEnvironment.h"

namespace iam {
namespace {

constexpr int kThreads = 6;
constexpr int kRounds = 150;

std::vector<std::uint8_t> valueFor(int thread, int round) {
  const std::string s = "t" + std::to_string(thread) + "r" + std::to_string(round) + std::string(round % 40, '#');
  return {s.begin(), s.end()};
}

// Threads write their own keys and one shared key while reading everybody's; afterwards each key
// holds exactly its last write and every read saw a whole value.
void hammer(PreferencesStore& store) {
  std::atomic<int> tornReads{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int r = 0; r < kRounds; ++r) {
        ASSERT_TRUE(store.setData(valueFor(t, r), "own" + std::to_string(t)));
        ASSERT_TRUE(store.setData(valueFor(t, r), "shared"));
        if (auto seen = store.dataForKey("shared")) {
          int writer = -1, round = -1;
          const std::string s(seen->begin(), seen->end());
          if (std::sscanf(s.c_str(), "t%dr%d", &writer, &round) != 2 || *seen != valueFor(writer, round)) ++tornReads;
        }
        if (r % 10 == 0) (void)store.allKeys();
        if (r % 25 == 0) store.removeObjectForKey("scratch" + std::to_string(t));
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(tornReads.load(), 0);
  for (int t = 0; t < kThreads; ++t) EXPECT_EQ(store.dataForKey("own" + std::to_string(t)), valueFor(t, kRounds - 1));
  EXPECT_EQ(store.allKeys().size(), kThreads + 1u);
}

class PreferencesConcurrencyTest : public ::testing::Test {
 protected:
  testing::TestEnvironment env;
  testing::ScratchDirectory dir;
};

TEST_F(PreferencesConcurrencyTest, ConcurrentWritesAndReadsLeaveExactValues) {
  InMemoryPreferencesStore memory;
  hammer(memory);
  auto sqlite = SQLitePreferencesStore::open(dir.file("concurrent.sqlite"));
  ASSERT_TRUE(sqlite);
  hammer(*sqlite);
}

TEST_F(PreferencesConcurrencyTest, NoLaunchIsLostAndTheStandardStoreSwapsSafely) {
  PreferencesStore::setStandard(SQLitePreferencesStore::open(dir.file("runs.sqlite")));
  std::atomic<bool> stop{false};
  std::thread reader([&] {
    for (std::int64_t count = 0; !stop; count = ZTSettings::runCount()) ASSERT_TRUE(count >= 0 && count <= kThreads * 20);
  });
  std::vector<std::thread> launches;
  for (int t = 0; t < kThreads; ++t)
    launches.emplace_back([] { for (int i = 0; i < 20; ++i) ZTSettings::incrementRunCount(); });
  for (auto& th : launches) th.join();
  stop = true;
  reader.join();
  EXPECT_EQ(ZTSettings::runCount(), kThreads * 20);

  // Swapping the store while others use it: each user keeps the store it got alive.
  std::atomic<bool> done{false};
  std::thread user([&] { while (!done) PreferencesStore::standard()->setData(std::vector<std::uint8_t>{1}, "k"); });
  for (int i = 0; i < 50; ++i) PreferencesStore::setStandard(std::make_shared<InMemoryPreferencesStore>());
  done = true;
  user.join();
}

}  // namespace
}  // namespace iam
