#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

#include "iam/net/OspreyServiceRequest.h"
#include "iam/net/RequestTicketType.h"
#include "iam/platform/Date.h"
#include "iam/service/IAMWebServiceParameters.h"

namespace iam {

class AdvertisementsResponseParser;
class NativeQualityNetworkResponseParser;

// The library's client of the marketing service: two calls, each a POST of the parameters' body
// to one service method, answered with a parsed response record. The manager makes a fresh client
// for every call; a client may be dropped while its calls run. Its fields are fixed after
// construction, so it may be used from any thread. Completions run on the main loop.
class IAMWebService {
 public:
  using CompletionHandler = OspreyServiceRequest::CompletionHandler;

  static constexpr std::string_view kServiceKey = "Qm7xR2pLk9VtZs4HcW8nYb3JdF6gTa1E";
  static constexpr std::string_view kVersion = "v1";
  static constexpr TimeInterval kTimeoutInterval = 5.0;
  static constexpr std::string_view kAdvertisementsMethod = "advertisements";
  static constexpr std::string_view kNativeQualityNetworkMethod = "nativeQualityNetwork";
  // Used when neither the host nor IAM_SERVICE_URL names another service.
  static constexpr std::string_view kBuiltInBaseUrl = "https://iam.example.com";

  // The client of the default base URL (see `defaultBaseUrl`).
  IAMWebService();
  explicit IAMWebService(std::string baseUrl);
  ~IAMWebService();
  IAMWebService(const IAMWebService&) = delete;
  IAMWebService& operator=(const IAMWebService&) = delete;

  // The base URL of clients made with `IAMWebService()`: the host's choice if it made one, else the
  // environment variable IAM_SERVICE_URL when set and not empty, else `kBuiltInBaseUrl`. A host
  // sets it once, before it creates the manager; none returns to the environment's choice.
  static void setDefaultBaseUrl(std::optional<std::string> baseUrl);
  static std::string defaultBaseUrl();

  // The time-out of requests started from now on instead of `kTimeoutInterval`, so that a test of a
  // stalled service need not wait five seconds; none restores it. Thread-safe.
  static void setTimeoutIntervalForTesting(std::optional<TimeInterval> seconds);

  const std::string& baseUrl() const { return baseUrl_; }
  const std::string& version() const { return version_; }
  const AdvertisementsResponseParser& advertisementsResponseParser() const { return *advertisementsResponseParser_; }
  const NativeQualityNetworkResponseParser& nativeQualityNetworkResponseParser() const {
    return *nativeQualityNetworkResponseParser_;
  }

  // The result's data is a `std::shared_ptr<AdvertisementsRequestResponse>` (`dataAs<…>()`), or
  // empty when the answer could not be parsed. No ticket when the request could not be built; the
  // completion is then never called.
  std::shared_ptr<RequestTicketType> getAdvertisementsWithParameters(const IAMWebServiceParameters& parameters,
                                                                     CompletionHandler completionHandler) const;
  // As above, with a `std::shared_ptr<NativeQualityNetworkResponse>` as data.
  std::shared_ptr<RequestTicketType> getNativeQualityNetworkWithParameters(const IAMWebServiceParameters& parameters,
                                                                           CompletionHandler completionHandler) const;

 private:
  std::shared_ptr<RequestTicketType> execute(std::string_view method, const nlohmann::json& content,
                                             const std::optional<std::string>& etag,
                                             OspreyServiceRequest::ProcessReceivedDataHandler parseHandler,
                                             CompletionHandler completionHandler) const;

  const std::string baseUrl_;
  const std::string version_{kVersion};
  // Shared with the parse handlers, which may run after the client is gone.
  const std::shared_ptr<const AdvertisementsResponseParser> advertisementsResponseParser_;
  const std::shared_ptr<const NativeQualityNetworkResponseParser> nativeQualityNetworkResponseParser_;
};

}  // namespace iam
