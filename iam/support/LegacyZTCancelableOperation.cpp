#include "iam/support/LegacyZTCancelableOperation.h"

#include <utility>

#include "iam/platform/RunLoop.h"

namespace iam {

LegacyZTCancelableOperation::LegacyZTCancelableOperation(Block executionBlock, Block finishedBlock)
    : executionBlock_(std::move(executionBlock)), finishedBlock_(std::move(finishedBlock)) {}

void LegacyZTCancelableOperation::main() {
  if (isCancelled()) return;
  if (executionBlock_) executionBlock_();
  if (!isCancelled() && finishedBlock_) RunLoop::main().post(finishedBlock_);
}

}  // namespace iam
