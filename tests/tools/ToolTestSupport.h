#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

#include "platform/ScratchDirectory.h"

// Runs the `iam` binary as a process, as its users do.
namespace iam::testing {

struct ToolRun {
  int status = -1;  // -1: the process did not exit normally (a crash)
  std::string out;
  std::string err;  // empty when it was asked to join `out`
};

inline std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

// Writes `text` to `name` in `dir`; the file's path.
inline std::string writeFile(const ScratchDirectory& dir, const std::string& name, const std::string& text) {
  std::ofstream(dir.file(name), std::ios::binary) << text;
  return dir.file(name);
}

inline ToolRun runTool(const std::string& arguments, bool separateErr = false) {
  ScratchDirectory dir;
  const std::string command = std::string("'") + IAM_TOOL_PATH + "' " + arguments +
                              (separateErr ? " 2>'" + dir.file("err") + "'" : std::string(" 2>&1"));
  ToolRun run;
  FILE* pipe = ::popen(command.c_str(), "r");
  if (!pipe) return run;
  char buffer[4096];
  for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) run.out.append(buffer, n);
  const int raw = ::pclose(pipe);
  if (WIFEXITED(raw)) run.status = WEXITSTATUS(raw);
  if (separateErr) run.err = readFile(dir.file("err"));
  return run;
}

}  // namespace iam::testing
