#include <gtest/gtest.h>

#include <vector>

#include "iam/platform/AlertController.h"
#include "iam/presentation/ZTIAMAdvertisementPresenter.h"
#include "testing/PlatformDoubles.h"
#include "testing/TestEnvironment.h"

namespace iam {
namespace {

using testing::TestPopup;
using Lines = std::vector<std::pair<LogLevel, int>>;

std::shared_ptr<Advertisement> advertisement(ZTIAMAdvertisementDisplayType type) {
  auto ad = std::make_shared<Advertisement>("ad");
  ad->setDisplayType(type);
  return ad;
}

class PresenterTest : public ::testing::Test {
 protected:
  // Level and line of each line logged with this message.
  std::vector<std::pair<LogLevel, int>> logged(std::string_view message) {
    std::vector<std::pair<LogLevel, int>> found;
    for (const auto& r : env_.log().records()) {
      if (r.message != message) continue;
      found.emplace_back(r.level, r.line);
      EXPECT_EQ(r.filename, ZTIAMAdvertisementPresenter::kLogFile);
    }
    return found;
  }

  testing::TestEnvironment env_;
  testing::PlatformDoubles platform_;
  bool canShowPopup_ = true;
  std::shared_ptr<ZTIAMAdvertisementPresenter> presenter_ =
      std::make_shared<ZTIAMAdvertisementPresenter>([this] { return canShowPopup_; });
  std::shared_ptr<ViewController> host_ = std::make_shared<ViewController>();
};

TEST_F(PresenterTest, DelayedShowWaitsInThePipelineRefusesASecondRequestAndIsDroppedOnResignActive) {
  presenter_->presentAdvertisement(advertisement(ZTIAMAdvertisementDisplayTypeReviewQuestion), host_, 0);
  EXPECT_EQ(platform_.reviewRequests(), 1u);
  EXPECT_FALSE(presenter_->isPresentingAdvertisement());

  presenter_->presentAdvertisement(advertisement(ZTIAMAdvertisementDisplayTypeReviewQuestion), host_, 0.5);
  EXPECT_TRUE(presenter_->isPresentingAdvertisement());  // nothing on screen yet
  presenter_->presentAdvertisement(advertisement(ZTIAMAdvertisementDisplayTypeReviewQuestion), host_, 0);
  EXPECT_EQ(logged("IAM: Currently another advertisement is in the pipeline to be shown. We ignore this present "
                   "request."),
            (Lines{{LogLevel::Debug, 45}}));
  env_.advance(0.4);
  EXPECT_EQ(platform_.reviewRequests(), 1u);
  env_.advance(0.1);
  EXPECT_EQ(platform_.reviewRequests(), 2u);
  EXPECT_FALSE(presenter_->isPresentingAdvertisement());

  // One of the library's own popups on screen counts as presenting; another source does not.
  auto popup = std::make_shared<TestPopup>(ZTIAMAdvertisementPresenter::kPopupSource);
  platform_.conductor().enqueuePopup(popup);
  EXPECT_TRUE(presenter_->isPresentingAdvertisement());
  platform_.conductor().popupDidDismiss(popup.get());
  platform_.conductor().enqueuePopup(std::make_shared<TestPopup>(3));
  EXPECT_FALSE(presenter_->isPresentingAdvertisement());

  presenter_->presentAdvertisement(advertisement(ZTIAMAdvertisementDisplayTypeReviewQuestion), host_, 1);
  platform_.application().setApplicationState(UIApplicationStateInactive);
  EXPECT_FALSE(presenter_->isPresentingAdvertisement());
  env_.advance(5);
  EXPECT_EQ(platform_.reviewRequests(), 2u);
}

TEST_F(PresenterTest, RefusalsAreLoggedAtTheirLevelsAndShowNothing) {
  auto review = advertisement(ZTIAMAdvertisementDisplayTypeReviewQuestion);
  presenter_->presentAdvertisement(review, std::make_shared<AlertController>("t", "m"), 0);
  EXPECT_EQ(logged("IAM: Currently showing a UIAlertController so we cannot show any advertisement view controllers."),
            (Lines{{LogLevel::Debug, 52}}));

  canShowPopup_ = false;
  presenter_->presentAdvertisement(review, host_, 0);
  EXPECT_EQ(logged("IAM: Unable to show advertisement as another popup is already being shown."),
            (Lines{{LogLevel::Warning, 59}}));
  presenter_->showReviewQuestionWithAdvertisement(review, host_);
  EXPECT_EQ(logged("IAM: Ignored review question, PopupConductor is occupied"), (Lines{{LogLevel::Warning, 131}}));

  canShowPopup_ = true;
  platform_.setSplitScreen(true);
  presenter_->presentAdvertisement(review, host_, 0);
  EXPECT_EQ(logged("IAM: Ignored review question, device is in SplitScreen"), (Lines{{LogLevel::Warning, 138}}));

  presenter_->presentAdvertisement(advertisement(ZTIAMAdvertisementDisplayTypeDfpInterstitialPreload), host_, 0);
  presenter_->presentAdvertisement(advertisement(ZTIAMAdvertisementDisplayTypeDfpInterstitial), host_, 0);
  presenter_->presentAdvertisement(advertisement(ZTIAMAdvertisementDisplayTypeInvalid), host_, 0);
  EXPECT_EQ(logged("IAM: Not supported via InAppMarketing."), (Lines{{LogLevel::Warning, 87}, {LogLevel::Warning, 87}}));
  EXPECT_EQ(platform_.reviewRequests(), 0u);
}

}  // namespace
}  // namespace iam
