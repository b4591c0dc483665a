#include <ostream>

#include "tools/iam/Commands.h"

namespace iam::tool {

// Placeholder until the subcommand is written.
int runLint(const LintOptions&, std::ostream&, std::ostream& err) {
  err << "iam: lint is not available yet\n";
  return 2;
}

}  // namespace iam::tool
