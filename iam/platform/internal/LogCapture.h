#pragma once

#include <vector>

#include "iam/platform/LogBridge.h"

namespace iam {

// While it lives, lines logged on this thread go to `into` instead of the sink. Not nested.
class LogCapture {
 public:
  explicit LogCapture(std::vector<LogRecord>& into);
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;
};

}  // namespace iam
