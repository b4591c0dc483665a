#include "testing/CapturingLogSink.h"

#include <algorithm>

namespace iam::testing {

CapturingLogSink::CapturingLogSink() : lines_(std::make_shared<Lines>()) {
  LogBridge::setSink([lines = lines_](const LogRecord& r) {
    std::lock_guard lock(lines->mutex);
    lines->records.push_back(r);
  });
}

CapturingLogSink::~CapturingLogSink() { LogBridge::setSink(nullptr); }

std::vector<LogRecord> CapturingLogSink::records() const {
  std::lock_guard lock(lines_->mutex);
  return lines_->records;
}

std::vector<std::string> CapturingLogSink::messages(std::optional<LogLevel> level) const {
  std::lock_guard lock(lines_->mutex);
  std::vector<std::string> out;
  for (const auto& r : lines_->records)
    if (!level || r.level == *level) out.push_back(r.message);
  return out;
}

bool CapturingLogSink::contains(std::string_view message) const {
  const auto all = messages();
  return std::ranges::find(all, message) != all.end();
}

void CapturingLogSink::clear() {
  std::lock_guard lock(lines_->mutex);
  lines_->records.clear();
}

}  // namespace iam::testing
