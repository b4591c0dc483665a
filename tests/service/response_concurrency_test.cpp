#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "iam/service/AdvertisementsRequestResponse.h"
#include "iam/service/NativeQualityNetworkResponse.h"

namespace iam {
namespace {

// A held answer is saved on a background thread while the main thread renews its content info
// (a not-modified answer); both must see whole values.
TEST(ResponseConcurrency, RenewingWhileSavingIsRaceFree) {
  auto ads = std::vector<std::shared_ptr<Advertisement>>{std::make_shared<Advertisement>("a")};
  auto response = std::make_shared<AdvertisementsRequestResponse>(
      ads, std::make_shared<OspreyServiceContentInfo>(Date{}, false),
      std::make_shared<AppConfig>(1, std::map<std::string, std::string>{}));
  NativeQualityNetworkResponse ranked({std::make_shared<ZTIAMQualityNetworkRankedApp>("r")},
                                      std::make_shared<OspreyServiceContentInfo>(Date{}, false));
  std::atomic<bool> done{false};
  std::thread saver([&] {
    int saved = 0;
    while (!done.load() || saved < 50) {
      auto decoded =
          KeyedUnarchiver::unarchivedObjectOfClass<AdvertisementsRequestResponse>(KeyedArchiver::archivedDataWithRootObject(*response));
      ASSERT_TRUE(decoded);
      EXPECT_EQ(decoded->etag().has_value(), decoded->etag() == std::optional<std::string>("e"));
      (void)response->isExpired();
      (void)KeyedArchiver::archivedDataWithRootObject(ranked);
      ++saved;
    }
  });
  for (int i = 0; i < 500; ++i) {
    response->setContentInfo(std::make_shared<OspreyServiceContentInfo>(dateWithTimeIntervalSince1970(i), i % 2 == 0));
    response->setEtag(i % 3 ? std::optional<std::string>("e") : std::nullopt);
    ranked.setEtag("x");
    ranked.setContentInfo(std::make_shared<OspreyServiceContentInfo>(dateWithTimeIntervalSince1970(i), false));
  }
  done = true;
  saver.join();
  EXPECT_EQ(response->advertisements().size(), 1u);
}

}  // namespace
}  // namespace iam
