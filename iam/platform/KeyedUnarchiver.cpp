#include "iam/platform/KeyedUnarchiver.h"

#include <cstring>

#include <memory_resource>
#include <new>

#include <msgpack/object.hpp>

#include "iam/platform/internal/ArchiveFormat.h"

namespace iam {

using archive_format::kMaximumContainerDepth;

namespace {

// Builds the MessagePack tree in one pass over the bytes, with strings, data and extensions left in
// the caller's bytes (which outlive the decoding) and every node in one arena. Refuses, before
// anything is allocated for them, containers announcing more values in total than the input has
// bytes (every value takes at least one byte, so a readable archive never does; a few hostile bytes
// must not ask for gigabytes), map keys other than strings, nesting beyond the fixed depth,
// truncation and trailing bytes.
class TreeReader {
 public:
  TreeReader(const char* bytes, std::size_t size, std::pmr::memory_resource& arena)
      : p_(bytes), end_(bytes + size), budget_(size), arena_(arena) {}

  bool readRoot(msgpack::object& root) { return read(root, 0) && p_ == end_; }

 private:
  bool has(std::size_t n) const { return static_cast<std::size_t>(end_ - p_) >= n; }
  std::uint8_t u8() { return static_cast<std::uint8_t>(*p_++); }
  std::uint16_t u16() {
    const auto* b = reinterpret_cast<const unsigned char*>(p_);
    p_ += 2;
    return static_cast<std::uint16_t>((b[0] << 8) | b[1]);
  }
  std::uint32_t u32() {
    const std::uint32_t v = archive_format::bigEndian32(p_);
    p_ += 4;
    return v;
  }
  std::uint64_t u64() {
    const std::uint64_t v = archive_format::bigEndian64(p_);
    p_ += 8;
    return v;
  }

  // The length of a sized form whose length field takes `width` bytes.
  bool length(int width, std::uint32_t& n) {
    if (!has(static_cast<std::size_t>(width))) return false;
    n = width == 1 ? u8() : width == 2 ? u16() : u32();
    return true;
  }

  bool bytesOf(std::uint32_t n, const char*& at) {
    if (!has(n)) return false;
    at = p_;
    p_ += n;
    return true;
  }

  bool str(msgpack::object& o, std::uint32_t n) {
    o.type = msgpack::type::STR;
    o.via.str.size = n;
    return bytesOf(n, o.via.str.ptr);
  }
  bool bin(msgpack::object& o, std::uint32_t n) {
    o.type = msgpack::type::BIN;
    o.via.bin.size = n;
    return bytesOf(n, o.via.bin.ptr);
  }
  // The extension's view starts at its type byte.
  bool ext(msgpack::object& o, std::uint32_t n) {
    o.type = msgpack::type::EXT;
    o.via.ext.size = n;
    return std::uint64_t{n} + 1 <= static_cast<std::uint64_t>(end_ - p_) && bytesOf(n + 1, o.via.ext.ptr);
  }
  bool integer(msgpack::object& o, std::int64_t v) {
    if (v < 0) {
      o.type = msgpack::type::NEGATIVE_INTEGER;
      o.via.i64 = v;
    } else {
      o.type = msgpack::type::POSITIVE_INTEGER;
      o.via.u64 = static_cast<std::uint64_t>(v);
    }
    return true;
  }
  bool unsignedInteger(msgpack::object& o, std::uint64_t v) {
    o.type = msgpack::type::POSITIVE_INTEGER;
    o.via.u64 = v;
    return true;
  }

  msgpack::object* nodes(std::uint64_t values, std::size_t depth) {
    if (depth + 1 > kMaximumContainerDepth) return nullptr;
    announced_ += values;
    if (announced_ > budget_) return nullptr;
    auto* at = static_cast<msgpack::object*>(arena_.allocate(values * sizeof(msgpack::object), alignof(msgpack::object)));
    return at;
  }

  bool array(msgpack::object& o, std::uint32_t n, std::size_t depth) {
    o.type = msgpack::type::ARRAY;
    o.via.array.size = 0;
    o.via.array.ptr = nullptr;
    if (n == 0) return depth + 1 <= kMaximumContainerDepth;
    msgpack::object* items = nodes(n, depth);
    if (items == nullptr) return false;
    o.via.array.ptr = items;
    for (std::uint32_t i = 0; i < n; ++i) {
      if (!read(*new (items + i) msgpack::object(), depth + 1)) return false;
      o.via.array.size = i + 1;
    }
    return true;
  }

  bool map(msgpack::object& o, std::uint32_t n, std::size_t depth) {
    o.type = msgpack::type::MAP;
    o.via.map.size = 0;
    o.via.map.ptr = nullptr;
    if (n == 0) return depth + 1 <= kMaximumContainerDepth;
    static_assert(sizeof(msgpack::object_kv) == 2 * sizeof(msgpack::object));
    msgpack::object* slots = nodes(std::uint64_t{n} * 2, depth);
    if (slots == nullptr) return false;
    auto* pairs = reinterpret_cast<msgpack::object_kv*>(slots);
    o.via.map.ptr = pairs;
    for (std::uint32_t i = 0; i < n; ++i) {
      auto* pair = new (pairs + i) msgpack::object_kv();
      if (!key(pair->key) || !read(pair->val, depth + 1)) return false;
      o.via.map.size = i + 1;
    }
    return true;
  }

  bool key(msgpack::object& o) {
    if (!has(1)) return false;
    const std::uint8_t b = u8();
    std::uint32_t n = 0;
    if ((b & 0xe0) == 0xa0) return str(o, b & 0x1fu);
    switch (b) {
      case 0xd9: return length(1, n) && str(o, n);
      case 0xda: return length(2, n) && str(o, n);
      case 0xdb: return length(4, n) && str(o, n);
      default: return false;
    }
  }

  bool read(msgpack::object& o, std::size_t depth) {
    if (!has(1)) return false;
    const std::uint8_t b = u8();
    if (b <= 0x7f) return unsignedInteger(o, b);
    if (b >= 0xe0) return integer(o, static_cast<std::int8_t>(b));
    if ((b & 0xe0) == 0xa0) return str(o, b & 0x1fu);
    if ((b & 0xf0) == 0x90) return array(o, b & 0x0fu, depth);
    if ((b & 0xf0) == 0x80) return map(o, b & 0x0fu, depth);
    std::uint32_t n = 0;
    switch (b) {
      case 0xc0:
        o.type = msgpack::type::NIL;
        return true;
      case 0xc2:
      case 0xc3:
        o.type = msgpack::type::BOOLEAN;
        o.via.boolean = b == 0xc3;
        return true;
      case 0xc4: return length(1, n) && bin(o, n);
      case 0xc5: return length(2, n) && bin(o, n);
      case 0xc6: return length(4, n) && bin(o, n);
      case 0xc7: return length(1, n) && ext(o, n);
      case 0xc8: return length(2, n) && ext(o, n);
      case 0xc9: return length(4, n) && ext(o, n);
      case 0xca: {
        if (!has(4)) return false;
        const std::uint32_t bits = u32();
        float f = 0;
        std::memcpy(&f, &bits, sizeof f);
        o.type = msgpack::type::FLOAT32;
        o.via.f64 = f;
        return true;
      }
      case 0xcb: {
        if (!has(8)) return false;
        const std::uint64_t bits = u64();
        o.type = msgpack::type::FLOAT64;
        std::memcpy(&o.via.f64, &bits, sizeof bits);
        return true;
      }
      case 0xcc: return has(1) && unsignedInteger(o, u8());
      case 0xcd: return has(2) && unsignedInteger(o, u16());
      case 0xce: return has(4) && unsignedInteger(o, u32());
      case 0xcf: return has(8) && unsignedInteger(o, u64());
      case 0xd0: return has(1) && integer(o, static_cast<std::int8_t>(u8()));
      case 0xd1: return has(2) && integer(o, static_cast<std::int16_t>(u16()));
      case 0xd2: return has(4) && integer(o, static_cast<std::int32_t>(u32()));
      case 0xd3: return has(8) && integer(o, static_cast<std::int64_t>(u64()));
      case 0xd4: return ext(o, 1);
      case 0xd5: return ext(o, 2);
      case 0xd6: return ext(o, 4);
      case 0xd7: return ext(o, 8);
      case 0xd8: return ext(o, 16);
      case 0xd9: return length(1, n) && str(o, n);
      case 0xda: return length(2, n) && str(o, n);
      case 0xdb: return length(4, n) && str(o, n);
      case 0xdc: return length(2, n) && array(o, n, depth);
      case 0xdd: return length(4, n) && array(o, n, depth);
      case 0xde: return length(2, n) && map(o, n, depth);
      case 0xdf: return length(4, n) && map(o, n, depth);
      default: return false;  // 0xc1, never used
    }
  }

  const char* p_;
  const char* end_;
  std::uint64_t budget_;
  std::uint64_t announced_ = 1;  // the root value
  std::pmr::memory_resource& arena_;
};

}  // namespace

bool KeyedUnarchiver::withArchiveImpl(std::span<const std::uint8_t> data, void (*call)(void*, const ArchiveValue&),
                                      void* ctx) {
  if (data.empty()) return false;
  try {
    std::pmr::monotonic_buffer_resource arena;
    msgpack::object root;
    TreeReader reader(reinterpret_cast<const char*>(data.data()), data.size(), arena);
    if (!reader.readRoot(root)) return false;
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
  // Records read their keys in about the order they wrote them: start where the last hit was.
  const auto matches = [&](std::uint32_t i) {
    const msgpack::object& k = map.ptr[i].key;
    return k.type == msgpack::type::STR && k.via.str.size == key.size() &&
           (key.empty() || (k.via.str.ptr[0] == key[0] && std::memcmp(k.via.str.ptr, key.data(), key.size()) == 0));
  };
  const std::uint32_t start = next_ < map.size ? next_ : 0;
  for (std::uint32_t n = 0, i = start; n < map.size; ++n, i = i + 1 == map.size ? 0 : i + 1) {
    if (matches(i)) {
      next_ = i + 1;
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
