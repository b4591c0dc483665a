#include "iam/platform/ArchiveClassRegistry.h"
#include "iam/platform/KeyedArchiver.h"
#include "iam/platform/KeyedUnarchiver.h"

#include <gtest/gtest.h>

#include <limits>
#include <numeric>
#include <sstream>
#include <utility>

#include <msgpack.hpp>

namespace iam {
namespace {

struct Leaf : Archivable {
  static constexpr std::string_view kArchiveClassName = "TestLeaf";
  std::int64_t id = 0;
  std::string name;
  Leaf(std::int64_t i, std::string n) : id(i), name(std::move(n)) {}
  std::string_view archiveClassName() const override { return kArchiveClassName; }
  void encodeWithCoder(KeyedArchiver& c) const override { c.encodeInteger(id, "id"), c.encodeString(name, "name"); }
  static std::shared_ptr<Leaf> initWithCoder(const KeyedUnarchiver& c) {
    auto id = c.decodeIntegerNumberForKey("id");
    auto name = c.decodeStringForKey("name");
    return id && name ? std::make_shared<Leaf>(*id, *name) : nullptr;
  }
};
[[maybe_unused]] const bool kLeafRegistered = (ArchiveClassRegistry::registerClass<Leaf>(), true);

// Text, dates, data, every container and a child of its own class; numbers at their ends are below.
struct Sample : Archivable {
  static constexpr std::string_view kArchiveClassName = "TestSample";
  std::int64_t integer = 0;
  std::string text;
  std::optional<std::string> missingText;
  Date date;
  Data blob;
  std::shared_ptr<Leaf> leaf;
  std::vector<std::shared_ptr<Leaf>> leaves;
  std::map<std::string, std::shared_ptr<Leaf>> leafMap;
  std::map<std::string, std::string> strings;
  std::vector<std::string> words;
  std::shared_ptr<Sample> child;

  std::string_view archiveClassName() const override { return kArchiveClassName; }
  void encodeWithCoder(KeyedArchiver& c) const override {
    c.encodeInteger(1, "codingVersion");
    c.encodeInteger(integer, "integer");
    c.encodeString(text, "text");
    c.encodeString(missingText, "missingText");
    c.encodeDate(date, "date");
    c.encodeData(blob, "blob");
    c.encodeObject(leaf, "leaf");
    c.encodeObjectArray(leaves, "leaves");
    c.encodeObjectMap(leafMap, "leafMap");
    c.encodeStringMap(strings, "strings");
    c.encodeStringArray(words, "words");
    c.encodeObject(child, "child");
  }
  static std::shared_ptr<Sample> initWithCoder(const KeyedUnarchiver& c) {
    if (c.decodeIntegerForKey("codingVersion") != 1) return nullptr;
    auto s = std::make_shared<Sample>();
    s->integer = c.decodeIntegerForKey("integer");
    s->text = c.decodeStringForKey("text").value_or("");
    s->missingText = c.decodeStringForKey("missingText");
    s->date = c.decodeDateForKey("date").value_or(Date());
    s->blob = c.decodeDataForKey("blob").value_or(Data());
    s->leaf = c.decodeObjectOfClassForKey<Leaf>("leaf");
    s->leaves = c.decodeArrayOfObjectsOfClassForKey<Leaf>("leaves").value_or(s->leaves);
    s->leafMap = c.decodeDictionaryOfObjectsOfClassForKey<Leaf>("leafMap").value_or(s->leafMap);
    s->strings = c.decodeStringMapForKey("strings").value_or(s->strings);
    s->words = c.decodeStringArrayForKey("words").value_or(s->words);
    s->child = c.decodeObjectOfClassForKey<Sample>("child");
    return s;
  }
};
[[maybe_unused]] const bool kSampleRegistered = (ArchiveClassRegistry::registerClass<Sample>(), true);

// A chain of nodes, for depth limits. Not registered until a class loader does it: before that only
// typed decoding can read it.
struct Node : Archivable {
  static constexpr std::string_view kArchiveClassName = "TestNode";
  std::shared_ptr<Node> next;
  std::string_view archiveClassName() const override { return kArchiveClassName; }
  void encodeWithCoder(KeyedArchiver& c) const override { c.encodeObject(next, "next"); }
  static std::shared_ptr<Node> initWithCoder(const KeyedUnarchiver& c) {
    auto n = std::make_shared<Node>();
    n->next = c.decodeObjectOfClassForKey<Node>("next");
    return n;
  }
};

Date dateAt(std::int64_t seconds, std::int64_t nanoseconds) {
  return Date(std::chrono::duration_cast<Date::duration>(std::chrono::seconds(seconds) +
                                                         std::chrono::nanoseconds(nanoseconds)));
}

Sample makeSample() {
  Sample s;
  s.integer = std::numeric_limits<std::int64_t>::min();
  s.text = std::string("h\xc3\xa9llo\0world", 12);
  s.date = dateAt(1700000000, 123456789);
  for (int i = 0; i < 256; ++i) s.blob.push_back(static_cast<std::uint8_t>(i));
  s.leaf = std::make_shared<Leaf>(42, "leaf");
  s.leaves = {std::make_shared<Leaf>(1, "a"), std::make_shared<Leaf>(-2, "")};
  s.leafMap = {{"x", std::make_shared<Leaf>(10, "ten")}, {"", std::make_shared<Leaf>(0, "empty key")}};
  s.strings = {{"k", "v"}, {"long", std::string(300, 'z')}};
  s.words = {"one", "", "three"};
  s.child = std::make_shared<Sample>();
  s.child->date = dateAt(-1, 500000000);  // before 1970
  s.child->leaf = std::make_shared<Leaf>(7, "grandchild");
  return s;
}

std::string describe(const std::shared_ptr<Leaf>& l) { return l ? std::to_string(l->id) + ":" + l->name : "none"; }

// Every field, so that one comparison shows whatever a round trip lost.
std::string describe(const Sample& s) {
  std::ostringstream o;
  o << s.integer << '|' << s.text << '|' << s.missingText.value_or("none") << '|' << s.date.time_since_epoch().count()
    << '|' << std::string(s.blob.begin(), s.blob.end()) << '|' << describe(s.leaf);
  for (const auto& l : s.leaves) o << ',' << describe(l);
  for (const auto& [k, l] : s.leafMap) o << ';' << k << '=' << describe(l);
  for (const auto& [k, v] : s.strings) o << ';' << k << '=' << v;
  for (const auto& w : s.words) o << '/' << w;
  o << '{' << (s.child ? describe(*s.child) : "") << '}';
  return o.str();
}

// Touches every accessor of every value, as a careless reader of a damaged archive would.
void walk(const ArchiveValue& v, int depth = 0) {
  if (depth > 300) return;
  (void)v.boolValue(), (void)v.integerValue(), (void)v.unsignedValue(), (void)v.doubleValue(), (void)v.stringValue();
  (void)v.dateValue(), (void)v.decodeObject(), (void)v.decodeObjectOfClass<Sample>();
  if (auto d = v.dataValue()) [[maybe_unused]] volatile unsigned sum = std::accumulate(d->begin(), d->end(), 0u);
  (void)v.objectCoder().decodeStringMapForKey("strings");
  for (std::size_t i = 0; i < v.size(); ++i) (void)v.keyAt(i), walk(v.at(i), depth + 1), walk(v.valueAt(i), depth + 1);
  walk(v.objectCoder().valueForKey("child"), depth + 1);
}

bool readable(std::span<const std::uint8_t> bytes) {
  return KeyedUnarchiver::withArchive(bytes, [](const ArchiveValue& root) { walk(root); });
}

template <class F>
Data packed(F&& write) {
  msgpack::sbuffer buffer;
  msgpack::packer<msgpack::sbuffer> p(buffer);
  write(p);
  const auto* begin = reinterpret_cast<const std::uint8_t*>(buffer.data());
  return Data(begin, begin + buffer.size());
}

// [ext(1, className), body] as the archiver tags an object, with the body written by `body`.
template <class F>
Data taggedObject(std::int8_t tag, F&& body) {
  return packed([&](auto& p) { body(p.pack_array(2).pack_ext(8, tag).pack_ext_body("TestLeaf", 8)); });
}

TEST(KeyedArchiveTest, EveryValueKindRoundTripsTypedAndThroughTheRegistry) {
  const Sample original = makeSample();
  const Data bytes = KeyedArchiver::archivedDataWithRootObject(original);

  auto typed = KeyedUnarchiver::unarchivedObjectOfClass<Sample>(bytes);
  ASSERT_TRUE(typed);
  EXPECT_EQ(describe(*typed), describe(original));
  auto untyped = std::dynamic_pointer_cast<Sample>(KeyedUnarchiver::unarchivedObjectFromData(bytes));
  ASSERT_TRUE(untyped);
  EXPECT_EQ(describe(*untyped), describe(original));
}

TEST(KeyedArchiveTest, NumbersKeepTheirRangeDatesTheirNanosecondsAndLargeContainersTheirSize) {
  // Each timestamp size, up to the ends of what a Date holds.
  const std::vector<Date> dates = {dateAt(0, 0),          dateAt(4294967295, 0),        dateAt(4294967295, 1),
                                   dateAt(-1, 999999999), dateAt(9223372035, 999999999), dateAt(-9223372035, 0)};
  KeyedArchiver a;
  a.beginArray();
  a.writeUnsignedInteger(std::numeric_limits<std::uint64_t>::max());
  a.writeInteger(-1);
  a.writeFloat(1.5f);
  a.beginArray();
  for (int i = 0; i < 70000; ++i) a.writeInteger(i);  // past a 16-bit header
  a.endArray();
  for (Date d : dates) a.writeDate(d);
  a.endArray();
  const Data bytes = a.takeData();

  ASSERT_TRUE(KeyedUnarchiver::withArchive(bytes, [&](const ArchiveValue& root) {
    ASSERT_EQ(root.size(), 4 + dates.size());
    EXPECT_EQ(root.at(0).unsignedValue(), std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ(root.at(0).integerValue(), std::nullopt);  // above INT64_MAX
    EXPECT_EQ(root.at(1).integerValue(), -1);
    EXPECT_EQ(root.at(1).unsignedValue(), std::nullopt);
    EXPECT_EQ(root.at(1).doubleValue(), -1.0);
    EXPECT_EQ(root.at(2).doubleValue(), 1.5);
    EXPECT_EQ(root.at(2).integerValue(), std::nullopt);
    ASSERT_EQ(root.at(3).size(), 70000u);
    EXPECT_EQ(root.at(3).at(69999).integerValue(), 69999);
    for (std::size_t i = 0; i < dates.size(); ++i) EXPECT_EQ(root.at(4 + i).dateValue(), dates[i]) << i;
    EXPECT_EQ(root.at(99).kind(), ArchiveValue::Kind::Absent);
  }));
}

TEST(KeyedArchiveTest, WrongClassWrongTypeAndMissingKeysAnswerNone) {
  const Data sample = KeyedArchiver::archivedDataWithRootObject(makeSample());
  EXPECT_FALSE(KeyedUnarchiver::unarchivedObjectOfClass<Leaf>(sample));

  const Data unregistered = KeyedArchiver::archivedDataWithRootObject(Node());
  EXPECT_FALSE(KeyedUnarchiver::unarchivedObjectFromData(unregistered));
  EXPECT_TRUE(KeyedUnarchiver::unarchivedObjectOfClass<Node>(unregistered));
  // Once a class loader registers it, it decodes untyped; the loader runs on a miss, not on every decode.
  static int loaderRuns = 0;
  ArchiveClassRegistry::setClassLoader([] { ++loaderRuns, ArchiveClassRegistry::registerClass<Node>(); });
  for (int i = 0; i < 2; ++i) EXPECT_TRUE(KeyedUnarchiver::unarchivedObjectFromData(unregistered)) << i;
  EXPECT_EQ(loaderRuns, 1);
  ArchiveClassRegistry::setClassLoader(nullptr);

  ASSERT_TRUE(KeyedUnarchiver::withArchive(sample, [](const ArchiveValue& root) {
    EXPECT_EQ(root.className(), "TestSample");
    auto c = root.objectCoder();
    EXPECT_TRUE(c.containsValueForKey("missingText"));  // encoded as null: present
    EXPECT_EQ(c.valueForKey("missingText").kind(), ArchiveValue::Kind::Null);
    EXPECT_FALSE(c.containsValueForKey("intege"));
    EXPECT_EQ(c.decodeIntegerForKey("text"), 0);
    EXPECT_EQ(c.decodeDateForKey("integer"), std::nullopt);
    EXPECT_EQ(c.decodeDataForKey("text"), std::nullopt);
    EXPECT_EQ(c.decodeObjectOfClassForKey<Sample>("leaf"), nullptr);
    EXPECT_FALSE(c.decodeArrayOfObjectsOfClassForKey<Sample>("leaves"));
    EXPECT_FALSE(c.decodeStringArrayForKey("leaves"));
    // Non-strict map decoding leaves out what is not of the class; strict refuses the map.
    auto loose = c.decodeDictionaryOfObjectsOfClassForKey<Sample>("leafMap", false);
    ASSERT_TRUE(loose);
    EXPECT_TRUE(loose->empty());
    EXPECT_FALSE(c.decodeDictionaryOfObjectsOfClassForKey<Sample>("leafMap"));
  }));

  std::map<std::string, std::shared_ptr<Archivable>> mixed = {
      {"a", std::make_shared<Leaf>(1, "one")}, {"b", std::make_shared<Node>()}, {"c", std::make_shared<Leaf>(3, "three")}};
  auto leaves = KeyedUnarchiver::unarchivedDictionaryOfClass<Leaf>(KeyedArchiver::archivedDataWithRootDictionary(mixed));
  ASSERT_TRUE(leaves);
  ASSERT_EQ(leaves->size(), 2u);
  EXPECT_EQ(describe(leaves->at("a")) + "," + describe(leaves->at("c")), "1:one,3:three");
  EXPECT_FALSE(KeyedUnarchiver::unarchivedDictionaryOfClass<Leaf>(KeyedArchiver::archivedDataWithRootObject(Leaf(1, "x"))));
}

TEST(KeyedArchiveTest, ObjectNestingIsBoundedAndUnbalancedRecordsStillWriteReadableBytes) {
  auto length = [](std::shared_ptr<Node> n) {
    int count = 0;
    for (; n; n = n->next) ++count;
    return count;
  };
  for (int chain : {10, 200}) {
    auto head = std::make_shared<Node>();
    for (int i = 1; i < chain; ++i) {
      auto n = std::make_shared<Node>();
      n->next = std::exchange(head, n);
    }
    EXPECT_EQ(length(KeyedUnarchiver::unarchivedObjectOfClass<Node>(KeyedArchiver::archivedDataWithRootObject(*head))),
              std::min(chain, static_cast<int>(kMaximumArchiveObjectDepth)));
  }
  auto deep = packed([](auto& p) {  // deeper than any archiver writes
    for (int i = 0; i < 100; ++i) p.pack_array(2).pack_ext(8, 1).pack_ext_body("TestNode", 8).pack_map(1).pack("next");
    p.pack_nil();
  });
  EXPECT_EQ(length(KeyedUnarchiver::unarchivedObjectOfClass<Node>(deep)), kMaximumArchiveObjectDepth);

  struct Sloppy : Archivable {
    std::string_view archiveClassName() const override { return "TestSloppy"; }
    void encodeWithCoder(KeyedArchiver& c) const override {
      c.endMap(), c.endArray();  // would close its own map and what holds it
      c.encodeInteger(5, "five");
      c.writeKey("open"), c.beginArray(), c.writeInteger(1);  // never closed
    }
  } sloppy;
  KeyedArchiver a;
  a.beginArray(), a.writeObject(&sloppy), a.writeInteger(9), a.endArray();
  ASSERT_TRUE(KeyedUnarchiver::withArchive(a.takeData(), [](const ArchiveValue& root) {
    ASSERT_EQ(root.size(), 2u);
    EXPECT_EQ(root.at(0).objectCoder().decodeIntegerForKey("five"), 5);
    EXPECT_EQ(root.at(0).objectCoder().valueForKey("open").at(0).integerValue(), 1);
    EXPECT_EQ(root.at(1).integerValue(), 9);
  }));
}

TEST(KeyedArchiveTest, DamagedAndHostileMessagePackIsRefused) {
  const Data valid = KeyedArchiver::archivedDataWithRootObject(makeSample());
  ASSERT_TRUE(readable(valid));
  for (std::size_t n = 0; n < valid.size(); ++n) {  // no proper prefix of an archive is an archive
    std::span<const std::uint8_t> prefix(valid.data(), n);
    ASSERT_FALSE(readable(prefix)) << n;
    ASSERT_FALSE(KeyedUnarchiver::unarchivedObjectOfClass<Sample>(prefix)) << n;
  }
  Data longer = valid;
  longer.push_back(0xc0);
  EXPECT_FALSE(readable(longer));

  Data nestedHuge, deepMaps, deepArrays(100000, 0x91);
  for (int i = 0; i < 200; ++i) nestedHuge.insert(nestedHuge.end(), {0xdd, 0x00, 0x10, 0x00, 0x00});
  for (int i = 0; i < 50000; ++i) deepMaps.insert(deepMaps.end(), {0x81, 0xa1, 'k'});
  deepMaps.push_back(0xc0);
  deepArrays.push_back(0xc0);
  const auto intKey = taggedObject(1, [](auto& p) { p.pack_map(2).pack("name").pack("x").pack(1).pack(2); });
  const std::vector<Data> unreadable = {
      {},
      {0xdd, 0xff, 0xff, 0xff, 0xff, 0xc0, 0xc0},  // sizes far beyond the bytes: array, map, str, bin, ext
      {0xdf, 0xff, 0xff, 0xff, 0xff, 0xa1, 'k', 0xc0},
      {0xdb, 0xff, 0xff, 0xff, 0xf0, 'a'},
      {0xc6, 0x7f, 0xff, 0xff, 0xff, 0x00},
      {0xc9, 0x7f, 0xff, 0xff, 0xff, 0x01, 0x00},
      {0xc1},  // reserved
      nestedHuge, deepArrays, deepMaps, intKey};
  for (std::size_t i = 0; i < unreadable.size(); ++i) {
    EXPECT_FALSE(readable(unreadable[i])) << i;
    EXPECT_FALSE(KeyedUnarchiver::unarchivedObjectFromData(unreadable[i])) << i;
  }

  // Valid MessagePack that is not an archive of the class.
  const auto plainInteger = packed([](auto& p) { p.pack(5); });
  EXPECT_TRUE(readable(plainInteger));
  EXPECT_FALSE(KeyedUnarchiver::unarchivedObjectFromData(plainInteger));
  const std::vector<Data> notLeaves = {
      taggedObject(2, [](auto& p) { p.pack_map(0); }), taggedObject(1, [](auto& p) { p.pack_array(0); }),
      packed([](auto& p) { p.pack_array(2).pack("TestLeaf").pack_map(0); })};
  for (const Data& d : notLeaves) {
    EXPECT_TRUE(readable(d));
    EXPECT_FALSE(KeyedUnarchiver::unarchivedObjectOfClass<Leaf>(d));
  }

  // Malformed timestamps: wrong size, nanoseconds out of range, seconds beyond what a Date holds.
  const auto badDates = packed([](auto& p) {
    p.pack_array(3).pack_ext(5, -1).pack_ext_body("\0\0\0\0\0", 5);
    p.pack_ext(12, -1).pack_ext_body("\x3b\x9a\xca\x00\0\0\0\0\0\0\0\0", 12);  // 1e9 ns
    p.pack_ext(12, -1).pack_ext_body("\0\0\0\0\x7f\xff\xff\xff\xff\xff\xff\xff", 12);
  });
  EXPECT_TRUE(KeyedUnarchiver::withArchive(badDates, [](const ArchiveValue& root) {
    for (std::size_t i = 0; i < 3; ++i) {
      EXPECT_EQ(root.at(i).kind(), ArchiveValue::Kind::Other) << i;
      EXPECT_EQ(root.at(i).dateValue(), std::nullopt) << i;
    }
  }));
  EXPECT_FALSE(KeyedUnarchiver::withArchive(plainInteger, [](const ArchiveValue&) { throw std::runtime_error("reader"); }));
}

}  // namespace
}  // namespace iam
