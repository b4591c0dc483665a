#include <gtest/gtest.h>

#include <algorithm>
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
using testing::archivedKeys;
using testing::decodeScripted;
using testing::unarchive;

class RecordsTest : public testing::StatsTest {
 protected:
  void SetUp() override {
    testing::StatsTest::SetUp();
    start = clock->now();
  }
  Date at(double secondsFromStart) const { return dateByAddingTimeInterval(start, secondsFromStart); }

  Date start;
};

TEST_F(RecordsTest, EachRecordArchivesUnderItsFieldNames) {
  const std::string excluded(LegacyReflection::kExcludedIvarsKey);
  EXPECT_EQ(archivedKeys(ZTIAMAppEventStats()),
            (std::vector<std::string>{excluded, "_count", "_eventKey", "_mostRecentOccurrence"}));
  EXPECT_EQ(archivedKeys(ZTIAMAdvertisementTriggerStats()),
            (std::vector<std::string>{excluded, "_count", "_mostRecentOccurrence", "_triggerId"}));
  EXPECT_EQ(archivedKeys(ZTIAMAdvertisementStats()),
            (std::vector<std::string>{excluded, "_advertisementId", "_createdDate", "_mostRecentClickDate",
                                      "_mostRecentDismissDate", "_mostRecentImpressionDate", "_mostRecentPostponeDate",
                                      "_numberOfClicks", "_numberOfDismisses", "_numberOfImpressions",
                                      "_numberOfPostpones", "_triggerStats"}));
  EXPECT_EQ(archivedKeys(ZTIAMAdvertisementEvent()),
            (std::vector<std::string>{excluded, "_advertisement", "_advertisementEventType", "_date", "_target",
                                      "_trigger"}));
  // Nothing is left out of a record's own archive.
  KeyedUnarchiver::withArchive(archive(ZTIAMAppEventStats()), [](const ArchiveValue& root) {
    auto list = root.objectCoder().decodeStringArrayForKey(LegacyReflection::kExcludedIvarsKey);
    ASSERT_TRUE(list);
    EXPECT_TRUE(list->empty());
  });
}

TEST_F(RecordsTest, AdvertisementRecordCountsEachKindAndStampsItsDate) {
  ZTIAMAdvertisementStats stats;
  EXPECT_EQ(stats.createdDate(), at(0));
  EXPECT_EQ(stats.numberOfImpressions() + stats.numberOfClicks() + stats.numberOfDismisses() + stats.numberOfPostpones(), 0);
  EXPECT_FALSE(stats.mostRecentImpressionDate() || stats.mostRecentClickDate() || stats.mostRecentDismissDate() ||
               stats.mostRecentPostponeDate());
  EXPECT_TRUE(stats.triggerStats().empty());

  stats.handleImpression();
  clock->advance(10);
  stats.handleImpression();
  clock->advance(1);
  stats.handleClick();
  clock->advance(1);
  stats.handleDismiss();
  stats.handleDismiss();
  stats.handleDismiss();
  clock->advance(1);
  stats.handlePostpone();
  EXPECT_EQ(stats.numberOfImpressions(), 2);
  EXPECT_EQ(stats.mostRecentImpressionDate(), at(10));
  EXPECT_EQ(stats.numberOfClicks(), 1);
  EXPECT_EQ(stats.mostRecentClickDate(), at(11));
  EXPECT_EQ(stats.numberOfDismisses(), 3);
  EXPECT_EQ(stats.mostRecentDismissDate(), at(12));
  EXPECT_EQ(stats.numberOfPostpones(), 1);
  EXPECT_EQ(stats.mostRecentPostponeDate(), at(13));
  EXPECT_EQ(stats.createdDate(), at(0));
}

TEST_F(RecordsTest, TriggerFiringsCountOnOneRecordPerTriggerIdWithoutFillingTheId) {
  auto ad = std::make_shared<Advertisement>("ad-1");
  auto trigger = std::make_shared<AdvertisementTrigger>("t-1", "appToForeground");
  trigger->setAdvertisement(ad);
  ZTIAMAdvertisementStats stats;

  auto first = stats.getTriggerStatsWithTriggerId("t-1");
  EXPECT_EQ(stats.getTriggerStatsWithTriggerId("t-1"), first);
  EXPECT_EQ(stats.triggerStats().size(), 1u);
  EXPECT_EQ(first->count(), 0);

  clock->advance(5);
  stats.handleTriggerFired(*trigger);
  clock->advance(5);
  stats.handleTriggerFired(*trigger);
  EXPECT_EQ(first->count(), 2);
  EXPECT_EQ(first->mostRecentOccurrence(), at(10));
  EXPECT_EQ(first->triggerId(), std::nullopt);
  EXPECT_EQ(stats.triggerStats().size(), 1u);
}

TEST_F(RecordsTest, RecordsRoundTripThroughTheirArchiveForm) {
  auto stats = std::make_shared<ZTIAMAdvertisementStats>();
  stats->setAdvertisementId("ad-7");
  stats->handleImpression();
  clock->advance(2.5);
  stats->handleClick();
  stats->handlePostpone();
  stats->getTriggerStatsWithTriggerId("a")->incrementCount();
  stats->getTriggerStatsWithTriggerId("b");

  auto copy = unarchive<ZTIAMAdvertisementStats>(archive(*stats));
  ASSERT_NE(copy, nullptr);
  EXPECT_TRUE(warnings().empty());
  EXPECT_EQ(copy->advertisementId(), "ad-7");
  EXPECT_EQ(copy->createdDate(), at(0));
  EXPECT_EQ(copy->numberOfImpressions(), 1);
  EXPECT_EQ(copy->mostRecentClickDate(), at(2.5));
  EXPECT_EQ(copy->mostRecentDismissDate(), std::nullopt);
  EXPECT_EQ(copy->numberOfPostpones(), 1);
  const auto triggers = copy->triggerStats();
  ASSERT_EQ(triggers.size(), 2u);
  EXPECT_EQ(triggers.at("a")->count(), 1);
  EXPECT_EQ(triggers.at("a")->mostRecentOccurrence(), at(2.5));
  EXPECT_EQ(triggers.at("b")->count(), 0);

  auto event = std::make_shared<ZTIAMAppEventStats>();
  event->setEventKey("purchase");
  event->incrementCount();
  auto eventCopy = unarchive<ZTIAMAppEventStats>(archive(*event));
  ASSERT_NE(eventCopy, nullptr);
  EXPECT_EQ(eventCopy->eventKey(), "purchase");
  EXPECT_EQ(eventCopy->count(), 1);
  EXPECT_EQ(eventCopy->mostRecentOccurrence(), at(2.5));
}

TEST_F(RecordsTest, AnOlderArchiveDecodesWithOneWarningPerMissingField) {
  // Written before the trigger map, the creation date and the postponements existed.
  auto old = decodeScripted<ZTIAMAdvertisementStats>([](KeyedArchiver& c) {
    c.encodeString("ad-old", "_advertisementId");
    c.encodeInteger(4, "_numberOfImpressions");
    c.encodeInteger(1, "_numberOfClicks");
    c.encodeInteger(0, "_numberOfDismisses");
    c.encodeNull("_mostRecentImpressionDate");
    c.encodeNull("_mostRecentClickDate");
    c.encodeNull("_mostRecentDismissDate");
    c.encodeStringArray({}, LegacyReflection::kExcludedIvarsKey);
  });
  ASSERT_NE(old, nullptr);
  std::vector<std::string> expected = {
      "No encoded value found for ivar '_triggerStats'.",
      "No encoded value found for ivar '_createdDate'.",
      "No encoded value found for ivar '_numberOfPostpones'.",
      "No encoded value found for ivar '_mostRecentPostponeDate'.",
  };
  auto got = warnings();
  std::sort(got.begin(), got.end());
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(got, expected);
  EXPECT_EQ(old->advertisementId(), "ad-old");
  EXPECT_EQ(old->numberOfImpressions(), 4);
  EXPECT_EQ(old->createdDate(), std::nullopt);  // decoding does not stamp one
  EXPECT_TRUE(old->triggerStats().empty());
  old->getTriggerStatsWithTriggerId("t")->incrementCount();  // the map is usable
  EXPECT_EQ(old->triggerStats().at("t")->count(), 1);
}

TEST_F(RecordsTest, EventsCarryTheirAdvertisementTriggerTargetAndTime) {
  auto ad = std::make_shared<Advertisement>("ad-9");
  auto trigger = std::make_shared<AdvertisementTrigger>("t-9", "level");
  auto target = std::make_shared<AdvertisementTarget>("g-9", "list");

  auto plain = ZTIAMAdvertisementEventFactory::createEventWithType(ZTIAMAdvertisementEventTypeClick, ad, target);
  EXPECT_EQ(plain->advertisementEventType(), ZTIAMAdvertisementEventTypeClick);
  EXPECT_EQ(plain->date(), at(0));
  EXPECT_EQ(plain->target(), target);
  EXPECT_EQ(plain->advertisementId(), "ad-9");

  clock->advance(0.5);
  auto shown = ZTIAMAdvertisementEventFactory::createEventWithType(ZTIAMAdvertisementEventTypeImpression, ad, trigger,
                                                                  nullptr);
  EXPECT_EQ(shown->trigger(), trigger);
  EXPECT_EQ(ZTIAMAdvertisementEventFactory::createEventWithType(ZTIAMAdvertisementEventTypeDismiss, nullptr, nullptr)
                ->advertisementId(),
            std::nullopt);

  auto copy = unarchive<ZTIAMAdvertisementEvent>(archive(*shown));
  ASSERT_NE(copy, nullptr);
  EXPECT_TRUE(warnings().empty());
  EXPECT_EQ(copy->advertisementEventType(), ZTIAMAdvertisementEventTypeImpression);
  EXPECT_EQ(copy->date(), at(0.5));
  ASSERT_NE(copy->advertisement(), nullptr);
  EXPECT_EQ(copy->advertisementId(), "ad-9");
  ASSERT_NE(copy->trigger(), nullptr);
  EXPECT_EQ(copy->trigger()->triggerId(), "t-9");
  EXPECT_EQ(copy->target(), nullptr);

  // An advertisement where a trigger belongs is not assigned.
  auto mismatched = decodeScripted<ZTIAMAdvertisementEvent>([&](KeyedArchiver& c) {
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
