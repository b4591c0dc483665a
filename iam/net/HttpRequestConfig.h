#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "iam/platform/Date.h"

namespace iam {

// How one service request is sent: its time-out, the entity tag it revalidates against and how
// large an answer it accepts. A plain value; set it before the request is executed.
class HttpRequestConfig {
 public:
  static constexpr TimeInterval kDefaultTimeoutInterval = 30;
  // Answers are small JSON documents; anything larger is refused rather than buffered.
  static constexpr std::size_t kDefaultMaximumBodySize = 4 * 1024 * 1024;
  // Answers nest a handful of levels; anything deeper is refused before a parser walks it.
  static constexpr std::size_t kMaximumJsonDepth = 64;

  // Seconds for the whole request, connection included. Zero, negative or not a number gives
  // the default, so that no request can wait for ever.
  TimeInterval timeoutInterval() const { return timeoutInterval_; }
  void setTimeoutInterval(TimeInterval seconds) { timeoutInterval_ = seconds; }

  // The entity tag of the answer the caller holds; sent as If-None-Match. None sends no tag.
  const std::optional<std::string>& etag() const { return etag_; }
  void setEtag(std::optional<std::string> etag) { etag_ = std::move(etag); }

  std::size_t maximumBodySize() const { return maximumBodySize_; }
  void setMaximumBodySize(std::size_t bytes) { maximumBodySize_ = bytes; }

 private:
  TimeInterval timeoutInterval_ = kDefaultTimeoutInterval;
  std::optional<std::string> etag_;
  std::size_t maximumBodySize_ = kDefaultMaximumBodySize;
};

}  // namespace iam
