#include "iam/platform/InMemoryPreferencesStore.h"

#include <algorithm>

namespace iam {

std::optional<std::vector<std::uint8_t>> InMemoryPreferencesStore::dataForKey(std::string_view key) const {
  std::lock_guard lock(mutex_);
  auto it = values_.find(key);
  if (it == values_.end()) return std::nullopt;
  return it->second;
}

bool InMemoryPreferencesStore::setData(std::span<const std::uint8_t> data, std::string_view key) {
  std::vector<std::uint8_t> copy(data.begin(), data.end());
  std::lock_guard lock(mutex_);
  if (auto it = values_.find(key); it != values_.end()) {
    it->second.swap(copy);
  } else {
    values_.emplace(std::string(key), std::move(copy));
  }
  return true;
}

void InMemoryPreferencesStore::removeObjectForKey(std::string_view key) {
  std::vector<std::uint8_t> removed;  // freed outside the lock
  std::lock_guard lock(mutex_);
  if (auto it = values_.find(key); it != values_.end()) {
    removed.swap(it->second);
    values_.erase(it);
  }
}

std::vector<std::string> InMemoryPreferencesStore::allKeys() const {
  std::lock_guard lock(mutex_);
  std::vector<std::string> keys;
  keys.reserve(values_.size());
  for (const auto& entry : values_) keys.push_back(entry.first);
  return keys;
}

}  // namespace iam
