#pragma once

#include <optional>
#include <string>

namespace iam {

// What the parse handler learns about the HTTP answer besides its body. Immutable.
class HttpResponseType {
 public:
  HttpResponseType(long statusCode, std::optional<std::string> etag)
      : statusCode_(statusCode), etag_(std::move(etag)) {}

  long statusCode() const { return statusCode_; }
  // The answer's ETag header exactly as sent (quotes included); none when it carried none.
  const std::optional<std::string>& etag() const { return etag_; }

 private:
  long statusCode_;
  std::optional<std::string> etag_;
};

}  // namespace iam
