#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "iam/ArchivableClasses.h"
#include "iam/platform/KeyedArchiver.h"
#include "iam/platform/KeyedUnarchiver.h"
#include "testing/TestEnvironment.h"

namespace iam::testing {

// The test environment (manual clock, in-memory preferences, log capture) comes first, so that it
// outlives everything the test makes.
class StatsTest : public ::testing::Test {
 protected:
  std::vector<std::string> warnings() { return env.log().messages(LogLevel::Warning); }
  ManualClock& clock() { return env.clock(); }

  TestEnvironment env;
};

inline Data archive(const Archivable& record) { return KeyedArchiver::archivedDataWithRootObject(record); }

template <class T>
std::shared_ptr<T> unarchive(const Data& data) {
  return KeyedUnarchiver::unarchivedObjectOfClass<T>(data);
}

// The keys a record writes for itself, sorted.
inline std::vector<std::string> archivedKeys(const Archivable& record) {
  KeyedArchiver archiver;
  archiver.beginMap();
  record.encodeWithCoder(archiver);
  archiver.endMap();
  std::vector<std::string> keys;
  KeyedUnarchiver::withArchive(archiver.takeData(), [&](const ArchiveValue& root) {
    for (std::size_t i = 0; i < root.size(); ++i) keys.emplace_back(root.keyAt(i));
  });
  std::sort(keys.begin(), keys.end());
  return keys;
}

// Writes what `body` writes under the class name of T: an archive as another writer made it.
template <class T>
class ScriptedArchive final : public Archivable {
 public:
  explicit ScriptedArchive(std::function<void(KeyedArchiver&)> body) : body_(std::move(body)) {}
  std::string_view archiveClassName() const override { return T::kArchiveClassName; }
  void encodeWithCoder(KeyedArchiver& coder) const override { body_(coder); }

 private:
  std::function<void(KeyedArchiver&)> body_;
};

template <class T>
std::shared_ptr<T> decodeScripted(std::function<void(KeyedArchiver&)> body) {
  return unarchive<T>(archive(ScriptedArchive<T>(std::move(body))));
}

}  // namespace iam::testing
