#pragma once

// How field types box into `LegacyValue` and archive, and the descriptor template records build
// their field tables with. Only the record sources use it.
//
//   const LegacyClass& Rec::legacyClass() {
//     static constexpr LegacyIvar kIvars[] = {legacyIvar<&Rec::count_>("_count", "q"), ...};
//     static const LegacyClass kClass{"Rec", &LegacyReflectable::legacyClass(), kIvars};
//     return kClass;
//   }

#include <chrono>
#include <cstdint>
#include <cstring>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <typeinfo>

#include "iam/platform/Date.h"
#include "iam/platform/KeyedArchiver.h"
#include "iam/platform/KeyedUnarchiver.h"
#include "iam/stats/LegacyReflection.h"
#include "iam/stats/LegacyValue.h"

namespace iam {

// Boxing between a C++ field type and `LegacyValue`. Specialised below for the field types the
// records use; a field of any other type does not compile into a table. `kDirectCode` is the type
// code whose archive form `encode` writes directly ('\0': none, the box decides).
template <class T, class Enable = void>
struct LegacyBox;

namespace legacy_detail {

// Out-of-range doubles become infinities, as the hardware rounds them, without the undefined cast.
inline float toFloat(double d) {
  if (d > static_cast<double>(std::numeric_limits<float>::max())) return std::numeric_limits<float>::infinity();
  if (d < -static_cast<double>(std::numeric_limits<float>::max())) return -std::numeric_limits<float>::infinity();
  return static_cast<float>(d);
}

template <class T>
T numberAs(const LegacyValue::Number& n) {
  if constexpr (std::is_same_v<T, bool>) {
    return n.boolValue();
  } else if constexpr (std::is_same_v<T, float>) {
    return toFloat(n.doubleValue());
  } else if constexpr (std::is_floating_point_v<T>) {
    return static_cast<T>(n.doubleValue());
  } else if constexpr (std::is_signed_v<T>) {
    const std::int64_t v = n.int64Value();
    if (v < static_cast<std::int64_t>(std::numeric_limits<T>::min())) return std::numeric_limits<T>::min();
    if (v > static_cast<std::int64_t>(std::numeric_limits<T>::max())) return std::numeric_limits<T>::max();
    return static_cast<T>(v);
  } else {
    const std::uint64_t v = n.uint64Value();
    if (v > static_cast<std::uint64_t>(std::numeric_limits<T>::max())) return std::numeric_limits<T>::max();
    return static_cast<T>(v);
  }
}

template <class T>
constexpr char typeCodeOf() {
  if constexpr (std::is_same_v<T, bool>)
    return 'B';
  else if constexpr (std::is_same_v<T, float>)
    return 'f';
  else if constexpr (std::is_same_v<T, double> || std::is_same_v<T, long double>)
    return 'd';
  else if constexpr (sizeof(T) == 1)
    return std::is_signed_v<T> ? 'c' : 'C';
  else if constexpr (sizeof(T) == 2)
    return std::is_signed_v<T> ? 's' : 'S';
  else if constexpr (sizeof(T) == 4)
    return std::is_signed_v<T> ? 'i' : 'I';
  else
    return std::is_signed_v<T> ? 'q' : 'Q';
}

// Structures archived as raw bytes; standard types with a box of their own are not among them.
template <class T>
struct IsPlainStruct
    : std::bool_constant<std::is_class_v<T> && std::is_trivially_copyable_v<T> && std::is_standard_layout_v<T>> {};
template <class T>
struct IsPlainStruct<std::optional<T>> : std::false_type {};
template <class C, class D>
struct IsPlainStruct<std::chrono::time_point<C, D>> : std::false_type {};

template <class M>
struct MemberTraits;
template <class C, class F>
struct MemberTraits<F C::*> {
  using Class = C;
  using Field = F;
};

}  // namespace legacy_detail

// Scalars (and enumerations, by their underlying type) box into numbers.
template <class T>
struct LegacyBox<T, std::enable_if_t<std::is_arithmetic_v<T> || std::is_enum_v<T>>> {
  using Scalar = typename std::conditional_t<std::is_enum_v<T>, std::underlying_type<T>, std::type_identity<T>>::type;
  static LegacyValue box(const T& field) {
    const auto v = static_cast<Scalar>(field);
    constexpr char code = legacy_detail::typeCodeOf<Scalar>();
    if constexpr (std::is_floating_point_v<Scalar>)
      return LegacyValue::Number::fromFloating(code, v);
    else if constexpr (std::is_same_v<Scalar, bool> || std::is_signed_v<Scalar>)
      return LegacyValue::Number::fromSigned(code, v);
    else
      return LegacyValue::Number::fromUnsigned(code, v);
  }
  static bool unbox(const LegacyValue& value, T& field) {
    const auto* n = value.get<LegacyValue::Number>();
    if (n == nullptr) return false;
    field = static_cast<T>(legacy_detail::numberAs<Scalar>(*n));
    return true;
  }
  static constexpr char kDirectCode = legacy_detail::typeCodeOf<Scalar>();
  static void encode(const T& field, std::string_view key, KeyedArchiver& encoder) {
    const auto v = static_cast<Scalar>(field);
    if constexpr (std::is_same_v<Scalar, bool>)
      encoder.encodeBool(v, key);
    else if constexpr (std::is_same_v<Scalar, float>)
      encoder.encodeFloat(v, key);
    else if constexpr (std::is_floating_point_v<Scalar>)
      encoder.encodeDouble(static_cast<double>(v), key);
    else if constexpr (std::is_signed_v<Scalar>)
      encoder.encodeInteger(v, key);
    else
      encoder.encodeUnsignedInteger(v, key);
  }
};

template <>
struct LegacyBox<std::string> {
  static LegacyValue box(const std::string& field) { return field; }
  static bool unbox(const LegacyValue& value, std::string& field) {
    if (value.isNone()) {
      field.clear();
      return true;
    }
    const auto* s = value.get<std::string>();
    if (s == nullptr) return false;
    field = *s;
    return true;
  }
  static constexpr char kDirectCode = '@';
  static void encode(const std::string& field, std::string_view key, KeyedArchiver& encoder) {
    encoder.encodeString(std::string_view(field), key);
  }
};

template <>
struct LegacyBox<Date> {
  static LegacyValue box(const Date& field) { return field; }
  static bool unbox(const LegacyValue& value, Date& field) {
    const auto* d = value.get<Date>();
    if (d == nullptr) return false;
    field = *d;
    return true;
  }
  static constexpr char kDirectCode = '@';
  static void encode(const Date& field, std::string_view key, KeyedArchiver& encoder) {
    encoder.encodeDate(field, key);
  }
};

// Optional strings and dates: none boxes to none.
template <class T>
struct LegacyBox<std::optional<T>, std::enable_if_t<std::is_same_v<T, std::string> || std::is_same_v<T, Date>>> {
  static LegacyValue box(const std::optional<T>& field) { return field ? LegacyValue(*field) : LegacyValue(); }
  static bool unbox(const LegacyValue& value, std::optional<T>& field) {
    if (value.isNone()) {
      field.reset();
      return true;
    }
    const auto* v = value.get<T>();
    if (v == nullptr) return false;
    field = *v;
    return true;
  }
  static constexpr char kDirectCode = '@';
  static void encode(const std::optional<T>& field, std::string_view key, KeyedArchiver& encoder) {
    if (!field) {
      encoder.encodeNull(key);
    } else if constexpr (std::is_same_v<T, Date>) {
      encoder.encodeDate(*field, key);
    } else {
      encoder.encodeString(std::string_view(*field), key);
    }
  }
};

// Object references: archivable ones box as themselves, others as an unarchivable object.
template <class T>
struct LegacyBox<std::shared_ptr<T>> {
  static LegacyValue box(const std::shared_ptr<T>& field) {
    if (!field) return {};
    if constexpr (std::is_base_of_v<Archivable, T>) {
      return std::shared_ptr<Archivable>(std::const_pointer_cast<std::remove_const_t<T>>(field));
    } else {
      return LegacyValue::Unarchivable{typeid(T).name()};
    }
  }
  static bool unbox(const LegacyValue& value, std::shared_ptr<T>& field) {
    if (value.isNone()) {
      field.reset();
      return true;
    }
    if constexpr (std::is_base_of_v<Archivable, T>) {
      const auto* object = value.get<std::shared_ptr<Archivable>>();
      if (object == nullptr) return false;
      auto typed = std::dynamic_pointer_cast<T>(*object);
      if (!typed) return false;
      field = std::move(typed);
      return true;
    } else {
      return false;
    }
  }
  // Objects without an archive form take the boxed path, which reports them.
  static constexpr char kDirectCode = std::is_base_of_v<Archivable, T> ? '@' : '\0';
  static void encode(const std::shared_ptr<T>& field, std::string_view key, KeyedArchiver& encoder) {
    if constexpr (std::is_base_of_v<Archivable, T>) encoder.encodeObject(field.get(), key);
  }
};

// Maps of archivable records, keyed by text. None decodes to an empty map.
template <class T>
struct LegacyBox<std::map<std::string, std::shared_ptr<T>>, std::enable_if_t<std::is_base_of_v<Archivable, T>>> {
  using Map = std::map<std::string, std::shared_ptr<T>>;
  static LegacyValue box(const Map& field) {
    LegacyValue::ObjectMap out;
    for (const auto& [k, v] : field) out.emplace_hint(out.end(), k, v);
    return out;
  }
  static bool unbox(const LegacyValue& value, Map& field) {
    if (value.isNone()) {
      field.clear();
      return true;
    }
    const auto* objects = value.get<LegacyValue::ObjectMap>();
    if (objects == nullptr) return false;
    Map typed;
    for (const auto& [k, v] : *objects) {
      auto t = std::dynamic_pointer_cast<T>(v);
      if (!t) return false;
      typed.emplace_hint(typed.end(), k, std::move(t));
    }
    field = std::move(typed);
    return true;
  }
  static constexpr char kDirectCode = '@';
  static void encode(const Map& field, std::string_view key, KeyedArchiver& encoder) {
    encoder.encodeObjectMap(field, key);
  }
};

// Plain structures box as their raw bytes and are restored byte for byte.
template <class T>
struct LegacyBox<T, std::enable_if_t<legacy_detail::IsPlainStruct<T>::value>> {
  static LegacyValue box(const T& field) {
    Data bytes(sizeof(T));
    std::memcpy(bytes.data(), &field, sizeof(T));
    return LegacyValue::StructValue{{}, std::move(bytes)};
  }
  static bool unbox(const LegacyValue& value, T& field) {
    const auto* s = value.get<LegacyValue::StructValue>();
    if (s == nullptr || s->bytes.size() != sizeof(T)) return false;
    std::memcpy(&field, s->bytes.data(), sizeof(T));
    return true;
  }
  // The size comes from the type code, which the boxed path checks.
  static constexpr char kDirectCode = '\0';
  static void encode(const T&, std::string_view, KeyedArchiver&) {}
};

// Raw pointers can be listed (type code '^...') but are never archived.
template <class T>
struct LegacyBox<T*> {
  static LegacyValue box(T* field) {
    if (field == nullptr) return {};
    return LegacyValue::Unarchivable{typeid(T*).name()};
  }
  static bool unbox(const LegacyValue&, T*&) { return false; }
  static constexpr char kDirectCode = '\0';
  static void encode(T*, std::string_view, KeyedArchiver&) {}
};

// The descriptor of field `Member`, read and written through `LegacyBox` of its type.
template <auto Member>
constexpr LegacyIvar legacyIvar(std::string_view name, std::string_view typeEncoding) {
  using Traits = legacy_detail::MemberTraits<decltype(Member)>;
  using C = typename Traits::Class;
  using F = typename Traits::Field;
  return LegacyIvar{
      name, typeEncoding,
      [](const LegacyReflectable& object) -> LegacyValue {
        return LegacyBox<F>::box(static_cast<const C&>(object).*Member);
      },
      [](LegacyReflectable& object, const LegacyValue& value) -> bool {
        return LegacyBox<F>::unbox(value, static_cast<C&>(object).*Member);
      },
      LegacyBox<F>::kDirectCode != '\0' && !typeEncoding.empty() && typeEncoding.front() == LegacyBox<F>::kDirectCode
          ? +[](const LegacyReflectable& object, std::string_view key,
                KeyedArchiver& encoder) { LegacyBox<F>::encode(static_cast<const C&>(object).*Member, key, encoder); }
          : nullptr};
}

}  // namespace iam
