#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "iam/platform/LogBridge.h"
#include "iam/platform/NotificationCenter.h"
#include "testing/CapturingLogSink.h"

namespace iam {
namespace {

TEST(NotificationCenterTest, ObserversAreCalledInRegistrationOrderUntilRemoved) {
  NotificationCenter center;
  int a = 0, b = 0;
  std::vector<std::string> calls;
  const int sender = 0;
  center.addObserver(&a, "resign", [&](const Notification& n) {
    calls.push_back("a:" + n.name);
    EXPECT_EQ(n.object, &sender);
  });
  center.addObserver(&b, "resign", [&](const Notification&) { calls.push_back("b:resign"); });
  center.addObserver(&a, "active", [&](const Notification& n) { calls.push_back("a:" + n.name); });
  center.postNotificationName("resign", &sender);
  center.postNotificationName("other", &sender);
  center.removeObserver(&a);  // both of a's observations
  center.postNotificationName("resign", &sender);
  center.postNotificationName("active");
  EXPECT_EQ(calls, (std::vector<std::string>{"a:resign", "b:resign", "b:resign"}));
}

TEST(NotificationCenterTest, HandlersMayChangeObservationsWhileAPostDelivers) {
  NotificationCenter center;
  int first = 0, second = 0, third = 0, late = 0;
  std::vector<std::string> calls;
  center.addObserver(&first, "n", [&](const Notification&) {
    calls.push_back("first");
    center.removeObserver(&first);
    center.removeObserver(&second);  // registered after: not called in this post
    center.addObserver(&late, "n", [&](const Notification&) { calls.push_back("late"); });
  });
  center.addObserver(&second, "n", [&](const Notification&) { calls.push_back("second"); });
  center.addObserver(&third, "n", [&](const Notification&) { calls.push_back("third"); });

  center.postNotificationName("n");
  EXPECT_EQ(calls, (std::vector<std::string>{"first", "third"}));
  calls.clear();
  center.postNotificationName("n");
  EXPECT_EQ(calls, (std::vector<std::string>{"third", "late"}));
}

TEST(NotificationCenterTest, AThrowingHandlerIsLoggedAndTheOthersStillRun) {
  NotificationCenter center;
  iam::testing::CapturingLogSink log;
  int a = 0, b = 0;
  bool bCalled = false;
  center.addObserver(&a, "n", [](const Notification&) { throw std::runtime_error("handler boom"); });
  center.addObserver(&b, "n", [&](const Notification&) { bCalled = true; });
  center.postNotificationName("n");
  EXPECT_TRUE(bCalled);
  ASSERT_EQ(log.messages(LogLevel::Error).size(), 1u);
  EXPECT_NE(log.messages(LogLevel::Error)[0].find("handler boom"), std::string::npos);
}

TEST(NotificationCenterTest, NoHandlerRunsOnceRemovalReturnsWhileAnotherThreadPosts) {
  auto& center = NotificationCenter::defaultCenter();
  int observer = 0;
  std::atomic<int> calls{0};
  std::atomic<bool> inHandler{false};
  center.addObserver(&observer, UIApplicationDidBecomeActiveNotification, [&](const Notification&) {
    inHandler = true;
    std::this_thread::sleep_for(std::chrono::microseconds(500));
    ++calls;
    inHandler = false;
  });
  std::atomic<bool> stop{false};
  std::atomic<int> posts{0};
  std::thread poster([&] {
    while (!stop) {
      center.postNotificationName(UIApplicationDidBecomeActiveNotification);
      ++posts;
    }
  });
  while (calls < 3) std::this_thread::yield();
  center.removeObserver(&observer);
  EXPECT_FALSE(inHandler.load());
  const int callsAtRemoval = calls.load();
  const int postsAtRemoval = posts.load();
  while (posts < postsAtRemoval + 50) std::this_thread::yield();
  stop = true;
  poster.join();
  EXPECT_EQ(calls.load(), callsAtRemoval);
}

}  // namespace
}  // namespace iam
