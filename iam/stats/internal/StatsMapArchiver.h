#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "iam/platform/KeyedArchiver.h"
#include "iam/platform/KeyedUnarchiver.h"

namespace iam {

// Archives a statistics map into the bytes `KeyedArchiver::archivedDataWithRootDictionary` gives,
// re-encoding only the records whose `changeCount()` moved since this archiver's previous archive
// (or that are new under their key). When the map holds the same keys as before and no re-encoded
// record changed size, the changed entries are written over the previous archive in place;
// otherwise the archive is put together again from every entry's bytes. A save of a large map with
// one changed record then costs one record's encoding, not every record's.
//
// The archiver writes every map with a 32-bit header (a marker, then the count big-endian) and an
// object's bytes do not depend on where it sits, so an entry encoded alone, as the single entry of
// a map, is the same bytes inside the whole map.
//
// Not thread-safe: one save task at a time. The records may change meanwhile; a record's count is
// read before it is encoded, so a change that lands during the encoding is encoded again next time.
template <class Record>
class StatsMapArchiver {
 public:
  using Map = std::map<std::string, std::shared_ptr<Record>>;

  // The map's archive, valid until the next call.
  std::span<const std::uint8_t> archive(const Map& map) {
    previous_.swap(entries_);
    entries_.clear();
    entries_.reserve(map.size());
    bool sameLayout = map.size() == previous_.size() && !bytes_.empty();
    auto old = previous_.begin();
    for (const auto& [key, record] : map) {
      while (old != previous_.end() && old->key < key) ++old;
      Entry entry;
      if (old != previous_.end() && old->key == key) {
        entry = std::move(*old++);
      } else {
        entry.key = key;
        sameLayout = false;
      }
      const std::uint64_t changes = record ? record->changeCount() : 0;
      if (entry.bytes.empty() || entry.record != record || entry.changes != changes) {
        const std::size_t size = entry.bytes.size();
        KeyedArchiver archiver(std::move(entry.bytes));
        archiver.beginMap();
        archiver.writeKey(key);
        archiver.writeObject(record.get());
        archiver.endMap();
        entry.bytes = archiver.takeData();
        entry.record = record;
        entry.changes = changes;
        entry.dirty = true;
        if (entry.bytes.size() != size) sameLayout = false;
      }
      entries_.push_back(std::move(entry));
    }
    previous_.clear();
    if (sameLayout) {
      for (auto& entry : entries_) {
        if (!entry.dirty) continue;
        std::memcpy(bytes_.data() + entry.offset, entry.bytes.data() + kMapHeaderSize,
                    entry.bytes.size() - kMapHeaderSize);
        entry.dirty = false;
      }
    } else {
      rebuild();
    }
    return bytes_;
  }

 private:
  static constexpr std::size_t kMapHeaderSize = 5;

  struct Entry {
    std::string key;
    // Held so that a record freed and another made at its address is not taken for it.
    std::shared_ptr<const Record> record;
    std::uint64_t changes = 0;
    Data bytes;              // a one-entry map: header, key, record
    std::size_t offset = 0;  // of key and record in the whole archive
    bool dirty = false;      // encoded since the whole archive was written
  };

  void rebuild() {
    KeyedArchiver header(std::move(bytes_));
    header.beginMap();
    header.endMap();
    bytes_ = header.takeData();
    const auto count = static_cast<std::uint32_t>(entries_.size());
    for (std::size_t i = 0; i < 4; ++i) bytes_[1 + i] = static_cast<std::uint8_t>(count >> (24 - 8 * i));
    std::size_t size = kMapHeaderSize;
    for (const auto& entry : entries_) size += entry.bytes.size() - kMapHeaderSize;
    bytes_.reserve(size);
    for (auto& entry : entries_) {
      entry.offset = bytes_.size();
      entry.dirty = false;
      bytes_.insert(bytes_.end(), entry.bytes.begin() + static_cast<std::ptrdiff_t>(kMapHeaderSize), entry.bytes.end());
    }
  }

  std::vector<Entry> entries_;   // in key order, as the last archive wrote them
  std::vector<Entry> previous_;  // the archive before, while the next is built
  Data bytes_;                   // the last archive
};

}  // namespace iam
