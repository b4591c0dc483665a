#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace iam {

// App-wide settings of the marketing service, as the rules read them. The library's AppConfig is
// one implementation; hosts and tests may bring their own. Implementations are immutable and may
// be read from any thread.
class ZTIAMAppConfigType {
 public:
  virtual ~ZTIAMAppConfigType() = default;

  // Least seconds between two popup advertisements.
  virtual double minimumPopupImpressionTimeInterval() const = 0;
  // Free-form settings by key.
  virtual std::map<std::string, std::string> attributes() const = 0;

  // The keys of `attributes()` ("Atribute" is spelled so on purpose: it is the operation's name).
  virtual std::vector<std::string> allAtributeKeys() const {
    std::vector<std::string> keys;
    for (const auto& [key, value] : attributes()) keys.push_back(key);
    return keys;
  }
  virtual std::optional<std::string> attributeForKey(std::string_view key) const {
    const auto all = attributes();
    auto it = all.find(std::string(key));
    if (it == all.end()) return std::nullopt;
    return it->second;
  }
};

}  // namespace iam
