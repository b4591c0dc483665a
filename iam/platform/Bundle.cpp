#include "iam/platform/Bundle.h"

namespace iam {

Bundle& Bundle::mainBundle() {
  static Bundle bundle;
  return bundle;
}

std::optional<std::string> Bundle::objectForInfoDictionaryKey(std::string_view key) const {
  std::lock_guard lock(mutex_);
  auto it = info_.find(key);
  if (it == info_.end()) return std::nullopt;
  return it->second;
}

void Bundle::setInfoDictionaryValue(std::string_view key, std::optional<std::string> value) {
  std::lock_guard lock(mutex_);
  if (value) {
    info_.insert_or_assign(std::string(key), std::move(*value));
  } else if (auto it = info_.find(key); it != info_.end()) {
    info_.erase(it);
  }
}

std::map<std::string, std::string> Bundle::infoDictionary() const {
  std::lock_guard lock(mutex_);
  return {info_.begin(), info_.end()};
}

}  // namespace iam
