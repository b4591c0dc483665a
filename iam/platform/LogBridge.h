#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace iam {

enum class LogLevel { Debug, Info, Warning, Error };

struct LogRecord {
  LogLevel level;
  std::string message;
  std::string filename;
  int line;
  std::string function;
};

std::string_view logLevelName(LogLevel level);

// The library's only way to write a log line. Every call names the source file and operation as
// the system knows them. The sink is process-wide and replaceable (stderr by default); it is called
// on the logging thread, one line at a time.
class LogBridge {
 public:
  using Sink = std::function<void(const LogRecord&)>;

  static void debug(std::string_view message, std::string_view filename, int line, std::string_view function);
  static void info(std::string_view message, std::string_view filename, int line, std::string_view function);
  static void warning(std::string_view message, std::string_view filename, int line, std::string_view function);
  static void error(std::string_view message, std::string_view filename, int line, std::string_view function);
  static void log(LogLevel level, std::string_view message, std::string_view filename, int line,
                  std::string_view function);

  // Replaces the sink; none restores the stderr sink.
  static void setSink(Sink sink);
};

// Collects log lines while it lives (tests assert on exact messages). Installs itself as the sink
// and restores the stderr sink when destroyed. Thread-safe.
class CapturingLogSink {
 public:
  CapturingLogSink();
  ~CapturingLogSink();
  CapturingLogSink(const CapturingLogSink&) = delete;
  CapturingLogSink& operator=(const CapturingLogSink&) = delete;

  std::vector<LogRecord> records() const;
  std::vector<std::string> messages() const;
  std::vector<std::string> messages(LogLevel level) const;
  bool contains(std::string_view message) const;
  void clear();

 private:
  mutable std::mutex mutex_;
  std::vector<LogRecord> records_;  // guarded by mutex_
};

}  // namespace iam
