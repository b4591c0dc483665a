#include <gtest/gtest.h>

#include <simdjson.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "TestHttpServer.h"
#include "iam/net/OspreyWebService.h"
#include "iam/platform/RunLoop.h"
#include "iam/net/internal/ZTCancelledFlag.h"

namespace iam {
namespace {

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

}  // namespace
}  // namespace iam
