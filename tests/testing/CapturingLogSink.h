#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "iam/platform/LogBridge.h"

namespace iam::testing {

// Collects log lines while it lives, so that tests can assert on exact messages. Installs itself
// as the sink and restores the stderr sink when destroyed. The installed function owns the
// collected lines, so a line logged on another thread while the sink goes away lands in storage
// that is still alive. Thread-safe.
class CapturingLogSink {
 public:
  CapturingLogSink();
  ~CapturingLogSink();
  CapturingLogSink(const CapturingLogSink&) = delete;
  CapturingLogSink& operator=(const CapturingLogSink&) = delete;

  std::vector<LogRecord> records() const;
  // Every message, or those at `level`.
  std::vector<std::string> messages(std::optional<LogLevel> level = std::nullopt) const;
  bool contains(std::string_view message) const;
  void clear();

 private:
  struct Lines {
    mutable std::mutex mutex;
    std::vector<LogRecord> records;  // guarded by mutex
  };
  const std::shared_ptr<Lines> lines_;
};

}  // namespace iam::testing
