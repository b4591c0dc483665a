#pragma once

#include <cstdint>
#include <functional>

namespace iam {

// The platform's request for the app store's rating prompt. The platform decides whether the
// prompt appears; the library only asks. A host with a store installs a handler that asks it;
// without one a request is logged and counted, nothing else. Thread-safe; the handler runs on the
// caller's thread (the main thread).
class SKStoreReviewController {
 public:
  using RequestReviewHandler = std::function<void()>;

  static void requestReview();
  // None goes back to logging and counting only.
  static void setRequestReviewHandler(RequestReviewHandler handler);
  // Requests made since the process started, with or without a handler.
  static std::uint64_t requestCount();
};

}  // namespace iam
