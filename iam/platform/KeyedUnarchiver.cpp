#include "iam/platform/KeyedUnarchiver.h"

#include <cstring>

#include <msgpack/null_visitor.hpp>
#include <msgpack/parse.hpp>
#include <msgpack/unpack.hpp>

#include "iam/platform/internal/ArchiveFormat.h"

namespace iam {

using archive_format::kMaximumContainerDepth;

namespace {

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

}  // namespace

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
