#include "iam/platform/ZTDispatchTools.h"

#include <algorithm>
#include <chrono>

#include "iam/platform/RunLoop.h"
#include "iam/platform/WorkerPool.h"

namespace iam {
namespace {

std::chrono::steady_clock::duration realDuration(TimeInterval seconds) {
  if (!(seconds > 0)) return std::chrono::steady_clock::duration::zero();
  seconds = std::min(seconds, 1e9);
  return std::chrono::duration_cast<std::chrono::steady_clock::duration>(std::chrono::duration<double>(seconds));
}

}  // namespace

void ZTDispatchTools::onMainWithBlock(Block block) {
  if (!block) return;
  RunLoop::main().post(std::move(block));
}

void ZTDispatchTools::onBackgroundWithBlock(Block block) {
  if (!block) return;
  WorkerPool::shared().submit(std::move(block));
}

bool ZTDispatchTools::waitForBackgroundIdle(TimeInterval timeoutSeconds) {
  return WorkerPool::shared().waitForIdle(timeoutSeconds);
}

bool ZTDispatchTools::settle(TimeInterval timeoutSeconds) {
  const auto deadline = std::chrono::steady_clock::now() + realDuration(timeoutSeconds);
  auto& background = WorkerPool::shared();
  // Work on one side can start work on the other; quiet means neither side did anything for two
  // rounds in a row.
  int quietRounds = 0;
  std::uint64_t finished = background.finishedCount();
  while (quietRounds < 2) {
    const auto now = std::chrono::steady_clock::now();
    if (now >= deadline) return false;
    if (!background.waitForIdle(std::chrono::duration<double>(deadline - now).count())) return false;
    const std::size_t ran = RunLoop::main().runUntilIdle();
    const std::uint64_t finishedNow = background.finishedCount();
    if (ran == 0 && finishedNow == finished) {
      ++quietRounds;
    } else {
      quietRounds = 0;
    }
    finished = finishedNow;
  }
  return true;
}

}  // namespace iam
