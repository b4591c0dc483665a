#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "iam/net/OspreyServiceRequest.h"
#include "iam/net/RequestTicketType.h"

namespace iam {

// Everything a running request needs, copied out of the request when it is executed.
struct OspreyTransferSpec {
  std::string url;
  std::optional<Data> body;
  std::vector<std::string> headers;  // "Name: value", beyond the JSON content headers
  std::optional<std::string> sentEtag;  // as sent in If-None-Match
  TimeInterval timeoutInterval = HttpRequestConfig::kDefaultTimeoutInterval;
  std::size_t maximumBodySize = HttpRequestConfig::kDefaultMaximumBodySize;
  OspreyServiceRequest::CompletionHandler completion;
  OspreyServiceRequest::ProcessReceivedDataHandler parseHandler;
};

// The process's one HTTP transport: a libcurl multi handle driven by one thread, started with the
// first request and kept, so that starting a request never waits for a thread to end and
// connections are reused. Never destroyed; at exit its thread is stopped and joined (requests in
// flight then never complete). Internal to the service-call layer; use `OspreyWebService`.
// Thread-safe.
class OspreyTransport {
 public:
  static std::shared_ptr<OspreyTransport> shared();

  ~OspreyTransport();
  OspreyTransport(const OspreyTransport&) = delete;
  OspreyTransport& operator=(const OspreyTransport&) = delete;

  std::shared_ptr<RequestTicketType> start(OspreyTransferSpec spec);

  std::size_t runningRequestCount() const;

 private:
  struct Impl;
  OspreyTransport();
  std::unique_ptr<Impl> impl_;
};

}  // namespace iam
