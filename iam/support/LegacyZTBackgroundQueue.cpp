#include "iam/support/LegacyZTBackgroundQueue.h"

#include <utility>

#include "iam/platform/RunLoop.h"
#include "iam/platform/ZTDispatchTools.h"
#include "iam/support/LegacyZTCancelableOperation.h"
#include "iam/support/LegacyZTCancelableResultOperation.h"

namespace iam {

std::shared_ptr<LegacyZTBackgroundQueue> LegacyZTBackgroundQueue::backgroundQueueWithUniqueId(
    const std::string& uniqueId) {
  return std::make_shared<LegacyZTBackgroundQueue>(uniqueId);
}

void LegacyZTBackgroundQueue::performNoCancelNoResultOnBackground(Block block, Block finishedBlock) {
  ZTDispatchTools::onBackgroundWithBlock([block = std::move(block), finished = std::move(finishedBlock)] {
    if (block) block();
    if (finished) RunLoop::main().post(finished);
  });
}

void LegacyZTBackgroundQueue::performNoCancelOnBackground(ResultBlock block, ResultFinishedBlock finishedBlock) {
  ZTDispatchTools::onBackgroundWithBlock([block = std::move(block), finished = std::move(finishedBlock)] {
    std::any result = block ? block() : std::any();
    if (!finished) return;
    RunLoop::main().post([finished, result = std::move(result)]() mutable { finished(std::move(result)); });
  });
}

void LegacyZTBackgroundQueue::performNoCancelOnBackground(Block block) {
  ZTDispatchTools::onBackgroundWithBlock(std::move(block));
}

LegacyZTBackgroundQueue::LegacyZTBackgroundQueue(const std::string& uniqueId) : operationQueue_(uniqueId) {
  operationQueue_.setMaxConcurrentOperationCount(1);
}

LegacyZTBackgroundQueue::~LegacyZTBackgroundQueue() { cancelAll(); }

void LegacyZTBackgroundQueue::performOnBackground(ResultBlock block, ResultFinishedBlock finishedBlock) {
  performOnBackground(std::move(block), std::move(finishedBlock), false);
}

void LegacyZTBackgroundQueue::performSearchOnBackground(ResultBlock block, ResultFinishedBlock finishedBlock) {
  if (!showIntermediateResults()) cancelSearchOperations();
  performOnBackground(std::move(block), std::move(finishedBlock), true);
}

void LegacyZTBackgroundQueue::performOnBackground(ResultBlock block, ResultFinishedBlock finishedBlock,
                                                  bool isSearchBlock) {
  auto operation = std::make_shared<LegacyZTCancelableResultOperation>(std::move(block), std::move(finishedBlock));
  operation->setSearchOperation(isSearchBlock);
  operationQueue_.addOperation(std::move(operation));
}

void LegacyZTBackgroundQueue::performNoResultOnBackground(Block block, Block finishedBlock) {
  operationQueue_.addOperation(
      std::make_shared<LegacyZTCancelableOperation>(std::move(block), std::move(finishedBlock)));
}

void LegacyZTBackgroundQueue::cancelAll() { operationQueue_.cancelAllOperations(); }

void LegacyZTBackgroundQueue::cancelSearchOperations() {
  for (const auto& operation : operationQueue_.operations()) {
    auto* result = dynamic_cast<LegacyZTCancelableResultOperation*>(operation.get());
    if (result != nullptr && result->isSearchOperation()) result->cancel();
  }
}

}  // namespace iam
