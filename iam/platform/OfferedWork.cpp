#include "iam/platform/internal/OfferedWork.h"

#include <atomic>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "iam/platform/LogBridge.h"
#include "iam/platform/ZTDispatchTools.h"
#include "iam/platform/internal/LogCapture.h"

namespace iam {

struct OfferedWork::State {
  std::function<void()> work;
  std::atomic<bool> claimed{false};
  std::mutex mutex;
  std::condition_variable finished;
  bool done = false;                   // guarded by mutex
  std::exception_ptr error;            // guarded by mutex
  std::vector<LogRecord> workerLines;  // written by a worker that claimed the work, before done

  // False when someone else claimed the work.
  bool runIfUnclaimed(bool onWorker) {
    if (claimed.exchange(true, std::memory_order_acq_rel)) return false;
    std::exception_ptr thrown;
    {
      std::optional<LogCapture> capture;
      if (onWorker) capture.emplace(workerLines);
      try {
        work();
      } catch (...) {
        thrown = std::current_exception();
      }
    }
    work = nullptr;
    {
      std::lock_guard lock(mutex);
      error = thrown;
      done = true;
    }
    finished.notify_all();
    return true;
  }
};

OfferedWork::OfferedWork(std::function<void()> work) : state_(std::make_shared<State>()) {
  state_->work = std::move(work);
  ZTDispatchTools::onBackgroundWithBlock([state = state_] { state->runIfUnclaimed(true); });
}

OfferedWork::~OfferedWork() {
  try {
    finish();
  } catch (...) {  // the work's failure was for `finish` to report
  }
}

void OfferedWork::finish() {
  const auto state = std::move(state_);
  if (!state) return;
  const bool here = state->runIfUnclaimed(false);
  std::unique_lock lock(state->mutex);
  state->finished.wait(lock, [&] { return state->done; });
  const auto error = state->error;
  lock.unlock();
  if (!here) {
    for (const auto& r : state->workerLines) LogBridge::log(r.level, r.message, r.filename, r.line, r.function);
  }
  if (error) std::rethrow_exception(error);
}

}  // namespace iam
