#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "iam/model/Advertisement.h"
#include "iam/model/AdvertisementTarget.h"
#include "iam/model/AdvertisementTrigger.h"
#include "iam/stats/LegacyReflection.h"
#include "iam/stats/ZTIAMAdvertisementEvent.h"
#include "iam/stats/ZTIAMAdvertisementStats.h"
#include "iam/stats/ZTIAMAdvertisementTriggerStats.h"
#include "iam/stats/ZTIAMAppEventStats.h"
#include "stats/StatsTestSupport.h"

namespace iam {
namespace {

using testing::archive;
using testing::unarchive;

class RecordsTest : public testing::StatsTest {};

TEST_F(RecordsTest, EachRecordArchivesUnderItsFieldNames) {
  const std::string excluded(LegacyReflection::kExcludedIvarsKey);
  EXPECT_EQ(testing::archivedKeys(ZTIAMAppEventStats()),
            (std::vector<std::string>{excluded, "_count", "_eventKey", "_mostRecentOccurrence"}));
  EXPECT_EQ(testing::archivedKeys(ZTIAMAdvertisementTriggerStats()),
            (std::vector<std::string>{excluded, "_count", "_mostRecentOccurrence", "_triggerId"}));
  EXPECT_EQ(testing::archivedKeys(ZTIAMAdvertisementStats()),
            (std::vector<std::string>{excluded, "_advertisementId", "_createdDate", "_mostRecentClickDate",
                                      "_mostRecentDismissDate", "_mostRecentImpressionDate", "_mostRecentPostponeDate",
                                      "_numberOfClicks", "_numberOfDismisses", "_numberOfImpressions",
                                      "_numberOfPostpones", "_triggerStats"}));
  EXPECT_EQ(testing::archivedKeys(ZTIAMAdvertisementEvent()),
            (std::vector<std::string>{excluded, "_advertisement", "_advertisementEventType", "_date", "_target",
                                      "_trigger"}));
}

// Each kind counts on its own and stamps its own date; trigger firings count on one record per
// trigger id, which is left unfilled.
TEST_F(RecordsTest, EachCountingOperationCountsItsKindAndStampsItsDate) {
  using S = ZTIAMAdvertisementStats;
  struct Kind {
    void (S::*handle)();
    std::int64_t (S::*count)() const;
    std::optional<Date> (S::*date)() const;
  };
  const Kind kinds[] = {{&S::handleImpression, &S::numberOfImpressions, &S::mostRecentImpressionDate},
                        {&S::handleClick, &S::numberOfClicks, &S::mostRecentClickDate},
                        {&S::handleDismiss, &S::numberOfDismisses, &S::mostRecentDismissDate},
                        {&S::handlePostpone, &S::numberOfPostpones, &S::mostRecentPostponeDate}};
  S stats;
  const Date created = clock().now();
  EXPECT_EQ(stats.createdDate(), created);
  EXPECT_TRUE(stats.triggerStats().empty());
  // Kind k is counted k + 1 times, the last time k + 1 seconds after creation.
  for (std::size_t k = 0; k < std::size(kinds); ++k) {
    EXPECT_EQ((stats.*kinds[k].count)(), 0);
    EXPECT_EQ((stats.*kinds[k].date)(), std::nullopt);
    clock().advance(1);
    for (std::size_t n = 0; n <= k; ++n) (stats.*kinds[k].handle)();
  }
  for (std::size_t k = 0; k < std::size(kinds); ++k) {
    EXPECT_EQ((stats.*kinds[k].count)(), static_cast<std::int64_t>(k + 1)) << k;
    EXPECT_EQ((stats.*kinds[k].date)(), dateByAddingTimeInterval(created, static_cast<double>(k + 1))) << k;
  }

  auto ad = std::make_shared<Advertisement>("ad-1");
  auto trigger = std::make_shared<AdvertisementTrigger>("t-1", "appToForeground");
  trigger->setAdvertisement(ad);
  auto first = stats.getTriggerStatsWithTriggerId("t-1");
  EXPECT_EQ(stats.getTriggerStatsWithTriggerId("t-1"), first);
  stats.handleTriggerFired(*trigger);
  clock().advance(5);
  stats.handleTriggerFired(*trigger);
  EXPECT_EQ(first->count(), 2);
  EXPECT_EQ(first->mostRecentOccurrence(), clock().now());
  EXPECT_EQ(first->triggerId(), std::nullopt);
  EXPECT_EQ(stats.triggerStats().size(), 1u);
}

TEST_F(RecordsTest, AnOlderArchiveDecodesWithOneWarningPerMissingField) {
  // Written before the creation date and the trigger map existed, without the other fields either.
  auto old = testing::scripted<ZTIAMAdvertisementStats>([](KeyedArchiver& c) {
    c.encodeString("ad-old", "_advertisementId");
    c.encodeInteger(4, "_numberOfImpressions");
  });
  ASSERT_NE(old, nullptr);
  EXPECT_EQ(warnings().size(), 9u);
  EXPECT_TRUE(env.log().contains("No encoded value found for ivar '_triggerStats'."));
  EXPECT_EQ(old->createdDate(), std::nullopt);               // decoding does not stamp one
  old->getTriggerStatsWithTriggerId("t")->incrementCount();  // the map is usable
  EXPECT_EQ(old->triggerStats().at("t")->count(), 1);
}

TEST_F(RecordsTest, EventsCarryTheirAdvertisementTriggerTargetAndTime) {
  auto ad = std::make_shared<Advertisement>("ad-9");
  auto trigger = std::make_shared<AdvertisementTrigger>("t-9", "level");
  auto target = std::make_shared<AdvertisementTarget>("g-9", "list");
  EXPECT_EQ(ZTIAMAdvertisementEventFactory::createEventWithType(ZTIAMAdvertisementEventTypeClick, ad, target)->target(),
            target);

  clock().advance(0.5);
  auto shown =
      ZTIAMAdvertisementEventFactory::createEventWithType(ZTIAMAdvertisementEventTypeImpression, ad, trigger, nullptr);
  auto copy = unarchive<ZTIAMAdvertisementEvent>(archive(*shown));
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(archive(*copy), archive(*shown));  // every field came back
  EXPECT_EQ(copy->date(), clock().now());
  EXPECT_EQ(copy->trigger()->triggerId(), "t-9");

  // An advertisement where a trigger belongs is not assigned.
  auto mismatched = testing::scripted<ZTIAMAdvertisementEvent>([&](KeyedArchiver& c) {
    c.encodeObject(ad.get(), "_trigger");
    c.encodeInteger(ZTIAMAdvertisementEventTypePostpone, "_advertisementEventType");
    c.encodeStringArray({"_date", "_advertisement", "_target"}, LegacyReflection::kExcludedIvarsKey);
  });
  ASSERT_NE(mismatched, nullptr);
  EXPECT_EQ(mismatched->trigger(), nullptr);
  EXPECT_EQ(mismatched->advertisementEventType(), ZTIAMAdvertisementEventTypePostpone);
  EXPECT_EQ(warnings(), std::vector<std::string>{"Failed to set value for ivar '_trigger'"});
}

}  // namespace
}  // namespace iam
