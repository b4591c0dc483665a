#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "iam/model/AdvertisementParser.h"
#include "model/model_test_support.h"

namespace iam {
namespace {

// Each corpus document is refused as an advertisement, a trigger and a target, with a reason.
// Each well-formed one also stands in place of each member of a valid advertisement: whatever the
// parser makes of it, it must not fail in any other way.
TEST(ModelParsersCorpus, EveryCorpusFileAloneOrInEveryMemberIsRefusedOrParsedWithoutThrowing) {
  const auto files = testing::jsonCorpus();
  ASSERT_GT(files.size(), 300u);
  const auto base = testing::validAdvertisement();
  std::vector<std::string> pointers;
  const auto flat = base.flatten();
  for (const auto& [pointer, value] : flat.items()) pointers.push_back(pointer);
  for (const char* p : {"/lifecycle", "/display", "/okAction", "/advertisedApp", "/advertisedApp/reviewUrl",
                        "/advertisedApp/storeInfo", "/advertisedApp/storeInfo/icon", "/resources", "/triggers",
                        "/triggers/0", "/targets"}) {
    pointers.emplace_back(p);
  }
  const std::string placeholder = "\"@@corpus@@\"";
  AdvertisementParser parser;
  int substituted = 0;
  for (const auto& file : files) {
    SCOPED_TRACE(file.name);
    ZTIAMCollectingParseDiagnostics sink;
    for (ZTIAMParseDiagnostics* diagnostics : {static_cast<ZTIAMParseDiagnostics*>(nullptr),
                                               static_cast<ZTIAMParseDiagnostics*>(&sink)}) {
      EXPECT_NO_THROW({
        EXPECT_EQ(parser.parse(file.bytes, diagnostics), nullptr);
        EXPECT_EQ(parser.triggerParser().parse(file.bytes, diagnostics), nullptr);
        EXPECT_EQ(parser.targetParser().parse(file.bytes, diagnostics), nullptr);
        (void)parser.advertisedAppParser().parse(file.bytes, diagnostics);
      });
    }
    ASSERT_FALSE(sink.lines().empty());
    EXPECT_FALSE(sink.lines()[0].empty());
    if (!file.wellFormed()) continue;
    for (const auto& pointer : pointers) {
      auto doc = base;
      doc[nlohmann::json::json_pointer(pointer)] = "@@corpus@@";
      auto text = doc.dump();
      text.replace(text.find(placeholder), placeholder.size(), file.bytes);
      SCOPED_TRACE(pointer);
      EXPECT_NO_THROW((void)parser.parse(text));
      ++substituted;
    }
  }
  EXPECT_GT(substituted, 1000);
}

}  // namespace
}  // namespace iam
