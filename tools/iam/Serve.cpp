#include <ostream>

#include "tools/iam/Commands.h"

namespace iam::tool {

// Placeholder until the subcommand is written.
int runServe(const ServeOptions&, std::ostream&, std::ostream& err) {
  err << "iam: serve is not available yet\n";
  return 2;
}

}  // namespace iam::tool
