#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "iam/model/AdvertisementParser.h"

namespace iam {
namespace {

struct CorpusFile {
  std::string name;
  std::string bytes;
};

std::vector<CorpusFile> corpus() {
  std::vector<CorpusFile> files;
  for (const auto& entry : std::filesystem::directory_iterator(IAM_CORPUS_DIR "/jsontestsuite/test_parsing")) {
    std::ifstream in(entry.path(), std::ios::binary);
    files.push_back({entry.path().filename().string(), std::string(std::istreambuf_iterator<char>(in), {})});
  }
  return files;
}

class SilentSink final : public ZTIAMParseDiagnostics {
 public:
  void itemDropped(std::string_view path, std::string_view reason) override { count += path.size() + reason.size() > 0; }
  int count = 0;
};

TEST(ModelParsersCorpus, EveryCorpusFileIsRefusedOrParsedWithoutThrowing) {
  const auto files = corpus();
  ASSERT_GT(files.size(), 300u);
  AdvertisementParser parser;
  for (const auto& file : files) {
    SCOPED_TRACE(file.name);
    SilentSink sink;
    for (ZTIAMParseDiagnostics* diagnostics : {static_cast<ZTIAMParseDiagnostics*>(nullptr),
                                               static_cast<ZTIAMParseDiagnostics*>(&sink)}) {
      EXPECT_NO_THROW({
        // None of the corpus documents is an advertisement, a trigger or a target.
        EXPECT_EQ(parser.parse(file.bytes, diagnostics), nullptr);
        EXPECT_EQ(parser.triggerParser().parse(file.bytes, diagnostics), nullptr);
        EXPECT_EQ(parser.targetParser().parse(file.bytes, diagnostics), nullptr);
        (void)parser.advertisedAppParser().parse(file.bytes, diagnostics);
      });
    }
    EXPECT_GT(sink.count, 0);  // every refusal is explained
  }
}

// Each well-formed corpus document in the place of each member of a valid advertisement: whatever
// the parser makes of it, it must not fail in any other way.
TEST(ModelParsersCorpus, CorpusValuesInEveryMemberOfAnAdvertisement) {
  const auto base = nlohmann::json::parse(R"({
    "id": "a", "name": "n",
    "lifecycle": {"startTimestamp": 1, "endTimestamp": 2, "maxImpressionCount": 3, "postponeEnabled": true,
                  "postponeDelay": 4},
    "display": {"id": 16}, "okAction": {"id": 1, "url": "u", "advertisementId": "b"},
    "dataSource": {"id": 1}, "state": {"id": 1}, "ignoreGlobalMinimumPopupTimeInterval": false,
    "advertisedApp": {"id": "p", "packageName": "q", "publisher": "r", "storeUrl": "s", "reviewUrl": "t",
                      "rating": 4, "free": true, "resources": {"x": "y"},
                      "storeInfo": {"id": 1, "bundleId": "b", "name": "n", "iconTitle": "i", "subtitle": "s",
                                    "icon": {"60": "a", "100": "b", "512": "c"}}},
    "resources": {"title": "t"},
    "triggers": [{"id": "t", "key": "k", "thresholdCount": 1, "displayDelay": 2, "maxFireCount": 3,
                  "repeatIntervalCount": 4}],
    "targets": [{"id": "g", "key": "s", "customViewClass": "c", "rowIndex": 1, "rowRepeatInterval": 2,
                 "sectionIndex": 3, "sectionRepeatInterval": 4}]
  })");
  std::vector<std::string> pointers;
  const auto flat = base.flatten();
  for (const auto& [pointer, value] : flat.items()) pointers.push_back(pointer);
  for (const char* p : {"/lifecycle", "/display", "/okAction", "/advertisedApp", "/advertisedApp/storeInfo",
                        "/advertisedApp/storeInfo/icon", "/resources", "/triggers", "/triggers/0", "/targets"}) {
    pointers.emplace_back(p);
  }

  AdvertisementParser parser;
  int substituted = 0;
  for (const auto& file : corpus()) {
    if (file.name.rfind("y_", 0) != 0) continue;
    const std::string placeholder = "\"@@corpus@@\"";
    for (const auto& pointer : pointers) {
      auto doc = base;
      doc[nlohmann::json::json_pointer(pointer)] = "@@corpus@@";
      auto text = doc.dump();
      text.replace(text.find(placeholder), placeholder.size(), file.bytes);
      SCOPED_TRACE(file.name + " at " + pointer);
      EXPECT_NO_THROW((void)parser.parse(text));
      ++substituted;
    }
  }
  EXPECT_GT(substituted, 1000);
}

}  // namespace
}  // namespace iam
