#include "iam/platform/KeyedArchive.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <mutex>
#include <shared_mutex>

#include <msgpack.hpp>

namespace iam {
namespace {

// Tags of the archive's extension values.
constexpr std::int8_t kTimestampExtType = -1;
constexpr std::int8_t kClassNameExtType = 1;

// Nesting of MessagePack containers a decoder accepts. An object takes two levels (array and map),
// so this leaves room for kMaximumArchiveObjectDepth objects with arrays and maps between them.
constexpr std::size_t kMaximumContainerDepth = 4 * kMaximumArchiveObjectDepth;

constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;

// Byte sink for msgpack::packer, writing straight into the archive's Data.
struct DataBuffer {
  Data bytes;
  // The packer writes a few bytes at a time; a plain append keeps that cheap.
  void write(const char* p, std::size_t n) {
    if (n == 0) return;  // empty bodies may come with a null pointer
    const std::size_t used = bytes.size();
    if (bytes.capacity() - used < n) bytes.reserve(std::max(bytes.capacity() * 2, used + n + 256));
    bytes.resize(used + n);
    std::memcpy(bytes.data() + used, p, n);
  }
};

void putBigEndian32(std::uint8_t* at, std::uint32_t v) {
  at[0] = static_cast<std::uint8_t>(v >> 24);
  at[1] = static_cast<std::uint8_t>(v >> 16);
  at[2] = static_cast<std::uint8_t>(v >> 8);
  at[3] = static_cast<std::uint8_t>(v);
}

std::uint32_t bigEndian32(const char* p) {
  const auto* b = reinterpret_cast<const unsigned char*>(p);
  return (std::uint32_t{b[0]} << 24) | (std::uint32_t{b[1]} << 16) | (std::uint32_t{b[2]} << 8) | std::uint32_t{b[3]};
}

std::uint64_t bigEndian64(const char* p) {
  return (std::uint64_t{bigEndian32(p)} << 32) | bigEndian32(p + 4);
}

// Checks the shape of the bytes before anything is allocated for them. msgpack-cxx reserves room for
// every element a container header announces before reading the elements, so a few hostile bytes
// could ask for gigabytes. Every value takes at least one byte, hence a readable archive announces
// no more values than it has bytes. Also refuses map keys other than strings and too deep nesting.
class ShapeCheck : public msgpack::null_visitor {
 public:
  explicit ShapeCheck(std::size_t size) : budget_(size) {}

  bool visit_nil() { return notKey(); }
  bool visit_boolean(bool) { return notKey(); }
  bool visit_positive_integer(std::uint64_t) { return notKey(); }
  bool visit_negative_integer(std::int64_t) { return notKey(); }
  bool visit_float32(float) { return notKey(); }
  bool visit_float64(double) { return notKey(); }
  bool visit_str(const char*, std::uint32_t) {
    keyExpected_ = false;
    return true;
  }
  bool visit_bin(const char*, std::uint32_t) { return notKey(); }
  bool visit_ext(const char*, std::uint32_t) { return notKey(); }
  bool start_array(std::uint32_t n) { return notKey() && open(n); }
  bool end_array() {
    --depth_;
    return true;
  }
  bool start_map(std::uint32_t n) { return notKey() && open(std::uint64_t{n} * 2); }
  bool start_map_key() {
    keyExpected_ = true;
    return true;
  }
  bool end_map() {
    --depth_;
    return true;
  }
  void parse_error(std::size_t, std::size_t) { failed_ = true; }
  void insufficient_bytes(std::size_t, std::size_t) { failed_ = true; }

  bool failed() const { return failed_; }

 private:
  bool notKey() const { return !keyExpected_; }
  bool open(std::uint64_t values) {
    if (++depth_ > kMaximumContainerDepth) return false;
    announced_ += values;
    return announced_ <= budget_;
  }

  std::uint64_t budget_;
  std::uint64_t announced_ = 1;  // the root value
  std::size_t depth_ = 0;
  bool keyExpected_ = false;
  bool failed_ = false;
};

// Strings, data and extensions stay in the caller's bytes, which outlive the decoding.
bool referenceInput(msgpack::type::object_type, std::size_t, void*) { return true; }

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

struct Registry {
  std::shared_mutex mutex;
  std::map<std::string, ArchiveClassRegistry::Factory, std::less<>> factories;  // guarded by mutex
};

Registry& registry() {
  static Registry r;
  return r;
}

}  // namespace

void ArchiveClassRegistry::registerClass(std::string_view name, Factory factory) {
  auto& r = registry();
  std::unique_lock lock(r.mutex);
  r.factories.insert_or_assign(std::string(name), factory);
}

ArchiveClassRegistry::Factory ArchiveClassRegistry::factoryFor(std::string_view name) {
  auto& r = registry();
  std::shared_lock lock(r.mutex);
  auto it = r.factories.find(name);
  return it == r.factories.end() ? nullptr : it->second;
}

struct KeyedArchiver::Impl {
  // An open array or map: where its 32-bit header sits and how many entries it has so far.
  struct Frame {
    std::size_t headerOffset;
    std::uint32_t count;
    bool isMap;
  };

  DataBuffer buffer;
  msgpack::packer<DataBuffer> packer{buffer};
  std::vector<Frame> frames;
  std::size_t floor = 0;  // frames below this belong to an enclosing object
  int objectDepth = 0;

  // Every value written counts as an element of the array it is in; map entries count at their key.
  void beginValue() {
    if (!frames.empty() && !frames.back().isMap) ++frames.back().count;
  }

  // The size is unknown up front: write the 32-bit form and fill the count in when closing.
  void open(bool isMap) {
    beginValue();
    pushFrame(isMap);
  }

  void pushFrame(bool isMap) {
    frames.push_back({buffer.bytes.size(), 0, isMap});
    const char header[5] = {static_cast<char>(isMap ? 0xdf : 0xdd), 0, 0, 0, 0};
    buffer.write(header, sizeof header);
  }

  // An unbalanced end call is ignored; a record cannot close what its caller opened.
  void close(bool isMap) {
    if (frames.size() <= floor || frames.back().isMap != isMap) return;
    closeTop();
  }

  void closeTop() {
    const Frame f = frames.back();
    frames.pop_back();
    putBigEndian32(buffer.bytes.data() + f.headerOffset + 1, f.count);
  }

  void closeDownTo(std::size_t size) {
    while (frames.size() > size) closeTop();
  }
};

KeyedArchiver::KeyedArchiver() : impl_(std::make_unique<Impl>()) {}
KeyedArchiver::KeyedArchiver(Data storage) : impl_(std::make_unique<Impl>()) {
  impl_->buffer.bytes = std::move(storage);
  impl_->buffer.bytes.clear();
}
KeyedArchiver::~KeyedArchiver() = default;

Data KeyedArchiver::archivedDataWithRootObject(const Archivable& root) {
  KeyedArchiver a;
  a.writeObject(&root);
  return a.takeData();
}

void KeyedArchiver::encodeInteger(std::int64_t value, std::string_view key) {
  writeKey(key);
  writeInteger(value);
}
void KeyedArchiver::encodeUnsignedInteger(std::uint64_t value, std::string_view key) {
  writeKey(key);
  writeUnsignedInteger(value);
}
void KeyedArchiver::encodeBool(bool value, std::string_view key) {
  writeKey(key);
  writeBool(value);
}
void KeyedArchiver::encodeDouble(double value, std::string_view key) {
  writeKey(key);
  writeDouble(value);
}
void KeyedArchiver::encodeFloat(float value, std::string_view key) {
  writeKey(key);
  writeFloat(value);
}
void KeyedArchiver::encodeString(std::string_view value, std::string_view key) {
  writeKey(key);
  writeString(value);
}
void KeyedArchiver::encodeString(const std::optional<std::string>& value, std::string_view key) {
  writeKey(key);
  if (value) {
    writeString(*value);
  } else {
    writeNull();
  }
}
void KeyedArchiver::encodeDate(Date value, std::string_view key) {
  writeKey(key);
  writeDate(value);
}
void KeyedArchiver::encodeDate(const std::optional<Date>& value, std::string_view key) {
  writeKey(key);
  if (value) {
    writeDate(*value);
  } else {
    writeNull();
  }
}
void KeyedArchiver::encodeData(std::span<const std::uint8_t> value, std::string_view key) {
  writeKey(key);
  writeData(value);
}
void KeyedArchiver::encodeNull(std::string_view key) {
  writeKey(key);
  writeNull();
}
void KeyedArchiver::encodeObject(const Archivable* object, std::string_view key) {
  writeKey(key);
  writeObject(object);
}
void KeyedArchiver::encodeStringMap(const std::map<std::string, std::string>& map, std::string_view key) {
  writeKey(key);
  beginMap();
  for (const auto& [k, v] : map) {
    writeKey(k);
    writeString(v);
  }
  endMap();
}
void KeyedArchiver::encodeStringArray(const std::vector<std::string>& strings, std::string_view key) {
  writeKey(key);
  beginArray();
  for (const auto& s : strings) writeString(s);
  endArray();
}

void KeyedArchiver::writeKey(std::string_view key) {
  if (!impl_->frames.empty() && impl_->frames.back().isMap) ++impl_->frames.back().count;
  impl_->packer.pack_str(static_cast<std::uint32_t>(key.size()));
  impl_->packer.pack_str_body(key.data(), static_cast<std::uint32_t>(key.size()));
}

void KeyedArchiver::writeNull() {
  impl_->beginValue();
  impl_->packer.pack_nil();
}

void KeyedArchiver::writeBool(bool value) {
  impl_->beginValue();
  if (value) {
    impl_->packer.pack_true();
  } else {
    impl_->packer.pack_false();
  }
}

void KeyedArchiver::writeInteger(std::int64_t value) {
  impl_->beginValue();
  impl_->packer.pack_int64(value);
}

void KeyedArchiver::writeUnsignedInteger(std::uint64_t value) {
  impl_->beginValue();
  impl_->packer.pack_uint64(value);
}

void KeyedArchiver::writeDouble(double value) {
  impl_->beginValue();
  impl_->packer.pack_double(value);
}

void KeyedArchiver::writeFloat(float value) {
  impl_->beginValue();
  impl_->packer.pack_float(value);
}

void KeyedArchiver::writeString(std::string_view value) {
  impl_->beginValue();
  impl_->packer.pack_str(static_cast<std::uint32_t>(value.size()));
  impl_->packer.pack_str_body(value.data(), static_cast<std::uint32_t>(value.size()));
}

void KeyedArchiver::writeData(std::span<const std::uint8_t> value) {
  impl_->beginValue();
  impl_->packer.pack_bin(static_cast<std::uint32_t>(value.size()));
  impl_->packer.pack_bin_body(reinterpret_cast<const char*>(value.data()), static_cast<std::uint32_t>(value.size()));
}

void KeyedArchiver::writeDate(Date value) {
  impl_->beginValue();
  const std::int64_t total = std::chrono::duration_cast<std::chrono::nanoseconds>(value.time_since_epoch()).count();
  std::int64_t seconds = total / kNanosecondsPerSecond;
  std::int64_t nanoseconds = total % kNanosecondsPerSecond;
  if (nanoseconds < 0) {  // the extension keeps the fraction non-negative
    nanoseconds += kNanosecondsPerSecond;
    --seconds;
  }
  char body[12];
  auto* b = reinterpret_cast<std::uint8_t*>(body);
  if (nanoseconds == 0 && seconds >= 0 && seconds <= 0xffffffffLL) {
    putBigEndian32(b, static_cast<std::uint32_t>(seconds));
    impl_->packer.pack_ext(4, kTimestampExtType);
    impl_->packer.pack_ext_body(body, 4);
  } else if (seconds >= 0 && seconds <= 0x3ffffffffLL) {
    const std::uint64_t v = (static_cast<std::uint64_t>(nanoseconds) << 34) | static_cast<std::uint64_t>(seconds);
    putBigEndian32(b, static_cast<std::uint32_t>(v >> 32));
    putBigEndian32(b + 4, static_cast<std::uint32_t>(v));
    impl_->packer.pack_ext(8, kTimestampExtType);
    impl_->packer.pack_ext_body(body, 8);
  } else {
    const auto s = static_cast<std::uint64_t>(seconds);
    putBigEndian32(b, static_cast<std::uint32_t>(nanoseconds));
    putBigEndian32(b + 4, static_cast<std::uint32_t>(s >> 32));
    putBigEndian32(b + 8, static_cast<std::uint32_t>(s));
    impl_->packer.pack_ext(12, kTimestampExtType);
    impl_->packer.pack_ext_body(body, 12);
  }
}

void KeyedArchiver::writeObject(const Archivable* object) {
  // A cycle or a runaway graph ends as null rather than as a stack overflow; the decoder would
  // refuse anything deeper anyway.
  if (object == nullptr || impl_->objectDepth >= kMaximumArchiveObjectDepth) {
    writeNull();
    return;
  }
  impl_->beginValue();
  impl_->packer.pack_array(2);
  const std::string_view name = object->archiveClassName();
  impl_->packer.pack_ext(name.size(), kClassNameExtType);
  impl_->packer.pack_ext_body(name.data(), static_cast<std::uint32_t>(name.size()));
  // The object's map is not an element of any open array: push it without counting.
  impl_->pushFrame(true);
  const std::size_t ownMap = impl_->frames.size();
  const std::size_t outerFloor = impl_->floor;
  impl_->floor = ownMap;
  ++impl_->objectDepth;
  object->encodeWithCoder(*this);
  --impl_->objectDepth;
  impl_->floor = outerFloor;
  // Close whatever the record left open, then its own map, so that the bytes stay well formed.
  impl_->closeDownTo(ownMap - 1);
}

void KeyedArchiver::beginArray() { impl_->open(false); }
void KeyedArchiver::endArray() { impl_->close(false); }
void KeyedArchiver::beginMap() { impl_->open(true); }
void KeyedArchiver::endMap() { impl_->close(true); }

Data KeyedArchiver::takeData() {
  impl_->closeDownTo(0);
  impl_->floor = 0;
  Data out = std::move(impl_->buffer.bytes);
  impl_->buffer.bytes = Data();
  impl_->objectDepth = 0;
  return out;
}

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

std::shared_ptr<Archivable> ArchiveValue::decodeObject() const {
  if (kind() != Kind::Object || depth_ >= kMaximumArchiveObjectDepth) return nullptr;
  ArchiveClassRegistry::Factory factory = ArchiveClassRegistry::factoryFor(className());
  if (factory == nullptr) return nullptr;
  try {
    return factory(objectCoder());
  } catch (...) {
    return nullptr;
  }
}

bool KeyedUnarchiver::withArchiveImpl(std::span<const std::uint8_t> data, void (*call)(void*, const ArchiveValue&),
                                      void* ctx) {
  if (data.empty()) return false;
  const char* bytes = reinterpret_cast<const char*>(data.data());
  const std::size_t size = data.size();
  try {
    ShapeCheck check(size);
    std::size_t checked = 0;
    if (!msgpack::parse(bytes, size, checked, check) || check.failed() || checked != size) return false;

    // Every size is bounded by the input; the shape check has made sure of the totals already.
    const msgpack::unpack_limit limit(size, size / 2, size, size, size, kMaximumContainerDepth);
    // The default chunk size: large first chunks measured an order of magnitude slower (fresh
    // pages on every decode).
    msgpack::zone zone;
    std::size_t offset = 0;
    bool referenced = false;
    const msgpack::object root = msgpack::unpack(zone, bytes, size, offset, referenced, &referenceInput, nullptr, limit);
    if (offset != size) return false;
    call(ctx, ArchiveValue(&root, 0));
    return true;
  } catch (...) {
    return false;
  }
}

std::shared_ptr<Archivable> KeyedUnarchiver::unarchivedObjectFromData(std::span<const std::uint8_t> data) {
  std::shared_ptr<Archivable> result;
  withArchive(data, [&](const ArchiveValue& root) { result = root.decodeObject(); });
  return result;
}

ArchiveValue KeyedUnarchiver::valueForKey(std::string_view key) const {
  if (map_ == nullptr) return {};
  const auto& map = *static_cast<const msgpack::object_map*>(map_);
  for (std::uint32_t i = 0; i < map.size; ++i) {
    const msgpack::object& k = map.ptr[i].key;
    if (k.type == msgpack::type::STR && k.via.str.size == key.size() &&
        (key.empty() || std::memcmp(k.via.str.ptr, key.data(), key.size()) == 0)) {
      return ArchiveValue(&map.ptr[i].val, depth_);
    }
  }
  return {};
}

bool KeyedUnarchiver::containsValueForKey(std::string_view key) const { return valueForKey(key).isPresent(); }

std::int64_t KeyedUnarchiver::decodeIntegerForKey(std::string_view key) const {
  return valueForKey(key).integerValue().value_or(0);
}

bool KeyedUnarchiver::decodeBoolForKey(std::string_view key) const { return valueForKey(key).boolValue().value_or(false); }

double KeyedUnarchiver::decodeDoubleForKey(std::string_view key) const {
  return valueForKey(key).doubleValue().value_or(0.0);
}

std::optional<std::int64_t> KeyedUnarchiver::decodeIntegerNumberForKey(std::string_view key) const {
  return valueForKey(key).integerValue();
}

std::optional<double> KeyedUnarchiver::decodeDoubleNumberForKey(std::string_view key) const {
  return valueForKey(key).doubleValue();
}

std::optional<bool> KeyedUnarchiver::decodeBoolNumberForKey(std::string_view key) const {
  return valueForKey(key).boolValue();
}

std::optional<std::string> KeyedUnarchiver::decodeStringForKey(std::string_view key) const {
  auto s = valueForKey(key).stringValue();
  if (!s) return std::nullopt;
  return std::string(*s);
}

std::optional<Date> KeyedUnarchiver::decodeDateForKey(std::string_view key) const {
  return valueForKey(key).dateValue();
}

std::optional<Data> KeyedUnarchiver::decodeDataForKey(std::string_view key) const {
  auto d = valueForKey(key).dataValue();
  if (!d) return std::nullopt;
  return Data(d->begin(), d->end());
}

std::optional<std::map<std::string, std::string>> KeyedUnarchiver::decodeStringMapForKey(std::string_view key) const {
  const ArchiveValue v = valueForKey(key);
  if (v.kind() != ArchiveValue::Kind::Map) return std::nullopt;
  std::map<std::string, std::string> out;
  for (std::size_t i = 0; i < v.size(); ++i) {
    auto s = v.valueAt(i).stringValue();
    if (!s) return std::nullopt;
    out.insert_or_assign(std::string(v.keyAt(i)), std::string(*s));
  }
  return out;
}

std::optional<std::vector<std::string>> KeyedUnarchiver::decodeStringArrayForKey(std::string_view key) const {
  const ArchiveValue v = valueForKey(key);
  if (v.kind() != ArchiveValue::Kind::Array) return std::nullopt;
  std::vector<std::string> out;
  out.reserve(v.size());
  for (std::size_t i = 0; i < v.size(); ++i) {
    auto s = v.at(i).stringValue();
    if (!s) return std::nullopt;
    out.emplace_back(*s);
  }
  return out;
}

}  // namespace iam
