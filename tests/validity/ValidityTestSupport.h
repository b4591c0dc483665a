#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "iam/model/Advertisement.h"
#include "iam/service/AppConfig.h"
#include "testing/TestEnvironment.h"

namespace iam::testing {

inline const std::string kValidityLogFile = "InAppMarketing/source/Logic/Validity/_ZTIAMAdvertisementValidityHelper";

// Runs on the test environment: the clock starts at `at(0)`, the launch count lives in its
// preferences, and the validity helper's lines land in its log capture.
class ValidityTest : public ::testing::Test {
 protected:
  static constexpr TimeInterval kStart = 1'700'000'000;
  static constexpr TimeInterval kDay = 24 * 60 * 60;

  // `seconds` from the start of the test's clock.
  static Date at(TimeInterval seconds) { return dateWithTimeIntervalSince1970(kStart + seconds); }

  static std::shared_ptr<Advertisement> makeAdvertisement(
      const std::string& id, ZTIAMAdvertisementDisplayType displayType = ZTIAMAdvertisementDisplayTypeDfpInterstitial) {
    auto advertisement = std::make_shared<Advertisement>(id);
    advertisement->setDisplayType(displayType);
    return advertisement;
  }
  static std::shared_ptr<AppConfig> config(TimeInterval minimumPopupInterval) {
    return std::make_shared<AppConfig>(minimumPopupInterval, std::map<std::string, std::string>{});
  }

  // Evaluates with info logging on, then off, checking the verdict and the one info line logged each
  // time ("" for none). Only a line `loggedRegardless` may appear with info logging off.
  void expectVerdict(const std::function<bool()>& evaluate, bool want, const std::string& line,
                     const std::string& function, bool loggedRegardless = false) {
    for (bool info : {true, false}) {
      env_.setInfoLogEnabled(info);
      EXPECT_EQ(evaluate(), want) << line << " info " << info;
      std::vector<std::string> logged, expected;
      for (const auto& r : env_.log().records()) {
        logged.push_back((r.level == LogLevel::Info ? "info " : "other ") + r.filename + " " + r.function + ": " + r.message);
      }
      env_.log().clear();
      if (!line.empty() && (info || loggedRegardless)) expected.push_back("info " + kValidityLogFile + " " + function + ": " + line);
      EXPECT_EQ(logged, expected) << "info " << info;
    }
  }

  TestEnvironment env_{at(0)};
};

}  // namespace iam::testing
