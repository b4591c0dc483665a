#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "iam/stats/LegacyReflection.h"
#include "iam/stats/internal/LegacyBox.h"
#include "stats/StatsTestSupport.h"

namespace iam {
namespace {

using testing::archive;
using testing::unarchive;

// Padding between members and at the end: 24 bytes.
struct Mixed {
  char c;
  std::int32_t i;
  double d;
  std::int16_t s;
};
struct Opaque {};

class SampleBase : public LegacyReflectable {
 public:
  static const LegacyClass& legacyClass() {
    static constexpr LegacyIvar kIvars[] = {legacyIvar<&SampleBase::baseValue_>("_baseValue", "i")};
    static const LegacyClass kClass{"SampleBase", &LegacyReflectable::legacyClass(), kIvars};
    return kClass;
  }
  const LegacyClass& legacyReflectedClass() const override { return legacyClass(); }

  std::int32_t baseValue_ = 0;
};

class Sample : public SampleBase, public Archivable {
 public:
  static constexpr std::string_view kArchiveClassName = "ReflectionSample";
  static const LegacyClass& legacyClass() {
    using S = Sample;
    static constexpr LegacyIvar kIvars[] = {
        legacyIvar<&S::flag_>("_flag", "B"),
        legacyIvar<&S::tiny_>("_tiny", "c"),
        legacyIvar<&S::uintValue_>("_uint", "I"),
        legacyIvar<&S::big_>("_big", "q"),
        legacyIvar<&S::ubig_>("_ubig", "Q"),
        legacyIvar<&S::ratio_>("_ratio", "f"),
        legacyIvar<&S::amount_>("_amount", "d"),
        legacyIvar<&S::name_>("_name", "@\"NSString\""),
        legacyIvar<&S::nothing_>("_nothing", "@\"NSString\""),
        legacyIvar<&S::mixed_>("_mixed", "{Mixed=cids}"),
        legacyIvar<&S::pointer_>("_pointer", "^i"),
        legacyIvar<&S::opaque_>("_opaque", "@\"Opaque\""),
    };
    static const LegacyClass kClass{"Sample", &SampleBase::legacyClass(), kIvars};
    return kClass;
  }
  const LegacyClass& legacyReflectedClass() const override { return legacyClass(); }
  std::string_view archiveClassName() const override { return kArchiveClassName; }
  void encodeWithCoder(KeyedArchiver& coder) const override { automatedEncodeWithEncoder(coder); }
  static std::shared_ptr<Sample> initWithCoder(const KeyedUnarchiver& coder) {
    auto s = std::make_shared<Sample>();
    s->automatedDecodeWithDecoder(coder);
    return s;
  }

  bool flag_ = false;
  std::int8_t tiny_ = 0;
  std::uint32_t uintValue_ = 0;
  std::int64_t big_ = 0;
  std::uint64_t ubig_ = 0;
  float ratio_ = 0;
  double amount_ = 0;
  std::string name_;
  std::optional<std::string> nothing_;
  Mixed mixed_{};
  int* pointer_ = nullptr;
  std::shared_ptr<Opaque> opaque_;
};

// A sample whose every archivable field differs from its initial value.
std::shared_ptr<Sample> filledSample() {
  auto s = std::make_shared<Sample>();
  s->baseValue_ = -7;
  s->flag_ = true;
  s->tiny_ = std::numeric_limits<std::int8_t>::min();
  s->uintValue_ = 4'000'000'000u;
  s->big_ = std::numeric_limits<std::int64_t>::min();
  s->ubig_ = std::numeric_limits<std::uint64_t>::max();
  s->ratio_ = -0.375f;
  s->amount_ = 1e300;
  s->name_ = "héllo";
  std::memset(&s->mixed_, 0xA5, sizeof(Mixed));  // padding bytes too
  s->mixed_.i = -99;
  return s;
}

class ReflectionTest : public testing::StatsTest {};

TEST_F(ReflectionTest, EveryFieldRoundTripsAndDirectWritesMatchTheBoxedForm) {
  auto original = filledSample();
  const Data data = archive(*original);
  auto copy = unarchive<Sample>(data);
  ASSERT_NE(copy, nullptr);
  // Writing the copy again gives the same bytes: no field was dropped or changed on the way back.
  EXPECT_EQ(archive(*copy), data);
  // Values a lossy pair of encoder and decoder would both get wrong.
  EXPECT_EQ(copy->tiny_, std::numeric_limits<std::int8_t>::min());
  EXPECT_EQ(copy->uintValue_, 4'000'000'000u);
  EXPECT_EQ(copy->ubig_, std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(std::memcmp(&copy->mixed_, &original->mixed_, sizeof(Mixed)), 0);  // byte for byte
  KeyedUnarchiver::withArchive(data, [](const ArchiveValue& root) {
    EXPECT_EQ(root.objectCoder().valueForKey("_flag").kind(), ArchiveValue::Kind::Boolean);
    EXPECT_EQ(root.objectCoder().valueForKey("_mixed").dataValue()->size(), 24u);
  });

  // Fields written directly give the bytes that the boxed form of each field gives.
  original->nothing_ = "set";
  KeyedArchiver direct, boxed;
  direct.beginMap();
  original->automatedEncodeWithEncoder(direct);
  boxed.beginMap();
  bool excluded = false;
  for (const auto* c : {&Sample::legacyClass(), &SampleBase::legacyClass()}) {
    for (const auto& ivar : c->ivars)
      LegacyReflection::encodeValueWithKey(ivar.name, ivar.typeEncoding, *original, boxed, excluded);
  }
  boxed.encodeStringArray({"_pointer"}, LegacyReflection::kExcludedIvarsKey);
  direct.endMap();
  boxed.endMap();
  EXPECT_EQ(direct.takeData(), boxed.takeData());
}

TEST_F(ReflectionTest, UnsupportedFieldsAndThoseTheCallerLeavesOutAreListedAndSkippedQuietlyOnDecode) {
  auto original = filledSample();
  original->pointer_ = &original->baseValue_;
  original->opaque_ = std::make_shared<Opaque>();
  const Data data = archive(testing::ScriptedRecord(std::string(Sample::kArchiveClassName), [&](KeyedArchiver& c) {
    original->automatedEncodeWithEncoder(c, {"_name", "_big"});
  }));
  EXPECT_EQ(warnings(), (std::vector<std::string>{"Unknown type encoding '^i' for ivar '_pointer' found.",
                                                  "Ivar '_opaque' is does not conforms to the NSCoding protocol."}));
  for (const auto& record : env.log().records()) {
    EXPECT_EQ(record.filename, "InAppMarketing/source/Logic/Stats/Legacy/NSObject/NSObject+LegacyReflection");
  }
  KeyedUnarchiver::withArchive(data, [&](const ArchiveValue& root) {
    EXPECT_FALSE(root.objectCoder().containsValueForKey("_name") || root.objectCoder().containsValueForKey("_opaque"));
    EXPECT_EQ(root.objectCoder().decodeStringArrayForKey(LegacyReflection::kExcludedIvarsKey),
              (std::vector<std::string>{"_name", "_big", "_pointer", "_opaque"}));
  });
  env.log().clear();
  auto copy = unarchive<Sample>(data);
  ASSERT_NE(copy, nullptr);
  EXPECT_TRUE(warnings().empty());
  EXPECT_EQ(copy->big_, 0);
  EXPECT_EQ(copy->ubig_, std::numeric_limits<std::uint64_t>::max());
}

TEST_F(ReflectionTest, UnreadableFieldsWarnAndKeepTheirInitialValuesWithoutStoppingTheOthers) {
  auto copy = testing::scripted<Sample>([](KeyedArchiver& c) {
    c.encodeString("not a number", "_big");
    c.encodeInteger(3, "_name");
    c.encodeData(std::vector<std::uint8_t>{1, 2, 3}, "_mixed");
    c.encodeDouble(3.9, "_uint");   // a number of another type is converted
    c.encodeInteger(-4, "_ubig");   // no negative unsigned values
    c.encodeInteger(300, "_tiny");  // out of range saturates
    c.encodeBool(true, "_amount");
    c.encodeStringArray({"_baseValue", "_flag", "_ratio", "_nothing", "_pointer", "_opaque"},
                        LegacyReflection::kExcludedIvarsKey);
  });
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(warnings(),
            (std::vector<std::string>{"Failed to set value for ivar '_big'", "Failed to set value for ivar '_name'",
                                      "Failed to decode struct for ivar '_mixed'"}));
  EXPECT_EQ(copy->uintValue_, 3u);
  EXPECT_EQ(copy->ubig_, 0u);
  EXPECT_EQ(copy->tiny_, 127);
  EXPECT_EQ(copy->amount_, 1.0);
}

TEST_F(ReflectionTest, StructuresAreSizedAndSingleFieldsHandledByTheirTypeCodes) {
  using R = LegacyReflection;
  auto sample = filledSample();
  const Data source = archive(*sample);
  env.log().clear();
  KeyedArchiver archiver;
  archiver.beginMap();
  bool excluded = false;
  R::encodeValueWithKey("_mixed", "{Broken", *sample, archiver, excluded);  // only logged
  R::encodeValueWithKey("_amount", "f", *sample, archiver, excluded);       // boxed as a float
  archiver.endMap();
  EXPECT_FALSE(excluded);
  KeyedUnarchiver::withArchive(archiver.takeData(), [](const ArchiveValue& root) {
    EXPECT_EQ(root.size(), 1u);
    EXPECT_TRUE(std::isinf(*root.valueForKey("_amount").doubleValue()));
  });
  auto target = std::make_shared<Sample>();
  KeyedUnarchiver::withArchive(source, [&](const ArchiveValue& root) {
    R::decodeValueWithKey("_name", "#", *target, root.objectCoder());
  });
  EXPECT_EQ(warnings(), (std::vector<std::string>{"Failed to encode struct for ivar '_mixed'",
                                                  "Unknown type encoding '#' for ivar '_name' found."}));
  EXPECT_EQ(target->name_, "");

  using SA = std::pair<std::size_t, std::size_t>;
  EXPECT_EQ(R::sizeAndAlignmentOfTypeEncoding("{Mixed=cids}"), SA(sizeof(Mixed), alignof(Mixed)));
  EXPECT_EQ(R::sizeAndAlignmentOfTypeEncoding("{CGRect={CGPoint=dd}{CGSize=dd}}"), SA(32, 8));
  EXPECT_EQ(R::sizeAndAlignmentOfTypeEncoding("{P=^{Q=i}@\"NSString\"[3s](U=ic)}"), SA(32, 8));
  for (const char* bad : {"", "{", "{Name}", "{A=}", "{A=i", "[i]", "{A=b3}", "{A=[4", "x"}) {
    EXPECT_EQ(R::sizeAndAlignmentOfTypeEncoding(bad), std::nullopt) << bad;
  }
  auto bytes = R::getDataFromStructWithObject(*sample, "_mixed", "{Mixed=cids}");
  ASSERT_TRUE(bytes && bytes->size() == sizeof(Mixed));
  EXPECT_EQ(std::memcmp(bytes->data(), &sample->mixed_, sizeof(Mixed)), 0);
  EXPECT_EQ(R::getDataFromStructWithObject(*sample, "_mixed", "{Big=dddd}"), std::nullopt);  // larger than the field
  EXPECT_EQ(R::getDataFromStructWithObject(*sample, "_amount", "{P=dd}"), std::nullopt);
  auto value = R::getValueFromData(*bytes, "{Mixed=cids}");
  EXPECT_EQ(value ? value->get<LegacyValue::StructValue>()->bytes : Data{}, *bytes);
  EXPECT_EQ(R::getValueFromData(std::span(bytes->data(), 8), "{Mixed=cids}"), std::nullopt);
}

}  // namespace
}  // namespace iam
