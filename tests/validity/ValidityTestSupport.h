#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "iam/model/Advertisement.h"
#include "iam/model/AdvertisementTrigger.h"
#include "iam/platform/Clock.h"
#include "iam/platform/InfoLogSwitch.h"
#include "iam/platform/LogBridge.h"
#include "iam/platform/PreferencesStore.h"
#include "iam/service/ZTIAMAppConfigType.h"
#include "iam/stats/ZTIAMAdvertisementStats.h"
#include "iam/stats/ZTIAMAppEventStats.h"
#include "iam/stats/ZTIAMStatsGetterHelper.h"
#include "iam/platform/InMemoryPreferencesStore.h"
#include "testing/CapturingLogSink.h"

namespace iam::testing {

inline constexpr const char* kValidityLogFile = "InAppMarketing/source/Logic/Validity/_ZTIAMAdvertisementValidityHelper";

// A stats getter with get-or-create look-ups that remembers what was asked, in order.
class FakeStatsGetter final : public ZTIAMStatsGetterHelper {
 public:
  std::shared_ptr<ZTIAMAdvertisementStats> getAdvertisementStatsByAdvertisementId(const std::string& id) override {
    lookups.push_back("advertisement:" + id);
    auto& record = advertisementStats[id];
    if (!record) {
      record = std::make_shared<ZTIAMAdvertisementStats>();
      record->setAdvertisementId(id);
    }
    return record;
  }
  std::shared_ptr<ZTIAMAppEventStats> getAppEventStatsByEventKey(const std::string& eventKey) override {
    lookups.push_back("event:" + eventKey);
    auto& record = appEventStats[eventKey];
    if (!record) {
      record = std::make_shared<ZTIAMAppEventStats>();
      record->setEventKey(eventKey);
    }
    return record;
  }

  // Counts only grow, so these raise a count to the value asked for.
  void setEventCount(const std::string& eventKey, std::int64_t count) {
    auto record = getAppEventStatsByEventKey(eventKey);
    while (record->count() < count) record->incrementCount();
    lookups.clear();
  }
  void setFireCount(const AdvertisementTrigger& trigger, std::int64_t count) {
    auto record = getAdvertisementStatsByAdvertisementId(trigger.advertisement()->advertisementId());
    auto triggerStats = record->getTriggerStatsWithTriggerId(trigger.triggerId());
    while (triggerStats->count() < count) triggerStats->incrementCount();
    lookups.clear();
  }
  void setImpression(const std::string& advertisementId, Date date) {
    getAdvertisementStatsByAdvertisementId(advertisementId)->setMostRecentImpressionDate(date);
    lookups.clear();
  }

  std::map<std::string, std::shared_ptr<ZTIAMAdvertisementStats>> advertisementStats;
  std::map<std::string, std::shared_ptr<ZTIAMAppEventStats>> appEventStats;
  std::vector<std::string> lookups;
};

class FakeAppConfig final : public ZTIAMAppConfigType {
 public:
  explicit FakeAppConfig(double minimumInterval) : minimumInterval_(minimumInterval) {}
  double minimumPopupImpressionTimeInterval() const override { return minimumInterval_; }
  std::map<std::string, std::string> attributes() const override { return {}; }

 private:
  double minimumInterval_;
};

// A manual clock, an empty in-memory preferences store (the launch count lives there) and a log
// capture, with info logging off; all restored afterwards.
class ValidityTest : public ::testing::Test {
 protected:
  static constexpr TimeInterval kStart = 1'700'000'000;
  static constexpr TimeInterval kDay = 24 * 60 * 60;

  void SetUp() override {
    clock_ = std::make_shared<ManualClock>(at(0));
    Clock::setCurrent(clock_);
    previousStore_ = PreferencesStore::standard();
    PreferencesStore::setStandard(std::make_shared<InMemoryPreferencesStore>());
    previousSwitch_ = InfoLogSwitch::logInfoEnabled();
    InfoLogSwitch::setLogInfoEnabled(false);
    log_ = std::make_unique<CapturingLogSink>();
  }
  void TearDown() override {
    log_.reset();
    InfoLogSwitch::setLogInfoEnabled(previousSwitch_);
    PreferencesStore::setStandard(previousStore_);
    Clock::setCurrent(nullptr);
  }

  // `seconds` from the start of the test's clock.
  static Date at(TimeInterval seconds) { return dateWithTimeIntervalSince1970(kStart + seconds); }

  static std::shared_ptr<Advertisement> makeAdvertisement(
      const std::string& id, ZTIAMAdvertisementDisplayType displayType = ZTIAMAdvertisementDisplayTypeDfpInterstitial) {
    auto advertisement = std::make_shared<Advertisement>(id);
    advertisement->setDisplayType(displayType);
    return advertisement;
  }
  static std::shared_ptr<AdvertisementTrigger> addTrigger(const std::shared_ptr<Advertisement>& advertisement,
                                                          const std::string& triggerId, const std::string& eventKey) {
    auto trigger = std::make_shared<AdvertisementTrigger>(triggerId, eventKey);
    trigger->setAdvertisement(advertisement);
    auto triggers = advertisement->triggers();
    triggers.insert(trigger);
    advertisement->setTriggers(std::move(triggers));
    return trigger;
  }

  // Evaluates with info logging on, then off, checking the verdict and the one line logged each time
  // ("" for none). Only a line `loggedRegardless` may appear with info logging off.
  void expectVerdict(const std::function<bool()>& evaluate, bool want, const std::string& line,
                     const std::string& function, bool loggedRegardless = false) {
    for (bool info : {true, false}) {
      InfoLogSwitch::setLogInfoEnabled(info);
      EXPECT_EQ(evaluate(), want) << line << " info " << info;
      auto records = log_->records();
      log_->clear();
      if (line.empty() || !(info || loggedRegardless)) {
        EXPECT_TRUE(records.empty()) << "unexpected: " << records.front().message;
        continue;
      }
      ASSERT_EQ(records.size(), 1u) << "expected only: " << line;
      EXPECT_EQ(records[0].level, LogLevel::Info);
      EXPECT_EQ(records[0].message, line);
      EXPECT_EQ(records[0].filename, kValidityLogFile);
      EXPECT_EQ(records[0].function, function);
    }
  }

  std::shared_ptr<ManualClock> clock_;
  std::unique_ptr<CapturingLogSink> log_;

 private:
  std::shared_ptr<PreferencesStore> previousStore_;
  bool previousSwitch_ = false;
};

}  // namespace iam::testing
