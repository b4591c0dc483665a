#include <ostream>

#include "tools/iam/Commands.h"

namespace iam::tool {

// Placeholder until the subcommand is written.
int runSimulate(const SimulateOptions&, std::ostream&, std::ostream& err) {
  err << "iam: simulate is not available yet\n";
  return 2;
}

}  // namespace iam::tool
