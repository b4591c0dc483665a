#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

#include "iam/net/OspreyServiceRequest.h"
#include "iam/net/OspreyWebServiceEncryptionDetails.h"
#include "iam/net/RequestTicketType.h"
#include "iam/platform/Archivable.h"

namespace iam {

// One marketing service endpoint: where requests go, the API version they carry and the key they
// prove themselves with. Requests run on the process's transport thread: several at once, each
// POSTing its JSON body to {baseUrl}/{version}/{method}; the parse handler runs there and the
// completion is posted to the main loop. The endpoint may be dropped as soon as `execute`
// returns: the transport keeps what a running request needs.
//
// Use an endpoint from one thread at a time; `execute` may be called from any thread.
class OspreyWebService {
 public:
  // `baseUrl` is an http or https URL without query; https peers are verified.
  explicit OspreyWebService(std::string baseUrl);

  const std::string& baseUrl() const { return baseUrl_; }

  OspreyWebServiceEncryptionDetails& encryptionDetails() { return encryptionDetails_; }
  const OspreyWebServiceEncryptionDetails& encryptionDetails() const { return encryptionDetails_; }

  // The API version that requests made from now on carry in their path; none leaves it out.
  const std::optional<std::string>& version() const { return version_; }
  void setVersion(std::optional<std::string> version) { version_ = std::move(version); }

  // A request for the service method `method` with an optional JSON body; none when the base URL
  // is not an http(s) URL or the method name is not a plain path segment.
  std::shared_ptr<OspreyServiceRequest> createRequestFor(std::string_view method, std::optional<Data> content) const;

  // Starts the request and returns its ticket; none for a missing request. Every started request
  // ends with exactly one completion call, unless cancelled.
  std::shared_ptr<RequestTicketType> execute(const std::shared_ptr<OspreyServiceRequest>& request) const;

  // Requests started and not yet handed to the main loop (or dropped after a cancel).
  static std::size_t runningRequestCountForTesting();

 private:
  const std::string baseUrl_;
  OspreyWebServiceEncryptionDetails encryptionDetails_;
  std::optional<std::string> version_;
};

// Writing options of `ztData`; 0 writes compact JSON.
enum ZTJSONWritingOptions : unsigned { ZTJSONWritingOptionsPrettyPrinted = 1u << 0 };

// Serialises a JSON value to UTF-8 bytes; none when it cannot be written (invalid UTF-8 in a text).
std::optional<Data> ztData(const nlohmann::json& jsonObject, unsigned options);

}  // namespace iam
