#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "iam/model/AdvertisementParser.h"
#include "model/model_test_support.h"

namespace iam {
namespace {

TEST(ModelParsersCorpus, EveryCorpusFileIsRefusedOrParsedWithoutThrowing) {
  const auto files = testing::jsonCorpus();
  ASSERT_GT(files.size(), 300u);
  AdvertisementParser parser;
  for (const auto& file : files) {
    SCOPED_TRACE(file.name);
    ZTIAMCollectingParseDiagnostics sink;
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
    // Every refusal is explained.
    ASSERT_FALSE(sink.lines().empty());
    EXPECT_FALSE(sink.lines()[0].empty());
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
  const std::string placeholder = "\"@@corpus@@\"";
  int substituted = 0;
  for (const auto& file : testing::jsonCorpus()) {
    if (!file.wellFormed()) continue;
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
