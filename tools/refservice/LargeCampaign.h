#pragma once

#include <nlohmann/json.hpp>

#include <string>

namespace iam {

// The event every walk over `largeCampaignAnswer` requests a display for.
inline constexpr const char* kLargeCampaignAlwaysFiringEvent = "screen-0";

// An advertisements answer of `count` interstitials with one to three triggers each, spread over
// the events "screen-0" to "screen-9" (so about a fifth of them listen to any one event), and at
// the end an interstitial preload that fires on every "screen-0". Popups are spaced by 300
// seconds. (Review questions would add their validity rule's log line, written whatever the info
// switch says, for every one held back.)
inline nlohmann::json largeCampaignAnswer(int count) {
  nlohmann::json ads = nlohmann::json::array();
  for (int i = 0; i < count; ++i) {
    const bool last = i == count - 1;
    const std::string id = "advertisement-" + std::to_string(i);
    nlohmann::json triggers = nlohmann::json::array();
    for (int t = 0; t <= i % 3; ++t)
      triggers.push_back({{"id", id + "-" + std::to_string(t)},
                          {"key", last ? kLargeCampaignAlwaysFiringEvent : "screen-" + std::to_string((i + 3 * t) % 10)},
                          {"thresholdCount", 1}});
    ads.push_back({{"id", id}, {"lifecycle", nlohmann::json::object()}, {"display", {{"id", last ? 15 : 14}}},
                   {"okAction", {{"id", 0}}}, {"dataSource", {{"id", 1}}}, {"state", {{"id", 1}}},
                   {"ignoreGlobalMinimumPopupTimeInterval", false},
                   {"resources", {{"dfpInterstitialIdentifier", "/1/x"}}}, {"triggers", triggers}});
  }
  return {{"advertisements", ads}, {"appConfig", {{"minimumPopupImpressionTimeInterval", 300}}}};
}

}  // namespace iam
