#include "iam/service/AppConfig.h"

#include <cstdio>

namespace iam {

std::vector<std::string> AppConfig::allAtributeKeys() const {
  std::vector<std::string> keys;
  keys.reserve(attributes_.size());
  for (const auto& [key, value] : attributes_) keys.push_back(key);
  return keys;
}

std::optional<std::string> AppConfig::attributeForKey(std::string_view key) const {
  auto it = attributes_.find(std::string(key));
  if (it == attributes_.end()) return std::nullopt;
  return it->second;
}

bool AppConfig::isEqual(const ZTIAMAppConfigType& other) const {
  if (minimumPopupImpressionTimeInterval_ != other.minimumPopupImpressionTimeInterval()) return false;
  if (attributes_.size() != other.allAtributeKeys().size()) return false;
  for (const auto& [key, value] : attributes_) {
    if (other.attributeForKey(key) != value) return false;
  }
  return true;
}

void AppConfig::encodeWithCoder(KeyedArchiver& coder) const {
  coder.encodeInteger(kCodingVersion, "codingVersion");
  coder.encodeDouble(minimumPopupImpressionTimeInterval_, "minimumPopupImpressionTimeInterval");
  coder.encodeStringMap(attributes_, "attributes");
}

std::shared_ptr<AppConfig> AppConfig::initWithCoder(const KeyedUnarchiver& coder) {
  if (coder.decodeIntegerForKey("codingVersion") != kCodingVersion) {
    std::fputs("AppConfig: decoded nil\n", stdout);
    std::fflush(stdout);
    return nullptr;
  }
  return std::make_shared<AppConfig>(coder.decodeDoubleForKey("minimumPopupImpressionTimeInterval"),
                                     coder.decodeStringMapForKey("attributes").value_or(std::map<std::string, std::string>{}));
}

}  // namespace iam
