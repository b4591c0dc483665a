#pragma once

#include <atomic>

namespace iam {

// Tells long-running work for a request that nobody waits for its result any more. Set from any
// thread by the request's ticket; read by the parse handler on the transport thread.
class ZTCancelledFlag {
 public:
  ZTCancelledFlag() = default;
  ZTCancelledFlag(const ZTCancelledFlag&) = delete;
  ZTCancelledFlag& operator=(const ZTCancelledFlag&) = delete;

  bool isCancelled() const { return cancelled_.load(std::memory_order_acquire); }
  void cancel() { cancelled_.store(true, std::memory_order_release); }

 private:
  std::atomic<bool> cancelled_{false};
};

}  // namespace iam
