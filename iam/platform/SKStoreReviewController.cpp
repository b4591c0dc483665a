#include "iam/platform/SKStoreReviewController.h"

#include <mutex>

#include "iam/platform/LogBridge.h"

namespace iam {
namespace {

constexpr std::string_view kLogFile = "iam/platform/SKStoreReviewController";

struct State {
  std::mutex mutex;
  SKStoreReviewController::RequestReviewHandler handler;  // guarded by mutex
  std::uint64_t requests = 0;                             // guarded by mutex
};

State& state() {
  static State s;
  return s;
}

}  // namespace

void SKStoreReviewController::requestReview() {
  RequestReviewHandler handler;
  {
    std::lock_guard lock(state().mutex);
    ++state().requests;
    handler = state().handler;
  }
  if (!handler) {
    LogBridge::debug("IAM: No review handler is installed; the review request is not shown.", kLogFile, __LINE__,
                     "requestReview");
    return;
  }
  try {
    handler();
  } catch (...) {
    LogBridge::error("IAM: The review handler threw.", kLogFile, __LINE__, "requestReview");
  }
}

void SKStoreReviewController::setRequestReviewHandler(RequestReviewHandler handler) {
  std::lock_guard lock(state().mutex);
  state().handler = std::move(handler);
}

std::uint64_t SKStoreReviewController::requestCount() {
  std::lock_guard lock(state().mutex);
  return state().requests;
}

}  // namespace iam
