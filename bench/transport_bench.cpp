// How long `execute` holds the main loop right after a burst of concurrent requests has ended,
// against the reference service on loopback.
#include <benchmark/benchmark.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "iam/net/OspreyWebService.h"
#include "iam/platform/RunLoop.h"
#include "tools/refservice/ReferenceMarketingService.h"

namespace {

void BM_ExecuteAfterBurst(benchmark::State& state) {
  const auto burst = static_cast<int>(state.range(0));
  iam::ReferenceMarketingService service;
  service.setAnswer("advertisements", R"({"advertisements":[]})");
  if (!service.start()) {
    state.SkipWithError("the reference service did not start");
    return;
  }
  iam::OspreyWebService web(service.baseUrl());
  web.setVersion("v1");
  auto& loop = iam::RunLoop::main();
  double worst = 0;
  for (auto _ : state) {
    int done = 0;
    std::vector<std::shared_ptr<iam::RequestTicketType>> tickets;
    for (int i = 0; i < burst; ++i) {
      auto request = web.createRequestFor("advertisements", std::nullopt);
      request->setCompletionHandler([&done](const auto&) { ++done; });
      tickets.push_back(web.execute(request));
    }
    loop.runUntil([&] { return done == burst; }, 30);
    // The burst has ended; its connections are being closed or kept while this request starts.
    auto request = web.createRequestFor("advertisements", std::nullopt);
    request->setCompletionHandler([&done](const auto&) { ++done; });
    const auto begin = std::chrono::steady_clock::now();
    auto ticket = web.execute(request);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    state.SetIterationTime(seconds);
    worst = std::max(worst, seconds);
    loop.runUntil([&] { return done == burst + 1; }, 30);
  }
  state.counters["worst_ms"] = worst * 1e3;
  service.stop();
}
BENCHMARK(BM_ExecuteAfterBurst)->Arg(50)->Arg(100)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(30);

}  // namespace

BENCHMARK_MAIN();
