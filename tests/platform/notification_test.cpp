#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "iam/platform/LogBridge.h"
#include "iam/platform/NotificationCenter.h"
#include "iam/platform/RunLoop.h"
#include "testing/TestEnvironment.h"

namespace iam {
namespace {

class NotificationCenterTest : public ::testing::Test {
 protected:
  testing::TestEnvironment env;
  NotificationCenter center;
};

TEST_F(NotificationCenterTest, ObserversRunInRegistrationOrderPastAThrowingOneAndMayChangeDuringAPost) {
  int a = 0, b = 0, thrower = 0;
  std::vector<std::string> calls;
  const int sender = 0;
  center.addObserver(&a, "resign", [&](const Notification& n) {
    calls.push_back("a:" + n.name);
    EXPECT_EQ(n.object, &sender);
  });
  center.addObserver(&thrower, "resign", [](const Notification&) { throw std::runtime_error("handler boom"); });
  center.addObserver(&b, "resign", [&](const Notification&) { calls.push_back("b:resign"); });
  center.addObserver(&a, "active", [&](const Notification& n) { calls.push_back("a:" + n.name); });
  center.postNotificationName("resign", &sender);
  center.postNotificationName("other", &sender);
  center.removeObserver(&a);  // both of a's observations
  center.removeObserver(&thrower);
  center.postNotificationName("resign", &sender);
  center.postNotificationName("active");
  EXPECT_EQ(calls, (std::vector<std::string>{"a:resign", "b:resign", "b:resign"}));
  const auto errors = env.log().messages(LogLevel::Error);
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_NE(errors[0].find("handler boom"), std::string::npos);

  // Handlers may change observations while a post delivers.
  int first = 0, second = 0, third = 0, late = 0;
  calls.clear();
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

TEST_F(NotificationCenterTest, NoHandlerRunsOnceRemovalReturnsWhileAnotherThreadPosts) {
  int observer = 0;
  std::atomic<int> calls{0}, posts{0};
  std::atomic<bool> inHandler{false}, removing{false}, stop{false};
  center.addObserver(&observer, "n", [&](const Notification&) {
    inHandler = true;
    // Still inside when removal begins, so that removal meets a running handler.
    for (int i = 0; !removing && i < 10'000'000; ++i) std::this_thread::yield();
    for (int i = 0; i < 200; ++i) std::this_thread::yield();
    ++calls;
    inHandler = false;
  });
  std::thread poster([&] {
    for (; !stop; ++posts) center.postNotificationName("n");
  });
  EXPECT_TRUE(RunLoop::main().runUntil([&] { return inHandler.load(); }, 10));
  removing = true;
  center.removeObserver(&observer);
  EXPECT_FALSE(inHandler.load());
  const int callsAtRemoval = calls.load();
  const int postsAtRemoval = posts.load();
  EXPECT_TRUE(RunLoop::main().runUntil([&] { return posts > postsAtRemoval + 50; }, 10));
  stop = true;
  poster.join();
  EXPECT_EQ(calls.load(), callsAtRemoval);
}

}  // namespace
}  // namespace iam
