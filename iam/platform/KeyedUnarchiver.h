#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "iam/platform/ArchiveValue.h"
#include "iam/platform/Archivable.h"
#include "iam/platform/Date.h"

namespace iam {

// Reads the keys of one archived object. Made by the archive entry points below and by
// `ArchiveValue::objectCoder`; a coder is a cheap view into the decoding arena.
//
// The decoder reads any MessagePack form. It unpacks the bytes into one arena and reads keys from
// there; no other tree is built. Bytes that are not a readable archive (truncated, trailing bytes,
// a non-string map key, sizes beyond the input, nesting beyond a fixed depth) decode to none; no
// exception leaves the decoder.
class KeyedUnarchiver {
 public:
  // Whole-archive entry points: none when the bytes are not a readable archive of the class (for
  // the untyped one, of a class known to `ArchiveClassRegistry`).
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
    withArchive(data, [&](const ArchiveValue& root) { result = dictionaryOfClass<T, std::less<std::string>>(root, false); });
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
  // readable T, otherwise such entries are left out. `Compare` gives the map the caller keeps, so
  // that it need not be built twice.
  template <class T, class Compare = std::less<std::string>>
  std::optional<std::map<std::string, std::shared_ptr<T>, Compare>> decodeDictionaryOfObjectsOfClassForKey(
      std::string_view key, bool strict = true) const {
    return dictionaryOfClass<T, Compare>(valueForKey(key), strict);
  }

 private:
  friend class ArchiveValue;
  KeyedUnarchiver(const void* map, int depth) : map_(map), depth_(depth) {}
  static bool withArchiveImpl(std::span<const std::uint8_t> data, void (*call)(void*, const ArchiveValue&), void* ctx);
  template <class T, class Compare>
  static std::optional<std::map<std::string, std::shared_ptr<T>, Compare>> dictionaryOfClass(const ArchiveValue& v,
                                                                                            bool strict) {
    if (v.kind() != ArchiveValue::Kind::Map) return std::nullopt;
    std::map<std::string, std::shared_ptr<T>, Compare> out;
    for (std::size_t i = 0; i < v.size(); ++i) {
      auto o = v.valueAt(i).template decodeObjectOfClass<T>();
      if (!o) {
        if (strict) return std::nullopt;
        continue;
      }
      out.emplace_hint(out.end(), std::string(v.keyAt(i)), std::move(o));  // maps are written in key order
    }
    return out;
  }

  const void* map_ = nullptr;  // msgpack::object_map inside the decoding arena
  int depth_ = 0;
  mutable std::uint32_t next_ = 0;  // where the next key lookup starts
};

}  // namespace iam
