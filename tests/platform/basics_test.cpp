#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "iam/platform/Bundle.h"
#include "iam/platform/Clock.h"
#include "iam/platform/Color.h"
#include "iam/platform/Date.h"
#include "iam/platform/LogBridge.h"
#include "iam/platform/URL.h"
#include "testing/CapturingLogSink.h"

namespace iam {
namespace {

TEST(DateTest, SecondsSince1970KeepTheirFractionBothWays) {
  for (double seconds : {0.0, 1.5, -0.25, 1'700'000'000.123456, -86'400.75}) {
    const Date d = dateWithTimeIntervalSince1970(seconds);
    EXPECT_NEAR(timeIntervalSince1970(d), seconds, 1e-6) << seconds;
  }
  const Date a = dateWithTimeIntervalSince1970(100.25);
  const Date b = dateByAddingTimeInterval(a, 0.5);
  EXPECT_DOUBLE_EQ(timeIntervalBetween(b, a), 0.5);
  EXPECT_DOUBLE_EQ(timeIntervalBetween(a, b), -0.5);
  EXPECT_DOUBLE_EQ(timeIntervalSince1970(dateByAddingTimeInterval(a, -100.25)), 0);
}

class ClockTest : public ::testing::Test {
 protected:
  void TearDown() override { Clock::setCurrent(nullptr); }
};

TEST_F(ClockTest, ManualClockMovesOnlyWhenToldAndIsTheProcessClockOnceInstalled) {
  auto clock = std::make_shared<ManualClock>(dateWithTimeIntervalSince1970(50));
  Clock::setCurrent(clock);
  EXPECT_EQ(Clock::currentDate(), dateWithTimeIntervalSince1970(50));
  clock->advance(1.25);
  EXPECT_DOUBLE_EQ(timeIntervalSince1970(Clock::currentDate()), 51.25);
  clock->setNow(dateWithTimeIntervalSince1970(1e9 + 0.5));
  EXPECT_DOUBLE_EQ(timeIntervalSince1970(Clock::currentDate()), 1e9 + 0.5);

  Clock::setCurrent(nullptr);
  EXPECT_NE(dynamic_cast<SystemClock*>(Clock::currentShared().get()), nullptr);
  EXPECT_GT(timeIntervalSince1970(Clock::currentDate()), 1.6e9);  // a real date, not the manual one
}

TEST(LogBridgeTest, SinkReceivesEveryFieldAndCanBeReplacedAndRestored) {
  {
    iam::testing::CapturingLogSink log;
    LogBridge::warning("IAM: first", "Some/File", 12, "operation:");
    LogBridge::info("IAM: second", "Other", 3, "op");
    const auto records = log.records();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].level, LogLevel::Warning);
    EXPECT_EQ(records[0].message, "IAM: first");
    EXPECT_EQ(records[0].filename, "Some/File");
    EXPECT_EQ(records[0].line, 12);
    EXPECT_EQ(records[0].function, "operation:");
    EXPECT_EQ(log.messages(LogLevel::Info), std::vector<std::string>{"IAM: second"});
  }
  std::vector<std::string> custom;
  LogBridge::setSink([&](const LogRecord& r) { custom.push_back(r.message); });
  LogBridge::error("to custom", "F", 1, "f");
  LogBridge::setSink([](const LogRecord&) { throw std::runtime_error("sink failed"); });
  EXPECT_NO_THROW(LogBridge::debug("lost", "F", 1, "f"));
  LogBridge::setSink(nullptr);  // back to stderr
  ::testing::internal::CaptureStderr();
  LogBridge::error("to stderr", "F", 2, "g");
  const std::string err = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(custom, std::vector<std::string>{"to custom"});
  EXPECT_NE(err.find("to stderr"), std::string::npos);
}

TEST(URLTest, AcceptsOnlyAbsoluteURLsAndKeepsTheTextAsGiven) {
  for (const char* bad : {"", " ", "not a url", "https://exa mple.com/", "/relative/path", "example.com"}) {
    EXPECT_FALSE(URL::URLWithString(bad).has_value()) << '"' << bad << '"';
  }
  auto store = URL::URLWithString("itms-apps://itunes.apple.com/app/id123");
  ASSERT_TRUE(store.has_value());
  EXPECT_EQ(store->scheme(), "itms-apps");
  EXPECT_EQ(store->host(), "itunes.apple.com");
  EXPECT_EQ(URL::URLWithString("https://x.y/z?q=1")->absoluteString(), "https://x.y/z?q=1");
}

TEST(ColorTest, SixHexDigitsWithOrWithoutHashElseOpaqueBlack) {
  EXPECT_EQ(Color::colorWithHexString("#FF8000"), (Color{1.0, 128 / 255.0, 0.0, 1.0}));
  EXPECT_EQ(Color::colorWithHexString("0a0B0c"), (Color{10 / 255.0, 11 / 255.0, 12 / 255.0, 1.0}));
  const Color black{0, 0, 0, 1};
  for (const char* bad : {"", "#", "FFF", "#FFFFFFF", "GG0000", "##FF0000", " FF0000", "+FF000"}) {
    EXPECT_FALSE(Color::isValidHexString(bad)) << bad;
    EXPECT_EQ(Color::colorWithHexString(bad), black) << bad;
  }
}

TEST(BundleTest, InfoDictionaryValuesCanBeSetReadAndRemoved) {
  auto& bundle = Bundle::mainBundle();
  const std::string key = "BundleTestKey";
  EXPECT_FALSE(bundle.objectForInfoDictionaryKey(key).has_value());
  bundle.setInfoDictionaryValue(key, "1.2.3");
  EXPECT_EQ(bundle.objectForInfoDictionaryKey(key), "1.2.3");
  bundle.setInfoDictionaryValue(key, std::nullopt);
  EXPECT_EQ(bundle.infoDictionary().count(key), 0u);
}

}  // namespace
}  // namespace iam
