#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace iam {

// A URL. Made only from text that libcurl's URL parser accepts as an absolute URL with a scheme;
// the text is kept exactly as given, so that what is opened is what the service sent.
class URL {
 public:
  static std::optional<URL> URLWithString(std::string_view text);

  const std::string& absoluteString() const { return text_; }
  std::string scheme() const;
  std::string host() const;

  friend bool operator==(const URL&, const URL&) = default;

 private:
  explicit URL(std::string text) : text_(std::move(text)) {}
  std::string text_;
};

}  // namespace iam
