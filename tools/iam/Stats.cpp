#include <ostream>

#include "tools/iam/Commands.h"

namespace iam::tool {

// Placeholder until the subcommand is written.
int runStats(const StatsOptions&, std::ostream&, std::ostream& err) {
  err << "iam: stats is not available yet\n";
  return 2;
}

}  // namespace iam::tool
