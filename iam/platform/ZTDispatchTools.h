#pragma once

#include <functional>

#include "iam/platform/Date.h"

namespace iam {

// Hops between the main run loop and the shared background pool (`WorkerPool`). Thread-safe.
class ZTDispatchTools {
 public:
  using Block = std::function<void()>;

  // Posts the block to the main run loop (never runs it inline).
  static void onMainWithBlock(Block block);
  // Runs the block on the shared background pool.
  static void onBackgroundWithBlock(Block block);

  // For a host that must know its work is done (before it lets go of the manager, or to read the
  // statistics as saved), for tools that replay deterministically, and for tests.
  // Blocks until the pool has no queued or running work (or the timeout passes; false then).
  static bool waitForBackgroundIdle(TimeInterval timeoutSeconds = 10);
  // Alternates waiting for the pool and running the main loop until both are quiet. Main thread.
  static bool settle(TimeInterval timeoutSeconds = 10);
};

}  // namespace iam
