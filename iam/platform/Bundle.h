#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace iam {

// The main bundle's information dictionary. The host sets the values it has (for example
// "CFBundleShortVersionString", "CFBundleIdentifier") at start-up. Thread-safe.
class Bundle {
 public:
  static Bundle& mainBundle();

  std::optional<std::string> objectForInfoDictionaryKey(std::string_view key) const;
  void setInfoDictionaryValue(std::string_view key, std::optional<std::string> value);
  std::map<std::string, std::string> infoDictionary() const;

 private:
  mutable std::mutex mutex_;
  std::map<std::string, std::string, std::less<>> info_;  // guarded by mutex_
};

}  // namespace iam
