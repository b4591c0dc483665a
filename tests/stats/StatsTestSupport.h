#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "iam/ArchivableClasses.h"
#include "model/model_test_support.h"
#include "testing/TestEnvironment.h"

namespace iam::testing {

// The test environment (manual clock, in-memory preferences, log capture) comes first, so that it
// outlives everything the test makes.
class StatsTest : public ::testing::Test {
 protected:
  std::vector<std::string> warnings() { return env.log().messages(LogLevel::Warning); }
  ManualClock& clock() { return env.clock(); }

  TestEnvironment env;
};

// The keys a record writes for itself, sorted.
inline std::vector<std::string> archivedKeys(const Archivable& record) {
  auto keys = archivedKeyOrder(archive(record));
  std::sort(keys.begin(), keys.end());
  return keys;
}

}  // namespace iam::testing
