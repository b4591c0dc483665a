#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "iam/support/Operation.h"

namespace iam {

// Runs operations on the shared background pool (`WorkerPool`), in the order they were added, at
// most `maxConcurrentOperationCount` at a time (one by default). Each pool task runs one operation,
// so a long backlog does not keep the pool from other work. The destructor lets waiting operations
// run (a cancelled one returns at once) and waits for them; destroyed from inside one of its own
// operations, it does not wait, and what is left finishes on its own. Thread-safe.
class OperationQueue {
 public:
  explicit OperationQueue(std::string name = {});
  ~OperationQueue();
  OperationQueue(const OperationQueue&) = delete;
  OperationQueue& operator=(const OperationQueue&) = delete;

  std::string name() const;
  void setName(std::string name);

  void addOperation(std::shared_ptr<Operation> operation);
  // Waiting and running operations, oldest first.
  std::vector<std::shared_ptr<Operation>> operations() const;
  void cancelAllOperations();

  std::int64_t maxConcurrentOperationCount() const;
  // Values below 1 are taken as 1.
  void setMaxConcurrentOperationCount(std::int64_t count);

  // Blocks until nothing waits or runs. Must not be called from one of the queue's operations.
  void waitUntilAllOperationsAreFinished();

 private:
  struct Shared;
  std::shared_ptr<Shared> shared_;  // also held by the pool tasks
};

}  // namespace iam
