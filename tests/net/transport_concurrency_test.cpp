#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <thread>

#include "TestHttpServer.h"
#include "iam/net/OspreyWebService.h"
#include "iam/platform/RunLoop.h"
#include "testing/TestEnvironment.h"

namespace iam {
namespace {

using testing::TestHttpServer;

// Requests started from several threads, some cancelled from yet other threads while their answers
// arrive: every request ends exactly once (completion or cancel), never both, and the transport
// winds down afterwards.
TEST(TransportConcurrencyTest, RequestsFromManyThreadsWithRacingCancelsEachEndOnce) {
  testing::TestEnvironment env;
  TestHttpServer server([](const httplib::Request&, httplib::Response& response) {
    response.set_content(R"({"ok":true})", "application/json");
  }, 1);
  constexpr int kThreads = 4;
  constexpr int kPerThread = 12;
  struct Slot {
    std::shared_ptr<RequestTicketType> ticket;
    std::atomic<int> calls{0};
    std::atomic<bool> cancelRequested{false};
  };
  std::vector<Slot> slots(kThreads * kPerThread);
  std::vector<std::thread> starters;
  std::mutex ticketsMutex;
  for (int t = 0; t < kThreads; ++t) {
    starters.emplace_back([&, t] {
      OspreyWebService service(server.baseUrl());
      service.setVersion("v1");
      for (int i = 0; i < kPerThread; ++i) {
        Slot& slot = slots[t * kPerThread + i];
        auto request = service.createRequestFor("m" + std::to_string(i), std::nullopt);
        request->setCompletionHandler([&slot](const std::shared_ptr<ZTOspreyServiceRequestResultInterface>& r) {
          EXPECT_FALSE(r->failed()) << r->error().value_or("");
          slot.calls.fetch_add(1);
        });
        auto ticket = service.execute(request);
        std::lock_guard lock(ticketsMutex);
        slot.ticket = std::move(ticket);
      }
    });
  }
  std::thread canceller([&] {
    std::mt19937 random(7);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    for (int round = 0; round < 200; ++round) {
      // Paced by the answers, so that cancels meet requests waiting, running and answered.
      while (server.receivedCount() * 200 < round * slots.size() &&
             OspreyWebService::runningRequestCountForTesting() > 0 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
      Slot& slot = slots[random() % slots.size()];
      std::shared_ptr<RequestTicketType> ticket;
      {
        std::lock_guard lock(ticketsMutex);
        ticket = slot.ticket;
      }
      if (ticket && random() % 3 == 0) {
        slot.cancelRequested = true;
        ticket->cancel();
      }
    }
  });
  for (auto& starter : starters) starter.join();
  canceller.join();

  const auto allFinished = [&] {
    return std::all_of(slots.begin(), slots.end(), [](const Slot& s) { return s.ticket && s.ticket->isFinished(); });
  };
  ASSERT_TRUE(RunLoop::main().runUntil(allFinished, 30));
  ASSERT_TRUE(RunLoop::main().runUntil([] { return OspreyWebService::runningRequestCountForTesting() == 0; }, 10));
  env.settle();
  int completed = 0;
  for (const auto& slot : slots) {
    EXPECT_LE(slot.calls.load(), 1);
    if (!slot.cancelRequested) {
      EXPECT_EQ(slot.calls.load(), 1);
    }
    completed += slot.calls.load();
  }
  EXPECT_GT(completed, 0);
  EXPECT_LE(server.receivedCount(), slots.size());
}

}  // namespace
}  // namespace iam
