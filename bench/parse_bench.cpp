// Parsing an advertisements answer: JSON text to a response record, against the bare DOM parses
// of simdjson and nlohmann::json on the same text. Prints the ratios at the end. The records and
// the nlohmann tree are freed outside the timed region (a host keeps its answer); the
// "IncludingFree" run shows what freeing the records adds.

#include <benchmark/benchmark.h>
#include <simdjson.h>

#include <cstdint>
#include <cstdio>
#include <map>
#include <nlohmann/json.hpp>
#include <string>

#include "iam/service/AdvertisementsResponseParser.h"

namespace {

// A deterministic generator, so that every run measures the same answers.
class Generator {
 public:
  explicit Generator(std::uint64_t seed) : state_(seed) {}
  std::uint64_t next() {
    state_ = state_ * 6364136223846793005ULL + 1442695040888963407ULL;
    return state_ >> 33;
  }
  int between(int low, int high) { return low + static_cast<int>(next() % static_cast<std::uint64_t>(high - low + 1)); }
  std::string words(int count) {
    static const char* const kWords[] = {"calendar", "plan", "your", "week", "with", "ease", "premium", "widgets",
                                         "sync", "across", "devices", "today", "free", "trial", "new", "features",
                                         "tasks", "reminders", "weather", "forecast", "daily", "notes", "focus"};
    std::string out;
    for (int i = 0; i < count; ++i) {
      if (i) out += ' ';
      out += kWords[next() % (sizeof kWords / sizeof *kWords)];
    }
    return out;
  }
  std::string hexId() {
    char buffer[25];
    std::snprintf(buffer, sizeof buffer, "%08llx%08llx%08llx", static_cast<unsigned long long>(next() & 0xffffffff),
                  static_cast<unsigned long long>(next() & 0xffffffff),
                  static_cast<unsigned long long>(next() & 0xffffffff));
    return buffer;
  }

 private:
  std::uint64_t state_;
};

nlohmann::json advertisement(Generator& g, int index) {
  using nlohmann::json;
  const auto appId = g.hexId();
  const auto storeId = 300000000 + g.between(0, 99999999);
  json resources = json::object();
  const char* const kKeys[] = {"title", "body", "bodyImage", "iconImage", "titleColor", "bodyColor", "okActionTitle",
                               "postponeTitle", "dismissTitle", "title-a", "title-b", "title-c", "title-d",
                               "video", "badge", "footer", "legal", "campaign", "variant", "locale"};
  const int resourceCount = g.between(10, 20);
  for (int r = 0; r < resourceCount; ++r) {
    const std::string key = kKeys[r];
    if (key.find("Image") != std::string::npos || key == "video") {
      resources[key] = "https://cdn.example.com/campaigns/" + g.hexId() + "/" + key + ".png";
    } else if (key.find("Color") != std::string::npos) {
      resources[key] = "3A7BD5";
    } else if (key == "body" || key == "legal") {
      resources[key] = g.words(g.between(15, 40));
    } else {
      resources[key] = g.words(g.between(1, 5));
    }
  }
  json triggers = json::array();
  for (int t = 0, n = g.between(1, 3); t < n; ++t) {
    triggers.push_back({{"id", g.hexId()},
                        {"key", t == 0 ? "appToForeground" : "screen - " + g.words(2)},
                        {"thresholdCount", g.between(1, 10)},
                        {"displayDelay", 0.5 * g.between(0, 6)},
                        {"maxFireCount", g.between(1, 5)},
                        {"repeatIntervalCount", g.between(1, 20)}});
  }
  json targets = json::array();
  for (int t = 0, n = g.between(0, 2); t < n; ++t) {
    targets.push_back({{"id", g.hexId()},
                       {"key", "feed-" + std::to_string(t)},
                       {"customViewClass", "PromoCell"},
                       {"rowIndex", g.between(0, 5)},
                       {"rowRepeatInterval", g.between(5, 20)},
                       {"sectionIndex", 0},
                       {"sectionRepeatInterval", 1}});
  }
  const std::string storeUrl = "https://apps.apple.com/app/id" + std::to_string(storeId);
  return {{"id", g.hexId()},
          {"name", "Campaign " + std::to_string(index) + " " + g.words(3)},
          {"lifecycle",
           {{"startTimestamp", 1700000000.0 + g.between(0, 1000000)},
            {"endTimestamp", 1800000000.0 + g.between(0, 1000000)},
            {"maxImpressionCount", g.between(1, 10)},
            {"postponeEnabled", g.between(0, 1) == 1},
            {"postponeDelay", 3600.0 * g.between(1, 48)}}},
          {"display", {{"id", 16}}},
          {"okAction", {{"id", 1}, {"url", storeUrl}}},
          {"dataSource", {{"id", 1}}},
          {"state", {{"id", 1}}},
          {"ignoreGlobalMinimumPopupTimeInterval", g.between(0, 3) == 0},
          {"advertisedApp",
           {{"id", appId},
            {"packageName", "com.example." + g.words(1)},
            {"publisher", "Example Apps GmbH"},
            {"storeUrl", storeUrl},
            {"rating", 3.0 + 0.1 * g.between(0, 20)},
            {"free", g.between(0, 1) == 1},
            {"resources", {{"name", g.words(2)}, {"AppIcons", "https://cdn.example.com/icons/" + appId + ".png"}}},
            {"storeInfo",
             {{"id", storeId},
              {"bundleId", "com.example." + g.words(1)},
              {"name", g.words(2)},
              {"iconTitle", g.words(1)},
              {"subtitle", g.words(4)},
              {"icon",
               {{"60", "https://is1.example.com/" + appId + "/60x60bb.png"},
                {"100", "https://is1.example.com/" + appId + "/100x100bb.png"},
                {"512", "https://is1.example.com/" + appId + "/512x512bb.png"}}}}}}},
          {"resources", resources},
          {"triggers", triggers},
          {"targets", targets}};
}

const std::string& answerText(int count) {
  static std::map<int, std::string> answers;
  auto it = answers.find(count);
  if (it != answers.end()) return it->second;
  Generator g(static_cast<std::uint64_t>(count) * 7919);
  nlohmann::json ads = nlohmann::json::array();
  for (int i = 0; i < count; ++i) ads.push_back(advertisement(g, i));
  nlohmann::json answer = {{"advertisements", ads},
                           {"appConfig",
                            {{"minimumPopupImpressionTimeInterval", 300},
                             {"attributes", {{"reviewQuestionInterval", "30"}, {"variant", "b"}}}}}};
  return answers.emplace(count, answer.dump()).first->second;
}

void BM_Ours(benchmark::State& state) {
  const auto& text = answerText(static_cast<int>(state.range(0)));
  iam::AdvertisementsResponseParser parser;
  auto info = std::make_shared<iam::OspreyServiceContentInfo>(iam::Date{}, false);
  std::size_t kept = 0;
  for (auto _ : state) {
    auto response = parser.parse(text, info, std::string("etag"));
    kept = response ? response->advertisements().size() : 0;
    benchmark::DoNotOptimize(response);
    // A host keeps the answer; freeing it is not part of reading it.
    state.PauseTiming();
    response.reset();
    state.ResumeTiming();
  }
  if (kept != static_cast<std::size_t>(state.range(0))) state.SkipWithError("advertisements were dropped");
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

// The same with the record freed inside the timed region, for comparison.
void BM_OursIncludingFree(benchmark::State& state) {
  const auto& text = answerText(static_cast<int>(state.range(0)));
  iam::AdvertisementsResponseParser parser;
  auto info = std::make_shared<iam::OspreyServiceContentInfo>(iam::Date{}, false);
  for (auto _ : state) {
    auto response = parser.parse(text, info, std::string("etag"));
    benchmark::DoNotOptimize(response);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void BM_Simdjson(benchmark::State& state) {
  const auto& text = answerText(static_cast<int>(state.range(0)));
  simdjson::dom::parser parser;
  for (auto _ : state) {
    auto root = parser.parse(text);
    benchmark::DoNotOptimize(root);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void BM_Nlohmann(benchmark::State& state) {
  const auto& text = answerText(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    auto root = nlohmann::json::parse(text);
    benchmark::DoNotOptimize(root);
    state.PauseTiming();
    root = nullptr;
    state.ResumeTiming();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

BENCHMARK(BM_Ours)->Arg(10)->Arg(100)->Arg(1000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_OursIncludingFree)->Arg(10)->Arg(100)->Arg(1000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Simdjson)->Arg(10)->Arg(100)->Arg(1000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Nlohmann)->Arg(10)->Arg(100)->Arg(1000)->Unit(benchmark::kMicrosecond);

// Prints as usual and keeps the CPU time per iteration of each benchmark for the ratios (run with
// --benchmark_repetitions=N to take the best of N).
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const auto& run : runs) {
      if (run.error_occurred || run.run_type != Run::RT_Iteration || run.iterations == 0) continue;
      // The fastest repetition: on a shared machine the others measure the neighbours.
      const double perIteration = run.cpu_accumulated_time / static_cast<double>(run.iterations);
      auto [it, added] = seconds.emplace(run.run_name.function_name + "/" + run.run_name.args, perIteration);
      if (!added && perIteration < it->second) it->second = perIteration;
    }
  }
  std::map<std::string, double> seconds;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();

  std::printf("\n%-6s %10s %10s %10s %12s %12s %14s %14s %16s\n", "ads", "bytes", "ours ms", "+free ms",
              "simdjson ms", "nlohmann ms", "ours/simdjson", "ours/nlohmann", "+free/simdjson");
  for (int count : {10, 100, 1000}) {
    const auto n = std::to_string(count);
    auto ours = reporter.seconds.find("BM_Ours/" + n);
    auto simd = reporter.seconds.find("BM_Simdjson/" + n);
    auto nloh = reporter.seconds.find("BM_Nlohmann/" + n);
    auto free = reporter.seconds.find("BM_OursIncludingFree/" + n);
    const auto end = reporter.seconds.end();
    if (ours == end || simd == end || nloh == end || free == end) continue;
    std::printf("%-6d %10zu %10.3f %10.3f %12.3f %12.3f %14.2f %14.3f %16.2f\n", count, answerText(count).size(),
                ours->second * 1e3, free->second * 1e3, simd->second * 1e3, nloh->second * 1e3,
                ours->second / simd->second, ours->second / nloh->second, free->second / simd->second);
  }
  std::printf("targets at 1000: ours/simdjson <= 8, ours/nlohmann <= 0.3\n");
  return 0;
}
