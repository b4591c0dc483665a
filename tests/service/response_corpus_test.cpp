#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "iam/service/AdvertisementsResponseParser.h"
#include "iam/service/NativeQualityNetworkResponseParser.h"

namespace iam {
namespace {

class CountingSink final : public ZTIAMParseDiagnostics {
 public:
  void itemDropped(std::string_view, std::string_view) override { ++count; }
  int count = 0;
};

// Each corpus document as a whole answer, as the app configuration, as the advertisements list and
// as a ranked app.
TEST(ServiceParsersCorpus, EveryCorpusFileIsRefusedOrParsedWithoutThrowing) {
  AdvertisementsResponseParser responses;
  NativeQualityNetworkResponseParser qualityNetwork;
  auto info = std::make_shared<OspreyServiceContentInfo>(Date{}, false);
  int files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(IAM_CORPUS_DIR "/jsontestsuite/test_parsing")) {
    std::ifstream in(entry.path(), std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(in), {});
    const bool wellFormed = entry.path().filename().string().rfind("y_", 0) == 0;
    SCOPED_TRACE(entry.path().filename().string());
    ++files;
    CountingSink sink;
    EXPECT_NO_THROW({
      EXPECT_EQ(responses.parse(bytes, info, std::nullopt, &sink), nullptr);
      EXPECT_EQ(qualityNetwork.parse(bytes, info, std::nullopt, &sink), nullptr);
      (void)responses.parse(bytes, info, std::nullopt);
      (void)qualityNetwork.parse(bytes, info, std::nullopt);
      (void)responses.appConfigParser().parse(bytes);
      (void)qualityNetwork.rankedAppParser().parse(bytes, &sink);
      if (wellFormed) {
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
    EXPECT_GT(sink.count, 0);
  }
  EXPECT_GT(files, 300);
}

}  // namespace
}  // namespace iam
