#pragma once

// Helpers shared by the model and service tests: archives written key by key, and the key order of
// an archived object.

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <msgpack.hpp>

#include "iam/platform/KeyedArchive.h"

namespace iam::testing {

// Writes whatever `body` writes, under any class name: archives as an old or broken writer made them.
class ScriptedRecord final : public Archivable {
 public:
  ScriptedRecord(std::string className, std::function<void(KeyedArchiver&)> body)
      : className_(std::move(className)), body_(std::move(body)) {}
  std::string_view archiveClassName() const override { return className_; }
  void encodeWithCoder(KeyedArchiver& coder) const override { body_(coder); }

 private:
  std::string className_;
  std::function<void(KeyedArchiver&)> body_;
};

inline Data archive(const Archivable& record) { return KeyedArchiver::archivedDataWithRootObject(record); }

template <class T>
std::shared_ptr<T> unarchive(const Data& data) {
  return KeyedUnarchiver::unarchivedObjectOfClass<T>(data);
}

template <class T>
std::shared_ptr<T> scripted(std::function<void(KeyedArchiver&)> body) {
  return unarchive<T>(archive(ScriptedRecord(std::string(T::kArchiveClassName), std::move(body))));
}

// The keys of the archived root object, in the order they were written.
inline std::vector<std::string> archivedKeyOrder(const Data& data) {
  std::vector<std::string> keys;
  auto handle = msgpack::unpack(reinterpret_cast<const char*>(data.data()), data.size());
  const msgpack::object& root = handle.get();
  if (root.type != msgpack::type::ARRAY || root.via.array.size != 2) return keys;
  const msgpack::object& map = root.via.array.ptr[1];
  if (map.type != msgpack::type::MAP) return keys;
  for (std::uint32_t i = 0; i < map.via.map.size; ++i) {
    keys.push_back(map.via.map.ptr[i].key.as<std::string>());
  }
  return keys;
}

// What the archived root object holds under `key`.
inline ArchiveValue::Kind archivedKind(const Data& data, std::string_view key) {
  ArchiveValue::Kind kind = ArchiveValue::Kind::Other;
  KeyedUnarchiver::withArchive(data, [&](const ArchiveValue& root) { kind = root.objectCoder().valueForKey(key).kind(); });
  return kind;
}

}  // namespace iam::testing
