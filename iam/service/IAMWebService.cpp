#include "iam/service/IAMWebService.h"

#include <atomic>
#include <mutex>

#include <nlohmann/json.hpp>
#include <simdjson.h>

#include "iam/net/OspreyWebService.h"
#include "iam/platform/Environment.h"
#include "iam/service/AdvertisementsResponseParser.h"
#include "iam/service/NativeQualityNetworkResponseParser.h"
#include "iam/net/internal/ZTCancelledFlag.h"

namespace iam {

namespace {

std::mutex& defaultBaseUrlMutex() {
  static std::mutex mutex;
  return mutex;
}

std::optional<std::string>& hostDefaultBaseUrl() {
  static std::optional<std::string> value;  // guarded by defaultBaseUrlMutex()
  return value;
}

std::atomic<TimeInterval>& timeoutIntervalOverride() {
  static std::atomic<TimeInterval> value{0};  // 0: kTimeoutInterval
  return value;
}

// Turns one of the parsers into a parse handler; the parser's record becomes the result's data.
template <class Parser>
OspreyServiceRequest::ProcessReceivedDataHandler parseHandlerFor(std::shared_ptr<const Parser> parser) {
  return [parser = std::move(parser)](const simdjson::dom::element& json, const HttpResponseType& response,
                                      const std::shared_ptr<OspreyServiceContentInfo>& contentInfo,
                                      const ZTCancelledFlag&) -> std::any {
    if (!json.is_object()) return {};
    auto record = parser->parse(json, contentInfo, response.etag());
    if (!record) return {};
    return record;
  };
}

}  // namespace

IAMWebService::IAMWebService() : IAMWebService(defaultBaseUrl()) {}

IAMWebService::IAMWebService(std::string baseUrl)
    : baseUrl_(std::move(baseUrl)),
      advertisementsResponseParser_(std::make_shared<AdvertisementsResponseParser>()),
      nativeQualityNetworkResponseParser_(std::make_shared<NativeQualityNetworkResponseParser>()) {}

IAMWebService::~IAMWebService() = default;

void IAMWebService::setDefaultBaseUrl(std::optional<std::string> baseUrl) {
  std::lock_guard lock(defaultBaseUrlMutex());
  hostDefaultBaseUrl() = std::move(baseUrl);
}

void IAMWebService::setTimeoutIntervalForTesting(std::optional<TimeInterval> seconds) {
  timeoutIntervalOverride().store(seconds && *seconds > 0 ? *seconds : 0);
}

std::string IAMWebService::defaultBaseUrl() {
  {
    std::lock_guard lock(defaultBaseUrlMutex());
    if (hostDefaultBaseUrl()) return *hostDefaultBaseUrl();
  }
  if (auto fromEnvironment = Environment::variable("IAM_SERVICE_URL"); fromEnvironment && !fromEnvironment->empty()) {
    return *fromEnvironment;
  }
  return std::string(kBuiltInBaseUrl);
}

std::shared_ptr<RequestTicketType> IAMWebService::getAdvertisementsWithParameters(
    const IAMWebServiceParameters& parameters, CompletionHandler completionHandler) const {
  return execute(kAdvertisementsMethod, parameters.getContentAsDictionary(), parameters.etag(),
                 parseHandlerFor(advertisementsResponseParser_), std::move(completionHandler));
}

std::shared_ptr<RequestTicketType> IAMWebService::getNativeQualityNetworkWithParameters(
    const IAMWebServiceParameters& parameters, CompletionHandler completionHandler) const {
  return execute(kNativeQualityNetworkMethod, parameters.getContentAsDictionary(), parameters.etag(),
                 parseHandlerFor(nativeQualityNetworkResponseParser_), std::move(completionHandler));
}

std::shared_ptr<RequestTicketType> IAMWebService::execute(std::string_view method, const nlohmann::json& content,
                                                          const std::optional<std::string>& etag,
                                                          OspreyServiceRequest::ProcessReceivedDataHandler parseHandler,
                                                          CompletionHandler completionHandler) const {
  OspreyWebService service(baseUrl_);
  service.encryptionDetails().setKey(std::string(kServiceKey));
  service.setVersion(version_);
  auto request = service.createRequestFor(method, ztData(content, 0));
  if (!request) return nullptr;
  const TimeInterval timeout = timeoutIntervalOverride().load();
  request->httpConfig().setTimeoutInterval(timeout > 0 ? timeout : kTimeoutInterval);
  request->setCompletionHandler(std::move(completionHandler));
  request->setOspreyProcessReceivedDataHandler(std::move(parseHandler));
  request->httpConfig().setEtag(etag);
  return service.execute(request);
}

}  // namespace iam
