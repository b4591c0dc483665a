// Plays journeys through the `iam` binary and checks what it prints against what the rules decide.

#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "tools/ToolTestSupport.h"
#include "tools/iam/Commands.h"

namespace {

using nlohmann::json;

iam::testing::ToolRun simulate(const std::string& campaign, const std::string& journey) {
  return iam::testing::runTool("simulate --campaign '" + campaign + "' --journey '" + journey + "' --json", true);
}

std::vector<json> lines(const std::string& text, bool withLogs) {
  std::vector<json> out;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    json value = json::parse(line);
    if (withLogs || value["kind"] != "log") out.push_back(std::move(value));
  }
  return out;
}

using iam::testing::writeFile;

const std::string kCampaign = std::string(IAM_SOURCE_DIR) + "/examples/campaign.json";

// Worked out by hand from examples/campaign.json: popups at least 3600 s apart; the review question
// fires from the third launch, may be shown twice beyond its cap of 2 (the cap counts "more than"),
// is postponed for 172800 s and waits a day between showings; the preload needs two launches, fires
// at most three times and ignores spacing; the level interstitial fires at the third level and links
// to the rating prompt; "whats-new" fires on the first launch of a new version; the winter sale runs
// from 172800 s to 432000 s after the start.
TEST(IamSimulate, PlaysAJourneyAsTheRulesDecide) {
  iam::testing::ScratchDirectory dir;
  const auto journey = writeFile(dir, "journey.jsonl", R"({"launch": "1.0"}
{"event": "levelComplete"}
{"event": "levelComplete"}
{"event": "levelComplete"}
{"tap": "ok"}
{"targets": "newsFeed"}
{"launch": "1.1"}
{"launch": "1.1"}
{"wait": 3601}
{"foreground": true}
{"tap": "postpone"}
{"foreground": true}
{"wait": 172800}
{"foreground": true}
{"tap": "ok"}
{"targets": "newsFeed"}
)");
  const auto run = simulate(kCampaign, journey);
  ASSERT_EQ(run.status, 0) << run.err;
  const auto display = [](double t, const char* ad, json trigger, int type, const char* route) {
    return json{{"t", t}, {"kind", "display"}, {"advertisement", ad}, {"trigger", trigger}, {"displayType", type}, {"route", route}};
  };
  const auto fetch = [](double t, const char* result) {
    return json{{"t", t}, {"kind", "fetch"}, {"method", "advertisements"}, {"result", result}};
  };
  const auto targets = [](double t, json list) { return json{{"t", t}, {"kind", "targets"}, {"space", "newsFeed"}, {"targets", list}}; };
  const json review = {{"kind", "review"}}, notes = {{"advertisement", "cross-promo-notes"}, {"target", "feed-every-tenth-row"}};
  const auto at = [](json line, double t) {
    line["t"] = t;
    return line;
  };
  const std::vector<json> expected = {
      fetch(0, "ok"),
      display(0, "level-interstitial", "every-third-level", 15, "host"),  // third level
      display(0, "rate-after-levels", nullptr, 16, "presenter"),          // linked by the tap
      at(review, 0),
      targets(0, {notes}),  // the sale has not started
      display(0, "whats-new", "after-update", 15, "host"),  // 1.0 -> 1.1; no fetch: the answer is fresh
      display(0, "interstitial-preload", "preload-on-foreground", 14, "host"),  // review held back by spacing
      display(3601, "interstitial-preload", "preload-on-foreground", 14, "host"),
      display(3601, "review-third-launch", "third-launch", 16, "presenter"),
      at(review, 3601),
      display(3601, "interstitial-preload", "preload-on-foreground", 14, "host"),  // review postponed
      fetch(86430, "not-modified"),   // first timer tick more than a day after the answer
      fetch(172860, "not-modified"),  // a day after the renewed one
      display(176401, "review-third-launch", "third-launch", 16, "presenter"),  // postponement over
      at(review, 176401),
      {{"t", 176401}, {"kind", "open"}, {"url", "https://apps.example.com/app/puzzles/reviews?id=123456789&action=write-review"}},
      targets(176401, {{{"advertisement", "winter-sale"}, {"target", "sale-banner"}}, notes}),
      json::parse(R"({"t":176401,"kind":"stats","launches":3,
        "events":{"System - app updated":1,"appToForeground":5,"levelComplete":3},
        "advertisements":{
          "cross-promo-notes":{"impressions":0,"clicks":0,"dismisses":0,"postpones":0,"triggers":{}},
          "interstitial-preload":{"impressions":3,"clicks":0,"dismisses":0,"postpones":0,"triggers":{"preload-on-foreground":3}},
          "level-interstitial":{"impressions":1,"clicks":1,"dismisses":0,"postpones":0,"triggers":{"every-third-level":1}},
          "rate-after-levels":{"impressions":1,"clicks":0,"dismisses":0,"postpones":0,"triggers":{}},
          "review-third-launch":{"impressions":2,"clicks":1,"dismisses":0,"postpones":1,"triggers":{"third-launch":2}},
          "whats-new":{"impressions":1,"clicks":0,"dismisses":0,"postpones":0,"triggers":{"after-update":1}},
          "winter-sale":{"impressions":0,"clicks":0,"dismisses":0,"postpones":0,"triggers":{}}}})")};
  const auto seen = lines(run.out, false);
  ASSERT_EQ(seen.size(), expected.size()) << run.out;
  for (std::size_t i = 0; i < seen.size(); ++i) EXPECT_EQ(seen[i], expected[i]) << "line " << i;

  // The refusals are explained, each at the time of its step.
  std::vector<json> explained;
  for (const auto& line : lines(run.out, true))
    if (line["kind"] == "log" && line["message"].get<std::string>().find("review-third-launch' is currently") != std::string::npos)
      explained.push_back(line);
  const std::string trigger = "IAM: Trigger 'appToForeground' for advertisement 'review-third-launch' is currently not valid because ";
  ASSERT_GE(explained.size(), 2u) << run.out;
  EXPECT_EQ(explained[0], json({{"t", 0}, {"kind", "log"}, {"level", "info"},
                                {"message", trigger + "it has not reached its treshold. Current count: [ZTSettings runCount], treshold: 3"}}));
  EXPECT_NE(run.out.find(R"({"t":0.0,"kind":"log","level":"info","message":")" + trigger +
                         "it is too recent (< 3600.000000 seconds) another has been shown.\"}"),
            std::string::npos);
  EXPECT_NE(run.out.find(R"({"t":3601.0,"kind":"log","level":"info","message":"IAM: Advertisement 'review-third-launch' is currently not valid because it is postponed."})"),
            std::string::npos);

  // Nothing depends on real time or thread timing.
  const auto again = simulate(kCampaign, journey);
  EXPECT_EQ(again.out, run.out);
}

TEST(IamSimulate, RefusesAJourneyLineWithItsNumber) {
  iam::testing::ScratchDirectory dir;
  const std::pair<const char*, const char*> cases[] = {
      {"{\"launch\": \"1.0\"}\n\n{\"tap\": \"sideways\"}\n", ":3: \"tap\" takes"},
      {"{\"launch\": \"1.0\"}\n{\"event\": 1}\n", ":2: \"event\" takes"},
      {"{\"launch\": \"1.0\"}\n{\"jump\": true}\n", ":2: unknown step \"jump\""},
      {"{\"launch\": \"1.0\",\n", ":1: not a JSON object"},
      {"{\"wait\": -1}\n", ":1: \"wait\" takes"},
      {"{\"event\": \"x\"}\n", ":1: the app has not been launched yet"},
      {"{\"launch\": \"1.0\"}\n{\"tap\": \"ok\"}\n", ":2: nothing has been shown to tap"},
      {"{\"launch\": \"1.0\"}\n{\"campaign\": \"missing.json\"}\n", ":2: cannot read"}};
  for (const auto& [text, message] : cases) {
    const auto run = simulate(kCampaign, writeFile(dir, "bad.jsonl", text));
    EXPECT_EQ(run.status, 2) << text;
    EXPECT_NE(run.err.find(dir.file("bad.jsonl") + message), std::string::npos) << text << run.err;
  }
  // An id whose mapping overflows is served like any other; the app drops that advertisement.
  const auto overflowing = writeFile(dir, "overflow.json", R"({"appConfig": {"minimumPopupImpressionTimeInterval": 0},
    "advertisements": [{"id": "x", "lifecycle": {}, "display": {"id": 16}, "okAction": {"id": 9223372036854775807},
    "dataSource": {"id": 1}, "state": {"id": 1}, "ignoreGlobalMinimumPopupTimeInterval": false}]})");
  const auto run = simulate(overflowing, writeFile(dir, "ok.jsonl", "{\"launch\": \"1.0\"}\n"));
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.out.find("IAM: Advertisement 'x' dropped: its okAction.id 9223372036854775807 cannot be mapped."),
            std::string::npos) << run.out;
}

// Every corpus file, as a journey and as the service's answer, ends the run with a verdict. Files
// that are no journey are refused before anything runs, so they are played in-process.
TEST(IamSimulate, MeetsTheJsonCorpusAsJourneyAndAsCampaign) {
  iam::testing::ScratchDirectory dir;
  std::string journey = "{\"launch\": \"1.0\"}\n";
  std::size_t files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(std::string(IAM_CORPUS_DIR) + "/jsontestsuite/test_parsing")) {
    iam::tool::SimulateOptions options;
    options.campaign = kCampaign;
    options.journey = entry.path().string();
    std::ostringstream out, err;
    const int status = iam::tool::runSimulate(options, out, err);
    EXPECT_TRUE(status == 0 || status == 2) << entry.path() << " ended with " << status << ": " << err.str();
    journey += json{{"campaign", entry.path().string()}}.dump() + "\n{\"refresh\": true}\n{\"event\": \"levelComplete\"}\n";
    ++files;
  }
  const auto run = simulate(kCampaign, writeFile(dir, "corpus.jsonl", journey));
  ASSERT_EQ(run.status, 0) << run.err;
  std::size_t failed = 0;
  for (const auto& line : lines(run.out, false)) failed += line["kind"] == "fetch" && line["result"] == "failed";
  EXPECT_EQ(failed, files);  // none of them is a campaign answer
}

}  // namespace
