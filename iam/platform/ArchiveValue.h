#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

#include "iam/platform/Archivable.h"
#include "iam/platform/Date.h"

namespace iam {

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
  // None for another class or a refused record.
  template <class T>
  std::shared_ptr<T> decodeObjectOfClass() const {
    return std::static_pointer_cast<T>(decodeObjectWith(T::kArchiveClassName, &decodeAs<T>));
  }
  std::shared_ptr<Archivable> decodeObject() const;  // any registered class

 private:
  friend class KeyedUnarchiver;
  using Decoder = std::shared_ptr<Archivable> (*)(const KeyedUnarchiver&);

  ArchiveValue(const void* object, int depth) : object_(object), depth_(depth) {}

  template <class T>
  static std::shared_ptr<Archivable> decodeAs(const KeyedUnarchiver& coder) {
    return T::initWithCoder(coder);
  }
  // None unless this is an object of `className` within the depth limit; `decoder` throwing
  // gives none too.
  std::shared_ptr<Archivable> decodeObjectWith(std::string_view className, Decoder decoder) const;

  const void* object_ = nullptr;  // msgpack::object inside the decoding arena
  int depth_ = 0;                 // nesting of objects, bounded against hostile archives
};

}  // namespace iam
