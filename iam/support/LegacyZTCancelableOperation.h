#pragma once

#include <functional>

#include "iam/support/Operation.h"

namespace iam {

// Runs a block without result on a `LegacyZTBackgroundQueue`, then posts its finished block to the
// main run loop unless it was cancelled by then. A cancel after that post no longer stops the
// finished block.
class LegacyZTCancelableOperation : public Operation {
 public:
  using Block = std::function<void()>;

  // `finishedBlock` may be empty.
  LegacyZTCancelableOperation(Block executionBlock, Block finishedBlock);

 protected:
  void main() override;

 private:
  const Block executionBlock_;
  const Block finishedBlock_;
};

}  // namespace iam
