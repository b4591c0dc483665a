#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "iam/platform/Archivable.h"
#include "iam/platform/Date.h"

namespace iam {

// Writes one archive. Inside `encodeWithCoder`, records call the keyed `encode…(value, key)`
// operations; the low-level `write…` operations compose arrays and maps of any shape. It streams,
// so arrays and maps carry 32-bit headers whatever their size. Not thread-safe; one archiver per
// archive.
class KeyedArchiver {
 public:
  KeyedArchiver();
  // Writes into `storage`'s memory (its contents are dropped). A writer that archives often hands
  // back the bytes of its previous archive, so that large archives need no fresh memory each time.
  explicit KeyedArchiver(Data storage);
  ~KeyedArchiver();
  KeyedArchiver(const KeyedArchiver&) = delete;
  KeyedArchiver& operator=(const KeyedArchiver&) = delete;

  static Data archivedDataWithRootObject(const Archivable& root);
  // A map of records as its root value (the statistics maps).
  template <class Map>
  static Data archivedDataWithRootDictionary(const Map& map) {
    KeyedArchiver a;
    a.writeObjectMap(map);
    return a.takeData();
  }

  // Keyed writes into the object being encoded.
  void encodeInteger(std::int64_t value, std::string_view key);
  void encodeUnsignedInteger(std::uint64_t value, std::string_view key);
  void encodeBool(bool value, std::string_view key);
  void encodeDouble(double value, std::string_view key);
  void encodeFloat(float value, std::string_view key);
  void encodeString(std::string_view value, std::string_view key);
  void encodeString(const std::optional<std::string>& value, std::string_view key);  // none -> null
  // Without these, a std::string or a literal would match both forms above.
  void encodeString(const std::string& value, std::string_view key) { encodeString(std::string_view(value), key); }
  void encodeString(const char* value, std::string_view key) { encodeString(std::string_view(value), key); }
  void encodeDate(Date value, std::string_view key);
  void encodeDate(const std::optional<Date>& value, std::string_view key);  // none -> null
  void encodeData(std::span<const std::uint8_t> value, std::string_view key);
  void encodeNull(std::string_view key);
  void encodeObject(const Archivable* object, std::string_view key);  // null -> null
  void encodeObject(const std::shared_ptr<const Archivable>& object, std::string_view key) {
    encodeObject(object.get(), key);
  }
  template <class T>
  void encodeObjectArray(const std::vector<std::shared_ptr<T>>& objects, std::string_view key) {
    writeKey(key);
    beginArray();
    for (const auto& o : objects) writeObject(o.get());
    endArray();
  }
  template <class Map>
  void encodeObjectMap(const Map& map, std::string_view key) {
    writeKey(key);
    writeObjectMap(map);
  }
  void encodeStringMap(const std::map<std::string, std::string>& map, std::string_view key);
  void encodeStringArray(const std::vector<std::string>& strings, std::string_view key);

  // Low-level writes. Inside an object or map, each value follows its `writeKey`.
  void writeKey(std::string_view key);
  void writeNull();
  void writeBool(bool value);
  void writeInteger(std::int64_t value);
  void writeUnsignedInteger(std::uint64_t value);
  void writeDouble(double value);
  void writeFloat(float value);
  void writeString(std::string_view value);
  void writeData(std::span<const std::uint8_t> value);
  void writeDate(Date value);
  void writeObject(const Archivable* object);  // null -> null
  void beginArray();
  void endArray();
  void beginMap();
  void endMap();
  template <class Map>
  void writeObjectMap(const Map& map) {
    beginMap();
    for (const auto& [k, v] : map) {
      writeKey(k);
      writeObject(v.get());
    }
    endMap();
  }

  // The bytes written so far; the archiver is empty afterwards.
  Data takeData();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace iam
