#pragma once

#include <functional>
#include <memory>

namespace iam {

// Work offered to the background pool beside what the offering thread does meanwhile. The offering
// thread does the work itself when it needs it done and no worker has started it, so it never
// waits on a busy pool (nor on itself, when it is a worker). Lines the work logs on a worker come
// out when `finish` returns, after the offering thread's own, as a serial run writes them.
class OfferedWork {
 public:
  explicit OfferedWork(std::function<void()> work);
  ~OfferedWork();
  OfferedWork(const OfferedWork&) = delete;
  OfferedWork& operator=(const OfferedWork&) = delete;

  // Done here unless a worker started it first, else waited for; rethrows what the work threw.
  void finish();

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace iam
