#include <gtest/gtest.h>

#include "iam/platform/KeyedUnarchiver.h"
#include "iam/platform/Localization.h"
#include "iam/presentation/PaidVersionInstalledAlertController.h"
#include "testing/PlatformDoubles.h"
#include "testing/TestEnvironment.h"

namespace iam {
namespace {

class PaidAlertTest : public ::testing::Test {
 protected:
  PaidAlertTest() {
    platform_.application().setCanOpenURLHandler([](const URL& url) { return url.scheme() == "fullapp"; });
  }
  ~PaidAlertTest() override { Localization::setLookup(nullptr); }

  // None while nothing was ever counted.
  std::optional<std::int64_t> showCount() {
    auto data = env_.preferences()->dataForKey(PaidVersionInstalledAlertController::showKey);
    std::optional<std::int64_t> count;
    if (data) KeyedUnarchiver::withArchive(*data, [&](const ArchiveValue& root) { count = root.integerValue(); });
    return count;
  }
  PresentResult offer(const std::shared_ptr<ViewController>& host, std::string_view url = "fullapp://start") {
    return controller_->presentIfNecessaryWithPresentingViewController(host, URL::URLWithString(url), "Pro");
  }

  testing::TestEnvironment env_;
  testing::PlatformDoubles platform_;
  std::shared_ptr<ViewController> host_ = std::make_shared<ViewController>();
  std::shared_ptr<PaidVersionInstalledAlertController> controller_ =
      std::make_shared<PaidVersionInstalledAlertController>();
};

TEST_F(PaidAlertTest, RefusesWithoutOpenableSchemeCountsOnlyOnScreenAndCancelOpensNothing) {
  EXPECT_EQ(offer(host_, ""), PresentResultNotPresentable);
  EXPECT_EQ(offer(host_, "other://start"), PresentResultNotPresentable);
  auto other = std::make_shared<testing::TestPopup>(3);
  platform_.conductor().enqueuePopup(other);
  EXPECT_EQ(offer(host_), PresentResultPresented);
  EXPECT_EQ(offer(host_), PresentResultAlreadyPresenting);
  EXPECT_EQ(showCount(), std::nullopt);
  platform_.conductor().popupDidDismiss(other.get());
  ASSERT_NE(controller_->alert(), nullptr);
  EXPECT_EQ(host_->presentedViewController(), controller_->alert());
  EXPECT_EQ(showCount(), 1);
  controller_->alert()->actions().at(0)->perform();  // a popup left unended would refuse the next offer
  EXPECT_TRUE(platform_.application().openedURLs().empty());

  // A screen that is gone before the offer's turn: the conductor moves on and nothing is counted.
  platform_.conductor().enqueuePopup(other);
  EXPECT_EQ(offer(std::make_shared<ViewController>()), PresentResultPresented);
  platform_.conductor().popupDidDismiss(other.get());
  EXPECT_FALSE(platform_.conductor().isShowingPopup());
  EXPECT_EQ(showCount(), 1);
}

TEST_F(PaidAlertTest, OpenOpensTheSchemeInTranslatedTextsDismissEndsThePopupAndTwoShowingsAreTheLimit) {
  Localization::setLookup([](std::string_view key) -> std::optional<std::string> {
    if (key == Localization::PaidVersionInstalledAlertController::kMessageKey) return "%1$@ ist da. %1$@ öffnen?";
    return std::nullopt;
  });
  EXPECT_EQ(offer(host_), PresentResultPresented);
  auto alert = controller_->alert();
  ASSERT_NE(alert, nullptr);
  EXPECT_EQ(alert->title(), "Full version found");
  EXPECT_EQ(alert->message(), "Pro ist da. Pro öffnen?");
  alert->actions().at(1)->perform();
  EXPECT_EQ(platform_.application().openedURLs(), std::vector<std::string>{"fullapp://start"});
  host_->dismissViewControllerAnimated(false, nullptr);  // as the host's alert does on a tap

  EXPECT_EQ(offer(host_), PresentResultPresented);  // counted once so far, now twice
  controller_->dismissPopup();
  EXPECT_EQ(host_->presentedViewController(), nullptr);
  EXPECT_EQ(offer(host_), PresentResultMaxShowCountReached);  // not refused as still presenting
  EXPECT_EQ(controller_->alert(), nullptr);
}

}  // namespace
}  // namespace iam
