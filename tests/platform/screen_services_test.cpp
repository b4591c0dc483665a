#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "iam/platform/AlertController.h"
#include "iam/platform/NotificationCenter.h"
#include "testing/PlatformDoubles.h"
#include "testing/TestEnvironment.h"

namespace iam {
namespace {

using testing::TestPopup;

class ScreenServicesTest : public ::testing::Test {
 protected:
  testing::TestEnvironment env_;
  testing::PlatformDoubles platform_;
};

TEST_F(ScreenServicesTest, ConductorShowsOnePopupAtATimeInOrderAndHoldsBackNonUrgentOnes) {
  auto& conductor = platform_.conductor();
  auto first = std::make_shared<TestPopup>(1);
  auto second = std::make_shared<TestPopup>(6);
  auto urgent = std::make_shared<TestPopup>(2, true);
  conductor.enqueuePopup(first);
  conductor.enqueuePopup(second);
  EXPECT_EQ(first->presented, 1);
  EXPECT_EQ(second->presented, 0);
  EXPECT_TRUE(conductor.isShowingPopupFrom(1));
  EXPECT_FALSE(conductor.isShowingPopupFrom(6));

  conductor.setCanShowNonUrgentPopups(false);
  conductor.enqueuePopup(urgent);
  conductor.popupDidDismiss(first.get());
  // The urgent one jumps the held-back queue; the non-urgent one waits for permission.
  EXPECT_EQ(urgent->presented, 1);
  EXPECT_EQ(second->presented, 0);
  conductor.popupDidDismiss(urgent.get());
  EXPECT_FALSE(conductor.isShowingPopup());
  conductor.setCanShowNonUrgentPopups(true);
  EXPECT_EQ(second->presented, 1);
  EXPECT_TRUE(conductor.isShowingPopupFrom(6));
  conductor.popupDidDismiss(first.get());  // no longer known: changes nothing
  EXPECT_TRUE(conductor.isShowingPopupFrom(6));
}

TEST_F(ScreenServicesTest, ApplicationPostsStateChangesAndHandsLinksToTheHandler) {
  auto& application = platform_.application();
  std::vector<std::string> seen;
  NotificationCenter::defaultCenter().addObserver(&seen, UIApplicationWillResignActiveNotification,
                                                  [&](const Notification& n) { seen.push_back(n.name); });
  NotificationCenter::defaultCenter().addObserver(&seen, UIApplicationDidBecomeActiveNotification,
                                                  [&](const Notification& n) { seen.push_back(n.name); });
  application.setApplicationState(UIApplicationStateInactive);
  application.setApplicationState(UIApplicationStateBackground);
  application.setApplicationState(UIApplicationStateActive);
  NotificationCenter::defaultCenter().removeObserver(&seen);
  EXPECT_EQ(seen, (std::vector<std::string>{std::string(UIApplicationWillResignActiveNotification),
                                            std::string(UIApplicationDidBecomeActiveNotification)}));

  const auto url = *URL::URLWithString("https://store.example.com/app?id=1");
  EXPECT_FALSE(application.canOpenURL(url));
  std::optional<bool> opened;
  application.openURL(url, {}, [&](bool ok) { opened = ok; });
  EXPECT_EQ(opened, false);  // no handler: recorded, not opened

  URLOpenOptions received;
  application.setOpenURLHandler([&](const URL&, const URLOpenOptions& options) {
    received = options;
    return true;
  });
  application.openURL(url, {{"universalLinksOnly", "1"}}, [&](bool ok) { opened = ok; });
  EXPECT_EQ(opened, true);
  EXPECT_EQ(received.at("universalLinksOnly"), "1");
  EXPECT_EQ(application.openedURLs(), (std::vector<std::string>(2, url.absoluteString())));
}

TEST_F(ScreenServicesTest, TopPresentedViewControllerFollowsTheChainAndDismissalCutsIt) {
  auto root = std::make_shared<ViewController>();
  auto middle = std::make_shared<ViewController>();
  auto alert = std::make_shared<AlertController>("Title", std::nullopt);
  EXPECT_EQ(root->topPresentedViewController(), root);
  root->presentViewController(middle, true, nullptr);
  middle->presentViewController(alert, false, nullptr);
  root->presentViewController(std::make_shared<ViewController>(), true, nullptr);  // refused: already presents
  EXPECT_EQ(root->topPresentedViewController(), alert);
  alert->dismissViewControllerAnimated(false, nullptr);
  EXPECT_EQ(root->topPresentedViewController(), middle);
  root->dismissViewControllerAnimated(false, nullptr);
  EXPECT_EQ(root->topPresentedViewController(), root);
  EXPECT_EQ(middle->presentingViewController(), nullptr);
}

}  // namespace
}  // namespace iam
