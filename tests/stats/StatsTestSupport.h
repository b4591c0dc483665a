#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "iam/ArchivableClasses.h"
#include "iam/platform/Clock.h"
#include "iam/platform/InfoLogSwitch.h"
#include "iam/platform/KeyedArchiver.h"
#include "iam/platform/KeyedUnarchiver.h"
#include "iam/platform/LogBridge.h"
#include "iam/platform/PreferencesStore.h"
#include "iam/platform/InMemoryPreferencesStore.h"
#include "testing/CapturingLogSink.h"

namespace iam::testing {

inline constexpr const char* kReflectionLogFile =
    "InAppMarketing/source/Logic/Stats/Legacy/NSObject/NSObject+LegacyReflection";

// A manual clock, an empty in-memory preferences store and a log capture, info logging off; all
// restored afterwards.
class StatsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    clock = std::make_shared<ManualClock>(dateWithTimeIntervalSince1970(1'600'000'000.25));
    Clock::setCurrent(clock);
    store = std::make_shared<InMemoryPreferencesStore>();
    PreferencesStore::setStandard(store);
    InfoLogSwitch::setLogInfoEnabled(false);
    log = std::make_unique<CapturingLogSink>();
  }
  void TearDown() override {
    log.reset();
    InfoLogSwitch::setLogInfoEnabled(false);
    PreferencesStore::setStandard(nullptr);
    Clock::setCurrent(nullptr);
  }

  std::vector<std::string> warnings() const { return log->messages(LogLevel::Warning); }

  std::shared_ptr<ManualClock> clock;
  std::shared_ptr<InMemoryPreferencesStore> store;
  std::unique_ptr<CapturingLogSink> log;
};

// The keys a record writes for itself, sorted.
inline std::vector<std::string> archivedKeys(const Archivable& record) {
  KeyedArchiver archiver;
  archiver.beginMap();
  record.encodeWithCoder(archiver);
  archiver.endMap();
  const Data data = archiver.takeData();
  std::vector<std::string> keys;
  KeyedUnarchiver::withArchive(data, [&](const ArchiveValue& root) {
    for (std::size_t i = 0; i < root.size(); ++i) keys.emplace_back(root.keyAt(i));
  });
  std::sort(keys.begin(), keys.end());
  return keys;
}

inline Data archive(const Archivable& record) { return KeyedArchiver::archivedDataWithRootObject(record); }

template <class T>
std::shared_ptr<T> unarchive(const Data& data) {
  return KeyedUnarchiver::unarchivedObjectOfClass<T>(data);
}

// Writes what `body` writes under the class name of T: an archive as an older writer made it.
template <class T>
class ScriptedArchive final : public Archivable {
 public:
  template <class F>
  explicit ScriptedArchive(F body) : body_(std::move(body)) {}
  std::string_view archiveClassName() const override { return T::kArchiveClassName; }
  void encodeWithCoder(KeyedArchiver& coder) const override { body_(coder); }

 private:
  std::function<void(KeyedArchiver&)> body_;
};

template <class T, class F>
std::shared_ptr<T> decodeScripted(F body) {
  return unarchive<T>(archive(ScriptedArchive<T>(std::move(body))));
}

}  // namespace iam::testing
