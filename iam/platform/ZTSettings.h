#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "iam/platform/KeyedArchiver.h"
#include "iam/platform/KeyedUnarchiver.h"
#include "iam/platform/PreferencesStore.h"

namespace iam {

// The host settings facility over the standard preferences store: the launch count and whole
// archived records or maps of records under a key. Thread-safe.
class ZTSettings {
 public:
  // Preferences key of the launch count, stored as an archive whose root value is the integer.
  static constexpr std::string_view kRunCountKey = "ZTSettings.runCount";

  // Number of application launches so far (0 before the first).
  static std::int64_t runCount();
  // The host calls this once per launch, before it reports the launch's first app event.
  static std::int64_t incrementRunCount();

  static bool saveArchivableObject(const Archivable& object, std::string_view key);
  // None when absent, unreadable or of an unregistered class.
  static std::shared_ptr<Archivable> getUnarchivedObjectForKey(std::string_view key);
  template <class T>
  static std::shared_ptr<T> getUnarchivedObjectOfClassForKey(std::string_view key) {
    auto data = PreferencesStore::standard()->dataForKey(key);
    if (!data) return nullptr;
    return KeyedUnarchiver::unarchivedObjectOfClass<T>(*data);
  }

  // The map stored under the key; an empty map when absent or unreadable. Entries that are not a
  // readable T are left out.
  template <class T>
  static std::map<std::string, std::shared_ptr<T>> getSafeDictionaryFromPreferencesWithKey(std::string_view key) {
    auto data = PreferencesStore::standard()->dataForKey(key);
    if (!data) return {};
    auto map = KeyedUnarchiver::unarchivedDictionaryOfClass<T>(*data);
    return map ? std::move(*map) : std::map<std::string, std::shared_ptr<T>>{};
  }
  template <class Map>
  static bool saveDictionaryToPreferences(const Map& map, std::string_view key) {
    return saveArchivedData(KeyedArchiver::archivedDataWithRootDictionary(map), key);
  }

  // Stores bytes already archived (callers that encode under their own lock).
  static bool saveArchivedData(std::span<const std::uint8_t> data, std::string_view key);
};

}  // namespace iam
