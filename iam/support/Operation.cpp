#include "iam/support/Operation.h"

#include <exception>
#include <string>

#include "iam/platform/LogBridge.h"

namespace iam {

void Operation::start() {
  state_.store(State::Executing, std::memory_order_release);
  try {
    main();
  } catch (const std::exception& e) {
    LogBridge::error(std::string("IAM: A background operation threw: ") + e.what(), "support/Operation", __LINE__,
                     "main");
  } catch (...) {
    LogBridge::error("IAM: A background operation threw an unknown exception", "support/Operation", __LINE__, "main");
  }
  state_.store(State::Finished, std::memory_order_release);
}

}  // namespace iam
