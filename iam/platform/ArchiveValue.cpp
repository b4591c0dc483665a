#include "iam/platform/ArchiveValue.h"

#include <chrono>

#include <msgpack/object.hpp>

#include "iam/platform/ArchiveClassRegistry.h"
#include "iam/platform/KeyedUnarchiver.h"
#include "iam/platform/internal/ArchiveFormat.h"

namespace iam {

using namespace archive_format;

namespace {

const msgpack::object& obj(const void* p) { return *static_cast<const msgpack::object*>(p); }

std::string_view asStringView(const msgpack::object& o) { return {o.via.str.ptr, o.via.str.size}; }

bool isClassTag(const msgpack::object& o) {
  return o.type == msgpack::type::EXT && o.via.ext.type() == kClassNameExtType;
}

bool isArchivedObject(const msgpack::object& o) {
  return o.type == msgpack::type::ARRAY && o.via.array.size == 2 && isClassTag(o.via.array.ptr[0]) &&
         o.via.array.ptr[1].type == msgpack::type::MAP;
}

// The timestamp extension in its three sizes; none for a malformed one or a date out of range.
std::optional<Date> decodeTimestamp(const msgpack::object& o) {
  if (o.type != msgpack::type::EXT || o.via.ext.type() != kTimestampExtType) return std::nullopt;
  const char* p = o.via.ext.data();
  std::int64_t seconds = 0;
  std::int64_t nanoseconds = 0;
  switch (o.via.ext.size) {
    case 4:
      seconds = bigEndian32(p);
      break;
    case 8: {
      std::uint64_t v = bigEndian64(p);
      nanoseconds = static_cast<std::int64_t>(v >> 34);
      seconds = static_cast<std::int64_t>(v & 0x3ffffffffULL);
      break;
    }
    case 12:
      nanoseconds = bigEndian32(p);
      seconds = static_cast<std::int64_t>(bigEndian64(p + 4));
      break;
    default:
      return std::nullopt;
  }
  if (nanoseconds >= kNanosecondsPerSecond) return std::nullopt;
  std::int64_t total = 0;
  if (__builtin_mul_overflow(seconds, kNanosecondsPerSecond, &total) ||
      __builtin_add_overflow(total, nanoseconds, &total)) {
    return std::nullopt;
  }
  auto since = std::chrono::nanoseconds(total);
  if (since > std::chrono::duration_cast<std::chrono::nanoseconds>(Date::duration::max()) ||
      since < std::chrono::duration_cast<std::chrono::nanoseconds>(Date::duration::min())) {
    return std::nullopt;
  }
  return Date(std::chrono::duration_cast<Date::duration>(since));
}

}  // namespace

ArchiveValue::Kind ArchiveValue::kind() const {
  if (object_ == nullptr) return Kind::Absent;
  const msgpack::object& o = obj(object_);
  switch (o.type) {
    case msgpack::type::NIL: return Kind::Null;
    case msgpack::type::BOOLEAN: return Kind::Boolean;
    case msgpack::type::POSITIVE_INTEGER:
    case msgpack::type::NEGATIVE_INTEGER: return Kind::Integer;
    case msgpack::type::FLOAT32:
    case msgpack::type::FLOAT64: return Kind::Double;
    case msgpack::type::STR: return Kind::String;
    case msgpack::type::BIN: return Kind::Data;
    case msgpack::type::ARRAY: return isArchivedObject(o) ? Kind::Object : Kind::Array;
    case msgpack::type::MAP: return Kind::Map;
    case msgpack::type::EXT: return decodeTimestamp(o) ? Kind::Date : Kind::Other;
  }
  return Kind::Other;
}

std::optional<bool> ArchiveValue::boolValue() const {
  if (object_ == nullptr || obj(object_).type != msgpack::type::BOOLEAN) return std::nullopt;
  return obj(object_).via.boolean;
}

std::optional<std::int64_t> ArchiveValue::integerValue() const {
  if (object_ == nullptr) return std::nullopt;
  const msgpack::object& o = obj(object_);
  if (o.type == msgpack::type::NEGATIVE_INTEGER) return o.via.i64;
  if (o.type == msgpack::type::POSITIVE_INTEGER &&
      o.via.u64 <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
    return static_cast<std::int64_t>(o.via.u64);
  }
  return std::nullopt;
}

std::optional<std::uint64_t> ArchiveValue::unsignedValue() const {
  if (object_ == nullptr || obj(object_).type != msgpack::type::POSITIVE_INTEGER) return std::nullopt;
  return obj(object_).via.u64;
}

std::optional<double> ArchiveValue::doubleValue() const {
  if (object_ == nullptr) return std::nullopt;
  const msgpack::object& o = obj(object_);
  switch (o.type) {
    case msgpack::type::FLOAT32:
    case msgpack::type::FLOAT64: return o.via.f64;
    case msgpack::type::POSITIVE_INTEGER: return static_cast<double>(o.via.u64);
    case msgpack::type::NEGATIVE_INTEGER: return static_cast<double>(o.via.i64);
    default: return std::nullopt;
  }
}

std::optional<std::string_view> ArchiveValue::stringValue() const {
  if (object_ == nullptr || obj(object_).type != msgpack::type::STR) return std::nullopt;
  return asStringView(obj(object_));
}

std::optional<Date> ArchiveValue::dateValue() const {
  if (object_ == nullptr) return std::nullopt;
  return decodeTimestamp(obj(object_));
}

std::optional<std::span<const std::uint8_t>> ArchiveValue::dataValue() const {
  if (object_ == nullptr || obj(object_).type != msgpack::type::BIN) return std::nullopt;
  const auto& bin = obj(object_).via.bin;
  return std::span<const std::uint8_t>(reinterpret_cast<const std::uint8_t*>(bin.ptr), bin.size);
}

std::size_t ArchiveValue::size() const {
  switch (kind()) {
    case Kind::Array: return obj(object_).via.array.size;
    case Kind::Map: return obj(object_).via.map.size;
    default: return 0;
  }
}

ArchiveValue ArchiveValue::at(std::size_t index) const {
  if (kind() != Kind::Array || index >= obj(object_).via.array.size) return {};
  return ArchiveValue(&obj(object_).via.array.ptr[index], depth_);
}

std::string_view ArchiveValue::keyAt(std::size_t index) const {
  if (object_ == nullptr) return {};
  const msgpack::object& o = obj(object_);
  if (o.type != msgpack::type::MAP || index >= o.via.map.size) return {};
  const msgpack::object& k = o.via.map.ptr[index].key;
  return k.type == msgpack::type::STR ? asStringView(k) : std::string_view();
}

ArchiveValue ArchiveValue::valueAt(std::size_t index) const {
  if (object_ == nullptr) return {};
  const msgpack::object& o = obj(object_);
  if (o.type != msgpack::type::MAP || index >= o.via.map.size) return {};
  return ArchiveValue(&o.via.map.ptr[index].val, depth_);
}

ArchiveValue ArchiveValue::valueForKey(std::string_view key) const {
  if (object_ == nullptr || obj(object_).type != msgpack::type::MAP) return {};
  return KeyedUnarchiver(&obj(object_).via.map, depth_).valueForKey(key);
}

std::string_view ArchiveValue::className() const {
  if (object_ == nullptr || !isArchivedObject(obj(object_))) return {};
  const auto& ext = obj(object_).via.array.ptr[0].via.ext;
  return {ext.data(), ext.size};
}

KeyedUnarchiver ArchiveValue::objectCoder() const {
  if (object_ == nullptr || !isArchivedObject(obj(object_))) return KeyedUnarchiver(nullptr, depth_);
  return KeyedUnarchiver(&obj(object_).via.array.ptr[1].via.map, depth_ + 1);
}

std::shared_ptr<Archivable> ArchiveValue::decodeObjectWith(std::string_view name, Decoder decoder) const {
  if (kind() != Kind::Object || className() != name || depth_ >= kMaximumArchiveObjectDepth) return nullptr;
  try {
    return decoder(objectCoder());
  } catch (...) {
    return nullptr;
  }
}

std::shared_ptr<Archivable> ArchiveValue::decodeObject() const {
  if (kind() != Kind::Object || depth_ >= kMaximumArchiveObjectDepth) return nullptr;
  try {
    ArchiveClassRegistry::Factory factory = ArchiveClassRegistry::factoryFor(className());
    if (factory == nullptr) return nullptr;
    return factory(objectCoder());
  } catch (...) {
    return nullptr;
  }
}

}  // namespace iam
