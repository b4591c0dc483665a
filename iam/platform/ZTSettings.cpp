#include "iam/platform/ZTSettings.h"

#include <mutex>

#include "iam/platform/LogBridge.h"
#include "iam/platform/internal/SaturatingCount.h"

namespace iam {
namespace {

constexpr std::string_view kLogFile = "iam/platform/ZTSettings";

// Serialises read-modify-write of the launch count so that two launches never count as one.
std::mutex& runCountMutex() {
  static std::mutex m;
  return m;
}

std::int64_t readRunCount(PreferencesStore& store) {
  auto data = store.dataForKey(ZTSettings::kRunCountKey);
  if (!data) return 0;
  std::int64_t count = 0;
  KeyedUnarchiver::withArchive(*data, [&](const ArchiveValue& root) { count = root.integerValue().value_or(0); });
  return count < 0 ? 0 : count;
}

}  // namespace

std::int64_t ZTSettings::runCount() {
  auto store = PreferencesStore::standard();
  return readRunCount(*store);
}

std::int64_t ZTSettings::incrementRunCount() {
  std::lock_guard lock(runCountMutex());
  auto store = PreferencesStore::standard();
  const std::int64_t count = oneMore(readRunCount(*store));
  KeyedArchiver archiver;
  archiver.writeInteger(count);
  if (!store->setData(archiver.takeData(), kRunCountKey)) {
    LogBridge::warning("IAM: Could not save the run count.", kLogFile, __LINE__, "incrementRunCount");
  }
  return count;
}

bool ZTSettings::saveArchivableObject(const Archivable& object, std::string_view key) {
  Data data;
  try {
    data = KeyedArchiver::archivedDataWithRootObject(object);
  } catch (...) {
    LogBridge::error("IAM: Could not archive an object.", kLogFile, __LINE__, "saveArchivableObject");
    return false;
  }
  return saveArchivedData(data, key);
}

std::shared_ptr<Archivable> ZTSettings::getUnarchivedObjectForKey(std::string_view key) {
  auto data = PreferencesStore::standard()->dataForKey(key);
  if (!data) return nullptr;
  return KeyedUnarchiver::unarchivedObjectFromData(*data);
}

bool ZTSettings::saveArchivedData(std::span<const std::uint8_t> data, std::string_view key) {
  return PreferencesStore::standard()->setData(data, key);
}

}  // namespace iam
