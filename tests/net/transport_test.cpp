#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <simdjson.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "TestHttpServer.h"
#include "iam/net/OspreyWebService.h"
#include "iam/platform/Clock.h"
#include "iam/platform/RunLoop.h"
#include "iam/net/internal/ZTCancelledFlag.h"
#include "testing/TestEnvironment.h"

namespace iam {
namespace {

using testing::TestHttpServer;
using Result = std::shared_ptr<ZTOspreyServiceRequestResultInterface>;
using Configure = std::function<void(OspreyServiceRequest&)>;

// A configure step that installs a parse handler taking only the decoded answer.
Configure parsingWith(std::function<std::any(const simdjson::dom::element&)> parse) {
  return [parse](OspreyServiceRequest& request) {
    request.setOspreyProcessReceivedDataHandler(
        [parse](const simdjson::dom::element& json, const HttpResponseType&,
                const std::shared_ptr<OspreyServiceContentInfo>&, const ZTCancelledFlag&) { return parse(json); });
  };
}

bool transportWindsDown() {
  return RunLoop::main().runUntil([] { return OspreyWebService::runningRequestCountForTesting() == 0; }, 5);
}

class TransportTest : public ::testing::Test {
 protected:
  void TearDown() override { EXPECT_TRUE(transportWindsDown()); }

  testing::TestEnvironment env;

  // Executes a request at `baseUrl` and runs the main loop until its completion.
  Result call(const std::string& baseUrl, const Configure& configure = {}) {
    OspreyWebService service(baseUrl);
    auto request = service.createRequestFor("m", std::nullopt);
    EXPECT_TRUE(request) << baseUrl;
    if (!request) return nullptr;
    request->httpConfig().setTimeoutInterval(5);
    if (configure) configure(*request);
    Result result;
    int calls = 0;
    bool onMain = false;
    request->setCompletionHandler([&](const Result& r) { result = r, ++calls, onMain = RunLoop::main().isMainThread(); });
    auto ticket = service.execute(request);
    EXPECT_FALSE(ticket->isFinished());
    EXPECT_TRUE(RunLoop::main().runUntil([&] { return calls > 0; }, 10));
    EXPECT_TRUE(ticket->isFinished());
    RunLoop::main().runUntilIdle();
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(onMain);
    return result;
  }
};

TEST_F(TransportTest, RequestsAreBuiltOnlyForWebAddressesAndPlainMethodNames) {
  OspreyWebService good("https://service.example.com");
  EXPECT_EQ(good.createRequestFor("advertisements", std::nullopt)->url(),
            "https://service.example.com/advertisements");  // no version set
  EXPECT_EQ(OspreyWebService("https://service.example.com/").createRequestFor("m", std::nullopt)->url(),
            "https://service.example.com/m");
  good.setVersion("v2");
  EXPECT_EQ(good.createRequestFor("m", std::nullopt)->url(), "https://service.example.com/v2/m");
  for (const char* method : {"", "a/b", "..", "a b", "a?b", "ad\nverts"}) {
    EXPECT_EQ(good.createRequestFor(method, std::nullopt), nullptr) << method;
  }
  good.setVersion("v/1");
  EXPECT_EQ(good.createRequestFor("m", std::nullopt), nullptr);
  for (const char* base : {"", "not a url", "ftp://service.example.com", "https://service.example.com/?q=1",
                           "mailto:someone@example.com", "file:///tmp"}) {
    EXPECT_EQ(OspreyWebService(base).createRequestFor("m", std::nullopt), nullptr) << base;
  }
  EXPECT_EQ(good.execute(nullptr), nullptr);
}

// What goes on the wire is met against the reference service in tests/integration.
TEST_F(TransportTest, EachKindOfAnswerEndsInItsResultAndError) {
  env.clock().setNow(dateWithTimeIntervalSince1970(5000));
  enum Parse { Keep, Nothing, Throw };
  struct Case {
    int status;
    std::string body;
    bool sendTag = false;
    Parse parse = Keep;
    bool failed = true;
    std::string error;  // the start of it; empty for none
    bool notModified = false;
    bool chunked = false;    // sent without announcing its length
    std::size_t limit = 0;   // the answer's size limit; 0 leaves the default
  };
  // An object holding arrays, `levels` deep in all.
  const auto nested = [](int levels) { return "{\"a\":" + std::string(levels - 1, '[') + std::string(levels - 1, ']') + "}"; };
  const std::string big = "{\"p\":\"" + std::string(3000, 'x') + "\"}";
  const std::vector<Case> cases = {
      {200, R"({"name":"answer"})", false, Keep, false, ""},
      {304, "", true, Keep, false, "", true},
      {304, "", false, Keep, true, "the service answered with HTTP status 304"},
      {500, R"({"error":"boom"})", false, Keep, true, "the service answered with HTTP status 500"},
      {401, "", false, Keep, true, "the service refused the request's key (HTTP status 401)"},
      {302, "", false, Keep, true, "the service answered with HTTP status 302"},
      {200, "", false, Keep, true, "the service's answer is empty"},
      {200, "[1,2]", false, Keep, true, "the service's answer is not a JSON object"},
      {200, "{\"a\":", false, Keep, true, "the service's answer is not valid JSON"},
      {200, R"({"a":1} x)", false, Keep, true, "the service's answer is not valid JSON"},
      {200, std::string(100'000, '['), false, Keep, true, "the service's answer is not valid JSON"},
      {200, nested(64), false, Nothing, false, "the service's answer was not understood"},
      {200, nested(65), false, Keep, true, "the service's answer is nested deeper than 64 levels"},
      {200, R"({"x":1})", false, Throw, true, "reading the service's answer failed (bad)"},
      {200, big, false, Keep, true, "the service's answer is larger than the limit of 1000 bytes", false, false, 1000},
      {200, big, false, Keep, true, "the service's answer is larger than the limit of 1000 bytes", false, true, 1000},
      {200, big, false, Nothing, false, "the service's answer was not understood", false, true, big.size()},
  };
  std::mutex mutex;
  Case current;
  TestHttpServer server([&](const httplib::Request&, httplib::Response& response) {
    std::lock_guard lock(mutex);
    response.status = current.status;
    if (current.status == 302) response.set_header("Location", "http://127.0.0.1:1/elsewhere");
    if (current.chunked) {
      response.set_chunked_content_provider("application/json", [body = current.body](size_t, httplib::DataSink& sink) {
        for (size_t i = 0; i < body.size(); i += 500) sink.write(body.data() + i, std::min<size_t>(500, body.size() - i));
        sink.done();
        return true;
      });
    } else if (!current.body.empty()) {
      response.set_content(current.body, "application/json");
    }
  });
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.status) + " " + c.body.substr(0, 40) + (c.chunked ? " chunked" : ""));
    {
      std::lock_guard lock(mutex);
      current = c;
    }
    int handlerCalls = 0;
    auto result = call(server.baseUrl(), [&](OspreyServiceRequest& request) {
      if (c.sendTag) request.httpConfig().setEtag("\"v1\"");
      if (c.limit) request.httpConfig().setMaximumBodySize(c.limit);
      parsingWith([&](const simdjson::dom::element&) -> std::any {
        EXPECT_FALSE(RunLoop::main().isMainThread());
        ++handlerCalls;
        if (c.parse == Throw) throw std::runtime_error("bad");
        return c.parse == Keep ? std::any(1) : std::any();
      })(request);
    });
    ASSERT_TRUE(result);
    EXPECT_EQ(result->failed(), c.failed);
    EXPECT_TRUE(result->error().value_or("").starts_with(c.error)) << result->error().value_or("");
    EXPECT_EQ(result->error().has_value(), !c.error.empty());
    EXPECT_EQ(result->contentIsNotModified(), c.notModified);
    EXPECT_EQ(handlerCalls, c.status == 200 && (!c.failed || c.parse == Throw) ? 1 : 0);
    EXPECT_EQ(result->data().has_value(), c.parse == Keep && !c.failed && !c.notModified);
    // Only what the service answered has content info, stamped with the clock's time.
    if (c.failed) {
      EXPECT_FALSE(result->contentInfo());
    } else {
      ASSERT_TRUE(result->contentInfo());
      EXPECT_EQ(result->contentInfo()->localCreatedAt(), dateWithTimeIntervalSince1970(5000));
    }
  }
}

TEST_F(TransportTest, PlainHttpReachesOnlyThisMachine) {
  TestHttpServer server([](const httplib::Request&, httplib::Response& response) { response.set_content("{}", "application/json"); });
  const std::string port = server.baseUrl().substr(server.baseUrl().rfind(':')), connect = "could not connect",
                    refused = "plain http is only allowed to this machine (127.0.0.0/8, ::1, localhost), not to ";
  // Loopback hosts where nobody listens are still tried; the others are refused without trying.
  for (const auto& [host, error] : std::vector<std::pair<std::string, std::string>>{
           {"LocalHost", "none"}, {"127.0.0.2", connect}, {"127.255.0.1", connect}, {"[::1]", connect},
           {"192.0.2.1", refused}, {"example.invalid", refused}, {"127.0.0.1.example", refused},
           {"localhost.example", refused}, {"[::ffff:127.0.0.1]", refused}}) {
    EXPECT_TRUE(call("http://" + host + port)->error().value_or("none").starts_with(error)) << host;
  }
}

// Both requests reach the server while it holds the first answer: they run at once.
TEST_F(TransportTest, RequestsRunAtOnceAndCancelledOnesNeverCompleteAndFreeTheTransport) {
  TestHttpServer server([&](const httplib::Request&, httplib::Response& response) {
    server.holdUntilReleased(30);
    response.set_content("{}", "application/json");
  });
  OspreyWebService service(server.baseUrl());
  int calls = 0;
  auto captured = std::make_shared<int>(0);
  std::weak_ptr<int> capturedWeak = captured;
  std::vector<std::shared_ptr<RequestTicketType>> tickets;
  for (int i = 0; i < 2; ++i) {
    auto request = service.createRequestFor("m", std::nullopt);
    request->setCompletionHandler([&calls, captured](const Result&) { ++calls; });
    tickets.push_back(service.execute(request));  // the transport keeps what it needs of the request
  }
  captured.reset();
  ASSERT_TRUE(RunLoop::main().runUntil([&] { return server.receivedCount() == 2; }, 10));
  EXPECT_EQ(OspreyWebService::runningRequestCountForTesting(), 2u);
  for (const auto& ticket : tickets) ticket->cancel();
  EXPECT_TRUE(tickets[0]->isFinished());
  EXPECT_TRUE(transportWindsDown());
  server.release();
  RunLoop::main().runUntilIdle();
  EXPECT_EQ(calls, 0);
  EXPECT_TRUE(capturedWeak.expired());
  tickets[1]->cancel();  // harmless once finished
}

TEST(TransportExitTest, AProcessEndsCleanlyWhileARequestIsStillRunning) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        static TestHttpServer* server = nullptr;  // left running: the process ends under it
        server = new TestHttpServer([](const httplib::Request&, httplib::Response& response) {
          server->holdUntilReleased(30);
          response.set_content("{}", "application/json");
        });
        OspreyWebService service(server->baseUrl());
        auto request = service.createRequestFor("m", std::nullopt);
        request->setCompletionHandler([](const Result&) { std::_Exit(3); });
        auto ticket = service.execute(request);
        RunLoop::main().runUntil([&] { return server->receivedCount() == 1; }, 10);
        std::exit(OspreyWebService::runningRequestCountForTesting() == 1 ? 0 : 4);
      },
      ::testing::ExitedWithCode(0), "");
}

// Counts every value of a decoded answer, so that the whole tree handed to a parse handler is read.
std::size_t countValues(const simdjson::dom::element& element) {
  std::size_t count = 1;
  simdjson::dom::array array;
  simdjson::dom::object object;
  if (!element.get(array)) {
    for (auto child : array) count += countValues(child);
  } else if (!element.get(object)) {
    for (auto field : object) count += countValues(field.value);
  }
  return count;
}

// Every file of the JSON test suite served as an answer: the transport never crashes or hangs, takes
// what must be accepted when it is an object, and refuses what must be refused.
TEST(TransportCorpusTest, EveryCorpusFileEndsInAResultOfTheRightKind) {
  const std::filesystem::path directory = IAM_CORPUS_DIR "/jsontestsuite/test_parsing";
  std::map<std::string, std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    std::ifstream in(entry.path(), std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    files[entry.path().filename().string()] = bytes.str();
  }
  ASSERT_GT(files.size(), 300u);

  testing::TestHttpServer server([&](const httplib::Request& request, httplib::Response& response) {
    response.set_content(files.at(request.get_header_value("X-File")), "application/json");
  });
  OspreyWebService service(server.baseUrl());
  std::size_t accepted = 0;
  for (const auto& [name, body] : files) {
    auto request = service.createRequestFor("corpus", std::nullopt);
    std::shared_ptr<ZTOspreyServiceRequestResultInterface> result;
    request->setCompletionHandler([&](const auto& r) { result = r; });
    request->setOspreyProcessReceivedDataHandler(
        [](const simdjson::dom::element& json, const HttpResponseType&,
           const std::shared_ptr<OspreyServiceContentInfo>&, const ZTCancelledFlag&) -> std::any {
          return countValues(json);
        });
    // The file travels by name in a header, which the endpoint does not otherwise use.
    OspreyWebService named(server.baseUrl());
    named.encryptionDetails().setKeyHeaderName("X-File");
    named.encryptionDetails().setKey(name);
    ASSERT_TRUE(named.execute(request));
    ASSERT_TRUE(RunLoop::main().runUntil([&] { return result != nullptr; }, 10)) << name;

    simdjson::dom::parser reference;
    simdjson::dom::element root;
    const bool valid = !reference.parse(body).get(root);
    const bool isObject = valid && root.is_object();
    if (name.starts_with("y_") && isObject) {
      EXPECT_FALSE(result->failed()) << name << ": " << result->error().value_or("");
      EXPECT_TRUE(result->data().has_value()) << name;
    }
    if (name.starts_with("n_") || !isObject) {
      EXPECT_TRUE(result->failed()) << name;
      EXPECT_FALSE(result->data().has_value()) << name;
    }
    accepted += result->failed() ? 0 : 1;
  }
  EXPECT_GT(accepted, 10u);
}

// Compact output is what every request body shows; what is left is the text that cannot be written.
TEST(ZTDataTest, RefusesTextThatIsNotUtf8AndPrettyPrintsOnRequest) {
  EXPECT_FALSE(ztData(nlohmann::json{{"bad", std::string("\xff\xfe")}}, 0));
  const auto pretty = ztData(nlohmann::json{{"a", 1}}, ZTJSONWritingOptionsPrettyPrinted);
  ASSERT_TRUE(pretty);
  EXPECT_NE(std::string(pretty->begin(), pretty->end()).find('\n'), std::string::npos);
}

}  // namespace
}  // namespace iam
