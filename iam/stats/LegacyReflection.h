#pragma once

// Field-by-field archiving. An archivable record lists its fields once, in a table of descriptors
// (name with the leading underscore, type code, read, write); the facility encodes every field
// under its own name by its type code and decodes them back the same way. Fields that cannot be
// encoded are named in the archive's excluded list, so that decoding skips them quietly.
//
// Type codes follow the runtime's encoding: '@' object, 'B' bool, 'c'/'C' 8-bit, 's'/'S' 16-bit,
// 'i'/'I' 32-bit, 'l'/'L' and 'q'/'Q' 64-bit integers, 'f' float, 'd' double, '{' a plain
// structure ("{Name=dd}"), stored as its raw bytes. Anything else is not archived.
//
// A record class declares `static const LegacyClass& legacyClass()` and overrides
// `legacyReflectedClass()`; its field table is built in its .cpp file with `legacyIvar`
// (iam/stats/internal/LegacyBox.h).
//
// Field reads and writes made by the facility hold the object's `fieldsMutex()`; a record guards
// its own accessors with the same mutex, so an archive may be written while other threads update
// the record. A field must not refer back to its own object.

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "iam/platform/Date.h"
#include "iam/platform/KeyedArchiver.h"
#include "iam/platform/KeyedUnarchiver.h"
#include "iam/stats/LegacyValue.h"

namespace iam {

class LegacyReflectable;

// One field: what the runtime's field list would tell about it, plus how to read and write it.
struct LegacyIvar {
  std::string_view name;
  std::string_view typeEncoding;
  LegacyValue (*read)(const LegacyReflectable& object);
  // False when the value does not fit the field (the field is left as it was).
  bool (*write)(LegacyReflectable& object, const LegacyValue& value);
  // Writes the field under `key` exactly as boxing and encoding it would, without the box; set
  // only where the type code is the one the field's type boxes to. Called with the object locked.
  void (*encodeDirect)(const LegacyReflectable& object, std::string_view key, KeyedArchiver& encoder);
};

// A class: its own fields and its base class. The root class has no base and no fields.
struct LegacyClass {
  std::string_view name;
  const LegacyClass* superclass;
  std::span<const LegacyIvar> ivars;

  // Searches this class, then its bases.
  const LegacyIvar* ivarNamed(std::string_view ivarName) const;
};

// The root of every class archived field by field.
class LegacyReflectable {
 public:
  virtual ~LegacyReflectable() = default;

  static const LegacyClass& legacyClass();
  virtual const LegacyClass& legacyReflectedClass() const { return legacyClass(); }

  // Instance forms of the class-level operations of `LegacyReflection`.
  void automatedEncodeWithEncoder(KeyedArchiver& encoder) const;
  void automatedEncodeWithEncoder(KeyedArchiver& encoder, const std::vector<std::string>& exludeIvars) const;
  void automatedDecodeWithDecoder(const KeyedUnarchiver& decoder);
  std::map<std::string, LegacyValue> getIvarsWithValues() const;

  // Guards the fields of the derived class.
  std::mutex& fieldsMutex() const { return fieldsMutex_; }

 protected:
  LegacyReflectable() = default;
  LegacyReflectable(const LegacyReflectable&) = delete;
  LegacyReflectable& operator=(const LegacyReflectable&) = delete;

 private:
  friend class LegacyReflection;
  // Called with fieldsMutex() held after the facility decoded values into the fields, so that a
  // record that tracks its changes sees these too.
  virtual void fieldsDidChange() {}

  mutable std::mutex fieldsMutex_;
};

// The class-level operations. None of them throws; every problem is a warning through
// `LogBridge` and the affected field is skipped or left at its initial value.
class LegacyReflection {
 public:
  // The excluded list's archive key.
  static constexpr std::string_view kExcludedIvarsKey = "NSObject+Reflection_excludedIvars";
  static constexpr std::string_view kLogFile =
      "InAppMarketing/source/Logic/Stats/Legacy/NSObject/NSObject+LegacyReflection";

  static void automatedEncodeWithObject(const LegacyReflectable& object, KeyedArchiver& encoder);
  static void automatedEncodeWithObject(const LegacyReflectable& object, KeyedArchiver& encoder,
                                        const std::vector<std::string>& exludeIvars);
  static void automatedDecodeWithObject(LegacyReflectable& object, const KeyedUnarchiver& decoder);

  // One field; `excluded` is set when the field must go on the excluded list.
  static void encodeValueWithKey(std::string_view key, std::string_view typeEncoding, const LegacyReflectable& object,
                                 KeyedArchiver& encoder, bool& excluded);
  static void decodeValueWithKey(std::string_view key, std::string_view typeEncoding, LegacyReflectable& object,
                                 const KeyedUnarchiver& decoder);

  // Field name to type code, the class's own fields and those of its bases (not the root's).
  static std::unordered_map<std::string, std::string> getIvarsWithTypeEncodingForClass(const LegacyClass& cls);
  // Field name to current value, for diagnostics; fields holding none are left out.
  static std::map<std::string, LegacyValue> getIvarsWithValuesWithObject(const LegacyReflectable& object);

  // The structure field's bytes, as many as the type code says; none when the code is not a
  // readable structure or the field is not a structure of at least that size.
  static std::optional<Data> getDataFromStructWithObject(const LegacyReflectable& object, std::string_view key,
                                                         std::string_view typeEncoding);
  // A boxed structure; none when the bytes do not have the size the type code says.
  static std::optional<LegacyValue> getValueFromData(std::span<const std::uint8_t> data, std::string_view typeEncoding);

  // Size and alignment of a type code on a 64-bit target; none for an unreadable code.
  static std::optional<std::pair<std::size_t, std::size_t>> sizeAndAlignmentOfTypeEncoding(
      std::string_view typeEncoding);
};

}  // namespace iam
