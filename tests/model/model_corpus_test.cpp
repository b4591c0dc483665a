#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "iam/model/AdvertisementParser.h"
#include "model/model_test_support.h"

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

class CountingSink final : public ZTIAMParseDiagnostics {
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
    CountingSink sink;
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
  const auto base = testing::validAdvertisement();
  std::vector<std::string> pointers;
  const auto flat = base.flatten();
  for (const auto& [pointer, value] : flat.items()) pointers.push_back(pointer);
  for (const char* p : {"/lifecycle", "/display", "/okAction", "/advertisedApp", "/advertisedApp/reviewUrl",
                        "/advertisedApp/storeInfo", "/advertisedApp/storeInfo/icon", "/resources", "/triggers",
                        "/triggers/0", "/targets"}) {
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
