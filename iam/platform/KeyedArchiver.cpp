#include "iam/platform/KeyedArchiver.h"

#include <algorithm>
#include <cstring>

#include <msgpack/pack.hpp>

#include "iam/platform/internal/ArchiveFormat.h"

namespace iam {

using namespace archive_format;

namespace {

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

}  // namespace

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
    const char header[5] = {static_cast<char>(isMap ? kMap32 : kArray32), 0, 0, 0, 0};
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

}  // namespace iam
