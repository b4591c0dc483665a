#include "iam/platform/ArchiveClassRegistry.h"

#include <gtest/gtest.h>

#include "iam/platform/KeyedArchiver.h"
#include "iam/platform/KeyedUnarchiver.h"

namespace iam {
namespace {

struct Lazy : Archivable {
  static constexpr std::string_view kArchiveClassName = "RegistryTestLazy";
  std::string_view archiveClassName() const override { return kArchiveClassName; }
  void encodeWithCoder(KeyedArchiver& coder) const override { coder.encodeInteger(7, "n"); }
  static std::shared_ptr<Lazy> initWithCoder(const KeyedUnarchiver& coder) {
    return coder.decodeIntegerForKey("n") == 7 ? std::make_shared<Lazy>() : nullptr;
  }
};

int loaderRuns = 0;
void registerLazy() {
  ++loaderRuns;
  ArchiveClassRegistry::registerClass<Lazy>();
}

// A class that only the installed loader registers decodes untyped; the loader runs when a lookup
// misses, not on every decode.
TEST(ArchiveClassRegistryTest, TheLoaderRegistersOnTheFirstMissOnly) {
  const Data bytes = KeyedArchiver::archivedDataWithRootObject(Lazy());
  EXPECT_EQ(KeyedUnarchiver::unarchivedObjectFromData(bytes), nullptr);

  ArchiveClassRegistry::setClassLoader(&registerLazy);
  for (int i = 0; i < 2; ++i) {
    auto decoded = KeyedUnarchiver::unarchivedObjectFromData(bytes);
    ASSERT_NE(decoded, nullptr);
    EXPECT_EQ(decoded->archiveClassName(), Lazy::kArchiveClassName);
  }
  EXPECT_EQ(loaderRuns, 1);
  ArchiveClassRegistry::setClassLoader(nullptr);
}

}  // namespace
}  // namespace iam
