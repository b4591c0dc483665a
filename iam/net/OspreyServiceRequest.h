#pragma once

#include <any>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "iam/net/HttpRequestConfig.h"
#include "iam/net/HttpResponseType.h"
#include "iam/net/OspreyServiceContentInfo.h"
#include "iam/net/ZTOspreyServiceRequestResultInterface.h"
#include "iam/platform/Archivable.h"

namespace simdjson::dom {
class element;
}

namespace iam {

class ZTCancelledFlag;

// One call of a service method, made by `OspreyWebService::createRequestFor` and run by
// `OspreyWebService::execute`. Configure it on one thread before executing it; the running call
// works on a copy, so later changes have no effect on it.
class OspreyServiceRequest {
 public:
  // Called once on the main loop when the request ends (not after `cancel`).
  using CompletionHandler = std::function<void(const std::shared_ptr<ZTOspreyServiceRequestResultInterface>& result)>;
  // Turns the decoded answer (always a JSON object) into the result's data; runs on the transport
  // thread. Returning an empty value leaves the result without data. `json` is valid only during
  // the call.
  using ProcessReceivedDataHandler =
      std::function<std::any(const simdjson::dom::element& json, const HttpResponseType& response,
                             const std::shared_ptr<OspreyServiceContentInfo>& contentInfo,
                             const ZTCancelledFlag& cancelled)>;

  OspreyServiceRequest(std::string url, std::string method, std::optional<Data> content)
      : url_(std::move(url)), method_(std::move(method)), content_(std::move(content)) {}

  // The full address: {baseUrl}/{version}/{method}.
  const std::string& url() const { return url_; }
  const std::string& method() const { return method_; }
  // The JSON body; none sends an empty body.
  const std::optional<Data>& content() const { return content_; }

  HttpRequestConfig& httpConfig() { return httpConfig_; }
  const HttpRequestConfig& httpConfig() const { return httpConfig_; }

  const CompletionHandler& completionHandler() const { return completionHandler_; }
  void setCompletionHandler(CompletionHandler handler) { completionHandler_ = std::move(handler); }

  const ProcessReceivedDataHandler& ospreyProcessReceivedDataHandler() const { return processReceivedDataHandler_; }
  void setOspreyProcessReceivedDataHandler(ProcessReceivedDataHandler handler) {
    processReceivedDataHandler_ = std::move(handler);
  }

 private:
  const std::string url_;
  const std::string method_;
  const std::optional<Data> content_;
  HttpRequestConfig httpConfig_;
  CompletionHandler completionHandler_;
  ProcessReceivedDataHandler processReceivedDataHandler_;
};

}  // namespace iam
