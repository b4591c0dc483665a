#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "iam/platform/Color.h"
#include "iam/platform/Date.h"
#include "iam/platform/LogBridge.h"
#include "iam/platform/URL.h"
#include "testing/TestEnvironment.h"

namespace iam {
namespace {

class BasicsTest : public ::testing::Test {
 protected:
  testing::TestEnvironment env;
};

TEST_F(BasicsTest, DatesKeepTheirFractionAndAThrowingLogSinkStaysInside) {
  for (double seconds : {0.0, 1.5, -0.25, 1'700'000'000.123456, -86'400.75}) {
    EXPECT_NEAR(timeIntervalSince1970(dateWithTimeIntervalSince1970(seconds)), seconds, 1e-6) << seconds;
  }
  const Date a = dateWithTimeIntervalSince1970(100.25);
  EXPECT_DOUBLE_EQ(timeIntervalBetween(dateByAddingTimeInterval(a, 0.5), a), 0.5);
  EXPECT_DOUBLE_EQ(timeIntervalBetween(a, dateByAddingTimeInterval(a, 0.5)), -0.5);

  LogBridge::setSink([](const LogRecord&) { throw std::runtime_error("sink failed"); });
  EXPECT_NO_THROW(LogBridge::debug("lost", "F", 1, "f"));
  LogBridge::setSink(nullptr);  // back to stderr
  ::testing::internal::CaptureStderr();
  LogBridge::error("to stderr", "F", 2, "g");
  EXPECT_NE(::testing::internal::GetCapturedStderr().find("to stderr"), std::string::npos);
}

TEST_F(BasicsTest, URLsMustBeAbsoluteAndKeepTheirText) {
  for (const char* bad : {"", " ", "not a url", "https://exa mple.com/", "/relative/path", "example.com"}) {
    EXPECT_FALSE(URL::URLWithString(bad).has_value()) << '"' << bad << '"';
  }
  auto store = URL::URLWithString("itms-apps://itunes.apple.com/app/id123");
  ASSERT_TRUE(store.has_value());
  EXPECT_EQ(store->scheme(), "itms-apps");
  EXPECT_EQ(store->host(), "itunes.apple.com");
  EXPECT_EQ(URL::URLWithString("https://x.y/z?q=1")->absoluteString(), "https://x.y/z?q=1");
}

TEST_F(BasicsTest, ColorsAreSixHexDigitsWithOrWithoutHashElseOpaqueBlack) {
  EXPECT_EQ(Color::colorWithHexString("#FF8000"), (Color{1.0, 128 / 255.0, 0.0, 1.0}));
  EXPECT_EQ(Color::colorWithHexString("0a0B0c"), (Color{10 / 255.0, 11 / 255.0, 12 / 255.0, 1.0}));
  for (const char* bad : {"", "#", "FFF", "#FFFFFFF", "GG0000", "##FF0000", " FF0000", "+FF000"}) {
    EXPECT_FALSE(Color::isValidHexString(bad)) << bad;
    EXPECT_EQ(Color::colorWithHexString(bad), (Color{0, 0, 0, 1})) << bad;
  }
}

}  // namespace
}  // namespace iam
