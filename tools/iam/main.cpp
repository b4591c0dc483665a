#include <iostream>

#include "tools/iam/Commands.h"

// Placeholder: the command line is wired with CLI11 next.
int main() {
  std::cerr << "usage: iam serve|lint|simulate|stats ...\n";
  return 2;
}
