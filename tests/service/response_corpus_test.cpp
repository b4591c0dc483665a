#include <gtest/gtest.h>

#include <string>

#include "iam/service/AdvertisementsResponseParser.h"
#include "iam/service/NativeQualityNetworkResponseParser.h"
#include "model/model_test_support.h"

namespace iam {
namespace {

// Each corpus document as a whole answer, as the app configuration, as the advertisements list and
// as a ranked app.
TEST(ServiceParsersCorpus, EveryCorpusFileIsRefusedOrParsedWithoutThrowing) {
  AdvertisementsResponseParser responses;
  NativeQualityNetworkResponseParser qualityNetwork;
  auto info = std::make_shared<OspreyServiceContentInfo>(Date{}, false);
  const auto files = testing::jsonCorpus();
  ASSERT_GT(files.size(), 300u);
  for (const auto& [name, bytes] : files) {
    SCOPED_TRACE(name);
    ZTIAMCollectingParseDiagnostics sink;
    EXPECT_NO_THROW({
      EXPECT_EQ(responses.parse(bytes, info, std::nullopt, &sink), nullptr);
      EXPECT_EQ(qualityNetwork.parse(bytes, info, std::nullopt, &sink), nullptr);
      (void)responses.parse(bytes, info, std::nullopt);
      (void)qualityNetwork.parse(bytes, info, std::nullopt);
      (void)responses.appConfigParser().parse(bytes);
      (void)qualityNetwork.rankedAppParser().parse(bytes, &sink);
      if (name.rfind("y_", 0) == 0) {
        const std::string config = R"({"minimumPopupImpressionTimeInterval": 1})";
        (void)responses.parse(R"({"advertisements": [], "appConfig": )" + bytes + "}", info, std::nullopt, &sink);
        (void)responses.parse(R"({"appConfig": )" + config + R"(, "advertisements": )" + bytes + "}", info, "e", &sink);
        (void)responses.parse(R"({"appConfig": )" + config + R"(, "advertisements": [)" + bytes + "]}", info, "e", &sink);
        (void)responses.parse(R"({"appConfig": {"minimumPopupImpressionTimeInterval": 1, "attributes": )" + bytes + "}}",
                              info, "e", &sink);
        (void)qualityNetwork.parse(R"({"rankedApps": [)" + bytes + "]}", info, std::nullopt, &sink);
        (void)qualityNetwork.parse(R"({"rankedApps": [{"id": "a", "priorityId": 1, "advertisedApp": )" + bytes + "}]}",
                                   info, std::nullopt, &sink);
      }
    });
    EXPECT_FALSE(sink.entries().empty());
  }
}

}  // namespace
}  // namespace iam
