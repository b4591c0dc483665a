#pragma once

#include <string>

namespace iam {

// How an endpoint proves to the service that the caller may use it: a key sent in a request
// header. A plain value owned by its `OspreyWebService`.
class OspreyWebServiceEncryptionDetails {
 public:
  static constexpr const char* kDefaultKeyHeaderName = "X-Service-Key";

  const std::string& key() const { return key_; }
  void setKey(std::string key) { key_ = std::move(key); }

  // The header that carries the key; an empty key sends no header.
  const std::string& keyHeaderName() const { return keyHeaderName_; }
  void setKeyHeaderName(std::string name) { keyHeaderName_ = std::move(name); }

 private:
  std::string key_;
  std::string keyHeaderName_ = kDefaultKeyHeaderName;
};

}  // namespace iam
