#pragma once

#include <iosfwd>
#include <optional>
#include <string>

// The `iam` tool's subcommands. Each returns the process's exit status and writes only to the
// streams it is given, so that tests can run them in-process as well as through the binary.
namespace iam::tool {

struct ServeOptions {
  std::string campaign;
  std::optional<std::string> ranked;
  int port = 8080;
  std::optional<std::string> fault;  // a fault mode of the reference service, on from the start
};

struct LintOptions {
  std::string file;
  bool ranked = false;  // the file is a native quality network answer
};

struct StatsOptions {
  std::string prefs;
  bool json = false;
};

struct SimulateOptions {
  std::string campaign;
  std::optional<std::string> ranked;
  std::string journey;
  bool json = false;
  std::string start = "2026-01-01T00:00:00Z";
  std::optional<std::string> prefs;  // none: a temporary file
  std::optional<std::string> html;   // also write the run as a web page there
};

int runServe(const ServeOptions& options, std::ostream& out, std::ostream& err);
int runLint(const LintOptions& options, std::ostream& out, std::ostream& err);
int runStats(const StatsOptions& options, std::ostream& out, std::ostream& err);
int runSimulate(const SimulateOptions& options, std::ostream& out, std::ostream& err);

}  // namespace iam::tool
