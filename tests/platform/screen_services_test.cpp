#include <gtest/gtest.h>

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
  EXPECT_TRUE(conductor.isShowingPopupFrom(1));
  EXPECT_FALSE(conductor.isShowingPopupFrom(6));

  conductor.setCanShowNonUrgentPopups(false);
  conductor.enqueuePopup(urgent);
  conductor.popupDidDismiss(first.get());
  // The urgent one jumps the held-back queue; the non-urgent one waits for permission.
  EXPECT_EQ(urgent->presented, 1);
  EXPECT_EQ(second->presented, 0);
  conductor.popupDidDismiss(urgent.get());
  conductor.setCanShowNonUrgentPopups(true);
  EXPECT_TRUE(conductor.isShowingPopupFrom(6));
}

}  // namespace
}  // namespace iam
