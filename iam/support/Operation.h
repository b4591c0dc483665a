#pragma once

#include <atomic>

namespace iam {

// One unit of work for an `OperationQueue`. Cancellation is cooperative: `cancel` only sets a flag
// that `main` reads; a running `main` is never interrupted. Thread-safe.
class Operation {
 public:
  Operation() = default;
  virtual ~Operation() = default;
  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;

  void cancel() { cancelled_.store(true, std::memory_order_release); }
  bool isCancelled() const { return cancelled_.load(std::memory_order_acquire); }
  bool isExecuting() const { return state_.load(std::memory_order_acquire) == State::Executing; }
  bool isFinished() const { return state_.load(std::memory_order_acquire) == State::Finished; }

  // Run by the queue, once: calls `main`; an exception from it is logged and stops there.
  void start();

 protected:
  // The work. Reads `isCancelled` where it may stop early.
  virtual void main() = 0;

 private:
  enum class State { Ready, Executing, Finished };
  std::atomic<bool> cancelled_{false};
  std::atomic<State> state_{State::Ready};
};

}  // namespace iam
