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
#include "iam/stats/ZTIAMAppEventStats.h"
#include "stats/StatsTestSupport.h"

namespace iam {
namespace {

using testing::archive;
using testing::archivedKeys;
using testing::decodeScripted;
using testing::unarchive;

struct Point {
  double x;
  double y;
};
// Padding between members and at the end: 24 bytes.
struct Mixed {
  char c;
  std::int32_t i;
  double d;
  std::int16_t s;
};
struct Opaque {
  int value = 0;
};

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
        legacyIvar<&S::utiny_>("_utiny", "C"),
        legacyIvar<&S::shortValue_>("_short", "s"),
        legacyIvar<&S::ushortValue_>("_ushort", "S"),
        legacyIvar<&S::uintValue_>("_uint", "I"),
        legacyIvar<&S::longValue_>("_long", "l"),
        legacyIvar<&S::ulongValue_>("_ulong", "L"),
        legacyIvar<&S::big_>("_big", "q"),
        legacyIvar<&S::ubig_>("_ubig", "Q"),
        legacyIvar<&S::ratio_>("_ratio", "f"),
        legacyIvar<&S::amount_>("_amount", "d"),
        legacyIvar<&S::name_>("_name", "@\"NSString\""),
        legacyIvar<&S::when_>("_when", "@\"NSDate\""),
        legacyIvar<&S::nothing_>("_nothing", "@\"NSString\""),
        legacyIvar<&S::origin_>("_origin", "{CGPoint=dd}"),
        legacyIvar<&S::mixed_>("_mixed", "{Mixed=cids}"),
        legacyIvar<&S::child_>("_child", "@\"ZTIAMAppEventStats\""),
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
  std::uint8_t utiny_ = 0;
  std::int16_t shortValue_ = 0;
  std::uint16_t ushortValue_ = 0;
  std::uint32_t uintValue_ = 0;
  long longValue_ = 0;
  unsigned long ulongValue_ = 0;
  std::int64_t big_ = 0;
  std::uint64_t ubig_ = 0;
  float ratio_ = 0;
  double amount_ = 0;
  std::string name_;
  std::optional<Date> when_;
  std::optional<std::string> nothing_;
  Point origin_{};
  Mixed mixed_{};
  std::shared_ptr<ZTIAMAppEventStats> child_;
  int* pointer_ = nullptr;
  std::shared_ptr<Opaque> opaque_;
};

// The same fields, every one taking the boxed path: the archive must not change.
class BoxedSample final : public Sample {
 public:
  static const LegacyClass& legacyClass() {
    static const std::vector<LegacyIvar> ivars = [] {
      std::vector<LegacyIvar> all;
      for (const auto* c : {&Sample::legacyClass(), &SampleBase::legacyClass()}) {
        for (auto ivar : c->ivars) {
          ivar.encodeDirect = nullptr;
          all.push_back(ivar);
        }
      }
      return all;
    }();
    static const LegacyClass kClass{"BoxedSample", &LegacyReflectable::legacyClass(), ivars};
    return kClass;
  }
  const LegacyClass& legacyReflectedClass() const override { return legacyClass(); }
};

// A sample whose every archivable field differs from its initial value.
template <class T = Sample>
std::shared_ptr<T> filledSample() {
  auto s = std::make_shared<T>();
  s->baseValue_ = -7;
  s->flag_ = true;
  s->tiny_ = std::numeric_limits<std::int8_t>::min();
  s->utiny_ = 255;
  s->shortValue_ = -32768;
  s->ushortValue_ = 65535;
  s->uintValue_ = 4'000'000'000u;
  s->longValue_ = -5'000'000'000L;
  s->ulongValue_ = 9'000'000'000UL;
  s->big_ = std::numeric_limits<std::int64_t>::min();
  s->ubig_ = std::numeric_limits<std::uint64_t>::max();
  s->ratio_ = -0.375f;
  s->amount_ = 1e300;
  s->name_ = "héllo";
  s->when_ = dateWithTimeIntervalSince1970(1'234'567'890.125);
  s->origin_ = {1.5, -2.25};
  std::memset(&s->mixed_, 0xA5, sizeof(Mixed));  // padding bytes too
  s->mixed_.c = 'z';
  s->mixed_.i = -99;
  s->mixed_.d = 0.1;
  s->mixed_.s = 12;
  s->child_ = std::make_shared<ZTIAMAppEventStats>();
  s->child_->setEventKey("nested");
  return s;
}

class ReflectionTest : public testing::StatsTest {};

TEST_F(ReflectionTest, FieldMapListsOwnAndBaseFieldsButNotTheRoot) {
  const auto ivars = LegacyReflection::getIvarsWithTypeEncodingForClass(Sample::legacyClass());
  EXPECT_EQ(ivars.size(), 21u);
  EXPECT_EQ(ivars.at("_baseValue"), "i");
  EXPECT_EQ(ivars.at("_origin"), "{CGPoint=dd}");
  EXPECT_EQ(ivars.at("_pointer"), "^i");
  EXPECT_TRUE(LegacyReflection::getIvarsWithTypeEncodingForClass(LegacyReflectable::legacyClass()).empty());
  EXPECT_EQ(LegacyReflection::getIvarsWithTypeEncodingForClass(SampleBase::legacyClass()).size(), 1u);
}

TEST_F(ReflectionTest, EveryScalarStructureAndObjectRoundTrips) {
  auto original = filledSample();
  original->pointer_ = nullptr;  // nothing unsupported in this archive but the pointer's code
  const Data data = archive(*original);
  auto copy = unarchive<Sample>(data);
  ASSERT_NE(copy, nullptr);
  // Writing the copy again gives the same bytes: no field was dropped or changed on the way back.
  EXPECT_EQ(archive(*copy), data);
  // Values a lossy pair of encoder and decoder would both get wrong.
  EXPECT_EQ(copy->tiny_, std::numeric_limits<std::int8_t>::min());
  EXPECT_EQ(copy->uintValue_, 4'000'000'000u);
  EXPECT_EQ(copy->longValue_, -5'000'000'000L);
  EXPECT_EQ(copy->big_, std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(copy->ubig_, std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(copy->ratio_, -0.375f);
  EXPECT_EQ(copy->amount_, 1e300);
  EXPECT_EQ(copy->name_, "héllo");
  EXPECT_EQ(copy->when_, original->when_);
  EXPECT_EQ(std::memcmp(&copy->origin_, &original->origin_, sizeof(Point)), 0);
  EXPECT_EQ(std::memcmp(&copy->mixed_, &original->mixed_, sizeof(Mixed)), 0);  // byte for byte
  ASSERT_NE(copy->child_, nullptr);
  EXPECT_EQ(copy->child_->eventKey(), "nested");

  // Each scalar is stored as a number of its own kind; structures as exactly their size.
  KeyedUnarchiver::withArchive(data, [](const ArchiveValue& root) {
    auto coder = root.objectCoder();
    EXPECT_EQ(coder.valueForKey("_flag").kind(), ArchiveValue::Kind::Boolean);
    EXPECT_EQ(coder.valueForKey("_ratio").kind(), ArchiveValue::Kind::Double);
    EXPECT_EQ(coder.valueForKey("_tiny").kind(), ArchiveValue::Kind::Integer);
    EXPECT_EQ(coder.valueForKey("_nothing").kind(), ArchiveValue::Kind::Null);
    EXPECT_EQ(coder.valueForKey("_child").kind(), ArchiveValue::Kind::Object);
    EXPECT_EQ(coder.valueForKey("_origin").dataValue()->size(), 16u);
    EXPECT_EQ(coder.valueForKey("_mixed").dataValue()->size(), 24u);
  });
}

TEST_F(ReflectionTest, DirectlyEncodedFieldsMatchTheirBoxedForm) {
  auto direct = filledSample();
  auto boxed = filledSample<BoxedSample>();
  for (auto* s : {static_cast<Sample*>(direct.get()), static_cast<Sample*>(boxed.get())}) {
    s->opaque_ = std::make_shared<Opaque>();
    s->nothing_ = std::nullopt;
  }
  EXPECT_EQ(archive(*direct), archive(*boxed));
  direct->nothing_ = boxed->nothing_ = "set";
  direct->child_ = boxed->child_ = nullptr;
  EXPECT_EQ(archive(*direct), archive(*boxed));
}

TEST_F(ReflectionTest, UnsupportedFieldsAreExcludedOnEncodeAndSkippedQuietlyOnDecode) {
  auto original = filledSample();
  int target = 5;
  original->pointer_ = &target;
  original->opaque_ = std::make_shared<Opaque>();
  const Data data = archive(*original);
  EXPECT_EQ(warnings(), (std::vector<std::string>{
                            "Unknown type encoding '^i' for ivar '_pointer' found.",
                            "Ivar '_opaque' is does not conforms to the NSCoding protocol.",
                        }));
  for (const auto& record : log->records()) EXPECT_EQ(record.filename, testing::kReflectionLogFile);
  std::optional<std::vector<std::string>> excluded;
  KeyedUnarchiver::withArchive(data, [&](const ArchiveValue& root) {
    auto coder = root.objectCoder();
    excluded = coder.decodeStringArrayForKey(LegacyReflection::kExcludedIvarsKey);
    EXPECT_FALSE(coder.containsValueForKey("_pointer"));
    EXPECT_FALSE(coder.containsValueForKey("_opaque"));
  });
  EXPECT_EQ(excluded, (std::vector<std::string>{"_pointer", "_opaque"}));

  log->clear();
  auto copy = unarchive<Sample>(data);
  ASSERT_NE(copy, nullptr);
  EXPECT_TRUE(warnings().empty());
  EXPECT_EQ(copy->pointer_, nullptr);
  EXPECT_EQ(copy->opaque_, nullptr);
  EXPECT_EQ(copy->amount_, 1e300);
}

TEST_F(ReflectionTest, FieldsLeftOutByTheCallerAreListedAndNotExpectedBack) {
  auto original = filledSample();
  KeyedArchiver archiver;
  archiver.beginMap();
  original->automatedEncodeWithEncoder(archiver, {"_name", "_big"});
  archiver.endMap();
  const Data data = archiver.takeData();
  KeyedUnarchiver::withArchive(data, [&](const ArchiveValue& root) {
    ASSERT_EQ(root.kind(), ArchiveValue::Kind::Map);
    EXPECT_FALSE(root.valueForKey("_name").isPresent());
    EXPECT_FALSE(root.valueForKey("_big").isPresent());
    EXPECT_TRUE(root.valueForKey("_amount").isPresent());
    auto excluded = root.valueForKey(LegacyReflection::kExcludedIvarsKey);
    ASSERT_EQ(excluded.size(), 3u);
    EXPECT_EQ(*excluded.at(0).stringValue(), "_name");
    EXPECT_EQ(*excluded.at(1).stringValue(), "_big");
    EXPECT_EQ(*excluded.at(2).stringValue(), "_pointer");  // a pointer is never archived
  });
  // The same exclusions through an object archive.
  class Excluding final : public Archivable {
   public:
    explicit Excluding(const Sample& s) : s_(s) {}
    std::string_view archiveClassName() const override { return Sample::kArchiveClassName; }
    void encodeWithCoder(KeyedArchiver& coder) const override { s_.automatedEncodeWithEncoder(coder, {"_name", "_big"}); }

   private:
    const Sample& s_;
  };
  const Data excluding = archive(Excluding(*original));
  log->clear();
  auto copy = unarchive<Sample>(excluding);
  ASSERT_NE(copy, nullptr);
  EXPECT_TRUE(warnings().empty());
  EXPECT_EQ(copy->name_, "");
  EXPECT_EQ(copy->big_, 0);
  EXPECT_EQ(copy->ubig_, std::numeric_limits<std::uint64_t>::max());
}

TEST_F(ReflectionTest, UnreadableFieldsWarnAndKeepTheirInitialValuesWithoutStoppingTheOthers) {
  auto copy = decodeScripted<Sample>([](KeyedArchiver& c) {
    c.encodeString("not a number", "_big");
    c.encodeInteger(3, "_name");
    c.encodeData(std::vector<std::uint8_t>{1, 2, 3}, "_origin");
    c.encodeString("a date?", "_when");
    c.encodeDouble(3.9, "_tiny");       // a number of another type is converted
    c.encodeInteger(-4, "_ubig");       // no negative unsigned values
    c.encodeInteger(70000, "_short");   // out of range saturates
    c.encodeBool(true, "_amount");
    c.encodeStringArray({"_baseValue", "_flag", "_utiny", "_ushort", "_uint", "_long", "_ulong", "_ratio",
                         "_nothing", "_mixed", "_child", "_pointer", "_opaque"},
                        LegacyReflection::kExcludedIvarsKey);
  });
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(warnings(), (std::vector<std::string>{
                            "Failed to set value for ivar '_big'",
                            "Failed to set value for ivar '_name'",
                            "Failed to set value for ivar '_when'",
                            "Failed to decode struct for ivar '_origin'",
                        }));
  EXPECT_EQ(copy->big_, 0);
  EXPECT_EQ(copy->name_, "");
  EXPECT_EQ(copy->when_, std::nullopt);
  EXPECT_EQ(copy->tiny_, 3);
  EXPECT_EQ(copy->ubig_, 0u);
  EXPECT_EQ(copy->shortValue_, 32767);
  EXPECT_EQ(copy->amount_, 1.0);

  log->clear();
  auto sparse = decodeScripted<Sample>([](KeyedArchiver& c) { c.encodeInteger(1, "_baseValue"); });
  ASSERT_NE(sparse, nullptr);
  EXPECT_EQ(sparse->baseValue_, 1);
  EXPECT_EQ(warnings().size(), 20u);  // one per field missing from the archive
  EXPECT_TRUE(log->contains("No encoded value found for ivar '_mixed'."));
}

TEST_F(ReflectionTest, SingleFieldOperationsFollowTheFirstCharacterOfTheTypeCode) {
  auto sample = filledSample();
  KeyedArchiver archiver;
  archiver.beginMap();
  bool excluded = false;
  LegacyReflection::encodeValueWithKey("_origin", "{Broken", *sample, archiver, excluded);
  EXPECT_FALSE(excluded);  // a structure that fails is only logged
  LegacyReflection::encodeValueWithKey("_name", "*", *sample, archiver, excluded);
  EXPECT_TRUE(excluded);
  excluded = false;
  LegacyReflection::encodeValueWithKey("_amount", "f", *sample, archiver, excluded);  // boxed as a float
  EXPECT_FALSE(excluded);
  archiver.endMap();
  EXPECT_EQ(warnings(), (std::vector<std::string>{
                            "Failed to encode struct for ivar '_origin'",
                            "Unknown type encoding '*' for ivar '_name' found.",
                        }));
  const Data data = archiver.takeData();
  KeyedUnarchiver::withArchive(data, [](const ArchiveValue& root) {
    EXPECT_EQ(root.size(), 1u);
    EXPECT_TRUE(std::isinf(*root.valueForKey("_amount").doubleValue()));
  });

  auto target = std::make_shared<Sample>();
  auto source = archive(*filledSample());
  log->clear();
  KeyedUnarchiver::withArchive(source, [&](const ArchiveValue& root) {
    LegacyReflection::decodeValueWithKey("_name", "#", *target, root.objectCoder());
    LegacyReflection::decodeValueWithKey("_origin", "{CGPoint=dd}", *target, root.objectCoder());
  });
  EXPECT_EQ(warnings(), std::vector<std::string>{"Unknown type encoding '#' for ivar '_name' found."});
  EXPECT_EQ(target->name_, "");
  EXPECT_EQ(target->origin_.y, -2.25);
}

TEST_F(ReflectionTest, StructureBytesAreSizedByTheTypeCode) {
  using R = LegacyReflection;
  using SA = std::pair<std::size_t, std::size_t>;
  EXPECT_EQ(R::sizeAndAlignmentOfTypeEncoding("{CGPoint=dd}"), SA(16, 8));
  EXPECT_EQ(R::sizeAndAlignmentOfTypeEncoding("{Mixed=cids}"), SA(sizeof(Mixed), alignof(Mixed)));
  EXPECT_EQ(R::sizeAndAlignmentOfTypeEncoding("{CGRect={CGPoint=dd}{CGSize=dd}}"), SA(32, 8));
  EXPECT_EQ(R::sizeAndAlignmentOfTypeEncoding("{S=\"a\"c\"b\"[3s]}"), SA(8, 2));
  EXPECT_EQ(R::sizeAndAlignmentOfTypeEncoding("{P=^{Q=i}@\"NSString\"(U=ic)}"), SA(24, 8));
  for (const char* bad : {"", "{", "{Name}", "{A=}", "{A=i", "[i]", "{A=b3}", "{A=[4", "x"}) {
    EXPECT_EQ(R::sizeAndAlignmentOfTypeEncoding(bad), std::nullopt) << bad;
  }

  auto sample = filledSample();
  auto bytes = R::getDataFromStructWithObject(*sample, "_origin", "{CGPoint=dd}");
  ASSERT_TRUE(bytes);
  EXPECT_EQ(bytes->size(), 16u);
  EXPECT_EQ(std::memcmp(bytes->data(), &sample->origin_, 16), 0);
  EXPECT_EQ(R::getDataFromStructWithObject(*sample, "_origin", "{Big=dddd}"), std::nullopt);  // larger than the field
  EXPECT_EQ(R::getDataFromStructWithObject(*sample, "_amount", "{CGPoint=dd}"), std::nullopt);

  auto value = R::getValueFromData(*bytes, "{CGPoint=dd}");
  ASSERT_TRUE(value);
  EXPECT_EQ(value->get<LegacyValue::StructValue>()->bytes, *bytes);
  EXPECT_EQ(R::getValueFromData(std::span(bytes->data(), 8), "{CGPoint=dd}"), std::nullopt);
}

}  // namespace
}  // namespace iam
