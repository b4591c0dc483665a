#pragma once

// The keyed archive: records write themselves as a tree of typed values under text keys, and are
// read back from it. The bytes are MessagePack, with one tagging convention:
//
//   integer, double, boolean, string, null, array, map   the MessagePack types of the same name
//                                                          (maps have string keys)
//   data blob                                             MessagePack bin
//   date                                                  the MessagePack timestamp extension (-1)
//   object                                                a two-element array [ext 1 holding the
//                                                          class name as UTF-8, map of its keys]
//
// The archiver streams, so arrays and maps carry 32-bit headers whatever their size; the decoder
// reads any MessagePack form. Decoding unpacks the bytes into one arena and reads keys from there;
// no other tree is built. Bytes that are not a readable archive (truncated, trailing bytes, a
// non-string map key, sizes beyond the input, nesting beyond a fixed depth) decode to none; no
// exception leaves the decoder.

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "iam/platform/Date.h"

namespace iam {

class KeyedArchiver;
class KeyedUnarchiver;
class ArchiveValue;

using Data = std::vector<std::uint8_t>;

// A record that writes itself into a keyed archive. A class that can also be read back has
//   static constexpr std::string_view kArchiveClassName = "...";
//   static std::shared_ptr<T> initWithCoder(const KeyedUnarchiver& coder);   // none = refused
// and `archiveClassName()` returns kArchiveClassName.
class Archivable {
 public:
  virtual ~Archivable() = default;
  virtual std::string_view archiveClassName() const = 0;
  virtual void encodeWithCoder(KeyedArchiver& coder) const = 0;
};

// Class name to decoder, for archives read without demanding a class. Typed decoding
// (`decodeObjectOfClass<T>`) does not need it. Thread-safe.
class ArchiveClassRegistry {
 public:
  using Factory = std::shared_ptr<Archivable> (*)(const KeyedUnarchiver&);
  static void registerClass(std::string_view name, Factory factory);
  static Factory factoryFor(std::string_view name);

  template <class T>
  static void registerClass() {
    registerClass(T::kArchiveClassName,
                  [](const KeyedUnarchiver& c) -> std::shared_ptr<Archivable> { return T::initWithCoder(c); });
  }
};

// Registers T at start-up; put it in T's .cpp file.
#define IAM_REGISTER_ARCHIVABLE(T) \
  static const bool iamArchivableRegistered_##T = (::iam::ArchiveClassRegistry::registerClass<T>(), true)

// Writes one archive. Inside `encodeWithCoder`, records call the keyed `encode…(value, key)`
// operations; the low-level `write…` operations compose arrays and maps of any shape. Not
// thread-safe; one archiver per archive.
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

// A read-only view of one value inside a decoded archive. Valid while the archive it came from is
// being decoded (inside `initWithCoder`, or the callback of `KeyedUnarchiver::withArchive`).
class ArchiveValue {
 public:
  enum class Kind { Absent, Null, Boolean, Integer, Double, String, Data, Date, Array, Map, Object, Other };

  ArchiveValue() = default;
  Kind kind() const;
  bool isPresent() const { return kind() != Kind::Absent; }

  std::optional<bool> boolValue() const;          // Boolean only
  std::optional<std::int64_t> integerValue() const;  // Integer only (and within int64)
  std::optional<std::uint64_t> unsignedValue() const;  // non-negative Integer only
  std::optional<double> doubleValue() const;      // Double or Integer
  std::optional<std::string_view> stringValue() const;
  std::optional<Date> dateValue() const;
  std::optional<std::span<const std::uint8_t>> dataValue() const;

  // Arrays: elements by index. Maps: keys and values by index.
  std::size_t size() const;
  ArchiveValue at(std::size_t index) const;
  std::string_view keyAt(std::size_t index) const;  // maps; empty for a non-string key
  ArchiveValue valueAt(std::size_t index) const;     // maps
  ArchiveValue valueForKey(std::string_view key) const;  // maps

  // Objects.
  std::string_view className() const;
  KeyedUnarchiver objectCoder() const;
  template <class T>
  std::shared_ptr<T> decodeObjectOfClass() const;  // none for another class or a refused record
  std::shared_ptr<Archivable> decodeObject() const;  // any registered class

 private:
  friend class KeyedUnarchiver;
  ArchiveValue(const void* object, int depth) : object_(object), depth_(depth) {}
  const void* object_ = nullptr;  // msgpack::object inside the decoding arena
  int depth_ = 0;                 // nesting of objects, bounded against hostile archives
};

// Reads the keys of one archived object. Made by the archive entry points below and by
// `ArchiveValue::objectCoder`; a coder is a cheap view into the decoding arena.
class KeyedUnarchiver {
 public:
  // Whole-archive entry points: none when the bytes are not a readable archive of the class.
  static std::shared_ptr<Archivable> unarchivedObjectFromData(std::span<const std::uint8_t> data);
  template <class T>
  static std::shared_ptr<T> unarchivedObjectOfClass(std::span<const std::uint8_t> data) {
    std::shared_ptr<T> result;
    withArchive(data, [&](const ArchiveValue& root) { result = root.decodeObjectOfClass<T>(); });
    return result;
  }
  // A map of records as root value; entries of another class or refused are left out.
  // None when the bytes are not a readable map.
  template <class T>
  static std::optional<std::map<std::string, std::shared_ptr<T>>> unarchivedDictionaryOfClass(
      std::span<const std::uint8_t> data) {
    std::optional<std::map<std::string, std::shared_ptr<T>>> result;
    withArchive(data, [&](const ArchiveValue& root) { result = dictionaryOfClass<T>(root, false); });
    return result;
  }
  // Decodes the bytes and calls `body` with the root value. False when the bytes are unreadable;
  // an exception thrown by `body` is caught and also gives false.
  template <class F>
  static bool withArchive(std::span<const std::uint8_t> data, F&& body) {
    struct Thunk {
      static void call(void* ctx, const ArchiveValue& v) { (*static_cast<F*>(ctx))(v); }
    };
    return withArchiveImpl(data, &Thunk::call, &body);
  }

  bool containsValueForKey(std::string_view key) const;
  ArchiveValue valueForKey(std::string_view key) const;  // Absent when missing

  // The scalar reads answer 0 / false when the key is missing or holds another kind.
  std::int64_t decodeIntegerForKey(std::string_view key) const;
  bool decodeBoolForKey(std::string_view key) const;
  double decodeDoubleForKey(std::string_view key) const;  // integers widen
  // The optional reads answer none when the key is missing or holds another kind.
  std::optional<std::int64_t> decodeIntegerNumberForKey(std::string_view key) const;
  std::optional<double> decodeDoubleNumberForKey(std::string_view key) const;
  std::optional<bool> decodeBoolNumberForKey(std::string_view key) const;
  std::optional<std::string> decodeStringForKey(std::string_view key) const;
  std::optional<Date> decodeDateForKey(std::string_view key) const;
  std::optional<Data> decodeDataForKey(std::string_view key) const;
  std::optional<std::map<std::string, std::string>> decodeStringMapForKey(std::string_view key) const;  // none if any value is not a string
  std::optional<std::vector<std::string>> decodeStringArrayForKey(std::string_view key) const;  // none if any element is not a string

  template <class T>
  std::shared_ptr<T> decodeObjectOfClassForKey(std::string_view key) const {
    return valueForKey(key).template decodeObjectOfClass<T>();
  }
  std::shared_ptr<Archivable> decodeObjectForKey(std::string_view key) const {
    return valueForKey(key).decodeObject();
  }
  // None when the key is missing, not an array, or any element is not a readable T.
  template <class T>
  std::optional<std::vector<std::shared_ptr<T>>> decodeArrayOfObjectsOfClassForKey(std::string_view key) const {
    auto v = valueForKey(key);
    if (v.kind() != ArchiveValue::Kind::Array) return std::nullopt;
    std::vector<std::shared_ptr<T>> out;
    out.reserve(v.size());
    for (std::size_t i = 0; i < v.size(); ++i) {
      auto o = v.at(i).template decodeObjectOfClass<T>();
      if (!o) return std::nullopt;
      out.push_back(std::move(o));
    }
    return out;
  }
  // None when the key is missing or not a map; with `strict`, also when any value is not a
  // readable T, otherwise such entries are left out.
  template <class T>
  std::optional<std::map<std::string, std::shared_ptr<T>>> decodeDictionaryOfObjectsOfClassForKey(
      std::string_view key, bool strict = true) const {
    return dictionaryOfClass<T>(valueForKey(key), strict);
  }

 private:
  friend class ArchiveValue;
  KeyedUnarchiver(const void* map, int depth) : map_(map), depth_(depth) {}
  static bool withArchiveImpl(std::span<const std::uint8_t> data, void (*call)(void*, const ArchiveValue&), void* ctx);
  template <class T>
  static std::optional<std::map<std::string, std::shared_ptr<T>>> dictionaryOfClass(const ArchiveValue& v, bool strict) {
    if (v.kind() != ArchiveValue::Kind::Map) return std::nullopt;
    std::map<std::string, std::shared_ptr<T>> out;
    for (std::size_t i = 0; i < v.size(); ++i) {
      auto o = v.valueAt(i).template decodeObjectOfClass<T>();
      if (!o) {
        if (strict) return std::nullopt;
        continue;
      }
      out.emplace(std::string(v.keyAt(i)), std::move(o));
    }
    return out;
  }

  const void* map_ = nullptr;  // msgpack::object_map inside the decoding arena
  int depth_ = 0;
};

// Deepest nesting of objects that a decoder follows; deeper values read as absent.
inline constexpr int kMaximumArchiveObjectDepth = 64;

template <class T>
std::shared_ptr<T> ArchiveValue::decodeObjectOfClass() const {
  if (kind() != Kind::Object || className() != T::kArchiveClassName) return nullptr;
  if (depth_ >= kMaximumArchiveObjectDepth) return nullptr;
  try {
    return T::initWithCoder(objectCoder());
  } catch (...) {
    return nullptr;
  }
}

}  // namespace iam
