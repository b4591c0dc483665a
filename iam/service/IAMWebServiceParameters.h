#pragma once

#include <optional>
#include <string>

#include <nlohmann/json_fwd.hpp>

namespace iam {

// What the app tells the marketing service with each call, and the entity tag of the answer the
// caller already holds. A plain value made fresh for every call; use it on one thread.
class IAMWebServiceParameters {
 public:
  IAMWebServiceParameters() = default;

  bool hasBoughtAdFreeUpgrade() const { return hasBoughtAdFreeUpgrade_; }
  void setHasBoughtAdFreeUpgrade(bool value) { hasBoughtAdFreeUpgrade_ = value; }

  // Goes into the request's HTTP configuration, never into the body.
  const std::optional<std::string>& etag() const { return etag_; }
  void setEtag(std::optional<std::string> value) { etag_ = std::move(value); }

  // The request body of both service calls: {"boughtAdFree": <bool>}.
  nlohmann::json getContentAsDictionary() const;

 private:
  bool hasBoughtAdFreeUpgrade_ = false;
  std::optional<std::string> etag_;
};

}  // namespace iam
