#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>

#include "iam/platform/Date.h"
#include "iam/platform/Archivable.h"

namespace iam {

// A field's value as the field-by-field archiving sees it: none, a number that remembers the
// scalar type it was boxed from, a string, a date, a data blob, a structure's raw bytes, an
// archivable object, a map of archivable objects, or an object that cannot be archived.
class LegacyValue {
 public:
  // A boxed scalar. `objCType` is the type code it was boxed as ('q', 'B', 'd', ...).
  struct Number {
    char objCType = 'q';
    std::int64_t signedValue = 0;     // B c s i l q
    std::uint64_t unsignedValue = 0;  // C S I L Q
    double floatingValue = 0;         // f d

    static Number fromSigned(char type, std::int64_t v) { return {type, v, 0, 0}; }
    static Number fromUnsigned(char type, std::uint64_t v) { return {type, 0, v, 0}; }
    static Number fromFloating(char type, double v) { return {type, 0, 0, v}; }

    bool isFloating() const { return objCType == 'f' || objCType == 'd'; }
    bool isUnsigned() const;
    // Conversions as a number object answers them: out-of-range values saturate, NaN gives 0.
    std::int64_t int64Value() const;
    std::uint64_t uint64Value() const;
    double doubleValue() const;
    bool boolValue() const;

    bool operator==(const Number&) const = default;
  };
  // A boxed structure: its type code and exactly its bytes.
  struct StructValue {
    std::string typeEncoding;
    Data bytes;

    bool operator==(const StructValue&) const = default;
  };
  // An object without an archive form; only its type is known.
  struct Unarchivable {
    std::string typeName;

    bool operator==(const Unarchivable&) const = default;
  };
  using ObjectMap = std::map<std::string, std::shared_ptr<Archivable>>;
  using Storage = std::variant<std::monostate, Number, std::string, Date, Data, StructValue,
                               std::shared_ptr<Archivable>, ObjectMap, Unarchivable>;

  LegacyValue() = default;
  // Boxing is implicit, as a field's value becomes an object by assignment.
  template <class T>
    requires(!std::is_same_v<std::decay_t<T>, LegacyValue> && std::is_constructible_v<Storage, T>)
  LegacyValue(T&& value) : storage_(std::forward<T>(value)) {}

  bool isNone() const { return std::holds_alternative<std::monostate>(storage_); }
  template <class T>
  const T* get() const { return std::get_if<T>(&storage_); }
  const Storage& storage() const { return storage_; }

  bool operator==(const LegacyValue&) const = default;

 private:
  Storage storage_;
};

}  // namespace iam
