#include <gtest/gtest.h>
#include <httplib.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "iam/ArchivableClasses.h"
#include "iam/manager/ZTInAppMarketingManagerLogic.h"
#include "iam/net/OspreyServiceContentInfo.h"
#include "iam/net/OspreyWebServiceEncryptionDetails.h"
#include "iam/platform/SQLitePreferencesStore.h"
#include "iam/platform/ZTSettings.h"
#include "iam/service/AdvertisementsResponseParser.h"
#include "iam/service/IAMWebService.h"
#include "iam/stats/ZTIAMStatsHelper.h"
#include "testing/TestEnvironment.h"
#include "tools/iam/Commands.h"
#include "tools/ToolTestSupport.h"
#include "tools/refservice/ReferenceMarketingService.h"

namespace {

using iam::testing::readFile;
using iam::testing::runTool;
using iam::testing::writeFile;

std::string data(const std::string& name) { return std::string(IAM_SOURCE_DIR) + "/tests/tools/data/" + name; }

// Exit 0 when all is kept, 1 when something is dropped, 2 when there is no answer of the kind asked for.
TEST(IamLint, NamesEveryVerdictWithItsPathAndExitsByTheWorst) {
  iam::testing::ScratchDirectory dir;
  int written = 0;
  const auto file = [&](const char* text) { return "'" + writeFile(dir, std::to_string(++written) + ".json", text) + "'"; };
  const struct {
    std::string arguments;
    int status;
    std::vector<std::string> texts;
  } cases[] = {
      {"'" + data("campaign_good.json") + "'", 0,
       {"advertisements[0] 'rate-us': kept\n", "advertisements[1] 'interstitial': kept\n",
        "2 advertisements: 2 kept, 0 dropped"}},
      {"'" + data("campaign_bad.json") + "'", 1,
       {"advertisements[0] 'no-display': dropped\n  advertisements[0].display.id: 13 is not 14",
        "advertisements[1] 'expired': kept, but can never show\n",
        "  advertisements[1].triggers[1].id: missing (trigger dropped)\n",
        "because of its start and end date. It ended at 2001-01-01T00:00:00Z.",
        "advertisements[2] 'contact': kept, but can never show\n", "because open contact form is not supported.",
        "its state is 3, not live (1)", "advertisements[3] 'linked': kept\n",
        "opens advertisement 'no-display', which this answer does not keep",
        "4 advertisements: 3 kept (2 can never show), 1 dropped"}},
      {"--ranked '" + data("ranked.json") + "'", 1,
       {"rankedApps[0] 'a': kept\n", "rankedApps[1] 'b': dropped\n  rankedApps[1].priorityId: 4 is not 1, 2 or 3"}},
      {"'" + data("ranked.json") + "'", 2, {}},  // no advertisements answer
      {file(R"({"appConfig": {"minimumPopupImpressionTimeInterval": 0}, "advertisements": [
        {"id": "x", "lifecycle": {}, "display": {"id": 16}, "okAction": {"id": 0}, "state": {"id": 1},
         "dataSource": {"id": -9223372036854775808}, "ignoreGlobalMinimumPopupTimeInterval": false}]})"),
       1,
       {"advertisements[0].dataSource.id: -9223372036854775808 overflows when mapped (advertisement dropped)",
        "1 advertisements: 0 kept, 1 dropped"}},
      {file(""), 2, {"not valid JSON"}},
      {file("{\"advertisements\": [],\n  oops}"), 2, {"(line 2, column 3)"}},
      {file(R"({"advertisements": []})"), 2, {"appConfig: missing (answer dropped)"}},
      {"'" + dir.file("missing.json") + "'", 2, {"cannot read"}},
      {"", 2, {}},
  };
  for (const auto& c : cases) {
    const auto run = runTool("lint " + c.arguments);
    EXPECT_EQ(run.status, c.status) << c.arguments << "\n" << run.out;
    for (const auto& text : c.texts) EXPECT_NE(run.out.find(text), std::string::npos) << text << "\n---\n" << run.out;
  }
}

// In-process: a crash, an abort or an escaped exception fails the whole program.
TEST(IamLint, MeetsEveryCorpusFileWithAnExitStatusAndNoCrash) {
  int files = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(IAM_CORPUS_DIR)) {
    if (entry.path().extension() != ".json") continue;
    ++files;
    for (bool ranked : {false, true}) {
      std::ostringstream out, err;
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
    auto event = [&](auto type) { return iam::ZTIAMAdvertisementEventFactory::createEventWithType(type, ad, nullptr); };
    stats.handleAdvertisementImpression(*event(iam::ZTIAMAdvertisementEventTypeImpression));
    stats.handleAdvertisementPostpone(*event(iam::ZTIAMAdvertisementEventTypePostpone));
    stats.handleTriggerFired(*trigger);
    stats.handleTriggerFired(*trigger);
    stats.handleAppEventWithKey("appToForeground");
    stats.waitUntilSavesAreFinished();
    iam::PreferencesStore::setStandard(nullptr);
  }
  const auto run = runTool("stats --json --prefs '" + prefs + "'");
  ASSERT_EQ(run.status, 0) << run.out;
  const auto json = nlohmann::json::parse(run.out);
  EXPECT_EQ(json["launches"], 2);
  EXPECT_EQ(json["events"], nlohmann::json({{"appToForeground", 1}}));
  EXPECT_EQ(json["advertisements"]["rate-us"],
            nlohmann::json({{"impressions", 1}, {"clicks", 0}, {"dismisses", 0}, {"postpones", 1},
                            {"triggers", {{"third-launch", 2}}}}));
  EXPECT_EQ(json["cache"]["advertisements"],
            nlohmann::json({{"count", 2}, {"etag", "\"tag-1\""}, {"fetchedAt", "2026-01-01T00:00:00Z"}}));
  EXPECT_NE(runTool("stats --prefs '" + prefs + "'").out.find("trigger third-launch fired 2"), std::string::npos);
  // A file that is no preferences store is refused, and not turned into one.
  EXPECT_EQ(runTool("stats --prefs '" + writeFile(dir, "empty.sqlite", "") + "'").status, 2);
  EXPECT_EQ(std::filesystem::file_size(dir.file("empty.sqlite")), 0u);
}

TEST(IamServe, AnswersWithTheEntityTagAndStopsCleanlyOnInterrupt) {
  EXPECT_EQ(runTool("serve --campaign /nonexistent/campaign.json --port 0").status, 2);
  const std::string campaign = data("campaign_good.json");
  int out[2];
  ASSERT_EQ(::pipe(out), 0);
  const pid_t pid = ::fork();
  if (pid == 0) {  // only async-signal-safe calls until exec
    ::dup2(out[1], STDOUT_FILENO);
    ::execl(IAM_TOOL_PATH, "iam", "serve", "--campaign", campaign.c_str(), "--port", "0", static_cast<char*>(nullptr));
    ::_exit(127);
  }
  ::close(out[1]);
  FILE* lines = ::fdopen(out[0], "r");
  char line[512] = {};
  ASSERT_TRUE(std::fgets(line, sizeof line, lines));
  const std::string first = line;
  ASSERT_EQ(first.find("serving on http://127.0.0.1:"), 0u) << first;
  httplib::Client client("127.0.0.1", std::stoi(first.substr(28)));
  auto answer = client.Post("/v1/advertisements",
                            {{iam::OspreyWebServiceEncryptionDetails::kDefaultKeyHeaderName,
                              std::string(iam::IAMWebService::kServiceKey)}},
                            "{}", "application/json");
  ASSERT_TRUE(answer);
  ASSERT_TRUE(std::fgets(line, sizeof line, lines));
  EXPECT_EQ(std::string(line), "POST /v1/advertisements 200 " +
                                   iam::ReferenceMarketingService::entityTagForBytes(readFile(campaign)) + "\n");
  ::kill(pid, SIGINT);
  int status = 0;
  ASSERT_EQ(::waitpid(pid, &status, 0), pid);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  EXPECT_TRUE(std::fgets(line, sizeof line, lines) && std::string(line) == "stopped\n");
  std::fclose(lines);
}

}  // namespace
