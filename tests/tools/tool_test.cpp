// Runs the `iam` binary as a process, as its users do.

#include <gtest/gtest.h>
#include <httplib.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "iam/ArchivableClasses.h"
#include "iam/manager/ZTInAppMarketingManagerLogic.h"
#include "iam/net/OspreyServiceContentInfo.h"
#include "iam/net/OspreyWebServiceEncryptionDetails.h"
#include "iam/platform/SQLitePreferencesStore.h"
#include "iam/platform/ZTSettings.h"
#include "iam/service/AdvertisementsResponseParser.h"
#include "iam/service/IAMWebService.h"
#include "iam/stats/ZTIAMStatsHelper.h"
#include "platform/ScratchDirectory.h"
#include "testing/TestEnvironment.h"
#include "tools/iam/Commands.h"
#include "tools/refservice/ReferenceMarketingService.h"

namespace {

struct Run {
  int status = -1;  // exit status; -1 when the process did not exit normally (a crash)
  std::string output;  // stdout and stderr
};

Run runTool(const std::string& arguments) {
  Run run;
  const std::string command = std::string("'") + IAM_TOOL_PATH + "' " + arguments + " 2>&1";
  FILE* pipe = ::popen(command.c_str(), "r");
  if (!pipe) return run;
  char buffer[4096];
  std::size_t n = 0;
  while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) run.output.append(buffer, n);
  const int raw = ::pclose(pipe);
  if (WIFEXITED(raw)) run.status = WEXITSTATUS(raw);
  return run;
}

std::string data(const std::string& name) { return std::string(IAM_SOURCE_DIR) + "/tests/tools/data/" + name; }

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

void writeFile(const std::string& path, const std::string& text) { std::ofstream(path, std::ios::binary) << text; }

TEST(IamLint, KeepsAGoodCampaignAndExitsZero) {
  const auto run = runTool("lint '" + data("campaign_good.json") + "'");
  EXPECT_EQ(run.status, 0) << run.output;
  EXPECT_NE(run.output.find("advertisements[0] 'rate-us': kept\n"), std::string::npos) << run.output;
  EXPECT_NE(run.output.find("advertisements[1] 'interstitial': kept\n"), std::string::npos) << run.output;
  EXPECT_NE(run.output.find("2 advertisements: 2 kept, 0 dropped"), std::string::npos) << run.output;
}

TEST(IamLint, NamesEveryDropWithItsPathAndWhatCanNeverShow) {
  const auto run = runTool("lint '" + data("campaign_bad.json") + "'");
  EXPECT_EQ(run.status, 1) << run.output;
  for (const char* expected : {
           "advertisements[0] 'no-display': dropped\n  advertisements[0].display.id: 13 is not 14, 15 or 16",
           "advertisements[1] 'expired': kept, but can never show\n",
           "  advertisements[1].triggers[1].id: missing (trigger dropped)\n",
           "because of its start and end date. It ended at 2001-01-01T00:00:00Z.",
           "advertisements[2] 'contact': kept, but can never show\n",
           "because open contact form is not supported.",
           "advertisements[3] 'linked': kept\n",
           "opens advertisement 'no-display', which this answer does not keep",
           "4 advertisements: 3 kept (2 can never show), 1 dropped"}) {
    EXPECT_NE(run.output.find(expected), std::string::npos) << expected << "\n---\n" << run.output;
  }
}

TEST(IamLint, ChecksRankedListsWithTheirOwnParser) {
  const auto run = runTool("lint --ranked '" + data("ranked.json") + "'");
  EXPECT_EQ(run.status, 1) << run.output;
  EXPECT_NE(run.output.find("rankedApps[0] 'a': kept\n"), std::string::npos) << run.output;
  EXPECT_NE(run.output.find("rankedApps[1] 'b': dropped\n  rankedApps[1].priorityId: 4 is not 1, 2 or 3"),
            std::string::npos)
      << run.output;
  // An advertisements answer is no ranked list, and the other way round.
  EXPECT_EQ(runTool("lint --ranked '" + data("campaign_good.json") + "'").status, 2);
  EXPECT_EQ(runTool("lint '" + data("ranked.json") + "'").status, 2);
}

TEST(IamLint, RefusesWhatIsNoReadableAnswerWithExitTwo) {
  iam::testing::ScratchDirectory dir;
  const auto missing = runTool("lint '" + dir.file("missing.json") + "'");
  EXPECT_EQ(missing.status, 2);
  EXPECT_NE(missing.output.find("cannot read"), std::string::npos) << missing.output;
  writeFile(dir.file("empty.json"), "");
  EXPECT_EQ(runTool("lint '" + dir.file("empty.json") + "'").status, 2);
  writeFile(dir.file("noconfig.json"), R"({"advertisements": []})");
  const auto noConfig = runTool("lint '" + dir.file("noconfig.json") + "'");
  EXPECT_EQ(noConfig.status, 2);
  EXPECT_NE(noConfig.output.find("appConfig: missing (answer dropped)"), std::string::npos) << noConfig.output;
  // The library stops the program on this id; lint must refuse it rather than die with it.
  writeFile(dir.file("overflow.json"),
            R"({"appConfig": {"minimumPopupImpressionTimeInterval": 0}, "advertisements": [{"id": "x",
                "ignoreGlobalMinimumPopupTimeInterval": false, "lifecycle": {}, "display": {"id": 16},
                "okAction": {"id": 9223372036854775807}, "dataSource": {"id": 1}, "state": {"id": 1}}]})");
  const auto overflow = runTool("lint '" + dir.file("overflow.json") + "'");
  EXPECT_EQ(overflow.status, 2);
  EXPECT_NE(overflow.output.find("advertisements[0].okAction.id"), std::string::npos) << overflow.output;
  EXPECT_EQ(runTool("lint").status, 2);
  EXPECT_EQ(runTool("frobnicate").status, 2);
}

// In-process: a crash, an abort or an escaped exception fails the whole program.
TEST(IamLint, MeetsEveryCorpusFileWithAnExitStatusAndNoCrash) {
  int files = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(IAM_CORPUS_DIR)) {
    if (entry.path().extension() != ".json") continue;
    ++files;
    for (bool ranked : {false, true}) {
      std::ostringstream out;
      std::ostringstream err;
      const int status = iam::tool::runLint({entry.path().string(), ranked}, out, err);
      EXPECT_TRUE(status >= 0 && status <= 2) << entry.path();
      // A refusal says why; an answer gets a summary line.
      EXPECT_FALSE((status == 2 ? err : out).str().empty()) << entry.path();
    }
  }
  EXPECT_GT(files, 100);
}

TEST(IamStats, ReadsWhatTheLibraryStored) {
  iam::testing::ScratchDirectory dir;
  const auto prefs = dir.file("prefs.sqlite");
  {
    iam::testing::TestEnvironment environment;
    iam::registerArchivableClasses();
    iam::PreferencesStore::setStandard(iam::SQLitePreferencesStore::open(prefs));
    iam::ZTSettings::incrementRunCount();
    iam::ZTSettings::incrementRunCount();
    auto response = iam::AdvertisementsResponseParser().parse(
        readFile(data("campaign_good.json")),
        std::make_shared<iam::OspreyServiceContentInfo>(iam::dateWithTimeIntervalSince1970(1'767'225'600), false),
        "\"tag-1\"");
    ASSERT_TRUE(response);
    ASSERT_TRUE(iam::ZTSettings::saveArchivableObject(
        *response, iam::ZTInAppMarketingManagerLogic::kMostRecentAdvertisementResponseKey));
    iam::ZTIAMStatsHelper stats;
    auto ad = response->advertisements().at(0);
    auto trigger = *ad->triggers().begin();
    using iam::ZTIAMAdvertisementEventFactory;
    stats.handleAdvertisementImpression(
        *ZTIAMAdvertisementEventFactory::createEventWithType(iam::ZTIAMAdvertisementEventTypeImpression, ad, trigger, nullptr));
    stats.handleAdvertisementPostpone(
        *ZTIAMAdvertisementEventFactory::createEventWithType(iam::ZTIAMAdvertisementEventTypePostpone, ad, nullptr));
    stats.handleTriggerFired(*trigger);
    stats.handleTriggerFired(*trigger);
    stats.handleAppEventWithKey("appToForeground");
    stats.waitUntilSavesAreFinished();
    iam::PreferencesStore::setStandard(nullptr);
  }
  const auto run = runTool("stats --json --prefs '" + prefs + "'");
  ASSERT_EQ(run.status, 0) << run.output;
  const auto json = nlohmann::json::parse(run.output);
  EXPECT_EQ(json["launches"], 2);
  EXPECT_EQ(json["events"], nlohmann::json({{"appToForeground", 1}}));
  EXPECT_EQ(json["advertisements"]["rate-us"],
            nlohmann::json({{"impressions", 1}, {"clicks", 0}, {"dismisses", 0}, {"postpones", 1},
                            {"triggers", {{"third-launch", 2}}}}));
  EXPECT_EQ(json["cache"]["advertisements"],
            nlohmann::json({{"count", 2}, {"etag", "\"tag-1\""}, {"fetchedAt", "2026-01-01T00:00:00Z"}}));
  EXPECT_TRUE(json["cache"]["rankedApps"].is_null());

  const auto text = runTool("stats --prefs '" + prefs + "'");
  EXPECT_EQ(text.status, 0);
  EXPECT_NE(text.output.find("rate-us: 1 impressions, 0 clicks, 0 dismisses, 1 postpones\n"
                             "    trigger third-launch fired 2"),
            std::string::npos)
      << text.output;
  // A file that is no preferences store is refused, and not turned into one.
  writeFile(dir.file("empty.sqlite"), "");
  EXPECT_EQ(runTool("stats --prefs '" + dir.file("empty.sqlite") + "'").status, 2);
  EXPECT_EQ(std::filesystem::file_size(dir.file("empty.sqlite")), 0u);
  EXPECT_EQ(runTool("stats --prefs '" + dir.file("missing.sqlite") + "'").status, 2);
}

TEST(IamServe, AnswersWithTheEntityTagAndStopsCleanlyOnInterrupt) {
  EXPECT_EQ(runTool("serve --campaign /nonexistent/campaign.json --port 0").status, 2);

  int out[2];
  ASSERT_EQ(::pipe(out), 0);
  const pid_t pid = ::fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    ::dup2(out[1], STDOUT_FILENO);
    ::close(out[0]);
    ::close(out[1]);
    const std::string campaign = data("campaign_good.json");
    ::execl(IAM_TOOL_PATH, "iam", "serve", "--campaign", campaign.c_str(), "--port", "0", static_cast<char*>(nullptr));
    ::_exit(127);
  }
  ::close(out[1]);
  FILE* lines = ::fdopen(out[0], "r");
  char line[512] = {};
  ASSERT_TRUE(std::fgets(line, sizeof line, lines));
  const std::string first = line;
  const auto at = first.find("http://127.0.0.1:");
  ASSERT_NE(at, std::string::npos) << first;
  const int port = std::stoi(first.substr(at + 17));
  EXPECT_GT(port, 0);

  httplib::Client client("127.0.0.1", port);
  auto answer = client.Post("/v1/advertisements",
                            {{iam::OspreyWebServiceEncryptionDetails::kDefaultKeyHeaderName,
                              std::string(iam::IAMWebService::kServiceKey)}},
                            "{}", "application/json");
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 200);
  ASSERT_TRUE(std::fgets(line, sizeof line, lines));
  EXPECT_EQ(std::string(line), "POST /v1/advertisements 200 " +
                                   iam::ReferenceMarketingService::entityTagForBytes(readFile(data("campaign_good.json"))) +
                                   "\n");

  ::kill(pid, SIGINT);
  int status = 0;
  ASSERT_EQ(::waitpid(pid, &status, 0), pid);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  ASSERT_TRUE(std::fgets(line, sizeof line, lines));
  EXPECT_EQ(std::string(line), "stopped\n");
  std::fclose(lines);
}

}  // namespace
