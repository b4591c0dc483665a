#include "iam/platform/LogBridge.h"

#include <cstdio>
#include <memory>

namespace iam {
namespace {

void stderrSink(const LogRecord& r) {
  std::fprintf(stderr, "[%.*s] %.*s (%s:%d %s)\n", static_cast<int>(logLevelName(r.level).size()),
               logLevelName(r.level).data(), static_cast<int>(r.message.size()), r.message.data(),
               r.filename.c_str(), r.line, r.function.c_str());
}

std::mutex& sinkMutex() {
  static std::mutex m;
  return m;
}

std::shared_ptr<const LogBridge::Sink>& currentSink() {
  static std::shared_ptr<const LogBridge::Sink> sink = std::make_shared<const LogBridge::Sink>(stderrSink);
  return sink;
}

}  // namespace

std::string_view logLevelName(LogLevel level) {
  switch (level) {
    case LogLevel::Debug: return "debug";
    case LogLevel::Info: return "info";
    case LogLevel::Warning: return "warning";
    case LogLevel::Error: return "error";
  }
  return "unknown";
}

void LogBridge::log(LogLevel level, std::string_view message, std::string_view filename, int line,
                    std::string_view function) {
  std::shared_ptr<const Sink> sink;
  {
    std::lock_guard lock(sinkMutex());
    sink = currentSink();
  }
  LogRecord record{level, std::string(message), std::string(filename), line, std::string(function)};
  try {
    (*sink)(record);
  } catch (...) {
    // A failing sink must not take the caller down with it.
  }
}

void LogBridge::debug(std::string_view m, std::string_view f, int l, std::string_view fn) { log(LogLevel::Debug, m, f, l, fn); }
void LogBridge::info(std::string_view m, std::string_view f, int l, std::string_view fn) { log(LogLevel::Info, m, f, l, fn); }
void LogBridge::warning(std::string_view m, std::string_view f, int l, std::string_view fn) { log(LogLevel::Warning, m, f, l, fn); }
void LogBridge::error(std::string_view m, std::string_view f, int l, std::string_view fn) { log(LogLevel::Error, m, f, l, fn); }

void LogBridge::setSink(Sink sink) {
  auto next = std::make_shared<const Sink>(sink ? std::move(sink) : Sink(stderrSink));
  std::lock_guard lock(sinkMutex());
  currentSink() = std::move(next);
}

CapturingLogSink::CapturingLogSink() {
  LogBridge::setSink([this](const LogRecord& r) {
    std::lock_guard lock(mutex_);
    records_.push_back(r);
  });
}

CapturingLogSink::~CapturingLogSink() { LogBridge::setSink(nullptr); }

std::vector<LogRecord> CapturingLogSink::records() const {
  std::lock_guard lock(mutex_);
  return records_;
}

std::vector<std::string> CapturingLogSink::messages() const {
  std::lock_guard lock(mutex_);
  std::vector<std::string> out;
  for (const auto& r : records_) out.push_back(r.message);
  return out;
}

std::vector<std::string> CapturingLogSink::messages(LogLevel level) const {
  std::lock_guard lock(mutex_);
  std::vector<std::string> out;
  for (const auto& r : records_)
    if (r.level == level) out.push_back(r.message);
  return out;
}

bool CapturingLogSink::contains(std::string_view message) const {
  std::lock_guard lock(mutex_);
  for (const auto& r : records_)
    if (r.message == message) return true;
  return false;
}

void CapturingLogSink::clear() {
  std::lock_guard lock(mutex_);
  records_.clear();
}

}  // namespace iam
