#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "iam/support/Operation.h"

namespace iam {

// Runs operations on threads of its own, in the order they were added, at most
// `maxConcurrentOperationCount` at a time (one by default). Threads are started when work first
// needs them, at the scheduling priority of the queue's quality of service. The destructor lets waiting operations run
// (a cancelled one returns at once) and joins its threads; destroyed from inside one of its own operations, it leaves
// that thread to finish on its own instead. Thread-safe.
class OperationQueue {
 public:
  explicit OperationQueue(std::string name = {});
  ~OperationQueue();
  OperationQueue(const OperationQueue&) = delete;
  OperationQueue& operator=(const OperationQueue&) = delete;

  // Background work runs at a lower scheduling priority than the threads that hand it over, so
  // that on a busy device waking the queue does not take the processor from its caller.
  enum class QualityOfService { Default, Background };

  std::string name() const;
  void setName(std::string name);
  QualityOfService qualityOfService() const;
  // Applies to threads the queue starts afterwards; set it before adding work.
  void setQualityOfService(QualityOfService quality);

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
  std::shared_ptr<Shared> shared_;  // also held by the worker threads
};

}  // namespace iam
