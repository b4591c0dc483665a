#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "iam/model/ZTIAMAdvertisementDisplayType.h"
#include "iam/model/ZTIAMAdvertisementEventType.h"

namespace iam {
namespace {

// The first use of a converter may come from several threads at once (event evaluation runs in
// the background); every one must see the whole table.
TEST(EnumConvertersConcurrency, FirstUseFromManyThreadsSeesTheWholeTable) {
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 200; ++i) {
        if (StringFromZTIAMAdvertisementDisplayType(ZTIAMAdvertisementDisplayTypeReviewQuestion) !=
            "ZTIAMAdvertisementDisplayTypeReviewQuestion") {
          ++wrong;
        }
        if (ZTIAMAdvertisementEventTypeFromString("ZTIAMAdvertisementEventTypePostpone") !=
            ZTIAMAdvertisementEventTypePostpone) {
          ++wrong;
        }
      }
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(wrong.load(), 0);
}

}  // namespace
}  // namespace iam
