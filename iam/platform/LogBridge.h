#pragma once

#include <functional>
#include <string>
#include <string_view>

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
// on the logging thread, one line at a time, and a replaced sink may still finish a line that
// started before the replacement, so a sink owns whatever it writes to. The bridge's state is
// never destroyed: threads may log while the process exits.
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

}  // namespace iam
