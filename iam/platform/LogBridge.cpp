#include "iam/platform/LogBridge.h"

#include "iam/platform/internal/LogCapture.h"

#include <cstdio>
#include <memory>
#include <mutex>

namespace iam {
namespace {

void stderrSink(const LogRecord& r) {
  std::fprintf(stderr, "[%.*s] %.*s (%s:%d %s)\n", static_cast<int>(logLevelName(r.level).size()),
               logLevelName(r.level).data(), static_cast<int>(r.message.size()), r.message.data(),
               r.filename.c_str(), r.line, r.function.c_str());
}

struct Installed {
  std::mutex mutex;
  std::shared_ptr<const LogBridge::Sink> sink = std::make_shared<const LogBridge::Sink>(stderrSink);  // guarded by mutex
};

Installed& installed() {
  static Installed* const state = new Installed();  // never destroyed
  return *state;
}

thread_local std::vector<LogRecord>* capturing = nullptr;

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
  if (capturing != nullptr) {
    try {
      capturing->push_back({level, std::string(message), std::string(filename), line, std::string(function)});
    } catch (...) {  // out of memory: the line is lost, the caller goes on
    }
    return;
  }
  std::shared_ptr<const Sink> sink;
  {
    auto& state = installed();
    std::lock_guard lock(state.mutex);
    sink = state.sink;
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

LogCapture::LogCapture(std::vector<LogRecord>& into) { capturing = &into; }

LogCapture::~LogCapture() { capturing = nullptr; }

void LogBridge::setSink(Sink sink) {
  auto next = std::make_shared<const Sink>(sink ? std::move(sink) : Sink(stderrSink));
  auto& state = installed();
  std::lock_guard lock(state.mutex);
  std::swap(state.sink, next);  // the old sink is released outside the lock
}

}  // namespace iam
